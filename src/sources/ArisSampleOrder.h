#pragma once

#include <cstddef>
#include <cstdint>

namespace Halcyra::Nereon::Sources {

/**
 * The order in which an ARIS sonar sends a frame's samples, and the display order
 * (sample-major, beam 0 first in each row) that recordings keep them in.
 *
 * The sonar fires its beams in P pings of 16 channels (P = beams / 16); for every
 * ping it sends all samples of its 16 channels, sample by sample. Channel c of ping
 * p is beam p + M[c] × P, M being a fixed map of the receiver's channels.
 */
class ArisSampleOrder
{
public:
    /**
     * Puts `beams` × `samplesPerBeam` samples from the sonar's order at `input` into
     * display order at `output` (which must not overlap `input`). False, doing nothing,
     * when `beams` is not a multiple of 16.
     */
    static bool toDisplayOrder(
        const std::uint8_t* input, int beams, int samplesPerBeam, std::uint8_t* output);
    /// The inverse: display order to the order in which a sonar sends the samples.
    static bool toSonarOrder(const std::uint8_t* input, int beams, int samplesPerBeam, std::uint8_t* output);
};

} // namespace Halcyra::Nereon::Sources
