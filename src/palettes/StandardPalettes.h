#pragma once

#include "palettes/AbstractPalette.h"

namespace Halcyra::Nereon::Visualisation::Palettes {

/**
 * The six fixed palettes, one above the other in a 256 × 60 texture loaded
 * from the compiled-in palettes.bmp. Band p (0..5, counted from the top of the
 * picture) is centred at t = 1 − (p / 6 + 1/12).
 */
class StandardPalettes : public AbstractPalette
{
public:
    /// The base set-up, then uploads the picture (GL context current).
    void initialisePalette() override;
};

} // namespace Halcyra::Nereon::Visualisation::Palettes
