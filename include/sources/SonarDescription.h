#pragma once

#include "TernwickNereonSourcesExport.h"

#include <QMetaType>
#include <QString>

#include <cstdint>
#include <limits>

namespace Halcyra::Nereon::Sources {

/**
 * What a frame source knows of the sonar behind it, as of its first frame.
 * Numbers it does not know are NaN (or 0 for counts); texts it does not know are empty.
 */
struct TERNWICK_NEREON_SOURCES_EXPORT SonarDescription
{
    /// The file format or protocol, e.g. "ARIS recording".
    QString format;
    /// The sonar's model, e.g. "ARIS 1200"; empty when the source does not say.
    QString model;
    /// The sonar's serial number; empty when the source does not say.
    QString serialNumber;
    /// Centre frequency of the transmit in hertz.
    double frequency = std::numeric_limits<double>::quiet_NaN();
    /// Beams of a frame: the image's width.
    int beamCount = 0;
    /// Samples along each beam as recorded (without the rows a window start adds).
    int samplesPerBeam = 0;
    /// Range of the first sample in metres.
    double windowStart = std::numeric_limits<double>::quiet_NaN();
    /// From the first sample to the last, in metres.
    double windowLength = std::numeric_limits<double>::quiet_NaN();
    /// Speed of sound in metres per second.
    double soundSpeed = std::numeric_limits<double>::quiet_NaN();
    /// Frames per second as recorded.
    double frameRate = std::numeric_limits<double>::quiet_NaN();
    /// Bearing of the left-most beam in degrees, positive to the right of the sonar's axis.
    double leftmostBearing = std::numeric_limits<double>::quiet_NaN();
    /// Bearing of the right-most beam in degrees.
    double rightmostBearing = std::numeric_limits<double>::quiet_NaN();
    /// Time of the first frame, microseconds since 1970-01-01 UTC; 0 when unknown.
    std::int64_t startTime = 0;
    /// From the first frame to the last in microseconds; 0 for a single frame or a live source.
    std::int64_t duration = 0;
};

} // namespace Halcyra::Nereon::Sources

Q_DECLARE_METATYPE(Halcyra::Nereon::Sources::SonarDescription)
