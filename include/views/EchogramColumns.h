#pragma once

#include "TernwickNereonViewsExport.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Halcyra::Nereon {
class NereonImage;
}

namespace Halcyra::Nereon::Views {

/// How a frame's beams are reduced to one intensity per range.
enum class EchogramReduction
{
    Maximum, ///< the strongest echo of any beam
    Mean, ///< the beams' average, rounded to the nearest byte
};

/**
 * The columns of an echogram: for every frame, its intensities reduced over the
 * beams to one byte per range and max-pooled into a fixed number of range bins
 * (row r falls in bin r × bins / rows, rounded down; with fewer rows than bins,
 * bin b shows row b × rows / bins), nearest range first, with the frame's number,
 * time and range.
 *
 * A frame whose beam count, sample count or range differs from the previous one's
 * starts a new segment, and a break column (no intensities, frame number and time
 * of the frame after it) marks the change, so that columns of different layouts
 * never meet unseen. Columns are numbered from the first ever appended; the
 * oldest can be dropped to bound the memory of a live stream. Each column takes
 * getRangeBins() + 16 bytes: a million frames at 256 bins about 272 MB.
 */
class TERNWICK_NEREON_VIEWS_EXPORT EchogramColumns
{
public:
    /// Range bins a column has unless asked otherwise.
    static constexpr int defaultRangeBins = 256;
    /// The most range bins a column can have.
    static constexpr int maximumRangeBins = 1024;

    /// Empty columns of `rangeBins` bins (clamped to 1..maximumRangeBins).
    explicit EchogramColumns(
        int rangeBins = defaultRangeBins, EchogramReduction reduction = EchogramReduction::Maximum);

    /// Range bins of every column.
    int getRangeBins() const { return rangeBins; }
    /// How the beams are reduced.
    EchogramReduction getReduction() const { return reduction; }

    /**
     * Appends the column of a frame taken at `timestamp` (µs since 1970 UTC), preceded by a
     * break column when its layout differs from the last frame's. False, with nothing added,
     * for a frame that cannot be reduced (see isUsable()).
     */
    bool append(const NereonImage& image, int frameIndex, std::int64_t timestamp);
    /// Makes room for `columns` more columns at once, sparing a long recording's copies while it grows.
    void reserve(std::size_t columns);
    /// Drops the oldest columns until at most `count` are kept; a break left oldest goes too.
    void keepLast(std::size_t count);
    /// Forgets every column; numbering starts again at 0.
    void clear();

    /// Columns kept, breaks included.
    std::size_t size() const { return frameIndices.size() - start; }
    /// Whether no column is kept.
    bool isEmpty() const { return size() == 0; }
    /// Number of the oldest column kept (the columns dropped before it count).
    std::int64_t getFirstColumn() const { return dropped; }
    /// One past the number of the newest column.
    std::int64_t getEndColumn() const { return dropped + static_cast<std::int64_t>(size()); }

    /// The getRangeBins() intensities of a kept column, nearest range first (zeros for a break).
    const std::uint8_t* getColumn(std::int64_t column) const;
    /// The frame's number (for a break, the next frame's).
    int getFrameIndex(std::int64_t column) const;
    /// When the frame was taken, µs since 1970 UTC (for a break, the next frame's time).
    std::int64_t getTimestamp(std::int64_t column) const;
    /// Range of the frame's last row in metres; 0 for a break.
    float getRange(std::int64_t column) const;
    /// Whether a kept column is a break between segments.
    bool isBreak(std::int64_t column) const { return getRange(column) <= 0.0f; }

    /// The first kept column showing frame `frameIndex` or a later one (frame numbers ascend); getEndColumn() if none.
    std::int64_t findFrame(int frameIndex) const;
    /// The first kept column taken at or after `timestamp` (times ascend); getEndColumn() if none.
    std::int64_t findTime(std::int64_t timestamp) const;
    /// Largest range of the kept columns, metres.
    float getLargestRange() const;

    /// Whether a frame has beams, rows, all its bytes and bearings, and a positive finite range.
    static bool isUsable(const NereonImage& image);
    /**
     * Reduces one frame into `out` (`rangeBins` bytes) as append() does. False, leaving `out`
     * untouched, for a frame that is not usable.
     */
    static bool reduceFrame(
        const NereonImage& image, int rangeBins, EchogramReduction reduction, std::uint8_t* out);

private:
    std::size_t at(std::int64_t column) const;
    void pushColumn(int frameIndex, std::int64_t timestamp, float range);

    int rangeBins;
    EchogramReduction reduction;
    // Columns before `start` are dropped but not yet erased: erasing is batched so that
    // dropping one column per frame costs no more than appending.
    std::size_t start = 0;
    std::int64_t dropped = 0;
    std::vector<std::uint8_t> bins;
    std::vector<int> frameIndices;
    std::vector<std::int64_t> timestamps;
    std::vector<float> ranges;
    // Layout of the last frame appended, for telling when a new segment starts.
    int lastBeams = -1;
    int lastRows = -1;
    double lastRange = -1.0;
};

} // namespace Halcyra::Nereon::Views
