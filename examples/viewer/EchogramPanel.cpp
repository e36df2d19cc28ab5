#include "EchogramPanel.h"

#include "views/EchogramDisplay.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

using Halcyra::Nereon::Views::EchogramDisplay;

EchogramPanel::EchogramPanel(QWidget* parent)
    : QWidget(parent)
{
    echogram = new EchogramDisplay;
    echogram->setObjectName("echogram");
    echogram->setMinimumHeight(110);
    echogram->setToolTip(tr("Click or drag to show a frame; wheel to zoom in time; right drag to pan"));

    loadRow = new QWidget;
    auto* row = new QHBoxLayout(loadRow);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(new QLabel(tr("Reading the recording")));
    progress = new QProgressBar;
    progress->setObjectName("echogramProgress");
    row->addWidget(progress, 1);
    cancelButton = new QPushButton(tr("Stop"));
    row->addWidget(cancelButton);
    loadRow->hide();
    messageLabel = new QLabel;
    messageLabel->setObjectName("echogramMessage");
    messageLabel->hide();

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(2, 2, 2, 2);
    layout->setSpacing(2);
    layout->addWidget(echogram, 1);
    layout->addWidget(loadRow);
    layout->addWidget(messageLabel);

    connect(cancelButton, &QPushButton::clicked, echogram, &EchogramDisplay::cancelLoad);
    connect(echogram, &EchogramDisplay::loadProgress, this, [this](int done, int count) {
        progress->setRange(0, count);
        progress->setValue(done);
        loadRow->show();
        messageLabel->hide();
    });
    connect(echogram, &EchogramDisplay::loadFinished, this, [this](bool) {
        loadRow->hide();
        // Damage or a failure is said where the echogram is seen.
        const QString message = echogram->getLoadMessage();
        messageLabel->setText(message);
        messageLabel->setVisible(!message.isEmpty());
    });
}
