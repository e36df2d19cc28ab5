#pragma once

#include "TernwickNereonSourcesExport.h"

#include "sources/SyntheticPassage.h"

#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Sources {

/**
 * The fish of a synthetic passage: where each one swims, and its echo.
 *
 * A fish swims a straight line at a steady speed, its heading within 25 degrees of
 * across the beams, so it crosses the fan from one side to the other. Its echo is an
 * elongated body (about a sixth as wide as it is long) brightest at mid body and
 * fading to nothing at head and tail, with a texture of its own, widened by the
 * beam's width at its range. Fish are spread over the passage's duration; the
 * options' fractions say how many are faint, cross each other in pairs, or are
 * seen only briefly. Everything is drawn from the options' seed.
 */
class TERNWICK_NEREON_SOURCES_EXPORT SyntheticFishModel
{
public:
    /**
     * Plans the fish of `options` (fish, fractions, sizes, speeds, frames and frame
     * rate, seed) in a fan whose beams lie at `bearingsDeg` (ascending, degrees
     * positive to the right) and whose window runs from `windowStart` to `windowEnd`
     * metres.
     */
    SyntheticFishModel(const SyntheticPassageOptions& options, const std::vector<double>& bearingsDeg,
        double windowStart, double windowEnd);
    ~SyntheticFishModel();

    /// The fish, by id; first and last frame are those of the passage's frames.
    const std::vector<SyntheticFish>& getFish() const { return fish; }
    /// Where fish `id` is at `seconds` after the passage's start.
    SyntheticFishPosition getPosition(int id, double seconds) const;

    /**
     * Adds the echoes of the fish visible at `seconds` to `echo`: `rows` rows of one
     * float per beam, row r at range firstRange + r × spacing metres. A normal fish
     * adds about 1 at its brightest (its texture gives some ±30 %), a faint one about
     * a third of that; echoes weaken slowly with range.
     */
    void addEchoes(double seconds, float* echo, int rows, double firstRange, double spacing) const;

private:
    struct Track
    {
        double x = 0.0, y = 0.0; ///< centre at `time`, metres (x to the right, y ahead)
        double time = 0.0; ///< seconds
        double headingX = 1.0, headingY = 0.0; ///< unit vector of motion
        double tilt = 0.0; ///< radians off across the beams
        double appearFrom = -1e300, appearUntil = 1e300; ///< seconds in which it can be seen
        double strength = 1.0;
        double texturePhase[3] = {};
    };

    void centreAt(const Track& track, double seconds, double& x, double& y) const;
    double visibility(const Track& track, double seconds) const;

    std::vector<double> bearings; ///< degrees
    std::vector<double> sines;
    std::vector<double> cosines;
    double windowStart = 0.0;
    double windowEnd = 0.0;
    double beamSpacing = 0.0; ///< radians, on average
    std::vector<SyntheticFish> fish;
    std::vector<Track> tracks;
};

} // namespace Halcyra::Nereon::Sources
