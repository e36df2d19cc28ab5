#include "display/FanDisplayHooks.h"

#include "FanMeasurementListener.h"
#include "FanOverlay.h"
#include "FanOverlayContext.h"
#include "ZoomDisplay.h"
#include "display/FanDisplayPrivate.h"
#include "gui/OpenGLWidgetPainter.h"
#include "measuring/CircleAreaFromCentreMeasure.h"
#include "measuring/RectangleAreaMeasure.h"
#include "measuring/StraightLineMeasure.h"

#include <QFontMetricsF>
#include <QMouseEvent>
#include <QPainter>

#include <cmath>

namespace Halcyra::Nereon::Visualisation {

namespace {

// Labels come and go with marks; past this many kept pictures the cache starts afresh.
constexpr int textImageLimit = 4096;

QPointF clipToPixels(const QPointF& clip, const QWidget& widget)
{
    return QPointF((clip.x() + 1.0) / 2.0 * widget.width(), (1.0 - clip.y()) / 2.0 * widget.height());
}

std::unique_ptr<MeasuringToolBase> makeTool(FanDisplayOptions::MeasurementMode mode)
{
    switch (mode) {
    case FanDisplayOptions::RectangleArea:
        return std::make_unique<RectangleAreaMeasure>();
    case FanDisplayOptions::CircleAreaFromCentre:
        return std::make_unique<CircleAreaFromCentreMeasure>();
    default:
        return std::make_unique<StraightLineMeasure>();
    }
}

} // namespace

class FanDisplayHooks::MagnifierFilter : public QObject
{
public:
    explicit MagnifierFilter(FanDisplayHooks& hooks)
        : hooks(hooks)
    {
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        switch (event->type()) {
        case QEvent::MouseButtonPress:
        case QEvent::MouseMove:
        case QEvent::MouseButtonRelease:
            // The magnifier has no meta-object of its own: recognised by address.
            if (watched == hooks.filteredZoom.data()) {
                return hooks.magnifierMouseEvent(
                    *static_cast<ZoomDisplay*>(watched), *static_cast<QMouseEvent*>(event));
            }
            break;
        default:
            break;
        }
        return false;
    }

private:
    FanDisplayHooks& hooks;
};

FanDisplayHooks::FanDisplayHooks(FanDisplay& display)
    : display(display)
{
}

FanDisplayHooks::~FanDisplayHooks()
{
    if (filteredZoom && magnifierFilter)
        filteredZoom->removeEventFilter(magnifierFilter.get());
}

FanDisplayHooks& FanDisplayHooks::of(FanDisplay& display)
{
    return display.d->hooks;
}

ZoomDisplayOutline& FanDisplayHooks::outlineOf(FanDisplay& display)
{
    return display.d->zoomDisplayOutline;
}

std::unique_ptr<FanOverlayContext> FanDisplayHooks::makeContext(GUI::Widgets::Bases::OpenGLWidget& widget,
    GUI::Widgets::Bases::OpenGLWidgetPainter* painter, bool magnifier)
{
    return std::unique_ptr<FanOverlayContext>(
        new FanOverlayContext(display, *this, display.d->geometryEngine, widget, painter, magnifier));
}

bool FanDisplayHooks::hasMagnifierWork() const
{
    return !overlays.empty() || (magnifierTool && magnifierTool->getState() != MeasuringToolBase::Idle);
}

void FanDisplayHooks::paint(GUI::Widgets::Bases::OpenGLWidget& widget,
    GUI::Widgets::Bases::OpenGLWidgetPainter& painter, bool magnifier)
{
    if (magnifier && magnifierTool && magnifierTool->getState() != MeasuringToolBase::Idle) {
        // The tool's points are the magnifier's clip coordinates: a moved view leaves them behind.
        if (widget.getCurrentProjection() == magnifierToolProjection)
            magnifierTool->displayMeasurement(painter);
        else
            magnifierTool->reset();
    }
    if (overlays.empty())
        return;
    const std::unique_ptr<FanOverlayContext> context = makeContext(widget, &painter, magnifier);
    // A copy: an overlay may detach itself while painting.
    const std::vector<FanOverlay*> painting = overlays;
    for (FanOverlay* overlay : painting)
        overlay->paintOverlay(*context);
}

void FanDisplayHooks::reportMeasurement(GUI::Widgets::Bases::OpenGLWidget& widget,
    const MeasuringToolBase& tool, FanDisplayOptions::MeasurementMode mode, bool magnifier)
{
    if (listeners.empty())
        return;
    const std::unique_ptr<FanOverlayContext> context = makeContext(widget, nullptr, magnifier);
    FanMeasurement measurement;
    measurement.mode = mode;
    measurement.onMagnifier = magnifier;
    const QPointF startClip = tool.getStartPoint();
    const QPointF endClip = tool.getEndPoint();
    if (!context->fromPixels(
            clipToPixels(startClip, widget), measurement.startRange, measurement.startBearing)
        || !context->fromPixels(clipToPixels(endClip, widget), measurement.endRange, measurement.endBearing))
        return;
    constexpr double radiansPerDegree = 3.14159265358979323846 / 180.0;
    measurement.startAcross = measurement.startRange * std::sin(measurement.startBearing * radiansPerDegree);
    measurement.startAlong = measurement.startRange * std::cos(measurement.startBearing * radiansPerDegree);
    measurement.endAcross = measurement.endRange * std::sin(measurement.endBearing * radiansPerDegree);
    measurement.endAlong = measurement.endRange * std::cos(measurement.endBearing * radiansPerDegree);

    // The tools measure on screen: a clip unit is range / scale metres on each axis,
    // whatever the rotation. The rectangle's sides follow the screen's axes.
    const Vec3<float>& scale = widget.getCurrentScale();
    const double range = context->getRange();
    const double across = (endClip.x() - startClip.x()) * range / static_cast<double>(scale.x);
    const double along = (endClip.y() - startClip.y()) * range / static_cast<double>(scale.y);
    switch (mode) {
    case FanDisplayOptions::RectangleArea:
        measurement.value = std::abs(across * along);
        break;
    case FanDisplayOptions::CircleAreaFromCentre:
        measurement.value = 3.14159265358979323846 * (across * across + along * along);
        break;
    default:
        measurement.value = std::hypot(across, along);
        break;
    }

    const std::vector<FanMeasurementListener*> telling = listeners;
    for (FanMeasurementListener* listener : telling)
        listener->measurementFinished(measurement);
}

void FanDisplayHooks::setTrueEdges(bool enabled)
{
    display.d->geometryEngine.setTrueEdges(enabled);
}

bool FanDisplayHooks::hasTrueEdges() const
{
    return display.d->geometryEngine.hasTrueEdges();
}

void FanDisplayHooks::setMagnifierMeasuring(bool enabled)
{
    magnifierMeasuring = enabled;
    if (filteredZoom && magnifierFilter)
        filteredZoom->removeEventFilter(magnifierFilter.get());
    filteredZoom = nullptr;
    if (magnifierTool)
        magnifierTool->reset();
    if (!enabled)
        return;
    if (!magnifierFilter)
        magnifierFilter = std::make_unique<MagnifierFilter>(*this);
    filteredZoom = static_cast<QObject*>(display.getZoomDisplay());
    if (filteredZoom)
        filteredZoom->installEventFilter(magnifierFilter.get());
}

bool FanDisplayHooks::magnifierMouseEvent(ZoomDisplay& zoom, QMouseEvent& event)
{
    auto& d = *display.d;
    if (zoom.width() <= 0 || zoom.height() <= 0)
        return false;
    const QPointF g(2.0 * event.pos().x() / zoom.width() - 1.0, 1.0 - 2.0 * event.pos().y() / zoom.height());
    const bool inFan = d.geometryEngine.pointIsWithinFan(g, zoom.getCurrentProjection());
    const bool measuring = magnifierTool && magnifierTool->getState() == MeasuringToolBase::Measuring;

    switch (event.type()) {
    case QEvent::MouseButtonPress:
        if (event.button() != Qt::LeftButton)
            return false;
        if (!inFan) {
            // A click beside the fan clears a finished measurement, as on the display.
            if (magnifierTool)
                magnifierTool->reset();
            zoom.update();
            return false;
        }
        magnifierTool = makeTool(d.measurementMode);
        magnifierMode = d.measurementMode;
        magnifierTool->setUnit(
            magnifierMode == FanDisplayOptions::StraightLine ? d.distanceUnit : d.areaUnit);
        magnifierTool->startMeasuring(display, g);
        // The tool shows its cursor on the display; here is where the user measures.
        display.unsetCursor();
        zoom.setCursor(Qt::CrossCursor);
        magnifierToolProjection = zoom.getCurrentProjection();
        return true;
    case QEvent::MouseMove:
        if (!measuring)
            return false;
        if (inFan) {
            const Vec3<float>& s = zoom.getCurrentScale();
            magnifierTool->takeMeasurement(g, d.geometryEngine.getRange(), s.x, s.y);
            zoom.update();
        }
        return true;
    case QEvent::MouseButtonRelease:
        if (event.button() != Qt::LeftButton || !measuring)
            return false;
        magnifierTool->stopMeasuring(display);
        display.unsetCursor();
        zoom.unsetCursor();
        if (magnifierTool->hasMeasurement())
            reportMeasurement(zoom, *magnifierTool, magnifierMode, true);
        else
            magnifierTool->reset();
        zoom.update();
        return true;
    default:
        return false;
    }
}

QImage FanDisplayHooks::textImage(const QString& text, const QColor& colour, qreal devicePixelRatio)
{
    const QFont& font = display.d->font;
    const QString key = text + QChar(0x1f) + colour.name(QColor::HexArgb) + QChar(0x1f) + font.key()
        + QChar(0x1f) + QString::number(devicePixelRatio);
    const auto found = textImages.constFind(key);
    if (found != textImages.constEnd())
        return *found;
    if (textImages.size() >= textImageLimit)
        textImages.clear();

    // Measured on an image of the display's resolution, as the overlay layer is.
    QImage probe(1, 1, QImage::Format_ARGB32_Premultiplied);
    probe.setDotsPerMeterX(qRound(display.logicalDpiX() / 0.0254));
    probe.setDotsPerMeterY(qRound(display.logicalDpiY() / 0.0254));
    const QFontMetricsF metrics(font, &probe);
    const QSize size(static_cast<int>(std::ceil((metrics.horizontalAdvance(text) + 2.0) * devicePixelRatio)),
        static_cast<int>(std::ceil(metrics.height() * devicePixelRatio)));
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.setDotsPerMeterX(probe.dotsPerMeterX());
    image.setDotsPerMeterY(probe.dotsPerMeterY());
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::TextAntialiasing);
        painter.setFont(font);
        painter.setPen(colour);
        painter.drawText(QPointF(1.0, metrics.ascent()), text);
    }
    textImages.insert(key, image);
    return image;
}

} // namespace Halcyra::Nereon::Visualisation
