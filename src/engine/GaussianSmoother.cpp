#include "engine/GaussianSmoother.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Halcyra::Nereon::Visualisation {

namespace {

// Four floats in one register, with GCC's and Clang's vector extension so that
// the same code becomes SSE on x86-64 and NEON on ARM.
using Float4 = float __attribute__((vector_size(16)));
using Int4 = std::int32_t __attribute__((vector_size(16)));
using Byte4 = std::uint8_t __attribute__((vector_size(4)));
using Short4 = std::uint16_t __attribute__((vector_size(8)));

/// The same bits seen as another vector type of the same size.
template <typename To, typename From> To sameBits(const From& from)
{
    static_assert(sizeof(To) == sizeof(From));
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

/// Bytes as floats, written to two places (the two copies of a padded row).
void bytesToFloats(const std::uint8_t* source, float* first, float* second, std::size_t count)
{
    std::size_t i = 0;
#if defined(__SSE2__)
    // The generic conversion goes through scalar registers on SSE2; widening
    // by unpacking with zeros does sixteen bytes in a few instructions.
    const __m128i zero = _mm_setzero_si128();
    for (; i + 16 <= count; i += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + i));
        const __m128i low = _mm_unpacklo_epi8(bytes, zero);
        const __m128i high = _mm_unpackhi_epi8(bytes, zero);
        const __m128 values[4] = { _mm_cvtepi32_ps(_mm_unpacklo_epi16(low, zero)),
            _mm_cvtepi32_ps(_mm_unpackhi_epi16(low, zero)), _mm_cvtepi32_ps(_mm_unpacklo_epi16(high, zero)),
            _mm_cvtepi32_ps(_mm_unpackhi_epi16(high, zero)) };
        for (std::size_t k = 0; k < 4; ++k) {
            _mm_storeu_ps(first + i + 4 * k, values[k]);
            _mm_storeu_ps(second + i + 4 * k, values[k]);
        }
    }
#endif
    for (; i + 4 <= count; i += 4) {
        Byte4 bytes;
        std::memcpy(&bytes, source + i, sizeof bytes);
        const Float4 values = __builtin_convertvector(bytes, Float4);
        std::memcpy(first + i, &values, sizeof values);
        std::memcpy(second + i, &values, sizeof values);
    }
    for (; i < count; ++i)
        first[i] = second[i] = static_cast<float>(source[i]);
}

/// Fractions of a byte's full scale (0..255) as 16-bit fractions, rounded and clamped.
void floatsToFractions(const float* source, std::uint16_t* target, std::size_t count)
{
    std::size_t i = 0;
#if defined(__SSE2__)
    // SSE2 packs 32-bit integers to 16 bits with signed saturation only: the
    // clamped values are moved into the signed range and back.
    const __m128 scaleBy = _mm_set1_ps(257.0f);
    const __m128 halfStep = _mm_set1_ps(0.5f);
    const __m128 lowest = _mm_setzero_ps();
    const __m128 highest = _mm_set1_ps(65535.0f);
    const __m128i signedShift = _mm_set1_epi32(32768);
    const __m128i signBits = _mm_set1_epi16(static_cast<short>(0x8000));
    const auto toIntegers = [&](const float* from) {
        const __m128 v = _mm_add_ps(_mm_mul_ps(_mm_loadu_ps(from), scaleBy), halfStep);
        const __m128 clamped = _mm_min_ps(_mm_max_ps(v, lowest), highest);
        return _mm_sub_epi32(_mm_cvttps_epi32(clamped), signedShift);
    };
    for (; i + 8 <= count; i += 8) {
        const __m128i packed = _mm_packs_epi32(toIntegers(source + i), toIntegers(source + i + 4));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(target + i), _mm_xor_si128(packed, signBits));
    }
#endif
    const Float4 scale = { 257.0f, 257.0f, 257.0f, 257.0f };
    const Float4 half = { 0.5f, 0.5f, 0.5f, 0.5f };
    const Float4 zero = {};
    const Float4 largest = { 65535.0f, 65535.0f, 65535.0f, 65535.0f };
    for (; i + 4 <= count; i += 4) {
        Float4 v;
        std::memcpy(&v, source + i, sizeof v);
        v = v * scale + half;
        // Clamped by masks: vector ?: is not in every compiler's C++.
        const Int4 below = v < zero;
        const Int4 above = v > largest;
        const Float4 clamped
            = sameBits<Float4>((sameBits<Int4>(v) & ~below & ~above) | (sameBits<Int4>(largest) & above));
        const Short4 fractions = __builtin_convertvector(__builtin_convertvector(clamped, Int4), Short4);
        std::memcpy(target + i, &fractions, sizeof fractions);
    }
    for (; i < count; ++i)
        target[i] = static_cast<std::uint16_t>(std::clamp(source[i] * 257.0f + 0.5f, 0.0f, 65535.0f));
}

