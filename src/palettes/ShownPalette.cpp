#include "palettes/ShownPalette.h"

#include "palettes/AquaPalette.h"
#include "palettes/FirePalette.h"

#include <QImage>
#include <QString>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace Halcyra::Nereon::Visualisation::Palettes {

namespace {

/// The fixed palettes as uploaded: the picture turned upside down, so row 0 is t = 0.
const QImage& standardPaletteTexture()
{
    static const QImage texture
        = QImage(QStringLiteral(":/ternwick-nereon-visualisation/texture-images/palettes.bmp"))
              .mirrored(false, true)
              .convertToFormat(QImage::Format_RGB32);
    return texture;
}

QRgb blend(QRgb from, QRgb to, double f)
{
    const auto channel = [f](int a, int b) { return static_cast<int>(std::lround(a + (b - a) * f)); };
    return qRgb(
        channel(qRed(from), qRed(to)), channel(qGreen(from), qGreen(to)), channel(qBlue(from), qBlue(to)));
}

void copyDynamicEntries(const std::array<std::uint8_t, 256 * 4>& source, std::array<QRgb, 256>& entries)
{
    for (std::size_t i = 0; i < entries.size(); ++i)
        entries[i] = qRgb(source[4 * i], source[4 * i + 1], source[4 * i + 2]);
}

/// Entries of the fixed palette texture at row coordinate t, blended between rows as GL's linear filter does.
void copyStandardEntries(float t, std::array<QRgb, 256>& entries)
{
    const QImage& texture = standardPaletteTexture();
    if (texture.isNull() || texture.width() < 256 || texture.height() < 1)
        return;
    const int rows = texture.height();
    const double y = static_cast<double>(t) * rows - 0.5;
    const double floorY = std::floor(y);
    const int first = std::clamp(static_cast<int>(floorY), 0, rows - 1);
    const int second = std::clamp(static_cast<int>(floorY) + 1, 0, rows - 1);
    const auto* lower = reinterpret_cast<const QRgb*>(texture.constScanLine(first));
    const auto* upper = reinterpret_cast<const QRgb*>(texture.constScanLine(second));
    for (std::size_t i = 0; i < entries.size(); ++i)
        entries[i] = blend(lower[i], upper[i], y - floorY);
}

} // namespace

ShownPalette::ShownPalette(
    FanDisplayOptions::Palette palette, unsigned char modifier, float lowerThreshold, float upperThreshold)
    : palette(palette)
    , modifier(modifier)
    , lowerThreshold(lowerThreshold)
    , upperThreshold(upperThreshold)
{
    // The same choice of texture and row as the engine makes when it draws.
    if (palette == FanDisplayOptions::Fire)
        copyDynamicEntries(FirePalette::computeEntries(modifier), entries);
    else if (palette == FanDisplayOptions::Aqua)
        copyDynamicEntries(AquaPalette::computeEntries(modifier), entries);
    else if (static_cast<std::int32_t>(palette) <= 5)
        copyStandardEntries(1.0f - (static_cast<float>(palette) / 6.0f + 0.083333336f), entries);
    else
        copyStandardEntries(0.5f, entries);
}

bool ShownPalette::isFor(
    FanDisplayOptions::Palette otherPalette, unsigned char otherModifier, float lower, float upper) const
{
    return palette == otherPalette && modifier == otherModifier && lowerThreshold == lower
        && upperThreshold == upper;
}

QColor ShownPalette::colourAt(double intensity) const
{
    // As the shader's clamp(): the lower bound first, then the upper one.
    const double shown = std::min(
        std::max(intensity, static_cast<double>(lowerThreshold)), static_cast<double>(upperThreshold));
    if (!std::isfinite(shown))
        return QColor(entries[0]);
    // Texel centres lie at (i + 0.5) / 256; the texture clamps to its edges.
    const double x = std::clamp(shown, 0.0, 1.0) * 256.0 - 0.5;
    const double floorX = std::floor(x);
    const int first = std::clamp(static_cast<int>(floorX), 0, 255);
    const int second = std::clamp(static_cast<int>(floorX) + 1, 0, 255);
    return QColor(blend(
        entries[static_cast<std::size_t>(first)], entries[static_cast<std::size_t>(second)], x - floorX));
}

QColor ShownPalette::contrastingGridColour() const
{
    constexpr int samples = 9;
    constexpr double wanted = 3.5;
    double luminances[samples];
    for (int i = 0; i < samples; ++i) {
        const double shown = 0.4 + 0.2 * i / (samples - 1);
        // Middle of the intensities the fan spreads over the palette, not of the whole input range.
        const double intensity = lowerThreshold + shown * (upperThreshold - lowerThreshold);
        luminances[i] = relativeLuminance(colourAt(intensity));
    }
    const auto worstRatio = [&luminances](double greyLuminance) {
        double worst = 21.0;
        for (const double luminance : luminances) {
            const double ratio
                = (std::max(luminance, greyLuminance) + 0.05) / (std::min(luminance, greyLuminance) + 0.05);
            worst = std::min(worst, ratio);
        }
        return worst;
    };

    // Greys nearest the usual mid-grey first, so the grid stays as quiet as it can.
    for (int offset = 0; offset <= 128; ++offset) {
        for (const int grey : { 128 - offset, 128 + offset }) {
            if (grey < 0 || grey > 255)
                continue;
            if (worstRatio(relativeLuminance(QColor(grey, grey, grey))) >= wanted)
                return QColor(grey, grey, grey);
        }
    }
    return worstRatio(0.0) >= worstRatio(1.0) ? QColor(0, 0, 0) : QColor(255, 255, 255);
}

double ShownPalette::relativeLuminance(const QColor& colour)
{
    const auto linear = [](int channel) {
        const double c = channel / 255.0;
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    const QColor rgb = colour.toRgb();
    return 0.2126 * linear(rgb.red()) + 0.7152 * linear(rgb.green()) + 0.0722 * linear(rgb.blue());
}

double ShownPalette::contrastRatio(const QColor& first, const QColor& second)
{
    const double a = relativeLuminance(first);
    const double b = relativeLuminance(second);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

} // namespace Halcyra::Nereon::Visualisation::Palettes
