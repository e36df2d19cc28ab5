#include "zoom/ZoomDisplayOutline.h"

#include "ZoomDisplay.h"
#include "gui/OpenGLWidgetPainter.h"

#include <QColor>
#include <QRectF>

#include <cmath>
#include <vector>

namespace Halcyra::Nereon::Visualisation {

namespace {

// Half-width of the grab band around each edge, as a fraction of the
// magnifier's half-width. Kept in single precision on purpose.
constexpr float OuterBand = 1.05f;
constexpr float InnerBand = 0.95f;

/// The rectangle on the display between the magnifier's clip corners (-f, f) and (f, -f).
QRectF displayRectangle(const QMatrix4x4& toFan, const QMatrix4x4& toDisplay, float factor)
{
    const double f = static_cast<double>(factor);
    const QPointF topLeft = toDisplay.map(toFan.map(QPointF(-f, f)));
    const QPointF bottomRight = toDisplay.map(toFan.map(QPointF(f, -f)));
    return QRectF(topLeft.x(), topLeft.y(), bottomRight.x() - topLeft.x(), bottomRight.y() - topLeft.y());
}

} // namespace

ZoomDisplayOutline::ZoomDisplayOutline(ZoomDisplay* display)
    : zoomDisplay(display)
{
}

bool ZoomDisplayOutline::pointIsWithinBounds(const QPointF& point, const QMatrix4x4& projection) const
{
    if (!zoomDisplay)
        return false;
    const QMatrix4x4 toFan = zoomDisplay->getCurrentProjection().inverted();
    const QRectF outer = displayRectangle(toFan, projection, OuterBand);
    const QRectF inner = displayRectangle(toFan, projection, InnerBand);
    return outer.contains(point) && !inner.contains(point);
}

void ZoomDisplayOutline::beginDrag(const QPointF& point)
{
    if (!zoomDisplay)
        return;
    beingDragged = true;
    dragStart = getRotationlessProjection().map(point);
}

void ZoomDisplayOutline::updateDrag(const QPointF& point)
{
    if (!beingDragged)
        return;
    if (!zoomDisplay) {
        beingDragged = false;
        return;
    }
    // Mapped with the translation the previous updates already added, so the
    // total shift always equals the pointer's displacement since beginDrag.
    const QPointF current = getRotationlessProjection().map(point);
    const auto dx = static_cast<float>(dragStart.x() - current.x());
    const auto dy = static_cast<float>(dragStart.y() - current.y());
    // A display without size or scale gives no position; the region stays where it is.
    if (!std::isfinite(dx) || !std::isfinite(dy))
        return;
    zoomDisplay->pan(dx, dy, false);
}

void ZoomDisplayOutline::endDrag()
{
    beingDragged = false;
}

bool ZoomDisplayOutline::isBeingDragged() const
{
    return beingDragged && zoomDisplay;
}

QMatrix4x4 ZoomDisplayOutline::getRotationlessProjection() const
{
    if (!zoomDisplay)
        return QMatrix4x4();
    const Vec3<float>& translation = zoomDisplay->getCurrentTranslation();
    const Vec3<float>& scale = zoomDisplay->getCurrentScale();
    QMatrix4x4 translationMatrix;
    translationMatrix.translate(translation.x, translation.y, translation.z);
    QMatrix4x4 scaleMatrix;
    scaleMatrix.scale(scale.x, scale.y, scale.z);
    return translationMatrix * scaleMatrix;
}

void ZoomDisplayOutline::draw(GUI::Widgets::Bases::OpenGLWidgetPainter& painter)
{
    if (!zoomDisplay)
        return;
    const QMatrix4x4 toFan = zoomDisplay->getCurrentProjection().inverted();
    const QPointF corners[] = { { -1.0, 1.0 }, { 1.0, 1.0 }, { 1.0, -1.0 }, { -1.0, -1.0 } };
    std::vector<float> vertices;
    vertices.reserve(8);
    for (const QPointF& corner : corners) {
        const QPointF fanPoint = toFan.map(corner);
        vertices.push_back(static_cast<float>(fanPoint.x()));
        vertices.push_back(static_cast<float>(fanPoint.y()));
    }
    painter.drawLines(vertices, 1, colour, false, true, true);
}

} // namespace Halcyra::Nereon::Visualisation
