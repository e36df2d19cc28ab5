#pragma once

#include "TernwickNereonAnalysisExport.h"

#include "analysis/FishCounter.h"

#include <QString>

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

namespace Halcyra::Nereon::Analysis {

/// What counting one recording found.
struct TERNWICK_NEREON_ANALYSIS_EXPORT RecordingCount
{
    QString file; ///< the recording, as given
    std::vector<FishRecord> fish; ///< in order of their end
    std::vector<TrackPoint> trackPoints; ///< one per counted fish per frame
    int frames = 0; ///< frames counted
    int upstream = 0; ///< fish counted going up
    int downstream = 0; ///< fish counted going down
    std::int64_t startTime = 0; ///< first frame counted, µs since 1970 UTC
    std::int64_t endTime = 0; ///< last frame counted, µs since 1970 UTC
    std::int64_t damageOffset = -1; ///< byte where reading stopped short, or -1
    QString damage; ///< "Stopped at byte N of FILE: why", or empty
    QString error; ///< why nothing could be counted, or empty
    bool cancelled = false; ///< the count was cancelled before the end
};

/**
 * Counts the fish in one recording of any format FrameReader reads, streaming it
 * frame by frame. The background model is first learnt from frames sampled evenly
 * across the whole file, so that a fish already in view at the start is not taken
 * for background.
 *
 * A damaged recording is counted up to the damage, which the result names with its
 * byte offset. One counter counts one recording at a time; counters on separate
 * threads are independent (cancel() alone may be called from another thread).
 */
class TERNWICK_NEREON_ANALYSIS_EXPORT RecordingCounter
{
public:
    /// Called after each frame with frames done and the frames in the file (which
    /// shrinks if damage is found); return false to cancel.
    using Progress = std::function<bool(int done, int total)>;

    /// A counter with the given tracking and counting options.
    explicit RecordingCounter(const CountOptions& options = {});
    ~RecordingCounter();
    RecordingCounter(const RecordingCounter&) = delete;
    RecordingCounter& operator=(const RecordingCounter&) = delete;

    /// The options each count uses.
    const CountOptions& getOptions() const { return options; }
    /// Replaces the options for the next count.
    void setOptions(const CountOptions& newOptions) { options = newOptions; }
    /// Frames sampled across the recording to learn the background before counting (0: none).
    void setBackgroundSamples(int frames) { backgroundSamples = frames; }
    /// Frames sampled to learn the background (default 60).
    int getBackgroundSamples() const { return backgroundSamples; }
    /// Called on the counting thread during each count; an empty function for none.
    void setProgress(Progress callback) { progress = std::move(callback); }

    /**
     * Counts the recording at `path`. False when not a single frame could be read
     * (result.error says why) or when cancelled (result.cancelled, with what was
     * counted so far). A recording counted up to damage returns true.
     */
    bool count(const QString& path, RecordingCount& result);
    /// Stops a count in progress at its next frame; safe from any thread.
    void cancel() { cancelRequested = true; }

    /// Threads OpenCV may use, for the whole process: 1 when every core already counts
    /// a recording of its own. 0 or less leaves OpenCV's own choice.
    static void setLibraryThreads(int threads);

private:
    CountOptions options;
    int backgroundSamples = 60;
    Progress progress;
    std::atomic<bool> cancelRequested { false };
};

} // namespace Halcyra::Nereon::Analysis
