#include "views/EchogramColumns.h"

#include "nereon/NereonImage.h"

#include <algorithm>
#include <cmath>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Halcyra::Nereon::Views {

namespace {

/// The largest of `size` bytes; a bin's rows lie next to each other, so a bin is one block.
std::uint8_t blockMaximum(const std::uint8_t* data, std::size_t size)
{
    std::size_t i = 0;
    std::uint8_t result = 0;
#ifdef __SSE2__
    if (size >= 64) {
        __m128i a = _mm_setzero_si128();
        __m128i b = _mm_setzero_si128();
        __m128i c = _mm_setzero_si128();
        __m128i d = _mm_setzero_si128();
        for (; i + 64 <= size; i += 64) {
            a = _mm_max_epu8(a, _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i)));
            b = _mm_max_epu8(b, _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 16)));
            c = _mm_max_epu8(c, _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 32)));
            d = _mm_max_epu8(d, _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 48)));
        }
        __m128i m = _mm_max_epu8(_mm_max_epu8(a, b), _mm_max_epu8(c, d));
        m = _mm_max_epu8(m, _mm_srli_si128(m, 8));
        m = _mm_max_epu8(m, _mm_srli_si128(m, 4));
        m = _mm_max_epu8(m, _mm_srli_si128(m, 2));
        m = _mm_max_epu8(m, _mm_srli_si128(m, 1));
        result = static_cast<std::uint8_t>(_mm_cvtsi128_si32(m) & 0xff);
    }
#endif
    for (; i < size; ++i)
        result = std::max(result, data[i]);
    return result;
}

/// The beams' mean of one row, rounded half up.
std::uint8_t rowMean(const std::uint8_t* row, int beams)
{
    std::uint32_t sum = 0;
    for (int i = 0; i < beams; ++i)
        sum += row[i];
    return static_cast<std::uint8_t>((sum + static_cast<std::uint32_t>(beams) / 2) / static_cast<std::uint32_t>(beams));
}

} // namespace

EchogramColumns::EchogramColumns(int rangeBins, EchogramReduction reduction)
    : rangeBins(std::clamp(rangeBins, 1, maximumRangeBins))
    , reduction(reduction)
{
}

bool EchogramColumns::isUsable(const NereonImage& image)
{
    const std::size_t beams = image.getWidth();
    const std::size_t rows = image.getHeight();
    const double range = image.getRange();
    return beams > 0 && rows > 0 && image.getData().size() >= beams * rows
        && image.getBearings().size() >= beams && std::isfinite(range) && range > 0.0
        && range <= 1.0e6;
}

bool EchogramColumns::reduceFrame(
    const NereonImage& image, int rangeBins, EchogramReduction reduction, std::uint8_t* out)
{
    if (!isUsable(image) || rangeBins < 1)
        return false;
    const int beams = image.getWidth();
    const std::int64_t rows = image.getHeight();
    const std::uint8_t* data = image.getData().data();
    for (std::int64_t bin = 0; bin < rangeBins; ++bin) {
        // Row r falls in bin r × bins / rows; with fewer rows than bins a row fills several bins.
        std::int64_t first = bin * rows / rangeBins;
        std::int64_t last = first + 1;
        if (rows >= rangeBins) {
            first = (bin * rows + rangeBins - 1) / rangeBins;
            last = ((bin + 1) * rows + rangeBins - 1) / rangeBins;
        }
        if (reduction == EchogramReduction::Maximum) {
            out[bin] = blockMaximum(data + first * beams, static_cast<std::size_t>((last - first) * beams));
        } else {
            std::uint8_t value = 0;
            for (std::int64_t row = first; row < last; ++row)
                value = std::max(value, rowMean(data + row * beams, beams));
            out[bin] = value;
        }
    }
    return true;
}

