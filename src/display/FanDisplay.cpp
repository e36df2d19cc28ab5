#include "FanDisplay.h"

#include "display/FanDisplayPrivate.h"
#include "gui/NereonLogo.h"
#include "gui/OpenGLWidgetPainter.h"
#include "gui/TernwickLogo.h"
#include "maths/GeometryFunctions.h"
#include "measuring/CircleAreaFromCentreMeasure.h"
#include "measuring/RectangleAreaMeasure.h"

#include <QDateTime>
#include <QFontMetricsF>
#include <QLoggingCategory>
#include <QMouseEvent>
#include <QPixmap>
#include <QResizeEvent>

#include <cmath>
#include <vector>

namespace Halcyra::Nereon::Visualisation {

namespace {

// Rejected frames are an application's concern, so the reasons are only
// printed when it asks for them, e.g. with
// QT_LOGGING_RULES="ternwick.nereon.visualisation.frames.warning=true".
Q_LOGGING_CATEGORY(lcFrames, "ternwick.nereon.visualisation.frames", QtCriticalMsg)

/// Why the engine could not take the frame safely, or null when it can.
const char* frameRejectionReason(const NereonImage& image, int maxTextureSize)
{
    const int width = image.getWidth();
    const int height = image.getHeight();
    if (width < 2)
        return "fewer than two beams";
    if (height == 0)
        return "no range lines";
    if (width > maxTextureSize || height > maxTextureSize)
        return "larger than the largest texture the GL implementation takes";

    const std::vector<std::int16_t>& bearings = image.getBearings();
    if (bearings.size() < static_cast<std::size_t>(width))
        return "fewer bearings than beams";
    if (image.getData().size() < static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
        return "fewer intensities than beams times range lines";
    for (int i = 1; i < width; ++i) {
        if (bearings[i] < bearings[i - 1])
            return "bearings not ascending";
    }
    if (bearings[width - 1] == bearings[0])
        return "bearings span no angle";

    const double range = image.getRange();
    if (!std::isfinite(range) || range < 0.0)
        return "range not a finite number of metres";
    return nullptr;
}

} // namespace

FanDisplay::FanDisplayPrivate::FanDisplayPrivate(FanDisplay& display)
    : zoomDisplay(new ZoomDisplay(geometryEngine, display))
    , zoomDisplayOutline(zoomDisplay)
    , zoomDisplayGuard(zoomDisplay)
    , hooks(display)
{
}

QPointF FanDisplay::FanDisplayPrivate::pixelsToGL(const QPointF& pixel, const FanDisplay& display) const
{
    const double width = display.width();
    const double height = display.height();
    return QPointF(2.0 * pixel.x() / width - 1.0, 1.0 - 2.0 * pixel.y() / height);
}

bool FanDisplay::FanDisplayPrivate::zoomDisplayIsVisible() const
{
    const ZoomDisplay* zoom = liveZoomDisplay();
    return zoom && zoom->isVisible();
}

FanDisplay::FanDisplay(QWidget* parent)
    : OpenGLWidget(parent)
    , d(std::make_unique<FanDisplayPrivate>(*this))
{
    // Position reports and the hover cursor need moves without a pressed button.
    setMouseTracking(true);

    // With background processing a new frame is painted once the engine's
    // worker has its results, so the paint finds them ready instead of
    // waiting for them on the GUI thread.
    d->geometryEngine.setFrameReadyCallback([this] {
        QMetaObject::invokeMethod(
            this, [this] { update(); }, Qt::QueuedConnection);
    });
}

FanDisplay::~FanDisplay()
{
    d->geometryEngine.setFrameReadyCallback(nullptr);

    // A magnifier never placed in a widget tree has no other owner.
    ZoomDisplay* zoom = d->liveZoomDisplay();
    if (zoom && !zoom->parentWidget())
        delete zoom;
    else if (zoom)
        zoom->parentDisplayDestroyed(); // placed by the application, which may destroy it later

    // isValid() is false when no context was ever created: nothing to release then.
    if (isValid()) {
        makeCurrent();
        d->geometryEngine.destroy();
        doneCurrent();
    }
}

ZoomDisplay* FanDisplay::getZoomDisplay()
{
    return d->liveZoomDisplay();
}

FanDisplayOptions::DisplaySettings FanDisplay::getCurrentDisplaySettings() const
{
    FanDisplayOptions::DisplaySettings settings = d->geometryEngine.getCurrentDisplaySettings();
    settings.clearColour = d->clearColour;
    settings.textColour = d->textColour;
    settings.showRangeLabels = d->showRangeLabels;
    settings.showRangeArcs = d->showRangeArcs;
    settings.showRangeLines = d->showRangeLines;
    settings.scale = getCurrentScale();
    settings.translation = getCurrentTranslation();
    settings.rotation = getCurrentRotation();
    return settings;
}

void FanDisplay::configureFromSettings(const FanDisplayOptions::DisplaySettings& settings)
{
    d->geometryEngine.configureFromSettings(settings);
    setClearColour(settings.clearColour);
    setTextColour(settings.textColour);
    setOverlayFeature(FanDisplayOptions::RangeLabels, settings.showRangeLabels);
    setOverlayFeature(FanDisplayOptions::RangeArcs, settings.showRangeArcs);
    setOverlayFeature(FanDisplayOptions::RangeLines, settings.showRangeLines);
    scale(settings.scale.x, settings.scale.y, settings.scale.z, true);
    translate(settings.translation.x, settings.translation.y, settings.translation.z, true);
    rotate(settings.rotation, true);
}

void FanDisplay::setTextColour(const QColor& colour)
{
    // Compared by name, so a change of alpha alone does not register a new font.
    if (colour.name() == d->textColour.name())
        return;
    d->textColour = colour;
    d->textChanged = true;
}

void FanDisplay::setFont(const QFont& font)
{
    d->font = font;
    d->textChanged = true;
}

void FanDisplay::setClearColour(const QColor& colour)
{
    d->clearColour = colour;
    d->clearColourChanged = true;

    // A translucent picture only shows what lies behind it when it is composited over
    // its siblings rather than first, under them. An application's own choice of the
    // attribute is left alone.
    const bool seeThrough = colour.isValid() && colour.alpha() < 255;
    if (seeThrough != d->stacksOnTopForTranslucency && seeThrough != testAttribute(Qt::WA_AlwaysStackOnTop)) {
        setAttribute(Qt::WA_AlwaysStackOnTop, seeThrough);
        d->stacksOnTopForTranslucency = seeThrough;
        // The window composes its GL widgets in another order now.
        if (QWidget* top = window(); top && top != this)
            top->update();
    }
    if (ZoomDisplay* zoom = d->liveZoomDisplay())
        zoom->setClearColour(colour.darker(120));
}

void FanDisplay::setBranding(bool enabled)
{
    d->brandingEnabled = enabled;
}

void FanDisplay::setBrandingColours(
    const QColor& ternwickPrimary, const QColor& ternwickSecondary, const QColor& nereon)
{
    d->ternwickLogoPrimaryColour = ternwickPrimary;
    d->ternwickLogoSecondaryColour = ternwickSecondary;
    d->nereonLogoColour = nereon;
    d->brandingColoursChanged = true;
}

void FanDisplay::setRotation(int degrees)
{
    rotate(static_cast<float>(degrees), true);
    update();
}

void FanDisplay::horizontalFlip()
{
    d->geometryEngine.horizontalFlip();
    update();
}

void FanDisplay::verticalFlip()
{
    rotate(180.0f, false);
    horizontalFlip();
    update();
}

void FanDisplay::toggleOverlayFeature(FanDisplayOptions::OverlayFeature feature)
{
    switch (feature) {
    case FanDisplayOptions::RangeLabels:
        d->showRangeLabels = !d->showRangeLabels;
        break;
    case FanDisplayOptions::RangeArcs:
        d->showRangeArcs = !d->showRangeArcs;
        break;
    case FanDisplayOptions::RangeLines:
        d->showRangeLines = !d->showRangeLines;
        break;
    }
    update();
}

void FanDisplay::setOverlayFeature(FanDisplayOptions::OverlayFeature feature, bool enabled)
{
    switch (feature) {
    case FanDisplayOptions::RangeLabels:
        d->showRangeLabels = enabled;
        break;
    case FanDisplayOptions::RangeArcs:
        d->showRangeArcs = enabled;
        break;
    case FanDisplayOptions::RangeLines:
        d->showRangeLines = enabled;
        break;
    }
    update();
}

void FanDisplay::setColourScaleVisible(bool visible)
{
    d->colourScaleVisible = visible;
    update();
}

bool FanDisplay::isColourScaleVisible() const
{
    return d->colourScaleVisible;
}

void FanDisplay::setRangeGridColour(const QColor& colour)
{
    d->rangeGridColour = colour;
    update();
}

QColor FanDisplay::getRangeGridColour() const
{
    return d->rangeGridColour;
}

void FanDisplay::setAutomaticGridColour(bool enabled)
{
    d->automaticGridColour = enabled;
    update();
}

bool FanDisplay::isAutomaticGridColourEnabled() const
{
    return d->automaticGridColour;
}

void FanDisplay::setBackgroundFrameProcessing(bool enabled)
{
    d->geometryEngine.setBackgroundProcessing(enabled);
}

bool FanDisplay::isBackgroundFrameProcessingEnabled() const
{
    return d->geometryEngine.isBackgroundProcessing();
}

void FanDisplay::newImageReceived(const NereonImage& image)
{
    // The engine trusts its frames; a bad one must not change anything, so the
    // last good picture stays on screen.
    if (const char* reason = frameRejectionReason(image, d->maxTextureSize)) {
        qCWarning(lcFrames, "Frame of %d beams x %d range lines rejected: %s", image.getWidth(),
            image.getHeight(), reason);
        return;
    }

    // Written as a negated equality so that a NaN on either side counts as a change.
    const double range = image.getRange();
    if (!(range == d->geometryEngine.getRange()) && d->tool->hasMeasurement()) {
        const Vec3<float>& currentScale = getCurrentScale();
        d->tool->updateMeasurement(range, currentScale.x, currentScale.y);
    }
    d->geometryEngine.processNewImage(image);
    d->hooks.frameReceived = true;
    // A frame on the worker asks for its repaint when its results are ready.
    if (!d->geometryEngine.processesFrameInBackground())
        update();

    const std::int64_t now = QDateTime::currentMSecsSinceEpoch() / 1000;
    if (now != d->lastFrameSecond) {
        emit frameRateChanged(d->framesThisSecond);
        d->lastFrameSecond = now;
        d->framesThisSecond = 1;
    } else {
        ++d->framesThisSecond;
    }
}

void FanDisplay::sonarDisconnected()
{
    update();
}

void FanDisplay::setMeasurementMode(FanDisplayOptions::MeasurementMode mode)
{
    d->measurementMode = mode;
    std::unique_ptr<MeasuringToolBase> tool;
    switch (mode) {
    case FanDisplayOptions::StraightLine:
        tool = std::make_unique<StraightLineMeasure>();
        break;
    case FanDisplayOptions::RectangleArea:
        tool = std::make_unique<RectangleAreaMeasure>();
        break;
    case FanDisplayOptions::CircleAreaFromCentre:
        tool = std::make_unique<CircleAreaFromCentreMeasure>();
        break;
    default:
        return;
    }
    d->tool = std::move(tool);
    d->tool->setUnit(mode == FanDisplayOptions::StraightLine ? d->distanceUnit : d->areaUnit);
}

void FanDisplay::setDespeckleLevel(int level)
{
    d->geometryEngine.setDespeckleLevel(level);
    update();
}

void FanDisplay::setClampLevel(float level)
{
    d->geometryEngine.setClampLevel(level);
    update();
}

void FanDisplay::setDistanceUnit(const DataProcessing::Units::AbstractUnit* unit)
{
    d->distanceUnit = unit;
    d->geometryEngine.setDistanceUnit(unit);
    if (d->measurementMode == FanDisplayOptions::StraightLine)
        d->tool->setUnit(unit);
}

void FanDisplay::setAreaUnit(const DataProcessing::Units::AbstractUnit* unit)
{
    d->areaUnit = unit;
    if (d->measurementMode != FanDisplayOptions::StraightLine)
        d->tool->setUnit(unit);
}

void FanDisplay::setPalette(FanDisplayOptions::Palette palette)
{
    d->geometryEngine.setPalette(palette);
    update();
}

void FanDisplay::setPaletteModifier(uint8_t modifier)
{
    d->geometryEngine.setPaletteModifier(modifier);
    update();
}

void FanDisplay::releaseGlResources()
{
    d->geometryEngine.releaseGlObjects();
}

void FanDisplay::initialise()
{
    glClearColor(static_cast<GLfloat>(d->clearColour.redF()), static_cast<GLfloat>(d->clearColour.greenF()),
        static_cast<GLfloat>(d->clearColour.blueF()), static_cast<GLfloat>(d->clearColour.alphaF()));

    // Without a shader program there is nothing to show; the rest of the set-up
    // still runs so that destruction finds the usual objects.
    if (!d->geometryEngine.initFanImageShaders())
        close();

    d->geometryEngine.initPalettes();

    // Invisible until the first frame: the default bearings give the fan no area.
    constexpr unsigned short startWidth = 256;
    constexpr unsigned short startHeight = 396;
    std::vector<unsigned char> ramp(static_cast<std::size_t>(startWidth) * startHeight);
    for (std::size_t i = 0; i < ramp.size(); ++i)
        ramp[i] = static_cast<unsigned char>(i % 256);
    d->geometryEngine.initIntensities(startWidth, startHeight, ramp);

    GLint maxTextureSize = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxTextureSize);
    if (maxTextureSize > 0)
        d->maxTextureSize = maxTextureSize;
}

void FanDisplay::resizeGL(int width, int height)
{
    const QRectF bounds = d->geometryEngine.getFanBounds(getCurrentRotation());
    const float fanWidth = static_cast<float>(std::abs(bounds.width()));
    const float fanHeight = static_cast<float>(std::abs(bounds.height()));
    const float fanAspect = fanWidth / fanHeight;
    const float viewAspect = static_cast<float>(width) / static_cast<float>(height);

    float sx = 0.0f;
    float sy = 0.0f;
    if (viewAspect / fanAspect > 1.0f) {
        sy = 1.8f / fanHeight;
        sx = sy / viewAspect;
    } else {
        sx = 1.8f / fanWidth;
        sy = sx * viewAspect;
    }
    // A fan without extent (or a widget without size) cannot be fitted; keep
    // the last fit rather than poisoning the transform with infinities.
    if (!std::isfinite(sx) || !std::isfinite(sy) || sx == 0.0f || sy == 0.0f)
        return;
    if (d->hooks.labelMargin)
        d->fitRangeLabelsInside(*this, QSize(width, height), bounds, sx, sy);
    scale(sx, sy, 1.0f, true);

    const float cx = static_cast<float>(bounds.x()) + fanWidth / 2.0f;
    const float cy = static_cast<float>(bounds.y() + bounds.height()) + fanHeight / 2.0f;
    const Vec3<float>& fitted = getCurrentScale();
    translate(fitted.x * -cx, fitted.y * -cy, 0.0f, true);
    rotate(getCurrentRotation(), true);
}

void FanDisplay::paintGL()
{
    // QPainter-based overlays of the previous frame may have switched it off.
    glEnable(GL_MULTISAMPLE);

    GUI::Widgets::Bases::OpenGLWidgetPainter& overlay = painter();
    // Every overlay of this paint, whoever draws it, goes into one layer that
    // is put on the picture when paintGL returns (and kept while it stays the same).
    const GUI::Widgets::Bases::OpenGLWidgetPainter::Pass overlayPass(overlay);
    if (d->textChanged) {
        overlay.setFont(overlay.addFont(d->font, d->textColour));
        d->textChanged = false;
    }
    if (d->clearColourChanged) {
        glClearColor(static_cast<GLfloat>(d->clearColour.redF()),
            static_cast<GLfloat>(d->clearColour.greenF()), static_cast<GLfloat>(d->clearColour.blueF()),
            static_cast<GLfloat>(d->clearColour.alphaF()));
        d->clearColourChanged = false;
    }
    glClear(GL_COLOR_BUFFER_BIT);

    resizeGL(width(), height());
    const float rotation = getCurrentRotation();
    if (ZoomDisplay* zoom = d->liveZoomDisplay())
        zoom->setRotation(rotation);

    d->geometryEngine.drawFanImage(getCurrentProjection());

    const QColor gridColour = d->gridColourForPaint();
    const bool showGrid = d->hooks.frameReceived || !d->hooks.gridAwaitsFrame;
    if (d->showRangeLines && showGrid)
        overlay.drawLines(d->geometryEngine.getRangeLineVertices(), 1, gridColour, false, false, false);
    if (d->showRangeArcs && showGrid) {
        const std::vector<std::vector<float>> arcs = d->geometryEngine.getRangeArcVertices();
        for (const std::vector<float>& arc : arcs)
            overlay.drawLines(arc, 1, gridColour, false, true, false);
    }
    if (d->showRangeLabels && showGrid) {
        for (const RangeLabelParams& label : d->geometryEngine.getRangeLabelParams(rotation))
            overlay.drawText(
                label.x, label.y, label.angle, label.text, label.anchor, label.screenCoordinates);
    }

    if (d->tool->getState() != MeasuringToolBase::Idle)
        d->tool->displayMeasurement(overlay);

    d->hooks.paint(*this, overlay, false);

    if (d->zoomDisplayIsVisible()) {
        d->liveZoomDisplay()->update();
        d->zoomDisplayOutline.draw(overlay);
    }

    if (d->colourScaleVisible)
        d->drawColourScale(*this);

    if (!d->brandingEnabled)
        return;

    if (d->brandingColoursChanged) {
        d->renderLogoImages(height());
        d->brandingColoursChanged = false;
    }
    overlay.drawImage(-0.95f, 0.95f, d->ternwickLogoImage, true);
    // The grabbed image has devicePixelRatio device pixels per logical pixel.
    const float nereonWidth = static_cast<float>(d->nereonLogoImage.width())
        / static_cast<float>(d->nereonLogoImage.devicePixelRatio());
    const float nereonLeft = 0.95f - 2.0f * nereonWidth / static_cast<float>(width());
    overlay.drawImage(nereonLeft, 0.95f, d->nereonLogoImage, true);
}

void FanDisplay::resizeEvent(QResizeEvent* event)
{
    QOpenGLWidget::resizeEvent(event);
    d->tool->stopMeasuring(*this);
    d->tool->reset();
}

void FanDisplay::mousePressEvent(QMouseEvent* event)
{
    const QPointF g = d->pixelsToGL(QPointF(event->pos()), *this);
    if (event->button() != Qt::LeftButton)
        return;

    const QMatrix4x4& projection = getCurrentProjection();
    if (d->zoomDisplayIsVisible() && d->zoomDisplayOutline.pointIsWithinBounds(g, projection)) {
        const Vec3<float>& s = getCurrentScale();
        d->zoomDisplayOutline.beginDrag(QPointF(g.x() / s.x, g.y() / s.y));
        setCursor(Qt::ClosedHandCursor);
        return;
    }
    if (d->geometryEngine.pointIsWithinFan(g, getCurrentProjection()))
        d->tool->startMeasuring(*this, g);
}

void FanDisplay::mouseMoveEvent(QMouseEvent* event)
{
    const QPointF g = d->pixelsToGL(QPointF(event->pos()), *this);

    if (d->zoomDisplayOutline.isBeingDragged()) {
        const Vec3<float>& s = getCurrentScale();
        d->zoomDisplayOutline.updateDrag(QPointF(g.x() / s.x, g.y() / s.y));
    } else if (d->zoomDisplayIsVisible()
        && d->zoomDisplayOutline.pointIsWithinBounds(g, getCurrentProjection())) {
        setCursor(Qt::OpenHandCursor);
    } else {
        unsetCursor();
    }

    if (!d->geometryEngine.pointIsWithinFan(g, getCurrentProjection()))
        return;

    d->emitMousePosition(*this, g);

    if (d->tool->getState() == MeasuringToolBase::Measuring) {
        const Vec3<float>& s = getCurrentScale();
        d->tool->takeMeasurement(g, d->geometryEngine.getRange(), s.x, s.y);
        update();
    }
}

void FanDisplay::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton)
        return;

    if (d->zoomDisplayOutline.isBeingDragged()) {
        d->zoomDisplayOutline.endDrag();
        unsetCursor();
    } else if (d->tool->getState() == MeasuringToolBase::Measuring) {
        d->tool->stopMeasuring(*this);
        // A click without a drag measures nothing and leaves nothing behind.
        if (!d->tool->hasMeasurement())
            d->tool->reset();
        else
            d->hooks.reportMeasurement(*this, *d->tool, d->measurementMode, false);
    } else {
        // A click that started no measurement clears a finished one.
        d->tool->reset();
    }
    update();
}

