#pragma once

#include "sources/SourceFrame.h"

#include <climits>
#include <cstdint>
#include <vector>

/// A fish for SyntheticSonar: an ellipse moving at constant velocity, in metres
/// (x across the fan, y along the sonar's axis) and seconds.
struct SyntheticFish
{
    double x = 0.0, y = 5.0; // position at time 0
    double vx = 0.5, vy = 0.0; // m/s
    double lengthM = 0.5;
    double widthM = 0.1;
    int intensity = 200;
    double gapM = 0.0; // a dark band across the middle: the echo comes in two pieces
    int firstFrame = 0;
    int lastFrame = INT_MAX;
};

/// Frames of a still textured bed with speckle and fish passing, for the analysis tests and benchmarks.
class SyntheticSonar
{
public:
    SyntheticSonar(int beams, int samples, double rangeM, double fanDegrees = 28.0, unsigned seed = 1);

    void addFish(const SyntheticFish& f) { fish.push_back(f); }
    void clearFish() { fish.clear(); }
    /// Frame `index`, taken at `frameRateHz`.
    Halcyra::Nereon::Sources::SourceFrame frame(int index) const;

    double frameRateHz = 10.0;
    /// Amplitude of the frame-to-frame speckle on the bed, levels.
    int speckle = 24;

private:
    int beams;
    int samples;
    double rangeM;
    unsigned seed;
    std::vector<std::int16_t> bearings;
    std::vector<std::uint8_t> bed;
    std::vector<SyntheticFish> fish;
};
