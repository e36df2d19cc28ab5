#pragma once

#include <QMatrix4x4>
#include <QSize>

#include <vector>

namespace Halcyra::Nereon::Visualisation {

/**
 * Splits a list of triangles into runs that a renderer would sample alike
 * with a texture whose minification and magnification filters differ.
 *
 * With different filters, the renderer decides per 2 x 2 pixel block whether
 * the texture is minified, from the texture coordinates' screen-space
 * derivatives. Mesa's llvmpipe takes the longer of the two texel steps that a
 * pixel step along x and along y makes (minified when it is longer than one
 * texel), and then pays for the
 * decision and for a linear sample in every block whatever the outcome. Inside
 * one triangle the texture coordinates are an affine function of the pixel
 * position, so the derivatives, and with them the decision, are the same
 * everywhere in it. A triangle that is clearly minified can therefore be drawn
 * with nearest filtering throughout and one clearly magnified with linear
 * filtering throughout, which gives the same picture for less work. Triangles
 * within a percent of the boundary, where the renderer's rounding could tip
 * the decision, keep the mixed filters.
 */
class TextureFilterRuns
{
public:
    /// How the texture samples throughout a triangle.
    enum class Filter
    {
        Nearest, ///< minified everywhere: nearest filtering
        Linear, ///< magnified everywhere: linear filtering
        Mixed, ///< too close to call, or degenerate: the texture's own filters
    };

    /// Consecutive triangles that sample alike.
    struct Run
    {
        int first = 0; ///< index of the first triangle
        int count = 0;
        Filter filter = Filter::Mixed;
    };

    /**
     * Classifies the first `triangles` triangles of `vertices`, four floats a
     * vertex (x, y in model coordinates, then s, t in 0..1), three vertices a
     * triangle, drawn
     * with `projection` into a viewport of `viewport` pixels from a texture of
     * `texture` texels, and joins neighbours of one kind into runs.
     */
    void update(const std::vector<float>& vertices, int triangles, const QMatrix4x4& projection,
        QSize viewport, QSize texture);

    const std::vector<Run>& runs() const { return result; }

    /// The filter for one triangle's three vertices, each (x, y, s, t) as above.
    static Filter classify(
        const float* triangle, const QMatrix4x4& projection, QSize viewport, QSize texture);

private:
    std::vector<Run> result;
};

} // namespace Halcyra::Nereon::Visualisation