bool EchogramColumns::append(const NereonImage& image, int frameIndex, std::int64_t timestamp)
{
    if (!isUsable(image))
        return false;
    const bool newLayout = image.getWidth() != lastBeams || image.getHeight() != lastRows
        || image.getRange() != lastRange;
    if (newLayout && !isEmpty())
        pushColumn(frameIndex, timestamp, 0.0f);
    lastBeams = image.getWidth();
    lastRows = image.getHeight();
    lastRange = image.getRange();

    const std::size_t offset = bins.size();
    bins.resize(offset + static_cast<std::size_t>(rangeBins));
    reduceFrame(image, rangeBins, reduction, bins.data() + offset);
    frameIndices.push_back(frameIndex);
    timestamps.push_back(timestamp);
    ranges.push_back(static_cast<float>(image.getRange()));
    return true;
}

void EchogramColumns::pushColumn(int frameIndex, std::int64_t timestamp, float range)
{
    bins.resize(bins.size() + static_cast<std::size_t>(rangeBins), 0);
    frameIndices.push_back(frameIndex);
    timestamps.push_back(timestamp);
    ranges.push_back(range);
}

void EchogramColumns::reserve(std::size_t columns)
{
    const std::size_t total = frameIndices.size() + columns;
    bins.reserve(total * static_cast<std::size_t>(rangeBins));
    frameIndices.reserve(total);
    timestamps.reserve(total);
    ranges.reserve(total);
}

void EchogramColumns::keepLast(std::size_t count)
{
    while (size() > count || (!isEmpty() && ranges[start] <= 0.0f)) {
        ++start;
        ++dropped;
    }
    // Erase in batches at least as large as what is kept, so each column is moved O(1) times.
    if (start > 0 && start >= std::max<std::size_t>(size(), 4096)) {
        bins.erase(bins.begin(), bins.begin() + static_cast<std::ptrdiff_t>(start) * rangeBins);
        frameIndices.erase(frameIndices.begin(), frameIndices.begin() + static_cast<std::ptrdiff_t>(start));
        timestamps.erase(timestamps.begin(), timestamps.begin() + static_cast<std::ptrdiff_t>(start));
        ranges.erase(ranges.begin(), ranges.begin() + static_cast<std::ptrdiff_t>(start));
        start = 0;
    }
}

void EchogramColumns::clear()
{
    bins.clear();
    frameIndices.clear();
    timestamps.clear();
    ranges.clear();
    start = 0;
    dropped = 0;
    lastBeams = -1;
    lastRows = -1;
    lastRange = -1.0;
}

std::size_t EchogramColumns::at(std::int64_t column) const
{
    return start + static_cast<std::size_t>(column - dropped);
}

const std::uint8_t* EchogramColumns::getColumn(std::int64_t column) const
{
    return bins.data() + at(column) * static_cast<std::size_t>(rangeBins);
}

int EchogramColumns::getFrameIndex(std::int64_t column) const
{
    return frameIndices[at(column)];
}

std::int64_t EchogramColumns::getTimestamp(std::int64_t column) const
{
    return timestamps[at(column)];
}

float EchogramColumns::getRange(std::int64_t column) const
{
    return ranges[at(column)];
}

std::int64_t EchogramColumns::findFrame(int frameIndex) const
{
    const auto first = frameIndices.begin() + static_cast<std::ptrdiff_t>(start);
    const auto found = std::lower_bound(first, frameIndices.end(), frameIndex);
    return dropped + (found - first);
}

std::int64_t EchogramColumns::findTime(std::int64_t timestamp) const
{
    const auto first = timestamps.begin() + static_cast<std::ptrdiff_t>(start);
    const auto found = std::lower_bound(first, timestamps.end(), timestamp);
    return dropped + (found - first);
}

float EchogramColumns::getLargestRange() const
{
    const auto first = ranges.begin() + static_cast<std::ptrdiff_t>(start);
    return first == ranges.end() ? 0.0f : *std::max_element(first, ranges.end());
}

} // namespace Halcyra::Nereon::Views
