#pragma once

#include "analysis/BackgroundSubtractor.h"
#include "analysis/FishCounter.h"
#include "analysis/FishDetector.h"

namespace Halcyra::Nereon::Analysis {

class FishCounter::FishCounterPrivate
{
public:
    CountOptions options;
    BackgroundSubtractor subtractor;
    FishDetector detector;
    NereonImage lastForeground;
    std::vector<FishRecord> fish;
    std::vector<TrackPoint> trackPoints;
    int upstream = 0;
    int downstream = 0;
    int framesProcessed = 0;
    int framesRejected = 0;
};

} // namespace Halcyra::Nereon::Analysis
