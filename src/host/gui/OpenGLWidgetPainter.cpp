#include "gui/OpenGLWidgetPainter.h"

#include "gui/OpenGLWidget.h"

#include <QFontMetricsF>
#include <QLineF>
#include <QOpenGLBuffer>
#include <QOpenGLContext>
#include <QOpenGLShaderProgram>
#include <QPainter>
#include <QPointer>
#include <QPolygonF>
#include <QVector3D>
#include <QVector>

#include <cmath>
#include <cstring>

#ifndef GL_BGRA
#define GL_BGRA 0x80E1
#endif

namespace Halcyra::GUI::Widgets::Bases {

namespace {

constexpr double degreesPerRadian = 57.29577951308232;

// Side of the square tiles, in device pixels, by which the layer is put on the
// GL picture: only tiles that hold something are drawn.
constexpr int tileSize = 32;

struct FontEntry
{
    QFont font;
    QColor colour;
};

/// One recorded drawing call, in the widget's logical pixels.
struct Operation
{
    enum Kind
    {
        Text,
        Segments,
        Polyline,
        Polygon,
        Circle,
        Image
    };

    Kind kind = Text;
    QPolygonF points; ///< the shape's points; text: its anchor; circle: its centre; image: top-left
    QColor colour;
    int width = 0;
    QFont font;
    QString text;
    double angle = 0.0; ///< text: on-screen degrees, counter-clockwise
    unsigned char anchor = 0;
    double radius = 0.0;
    QImage image;
    QRectF target;

    bool operator==(const Operation& other) const
    {
        // QImage compares its shared data first, so unchanged logos cost nothing.
        return kind == other.kind && points == other.points && colour == other.colour && width == other.width
            && font == other.font && text == other.text && angle == other.angle && anchor == other.anchor
            && radius == other.radius && target == other.target && image == other.image;
    }
    bool operator!=(const Operation& other) const { return !(*this == other); }
};

QPen makePen(int width, const QColor& colour)
{
    return QPen(colour, width, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin);
}

void drawOperation(QPainter& painter, const Operation& operation)
{
    switch (operation.kind) {
    case Operation::Text: {
        painter.save();
        painter.setFont(operation.font);
        painter.setPen(operation.colour);
        const QFontMetricsF metrics(painter.font(), painter.device());

        // Baseline origin of the text relative to the anchor point, in the
        // text's own frame (x along the text, y down).
        double originX = 0.0;
        switch (operation.anchor & 0x0f) {
        case 0x02:
            originX = -metrics.horizontalAdvance(operation.text);
            break;
        case 0x04:
            originX = -metrics.horizontalAdvance(operation.text) / 2.0;
            break;
        default:
            break;
        }
        double originY = 0.0;
        switch (operation.anchor & 0xf0) {
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

        painter.translate(operation.points.first());
        // The painter's y axis points down: counter-clockwise on screen is negative.
        painter.rotate(-operation.angle);
        painter.drawText(QPointF(originX, originY), operation.text);
        painter.restore();
        break;
    }
    case Operation::Segments: {
        painter.setPen(makePen(operation.width, operation.colour));
        QVector<QLineF> segments;
        segments.reserve(operation.points.size() / 2);
        for (int i = 0; i + 1 < operation.points.size(); i += 2)
            segments.append(QLineF(operation.points[i], operation.points[i + 1]));
        painter.drawLines(segments);
        break;
    }
    case Operation::Polyline:
        painter.setPen(makePen(operation.width, operation.colour));
        painter.drawPolyline(operation.points);
        break;
    case Operation::Polygon:
        painter.setPen(makePen(operation.width, operation.colour));
        painter.setBrush(Qt::NoBrush);
        painter.drawPolygon(operation.points);
        break;
    case Operation::Circle:
        painter.setPen(makePen(operation.width, operation.colour));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(operation.points.first(), operation.radius, operation.radius);
        break;
    case Operation::Image:
        painter.drawImage(operation.target, operation.image, QRectF(operation.image.rect()));
        break;
    }
}

constexpr char layerVertexShader[] = R"(#version 120
attribute vec2 position;
attribute vec2 layerCoords;
varying vec2 coords;
void main()
{
    coords = layerCoords;
    gl_Position = vec4(position, 0.0, 1.0);
}
)";

constexpr char layerFragmentShader[] = R"(#version 120
uniform sampler2D layer;
varying vec2 coords;
void main()
{
    gl_FragColor = texture2D(layer, coords);
}
)";

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

    /// Whether the widget is painting, so that a layer can be put on its picture.
    bool canDraw() const
    {
        // Only inside paintGL() is the widget's context current with its
        // framebuffer bound; elsewhere the call is dropped.
        return ready && widget.context() && QOpenGLContext::currentContext() == widget.context();
    }

