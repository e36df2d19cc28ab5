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
 */
class OpenGLWidgetPainter
{
public:
    explicit OpenGLWidgetPainter(OpenGLWidget& widget);
    ~OpenGLWidgetPainter();

    OpenGLWidgetPainter(const OpenGLWidgetPainter&) = delete;
    OpenGLWidgetPainter& operator=(const OpenGLWidgetPainter&) = delete;

    /// Called by the widget once its GL context exists.
    void initialise();

    /// Registers a font with the colour of its text; returns its number for setFont().
    int addFont(const QFont& font, const QColor& colour);
    /// Selects a registered font for the following drawText() calls.
    void setFont(int font);

    /**
     * Draws text anchored at (x, y), turned by angle degrees counter-clockwise.
     * anchor low nibble: 0x0 start at the point, 0x2 end at it, 0x4 centred;
     * high nibble: 0x10 vertically centred on the point, 0x20 top at the point.
     */
    void drawText(float x, float y, int angle, const std::string& text, unsigned char anchor,
                  bool screenCoordinates);
    void drawLine(float x1, float y1, float x2, float y2, int width, const QColor& colour,
                  bool screenCoordinates);
    /// vertices: x, y pairs. connected false: separate segments; true: one polyline.
    void drawLines(const std::vector<float>& vertices, int width, const QColor& colour,
                   bool screenCoordinates, bool connected, bool closed);
    /// centre in clip coordinates, radius in vertical clip units; circular in pixels.
    void drawCircle(const QPointF& centre, float radius, int width, const QColor& colour);
    /// One image pixel per device pixel, top-left corner at (x, y).
    void drawImage(float x, float y, const QImage& image, bool screenCoordinates);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace Halcyra::GUI::Widgets::Bases
