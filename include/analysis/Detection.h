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
    double rangeM = 0.0; ///< range of the centre (weighted by intensity above the background), metres
    double bearingDeg = 0.0; ///< bearing of the centre, degrees
    double xM = 0.0; ///< the centre across the fan, metres
    double yM = 0.0; ///< the centre along the sonar's axis, metres
    /// Length along the echo's main axis, in metres.
    double lengthM = 0.0;
    /// Width across the main axis, in metres.
    double widthM = 0.0;
    /// Direction of the main axis, radians from the x axis, in (-pi/2, pi/2].
    double axisAngle = 0.0;
    double extentRangeM = 0.0; ///< extent in range, metres
    double extentBearingDeg = 0.0; ///< extent in bearing, degrees
    /// Area of the foreground samples, square metres.
    double areaM2 = 0.0;
    double meanIntensity = 0.0; ///< mean intensity above the background
    int peakIntensity = 0; ///< largest intensity above the background
    /// Number of foreground samples at full resolution.
    int samples = 0;
    /// The echo touches the first or last beam or range line: it may be cut off.
    bool touchesEdge = false;
};

} // namespace Halcyra::Nereon::Analysis