void FanDisplay::FanDisplayPrivate::emitMousePosition(FanDisplay& display, const QPointF& g)
{
    using Maths::Geometry::Point;

    const Vec3<float>& s = display.getCurrentScale();
    const Vec3<float>& t = display.getCurrentTranslation();
    const double range = geometryEngine.getRange();

    // Stretch x so that one unit is equally long on both axes; the apex sits
    // at the translation.
    const Point apex { static_cast<double>(t.x * s.y / s.x), static_cast<double>(t.y) };
    const Point pointer { g.x() * s.y / s.x, g.y() };

    mouseRange = static_cast<float>(Maths::Geometry::distanceBetween(apex, pointer) * range / s.y);

    float angle = static_cast<float>(std::atan2(pointer.y - apex.y, pointer.x - apex.x));
    if (apex.y > pointer.y)
        angle += 6.2831855f;

    float rotation = display.getCurrentRotation();
    if (rotation > 180.0f)
        rotation -= 360.0f;

    const float bearing = (rotation + 90.0f) * 0.017453292f - angle;
    mouseBearing = bearing * 57.29578f;
    mouseX = static_cast<float>(Maths::Geometry::sineRuleForSide(bearing, mouseRange, 1.5707963705062866));
    mouseY = static_cast<float>(Maths::Geometry::pythagorasForShortSide(mouseX, mouseRange));

    emit display.newMousePosition(mouseX, mouseY, mouseRange, mouseBearing);
}

