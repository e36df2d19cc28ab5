#pragma once

#include "TernwickNereonViewsExport.h"
#include "views/EchogramColumns.h"

#include <functional>

namespace Halcyra::Nereon::Sources {
class FrameReader;
}

namespace Halcyra::Nereon::Views {

/**
 * Computes the echogram of a whole recording without showing it, on the
 * caller's thread: for scripts, tests and EchogramDisplay's loading thread.
 */
class TERNWICK_NEREON_VIEWS_EXPORT EchogramBuilder
{
public:
    /// Told the frames read so far and the recording's frame count; returns false to stop early.
    using Progress = std::function<bool(int framesDone, int frameCount)>;

    /**
     * The columns of every frame of `reader` (opened), read from its first frame on; the
     * reader's position is left at the end. Stops at damage (the frames before it are kept)
     * or when `progress` returns false (the frames read so far are kept). Frames that cannot
     * be reduced are left out. `progress` is called after every frame,
     * so that a caller can stop within a frame's decoding time.
     */
    static EchogramColumns build(Sources::FrameReader& reader, int rangeBins = EchogramColumns::defaultRangeBins,
        EchogramReduction reduction = EchogramReduction::Maximum, const Progress& progress = {});
};

} // namespace Halcyra::Nereon::Views
