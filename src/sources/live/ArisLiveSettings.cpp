#include "sources/ArisLiveSettings.h"

namespace Halcyra::Nereon::Sources {

ArisLiveSettings ArisLiveSettings::fromPreset(Preset preset)
{
    ArisLiveSettings settings;
    switch (preset) {
    case Near:
        settings.windowStart = 1.0;
        settings.windowLength = 10.0;
        settings.frameRate = 15.0;
        settings.samplesPerBeam = 1000;
        break;
    case Middle:
        break;
    case Far:
        settings.windowStart = 5.0;
        settings.windowLength = 40.0;
        settings.frameRate = 6.0;
        settings.samplesPerBeam = 2000;
        settings.highFrequency = false;
        settings.receiverGain = 18.0f;
        break;
    }
    return settings;
}

} // namespace Halcyra::Nereon::Sources