/**
 * out[i] = sum over t of weights[t] * sources[t][i], for i < count, the taps
 * added in order from 0 to each element: the inner loop of both passes.
 * Sixteen elements at a time stay in registers across all taps. x86-64
 * processors with AVX2 run a copy built for them (chosen once, when the
 * library loads), with twice as wide registers; neither copy fuses the
 * multiply and the add, so both give the same bits.
 */
#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
void weightedSum(float* out, const float* const* sources, const float* weights, std::size_t taps, int count)
{
    using Float8 = float __attribute__((vector_size(32)));
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        Float8 a0 = {};
        Float8 a1 = {};
        for (std::size_t t = 0; t < taps; ++t) {
            const float w = weights[t];
            Float8 s0, s1;
            std::memcpy(&s0, sources[t] + i, sizeof s0);
            std::memcpy(&s1, sources[t] + i + 8, sizeof s1);
            a0 += w * s0;
            a1 += w * s1;
        }
        std::memcpy(out + i, &a0, sizeof a0);
        std::memcpy(out + i + 8, &a1, sizeof a1);
    }
    for (; i < count; ++i) {
        float a = 0.0f;
        for (std::size_t t = 0; t < taps; ++t)
            a += weights[t] * sources[t][i];
        out[i] = a;
    }
}

} // namespace

int GaussianSmoother::radiusForLevel(int level)
{
    if (level < 3)
        return 0;
    return std::min((level - 1) / 2, maximumRadius);
}

void GaussianSmoother::foldTaps(int length, int radius, Taps& folded)
{
    // A kernel wider than the texture wraps onto itself: taps that land on the
    // same texel are merged into one, so the passes below stay exact.
    const int taps = std::min(2 * radius + 1, length);
    std::vector<float>& foldedWeights = folded.weights;
    std::vector<int>& foldedOffsets = folded.offsets;
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

    foldTaps(width, radius, rowTaps);
    foldTaps(height, radius, columnTaps);
    const std::vector<float>& rowWeights = rowTaps.weights;
    const std::vector<int>& rowOffsets = rowTaps.offsets;
    const std::vector<float>& columnWeights = columnTaps.weights;
    const std::vector<int>& columnOffsets = columnTaps.offsets;
    const std::size_t rowCount = rowOffsets.size();
    const std::size_t columnCount = columnOffsets.size();

    // The pass along the range needs the pass along the beams of the rows
    // around each output row only: those rows are kept in a ring one slot
    // larger than the kernel, made when first needed, so that they are still
    // in the cache when they are summed. Only the rows that wrap from the far
    // edge back to the first rows are made twice.
    const std::size_t slots = columnCount + 1;
    rowPass.resize(slots * w);
    slotRows.assign(slots, -1);
    paddedRow.resize(2 * w);
    rowSources.resize(rowCount);
    columnSources.resize(columnCount);
    accumulator.resize(w);

    const auto makeRow = [&](std::size_t sourceRow, float* target) {
        // Each row is laid out twice, so that a tap at offset k of texel i
        // reads index i + k without a modulo.
        bytesToFloats(data + sourceRow * w, paddedRow.data(), paddedRow.data() + w, w);
        for (std::size_t t = 0; t < rowCount; ++t)
            rowSources[t] = paddedRow.data() + rowOffsets[t];
        weightedSum(target, rowSources.data(), rowWeights.data(), rowCount, width);
    };

    slotOfRow.assign(h, -1);
    tapAtDistance.assign(h, 0);
    for (const int offset : columnOffsets)
        tapAtDistance[static_cast<std::size_t>(offset)] = 1;
    std::size_t nextSlot = 0;
    for (std::size_t row = 0; row < h; ++row) {
        for (std::size_t t = 0; t < columnCount; ++t) {
            // The row index wraps as the texture's t coordinate does.
            const std::size_t sourceRow = (row + static_cast<std::size_t>(columnOffsets[t])) % h;
            if (slotOfRow[sourceRow] < 0) {
                // The next slot in turn whose row this output row does not use.
                while (slotRows[nextSlot] >= 0
                    && tapAtDistance[(static_cast<std::size_t>(slotRows[nextSlot]) + h - row) % h])
                    nextSlot = (nextSlot + 1) % slots;
                if (slotRows[nextSlot] >= 0)
                    slotOfRow[static_cast<std::size_t>(slotRows[nextSlot])] = -1;
                makeRow(sourceRow, rowPass.data() + nextSlot * w);
                slotRows[nextSlot] = static_cast<std::ptrdiff_t>(sourceRow);
                slotOfRow[sourceRow] = static_cast<std::ptrdiff_t>(nextSlot);
            }
            columnSources[t] = rowPass.data() + static_cast<std::size_t>(slotOfRow[sourceRow]) * w;
        }
        weightedSum(accumulator.data(), columnSources.data(), columnWeights.data(), columnCount, width);
        floatsToFractions(accumulator.data(), out.data() + row * w, w);
    }
}

} // namespace Halcyra::Nereon::Visualisation
