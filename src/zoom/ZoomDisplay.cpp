#include "ZoomDisplay.h"

#include "FanDisplay.h"
#include "display/FanDisplayHooks.h"
#include "engine/FanGeometryEngine.h"
#include "gui/OpenGLWidgetPainter.h"
#include "maths/GeometryFunctions.h"
#include "zoom/ZoomDisplayPrivate.h"

#include <QMatrix4x4>
#include <QOpenGLContext>
#include <QResizeEvent>
#include <QSurfaceFormat>

#include <cmath>

namespace Halcyra::Nereon::Visualisation {

namespace Geometry = Maths::Geometry;

namespace {
constexpr std::int32_t LastZoomLevelIndex = 9;
}

ZoomDisplay::ZoomDisplayPrivate::ZoomDisplayPrivate(FanGeometryEngine& engine, FanDisplay& display)
    : geometryEngine(engine)
    , parentDisplay(display)
{
}

void ZoomDisplay::ZoomDisplayPrivate::applyZoom(ZoomDisplay& display)
{
    const QPointF centre = display.getCurrentProjection().inverted().map(QPointF(0.0, 0.0));
    const float level = ZoomLevels[static_cast<std::size_t>(zoomLevelIndex)];
    display.scale(level, level, 1.0f, true);
    const QPointF moved = display.getCurrentProjection().map(centre);
    display.translate(static_cast<float>(-moved.x()), static_cast<float>(-moved.y()), 0.0f, false);
    requestUpdate(display);
}

Vec3<float> ZoomDisplay::ZoomDisplayPrivate::getDefaultTranslation(float rotation) const
{
    const double radians = Geometry::degreesToRadians(static_cast<double>(rotation));
    return { static_cast<float>(std::sin(radians)), static_cast<float>(-std::cos(radians)), 0.0f };
}

Vec3<float> ZoomDisplay::ZoomDisplayPrivate::calculateTranslation(
    const Vec3<float>& translation, float angle) const
{
    // The direction comes from the translation rounded to two decimals, so that
    // float noise near an axis does not skew the turn; the length stays exact.
    const float roundedX = std::round(100.0f * translation.x) / 100.0f;
    const float roundedY = std::round(100.0f * translation.y) / 100.0f;
    const double direction = Geometry::positiveAngleRelativeToXAxis({ roundedX, roundedY });
    const double length = Geometry::distanceBetween({ 0.0, 0.0 }, { translation.x, translation.y });
    const double turn = Geometry::degreesToRadians(static_cast<double>(angle));
    return { static_cast<float>(std::cos(turn + direction) * length),
        static_cast<float>(std::sin(turn + direction) * length), 0.0f };
}

QPointF ZoomDisplay::ZoomDisplayPrivate::pixelsToGL(const QPointF& pixel, const ZoomDisplay& display) const
{
    const double width = display.width();
    const double height = display.height();
    return { 2.0 * pixel.x() / width - 1.0, 1.0 - 2.0 * pixel.y() / height };
}

bool ZoomDisplay::ZoomDisplayPrivate::engineIsReady(const ZoomDisplay& display) const
{
    if (parentDisplayDestroyed || !parentDisplay.isValid())
        return false;
    // Objects of another share group would be foreign names here.
    return QOpenGLContext::areSharing(display.context(), parentDisplay.context());
}

void ZoomDisplay::ZoomDisplayPrivate::requestUpdate(ZoomDisplay& display)
{
    if (parentDisplayDestroyed)
        display.update();
    else
        parentDisplay.update();
}

ZoomDisplay::ZoomDisplay(FanGeometryEngine& geometryEngine, FanDisplay& parentDisplay)
    : OpenGLWidget(nullptr)
    , d(std::make_unique<ZoomDisplayPrivate>(geometryEngine, parentDisplay))
{
    // Only references are kept here: the fan display is still being built.
    scale(4.0f, 4.0f, 1.0f, true);
    translate(0.0f, -1.0f, 0.0f, true);

    // No range grid covers the edges of the magnified fan, and the magnifier is
    // small: it keeps samples for smooth edges even where the GL base drops them.
    QSurfaceFormat surfaceFormat = format();
    surfaceFormat.setSamples(4);
    setFormat(surfaceFormat);
}

ZoomDisplay::~ZoomDisplay() = default;

void ZoomDisplay::zoomIn()
{
    if (d->zoomLevelIndex == LastZoomLevelIndex)
        return;
    ++d->zoomLevelIndex;
    d->applyZoom(*this);
}

void ZoomDisplay::zoomOut()
{
    if (d->zoomLevelIndex == 0)
        return;
    --d->zoomLevelIndex;
    d->applyZoom(*this);
}

void ZoomDisplay::reset()
{
    const Vec3<float> translation = d->getDefaultTranslation(getCurrentRotation());
    translate(translation.x, translation.y, translation.z, true);
    d->zoomLevelIndex = 0;
    scale(ZoomDisplayPrivate::ZoomLevels[0], ZoomDisplayPrivate::ZoomLevels[0], 1.0f, true);
    d->requestUpdate(*this);
}

void ZoomDisplay::pan(float x, float y, bool absolute)
{
    translate(x, y, 0.0f, absolute);
    d->requestUpdate(*this);
}

void ZoomDisplay::setRotation(float degrees)
{
    // Called before every paint of the fan display: the common case is no change.
    if (getCurrentRotation() == degrees)
        return;
    const float previous = getCurrentRotation();
    rotate(degrees, true);
    const float turn = degrees - previous;
    const Vec3<float> translation = getCurrentTranslation();
    const Vec3<float> turned = d->calculateTranslation(translation, turn);
    translate(turned.x, turned.y, turned.z, true);
}

void ZoomDisplay::setClearColour(const QColor& colour)
{
    d->clearColour = colour;
    d->clearColourChanged = true;
    d->clearColourChosen = true;
}

FanDisplay& ZoomDisplay::getParentDisplay() const
{
    return d->parentDisplay;
}

void ZoomDisplay::initialise()
{
    glClearColor(0.3f, 0.3f, 0.3f, 1.0f);
    // A new context (the magnifier moved to another window, say) starts grey:
    // a colour the application chose is set again at the next paint.
    if (d->clearColourChosen)
        d->clearColourChanged = true;
}

void ZoomDisplay::resizeEvent(QResizeEvent* event)
{
    QOpenGLWidget::resizeEvent(event);

    // One fan unit keeps its size in pixels: a larger widget shows more. Each
    // direction is scaled against its last size above zero, so an empty size
    // on the way changes nothing. The first resize (no old size) only records.
    QSize& last = d->lastVisibleSize;
    const bool scaleToSize = event->oldSize().isValid();
    float scaleX = 1.0f;
    float scaleY = 1.0f;
    if (width() > 0) {
        if (scaleToSize && last.width() > 0)
            scaleX = static_cast<float>(last.width()) / static_cast<float>(width());
        last.setWidth(width());
    }
    if (height() > 0) {
        if (scaleToSize && last.height() > 0)
            scaleY = static_cast<float>(last.height()) / static_cast<float>(height());
        last.setHeight(height());
    }
    if (scaleX != 1.0f || scaleY != 1.0f)
        scale(scaleX, scaleY, 1.0f, false);
}

void ZoomDisplay::paintGL()
{
    if (d->clearColourChanged) {
        glClearColor(static_cast<float>(d->clearColour.redF()), static_cast<float>(d->clearColour.greenF()),
            static_cast<float>(d->clearColour.blueF()), static_cast<float>(d->clearColour.alphaF()));
        d->clearColourChanged = false;
    }
    glClear(GL_COLOR_BUFFER_BIT);
    // The magnifier may be shown before its display, or apart from it.
    if (!d->engineIsReady(*this))
        return;
    // A QPainter in an earlier frame may have left multisampling off.
    glEnable(GL_MULTISAMPLE);
    d->geometryEngine.drawFanImage(getCurrentProjection());

    FanDisplayHooks& hooks = FanDisplayHooks::of(d->parentDisplay);
    if (hooks.hasMagnifierWork()) {
        const GUI::Widgets::Bases::OpenGLWidgetPainter::Pass pass(painter());
        hooks.paint(*this, painter(), true);
    }
}

void ZoomDisplay::parentDisplayDestroyed()
{
    d->parentDisplayDestroyed = true;
}

} // namespace Halcyra::Nereon::Visualisation
