#include "sources/SyntheticFishModel.h"

#include "SyntheticRandom.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace Halcyra::Nereon::Sources {

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double degree = pi / 180.0;
// Seconds over which a fish swimming through the beams' height fades in and out.
constexpr double fadeSeconds = 0.25;
// Half the body's width as a share of its length, seen from above.
constexpr double bodyWidth = 0.08;

/// The unit vector of a fish's heading at `bearing` (radians): across the beams
/// towards increasing bearings if `up`, turned by `tilt` (radians, positive away
/// from the sonar when going up).
void headingAcross(double bearing, double tilt, bool up, double& x, double& y)
{
    const double lateralX = std::cos(bearing), lateralY = -std::sin(bearing);
    const double sign = up ? 1.0 : -1.0;
    x = sign * (lateralX * std::cos(tilt) - lateralY * std::sin(tilt));
    y = sign * (lateralX * std::sin(tilt) + lateralY * std::cos(tilt));
}

template <typename T> void shuffle(std::vector<T>& values, SyntheticRandom& random)
{
    for (int i = int(values.size()) - 1; i > 0; --i)
        std::swap(values[std::size_t(i)], values[std::size_t(random.below(i + 1))]);
}

} // namespace

SyntheticFishModel::SyntheticFishModel(
    const SyntheticPassageOptions& options, const std::vector<double>& bearingsDeg, double start, double end)
    : bearings(bearingsDeg)
    , windowStart(start)
    , windowEnd(end)
{
    for (double bearing : bearings) {
        sines.push_back(std::sin(bearing * degree));
        cosines.push_back(std::cos(bearing * degree));
    }
    const double left = bearings.empty() ? 0.0 : bearings.front();
    const double right = bearings.empty() ? 0.0 : bearings.back();
    beamSpacing = bearings.size() > 1 ? (right - left) * degree / double(bearings.size() - 1) : 0.01;

    const int count = std::max(0, options.fish);
    const double frameRate = options.frameRate > 0.0 ? options.frameRate : 10.0;
    const int frames = std::max(0, options.frames);
    const double duration = std::max(1.0, double(frames)) / frameRate;

    // Fish keep half a metre from the window's ends, so that they are whole.
    double nearest = std::max(options.minimumFishRange, windowStart + 0.5);
    double furthest = std::min(options.maximumFishRange, windowEnd - 0.5);
    if (nearest > furthest) {
        nearest = windowStart + 0.3 * (windowEnd - windowStart);
        furthest = windowStart + 0.7 * (windowEnd - windowStart);
    }
    const double minimumLength
        = std::max(0.01, std::min(options.minimumFishLength, options.maximumFishLength));
    const double maximumLength = std::max(minimumLength, options.maximumFishLength);
    const double minimumSpeed = std::max(0.01, std::min(options.minimumFishSpeed, options.maximumFishSpeed));
    const double maximumSpeed = std::max(minimumSpeed, options.maximumFishSpeed);

    auto share = [count](double fraction) {
        return std::clamp(int(std::lround(std::clamp(fraction, 0.0, 1.0) * count)), 0, count);
    };
    const int crossing = std::min(
        int(std::lround(std::clamp(options.crossingFraction, 0.0, 1.0) * count / 2.0)) * 2, count / 2 * 2);
    const int brief = std::min(share(options.briefFraction), count - crossing);
    const int faint = share(options.faintFraction);

    // Roles by shuffled id: crossing pairs first, then brief fish; faintness apart.
    SyntheticRandom random(options.seed, 1);
    std::vector<int> order(static_cast<std::size_t>(count));
    std::iota(order.begin(), order.end(), 0);
    shuffle(order, random);
    std::vector<int> faintOrder = order;
    shuffle(faintOrder, random);

    fish.resize(std::size_t(count));
    tracks.resize(std::size_t(count));
    // One event in time per fish, one per crossing pair, each in a slot of its own so
    // that passages do not pile up.
    const int events = count - crossing / 2;
    std::vector<int> eventSlots(static_cast<std::size_t>(events));
    std::iota(eventSlots.begin(), eventSlots.end(), 0);
    shuffle(eventSlots, random);

    const double span = (right - left) * degree;
    int event = 0;
    for (int n = 0; n < count; ++n) {
        const int id = order[std::size_t(n)];
        SyntheticFish& f = fish[std::size_t(id)];
        Track& t = tracks[std::size_t(id)];
        f.id = id;
        f.lengthM = random.uniform(minimumLength, maximumLength);
        f.speedMS = random.uniform(minimumSpeed, maximumSpeed);
        f.brief = n >= crossing && n < crossing + brief;
        const bool secondOfPair = n < crossing && n % 2 == 1;
        f.faint = std::find(faintOrder.begin(), faintOrder.begin() + faint, id) != faintOrder.begin() + faint;
        t.strength = f.faint ? random.uniform(0.28, 0.4) : random.uniform(0.85, 1.15);
        for (double& phase : t.texturePhase)
            phase = random.uniform();

        if (secondOfPair) {
            // Meets the first of its pair head on, where and when that one is at its
            // centre, on a heading that crosses the other's.
            const Track& other = tracks[std::size_t(order[std::size_t(n - 1)])];
            const SyntheticFish& otherFish = fish[std::size_t(order[std::size_t(n - 1)])];
            f.up = !otherFish.up;
            t.x = other.x;
            t.y = other.y;
            t.time = other.time;
            // Tilted apart from the other's heading, so that their tracks make an X
            // rather than run along one line.
            t.tilt = other.tilt + (random.chance(0.5) ? 1.0 : -1.0) * random.uniform(15.0, 30.0) * degree;
            headingAcross(std::atan2(t.x, t.y), t.tilt, f.up, t.headingX, t.headingY);
            continue;
        }

        f.up = random.chance(0.5);
        const double range = random.uniform(nearest, furthest);
        const double bearing = (left + right) / 2.0 * degree + random.uniform(-0.25, 0.25) * span;
        t.x = range * std::sin(bearing);
        t.y = range * std::cos(bearing);
        t.tilt = random.uniform(-25.0, 25.0) * degree;
        headingAcross(bearing, t.tilt, f.up, t.headingX, t.headingY);

        const int slot = events > 0 ? eventSlots[std::size_t(event++)] : 0;
        const double slotLength = duration / double(std::max(1, events));
        t.time = (double(slot) + random.uniform(0.2, 0.8)) * slotLength;
        if (f.brief) {
            const double seen = random.uniform(0.6, 2.0);
            t.appearFrom = t.time - seen / 2.0;
            t.appearUntil = t.time + seen / 2.0;
        } else {
            // The whole crossing inside the passage, where it fits: from its centre a
            // fish reaches either side of the fan in at most this long.
            const double toSide = 0.8 * range * span / f.speedMS;
            if (2.0 * toSide < duration)
                t.time = std::clamp(t.time, toSide, duration - toSide);
        }
    }

    for (SyntheticFish& f : fish) {
        f.firstFrame = f.lastFrame = -1;
        for (int frame = 0; frame < frames; ++frame) {
            if (getPosition(f.id, double(frame) / frameRate).visible) {
                if (f.firstFrame < 0)
                    f.firstFrame = frame;
                f.lastFrame = frame;
            }
        }
    }
}

