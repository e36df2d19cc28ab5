#include "VisualisationDesignerCollection.h"

#include "DesignerIcons.h"
#include "DesignerPreview.h"
#include "DisplayDesignerPlugin.h"
#include "ZoomableFanDisplay.h"

#include <memory>

using namespace Halcyra::Nereon::Visualisation;

VisualisationDesignerCollection::VisualisationDesignerCollection(QObject* parent)
    : QObject(parent)
{
    const auto preview = std::make_shared<DesignerPreview>();

    DisplayDesignerPlugin::Description fan;
    fan.className = QStringLiteral("Halcyra::Nereon::Visualisation::FanDisplay");
    fan.includeFile = QStringLiteral("FanDisplay.h");
    fan.objectName = QStringLiteral("fanDisplay");
    fan.toolTip = tr("Live multibeam sonar picture as a fan");
    fan.whatsThis
        = tr("<p>Shows the frames of a multibeam imaging sonar as a fan: every beam at its bearing, range "
             "outwards, intensities through a palette, with range grid, range labels and measuring tools.</p>"
             "<p>Connect the sonar's frames to <b>newImageReceived()</b> and set a distance unit with "
             "<b>setDistanceUnit()</b> before the first paint. <b>getZoomDisplay()</b> hands out the "
             "magnifier, to be placed anywhere in the application.</p>");
    fan.icon = &DesignerIcons::fanDisplay;
    fan.create = [](QWidget* parent) { return new FanDisplay(parent); };

    DisplayDesignerPlugin::Description zoomable;
    zoomable.className = QStringLiteral("Halcyra::Nereon::Visualisation::ZoomableFanDisplay");
    zoomable.includeFile = QStringLiteral("ZoomableFanDisplay.h");
    zoomable.objectName = QStringLiteral("zoomableFanDisplay");
    zoomable.toolTip = tr("Sonar fan display whose view zooms about its centre");
    zoomable.whatsThis
        = tr("<p>A fan display whose own view can be magnified about its centre with "
             "<b>setZoomLevel()</b> (1.0 shows the whole fan), at once or in a short animation. Overlays, "
             "measuring tools and the magnifier outline follow the zoom.</p>"
             "<p>Connect the sonar's frames to <b>newImageReceived()</b> and set a distance unit with "
             "<b>setDistanceUnit()</b> before the first paint.</p>");
    zoomable.icon = &DesignerIcons::zoomableFanDisplay;
    zoomable.create = [](QWidget* parent) { return new ZoomableFanDisplay(parent); };

    widgets = { new DisplayDesignerPlugin(std::move(fan), preview, this),
        new DisplayDesignerPlugin(std::move(zoomable), preview, this) };
}

QList<QDesignerCustomWidgetInterface*> VisualisationDesignerCollection::customWidgets() const
{
    return widgets;
}
