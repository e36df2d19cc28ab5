#include "FanOverlayContext.h"

#include "display/FanDisplayHooks.h"
#include "engine/FanGeometryEngine.h"
#include "gui/OpenGLWidget.h"
#include "gui/OpenGLWidgetPainter.h"

#include <QColor>
#include <QLineF>
#include <QString>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace Halcyra::Nereon::Visualisation {

namespace {

constexpr double radiansPerDegree = 3.14159265358979323846 / 180.0;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// Fractional beam index of a bearing (degrees) in an ascending table, linear beyond its ends.
double beamIndexOf(const std::vector<std::int16_t>& bearings, int beams, double bearing)
{
    const auto at = [&bearings](int i) { return bearings[static_cast<std::size_t>(i)] / 100.0; };
    const auto between = [&at](int i, double value) {
        const double step = at(i + 1) - at(i);
        return step > 0.0 ? i + (value - at(i)) / step : static_cast<double>(i);
    };
    if (bearing <= at(0))
        return between(0, bearing);
    if (bearing >= at(beams - 1))
        return between(beams - 2, bearing);
    const auto hundredths = bearings.begin() + beams;
    const auto above = std::upper_bound(bearings.begin(), hundredths, bearing * 100.0,
        [](double value, std::int16_t entry) { return value < entry; });
    const int i = static_cast<int>(above - bearings.begin()) - 1;
    return between(std::clamp(i, 0, beams - 2), bearing);
}

/// The bearing at a fractional beam index, linear beyond the table's ends.
double bearingAtIndex(const std::vector<std::int16_t>& bearings, int beams, double index)
{
    const int i = std::clamp(static_cast<int>(std::floor(index)), 0, beams - 2);
    const double low = bearings[static_cast<std::size_t>(i)] / 100.0;
    const double high = bearings[static_cast<std::size_t>(i + 1)] / 100.0;
    return low + (index - i) * (high - low);
}

} // namespace

FanOverlayContext::FanOverlayContext(FanDisplay& display, FanDisplayHooks& hooks,
    const FanGeometryEngine& engine, GUI::Widgets::Bases::OpenGLWidget& widget,
    GUI::Widgets::Bases::OpenGLWidgetPainter* painter, bool magnifier)
    : display(display)
    , hooks(hooks)
    , widget(widget)
    , painter(painter)
    , engine(engine)
    , magnifier(magnifier)
    , range(engine.getRange())
    , size(widget.size())
{
    const double halfWidth = size.width() / 2.0;
    const double halfHeight = size.height() / 2.0;
    fanToPixels = widget.getCurrentProjection().toTransform()
        * QTransform(halfWidth, 0.0, 0.0, -halfHeight, halfWidth, halfHeight);
}

FanOverlayContext::~FanOverlayContext() = default;

double FanOverlayContext::shownBearing(double bearingDegrees) const
{
    // A mirrored fan shows beam k where beam n - 1 - k would stand.
    const int beams = engine.getBeamCount();
    const std::vector<std::int16_t>& bearings = engine.getBearings();
    if (!engine.isFlipped() || beams < 2 || bearings.size() < static_cast<std::size_t>(beams))
        return bearingDegrees;
    const double index = beamIndexOf(bearings, beams, bearingDegrees);
    return bearingAtIndex(bearings, beams, (beams - 1) - index);
}

QPointF FanOverlayContext::toPixels(double rangeMetres, double bearingDegrees) const
{
    if (!(range > 0.0) || !std::isfinite(range) || !std::isfinite(rangeMetres)
        || !std::isfinite(bearingDegrees))
        return QPointF(nan, nan);
    const double shown = shownBearing(bearingDegrees) * radiansPerDegree;
    const double unit = rangeMetres / range;
    return fanToPixels.map(QPointF(unit * std::sin(shown), unit * std::cos(shown)));
}

QPointF FanOverlayContext::metresToPixels(double acrossMetres, double alongMetres) const
{
    // Only a mirrored fan needs the bearing, to find where the beams show it.
    if (engine.isFlipped())
        return toPixels(
            std::hypot(acrossMetres, alongMetres), std::atan2(acrossMetres, alongMetres) / radiansPerDegree);
    if (!(range > 0.0) || !std::isfinite(range) || !std::isfinite(acrossMetres)
        || !std::isfinite(alongMetres))
        return QPointF(nan, nan);
    return fanToPixels.map(QPointF(acrossMetres / range, alongMetres / range));
}

bool FanOverlayContext::fromPixels(const QPointF& pixel, double& rangeMetres, double& bearingDegrees) const
{
    if (!(range > 0.0) || !std::isfinite(range) || !fanToPixels.isInvertible())
        return false;
    const QPointF fan = fanToPixels.inverted().map(pixel);
    rangeMetres = std::hypot(fan.x(), fan.y()) * range;
    // The mirror is its own inverse.
    bearingDegrees = shownBearing(std::atan2(fan.x(), fan.y()) / radiansPerDegree);
    return true;
}

double FanOverlayContext::getPixelsPerMetre() const
{
    if (!(range > 0.0) || !std::isfinite(range))
        return 0.0;
    return QLineF(fanToPixels.map(QPointF(0.0, 0.0)), fanToPixels.map(QPointF(0.0, 1.0))).length() / range;
}

double FanOverlayContext::getRange() const
{
    return range;
}

QSize FanOverlayContext::getSize() const
{
    return size;
}

bool FanOverlayContext::isMagnifier() const
{
    return magnifier;
}

FanDisplay& FanOverlayContext::getDisplay() const
{
    return display;
}

QPointF FanOverlayContext::toClip(const QPointF& pixel) const
{
    return QPointF(2.0 * pixel.x() / size.width() - 1.0, 1.0 - 2.0 * pixel.y() / size.height());
}

void FanOverlayContext::drawPolyline(const QPolygonF& pixels, const QColor& colour, int width, bool closed)
{
    if (!painter || pixels.size() < 2 || size.isEmpty())
        return;
    std::vector<float> vertices;
    vertices.reserve(static_cast<std::size_t>(2 * pixels.size()));
    for (const QPointF& pixel : pixels) {
        if (!std::isfinite(pixel.x()) || !std::isfinite(pixel.y()))
            return;
        const QPointF clip = toClip(pixel);
        vertices.push_back(static_cast<float>(clip.x()));
        vertices.push_back(static_cast<float>(clip.y()));
    }
    painter->drawLines(vertices, width, colour, true, true, closed);
}

void FanOverlayContext::drawCircle(const QPointF& centre, double radius, const QColor& colour, int width)
{
    if (!painter || size.isEmpty() || !std::isfinite(centre.x()) || !std::isfinite(centre.y())
        || !std::isfinite(radius))
        return;
    // The painter takes the radius in vertical clip units.
    painter->drawCircle(toClip(centre), static_cast<float>(2.0 * radius / size.height()), width, colour);
}

void FanOverlayContext::drawText(const QPointF& topLeft, const QString& text, const QColor& colour)
{
    if (!painter || text.isEmpty() || size.isEmpty() || !std::isfinite(topLeft.x())
        || !std::isfinite(topLeft.y()))
        return;
    const QPointF clip = toClip(topLeft);
    painter->drawImage(static_cast<float>(clip.x()), static_cast<float>(clip.y()),
        hooks.textImage(text, colour, widget.devicePixelRatioF()), true);
}

} // namespace Halcyra::Nereon::Visualisation
