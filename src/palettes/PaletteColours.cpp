#include "PaletteColours.h"

#include "engine/IntensityHistogram.h"
#include "palettes/ShownPalette.h"

namespace Halcyra::Nereon::Visualisation {

std::array<QRgb, 256> PaletteColours::shownColours(
    FanDisplayOptions::Palette palette, std::uint8_t modifier, float lowerThreshold, float upperThreshold)
{
    const Palettes::ShownPalette shown(palette, modifier, lowerThreshold, upperThreshold);
    std::array<QRgb, 256> colours {};
    for (int v = 0; v < 256; ++v)
        colours[static_cast<std::size_t>(v)] = shown.colourAt(v / 255.0).rgb();
    return colours;
}

void PaletteColours::followFrame(const std::uint8_t* data, std::size_t size, float clampLevel,
    float& lowerThreshold, float& upperThreshold)
{
    const std::int64_t target = IntensityHistogram::thresholdTarget(size, clampLevel);
    const IntensityHistogram::Bins bins
        = IntensityHistogram::findBins(IntensityHistogram::count(data, nullptr, size, target), target);
    // The same single-precision steps as the fan's engine, so the numbers agree to the bit.
    if (bins.lower >= 0)
        lowerThreshold = static_cast<float>(bins.lower) / 255.0f * 0.2f + 0.8f * lowerThreshold;
    if (bins.upper >= 0)
        upperThreshold = static_cast<float>(bins.upper) / 255.0f * 0.2f + 0.8f * upperThreshold;
}

} // namespace Halcyra::Nereon::Visualisation
