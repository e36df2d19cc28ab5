#pragma once

#include <QColor>
#include <QFont>
#include <QImage>
#include <QPointF>

#include <memory>
#include <string>
#include <vector>

namespace Halcyra::GUI::Widgets::Bases {

class OpenGLWidget;

/**
 * Draws 2-D overlays over the GL picture of its widget, in call order, during
 * the widget's paintGL(). Positions are clip coordinates when screenCoordinates
 * is true, otherwise model coordinates mapped through the widget's current
 * projection. Widths are device-independent pixels.
 *
 * The overlays are rasterised on the CPU with antialiasing into a transparent
 * layer, which is put over the GL picture as a few textured quads covering
 * only the tiles that hold anything: lines and text are smooth whether or not
 * the surface has samples, and a frame whose overlays are the same as the last
 * one's only draws the kept layer again. Within a pass (Pass, below) every call
 * joins one layer, drawn when the pass ends; a call outside a pass is a layer
 * of its own, drawn at once.
 */
class OpenGLWidgetPainter
{
public:
    /// Gathers every call made while it lives into one layer, drawn when it goes.
    class Pass
    {
    public:
        explicit Pass(OpenGLWidgetPainter& painter);
        ~Pass();
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

    private:
        OpenGLWidgetPainter& painter;
    };

    explicit OpenGLWidgetPainter(OpenGLWidget& widget);
    ~OpenGLWidgetPainter();

    OpenGLWidgetPainter(const OpenGLWidgetPainter&) = delete;
    OpenGLWidgetPainter& operator=(const OpenGLWidgetPainter&) = delete;

    /// Called by the widget once its GL context exists.
    void initialise();
    /// Deletes the GL objects; the widget's context must be current.
    void releaseGlObjects();

    /// Registers a font with the colour of its text; returns its number for setFont().
    int addFont(const QFont& font, const QColor& colour);
    /// Selects a registered font for the following drawText() calls.
    void setFont(int font);

    /**
     * Draws text anchored at (x, y), turned by angle degrees counter-clockwise.
     * anchor low nibble: 0x0 start at the point, 0x2 end at it, 0x4 centred;
     * high nibble: 0x10 vertically centred on the point, 0x20 top at the point.
     */
    void drawText(
        float x, float y, int angle, const std::string& text, unsigned char anchor, bool screenCoordinates);
    void drawLine(
        float x1, float y1, float x2, float y2, int width, const QColor& colour, bool screenCoordinates);
    /// vertices: x, y pairs. connected false: separate segments; true: one polyline.
    void drawLines(const std::vector<float>& vertices, int width, const QColor& colour,
        bool screenCoordinates, bool connected, bool closed);
    /// centre in clip coordinates, radius in vertical clip units; circular in pixels.
    void drawCircle(const QPointF& centre, float radius, int width, const QColor& colour);
    /// One image pixel per device pixel, top-left corner at (x, y).
    void drawImage(float x, float y, const QImage& image, bool screenCoordinates);

private:
    void beginPass();
    void endPass();

    class Private;
    std::unique_ptr<Private> d;
};

} // namespace Halcyra::GUI::Widgets::Bases
