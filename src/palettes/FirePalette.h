#pragma once

#include "palettes/AbstractDynamicPalette.h"

#include <array>
#include <cstdint>

namespace Halcyra::Nereon::Visualisation::Palettes {

/**
 * Black rising to full red at the modifier, then red to yellow up to the top
 * entry, with yellow turning to white over the upper half of that stretch.
 */
class FirePalette : public AbstractDynamicPalette
{
public:
    void generatePalette() override;

    /// The 256 entries (red, green, blue, alpha) for a modifier, as uploaded.
    static std::array<std::uint8_t, 256 * 4> computeEntries(unsigned char modifier);
};

} // namespace Halcyra::Nereon::Visualisation::Palettes
