#pragma once

#include "FanDisplayOptions.h"
#include "TernwickNereonVisualisationExport.h"

namespace Halcyra::Nereon::Visualisation {

/// A measurement the user finished with a display's measuring tool.
struct FanMeasurement
{
    FanDisplayOptions::MeasurementMode mode = FanDisplayOptions::StraightLine;
    /// Made on the magnifier rather than on the display.
    bool onMagnifier = false;
    /// Press and release points: range (metres) and bearing (degrees, positive to starboard).
    double startRange = 0.0;
    double startBearing = 0.0;
    double endRange = 0.0;
    double endBearing = 0.0;
    /// The same points in metres across (starboard positive) and along (ahead).
    double startAcross = 0.0;
    double startAlong = 0.0;
    double endAcross = 0.0;
    double endAlong = 0.0;
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