SyntheticFishModel::~SyntheticFishModel() = default;

void SyntheticFishModel::centreAt(const Track& track, double seconds, double& x, double& y) const
{
    const double speed = fish[std::size_t(&track - tracks.data())].speedMS;
    x = track.x + track.headingX * speed * (seconds - track.time);
    y = track.y + track.headingY * speed * (seconds - track.time);
}

double SyntheticFishModel::visibility(const Track& track, double seconds) const
{
    if (seconds <= track.appearFrom || seconds >= track.appearUntil)
        return 0.0;
    return std::min(
        { 1.0, (seconds - track.appearFrom) / fadeSeconds, (track.appearUntil - seconds) / fadeSeconds });
}

SyntheticFishPosition SyntheticFishModel::getPosition(int id, double seconds) const
{
    SyntheticFishPosition position;
    position.id = id;
    if (id < 0 || id >= int(tracks.size()))
        return position;
    const Track& track = tracks[std::size_t(id)];
    double x = 0.0, y = 0.0;
    centreAt(track, seconds, x, y);
    position.rangeM = std::hypot(x, y);
    position.bearingDeg = std::atan2(x, y) / degree;
    position.visible = visibility(track, seconds) > 0.0 && !bearings.empty()
        && position.bearingDeg >= bearings.front() && position.bearingDeg <= bearings.back()
        && position.rangeM >= windowStart && position.rangeM <= windowEnd;
    return position;
}

