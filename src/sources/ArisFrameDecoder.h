#pragma once

#include "sources/SourceFrame.h"

#include <QString>

#include <cstddef>
#include <cstdint>

namespace Halcyra::Nereon::Sources {

struct ArisFrameHeader;

/**
 * Turns an ARIS frame (its header and its samples in display order) into the
 * picture a display draws, the same way for recordings and live frames.
 *
 * Columns: the image's columns run from the left-most beam to the right-most, the
 * reverse of the ARIS beam numbers (beam 0 is the right-most), with bearings from
 * the beam-angle table of the system, beam count and lens (ArisBeamAngles).
 *
 * Rows: ARIS sonars sample a window that starts beyond the sonar, while the frame
 * type runs from the sonar outwards. The image gets rows of intensity 0 before the
 * first sample, as many as the window start holds sample spacings, less a half:
 * row r of the image stands for the range (r + 0.5) × spacing, so sample k lands
 * at start + k × spacing to within half a spacing (the padding is a whole number of
 * rows), 5 mm for a typical 1 cm spacing. The range is then height × spacing, in
 * true metres, so labels and measurements need no correction.
 */
class ArisFrameDecoder
{
public:
    /**
     * Decodes `sampleCount` samples at `samples` (sample-major: row k holds one byte per
     * beam, beam 0 first) under `header` into `out`. False, with `problem` set, when the
     * samples do not fit the header, when there is no beam-angle table for the sonar, or
     * when the window reaches further than the frame type's 65535 rows.
     */
    static bool decode(const ArisFrameHeader& header, const std::uint8_t* samples, std::size_t sampleCount,
        SourceFrame& out, QString* problem);
};

} // namespace Halcyra::Nereon::Sources
