#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Visualisation {

/**
 * Counts a frame's intensities for the display thresholds into a histogram
 * that every engine on one thread shares (each thread has its own).
 *
 * The counting has a portable path in plain C++ and, where the compiler
 * targets a processor that has them, vector paths; which one runs by default
 * is fixed when the library is compiled. Every path yields the same counts
 * wherever the threshold scans can look, so the thresholds are bit-identical.
 */
class IntensityHistogram
{
public:
    using Counts = std::array<std::uint32_t, 256>;

    /// Where the scans from each end of a histogram reach a target: a bin, or -1 if none does.
    struct Bins
    {
        int lower = -1;
        int upper = -1;
    };

    /// A counting kernel. `Sse2` exists only in x86-64 builds.
    enum class Path
    {
        Portable,
        Sse2,
    };

    /// The path a build uses: the vector one when compiled for it, else the portable one.
    static Path nativePath();

    /// Every path this build can run, the portable one first.
    static std::vector<Path> availablePaths();

    /// A short lower-case name of the path, for benchmarks and test rows.
    static const char* getName(Path path);

    /**
     * The number of bytes each threshold scan gathers: byteCount × clampLevel
     * in single precision, truncated toward zero, saturated at the largest
     * 32-bit count.
     */
    static std::int64_t thresholdTarget(std::size_t byteCount, float clampLevel);

    /**
     * Fills the shared histogram for scans that stop at target, copying the
     * bytes to copy on the way when it is not null (size bytes). Every bin a
     * scan from either end passes until the target is met holds its exact
     * count; bins between the two stopping points may be left 0. A target of
     * 0 or less, or above size, leaves the whole table 0: no count could move
     * the scans' stopping points then.
     * The returned table stays valid until the next call on the same thread.
     */
    static const Counts& count(const std::uint8_t* data, std::uint8_t* copy, std::size_t size,
        std::int64_t target, Path path = nativePath());

    /**
     * The first bin from 0 upwards, and from 255 down to 1, at which the
     * running sum of counts is at least target (bin 0 is never an upper end).
     */
    static Bins findBins(const Counts& counts, std::int64_t target);
};

} // namespace Halcyra::Nereon::Visualisation
