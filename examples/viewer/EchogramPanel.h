#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace Halcyra::Nereon::Views {
class EchogramDisplay;
}

/**
 * The echogram under the fan, with the progress of a recording being read into
 * it and a button that stops the reading.
 */
class EchogramPanel : public QWidget
{
    Q_OBJECT

public:
    explicit EchogramPanel(QWidget* parent = nullptr);

    Halcyra::Nereon::Views::EchogramDisplay* getEchogram() const { return echogram; }

private:
    Halcyra::Nereon::Views::EchogramDisplay* echogram = nullptr;
    QWidget* loadRow = nullptr;
    QProgressBar* progress = nullptr;
    QPushButton* cancelButton = nullptr;
    QLabel* messageLabel = nullptr;
};
