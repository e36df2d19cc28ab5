#pragma once

#include "analysis/LiveFishCounter.h"

namespace Halcyra::Nereon::Analysis {

class LiveFishCounter::LiveFishCounterPrivate
{
public:
    CountOptions options;
    std::unique_ptr<FishCounter> counter;
    /// Fish of the counter already announced by fishCounted().
    std::size_t fishEmitted = 0;
};

} // namespace Halcyra::Nereon::Analysis
