#include "views/FanAnnotations.h"

#include "FanDisplay.h"
#include "FanDisplayExtensions.h"
#include "FanOverlayContext.h"

#include <QLineF>
#include <QPointer>
#include <QPolygonF>

#include <algorithm>
#include <cmath>
#include <map>

namespace Halcyra::Nereon::Views {

using Visualisation::FanDisplay;
using Visualisation::FanDisplayExtensions;
using Visualisation::FanOverlayContext;

namespace {

constexpr double radiansPerDegree = 3.14159265358979323846 / 180.0;
// Radius of a point mark, logical pixels.
constexpr double pointRadius = 4.0;
// Box arcs and ellipses are drawn as polygons: at most this many degrees per side, and this many sides.
constexpr double arcStepDegrees = 1.0;
constexpr int ellipseSides = 32;

bool isFinite(const QPointF& point)
{
    return std::isfinite(point.x()) && std::isfinite(point.y());
}

/// The mark in widget pixels, empty when it cannot be placed; closed shapes are outlines.
QPolygonF shapeOf(const FanAnnotations::Mark& mark, const FanOverlayContext& context, bool& closed)
{
    using Mark = FanAnnotations::Mark;
    closed = mark.kind == Mark::Box || mark.kind == Mark::Ellipse;
    QPolygonF shape;
    for (const QPointF& point : mark.points) {
        if (!isFinite(point))
            return {};
    }
    switch (mark.kind) {
    case Mark::Point:
    case Mark::Polyline:
        for (const QPointF& point : mark.points)
            shape << context.toPixels(point.x(), point.y());
        if (mark.kind == Mark::Point)
            shape.resize(std::min<int>(static_cast<int>(shape.size()), 1));
        break;
    case Mark::Box: {
        if (mark.points.size() < 2)
            return {};
        const QPointF from = mark.points[0];
        const QPointF to = mark.points[1];
        const int steps
            = std::clamp(static_cast<int>(std::ceil(std::abs(to.y() - from.y()) / arcStepDegrees)), 1, 360);
        for (int i = 0; i <= steps; ++i)
            shape << context.toPixels(from.x(), from.y() + (to.y() - from.y()) * i / steps);
        for (int i = steps; i >= 0; --i)
            shape << context.toPixels(to.x(), from.y() + (to.y() - from.y()) * i / steps);
        break;
    }
    case Mark::Ellipse: {
        if (mark.points.isEmpty() || !std::isfinite(mark.acrossRadius) || !std::isfinite(mark.alongRadius))
            return {};
        const double bearing = mark.points[0].y() * radiansPerDegree;
        const double across = mark.points[0].x() * std::sin(bearing);
        const double along = mark.points[0].x() * std::cos(bearing);
        for (int i = 0; i < ellipseSides; ++i) {
            const double t = 2.0 * 3.14159265358979323846 * i / ellipseSides;
            shape << context.metresToPixels(
                across + mark.acrossRadius * std::cos(t), along + mark.alongRadius * std::sin(t));
        }
        break;
    }
    case Mark::CountLine:
        if (mark.points.size() == 1) {
            shape << context.toPixels(0.0, mark.points[0].y())
                  << context.toPixels(context.getRange(), mark.points[0].y());
        } else if (mark.points.size() >= 2) {
            shape << context.toPixels(mark.points[0].x(), mark.points[0].y())
                  << context.toPixels(mark.points[1].x(), mark.points[1].y());
        }
        break;
    }
    for (const QPointF& pixel : shape) {
        if (!isFinite(pixel))
            return {};
    }
    return shape;
}

double distanceToSegment(const QPointF& point, const QPointF& a, const QPointF& b)
{
    const QPointF ab = b - a;
    const double length2 = QPointF::dotProduct(ab, ab);
    const double t = length2 > 0.0 ? std::clamp(QPointF::dotProduct(point - a, ab) / length2, 0.0, 1.0) : 0.0;
    return QLineF(point, a + t * ab).length();
}

} // namespace

class FanAnnotations::Private
{
public:
    /// Repaints the display, which repaints a visible magnifier.
    void changed() const
    {
        if (display)
            display->update();
    }

