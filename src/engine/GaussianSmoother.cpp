#include "engine/GaussianSmoother.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Halcyra::Nereon::Visualisation {

namespace {

// Four floats in one register, with GCC's and Clang's vector extension so that
// the same code becomes SSE on x86-64 and NEON on ARM.
using Float4 = float __attribute__((vector_size(16)));

/// acc[i] += weight * source[i] for i < count: the inner loop of both passes.
void addScaled(float* acc, const float* source, float weight, int count)
{
    const Float4 weights = { weight, weight, weight, weight };
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        Float4 a0, a1, s0, s1;
        std::memcpy(&a0, acc + i, sizeof a0);
        std::memcpy(&a1, acc + i + 4, sizeof a1);
        std::memcpy(&s0, source + i, sizeof s0);
        std::memcpy(&s1, source + i + 4, sizeof s1);
        a0 += weights * s0;
        a1 += weights * s1;
        std::memcpy(acc + i, &a0, sizeof a0);
        std::memcpy(acc + i + 4, &a1, sizeof a1);
    }
    for (; i < count; ++i)
        acc[i] += weight * source[i];
}

} // namespace

int GaussianSmoother::radiusForLevel(int level)
{
    if (level < 3)
        return 0;
    return std::min((level - 1) / 2, maximumRadius);
}

void GaussianSmoother::foldTaps(int length, int radius)
{
    // A kernel wider than the texture wraps onto itself: taps that land on the
    // same texel are merged into one, so the passes below stay exact.
    const int taps = std::min(2 * radius + 1, length);
    foldedWeights.assign(static_cast<std::size_t>(taps), 0.0f);
    foldedOffsets.resize(static_cast<std::size_t>(taps));
    const float twoSigmaSquared = 2.0f * spread * spread;
    double sum = 0.0;
    std::vector<double> weights(static_cast<std::size_t>(length), 0.0);
    for (int x = -radius; x <= radius; ++x) {
        const double weight = std::exp(-static_cast<double>(x) * x / twoSigmaSquared);
        weights[static_cast<std::size_t>(((x % length) + length) % length)] += weight;
        sum += weight;
    }
    int tap = 0;
    for (int offset = 0; offset < length && tap < taps; ++offset) {
        const double weight = weights[static_cast<std::size_t>(offset)];
        if (weight == 0.0)
            continue;
        foldedOffsets[static_cast<std::size_t>(tap)] = offset;
        foldedWeights[static_cast<std::size_t>(tap)] = static_cast<float>(weight / sum);
        ++tap;
    }
    foldedOffsets.resize(static_cast<std::size_t>(tap));
    foldedWeights.resize(static_cast<std::size_t>(tap));
}

void GaussianSmoother::apply(
    const std::uint8_t* data, int width, int height, int radius, std::vector<std::uint16_t>& out)
{
    if (width <= 0 || height <= 0)
        return;
    const auto w = static_cast<std::size_t>(width);
    const auto h = static_cast<std::size_t>(height);
    out.resize(w * h);
    radius = std::clamp(radius, 0, maximumRadius);

    // Along the beams: each row is laid out twice, so that a tap at offset k
    // of texel i reads index i + k without a modulo.
    foldTaps(width, radius);
    rowPass.resize(w * h);
    paddedRow.resize(2 * w);
    for (std::size_t row = 0; row < h; ++row) {
        const std::uint8_t* source = data + row * w;
        for (std::size_t i = 0; i < w; ++i)
            paddedRow[i] = paddedRow[i + w] = static_cast<float>(source[i]);
        float* target = rowPass.data() + row * w;
        std::fill(target, target + w, 0.0f);
        for (std::size_t t = 0; t < foldedOffsets.size(); ++t)
            addScaled(target, paddedRow.data() + foldedOffsets[t], foldedWeights[t], width);
    }

    // Along the range: whole rows are weighted and summed, with the row index
    // wrapping as the texture's t coordinate does.
    foldTaps(height, radius);
    accumulator.resize(w);
    for (std::size_t row = 0; row < h; ++row) {
        std::fill(accumulator.begin(), accumulator.end(), 0.0f);
        for (std::size_t t = 0; t < foldedOffsets.size(); ++t) {
            const std::size_t sourceRow = (row + static_cast<std::size_t>(foldedOffsets[t])) % h;
            addScaled(accumulator.data(), rowPass.data() + sourceRow * w, foldedWeights[t], width);
        }
        std::uint16_t* target = out.data() + row * w;
        for (std::size_t i = 0; i < w; ++i)
            target[i]
                = static_cast<std::uint16_t>(std::clamp(accumulator[i] * 257.0f + 0.5f, 0.0f, 65535.0f));
    }
}

} // namespace Halcyra::Nereon::Visualisation
