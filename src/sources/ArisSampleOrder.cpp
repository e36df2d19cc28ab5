#include "ArisSampleOrder.h"

namespace Halcyra::Nereon::Sources {

namespace {

constexpr int channels = 16;
constexpr int channelMap[channels] = { 10, 2, 14, 6, 8, 0, 12, 4, 11, 3, 15, 7, 9, 1, 13, 5 };

/// Calls `move(sonarIndex, displayIndex)` for every sample, in the sonar's order.
template <typename Move>
bool forEachSample(int beams, int samplesPerBeam, Move move)
{
    if (beams <= 0 || beams % channels != 0 || samplesPerBeam < 0)
        return false;
    const int pings = beams / channels;
    std::size_t next = 0;
    for (int ping = 0; ping < pings; ++ping) {
        for (int sample = 0; sample < samplesPerBeam; ++sample) {
            const std::size_t row = std::size_t(sample) * std::size_t(beams) + std::size_t(ping);
            for (int channel = 0; channel < channels; ++channel)
                move(next++, row + std::size_t(channelMap[channel] * pings));
        }
    }
    return true;
}

} // namespace

bool ArisSampleOrder::toDisplayOrder(const std::uint8_t* input, int beams, int samplesPerBeam, std::uint8_t* output)
{
    return forEachSample(beams, samplesPerBeam,
        [input, output](std::size_t sonar, std::size_t display) { output[display] = input[sonar]; });
}

bool ArisSampleOrder::toSonarOrder(const std::uint8_t* input, int beams, int samplesPerBeam, std::uint8_t* output)
{
    return forEachSample(beams, samplesPerBeam,
        [input, output](std::size_t sonar, std::size_t display) { output[sonar] = input[display]; });
}

} // namespace Halcyra::Nereon::Sources
