#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Views {

class EchogramColumns;

/**
 * Coarser copies of a recording's columns, each level pooling 16 entries of the
 * one below, so that a view of a whole day-long recording pools a few thousand
 * entries instead of a million columns. About 7 % more memory than the columns.
 * Entries are aligned on column numbers that are multiples of their span.
 */
class EchogramPyramid
{
public:
    static constexpr std::int64_t factor = 16;

    /// Builds the levels over every kept column (a few milliseconds for a million).
    void build(const EchogramColumns& columns);
    void clear() { levels.clear(); }

    /**
     * Pools the columns `from` to `to` (kept ones, `to` not included) into `out`, which holds
     * the columns' range bins and starts zeroed: the maximum of each bin. Returns the largest
     * range pooled, or 0 when a break lies among them.
     */
    float pool(const EchogramColumns& columns, std::int64_t from, std::int64_t to, std::uint8_t* out) const;

private:
    struct Level
    {
        std::int64_t span = 1; // columns an entry pools
        std::vector<std::uint8_t> bins;
        std::vector<float> ranges; // 0: a break among the entry's columns
    };

    std::vector<Level> levels;
    std::int64_t firstColumn = 0;
    std::int64_t endColumn = 0;
    int rangeBins = 0;
};

} // namespace Halcyra::Nereon::Views
