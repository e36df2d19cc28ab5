#pragma once

#include "sources/ArisLiveSettings.h"

#include <QDialog>

class QComboBox;
class QLineEdit;
class QListWidget;

namespace Halcyra::Nereon::Sources {
class ArisSonarList;
}

/**
 * "Connect to sonar": the ARIS sonars heard on the network, with their serial
 * number, model, software version, address and whether another client has them;
 * or a serial number or address typed in; and how the sonar should image.
 */
class ConnectDialog : public QDialog
{
    Q_OBJECT

public:
    explicit ConnectDialog(QWidget* parent = nullptr);
    ~ConnectDialog() override;

    /// The serial number or address to connect to.
    QString getTarget() const;
    Halcyra::Nereon::Sources::ArisLiveSettings getSettings() const;

private:
    void showSonars();

    Halcyra::Nereon::Sources::ArisSonarList* sonars = nullptr;
    QListWidget* list = nullptr;
    QLineEdit* targetEdit = nullptr;
    QComboBox* presetBox = nullptr;
};
