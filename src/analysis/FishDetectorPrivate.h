#pragma once

#include "analysis/FishDetector.h"

#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Analysis {

/// Lit cells next to each other along one row of the decimated foreground.
struct Run
{
    int row = 0;
    int beam0 = 0, beam1 = 0; // inclusive
    int parent = 0; // union-find over runs
};

class FishDetector::FishDetectorPrivate
{
public:
    double minimumLengthM = 0.1;
    double joinGapM = 0.12;
    double joinAlongAxisM = 0.3;
    double searchCellM = 0.02;
    int minimumSamples = 3;

    // Kept between frames to spare allocations.
    std::vector<Run> runs;
    std::vector<std::uint8_t> line;
    std::vector<double> sines;
    std::vector<double> cosines;
};

} // namespace Halcyra::Nereon::Analysis
