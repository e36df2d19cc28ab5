#include "engine/IntensityHistogram.h"

#include <algorithm>
#include <cstring>
#include <limits>

// The vector path is chosen by what the compiler targets; every x86-64
// processor has SSE2, other processors take the portable path.
#if defined(__SSE2__)
#define NEREON_HISTOGRAM_SSE2 1
#include <emmintrin.h>
#endif

namespace Halcyra::Nereon::Visualisation {

namespace {

// One histogram a thread, shared by every engine counting there: the GUI
// thread's and each engine's frame worker's.
thread_local IntensityHistogram::Counts threadHistogram;

/**
 * Counts every byte. Runs of equal values (a dark sea is mostly zeros) make a
 * single table stall on store-to-load forwarding, so the bytes are spread over
 * four tables, eight bytes per 64-bit load, and all-zero words are counted in a
 * register without touching memory.
 */
void countAll(const std::uint8_t* data, std::size_t count)
{
    IntensityHistogram::Counts& histogram = threadHistogram;
    alignas(64) std::uint32_t tables[4][256] = {};
    std::uint64_t zeros = 0;

    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, data + i, sizeof word);
        if (word == 0) {
            zeros += 8;
            continue;
        }
        // Shifts take the bytes by value, so the byte order of the load does not matter.
        ++tables[0][word & 0xff];
        ++tables[1][(word >> 8) & 0xff];
        ++tables[2][(word >> 16) & 0xff];
        ++tables[3][(word >> 24) & 0xff];
        ++tables[0][(word >> 32) & 0xff];
        ++tables[1][(word >> 40) & 0xff];
        ++tables[2][(word >> 48) & 0xff];
        ++tables[3][word >> 56];
    }
    for (; i < count; ++i)
        ++tables[0][data[i]];

    for (std::size_t bin = 0; bin < 256; ++bin)
        histogram[bin] = tables[0][bin] + tables[1][bin] + tables[2][bin] + tables[3][bin];
    histogram[0] += static_cast<std::uint32_t>(zeros);
}

/// The bins [0, lowLast] and [highFirst, 255] that the scans from each end are expected to need.
struct HistogramEnds
{
    int lowLast = 255;
    int highFirst = 1;
    double share = 1.0; ///< fraction of the sampled bytes, zeros aside, that fall in the ends
};

/**
 * Guesses from every 61st byte how far in from each end the threshold scans
 * will go, with a wide margin. A bad guess costs time, never accuracy: the
 * counts are checked before they are trusted.
 */
HistogramEnds estimateEnds(const std::uint8_t* data, std::size_t count, std::int64_t target)
{
    constexpr std::size_t stride = 61; // odd, so as not to follow the beams of a row
    std::uint32_t sample[256] = {};
    std::size_t samples = 0;
    for (std::size_t i = 0; i < count; i += stride, ++samples)
        ++sample[data[i]];

    const double wanted
        = 2.0 * static_cast<double>(target) * static_cast<double>(samples) / static_cast<double>(count) + 8.0;
    HistogramEnds ends;
    double sum = 0.0;
    for (int bin = 0; bin <= 255; ++bin) {
        sum += sample[bin];
        if (sum >= wanted) {
            ends.lowLast = bin;
            break;
        }
    }
    sum = 0.0;
    for (int bin = 255; bin >= 1; --bin) {
        sum += sample[bin];
        if (sum >= wanted) {
            ends.highFirst = bin;
            break;
        }
    }

    std::uint32_t inEnds = 0;
    for (int bin = 1; bin <= 255; ++bin) {
        if (bin <= ends.lowLast || bin >= ends.highFirst)
            inEnds += sample[bin];
    }
    ends.share = static_cast<double>(inEnds) / static_cast<double>(samples);
    return ends;
}

// Byte lanes of a 64-bit word, for the portable path.
constexpr std::uint64_t laneOnes = 0x0101010101010101ull;
constexpr std::uint64_t laneHighBits = 0x8080808080808080ull;
constexpr std::uint64_t laneLowBits = 0x7f7f7f7f7f7f7f7full;

/// The high bit of every byte lane where x's byte is at least y's, as unsigned numbers.
constexpr std::uint64_t lanesAtLeast(std::uint64_t x, std::uint64_t y)
{
    // The high bit of t compares the low seven bits; no lane borrows from its neighbour.
    const std::uint64_t t = (x | laneHighBits) - (y & laneLowBits);
    return ((x & ~y) | (~(x ^ y) & t)) & laneHighBits;
}

/// The high bit of every byte lane that is 0.
constexpr std::uint64_t zeroLanes(std::uint64_t x)
{
    return ~(((x & laneLowBits) + laneLowBits) | x) & laneHighBits;
}