void FanDisplay::FanDisplayPrivate::renderLogoImages(int widgetHeight)
{
    const int logoHeight = widgetHeight / 12;
    const auto logoWidth = [logoHeight](const QSize& svgSize) {
        if (svgSize.height() <= 0)
            return logoHeight;
        return static_cast<int>(static_cast<float>(svgSize.width()) / static_cast<float>(svgSize.height())
            * static_cast<float>(logoHeight));
    };
    const QString transparent = QStringLiteral("background: transparent;");

    // Grabbed without ever being shown, then thrown away: only the pictures are kept.
    GUI::Widgets::Displays::TernwickLogo ternwickLogo(nullptr);
    ternwickLogo.setStyleSheet(transparent);
    ternwickLogo.setPrimaryColour(ternwickLogoPrimaryColour);
    ternwickLogo.setSecondaryColour(ternwickLogoSecondaryColour);
    ternwickLogo.setFixedSize(logoWidth(ternwickLogo.getSvgSize()), logoHeight);
    ternwickLogoImage = ternwickLogo.grab().toImage();

    GUI::Widgets::Displays::NereonLogo nereonLogo(nullptr);
    nereonLogo.setStyleSheet(transparent);
    nereonLogo.setColour(nereonLogoColour);
    nereonLogo.setFixedSize(logoWidth(nereonLogo.getSvgSize()), logoHeight);
    nereonLogoImage = nereonLogo.grab().toImage();
}

