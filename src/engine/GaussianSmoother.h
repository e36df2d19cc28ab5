#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Visualisation {

/**
 * Gaussian despeckling of a frame's intensities, done once per frame in
 * texture space rather than per drawn pixel.
 *
 * A kernel whose taps sit at whole-texel offsets commutes with the texture's
 * nearest and linear filtering, so smoothing the W x H texels once and sampling
 * the result draws the same picture as running the kernel for every fragment,
 * at a cost that does not grow with the widget's size. Taps wrap around both
 * edges as the repeating intensity texture does. The square kernel's weights,
 * exp(-(x^2 + y^2) / (2 * 5^2)), are a product of one weight per axis, so the
 * kernel runs as one pass along the beams and one along the range.
 *
 * With sigma = 5 texels, the taps more than 20 texels from the centre weigh
 * less than 1/10000 of any larger kernel together, so leaving them out moves no
 * intensity by more than 1/10000 of full scale (0.03 of one byte step): the
 * radius is bounded there, and a kernel size in the thousands costs what size
 * 41 costs and draws the same picture.
 */
class GaussianSmoother
{
public:
    /// Largest radius in texels that is worth computing (see above).
    static constexpr int maximumRadius = 20;
    /// Spread of the Gaussian, in texels.
    static constexpr float spread = 5.0f;

    /**
     * Radius in texels of a despeckle kernel size: (size - 1) / 2, bounded by
     * maximumRadius; sizes below 3 (and negative ones) do not smooth and give 0.
     */
    static int radiusForLevel(int level);

    /**
     * Smooths width x height bytes (row by row, rows of width bytes) with the
     * kernel of the given radius into out, as 16-bit fractions of full scale
     * (byte value v maps to v * 257), so the result keeps the precision of the
     * float kernel. A radius of 0 copies. Nothing happens for an empty frame.
     */
    void apply(const std::uint8_t* data, int width, int height, int radius, std::vector<std::uint16_t>& out);

private:
    /// One axis's taps, weights normalised.
    struct Taps
    {
        std::vector<float> weights;
        std::vector<int> offsets;
    };
    /// Taps of one axis of the given length folded onto offsets 0 .. length - 1.
    static void foldTaps(int length, int radius, Taps& taps);

    Taps rowTaps; ///< along the beams
    Taps columnTaps; ///< along the range
    /// Rows smoothed along the beams, a ring of them, and the frame row each slot holds (-1: none).
    std::vector<float> rowPass;
    std::vector<std::ptrdiff_t> slotRows;
    /// The slot holding each frame row (-1: none), and which row distances the kernel reaches.
    std::vector<std::ptrdiff_t> slotOfRow;
    std::vector<char> tapAtDistance;
    /// Where each tap of the two passes reads.
    std::vector<const float*> rowSources;
    std::vector<const float*> columnSources;
    std::vector<float> paddedRow;
    std::vector<float> accumulator;
};

} // namespace Halcyra::Nereon::Visualisation
