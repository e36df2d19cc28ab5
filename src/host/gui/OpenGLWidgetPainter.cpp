#include "gui/OpenGLWidgetPainter.h"

#include "gui/OpenGLWidget.h"

#include <QFontMetricsF>
#include <QLineF>
#include <QOpenGLContext>
#include <QPainter>
#include <QPolygonF>
#include <QVector3D>
#include <QVector>

#include <cmath>

#ifndef GL_MULTISAMPLE
#define GL_MULTISAMPLE 0x809D
#endif

namespace Halcyra::GUI::Widgets::Bases {

namespace {

constexpr double degreesPerRadian = 57.29577951308232;

struct FontEntry
{
    QFont font;
    QColor colour;
};

/// GL state that QPainter changes and raw GL drawing of the next frame may rely on.
class SavedGlState
{
public:
    explicit SavedGlState(QOpenGLFunctions& gl)
        : gl(gl)
    {
        gl.glGetFloatv(GL_COLOR_CLEAR_VALUE, clearColour);
        gl.glGetIntegerv(GL_BLEND_SRC_RGB, &blendSourceRgb);
        gl.glGetIntegerv(GL_BLEND_DST_RGB, &blendDestinationRgb);
        gl.glGetIntegerv(GL_BLEND_SRC_ALPHA, &blendSourceAlpha);
        gl.glGetIntegerv(GL_BLEND_DST_ALPHA, &blendDestinationAlpha);
        multisample = gl.glIsEnabled(GL_MULTISAMPLE);
    }

    ~SavedGlState()
    {
        gl.glDisable(GL_BLEND);
        gl.glDisable(GL_SCISSOR_TEST);
        gl.glBlendFuncSeparate(GLenum(blendSourceRgb), GLenum(blendDestinationRgb), GLenum(blendSourceAlpha),
            GLenum(blendDestinationAlpha));
        gl.glClearColor(clearColour[0], clearColour[1], clearColour[2], clearColour[3]);
        if (multisample)
            gl.glEnable(GL_MULTISAMPLE);
        else
            gl.glDisable(GL_MULTISAMPLE);
    }

    SavedGlState(const SavedGlState&) = delete;
    SavedGlState& operator=(const SavedGlState&) = delete;

private:
    QOpenGLFunctions& gl;
    GLfloat clearColour[4] = { 0.0f, 0.0f, 0.0f, 0.0f };
    GLint blendSourceRgb = GL_ONE;
    GLint blendDestinationRgb = GL_ZERO;
    GLint blendSourceAlpha = GL_ONE;
    GLint blendDestinationAlpha = GL_ZERO;
    GLboolean multisample = GL_TRUE;
};

QPen makePen(int width, const QColor& colour)
{
    return QPen(colour, width, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin);
}

} // namespace

class OpenGLWidgetPainter::Private
{
public:
    explicit Private(OpenGLWidget& widget)
        : widget(widget)
    {
    }

    /// Logical pixel position of a point given in clip or model coordinates.
    QPointF toPixels(float x, float y, bool screenCoordinates)
    {
        QPointF clip(x, y);
        if (!screenCoordinates) {
            const QVector3D mapped = widget.getCurrentProjection().map(QVector3D(x, y, 0.0f));
            clip = QPointF(mapped.x(), mapped.y());
        }
        return QPointF((clip.x() + 1.0) / 2.0 * widget.width(), (1.0 - clip.y()) / 2.0 * widget.height());
    }

    /**
     * On-screen angle (degrees, counter-clockwise) of a direction. A model
     * direction is carried through the projection and the widget's aspect, so
     * it follows rotation and any mirroring of the model.
     */
    double screenAngle(int angle, bool screenCoordinates)
    {
        if (screenCoordinates)
            return angle;
        const double radians = angle / degreesPerRadian;
        const QVector3D direction = widget.getCurrentProjection().mapVector(
            QVector3D(float(std::cos(radians)), float(std::sin(radians)), 0.0f));
        const double dx = double(direction.x()) * widget.width();
        const double dy = double(direction.y()) * widget.height();
        if (dx == 0.0 && dy == 0.0)
            return angle + double(widget.getCurrentRotation());
        return std::atan2(dy, dx) * degreesPerRadian;
    }

    /// Runs one QPainter pass over the GL picture, if the widget is painting.
    template <typename Draw> void paint(Draw&& draw)
    {
        // QPainter on a QOpenGLWidget is only meaningful with its context
        // current, i.e. inside paintGL(); elsewhere the call is dropped.
        if (!ready || !widget.context() || QOpenGLContext::currentContext() != widget.context())
            return;
        SavedGlState saved(widget);
        QPainter painter(&widget);
        if (!painter.isActive())
            return;
        painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
        draw(painter);
        painter.end();
    }

