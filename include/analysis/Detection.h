#pragma once

#include "TernwickNereonAnalysisExport.h"

namespace Halcyra::Nereon::Analysis {

/**
 * One echo found in a frame's foreground: pieces of the same echo already joined.
 * Positions are true geometry: x = r sin(bearing) across the fan, y = r cos(bearing)
 * along the sonar's axis, in metres.
 */
struct TERNWICK_NEREON_ANALYSIS_EXPORT Detection
{
    /// Centre, weighted by intensity above the background.
    double rangeM = 0.0;
    double bearingDeg = 0.0;
    double xM = 0.0;
    double yM = 0.0;
    /// Length along the echo's main axis, in metres.
    double lengthM = 0.0;
    /// Width across the main axis, in metres.
    double widthM = 0.0;
    /// Direction of the main axis, radians from the x axis, in (-pi/2, pi/2].
    double axisAngle = 0.0;
    /// Extent in range (metres) and in bearing (degrees).
    double extentRangeM = 0.0;
    double extentBearingDeg = 0.0;
    /// Area of the foreground samples, square metres.
    double areaM2 = 0.0;
    /// Mean intensity above the background, and the largest.
    double meanIntensity = 0.0;
    int peakIntensity = 0;
    /// Number of foreground samples at full resolution.
    int samples = 0;
    /// The echo touches the first or last beam or range line: it may be cut off.
    bool touchesEdge = false;
};

} // namespace Halcyra::Nereon::Analysis
