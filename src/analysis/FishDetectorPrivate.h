#pragma once

#include "analysis/FishDetector.h"

namespace Halcyra::Nereon::Analysis {

class FishDetector::FishDetectorPrivate
{
public:
    double minimumLengthM = 0.1;
    double joinGapM = 0.12;
    double joinAlongAxisM = 0.3;
    double searchCellM = 0.02;
    int minimumSamples = 3;
};

} // namespace Halcyra::Nereon::Analysis
