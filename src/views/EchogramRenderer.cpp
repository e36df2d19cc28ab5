#include "EchogramRenderer.h"

#include <QVector2D>
#include <QVector4D>

#include <algorithm>
#include <cmath>
#include <vector>

#ifndef GL_R8
#define GL_R8 0x8229
#endif
#ifndef GL_RED
#define GL_RED 0x1903
#endif

namespace Halcyra::Nereon::Views {

namespace {

const char* const vertexShader = R"(
#version 120
attribute vec2 position;
attribute vec2 texturePosition;
varying vec2 plotPosition;
void main()
{
    plotPosition = texturePosition;
    gl_Position = vec4(position, 0.0, 1.0);
}
)";

// Ranges come as millimetres in three bytes (up to 16 km), exact in single
// precision, so a bin boundary falls where the CPU puts it.
const char* const fragmentShader = R"(
#version 120
uniform sampler2D columns;
uniform sampler2D ranges;
uniform sampler2D colours;
uniform float viewOffset;
uniform float viewCount;
uniform float group;
uniform float valid;
uniform float ringOffset;
uniform float slotTotal;
uniform float bins;
uniform float axisRange;
uniform vec4 clearColour;
uniform vec4 breakColour;
varying vec2 plotPosition;
void main()
{
    float s = floor((viewOffset + plotPosition.x * viewCount) / group);
    if (s < 0.0 || s >= valid) {
        gl_FragColor = clearColour;
        return;
    }
    float t = (mod(s + ringOffset, slotTotal) + 0.5) / slotTotal;
    vec4 range = floor(texture2D(ranges, vec2(0.5, t)) * 255.0 + 0.5);
    if (range.a < 128.0) {
        gl_FragColor = breakColour;
        return;
    }
    float columnRange = (range.r + 256.0 * range.g + 65536.0 * range.b) / 1000.0;
    float metres = plotPosition.y * axisRange;
    if (metres >= columnRange) {
        gl_FragColor = clearColour;
        return;
    }
    float bin = min(floor(metres / columnRange * bins), bins - 1.0);
    float value = floor(texture2D(columns, vec2((bin + 0.5) / bins, t)).r * 255.0 + 0.5);
    gl_FragColor = texture2D(colours, vec2((value + 0.5) / 256.0, 0.5));
}
)";

// Segments in widget pixels, one draw for every mark: a thousand marks cost one upload.
const char* const lineVertexShader = R"(
#version 120
attribute vec2 position;
attribute vec4 colour;
uniform vec2 widgetSize;
uniform vec2 shift;
varying vec4 lineColour;
void main()
{
    vec2 at = (position + shift) / widgetSize;
    gl_Position = vec4(at.x * 2.0 - 1.0, 1.0 - at.y * 2.0, 0.0, 1.0);
    lineColour = colour;
}
)";

const char* const lineFragmentShader = R"(
#version 120
varying vec4 lineColour;
void main()
{
    gl_FragColor = lineColour;
}
)";

GLuint makeTexture(QOpenGLFunctions& gl)
{
    GLuint name = 0;
    gl.glGenTextures(1, &name);
    gl.glBindTexture(GL_TEXTURE_2D, name);
    // Nearest everywhere: a column is one frame and a bin one range step, never blended.
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    return name;
}

QVector4D toVector(const QColor& colour)
{
    return QVector4D(colour.redF(), colour.greenF(), colour.blueF(), 1.0f);
}

} // namespace

