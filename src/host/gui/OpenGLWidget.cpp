#include "gui/OpenGLWidget.h"

#include "gui/OpenGLWidgetPainter.h"

#include <QByteArray>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QSurfaceFormat>

namespace Halcyra::GUI::Widgets::Bases {

namespace {

/**
 * Whether GL is rendered by the CPU (Mesa's llvmpipe, softpipe or swrast),
 * asked once per process of a throw-away context. There every sample is paid
 * for by the CPU in the clear, the fan and the resolve.
 */
bool glRendersInSoftware()
{
    static const bool software = [] {
        QOpenGLContext* previousContext = QOpenGLContext::currentContext();
        QSurface* previousSurface = previousContext ? previousContext->surface() : nullptr;

        bool result = false;
        QOpenGLContext context;
        QOffscreenSurface surface;
        surface.setFormat(QSurfaceFormat::defaultFormat());
        surface.create();
        if (context.create() && surface.isValid() && context.makeCurrent(&surface)) {
            const auto* name = reinterpret_cast<const char*>(context.functions()->glGetString(GL_RENDERER));
            const QByteArray renderer = QByteArray(name ? name : "").toLower();
            result = renderer.contains("llvmpipe") || renderer.contains("softpipe")
                || renderer.contains("swrast") || renderer.contains("software");
            context.doneCurrent();
        }
        if (previousContext)
            previousContext->makeCurrent(previousSurface);
        return result;
    }();
    return software;
}

} // namespace

OpenGLWidget::OpenGLWidget(QWidget* parent)
    : QOpenGLWidget(parent)
    , overlayPainter(std::make_unique<OpenGLWidgetPainter>(*this))
{
    // Start from the application's default so that options such as a debug
    // context survive; only the sample count is ours. Overlays are smooth
    // without samples (the painter rasterises them); samples smooth the edges
    // of what is drawn in GL, which a GPU does almost for free and a CPU
    // renderer pays for several times over in every paint.
    QSurfaceFormat surfaceFormat = QSurfaceFormat::defaultFormat();
    surfaceFormat.setSamples(glRendersInSoftware() ? 0 : 4);
    // A see-through clear colour needs alpha in the picture (and in its grabs).
    surfaceFormat.setAlphaBufferSize(8);
    setFormat(surfaceFormat);

    // Position reports and hover cursors need moves without a button held.
    setMouseTracking(true);
}

OpenGLWidget::~OpenGLWidget()
{
    // QOpenGLWidget destroys the context after this destructor: no hook then.
    disconnect(contextGoing);
    if (isValid()) {
        makeCurrent();
        overlayPainter->releaseGlObjects();
        doneCurrent();
    }
}

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

    // Qt replaces the context when the widget moves to another window; what was
    // made in the old one must go with it, or the new one would use dead names.
    disconnect(contextGoing);
    contextGoing = connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, [this] {
        if (QOpenGLContext::currentContext() != context())
            makeCurrent();
        overlayPainter->releaseGlObjects();
        releaseGlResources();
    });

    initialise();
}

void OpenGLWidget::resizeGL(int, int) { }

void OpenGLWidget::paintGL() { }

void OpenGLWidget::initialise() { }

void OpenGLWidget::releaseGlResources() { }

OpenGLWidgetPainter& OpenGLWidget::painter()
{
    return *overlayPainter;
}

} // namespace Halcyra::GUI::Widgets::Bases
