#include "MeasurementsPanel.h"

#include "views/MeasurementLog.h"

#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>

using Halcyra::Nereon::Views::MeasurementLog;

MeasurementsPanel::MeasurementsPanel(MeasurementLog* measurementLog, QWidget* parent)
    : QWidget(parent)
    , log(measurementLog)
{
    table = new QTableView;
    table->setObjectName("measurementTable");
    table->setModel(log);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->verticalHeader()->hide();
    table->setToolTip(tr("Double-click a measurement to show its frame"));
    // What a reader looks for first; the fan coordinates stay a scroll away.
    for (int column : { MeasurementLog::StartAcrossColumn, MeasurementLog::StartAlongColumn,
             MeasurementLog::EndAcrossColumn, MeasurementLog::EndAlongColumn })
        table->setColumnHidden(column, true);
    // The length first, where a narrow dock still shows it; the time last, being the widest.
    QHeaderView* header = table->horizontalHeader();
    header->moveSection(header->visualIndex(MeasurementLog::ValueColumn), 1);
    header->moveSection(header->visualIndex(MeasurementLog::UnitColumn), 2);
    header->moveSection(header->visualIndex(MeasurementLog::TimeColumn), MeasurementLog::ColumnCount - 1);

    deleteButton = new QPushButton(tr("Delete"));
    deleteButton->setObjectName("deleteMeasurement");
    deleteButton->setShortcut(QKeySequence::Delete);
    auto* exportButton = new QPushButton(tr("Export CSV\u2026"));
    exportButton->setObjectName("exportMeasurements");
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(deleteButton);
    buttons->addStretch(1);
    buttons->addWidget(exportButton);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(table, 1);
    layout->addLayout(buttons);

    connect(deleteButton, &QPushButton::clicked, this, &MeasurementsPanel::deleteSelected);
    connect(exportButton, &QPushButton::clicked, this, &MeasurementsPanel::exportCsv);
    connect(table, &QTableView::doubleClicked, this, [this](const QModelIndex& index) {
        const auto& entries = log->getEntries();
        // The log counts frames from 1, as the player shows them.
        if (index.isValid() && index.row() < int(entries.size()) && entries[index.row()].frame >= 1)
            emit frameRequested(entries[index.row()].frame - 1);
    });
    connect(log, &MeasurementLog::measurementLogged, table, [this](int row) {
        table->resizeColumnsToContents();
        table->scrollTo(log->index(row, 0));
    });
}

void MeasurementsPanel::deleteSelected()
{
    QList<int> rows;
    for (const QModelIndex& index : table->selectionModel()->selectedRows())
        rows.append(index.row());
    // From the bottom up, so that the rows still to go keep their numbers.
    std::sort(rows.begin(), rows.end(), std::greater<int>());
    for (int row : rows)
        log->removeRows(row, 1);
}

void MeasurementsPanel::exportCsv()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    const QString path = QFileDialog::getSaveFileName(
        this, tr("Export measurements"), QDir(folder).filePath("measurements.csv"), tr("CSV files (*.csv)"));
    if (path.isEmpty())
        return;
    QString error;
    if (!log->exportCsv(path, &error))
        QMessageBox::warning(this, tr("Export measurements"), error);
}
