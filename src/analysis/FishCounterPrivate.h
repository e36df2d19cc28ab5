#pragma once

#include "FishTracker.h"
#include "analysis/BackgroundSubtractor.h"
#include "analysis/FishCounter.h"
#include "analysis/FishDetector.h"

namespace Halcyra::Nereon::Analysis {

class FishCounter::FishCounterPrivate
{
public:
    explicit FishCounterPrivate(const CountOptions& options);

    CountOptions options;
    BackgroundSubtractor subtractor;
    FishDetector detector;
    FishTracker tracker;
    NereonImage lastForeground;
    int framesProcessed = 0;
    int framesRejected = 0;
    int lastFrame = -1;
    std::int64_t lastTime = 0;
};

} // namespace Halcyra::Nereon::Analysis
