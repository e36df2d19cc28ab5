#include "FishTracker.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace Halcyra::Nereon::Analysis {

namespace {

constexpr double degreesPerRadian = 180.0 / M_PI;
// Noise of a detection's centre (a fish is seen partly, differently each frame), m².
constexpr double measurementVariance = 0.1 * 0.1;
// How sharply a fish changes its velocity, (m/s²)².
constexpr double accelerationVariance = 1.0;
// A track not yet confirmed is dropped after this many frames without a detection.
constexpr int tentativeMisses = 2;
// Trail drawn behind a live track, in frames.
constexpr std::size_t trailLength = 40;

double rangeOf(double x, double y)
{
    return std::hypot(x, y);
}
double bearingOf(double x, double y)
{
    return std::atan2(x, y) * degreesPerRadian;
}

double quantile(std::vector<double> values, double q)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    const double at = std::clamp(q, 0.0, 1.0) * (values.size() - 1);
    const std::size_t below = std::size_t(at);
    const std::size_t above = std::min(values.size() - 1, below + 1);
    return values[below] + (at - below) * (values[above] - values[below]);
}

} // namespace

void FishTracker::Axis::predict(double dt, double q)
{
    p += v * dt;
    // P = F P F' + Q with white acceleration noise.
    const double dt2 = dt * dt;
    pp += 2.0 * dt * pv + dt2 * vv + q * dt2 * dt2 / 4.0;
    pv += dt * vv + q * dt2 * dt / 2.0;
    vv += q * dt2;
}

void FishTracker::Axis::correct(double z, double r)
{
    const double s = pp + r;
    const double kp = pp / s, kv = pv / s;
    const double innovation = z - p;
    p += kp * innovation;
    v += kv * innovation;
    vv -= kv * pv;
    pv -= kv * pp;
    pp -= kp * pp;
}

const FishTracker::Point& FishTracker::Track::firstDetected() const
{
    return *std::find_if(points.begin(), points.end(), [](const Point& p) { return p.detected; });
}

const FishTracker::Point& FishTracker::Track::lastDetected() const
{
    return *std::find_if(points.rbegin(), points.rend(), [](const Point& p) { return p.detected; });
}

FishTracker::FishTracker(const CountOptions& options)
    : options(options)
{
}

void FishTracker::startTrack(const Detection& det, int frame, std::int64_t time)
{
    Track t;
    t.x.p = det.xM;
    t.y.p = det.yM;
    t.x.pp = t.y.pp = measurementVariance;
    // Nothing is known of the velocity yet: allow a fast fish.
    t.x.vv = t.y.vv = 1.5 * 1.5;
    t.lengthM = det.lengthM;
    t.hits = 1;
    t.last = det;
    t.points.push_back({ frame, time, det.xM, det.yM, det.lengthM, true, !det.touchesEdge });
    tracks.push_back(std::move(t));
}

void FishTracker::correctTrack(Track& t, const Detection& det, int frame, std::int64_t time)
{
    t.x.correct(det.xM, measurementVariance);
    t.y.correct(det.yM, measurementVariance);
    t.lengthM += 0.3 * (det.lengthM - t.lengthM);
    t.last = det;
    t.misses = 0;
    ++t.hits;
    if (t.id == 0 && isConfirmed(t))
        t.id = nextId++;
    t.points.push_back({ frame, time, det.xM, det.yM, det.lengthM, true, !det.touchesEdge });
}

