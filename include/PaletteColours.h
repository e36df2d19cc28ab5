#pragma once

#include "FanDisplayOptions.h"
#include "TernwickNereonVisualisationExport.h"

#include <QRgb>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Halcyra::Nereon::Visualisation {

/**
 * The fan's colouring worked out on the CPU, for views beside the fan that
 * show intensities in the same colours: the colour of every intensity byte and
 * the display thresholds a sequence of frames leads to.
 */
class TERNWICK_NEREON_VISUALISATION_EXPORT PaletteColours
{
public:
    /**
     * The colour the fan shows for each intensity byte 0..255 with this palette, modifier
     * (Fire and Aqua only) and thresholds (0..1, intensities are clamped between them).
     */
    static std::array<QRgb, 256> shownColours(FanDisplayOptions::Palette palette, std::uint8_t modifier,
        float lowerThreshold, float upperThreshold);

    /**
     * Moves the thresholds on by one frame of `size` intensity bytes, exactly as the fan does
     * with each frame it is given at clamp level `clampLevel`: fed the same frames from the same
     * start, both hold the same thresholds.
     */
    static void followFrame(const std::uint8_t* data, std::size_t size, float clampLevel,
        float& lowerThreshold, float& upperThreshold);
};

} // namespace Halcyra::Nereon::Visualisation
