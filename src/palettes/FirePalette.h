#pragma once

#include "palettes/AbstractDynamicPalette.h"

namespace Halcyra::Nereon::Visualisation::Palettes {

/**
 * Black rising to full red at the modifier, then red to yellow up to the top
 * entry, with yellow turning to white over the upper half of that stretch.
 */
class FirePalette : public AbstractDynamicPalette
{
public:
    void generatePalette() override;
};

} // namespace Halcyra::Nereon::Visualisation::Palettes
