#include "gui/OpenGLWidget.h"

#include "gui/OpenGLWidgetPainter.h"

#include <QSurfaceFormat>

namespace Halcyra::GUI::Widgets::Bases {

OpenGLWidget::OpenGLWidget(QWidget* parent)
    : QOpenGLWidget(parent)
    , overlayPainter(std::make_unique<OpenGLWidgetPainter>(*this))
{
    // Start from the application's default so that options such as a debug
    // context survive; only the sample count is ours, for antialiased overlays.
    QSurfaceFormat surfaceFormat = QSurfaceFormat::defaultFormat();
    surfaceFormat.setSamples(4);
    // A see-through clear colour needs alpha in the picture (and in its grabs).
    surfaceFormat.setAlphaBufferSize(8);
    setFormat(surfaceFormat);

    // Position reports and hover cursors need moves without a button held.
    setMouseTracking(true);
}

OpenGLWidget::~OpenGLWidget() = default;

void OpenGLWidget::scale(float x, float y, float z, bool absolute)
{
    if (absolute) {
        currentScale = { x, y, z };
    } else {
        currentScale.x *= x;
        currentScale.y *= y;
        currentScale.z *= z;
    }
    projectionDirty = true;
}

void OpenGLWidget::translate(float x, float y, float z, bool absolute)
{
    if (absolute) {
        currentTranslation = { x, y, z };
    } else {
        currentTranslation.x += x;
        currentTranslation.y += y;
        currentTranslation.z += z;
    }
    projectionDirty = true;
}

void OpenGLWidget::rotate(float degrees, bool absolute)
{
    if (absolute)
        currentRotation = degrees;
    else
        currentRotation += degrees;
    projectionDirty = true;
}

const Vec3<float>& OpenGLWidget::getCurrentScale() const
{
    return currentScale;
}

const Vec3<float>& OpenGLWidget::getCurrentTranslation() const
{
    return currentTranslation;
}

float OpenGLWidget::getCurrentRotation() const
{
    return currentRotation;
}

const QMatrix4x4& OpenGLWidget::getCurrentProjection()
{
    if (projectionDirty) {
        // QMatrix4x4 post-multiplies, so the last call is applied to a point first.
        projection.setToIdentity();
        projection.translate(currentTranslation.x, currentTranslation.y, currentTranslation.z);
        projection.scale(currentScale.x, currentScale.y, currentScale.z);
        projection.rotate(currentRotation, 0.0f, 0.0f, 1.0f);
        projectionDirty = false;
    }
    return projection;
}

void OpenGLWidget::initializeGL()
{
    initializeOpenGLFunctions();
    overlayPainter->initialise();
    initialise();
}

void OpenGLWidget::resizeGL(int, int) { }

void OpenGLWidget::paintGL() { }

void OpenGLWidget::initialise() { }

OpenGLWidgetPainter& OpenGLWidget::painter()
{
    return *overlayPainter;
}

} // namespace Halcyra::GUI::Widgets::Bases