bool EchogramRenderer::initialise(int slotCount, int binCount, QString* error)
{
    initializeOpenGLFunctions();
    destroy();
    if (!program.addShaderFromSourceCode(QOpenGLShader::Vertex, vertexShader)
        || !program.addShaderFromSourceCode(QOpenGLShader::Fragment, fragmentShader) || !program.link()) {
        if (error)
            *error = program.log();
        program.removeAllShaders();
        return false;
    }
    if (!lineProgram.addShaderFromSourceCode(QOpenGLShader::Vertex, lineVertexShader)
        || !lineProgram.addShaderFromSourceCode(QOpenGLShader::Fragment, lineFragmentShader)
        || !lineProgram.link()) {
        if (error)
            *error = lineProgram.log();
        program.removeAllShaders();
        lineProgram.removeAllShaders();
        return false;
    }
    slotTotal = slotCount;
    bins = binCount;

    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    const std::vector<std::uint8_t> zeros(static_cast<std::size_t>(slotTotal) * static_cast<std::size_t>(bins) * 4, 0);
    columnTexture = makeTexture(*this);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_R8, bins, slotTotal, 0, GL_RED, GL_UNSIGNED_BYTE, zeros.data());
    rangeTexture = makeTexture(*this);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, slotTotal, 0, GL_RGBA, GL_UNSIGNED_BYTE, zeros.data());
    colourTexture = makeTexture(*this);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 256, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, zeros.data());
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glBindTexture(GL_TEXTURE_2D, 0);
    return true;
}

void EchogramRenderer::destroy()
{
    for (GLuint* texture : { &columnTexture, &rangeTexture, &colourTexture }) {
        if (*texture != 0)
            glDeleteTextures(1, texture);
        *texture = 0;
    }
    program.removeAllShaders();
    lineProgram.removeAllShaders();
    slotTotal = 0;
    bins = 0;
}

void EchogramRenderer::setColours(const std::array<QRgb, 256>& colours)
{
    std::array<std::uint8_t, 256 * 4> bytes {};
    for (std::size_t i = 0; i < colours.size(); ++i) {
        bytes[4 * i] = static_cast<std::uint8_t>(qRed(colours[i]));
        bytes[4 * i + 1] = static_cast<std::uint8_t>(qGreen(colours[i]));
        bytes[4 * i + 2] = static_cast<std::uint8_t>(qBlue(colours[i]));
        bytes[4 * i + 3] = 255;
    }
    glBindTexture(GL_TEXTURE_2D, colourTexture);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 256, 1, GL_RGBA, GL_UNSIGNED_BYTE, bytes.data());
    glBindTexture(GL_TEXTURE_2D, 0);
}

void EchogramRenderer::writeSlots(int firstSlot, int count, const std::uint8_t* columns, const float* ranges)
{
    if (firstSlot < 0 || count <= 0 || firstSlot + count > slotTotal)
        return;
    std::vector<std::uint8_t> info(static_cast<std::size_t>(count) * 4);
    for (int i = 0; i < count; ++i) {
        const float range = ranges[i];
        const bool isBreak = !(range > 0.0f);
        const auto millimetres
            = isBreak ? 0u : static_cast<std::uint32_t>(std::min(std::lround(range * 1000.0), 0xffffffL));
        std::uint8_t* entry = info.data() + 4 * i;
        entry[0] = static_cast<std::uint8_t>(millimetres & 0xff);
        entry[1] = static_cast<std::uint8_t>((millimetres >> 8) & 0xff);
        entry[2] = static_cast<std::uint8_t>((millimetres >> 16) & 0xff);
        entry[3] = isBreak ? 0 : 255;
    }
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glBindTexture(GL_TEXTURE_2D, rangeTexture);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, firstSlot, 1, count, GL_RGBA, GL_UNSIGNED_BYTE, info.data());
    glBindTexture(GL_TEXTURE_2D, columnTexture);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, firstSlot, bins, count, GL_RED, GL_UNSIGNED_BYTE, columns);
    glBindTexture(GL_TEXTURE_2D, 0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
}

