#include "palettes/FirePalette.h"

#include <array>
#include <cstdint>

namespace Halcyra::Nereon::Visualisation::Palettes {

namespace {

/// numerator × 255 / divisor, truncated to a byte; an empty segment (divisor 0) gives 0.
std::uint8_t scaledTo255(int numerator, int divisor)
{
    if (divisor == 0)
        return 0;
    return static_cast<std::uint8_t>(static_cast<double>(numerator) * 255.0 / static_cast<double>(divisor));
}

} // namespace

void FirePalette::generatePalette()
{
    const std::array<std::uint8_t, 256 * 4> entries = computeEntries(getModifier());
    setData(QOpenGLTexture::RGBA, QOpenGLTexture::UInt8, static_cast<const void*>(entries.data()));
}

std::array<std::uint8_t, 256 * 4> FirePalette::computeEntries(unsigned char modifier)
{
    const int knee = modifier;
    const int whiteStart = knee + (255 - knee) / 2;

    std::array<std::uint8_t, 256 * 4> entries {};
    for (int i = 0; i < 256; ++i) {
        std::uint8_t* entry = &entries[static_cast<std::size_t>(i) * 4];
        if (i < knee) {
            entry[0] = scaledTo255(i, knee);
            entry[1] = 0;
        } else {
            entry[0] = 255;
            entry[1] = scaledTo255(i - knee, 255 - knee);
        }
        entry[2] = i < whiteStart ? 0 : scaledTo255(i - whiteStart, 255 - whiteStart);
        entry[3] = 255;
    }
    return entries;
}

} // namespace Halcyra::Nereon::Visualisation::Palettes