void FanDisplay::FanDisplayPrivate::fitRangeLabelsInside(
    FanDisplay& display, QSize size, const QRectF& bounds, float& sx, float& sy)
{
    if (!showRangeLabels || !distanceUnit || size.isEmpty())
        return;
    const float rotation = display.getCurrentRotation();
    const std::vector<RangeLabelParams> labels = geometryEngine.getRangeLabelParams(rotation);

    // The fan keeps its centre in the widget's centre; only the pixels per fan unit
    // shrink until every label's box lies inside, text sizes being fixed in pixels.
    constexpr double padding = 2.0;
    constexpr double radiansPerDegree = 3.14159265358979323846 / 180.0;
    const double fittedScale = static_cast<double>(sx) * size.width() / 2.0;
    const double centreX = bounds.x() + std::abs(bounds.width()) / 2.0;
    const double centreY = bounds.y() + bounds.height() + std::abs(bounds.height()) / 2.0;
    const QFontMetricsF metrics(font, &display);
    const double halfHeight = (metrics.ascent() + metrics.descent()) / 2.0;
    const double turn = static_cast<double>(rotation) * radiansPerDegree;

    double scale = fittedScale;
    const auto limit = [&scale](double offset, double middle, double extent, double low, double high) {
        // middle + scale * offset + extent must stay within [low, high].
        if (offset > 0.0)
            scale = std::min(scale, (high - middle - extent) / offset);
        else if (offset < 0.0)
            scale = std::min(scale, (low - middle - extent) / offset);
    };
    for (const RangeLabelParams& label : labels) {
        const double x = label.x * std::cos(turn) - label.y * std::sin(turn);
        const double y = label.x * std::sin(turn) + label.y * std::cos(turn);
        const double offsetX = x - centreX;
        const double offsetY = -(y - centreY); // pixels grow downwards
        const double width = metrics.horizontalAdvance(QString::fromStdString(label.text));
        const double angle = (label.angle + static_cast<double>(rotation)) * radiansPerDegree;
        const double alongX = std::cos(angle);
        const double alongY = -std::sin(angle);
        const double from = (label.anchor & 0x0f) == 0x02 ? -width : 0.0;
        for (const double along : { from, from + width }) {
            for (const double side : { -halfHeight, halfHeight }) {
                const double extentX = along * alongX - side * alongY;
                const double extentY = along * alongY + side * alongX;
                limit(offsetX, size.width() / 2.0, extentX, padding, size.width() - padding);
                limit(offsetY, size.height() / 2.0, extentY, padding, size.height() - padding);
            }
        }
    }
    // A widget too small for the labels still shows a fan.
    scale = std::max(scale, 0.2 * fittedScale);
    if (scale >= fittedScale)
        return;
    sx = static_cast<float>(2.0 * scale / size.width());
    sy = static_cast<float>(2.0 * scale / size.height());
}

