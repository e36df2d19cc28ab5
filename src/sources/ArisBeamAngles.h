#pragma once

#include <cstddef>

namespace Halcyra::Nereon::Sources {

/**
 * The beam-angle tables of the ARIS sonars: for each system type, beam count and
 * lens, the centre of every beam in degrees, by beam number.
 *
 * The tables list beam 0, the right-most beam, with the most negative angle: their
 * angles grow from right to left (counter-clockwise seen from above). The frame
 * type counts bearings the other way (positive to the right of the sonar's axis);
 * bearingOf() is the one place where the two meet.
 */
class ArisBeamAngles
{
public:
    /// System types as the frame header numbers them.
    enum SystemType
    {
        Aris1800 = 0,
        Aris3000 = 1,
        Aris1200 = 2,
    };

    /// The centres of the beams of `systemType` with `beamCount` beams and, if `telephoto`,
    /// the telephoto lens; null where there is no table (an ARIS 3000 with the telephoto
    /// lens, a beam count the system does not have).
    static const float* getCentres(unsigned systemType, int beamCount, bool telephoto);

    /// The frame type's bearing, in degrees positive to the right, of a beam whose table
    /// angle is `tableAngle`.
    static double bearingOf(float tableAngle) { return -double(tableAngle); }
};

} // namespace Halcyra::Nereon::Sources
