#include "EchogramPyramid.h"

#include "views/EchogramColumns.h"

#include <algorithm>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Halcyra::Nereon::Views {

namespace {

/// dst[i] = max(dst[i], src[i]) for `size` bytes.
void maximumInto(std::uint8_t* dst, const std::uint8_t* src, std::size_t size)
{
    std::size_t i = 0;
#ifdef __SSE2__
    for (; i + 16 <= size; i += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dst + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_max_epu8(a, b));
    }
#endif
    for (; i < size; ++i)
        dst[i] = std::max(dst[i], src[i]);
}

/// Pools one more range in: a break anywhere makes the whole a break.
float poolRange(float pooled, float range, bool first)
{
    if (first)
        return range;
    return (pooled <= 0.0f || range <= 0.0f) ? 0.0f : std::max(pooled, range);
}

} // namespace

void EchogramPyramid::build(const EchogramColumns& columns)
{
    levels.clear();
    firstColumn = columns.getFirstColumn();
    endColumn = columns.getEndColumn();
    rangeBins = columns.getRangeBins();
    const auto bins = static_cast<std::size_t>(rangeBins);
    // Level 0 would be the columns themselves; levels start at 16 columns an entry.
    for (std::int64_t span = factor; (endColumn - firstColumn) / span >= 4; span *= factor) {
        Level level;
        level.span = span;
        const std::int64_t firstEntry = firstColumn / span;
        const std::int64_t endEntry = (endColumn + span - 1) / span;
        level.bins.assign(static_cast<std::size_t>(endEntry - firstEntry) * bins, 0);
        level.ranges.assign(static_cast<std::size_t>(endEntry - firstEntry), 0.0f);
        const Level* below = levels.empty() ? nullptr : &levels.back();
        for (std::int64_t k = firstEntry; k < endEntry; ++k) {
            const auto at = static_cast<std::size_t>(k - firstEntry);
            std::uint8_t* out = level.bins.data() + at * bins;
            const std::int64_t from = std::max(k * span, firstColumn);
            const std::int64_t to = std::min((k + 1) * span, endColumn);
            float range = 0.0f;
            if (!below) {
                for (std::int64_t c = from; c < to; ++c) {
                    range = poolRange(range, columns.getRange(c), c == from);
                    maximumInto(out, columns.getColumn(c), bins);
                }
            } else {
                const std::int64_t belowFirst = firstColumn / below->span;
                for (std::int64_t j = from / below->span; j * below->span < to; ++j) {
                    const auto b = static_cast<std::size_t>(j - belowFirst);
                    range = poolRange(range, below->ranges[b], j == from / below->span);
                    maximumInto(out, below->bins.data() + b * bins, bins);
                }
            }
            level.ranges[at] = range;
        }
        levels.push_back(std::move(level));
    }
}

float EchogramPyramid::pool(
    const EchogramColumns& columns, std::int64_t from, std::int64_t to, std::uint8_t* out) const
{
    const auto bins = static_cast<std::size_t>(columns.getRangeBins());
    const bool usable = !levels.empty() && rangeBins == columns.getRangeBins()
        && firstColumn == columns.getFirstColumn() && endColumn == columns.getEndColumn();
    float range = 0.0f;
    bool first = true;
    std::int64_t column = from;
    while (column < to) {
        // The coarsest entry that starts here and ends inside the span, else one column.
        const Level* chosen = nullptr;
        if (usable) {
            for (auto level = levels.rbegin(); level != levels.rend(); ++level) {
                if (column % level->span == 0 && column + level->span <= to) {
                    chosen = &*level;
                    break;
                }
            }
        }
        if (chosen) {
            const auto at = static_cast<std::size_t>(column / chosen->span - firstColumn / chosen->span);
            range = poolRange(range, chosen->ranges[at], first);
            maximumInto(out, chosen->bins.data() + at * bins, bins);
            column += chosen->span;
        } else {
            range = poolRange(range, columns.getRange(column), first);
            maximumInto(out, columns.getColumn(column), bins);
            ++column;
        }
        first = false;
    }
    return range;
}

} // namespace Halcyra::Nereon::Views