void FishTracker::update(int frame, std::int64_t time, double dt, const std::vector<Detection>& detections,
    const FieldOfView& view)
{
    std::vector<std::size_t> active;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        Track& t = tracks[i];
        if (t.ended)
            continue;
        t.x.predict(dt, accelerationVariance);
        t.y.predict(dt, accelerationVariance);
        // A fish that swam out of the beams is gone: left coasting at the edge, its
        // track would take over the next fish coming in there the other way.
        const double range = rangeOf(t.x.p, t.y.p), bearing = bearingOf(t.x.p, t.y.p);
        if (bearing < view.minBearingDeg || bearing > view.maxBearingDeg || range < view.minRangeM
            || range > view.maxRangeM) {
            t.ended = true;
            continue;
        }
        active.push_back(i);
    }

    // Candidate pairs within the gate, cheapest first. The cost weighs distance
    // against the gate and the difference in size, so that of two fish crossing
    // each keeps its own track; confirmed tracks choose before tentative ones.
    std::vector<std::tuple<double, std::size_t, std::size_t>> pairs;
    for (std::size_t i : active) {
        const Track& t = tracks[i];
        const double gate = options.gateM * std::min(2.0, 1.0 + 0.25 * t.misses);
        for (std::size_t j = 0; j < detections.size(); ++j) {
            const double distance = std::hypot(detections[j].xM - t.x.p, detections[j].yM - t.y.p);
            if (distance > gate)
                continue;
            // A fish entering or leaving the beams is seen in part: its size says nothing then.
            const double sizeRatio = detections[j].touchesEdge
                ? 0.0
                : std::log(std::max(detections[j].lengthM, 0.01) / std::max(t.lengthM, 0.01));
            const double cost
                = distance / gate + 0.5 * std::min(std::abs(sizeRatio), 1.0) + (isConfirmed(t) ? 0.0 : 0.5);
            pairs.emplace_back(cost, i, j);
        }
    }
    std::sort(pairs.begin(), pairs.end());
    std::vector<bool> trackTaken(tracks.size(), false), detectionTaken(detections.size(), false);
    for (const auto& [cost, i, j] : pairs) {
        if (trackTaken[i] || detectionTaken[j])
            continue;
        trackTaken[i] = detectionTaken[j] = true;
        correctTrack(tracks[i], detections[j], frame, time);
    }

    for (std::size_t i : active) {
        Track& t = tracks[i];
        if (trackTaken[i])
            continue;
        ++t.misses;
        t.points.push_back({ frame, time, t.x.p, t.y.p, 0.0, false, false });
        if (isConfirmed(t) ? t.misses >= options.maxMisses
                           : t.misses >= std::min(tentativeMisses, options.maxMisses))
            t.ended = true;
    }
    // Tentative tracks that ended are noise or a glimpse: not fish.
    tracks.erase(std::remove_if(tracks.begin(), tracks.end(),
                     [this](const Track& t) { return t.ended && !isConfirmed(t); }),
        tracks.end());

    for (std::size_t j = 0; j < detections.size(); ++j) {
        if (!detectionTaken[j])
            startTrack(detections[j], frame, time);
    }
    settle(frame, false);
}

void FishTracker::finish()
{
    for (auto& t : tracks)
        t.ended = true;
    tracks.erase(
        std::remove_if(tracks.begin(), tracks.end(), [this](const Track& t) { return !isConfirmed(t); }),
        tracks.end());
    settle(0, true);
}

int FishTracker::findContinuation(const Track& ended) const
{
    const Point& end = ended.lastDetected();
    int best = -1;
    double bestDistance = HUGE_VAL;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const Track& t = tracks[i];
        if (&t == &ended)
            continue;
        const Point& start = t.firstDetected();
        const int gapFrames = start.frame - end.frame;
        if (gapFrames <= 0 || gapFrames > options.joinFrames)
            continue;
        const double seconds = (start.time - end.time) / 1e6;
        const double dt = seconds > 0.0 && seconds < 60.0 ? seconds : gapFrames / options.fallbackFrameRateHz;
        const double px = end.x + ended.x.v * dt, py = end.y + ended.y.v * dt;
        const double distance = std::hypot(start.x - px, start.y - py);
        const double gate = options.gateM * std::min(3.0, 1.0 + 0.25 * gapFrames);
        if (distance > gate)
            continue;
        // Moving on the way it went, where both move at all.
        const Point& later = t.lastDetected();
        const double dx = later.x - start.x, dy = later.y - start.y;
        if (std::hypot(dx, dy) > 0.1 && std::hypot(ended.x.v, ended.y.v) > 0.1
            && dx * ended.x.v + dy * ended.y.v < 0.0)
            continue;
        if (distance < bestDistance) {
            bestDistance = distance;
            best = int(i);
        }
    }
    return best;
}

void FishTracker::settle(int frame, bool all)
{
    // Oldest ends first, so that a chain of broken pieces is joined from its start.
    for (;;) {
        int oldest = -1;
        for (std::size_t i = 0; i < tracks.size(); ++i) {
            const Track& t = tracks[i];
            if (!t.ended || (!all && frame - t.lastDetected().frame <= options.joinFrames))
                continue;
            if (oldest < 0 || t.lastDetected().frame < tracks[oldest].lastDetected().frame)
                oldest = int(i);
        }
        if (oldest < 0)
            return;
        Track ended = std::move(tracks[oldest]);
        tracks.erase(tracks.begin() + oldest);
        const int next = findContinuation(ended);
        if (next < 0) {
            count(ended);
            continue;
        }
        Track& later = tracks[next];
        while (!ended.points.back().detected)
            ended.points.pop_back();
        // The frames between the two pieces, where the fish was not seen: on the line
        // between where it was lost and where it was found again.
        const Point from = ended.points.back(), to = later.firstDetected();
        for (int frame = from.frame + 1; frame < to.frame; ++frame) {
            const double f = double(frame - from.frame) / (to.frame - from.frame);
            ended.points.push_back({ frame, from.time + std::int64_t(std::llround(f * (to.time - from.time))),
                from.x + f * (to.x - from.x), from.y + f * (to.y - from.y), 0.0, false, false });
        }
        later.points.insert(later.points.begin(), ended.points.begin(), ended.points.end());
        later.hits += ended.hits;
        later.id = ended.id;
        later.lengthM = 0.5 * (later.lengthM + ended.lengthM);
    }
}