void SyntheticFishModel::addEchoes(
    double seconds, float* echo, int rows, double firstRange, double spacing) const
{
    const int beams = int(bearings.size());
    if (beams == 0 || rows <= 0 || !(spacing > 0.0))
        return;
    for (std::size_t n = 0; n < tracks.size(); ++n) {
        const Track& track = tracks[n];
        const double fade = visibility(track, seconds);
        if (fade <= 0.0)
            continue;
        double cx = 0.0, cy = 0.0;
        centreAt(track, seconds, cx, cy);
        const double range = std::hypot(cx, cy);
        const double halfLength = fish[n].lengthM / 2.0;
        // The beam's width smears the echo across; it adds to the body's own width.
        const double beamSigma = range * beamSpacing * 0.5;
        const double sigma = std::sqrt(std::pow(bodyWidth * fish[n].lengthM, 2) + beamSigma * beamSigma);
        const double reach = halfLength + beamSigma;
        const double strength
            = track.strength * fade * std::clamp(std::pow(8.0 / std::max(range, 0.5), 0.3), 0.7, 1.3);

        // The rows and beams the body can touch.
        const double margin = 3.0 * sigma + reach;
        const double x0 = cx - margin, x1 = cx + margin, y0 = std::max(1e-3, cy - margin), y1 = cy + margin;
        if (y1 <= 0.0)
            continue;
        const double nearX = std::clamp(0.0, x0, x1);
        const double near = std::hypot(nearX, y0);
        const double far = std::max(std::hypot(x0, y1), std::hypot(x1, y1));
        const double leftmost = std::min(std::atan2(x0, y0), std::atan2(x0, y1)) / degree;
        const double rightmost = std::max(std::atan2(x1, y0), std::atan2(x1, y1)) / degree;
        const int firstRow = std::max(0, int(std::floor((near - firstRange) / spacing)));
        const int lastRow = std::min(rows - 1, int(std::ceil((far - firstRange) / spacing)));
        const int firstBeam
            = int(std::lower_bound(bearings.begin(), bearings.end(), leftmost) - bearings.begin());
        const int lastBeam
            = int(std::upper_bound(bearings.begin(), bearings.end(), rightmost) - bearings.begin()) - 1;
        if (firstRow > lastRow || firstBeam > lastBeam)
            continue;

        const double inverseTwoSigmaSquared = 1.0 / (2.0 * sigma * sigma);
        const double* phase = track.texturePhase;
        for (int row = firstRow; row <= lastRow; ++row) {
            const double r = firstRange + double(row) * spacing;
            float* line = echo + std::size_t(row) * std::size_t(beams);
            for (int beam = firstBeam; beam <= lastBeam; ++beam) {
                const double dx = r * sines[std::size_t(beam)] - cx;
                const double dy = r * cosines[std::size_t(beam)] - cy;
                const double along = dx * track.headingX + dy * track.headingY;
                const double across = dx * track.headingY - dy * track.headingX;
                const double u = along / reach;
                if (u <= -1.0 || u >= 1.0 || std::abs(across) > 3.0 * sigma)
                    continue;
                // Faint at head and tail, a texture of the fish's own along the body.
                const double body = std::pow(1.0 - u * u, 0.6);
                const double texture = 1.0 + 0.18 * std::sin(2.0 * pi * (1.3 * u + phase[0]))
                    + 0.1 * std::sin(2.0 * pi * (3.1 * u + phase[1]))
                    + 0.06 * std::sin(2.0 * pi * (6.7 * u + phase[2]));
                line[beam]
                    += float(strength * body * texture * std::exp(-across * across * inverseTwoSigmaSquared));
            }
        }
    }
}

} // namespace Halcyra::Nereon::Sources