void EchogramRenderer::draw(const QRectF& plot, const Strip& strip, double viewOffset, double viewCount,
    float axisRange, const QColor& clearColour, const QColor& breakColour)
{
    if (!isInitialised() || plot.isEmpty())
        return;
    const GLfloat positions[] = { float(plot.left()), float(plot.top()), float(plot.right()), float(plot.top()),
        float(plot.left()), float(plot.bottom()), float(plot.right()), float(plot.bottom()) };
    // The plot rectangle runs upwards in clip coordinates: top() is its lower edge.
    const GLfloat plotPositions[] = { 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 1.0f, 1.0f, 1.0f };

    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    program.bind();
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, columnTexture);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, rangeTexture);
    glActiveTexture(GL_TEXTURE2);
    glBindTexture(GL_TEXTURE_2D, colourTexture);
    program.setUniformValue("columns", 0);
    program.setUniformValue("ranges", 1);
    program.setUniformValue("colours", 2);
    program.setUniformValue("viewOffset", static_cast<GLfloat>(viewOffset));
    program.setUniformValue("viewCount", static_cast<GLfloat>(viewCount));
    program.setUniformValue("group", static_cast<GLfloat>(strip.group));
    program.setUniformValue("valid", static_cast<GLfloat>(strip.valid));
    program.setUniformValue("ringOffset", static_cast<GLfloat>(strip.ringOffset));
    program.setUniformValue("slotTotal", static_cast<GLfloat>(slotTotal));
    program.setUniformValue("bins", static_cast<GLfloat>(bins));
    program.setUniformValue("axisRange", axisRange);
    program.setUniformValue("clearColour", toVector(clearColour));
    program.setUniformValue("breakColour", toVector(breakColour));
    program.enableAttributeArray("position");
    program.enableAttributeArray("texturePosition");
    program.setAttributeArray("position", GL_FLOAT, positions, 2);
    program.setAttributeArray("texturePosition", GL_FLOAT, plotPositions, 2);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    program.disableAttributeArray("position");
    program.disableAttributeArray("texturePosition");
    program.release();
    for (GLenum unit : { GL_TEXTURE2, GL_TEXTURE1, GL_TEXTURE0 }) {
        glActiveTexture(unit);
        glBindTexture(GL_TEXTURE_2D, 0);
    }
}

void EchogramRenderer::drawLines(
    const std::vector<LineVertex>& vertices, int width, int height, const QRect& clip, qreal pixelRatio)
{
    if (!isInitialised() || vertices.size() < 2 || width <= 0 || height <= 0 || clip.isEmpty())
        return;
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glEnable(GL_SCISSOR_TEST);
    // GL counts rows from the bottom, in framebuffer pixels.
    glScissor(static_cast<GLint>(std::lround(clip.left() * pixelRatio)),
        static_cast<GLint>(std::lround((height - clip.top() - clip.height()) * pixelRatio)),
        static_cast<GLsizei>(std::lround(clip.width() * pixelRatio)),
        static_cast<GLsizei>(std::lround(clip.height() * pixelRatio)));
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    lineProgram.bind();
    lineProgram.setUniformValue("widgetSize", QVector2D(float(width), float(height)));
    const int positionAt = lineProgram.attributeLocation("position");
    const int colourAt = lineProgram.attributeLocation("colour");
    glEnableVertexAttribArray(GLuint(positionAt));
    glEnableVertexAttribArray(GLuint(colourAt));
    glVertexAttribPointer(GLuint(positionAt), 2, GL_FLOAT, GL_FALSE, sizeof(LineVertex), &vertices.front().x);
    glVertexAttribPointer(
        GLuint(colourAt), 4, GL_UNSIGNED_BYTE, GL_TRUE, sizeof(LineVertex), vertices.front().colour);
    const auto count = static_cast<GLsizei>(vertices.size() / 2 * 2);
    GLfloat widths[2] = { 1.0f, 1.0f };
    glGetFloatv(GL_ALIASED_LINE_WIDTH_RANGE, widths);
    if (widths[1] >= 2.0f) {
        lineProgram.setUniformValue("shift", QVector2D(0.0f, 0.0f));
        glLineWidth(2.0f);
        glDrawArrays(GL_LINES, 0, count);
        glLineWidth(1.0f);
    } else {
        // One-pixel lines drawn again a pixel across and a pixel down: two pixels wide whichever way they
        // run.
        for (const QVector2D shift :
            { QVector2D(0.0f, 0.0f), QVector2D(1.0f, 0.0f), QVector2D(0.0f, 1.0f) }) {
            lineProgram.setUniformValue("shift", shift);
            glDrawArrays(GL_LINES, 0, count);
        }
    }
    glDisableVertexAttribArray(GLuint(positionAt));
    glDisableVertexAttribArray(GLuint(colourAt));
    lineProgram.release();
    glDisable(GL_SCISSOR_TEST);
}

} // namespace Halcyra::Nereon::Views