    void record(Operation operation)
    {
        if (!canDraw())
            return;
        operations.push_back(std::move(operation));
        if (passDepth == 0)
            flush();
    }

    /// Puts the recorded calls on the picture, from the kept layer when they are the last ones.
    void flush()
    {
        if (operations.empty() || !canDraw())
            return;
        const qreal ratio = widget.devicePixelRatioF();
        const QSize size(qRound(widget.width() * ratio), qRound(widget.height() * ratio));
        if (size.isEmpty()) {
            operations.clear();
            return;
        }
        const bool sameLayer = operations == layerOperations && size == layerSize && ratio == layerRatio
            && layerTexture != 0 && layerGroup == QOpenGLContext::currentContext()->shareGroup();
        if (!sameLayer) {
            renderLayer(size, ratio);
            uploadLayer();
            layerOperations.swap(operations);
        }
        operations.clear();
        drawLayer();
    }

    /// Rasterises the recorded calls and finds the tiles they touch.
    void renderLayer(QSize size, qreal ratio)
    {
        if (layer.size() != size) {
            layer = QImage(size, QImage::Format_ARGB32_Premultiplied);
            // Fonts in points take the widget's resolution, as on the widget itself.
            layer.setDotsPerMeterX(qRound(widget.logicalDpiX() / 0.0254));
            layer.setDotsPerMeterY(qRound(widget.logicalDpiY() / 0.0254));
        }
        layer.setDevicePixelRatio(ratio);
        layer.fill(Qt::transparent);
        {
            QPainter painter(&layer);
            painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
            for (const Operation& operation : operations)
                drawOperation(painter, operation);
        }
        layerSize = size;
        layerRatio = ratio;

        // Runs of touched tiles along each tile row, as quads in clip and layer coordinates.
        quads.clear();
        firstRow = size.height();
        lastRow = 0;
        const int columns = (size.width() + tileSize - 1) / tileSize;
        std::vector<char> touched(static_cast<std::size_t>(columns));
        for (int top = 0; top < size.height(); top += tileSize) {
            const int bottom = std::min(top + tileSize, size.height());
            std::fill(touched.begin(), touched.end(), 0);
            for (int y = top; y < bottom; ++y) {
                const auto* line = reinterpret_cast<const quint32*>(layer.constScanLine(y));
                for (int column = 0; column < columns; ++column) {
                    if (touched[std::size_t(column)])
                        continue;
                    const int end = std::min((column + 1) * tileSize, size.width());
                    for (int x = column * tileSize; x < end; ++x) {
                        if (line[x] != 0) {
                            touched[std::size_t(column)] = 1;
                            break;
                        }
                    }
                }
            }
            for (int column = 0; column < columns;) {
                if (!touched[std::size_t(column)]) {
                    ++column;
                    continue;
                }
                const int start = column;
                while (column < columns && touched[std::size_t(column)])
                    ++column;
                addQuad(QRect(QPoint(start * tileSize, top),
                    QPoint(std::min(column * tileSize, size.width()) - 1, bottom - 1)));
                firstRow = std::min(firstRow, top);
                lastRow = std::max(lastRow, bottom);
            }
        }
    }

    void addQuad(const QRect& pixels)
    {
        const float width = float(layerSize.width());
        const float height = float(layerSize.height());
        const float left = float(pixels.left()) / width;
        const float right = float(pixels.right() + 1) / width;
        const float top = float(pixels.top()) / height;
        const float bottom = float(pixels.bottom() + 1) / height;
        // x, y in clip coordinates, then s, t in the layer (t = 0 is its top row).
        const float corners[4][4] = { { 2 * left - 1, 1 - 2 * top, left, top },
            { 2 * right - 1, 1 - 2 * top, right, top }, { 2 * left - 1, 1 - 2 * bottom, left, bottom },
            { 2 * right - 1, 1 - 2 * bottom, right, bottom } };
        for (const int corner : { 0, 1, 2, 2, 1, 3 })
            quads.insert(quads.end(), corners[corner], corners[corner] + 4);
    }

    bool ensureGlObjects()
    {
        QOpenGLContext* context = QOpenGLContext::currentContext();
        // A widget moved to another window gets a new context; objects of a
        // context that shared nothing with it went with the old one.
        if (layerTexture != 0 && layerGroup != context->shareGroup()) {
            layerTexture = 0;
            quadBuffer.reset();
            program.reset();
        }
        layerGroup = context->shareGroup();
        if (!program) {
            program = std::make_unique<QOpenGLShaderProgram>();
            if (!program->addShaderFromSourceCode(QOpenGLShader::Vertex, layerVertexShader)
                || !program->addShaderFromSourceCode(QOpenGLShader::Fragment, layerFragmentShader)) {
                return false;
            }
            program->bindAttributeLocation("position", 0);
            program->bindAttributeLocation("layerCoords", 1);
            if (!program->link())
                return false;
        }
        if (!quadBuffer) {
            quadBuffer = std::make_unique<QOpenGLBuffer>(QOpenGLBuffer::VertexBuffer);
            quadBuffer->create();
            quadBuffer->setUsagePattern(QOpenGLBuffer::DynamicDraw);
        }
        if (layerTexture == 0) {
            widget.glGenTextures(1, &layerTexture);
            textureSize = QSize();
        }
        return program->isLinked() && layerTexture != 0;
    }

