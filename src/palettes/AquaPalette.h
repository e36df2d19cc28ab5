#pragma once

#include "palettes/AbstractDynamicPalette.h"

#include <array>
#include <cstdint>

namespace Halcyra::Nereon::Visualisation::Palettes {

/**
 * Navy (0, 0, 64) rising to blue (8, 40, 128) at the modifier, then to green
 * (50, 250, 64) at the top entry.
 */
class AquaPalette : public AbstractDynamicPalette
{
public:
    void generatePalette() override;

    /// The 256 entries (red, green, blue, alpha) for a modifier, as uploaded.
    static std::array<std::uint8_t, 256 * 4> computeEntries(unsigned char modifier);
};

} // namespace Halcyra::Nereon::Visualisation::Palettes
