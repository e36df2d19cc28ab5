#include "SyntheticSonar.h"

#include <algorithm>
#include <cmath>

namespace {

std::uint32_t mix(std::uint32_t x)
{
    x ^= x >> 16;
    x *= 0x7feb352dU;
    x ^= x >> 15;
    x *= 0x846ca68bU;
    x ^= x >> 16;
    return x;
}

} // namespace

SyntheticSonar::SyntheticSonar(int beams, int samples, double rangeM, double fanDegrees, unsigned seed)
    : beams(beams)
    , samples(samples)
    , rangeM(rangeM)
    , seed(seed)
    , bed(std::size_t(beams) * samples)
{
    for (int b = 0; b < beams; ++b)
        bearings.push_back(
            std::int16_t(std::lround((-fanDegrees / 2 + fanDegrees * b / std::max(1, beams - 1)) * 100)));
    // A bed that darkens with range, with texture and a few bright fixed reflectors.
    for (int r = 0; r < samples; ++r) {
        for (int b = 0; b < beams; ++b) {
            const std::uint32_t h = mix(std::uint32_t(r * 7919 + b) ^ (seed * 0x9e3779b9U));
            int v = 30 + int(h % 40) - 20 * r / samples;
            if (h % 997 == 0)
                v = 180;
            bed[std::size_t(r) * beams + b] = std::uint8_t(std::clamp(v, 0, 255));
        }
    }
}

Halcyra::Nereon::Sources::SourceFrame SyntheticSonar::frame(int index) const
{
    std::vector<std::uint8_t> data(bed.size());
    std::uint32_t state = mix(std::uint32_t(index) * 0x85ebca6bU ^ seed) | 1U;
    for (std::size_t i = 0; i < data.size(); ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        data[i] = std::uint8_t(
            std::clamp(int(bed[i]) + int(state % unsigned(speckle + 1)) - speckle / 2, 0, 255));
    }

    const double t = index / frameRateHz;
    const double rowM = rangeM / samples;
    const double beamRad
        = (bearings.back() - bearings.front()) / 100.0 * M_PI / 180.0 / std::max(1, beams - 1);
    for (const auto& f : fish) {
        if (index < f.firstFrame || index > f.lastFrame)
            continue;
        const double cx = f.x + f.vx * t, cy = f.y + f.vy * t;
        const double heading = std::atan2(f.vy, f.vx);
        const double ux = std::cos(heading), uy = std::sin(heading);
        const double centreRange = std::hypot(cx, cy);
        const int row0 = std::max(0, int((centreRange - f.lengthM) / rowM));
        const int row1 = std::min(samples - 1, int((centreRange + f.lengthM) / rowM));
        for (int r = row0; r <= row1; ++r) {
            const double range = (r + 0.5) * rowM;
            for (int b = 0; b < beams; ++b) {
                // A beam hears the fish where any part of its width covers the body.
                bool covered = false;
                for (double edge : { -0.5, 0.0, 0.5 }) {
                    const double angle = bearings[b] / 100.0 * M_PI / 180.0 + edge * beamRad;
                    const double dx = range * std::sin(angle) - cx, dy = range * std::cos(angle) - cy;
                    const double along = dx * ux + dy * uy, across = dy * ux - dx * uy;
                    const double a = along / (f.lengthM / 2), c = across / (f.widthM / 2);
                    covered = covered || (a * a + c * c <= 1.0 && std::abs(along) >= f.gapM / 2);
                }
                if (!covered)
                    continue;
                std::uint8_t& v = data[std::size_t(r) * beams + b];
                v = std::uint8_t(std::max<int>(v, f.intensity - int(mix(r * 31 + b + index) % 40)));
            }
        }
    }

    Halcyra::Nereon::Sources::SourceFrame frame;
    frame.image = Halcyra::Nereon::NereonImage(
        std::uint16_t(beams), std::uint16_t(samples), std::move(data), bearings, rangeM, 1.0);
    frame.index = index;
    frame.timestamp = 1'700'000'000'000'000LL + std::int64_t(std::llround(t * 1e6));
    return frame;
}
