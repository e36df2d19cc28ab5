#pragma once

#include "FanDisplayOptions.h"
#include "TernwickNereonVisualisationExport.h"

namespace Halcyra::Nereon::Visualisation {

/// A measurement the user finished with a display's measuring tool.
struct FanMeasurement
{
    /// The tool that made it: decides whether value is a distance or an area.
    FanDisplayOptions::MeasurementMode mode = FanDisplayOptions::StraightLine;
    /// Made on the magnifier rather than on the display.
    bool onMagnifier = false;
    double startRange = 0.0; ///< Range of the press point, in metres.
    double startBearing = 0.0; ///< Bearing of the press point, in degrees (positive to starboard).
    double endRange = 0.0; ///< Range of the release point, in metres.
    double endBearing = 0.0; ///< Bearing of the release point, in degrees (positive to starboard).
    double startAcross = 0.0; ///< Press point in metres across the fan (starboard positive).
    double startAlong = 0.0; ///< Press point in metres along the fan (ahead of the sonar).
    double endAcross = 0.0; ///< Release point in metres across the fan (starboard positive).
    double endAlong = 0.0; ///< Release point in metres along the fan (ahead of the sonar).
    /// Distance in metres, or area in square metres for the area tools.
    double value = 0.0;
};

/**
 * Told of every measurement finished on a FanDisplay (and, when magnifier
 * measuring is on, on its magnifier). Register with
 * FanDisplayExtensions::addMeasurementListener(); remove before destruction.
 */
class TERNWICK_NEREON_VISUALISATION_EXPORT FanMeasurementListener
{
public:
    virtual ~FanMeasurementListener();

    /// Called on the GUI thread as the mouse button is released.
    virtual void measurementFinished(const FanMeasurement& measurement) = 0;
};

} // namespace Halcyra::Nereon::Visualisation
