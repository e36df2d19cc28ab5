#include "DesignerPreview.h"

#include "FanDisplay.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace {

constexpr int Beams = 256;
constexpr int RangeLines = 400;
constexpr double RangeMetres = 40.0;
constexpr int HalfApertureHundredths = 6500;

/// Speckle in [0, 1): a hash of the sample's place, the same in every run.
double speckle(int beam, int line)
{
    std::uint32_t h = std::uint32_t(beam) * 73856093u ^ std::uint32_t(line) * 19349663u;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return (h & 0xffffu) / 65536.0;
}

/// A deterministic picture: dark water, a seabed from about a quarter of the
/// range fading outwards, three bright targets with acoustic shadows behind them.
std::uint8_t sampleIntensity(int beam, int line)
{
    const double across = double(beam) / (Beams - 1);
    const double along = double(line) / (RangeLines - 1);
    const double seabedStart = 0.22 + 0.04 * std::sin(across * 6.0);
    double value = 8.0 + 20.0 * speckle(beam, line);
    if (along > seabedStart)
        value += 170.0 * std::exp(-(along - seabedStart) * 1.6) * (0.45 + 0.55 * speckle(line, beam));
    struct Target
    {
        double across, along;
    };
    for (const Target target : { Target { 0.3, 0.55 }, Target { 0.62, 0.7 }, Target { 0.8, 0.45 } }) {
        const double dx = (across - target.across) * 60.0;
        const double dy = (along - target.along) * 80.0;
        if (dx * dx + dy * dy < 1.0)
            value = 230.0 + 25.0 * speckle(beam, line);
        else if (std::abs(dx) < 1.0 && dy > 0.0 && dy < 14.0)
            value = 8.0 + 12.0 * speckle(beam, line);
    }
    return static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0));
}

} // namespace

DesignerPreview::DesignerPreview()
{
    std::vector<std::uint8_t> intensities(std::size_t(Beams) * RangeLines);
    for (int line = 0; line < RangeLines; ++line)
        for (int beam = 0; beam < Beams; ++beam)
            intensities[std::size_t(line) * Beams + std::size_t(beam)] = sampleIntensity(beam, line);
    std::vector<std::int16_t> bearings(Beams);
    for (int beam = 0; beam < Beams; ++beam)
        bearings[std::size_t(beam)] = static_cast<std::int16_t>(
            std::lround(-HalfApertureHundredths + 2.0 * HalfApertureHundredths * beam / (Beams - 1)));
    frame = Halcyra::Nereon::NereonImage(
        Beams, RangeLines, std::move(intensities), std::move(bearings), RangeMetres, 1.0);
}

void DesignerPreview::show(Halcyra::Nereon::Visualisation::FanDisplay& display) const
{
    display.setDistanceUnit(&metres);
    display.newImageReceived(frame);
}
