#pragma once

#include "gui/Vec3.h"

#include <QMatrix4x4>
#include <QOpenGLFunctions>
#include <QOpenGLWidget>

#include <memory>

namespace Halcyra::GUI::Widgets::Bases {

class OpenGLWidgetPainter;

/**
 * Base of GL widgets that draw a model through a 2-D model transform and paint
 * overlays on top with an OpenGLWidgetPainter.
 *
 * The model transform maps model coordinates to clip coordinates: a point is
 * rotated about the origin (counter-clockwise, degrees), then scaled, then
 * translated (clip units). Initially: scale 1, no translation, rotation 0.
 *
 * The widget asks for 4 samples when a GPU renders, for smooth edges of what
 * subclasses draw in GL; with a CPU renderer (llvmpipe) it asks for none, which
 * there makes every paint much cheaper. Overlays are smooth either way.
 * It has no meta-object of its own: subclasses that use Q_OBJECT name
 * QOpenGLWidget as their superclass.
 */
class OpenGLWidget : public QOpenGLWidget, public QOpenGLFunctions
{
public:
    /// Creates the widget with a multisampled surface format and the identity model transform.
    explicit OpenGLWidget(QWidget* parent = nullptr);
    ~OpenGLWidget() override;

    /// absolute: replace the scale; otherwise multiply it component by component.
    void scale(float x, float y, float z, bool absolute);
    /// absolute: replace the translation (clip units); otherwise add to it.
    void translate(float x, float y, float z, bool absolute);
    /// absolute: replace the rotation (degrees, counter-clockwise); otherwise add to it.
    void rotate(float degrees, bool absolute);

    /// The model scale.
    const Vec3<float>& getCurrentScale() const;
    /// The model translation, clip units.
    const Vec3<float>& getCurrentTranslation() const;
    /// The model rotation, degrees counter-clockwise.
    float getCurrentRotation() const;
    /// translation × scale × rotation, always up to date.
    const QMatrix4x4& getCurrentProjection();

protected:
    /// Resolves GL functions, readies the painter, then calls initialise().
    void initializeGL() override;
    /// Does nothing; subclasses fit their model to the new size here.
    void resizeGL(int width, int height) override;
    /// Paints nothing; subclasses draw their model and overlays here.
    void paintGL() override;

    /// GL set-up hook; the context is current and GL functions are resolved.
    virtual void initialise();
    /**
     * GL release hook, called with the context current just before Qt destroys
     * it while the widget lives on (a move to another window, for one);
     * initialise() follows in the new context. Not called from the destructor.
     */
    virtual void releaseGlResources();

    /// The widget's overlay painter; use it inside paintGL().
    OpenGLWidgetPainter& painter();

private:
    Vec3<float> currentScale { 1.0f, 1.0f, 1.0f };
    Vec3<float> currentTranslation { 0.0f, 0.0f, 0.0f };
    float currentRotation = 0.0f;
    QMatrix4x4 projection;
    bool projectionDirty = false;
    std::unique_ptr<OpenGLWidgetPainter> overlayPainter;
    QMetaObject::Connection contextGoing;
};

} // namespace Halcyra::GUI::Widgets::Bases
