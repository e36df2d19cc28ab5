#pragma once

#include "palettes/AbstractDynamicPalette.h"

namespace Halcyra::Nereon::Visualisation::Palettes {

/**
 * Navy (0, 0, 64) rising to blue (8, 40, 128) at the modifier, then to green
 * (50, 250, 64) at the top entry.
 */
class AquaPalette : public AbstractDynamicPalette
{
public:
    void generatePalette() override;
};

} // namespace Halcyra::Nereon::Visualisation::Palettes
