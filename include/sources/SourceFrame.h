#pragma once

#include "TernwickNereonSourcesExport.h"

#include "nereon/NereonImage.h"

#include <QMetaType>

#include <cstdint>

namespace Halcyra::Nereon::Sources {

/**
 * One frame from a frame source: the picture a display draws, and where and when
 * it came from.
 *
 * The image always runs from the sonar outwards, as the display expects. A sonar
 * whose window starts beyond zero range gets `firstSampleRow` rows of intensity 0
 * before its first sample, so that every sample is drawn at its true range: row r
 * stands for the range (r + 0.5) × image.getRange() / image.getHeight(). The
 * recorded samples are rows `firstSampleRow` to image.getHeight() − 1.
 *
 * The image's columns are beams from left to right with ascending bearings in
 * hundredths of a degree, positive to the right of the sonar's axis.
 */
struct TERNWICK_NEREON_SOURCES_EXPORT SourceFrame
{
    /// The picture, ready for FanDisplay::newImageReceived.
    Halcyra::Nereon::NereonImage image;
    /// Zero-based position of the frame in its source.
    int index = -1;
    /// When the frame was taken, microseconds since 1970-01-01 UTC.
    std::int64_t timestamp = 0;
    /// Range of the first recorded sample in metres.
    double windowStart = 0.0;
    /// Rows of padding before the first recorded sample.
    int firstSampleRow = 0;
};

} // namespace Halcyra::Nereon::Sources

Q_DECLARE_METATYPE(Halcyra::Nereon::Sources::SourceFrame)