QColor FanDisplay::FanDisplayPrivate::gridColourForPaint()
{
    if (!automaticGridColour)
        return rangeGridColour;
    const FanDisplayOptions::Palette palette = geometryEngine.getPalette();
    const unsigned char modifier = geometryEngine.getPaletteModifier();
    const float lower = geometryEngine.getLowerThreshold();
    const float upper = geometryEngine.getUpperThreshold();
    if (!gridPalette || !gridPalette->isFor(palette, modifier, lower, upper)) {
        gridPalette.emplace(palette, modifier, lower, upper);
        chosenGridColour = gridPalette->contrastingGridColour();
    }
    return chosenGridColour;
}

void FanDisplay::FanDisplayPrivate::drawColourScale(FanDisplay& display)
{
    ColourScale::Scene scene;
    scene.size = display.size();
    scene.devicePixelRatio = display.devicePixelRatioF();
    scene.projection = display.getCurrentProjection();
    scene.rotation = display.getCurrentRotation();
    // Without a unit no range label is drawn, so none needs room.
    scene.rangeLabelsShown = showRangeLabels && distanceUnit;
    scene.font = font;
    scene.textColour = textColour;
    scene.backgroundColour = clearColour;
    if (brandingEnabled) {
        // The logos stand at the top, one twelfth of the height tall, inside a 2.5 % margin.
        const double logoBottom = 0.025 * display.height() + display.height() / 12;
        scene.reserved.emplace_back(0.0, 0.0, display.width(), logoBottom);
    }
    colourScale.draw(display.painter(), geometryEngine, scene);
}

} // namespace Halcyra::Nereon::Visualisation