    void uploadLayer()
    {
        if (!ensureGlObjects())
            return;
        QOpenGLFunctions& gl = widget;
        GLint previousTexture = 0;
        gl.glGetIntegerv(GL_TEXTURE_BINDING_2D, &previousTexture);
        GLint previousAlignment = 4;
        gl.glGetIntegerv(GL_UNPACK_ALIGNMENT, &previousAlignment);
        gl.glBindTexture(GL_TEXTURE_2D, layerTexture);
        gl.glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        if (textureSize != layerSize) {
            gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
            gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
            gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
            gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
            gl.glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, layerSize.width(), layerSize.height(), 0, GL_BGRA,
                GL_UNSIGNED_BYTE, nullptr);
            textureSize = layerSize;
        }
        // Only the rows that hold drawn tiles; the others are never sampled.
        if (lastRow > firstRow) {
            gl.glTexSubImage2D(GL_TEXTURE_2D, 0, 0, firstRow, layerSize.width(), lastRow - firstRow, GL_BGRA,
                GL_UNSIGNED_BYTE, layer.constScanLine(firstRow));
        }
        gl.glPixelStorei(GL_UNPACK_ALIGNMENT, previousAlignment);
        gl.glBindTexture(GL_TEXTURE_2D, GLuint(previousTexture));

        quadBuffer->bind();
        quadBuffer->allocate(quads.data(), int(quads.size() * sizeof(float)));
        quadBuffer->release();
    }

    /// Blends the layer's tiles over the picture, leaving the GL state as it was.
    void drawLayer()
    {
        if (quads.empty() || layerTexture == 0 || !program || !program->isLinked())
            return;
        QOpenGLFunctions& gl = widget;
        const GLboolean blend = gl.glIsEnabled(GL_BLEND);
        GLint blendFunctions[4] = { GL_ONE, GL_ZERO, GL_ONE, GL_ZERO };
        gl.glGetIntegerv(GL_BLEND_SRC_RGB, &blendFunctions[0]);
        gl.glGetIntegerv(GL_BLEND_DST_RGB, &blendFunctions[1]);
        gl.glGetIntegerv(GL_BLEND_SRC_ALPHA, &blendFunctions[2]);
        gl.glGetIntegerv(GL_BLEND_DST_ALPHA, &blendFunctions[3]);
        GLint activeTexture = GL_TEXTURE0;
        gl.glGetIntegerv(GL_ACTIVE_TEXTURE, &activeTexture);
        gl.glActiveTexture(GL_TEXTURE0);
        GLint previousTexture = 0;
        gl.glGetIntegerv(GL_TEXTURE_BINDING_2D, &previousTexture);

        // The layer is premultiplied: over, for colour and alpha alike.
        gl.glEnable(GL_BLEND);
        gl.glBlendFuncSeparate(GL_ONE, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
        program->bind();
        gl.glBindTexture(GL_TEXTURE_2D, layerTexture);
        program->setUniformValue("layer", 0);
        quadBuffer->bind();
        program->enableAttributeArray(0);
        program->setAttributeBuffer(0, GL_FLOAT, 0, 2, 4 * sizeof(float));
        program->enableAttributeArray(1);
        program->setAttributeBuffer(1, GL_FLOAT, 2 * sizeof(float), 2, 4 * sizeof(float));
        gl.glDrawArrays(GL_TRIANGLES, 0, GLsizei(quads.size() / 4));
        program->disableAttributeArray(0);
        program->disableAttributeArray(1);
        quadBuffer->release();
        program->release();

        gl.glBindTexture(GL_TEXTURE_2D, GLuint(previousTexture));
        gl.glActiveTexture(GLenum(activeTexture));
        gl.glBlendFuncSeparate(GLenum(blendFunctions[0]), GLenum(blendFunctions[1]),
            GLenum(blendFunctions[2]), GLenum(blendFunctions[3]));
        if (!blend)
            gl.glDisable(GL_BLEND);
    }

    void releaseGlObjects()
    {
        if (layerTexture != 0 && QOpenGLContext::currentContext()
            && QOpenGLContext::currentContext()->shareGroup() == layerGroup)
            widget.glDeleteTextures(1, &layerTexture);
        layerTexture = 0;
        quadBuffer.reset();
        program.reset();
        layerOperations.clear();
    }

    OpenGLWidget& widget;
    std::vector<FontEntry> fonts;
    int selectedFont = -1;
    bool ready = false;
    int passDepth = 0;

    std::vector<Operation> operations; ///< calls of the pass under way
    std::vector<Operation> layerOperations; ///< calls the kept layer shows
    QImage layer;
    QSize layerSize;
    qreal layerRatio = 0.0;
    int firstRow = 0;
    int lastRow = 0;
    std::vector<float> quads;

    QPointer<QOpenGLContextGroup> layerGroup;
    GLuint layerTexture = 0;
    QSize textureSize;
    std::unique_ptr<QOpenGLBuffer> quadBuffer;
    std::unique_ptr<QOpenGLShaderProgram> program;
};