/// The remaining bytes one at a time, after a vector loop.
void countEndsTail(const std::uint8_t* data, std::uint8_t* copy, std::size_t i, std::size_t count,
    HistogramEnds ends, std::uint64_t& zeros)
{
    IntensityHistogram::Counts& histogram = threadHistogram;
    for (; i < count; ++i) {
        const std::uint8_t v = data[i];
        if (copy)
            copy[i] = v;
        if (v == 0)
            ++zeros;
        else if (v <= ends.lowLast || v >= ends.highFirst)
            ++histogram[v];
    }
}

/**
 * Copies the bytes (when copy is not null) and counts exactly those in bin 0,
 * in [1, lowLast] and in [highFirst, 255]; the bins in between stay 0. Plain
 * C++: eight byte lanes of a 64-bit word are compared at once, and only the
 * few bytes at the ends go through the table.
 */
void countEndsPortable(const std::uint8_t* data, std::uint8_t* copy, std::size_t count, HistogramEnds ends)
{
    IntensityHistogram::Counts& histogram = threadHistogram;
    histogram.fill(0);
    const std::uint64_t lowLast = laneOnes * static_cast<std::uint64_t>(ends.lowLast);
    const std::uint64_t highFirst = laneOnes * static_cast<std::uint64_t>(ends.highFirst);
    std::uint64_t zeros = 0;

    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, data + i, sizeof word);
        if (copy)
            std::memcpy(copy + i, &word, sizeof word);
        const std::uint64_t isZero = zeroLanes(word);
        // One bit a zero lane, summed into the top byte by the multiplication.
        zeros += ((isZero >> 7) * laneOnes) >> 56;
        std::uint64_t mask = (lanesAtLeast(lowLast, word) & ~isZero) | lanesAtLeast(word, highFirst);
        while (mask != 0) {
            const int shift = __builtin_ctzll(mask) & ~7;
            ++histogram[(word >> shift) & 0xff];
            mask &= mask - 1;
        }
    }
    countEndsTail(data, copy, i, count, ends, zeros);
    histogram[0] = static_cast<std::uint32_t>(zeros);
}

#if defined(NEREON_HISTOGRAM_SSE2)
/**
 * As countEndsPortable, with SSE2: 64 bytes a step, whose lanes in the ends
 * form one 64-bit mask. Bytes in the ends are few and scattered, so the loop
 * over a mask's bits ends unpredictably; one such loop per 64 bytes rather
 * than per 16 saves most of the mispredicted branches.
 */
void countEndsSse2(const std::uint8_t* data, std::uint8_t* copy, std::size_t count, HistogramEnds ends)
{
    IntensityHistogram::Counts& histogram = threadHistogram;
    histogram.fill(0);
    const __m128i zero = _mm_setzero_si128();
    const __m128i lowLast = _mm_set1_epi8(static_cast<char>(ends.lowLast));
    const __m128i highFirst = _mm_set1_epi8(static_cast<char>(ends.highFirst));
    std::uint64_t zeros = 0;

    // One vector: its ends as a 16-bit mask, its zeros added to the lane counters.
    const auto inspect = [&](std::size_t at, __m128i& zeroCounts) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
        if (copy)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(copy + at), v);
        const __m128i isZero = _mm_cmpeq_epi8(v, zero);
        zeroCounts = _mm_sub_epi8(zeroCounts, isZero);
        const __m128i isLow = _mm_andnot_si128(isZero, _mm_cmpeq_epi8(_mm_min_epu8(v, lowLast), v));
        const __m128i isHigh = _mm_cmpeq_epi8(_mm_max_epu8(v, highFirst), v);
        return static_cast<std::uint64_t>(
            static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(isLow, isHigh))));
    };
    const auto countBits = [&](std::size_t at, std::uint64_t mask) {
        while (mask != 0) {
            ++histogram[data[at + static_cast<std::size_t>(__builtin_ctzll(mask))]];
            mask &= mask - 1;
        }
    };
    const auto addZeros = [&](__m128i zeroCounts) {
        const __m128i sums = _mm_sad_epu8(zeroCounts, zero);
        zeros += static_cast<std::uint64_t>(_mm_cvtsi128_si32(sums))
            + static_cast<std::uint64_t>(_mm_extract_epi16(sums, 4));
    };

    std::size_t i = 0;
    const std::size_t stepEnd = count - count % 64;
    while (i < stepEnd) {
        // The 8-bit lane counters take four vectors a step: at most 63 steps.
        const std::size_t blockEnd = std::min(stepEnd, i + 63 * 64);
        __m128i zeroCounts = zero;
        for (; i < blockEnd; i += 64) {
            const std::uint64_t mask = inspect(i, zeroCounts) | inspect(i + 16, zeroCounts) << 16
                | inspect(i + 32, zeroCounts) << 32 | inspect(i + 48, zeroCounts) << 48;
            countBits(i, mask);
        }
        addZeros(zeroCounts);
    }
    __m128i zeroCounts = zero;
    for (; i + 16 <= count; i += 16)
        countBits(i, inspect(i, zeroCounts));
    addZeros(zeroCounts);
    countEndsTail(data, copy, i, count, ends, zeros);
    histogram[0] = static_cast<std::uint32_t>(zeros);
}
#endif

