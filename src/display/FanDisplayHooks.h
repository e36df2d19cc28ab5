#pragma once

#include "FanDisplayOptions.h"

#include <QColor>
#include <QHash>
#include <QImage>
#include <QMatrix4x4>
#include <QPointer>
#include <QString>

#include <memory>
#include <vector>

class QMouseEvent;

namespace Halcyra::GUI::Widgets::Bases {
class OpenGLWidget;
class OpenGLWidgetPainter;
} // namespace Halcyra::GUI::Widgets::Bases

namespace Halcyra::Nereon::Visualisation {

class FanDisplay;
class FanMeasurementListener;
class FanOverlay;
class FanOverlayContext;
class MeasuringToolBase;
class ZoomDisplay;

class ZoomDisplayOutline;

/**
 * What applications attach to a FanDisplay (overlays, measurement listeners,
 * measuring on the magnifier), held in its private record. Empty, it costs a
 * paint nothing and changes nothing.
 */
class FanDisplayHooks
{
public:
    explicit FanDisplayHooks(FanDisplay& display);
    ~FanDisplayHooks();
    FanDisplayHooks(const FanDisplayHooks&) = delete;
    FanDisplayHooks& operator=(const FanDisplayHooks&) = delete;

    /// The hooks of a display (they live in its private record).
    static FanDisplayHooks& of(FanDisplay& display);
    /// The outline a display draws around its magnifier's region.
    static ZoomDisplayOutline& outlineOf(FanDisplay& display);

    std::unique_ptr<FanOverlayContext> makeContext(GUI::Widgets::Bases::OpenGLWidget& widget,
        GUI::Widgets::Bases::OpenGLWidgetPainter* painter, bool magnifier);

    /// Draws the overlays (and on the magnifier its measurement) into the painter's current pass.
    void paint(GUI::Widgets::Bases::OpenGLWidget& widget, GUI::Widgets::Bases::OpenGLWidgetPainter& painter,
        bool magnifier);
    /// Whether the magnifier has anything of ours to draw.
    bool hasMagnifierWork() const;

    /// Tells the listeners of a measurement the tool finished on the widget.
    void reportMeasurement(GUI::Widgets::Bases::OpenGLWidget& widget, const MeasuringToolBase& tool,
        FanDisplayOptions::MeasurementMode mode, bool magnifier);

    void setMagnifierMeasuring(bool enabled);
    bool isMagnifierMeasuring() const { return magnifierMeasuring; }

    /// A label's picture in the display's font, kept while the same text is shown.
    QImage textImage(const QString& text, const QColor& colour, qreal devicePixelRatio);

    void setTrueEdges(bool enabled);
    bool hasTrueEdges() const;

    std::vector<FanOverlay*> overlays;
    std::vector<FanMeasurementListener*> listeners;
    // Opt-ins of the display's look, off by default.
    bool gridAwaitsFrame = false;
    bool labelMargin = false;
    /// Whether the display has taken a frame, for gridAwaitsFrame.
    bool frameReceived = false;

private:
    class MagnifierFilter;
    friend class MagnifierFilter;

    /// A press, drag or release on the magnifier; true when it was a measurement's.
    bool magnifierMouseEvent(ZoomDisplay& zoom, QMouseEvent& event);

    FanDisplay& display;
    bool magnifierMeasuring = false;
    std::unique_ptr<MagnifierFilter> magnifierFilter;
    // Held as a QObject: the filter hears of the magnifier while it is being destroyed too.
    QPointer<QObject> filteredZoom;
    std::unique_ptr<MeasuringToolBase> magnifierTool;
    FanDisplayOptions::MeasurementMode magnifierMode = FanDisplayOptions::StraightLine;
    // The magnifier's view when its measurement was taken: a moved view leaves it behind.
    QMatrix4x4 magnifierToolProjection;
    QHash<QString, QImage> textImages;
};

} // namespace Halcyra::Nereon::Visualisation