void FishTracker::count(const Track& t)
{
    if (!isConfirmed(t))
        return;
    const Point& first = t.firstDetected();
    const Point& last = t.lastDetected();

    std::vector<double> wellSeen, all;
    double sumRange = 0.0, sumBearing = 0.0;
    int detections = 0;
    for (const Point& p : t.points) {
        if (!p.detected)
            continue;
        ++detections;
        all.push_back(p.lengthM);
        if (p.wellSeen)
            wellSeen.push_back(p.lengthM);
        sumRange += rangeOf(p.x, p.y);
        sumBearing += bearingOf(p.x, p.y);
    }
    const double length = quantile(wellSeen.empty() ? all : wellSeen, options.lengthQuantile);
    const double travel = std::hypot(last.x - first.x, last.y - first.y);
    if (length < options.minLengthM || travel < options.minTravelM)
        return;

    bool towardsPositive = false;
    if (options.countLineBearingDeg) {
        const double line = *options.countLineBearingDeg;
        const double from = bearingOf(first.x, first.y) - line, to = bearingOf(last.x, last.y) - line;
        // With a count line, only a fish that crosses it counts.
        if ((from < 0.0) == (to < 0.0))
            return;
        towardsPositive = to > from;
    } else {
        towardsPositive = last.x > first.x;
    }
    const bool up = towardsPositive == (options.upstream == CountOptions::Upstream::TowardsPositiveBearing);

    FishRecord record;
    record.id = t.id;
    record.firstFrame = first.frame;
    record.lastFrame = last.frame;
    record.firstTime = first.time;
    record.lastTime = last.time;
    record.direction = up ? Direction::Up : Direction::Down;
    record.lengthM = length;
    record.rangeM = sumRange / detections;
    record.bearingDeg = sumBearing / detections;
    // Speed from the views where the whole fish was in the beams: while it enters or
    // leaves the fan the visible part's centre moves slower than the fish.
    const Point* from = &first;
    const Point* to = &last;
    const auto wellSeenFirst
        = std::find_if(t.points.begin(), t.points.end(), [](const Point& p) { return p.wellSeen; });
    const auto wellSeenLast
        = std::find_if(t.points.rbegin(), t.points.rend(), [](const Point& p) { return p.wellSeen; });
    if (wellSeenFirst != t.points.end() && wellSeenLast->time > wellSeenFirst->time) {
        from = &*wellSeenFirst;
        to = &*wellSeenLast;
    }
    const double seconds = (to->time - from->time) / 1e6;
    record.speedMS = seconds > 0.0 ? std::hypot(to->x - from->x, to->y - from->y) / seconds : 0.0;
    record.detections = detections;
    fish.push_back(record);
    ++(up ? upstream : downstream);

    for (const Point& p : t.points) {
        if (p.frame > last.frame)
            break;
        trackPoints.push_back(
            { t.id, p.frame, p.time, rangeOf(p.x, p.y), bearingOf(p.x, p.y), p.lengthM, p.detected });
    }
}

std::vector<LiveTrack> FishTracker::getActiveTracks() const
{
    std::vector<LiveTrack> live;
    for (const Track& t : tracks) {
        if (t.ended)
            continue;
        LiveTrack l;
        l.id = t.id;
        l.confirmed = isConfirmed(t);
        const Point& now = t.points.back();
        l.rangeM = rangeOf(now.x, now.y);
        l.bearingDeg = bearingOf(now.x, now.y);
        l.lengthM = t.lengthM;
        l.extentRangeM = t.last.extentRangeM;
        l.extentBearingDeg = t.last.extentBearingDeg;
        const std::size_t from = t.points.size() > trailLength ? t.points.size() - trailLength : 0;
        for (std::size_t i = from; i < t.points.size(); ++i)
            l.trail.emplace_back(
                rangeOf(t.points[i].x, t.points[i].y), bearingOf(t.points[i].x, t.points[i].y));
        live.push_back(std::move(l));
    }
    return live;
}

} // namespace Halcyra::Nereon::Analysis
