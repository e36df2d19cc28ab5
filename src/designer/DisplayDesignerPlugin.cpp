#include "DisplayDesignerPlugin.h"

#include "DesignerPreview.h"
#include "FanDisplay.h"

#include <utility>

DisplayDesignerPlugin::DisplayDesignerPlugin(
    Description description, std::shared_ptr<DesignerPreview> preview, QObject* parent)
    : QObject(parent)
    , description(std::move(description))
    , preview(std::move(preview))
{
}

DisplayDesignerPlugin::~DisplayDesignerPlugin() = default;

QString DisplayDesignerPlugin::name() const
{
    return description.className;
}

QString DisplayDesignerPlugin::group() const
{
    return QStringLiteral("Ternwick Nereon Sonar");
}

QString DisplayDesignerPlugin::toolTip() const
{
    return description.toolTip;
}

QString DisplayDesignerPlugin::whatsThis() const
{
    return description.whatsThis;
}

QString DisplayDesignerPlugin::includeFile() const
{
    return description.includeFile;
}

QIcon DisplayDesignerPlugin::icon() const
{
    return description.icon();
}

bool DisplayDesignerPlugin::isContainer() const
{
    return false;
}

QWidget* DisplayDesignerPlugin::createWidget(QWidget* parent)
{
    QWidget* widget = description.create(parent);
    if (initialised) {
        if (auto* display = qobject_cast<Halcyra::Nereon::Visualisation::FanDisplay*>(widget))
            preview->show(*display);
    }
    return widget;
}

bool DisplayDesignerPlugin::isInitialized() const
{
    return initialised;
}

void DisplayDesignerPlugin::initialize(QDesignerFormEditorInterface*)
{
    initialised = true;
}

QString DisplayDesignerPlugin::domXml() const
{
    // A fan needs room for its range labels; 480 × 320 shows a typical 130° fan well.
    return QStringLiteral("<ui language=\"c++\">\n"
                          " <widget class=\"%1\" name=\"%2\">\n"
                          "  <property name=\"geometry\">\n"
                          "   <rect><x>0</x><y>0</y><width>480</width><height>320</height></rect>\n"
                          "  </property>\n"
                          "  <property name=\"minimumSize\">\n"
                          "   <size><width>120</width><height>80</height></size>\n"
                          "  </property>\n"
                          " </widget>\n"
                          "</ui>\n")
        .arg(description.className, description.objectName);
}
