#pragma once

#include "analysis/Detection.h"
#include "analysis/FishCounter.h"

#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Analysis {

/// Where the beams see: bearings in degrees, ranges in metres.
struct FieldOfView
{
    double minBearingDeg = -180.0;
    double maxBearingDeg = 180.0;
    double minRangeM = 0.0;
    double maxRangeM = 1e9;
};

/**
 * Follows echoes from frame to frame and turns finished tracks into counted fish.
 * Each track predicts its position with a constant-velocity Kalman filter in metres;
 * detections are matched greedily by a cost of distance (within a gate) and size.
 * A track that ends waits CountOptions::joinFrames for a later track starting where
 * it would have gone; the two are then one fish.
 */
class FishTracker
{
public:
    explicit FishTracker(const CountOptions& options);

    /// One frame's detections; `dtSeconds` since the previous frame. A track predicted
    /// outside `view` has left the beams and ends.
    void update(int frame, std::int64_t time, double dtSeconds, const std::vector<Detection>& detections,
        const FieldOfView& view = {});
    /// Ends every track and counts what qualifies.
    void finish();

    const std::vector<FishRecord>& getFish() const { return fish; }
    const std::vector<TrackPoint>& getTrackPoints() const { return trackPoints; }
    std::vector<LiveTrack> getActiveTracks() const;
    int getUpstreamCount() const { return upstream; }
    int getDownstreamCount() const { return downstream; }

private:
    /// Position and velocity along one axis, with their covariance.
    struct Axis
    {
        double p = 0.0, v = 0.0;
        double pp = 0.0, pv = 0.0, vv = 0.0;
        void predict(double dt, double accelerationVariance);
        void correct(double z, double measurementVariance);
    };

    struct Point
    {
        int frame = 0;
        std::int64_t time = 0;
        double x = 0.0, y = 0.0;
        double lengthM = 0.0;
        bool detected = false;
        bool wellSeen = false;
    };

    struct Track
    {
        int id = 0; // given when confirmed
        int hits = 0;
        int misses = 0;
        bool ended = false;
        Axis x, y;
        double lengthM = 0.0; // running estimate, for matching
        Detection last;
        std::vector<Point> points;

        const Point& firstDetected() const;
        const Point& lastDetected() const;
    };

    bool isConfirmed(const Track& t) const { return t.hits >= options.confirmHits; }
    void startTrack(const Detection& det, int frame, std::int64_t time);
    void correctTrack(Track& t, const Detection& det, int frame, std::int64_t time);
    /// Counts the ended tracks whose time to be joined has passed (all of them when `all`).
    void settle(int frame, bool all);
    /// A track that began where `ended` would have gone, soon after it; -1 when none.
    int findContinuation(const Track& ended) const;
    void count(const Track& t);

    CountOptions options;
    std::vector<Track> tracks; // active, then ended ones waiting to be joined or counted
    std::vector<FishRecord> fish;
    std::vector<TrackPoint> trackPoints;
    int nextId = 1;
    int upstream = 0;
    int downstream = 0;
};

} // namespace Halcyra::Nereon::Analysis