void countEnds(IntensityHistogram::Path path, const std::uint8_t* data, std::uint8_t* copy, std::size_t count,
    HistogramEnds ends)
{
#if defined(NEREON_HISTOGRAM_SSE2)
    if (path == IntensityHistogram::Path::Sse2) {
        countEndsSse2(data, copy, count, ends);
        return;
    }
#else
    static_cast<void>(path);
#endif
    countEndsPortable(data, copy, count, ends);
}

/// Whether the counted ends hold enough bytes for both scans to stop inside them.
bool endsReachTarget(HistogramEnds ends, std::int64_t target)
{
    IntensityHistogram::Counts& histogram = threadHistogram;
    std::int64_t low = 0;
    for (int bin = 0; bin <= ends.lowLast; ++bin)
        low += histogram[static_cast<std::size_t>(bin)];
    std::int64_t high = 0;
    for (int bin = 255; bin >= ends.highFirst; --bin)
        high += histogram[static_cast<std::size_t>(bin)];
    return low >= target && high >= target;
}

} // namespace

IntensityHistogram::Path IntensityHistogram::nativePath()
{
#if defined(NEREON_HISTOGRAM_SSE2)
    return Path::Sse2;
#else
    return Path::Portable;
#endif
}

std::vector<IntensityHistogram::Path> IntensityHistogram::availablePaths()
{
    std::vector<Path> paths { Path::Portable };
    if (nativePath() != Path::Portable)
        paths.push_back(nativePath());
    return paths;
}

const char* IntensityHistogram::getName(Path path)
{
    switch (path) {
    case Path::Portable:
        return "portable";
    case Path::Sse2:
        return "sse2";
    }
    return "unknown";
}

std::int64_t IntensityHistogram::thresholdTarget(std::size_t byteCount, float clampLevel)
{
    // Saturate rather than let an oversized product wrap to a negative target.
    const float product = static_cast<float>(byteCount) * clampLevel;
    if (product >= 2147483648.0f)
        return std::numeric_limits<std::int32_t>::max();
    // A negative level behaves like 0, and so does a level that is not a number.
    if (!(product > 0.0f))
        return 0;
    return static_cast<std::int32_t>(product);
}

const IntensityHistogram::Counts& IntensityHistogram::count(
    const std::uint8_t* data, std::uint8_t* copy, std::size_t size, std::int64_t target, Path path)
{
    IntensityHistogram::Counts& histogram = threadHistogram;
    // A target of 0 or less is met by bins 0 and 255 whatever the counts, and
    // one above the byte count by no bin, so no count can change the result.
    if (target <= 0 || target > static_cast<std::int64_t>(size)) {
        if (copy && size > 0)
            std::memcpy(copy, data, size);
        histogram.fill(0);
        return histogram;
    }

    // Small frames are not worth the guess, and when the ends hold many bytes
    // picking them out one by one is slower than counting everything.
    constexpr std::size_t smallFrame = 16 * 1024;
    constexpr double largestShareOfEnds = 0.125;
    if (size >= smallFrame) {
        const HistogramEnds ends = estimateEnds(data, size, target);
        if (ends.share <= largestShareOfEnds) {
            countEnds(path, data, copy, size, ends);
            if (endsReachTarget(ends, target))
                return histogram;
            copy = nullptr; // already copied
        }
    }
    if (copy)
        std::memcpy(copy, data, size);
    countAll(copy ? copy : data, size);
    return histogram;
}

IntensityHistogram::Bins IntensityHistogram::findBins(const Counts& counts, std::int64_t target)
{
    Bins bins;
    std::int64_t sum = 0;
    for (int bin = 0; bin <= 255; ++bin) {
        sum += counts[static_cast<std::size_t>(bin)];
        if (sum >= target) {
            bins.lower = bin;
            break;
        }
    }
    sum = 0;
    for (int bin = 255; bin >= 1; --bin) {
        sum += counts[static_cast<std::size_t>(bin)];
        if (sum >= target) {
            bins.upper = bin;
            break;
        }
    }
    return bins;
}

} // namespace Halcyra::Nereon::Visualisation
