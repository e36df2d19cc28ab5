#include "palettes/AbstractDynamicPalette.h"

namespace Halcyra::Nereon::Visualisation::Palettes {

AbstractDynamicPalette::~AbstractDynamicPalette() = default;

void AbstractDynamicPalette::initialisePalette()
{
    AbstractPalette::initialisePalette();
    setSize(256, 1, 1);
    allocateStorage();
    // A texture made again (in a new context) starts empty.
    regenerate = true;
}

void AbstractDynamicPalette::bindPalette(int textureUnit)
{
    // Generation waits for a bind, where a context is current, and happens once
    // however many modifier changes arrived since the last paint.
    if (regenerate) {
        generatePalette();
        regenerate = false;
    }
    AbstractPalette::bindPalette(textureUnit);
}

void AbstractDynamicPalette::changeModifier(unsigned char newModifier)
{
    modifier = newModifier;
    regenerate = true;
}

unsigned char AbstractDynamicPalette::getModifier() const
{
    return modifier;
}

} // namespace Halcyra::Nereon::Visualisation::Palettes
