#include "ConnectDialog.h"

#include "sources/ArisSonarList.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Halcyra::Nereon::Sources;

ConnectDialog::ConnectDialog(QWidget* parent)
    : QDialog(parent)
    , sonars(new ArisSonarList(this))
{
    setWindowTitle(tr("Connect to sonar"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("ARIS sonars heard on the network:")));
    list = new QListWidget;
    list->setObjectName("sonarList");
    layout->addWidget(list, 1);
    auto* form = new QFormLayout;
    targetEdit = new QLineEdit;
    targetEdit->setObjectName("targetEdit");
    targetEdit->setPlaceholderText(tr("serial number, or address (with :port if not 56888)"));
    form->addRow(tr("Sonar"), targetEdit);
    presetBox = new QComboBox;
    presetBox->addItem(tr("Near: 1 to 11 m, 15 frames/s"), int(ArisLiveSettings::Near));
    presetBox->addItem(tr("Middle: 3 to 23 m, 10 frames/s"), int(ArisLiveSettings::Middle));
    presetBox->addItem(tr("Far: 5 to 45 m, 6 frames/s"), int(ArisLiveSettings::Far));
    presetBox->setCurrentIndex(1);
    form->addRow(tr("Window"), presetBox);
    layout->addLayout(form);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("Connect"));
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(targetEdit, &QLineEdit::textChanged, this,
        [buttons](const QString& text) { buttons->button(QDialogButtonBox::Ok)->setEnabled(!text.trimmed().isEmpty()); });
    buttons->button(QDialogButtonBox::Ok)->setEnabled(false);
    connect(list, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            targetEdit->setText(list->item(row)->data(Qt::UserRole).toString());
    });
    connect(list, &QListWidget::itemDoubleClicked, this, &QDialog::accept);
    connect(sonars, &ArisSonarList::sonarsChanged, this, &ConnectDialog::showSonars);
    if (!sonars->listen())
        list->addItem(sonars->getErrorString());
    resize(480, 360);
}

ConnectDialog::~ConnectDialog() = default;

QString ConnectDialog::getTarget() const
{
    return targetEdit->text().trimmed();
}

ArisLiveSettings ConnectDialog::getSettings() const
{
    return ArisLiveSettings::fromPreset(ArisLiveSettings::Preset(presetBox->currentData().toInt()));
}

void ConnectDialog::showSonars()
{
    const QString chosen = targetEdit->text();
    list->clear();
    for (const ArisBeacon& sonar : sonars->getSonars()) {
        auto* item = new QListWidgetItem(tr("%1 %2, software %3, at %4%5")
                                             .arg(sonar.getModel())
                                             .arg(sonar.serialNumber)
                                             .arg(sonar.softwareVersion, sonar.address.toString(),
                                                 sonar.busy ? tr(" (busy)") : QString()));
        item->setData(Qt::UserRole, QString::number(sonar.serialNumber));
        list->addItem(item);
    }
    targetEdit->setText(chosen);
}
