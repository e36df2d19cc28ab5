#pragma once

#include "palettes/AbstractPalette.h"

#include <cstdint>

namespace Halcyra::Nereon::Visualisation::Palettes {

/**
 * A 256-entry palette computed from a modifier (0..255). It regenerates lazily,
 * at the first bind after the modifier changed.
 */
class AbstractDynamicPalette : public AbstractPalette
{
public:
    ~AbstractDynamicPalette() override;

    /// The base set-up, then 256 × 1 storage.
    void initialisePalette() override;
    /// Regenerates first when the modifier changed since the last bind.
    void bindPalette(int textureUnit) override;

    /// Stores the modifier; no GL call.
    virtual void changeModifier(unsigned char modifier);
    virtual unsigned char getModifier() const;
    /// Computes all 256 entries from the modifier and uploads them.
    virtual void generatePalette() = 0;

private:
    bool regenerate = true;
    std::uint8_t modifier = 0;
};

} // namespace Halcyra::Nereon::Visualisation::Palettes
