#include "ZoomableFanDisplay.h"

#include "zoom/ZoomableFanDisplayPrivate.h"

#include <QMatrix4x4>
#include <QPointF>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Halcyra::Nereon::Visualisation {

using GUI::Widgets::Bases::OpenGLWidget;

namespace {

constexpr int AnimationIntervalMs = 30;
constexpr float AnimationSteps = 10.0f;

/// The fan point now at the centre of the view.
QPointF viewCentre(OpenGLWidget& widget)
{
    return widget.getCurrentProjection().inverted().map(QPointF(0.0, 0.0));
}

/// Moves the view so that fanPoint is back at its centre.
void recentre(OpenGLWidget& widget, const QPointF& fanPoint)
{
    const QPointF moved = widget.getCurrentProjection().map(fanPoint);
    widget.translate(static_cast<float>(-moved.x()), static_cast<float>(-moved.y()), 0.0f, false);
}

/// Compared bit for bit: a level so large that the view overflows must not
/// count as a change at every paint (a NaN never equals itself).
bool sameTransform(const Vec3<float>& scale, const Vec3<float>& translation, OpenGLWidget& widget)
{
    const Vec3<float> s = widget.getCurrentScale();
    const Vec3<float> t = widget.getCurrentTranslation();
    const float before[] = { scale.x, scale.y, scale.z, translation.x, translation.y, translation.z };
    const float after[] = { s.x, s.y, s.z, t.x, t.y, t.z };
    return std::memcmp(before, after, sizeof before) == 0;
}

} // namespace

void ZoomableFanDisplay::ZoomableFanDisplayPrivate::changeLevel(ZoomableFanDisplay& display, float previous)
{
    if (previous == 0.0f) {
        // A view at level 0 has no extent to scale from: fit afresh at the new
        // level, which is what the ratio would give for any other level.
        display.resizeGL(display.width(), display.height());
        display.update();
        return;
    }
    const QPointF centre = viewCentre(display);
    const Vec3<float> scale = display.getCurrentScale();
    display.scale(scale.x / previous * currentZoomLevel, scale.y / previous * currentZoomLevel, 1.0f, true);
    recentre(display, centre);
    display.update();
}

void ZoomableFanDisplay::ZoomableFanDisplayPrivate::stepAnimation(ZoomableFanDisplay& display)
{
    const float previous = currentZoomLevel;
    const float next = previous - zoomStep;
    // Never step past the target, whichever way the animation runs.
    currentZoomLevel = zoomLevel > previous ? std::min(zoomLevel, next) : std::max(zoomLevel, next);
    changeLevel(display, previous);
    if (currentZoomLevel == zoomLevel)
        zoomTimer.stop();
}

ZoomableFanDisplay::ZoomableFanDisplay(QWidget* parent)
    : FanDisplay(parent)
    , d(std::make_unique<ZoomableFanDisplayPrivate>())
{
    d->zoomTimer.setInterval(AnimationIntervalMs);
    connect(&d->zoomTimer, &QTimer::timeout, this, [this] { d->stepAnimation(*this); });
}

// The record (and its timer) goes before the fan display is torn down.
ZoomableFanDisplay::~ZoomableFanDisplay() = default;

void ZoomableFanDisplay::setZoomLevel(float level, bool animate)
{
    // NaN or infinity would leave the view without a scale to come back from.
    if (!std::isfinite(level))
        return;

    if (animate) {
        // Starts from the previous target, even if an animation is still under way.
        const float previous = d->zoomLevel;
        d->zoomLevel = level;
        d->currentZoomLevel = previous;
        d->zoomStep = (previous - level) / AnimationSteps;
        d->zoomTimer.start();
        return;
    }

    if (d->zoomTimer.isActive())
        d->zoomTimer.stop();
    const float previous = d->zoomLevel;
    d->zoomLevel = level;
    d->currentZoomLevel = level;
    d->changeLevel(*this, previous);
}

float ZoomableFanDisplay::getZoomLevel() const
{
    return d->zoomLevel;
}

void ZoomableFanDisplay::resizeGL(int width, int height)
{
    // Nothing to fit; the fan display keeps its last fit then, which must not
    // be magnified again at every paint.
    if (width <= 0 || height <= 0)
        return;
    const Vec3<float> scaleBefore = getCurrentScale();
    const Vec3<float> translationBefore = getCurrentTranslation();

    FanDisplay::resizeGL(width, height);
    const QPointF centre = viewCentre(*this);
    const Vec3<float> fitted = getCurrentScale();
    scale(fitted.x * d->currentZoomLevel, fitted.y * d->currentZoomLevel, 1.0f, true);
    recentre(*this, centre);

    // The fan display refits before every paint; asking for another paint when
    // nothing moved would keep the widget repainting without end.
    if (!sameTransform(scaleBefore, translationBefore, *this))
        update();
}

} // namespace Halcyra::Nereon::Visualisation
