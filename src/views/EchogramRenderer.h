#pragma once

#include <QColor>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <QRect>
#include <QRectF>
#include <QRgb>
#include <QString>

#include <array>
#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Views {

/**
 * Draws an echogram from a strip of columns held in GL: a texture with one row
 * of range bins per slot, a texture of each slot's range, and the colour table.
 * Slots are written one at a time, so a live frame costs the upload of its
 * column only; the strip wraps around for a scrolling window. Marks over the
 * picture are line segments, all drawn at once.
 *
 * A plain engine driven by EchogramDisplay: initialise(), write, draw and
 * destroy() all need the widget's context current.
 */
class EchogramRenderer : protected QOpenGLFunctions
{
public:
    /// Which columns the slots hold: slot (s + ringOffset) mod slots holds the pooled columns
    /// first + s × group up to first + (s + 1) × group, for s below valid.
    struct Strip
    {
        std::int64_t first = 0;
        std::int64_t group = 1;
        int valid = 0;
        int ringOffset = 0;
    };

    /// An end of a line segment: the centre of a widget pixel, and an opaque colour.
    struct LineVertex
    {
        GLfloat x = 0.0f;
        GLfloat y = 0.0f;
        GLubyte colour[4] = { 0, 0, 0, 255 };
    };

    EchogramRenderer() = default;
    EchogramRenderer(const EchogramRenderer&) = delete;
    EchogramRenderer& operator=(const EchogramRenderer&) = delete;

    /// Builds the program and the textures for `slots` columns of `bins` range bins. False,
    /// with `error` set, when the shaders do not build.
    bool initialise(int slotTotal, int bins, QString* error);
    /// Releases every GL object; initialise() may follow.
    void destroy();
    bool isInitialised() const { return columnTexture != 0; }
    int getSlots() const { return slotTotal; }
    int getBins() const { return bins; }

    /// Uploads the 256 colours of the intensity bytes.
    void setColours(const std::array<QRgb, 256>& colours);
    /**
     * Writes `count` slots from `firstSlot` on (not wrapping): `bins` intensities a slot from
     * `columns`, and each slot's range in metres from `ranges` (0 or less: a break).
     */
    void writeSlots(int firstSlot, int count, const std::uint8_t* columns, const float* ranges);
    /**
     * Draws the columns first + viewOffset to first + viewOffset + viewCount of the strip across
     * `plot` (clip coordinates), range 0 to `axisRange` metres from its bottom to its top.
     */
    void draw(const QRectF& plot, const Strip& strip, double viewOffset, double viewCount, float axisRange,
        const QColor& clearColour, const QColor& breakColour);

    /**
     * Draws line segments (pairs of vertices, in pixels of a widget `width` x `height` with y
     * down), two pixels wide, inside `clip` (widget pixels) only. `pixelRatio`: framebuffer
     * pixels per widget pixel.
     */
    void drawLines(
        const std::vector<LineVertex>& vertices, int width, int height, const QRect& clip, qreal pixelRatio);

private:
    QOpenGLShaderProgram program;
    QOpenGLShaderProgram lineProgram;
    GLuint columnTexture = 0;
    GLuint rangeTexture = 0;
    GLuint colourTexture = 0;
    int slotTotal = 0;
    int bins = 0;
};

} // namespace Halcyra::Nereon::Views
