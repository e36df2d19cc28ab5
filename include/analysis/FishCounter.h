#pragma once

#include "TernwickNereonAnalysisExport.h"

#include "nereon/NereonImage.h"

#include <QMetaType>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Halcyra::Nereon::Sources {
struct SourceFrame;
}

namespace Halcyra::Nereon::Analysis {

/// How fish are found, followed and counted. Lengths in metres.
struct TERNWICK_NEREON_ANALYSIS_EXPORT CountOptions
{
    double minLengthM = 0.25; ///< shorter fish are not counted (see also detectionLengthFraction)
    /// Which way across the fan is upstream.
    enum class Upstream
    {
        TowardsPositiveBearing,
        TowardsNegativeBearing
    };
    Upstream upstream = Upstream::TowardsPositiveBearing; ///< which way across the fan the river flows up
    /// When set (degrees), direction = which way a fish crosses this line, and a fish
    /// whose first and last positions lie on the same side of it is not counted.
    std::optional<double> countLineBearingDeg;
    int confirmHits = 3; ///< detections before a track is a fish
    int maxMisses = 5; ///< frames without a detection before a track ends
    double gateM = 0.6; ///< matching gate in metres

    /// Echo pieces shorter than this fraction of minLengthM are not detections: a fish is
    /// often seen only in part, its length comes from its best views.
    double detectionLengthFraction = 0.4;
    /// A fish that travels less than this between its first and last position is not counted.
    double minTravelM = 0.3;
    /// A track that ends may be taken up again by an echo this many frames later, where
    /// its motion predicts it (broken tracks joined before counting).
    int joinFrames = 30;
    /// Quantile of a fish's per-frame lengths taken as its length (its well-seen views).
    double lengthQuantile = 0.75;
    double adaptationSeconds = 20.0; ///< background model's adaptation time (see BackgroundSubtractor)
    int thresholdDifference = 12; ///< foreground threshold: smallest difference, levels
    double thresholdSpreadFactor = 3.0; ///< foreground threshold: times the sample's usual spread
    /// Frame rate assumed where frames carry no usable times, Hz.
    double fallbackFrameRateHz = 10.0;
};

/// Which way a fish passed: upstream or downstream.
enum class Direction
{
    Up,
    Down
};

/// One counted fish. Times in microseconds UTC, frames counted from 0 in the recording.
struct TERNWICK_NEREON_ANALYSIS_EXPORT FishRecord
{
    int id = 0; ///< the fish's number, from 1 in the order tracks were confirmed
    int firstFrame = 0; ///< frame of its first detection
    int lastFrame = 0; ///< frame of its last detection
    std::int64_t firstTime = 0; ///< time of its first detection
    std::int64_t lastTime = 0; ///< time of its last detection
    Direction direction = Direction::Up; ///< which way it passed
    double lengthM = 0.0; ///< robust estimate over its well-seen detections
    double rangeM = 0.0; ///< mean range of its detections
    double bearingDeg = 0.0; ///< mean bearing of its detections
    double speedMS = 0.0; ///< distance between first and last position over the time between
    int detections = 0; ///< frames it was detected in
};

/// Where a counted fish was in one frame: detected, or predicted between detections.
struct TERNWICK_NEREON_ANALYSIS_EXPORT TrackPoint
{
    int fishId = 0; ///< FishRecord::id
    int frame = 0; ///< frame number in the recording
    std::int64_t time = 0; ///< the frame's time, microseconds UTC
    double rangeM = 0.0; ///< range of the fish's centre, metres
    double bearingDeg = 0.0; ///< bearing of the fish's centre, degrees
    double lengthM = 0.0; ///< length measured in this frame, 0 where not detected
    bool detected = false; ///< detected in this frame, or predicted
};

/// A track being followed, for drawing while live.
struct TERNWICK_NEREON_ANALYSIS_EXPORT LiveTrack
{
    int id = 0; ///< the fish's number once confirmed, 0 before
    bool confirmed = false; ///< seen often enough to be a fish
    double rangeM = 0.0; ///< range now (detected or predicted), metres
    double bearingDeg = 0.0; ///< bearing now, degrees
    double lengthM = 0.0; ///< length so far, metres
    double extentRangeM = 0.0; ///< extent in range of its last detection, metres
    double extentBearingDeg = 0.0; ///< extent in bearing of its last detection, degrees
    std::vector<std::pair<double, double>> trail; ///< (range m, bearing deg), oldest first
};

/**
 * Counts fish passing through the beams: the moving-target filter, detection of
 * echoes, tracking of several targets at once and the count of each fish once, up
 * or down. Feed it the frames of a recording or a live sonar in order, then
 * finish() at the end.
 *
 * A fish is counted when its track has ended (plus CountOptions::joinFrames, in
 * which a broken track can still be taken up again); getFish() grows as frames
 * come in. Not thread-safe: one thread at a time (see LiveFishCounter).
 */
class TERNWICK_NEREON_ANALYSIS_EXPORT FishCounter
{
public:
    /// A counter with `options`.
    explicit FishCounter(const CountOptions& options = {});
    ~FishCounter();
    FishCounter(const FishCounter&) = delete;
    FishCounter& operator=(const FishCounter&) = delete;

    /// Learns the background from frames sampled across the recording; optional, before the first frame.
    void learnBackground(const std::vector<NereonImage>& samples);
    /// The next frame; frames must come in order. Malformed frames are skipped.
    void addFrame(const Sources::SourceFrame& frame);
    /// Ends every open track and counts what qualifies (end of the recording).
    void finish();

    /// Counted fish, in the order their tracks ended.
    const std::vector<FishRecord>& getFish() const;
    /// One row per counted fish per frame it was followed.
    const std::vector<TrackPoint>& getTrackPoints() const;
    /// The tracks being followed now, tentative ones included.
    std::vector<LiveTrack> getActiveTracks() const;
    /// Fish counted going up.
    int getUpstreamCount() const;
    /// Fish counted going down.
    int getDownstreamCount() const;
    /// Frames taken (malformed ones not included).
    int getFramesProcessed() const;
    /// Frames skipped as malformed.
    int getFramesRejected() const;

    /// The last frame's foreground (the moving-target view).
    const NereonImage& getLastForeground() const;
    /// The options counted with.
    const CountOptions& getOptions() const;

private:
    class FishCounterPrivate;
    std::unique_ptr<FishCounterPrivate> const d;
};

} // namespace Halcyra::Nereon::Analysis

Q_DECLARE_METATYPE(Halcyra::Nereon::Analysis::FishRecord)
Q_DECLARE_METATYPE(Halcyra::Nereon::Analysis::LiveTrack)
Q_DECLARE_METATYPE(std::vector<Halcyra::Nereon::Analysis::LiveTrack>)