    OpenGLWidget& widget;
    std::vector<FontEntry> fonts;
    int selectedFont = -1;
    bool ready = false;
};

OpenGLWidgetPainter::OpenGLWidgetPainter(OpenGLWidget& widget)
    : d(std::make_unique<Private>(widget))
{
}

OpenGLWidgetPainter::~OpenGLWidgetPainter() = default;

void OpenGLWidgetPainter::initialise()
{
    d->ready = true;
}

int OpenGLWidgetPainter::addFont(const QFont& font, const QColor& colour)
{
    d->fonts.push_back({ font, colour });
    return int(d->fonts.size()) - 1;
}

void OpenGLWidgetPainter::setFont(int font)
{
    if (font >= 0 && font < int(d->fonts.size()))
        d->selectedFont = font;
}

void OpenGLWidgetPainter::drawText(
    float x, float y, int angle, const std::string& text, unsigned char anchor, bool screenCoordinates)
{
    if (text.empty())
        return;
    const QString string = QString::fromStdString(text);
    const QPointF point = d->toPixels(x, y, screenCoordinates);
    const double onScreen = d->screenAngle(angle, screenCoordinates);

    QFont font = d->widget.font();
    QColor colour = Qt::white;
    if (d->selectedFont >= 0) {
        font = d->fonts[std::size_t(d->selectedFont)].font;
        colour = d->fonts[std::size_t(d->selectedFont)].colour;
    }

    d->paint([&](QPainter& painter) {
        painter.setFont(font);
        painter.setPen(colour);
        const QFontMetricsF metrics(painter.font(), painter.device());

        // Baseline origin of the text relative to the anchor point, in the
        // text's own frame (x along the text, y down).
        double originX = 0.0;
        switch (anchor & 0x0f) {
        case 0x02:
            originX = -metrics.horizontalAdvance(string);
            break;
        case 0x04:
            originX = -metrics.horizontalAdvance(string) / 2.0;
            break;
        default:
            break;
        }
        double originY = 0.0;
        switch (anchor & 0xf0) {
        case 0x20:
            originY = metrics.ascent();
            break;
        case 0x40:
            originY = -metrics.descent();
            break;
        default:
            originY = (metrics.ascent() - metrics.descent()) / 2.0;
            break;
        }

        painter.translate(point);
        // The painter's y axis points down: counter-clockwise on screen is negative.
        painter.rotate(-onScreen);
        painter.drawText(QPointF(originX, originY), string);
    });
}

void OpenGLWidgetPainter::drawLine(
    float x1, float y1, float x2, float y2, int width, const QColor& colour, bool screenCoordinates)
{
    const QLineF line(d->toPixels(x1, y1, screenCoordinates), d->toPixels(x2, y2, screenCoordinates));
    d->paint([&](QPainter& painter) {
        painter.setPen(makePen(width, colour));
        painter.drawLine(line);
    });
}

void OpenGLWidgetPainter::drawLines(const std::vector<float>& vertices, int width, const QColor& colour,
    bool screenCoordinates, bool connected, bool closed)
{
    const std::size_t pointCount = vertices.size() / 2;
    if (pointCount < 2)
        return;
    QPolygonF points;
    points.reserve(int(pointCount));
    for (std::size_t i = 0; i < pointCount; ++i)
        points.append(d->toPixels(vertices[2 * i], vertices[2 * i + 1], screenCoordinates));

    d->paint([&](QPainter& painter) {
        painter.setPen(makePen(width, colour));
        painter.setBrush(Qt::NoBrush);
        if (!connected) {
            QVector<QLineF> segments;
            segments.reserve(points.size() / 2);
            for (int i = 0; i + 1 < points.size(); i += 2)
                segments.append(QLineF(points[i], points[i + 1]));
            painter.drawLines(segments);
        } else if (closed) {
            painter.drawPolygon(points);
        } else {
            painter.drawPolyline(points);
        }
    });
}

void OpenGLWidgetPainter::drawCircle(const QPointF& centre, float radius, int width, const QColor& colour)
{
    const QPointF middle = d->toPixels(float(centre.x()), float(centre.y()), true);
    const double pixels = double(radius) * d->widget.height() / 2.0;
    d->paint([&](QPainter& painter) {
        painter.setPen(makePen(width, colour));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(middle, pixels, pixels);
    });
}

void OpenGLWidgetPainter::drawImage(float x, float y, const QImage& image, bool screenCoordinates)
{
    if (image.isNull())
        return;
    const qreal ratio = d->widget.devicePixelRatioF();
    // Snapped to whole device pixels so that the picture is copied, not resampled.
    const QPointF point = d->toPixels(x, y, screenCoordinates);
    const QPointF topLeft(std::round(point.x() * ratio) / ratio, std::round(point.y() * ratio) / ratio);
    const QRectF target(topLeft, QSizeF(image.width() / ratio, image.height() / ratio));
    d->paint([&](QPainter& painter) { painter.drawImage(target, image, QRectF(image.rect())); });
}

} // namespace Halcyra::GUI::Widgets::Bases