    QPointer<FanDisplay> display;
    std::map<int, Mark> marks; // ids grow, so this is also the drawing order
    int nextId = 1;
};

FanAnnotations::Mark FanAnnotations::Mark::point(
    double range, double bearing, const QColor& colour, const QString& label)
{
    Mark mark;
    mark.kind = Point;
    mark.points = { QPointF(range, bearing) };
    mark.colour = colour;
    mark.label = label;
    return mark;
}

FanAnnotations::Mark FanAnnotations::Mark::box(double rangeFrom, double rangeTo, double bearingFrom,
    double bearingTo, const QColor& colour, const QString& label)
{
    Mark mark;
    mark.kind = Box;
    mark.points = { QPointF(rangeFrom, bearingFrom), QPointF(rangeTo, bearingTo) };
    mark.colour = colour;
    mark.label = label;
    return mark;
}

FanAnnotations::Mark FanAnnotations::Mark::ellipse(double range, double bearing, double acrossRadius,
    double alongRadius, const QColor& colour, const QString& label)
{
    Mark mark;
    mark.kind = Ellipse;
    mark.points = { QPointF(range, bearing) };
    mark.acrossRadius = acrossRadius;
    mark.alongRadius = alongRadius;
    mark.colour = colour;
    mark.label = label;
    return mark;
}

FanAnnotations::Mark FanAnnotations::Mark::polyline(
    const QVector<QPointF>& rangeBearing, const QColor& colour, const QString& label)
{
    Mark mark;
    mark.kind = Polyline;
    mark.points = rangeBearing;
    mark.colour = colour;
    mark.label = label;
    return mark;
}

FanAnnotations::Mark FanAnnotations::Mark::countLine(
    double bearing, const QColor& colour, const QString& label)
{
    Mark mark;
    mark.kind = CountLine;
    mark.points = { QPointF(0.0, bearing) };
    mark.colour = colour;
    mark.label = label;
    return mark;
}

FanAnnotations::Mark FanAnnotations::Mark::countLine(
    const QPointF& from, const QPointF& to, const QColor& colour, const QString& label)
{
    Mark mark;
    mark.kind = CountLine;
    mark.points = { from, to };
    mark.colour = colour;
    mark.label = label;
    return mark;
}

FanAnnotations::FanAnnotations()
    : d(std::make_unique<Private>())
{
}

FanAnnotations::~FanAnnotations()
{
    detach();
}

void FanAnnotations::attach(FanDisplay* display)
{
    if (display == d->display)
        return;
    detach();
    d->display = display;
    FanDisplayExtensions::attachOverlay(display, this);
}

void FanAnnotations::detach()
{
    FanDisplayExtensions::detachOverlay(d->display, this);
    d->display = nullptr;
}

FanDisplay* FanAnnotations::getDisplay() const
{
    return d->display;
}

int FanAnnotations::add(const Mark& mark)
{
    const int id = d->nextId++;
    d->marks.emplace(id, mark);
    d->changed();
    return id;
}

bool FanAnnotations::update(int id, const Mark& mark)
{
    const auto found = d->marks.find(id);
    if (found == d->marks.end())
        return false;
    found->second = mark;
    d->changed();
    return true;
}

bool FanAnnotations::remove(int id)
{
    if (d->marks.erase(id) == 0)
        return false;
    d->changed();
    return true;
}

void FanAnnotations::clear()
{
    if (d->marks.empty())
        return;
    d->marks.clear();
    d->changed();
}

const FanAnnotations::Mark* FanAnnotations::find(int id) const
{
    const auto found = d->marks.find(id);
    return found == d->marks.end() ? nullptr : &found->second;
}

int FanAnnotations::getCount() const
{
    return static_cast<int>(d->marks.size());
}

int FanAnnotations::markAt(const QPointF& widgetPoint, double tolerance) const
{
    const std::unique_ptr<FanOverlayContext> context = FanDisplayExtensions::contextFor(d->display);
    if (!context)
        return 0;
    for (auto it = d->marks.rbegin(); it != d->marks.rend(); ++it) {
        const Mark& mark = it->second;
        bool closed = false;
        const QPolygonF shape = shapeOf(mark, *context, closed);
        if (shape.isEmpty())
            continue;
        const double reach = tolerance + mark.width / 2.0;
        if (mark.kind == Mark::Point) {
            if (QLineF(widgetPoint, shape.first()).length() <= pointRadius + reach)
                return it->first;
            continue;
        }
        if (closed && shape.containsPoint(widgetPoint, Qt::OddEvenFill))
            return it->first;
        const int corners = static_cast<int>(shape.size());
        const int segments = closed ? corners : corners - 1;
        for (int i = 0; i < segments; ++i) {
            if (distanceToSegment(widgetPoint, shape[i], shape[(i + 1) % corners]) <= reach)
                return it->first;
        }
    }
    return 0;
}

void FanAnnotations::paintOverlay(FanOverlayContext& context)
{
    for (const auto& [id, mark] : d->marks) {
        Q_UNUSED(id)
        bool closed = false;
        const QPolygonF shape = shapeOf(mark, context, closed);
        if (shape.isEmpty())
            continue;
        // Labels stand clear of the outline: right of a point, at a line's far end, or
        // beside a shape's top right.
        QPointF labelAt;
        if (mark.kind == Mark::Point) {
            context.drawCircle(shape.first(), pointRadius, mark.colour, mark.width);
            labelAt = shape.first() + QPointF(pointRadius + 4.0, -pointRadius);
        } else {
            context.drawPolyline(shape, mark.colour, mark.width, closed);
            labelAt = closed ? shape.boundingRect().topRight() + QPointF(4.0, 0.0)
                             : shape.last() + QPointF(4.0, -4.0);
        }
        if (!mark.label.isEmpty())
            context.drawText(labelAt, mark.label, mark.colour);
    }
}

} // namespace Halcyra::Nereon::Views