OpenGLWidgetPainter::Pass::Pass(OpenGLWidgetPainter& painter)
    : painter(painter)
{
    painter.beginPass();
}

OpenGLWidgetPainter::Pass::~Pass()
{
    painter.endPass();
}

OpenGLWidgetPainter::OpenGLWidgetPainter(OpenGLWidget& widget)
    : d(std::make_unique<Private>(widget))
{
}

OpenGLWidgetPainter::~OpenGLWidgetPainter() = default;

void OpenGLWidgetPainter::initialise()
{
    d->ready = true;
}

void OpenGLWidgetPainter::releaseGlObjects()
{
    d->releaseGlObjects();
}

void OpenGLWidgetPainter::beginPass()
{
    if (d->passDepth++ == 0)
        d->operations.clear();
}

void OpenGLWidgetPainter::endPass()
{
    if (d->passDepth > 0 && --d->passDepth == 0)
        d->flush();
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
    Operation operation;
    operation.kind = Operation::Text;
    operation.text = QString::fromStdString(text);
    operation.points << d->toPixels(x, y, screenCoordinates);
    operation.angle = d->screenAngle(angle, screenCoordinates);
    operation.anchor = anchor;
    operation.font = d->widget.font();
    operation.colour = Qt::white;
    if (d->selectedFont >= 0) {
        operation.font = d->fonts[std::size_t(d->selectedFont)].font;
        operation.colour = d->fonts[std::size_t(d->selectedFont)].colour;
    }
    d->record(std::move(operation));
}

void OpenGLWidgetPainter::drawLine(
    float x1, float y1, float x2, float y2, int width, const QColor& colour, bool screenCoordinates)
{
    Operation operation;
    operation.kind = Operation::Segments;
    operation.points << d->toPixels(x1, y1, screenCoordinates) << d->toPixels(x2, y2, screenCoordinates);
    operation.width = width;
    operation.colour = colour;
    d->record(std::move(operation));
}

void OpenGLWidgetPainter::drawLines(const std::vector<float>& vertices, int width, const QColor& colour,
    bool screenCoordinates, bool connected, bool closed)
{
    const std::size_t pointCount = vertices.size() / 2;
    if (pointCount < 2)
        return;
    Operation operation;
    operation.kind = !connected ? Operation::Segments : closed ? Operation::Polygon : Operation::Polyline;
    operation.points.reserve(int(pointCount));
    for (std::size_t i = 0; i < pointCount; ++i)
        operation.points.append(d->toPixels(vertices[2 * i], vertices[2 * i + 1], screenCoordinates));
    operation.width = width;
    operation.colour = colour;
    d->record(std::move(operation));
}

void OpenGLWidgetPainter::drawCircle(const QPointF& centre, float radius, int width, const QColor& colour)
{
    Operation operation;
    operation.kind = Operation::Circle;
    operation.points << d->toPixels(float(centre.x()), float(centre.y()), true);
    operation.radius = double(radius) * d->widget.height() / 2.0;
    operation.width = width;
    operation.colour = colour;
    d->record(std::move(operation));
}

void OpenGLWidgetPainter::drawImage(float x, float y, const QImage& image, bool screenCoordinates)
{
    if (image.isNull())
        return;
    const qreal ratio = d->widget.devicePixelRatioF();
    // Snapped to whole device pixels so that the picture is copied, not resampled.
    const QPointF point = d->toPixels(x, y, screenCoordinates);
    const QPointF topLeft(std::round(point.x() * ratio) / ratio, std::round(point.y() * ratio) / ratio);
    Operation operation;
    operation.kind = Operation::Image;
    operation.image = image;
    operation.target = QRectF(topLeft, QSizeF(image.width() / ratio, image.height() / ratio));
    d->record(std::move(operation));
}

} // namespace Halcyra::GUI::Widgets::Bases
