#pragma once

#include <QWidget>

class QPushButton;
class QTableView;

namespace Halcyra::Nereon::Views {
class MeasurementLog;
}

/**
 * The measurements taken on the fan and the magnifier, as a table: delete rows,
 * export them to CSV, and double-click a row to go back to its frame.
 */
class MeasurementsPanel : public QWidget
{
    Q_OBJECT

public:
    /// Shows `log` (borrowed; it must outlive the panel).
    explicit MeasurementsPanel(Halcyra::Nereon::Views::MeasurementLog* log, QWidget* parent = nullptr);

    QTableView* getTable() const { return table; }
    /// Asks for a file and writes the log there.
    void exportCsv();

signals:
    /// The user asked to see the frame a measurement was taken on (zero-based).
    void frameRequested(int frame);

private:
    void deleteSelected();

    Halcyra::Nereon::Views::MeasurementLog* log = nullptr;
    QTableView* table = nullptr;
    QPushButton* deleteButton = nullptr;
};
