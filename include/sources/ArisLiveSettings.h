#pragma once

#include "TernwickNereonSourcesExport.h"

#include <QString>

#include <cstdint>

namespace Halcyra::Nereon::Sources {

/**
 * How an ARIS sonar is asked to image: from a preset, with the values a user
 * gives on top. The sonar's sample timing is worked out from the window in metres.
 */
struct TERNWICK_NEREON_SOURCES_EXPORT ArisLiveSettings
{
    /// Ready-made settings for common work.
    enum Preset
    {
        /// 1 to 11 m at 15 frames a second, high frequency: fish passages, close inspection.
        Near,
        /// 3 to 23 m at 10 frames a second, high frequency: rivers and fish counting.
        Middle,
        /// 5 to 45 m at 6 frames a second, low frequency: the furthest the sonars see well.
        Far,
    };

    /// Settings of a preset.
    static ArisLiveSettings fromPreset(Preset preset);

    double windowStart = 3.0; ///< metres
    double windowLength = 20.0; ///< metres
    double frameRate = 10.0; ///< frames a second
    /// Samples along each beam over the window.
    int samplesPerBeam = 1000;
    /// The sonar's high frequency (finer picture, shorter reach) or its low one.
    bool highFrequency = true;
    /// 48 / 96 / 64 / 128 beams: ping modes 1, 3, 6, 9; 0 picks the most the sonar has.
    int pingMode = 0;
    float receiverGain = 12.0f; ///< dB
    /// Water: 0 fresh, 15 brackish, 35 salt; sets the speed of sound the sonar assumes.
    int salinity = 0;
    /// Metres the lens focuses at; negative: the middle of the window.
    double focusRange = -1.0;
    /// Speed of sound used to turn the window into times, metres a second.
    double soundSpeed = 1480.0;

    /// The sonar's command port.
    std::uint16_t commandPort = 56888;
    /// The port the sonars' beacons arrive at.
    std::uint16_t beaconPort = 56124;
    /// The local port frames are received at; 0: any free one.
    std::uint16_t framePort = 0;
};

} // namespace Halcyra::Nereon::Sources
