#include "palettes/AquaPalette.h"

#include <array>
#include <cstdint>

namespace Halcyra::Nereon::Visualisation::Palettes {

namespace {

struct Colour
{
    int red;
    int green;
    int blue;
};

constexpr Colour deep { 0, 0, 64 };
constexpr Colour knee { 8, 40, 128 };
constexpr Colour shallow { 50, 250, 64 };

/// Position within a segment; an empty segment (length 0) counts as its start.
double fraction(int offset, int length)
{
    return length == 0 ? 0.0 : static_cast<double>(offset) / static_cast<double>(length);
}

std::uint8_t blend(int from, int to, double f)
{
    return static_cast<std::uint8_t>(static_cast<double>(to - from) * f + static_cast<double>(from));
}

} // namespace

void AquaPalette::generatePalette()
{
    const std::array<std::uint8_t, 256 * 4> entries = computeEntries(getModifier());
    setData(QOpenGLTexture::RGBA, QOpenGLTexture::UInt8, static_cast<const void*>(entries.data()));
}

std::array<std::uint8_t, 256 * 4> AquaPalette::computeEntries(unsigned char modifier)
{
    const int m = modifier;

    std::array<std::uint8_t, 256 * 4> entries {};
    for (int i = 0; i < 256; ++i) {
        const bool lower = i < m;
        const Colour& from = lower ? deep : knee;
        const Colour& to = lower ? knee : shallow;
        const double f = lower ? fraction(i, m) : fraction(i - m, 255 - m);

        std::uint8_t* entry = &entries[static_cast<std::size_t>(i) * 4];
        entry[0] = blend(from.red, to.red, f);
        entry[1] = blend(from.green, to.green, f);
        entry[2] = blend(from.blue, to.blue, f);
        entry[3] = 255;
    }
    return entries;
}

} // namespace Halcyra::Nereon::Visualisation::Palettes
