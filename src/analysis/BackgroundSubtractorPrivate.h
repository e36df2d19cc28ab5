#pragma once

#include "analysis/BackgroundSubtractor.h"

#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Analysis {

/// How far the model moves in one frame, fixed point; the threshold's parts.
struct UpdateParameters
{
    int step = 1; // largest change of the background where there is no fish
    int foregroundStep = 1; // where there is one
    int spreadStep = 1;
    int minimum = 0; // smallest difference taken as foreground
    int factor = 0; // times the spread, 4 fractional bits
};

class BackgroundSubtractor::BackgroundSubtractorPrivate
{
public:
    /// Compares, learns, and writes the foreground; rows before `firstRow` are padding.
    bool apply(const NereonImage& in, NereonImage& foreground, int firstRow);
    bool isSameLayout(const NereonImage& image) const;
    void startModel(const NereonImage& image);
    /// The largest change of the estimate per frame, fixed point.
    int getStep() const;

    double adaptationSeconds = 20.0;
    double frameRateHz = 10.0;
    bool frameRateSet = false;
    int thresholdDifference = 12;
    double spreadFactor = 4.0;

    // The model's layout: a frame of any other layout starts a new model.
    int width = 0;
    int height = 0;
    double range = 0.0;
    std::vector<std::int16_t> bearings;

    // Fixed point with 8 fractional bits.
    std::vector<std::uint16_t> background; // running median
    std::vector<std::uint16_t> spread; // running median of the absolute deviation
    int framesSeen = 0;

    std::int64_t lastTimestamp = 0;
    double meanIntervalUs = 0.0;
};

} // namespace Halcyra::Nereon::Analysis
