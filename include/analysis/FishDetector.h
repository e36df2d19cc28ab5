#pragma once

#include "TernwickNereonAnalysisExport.h"

#include "analysis/Detection.h"
#include "nereon/NereonImage.h"

#include <memory>
#include <vector>

namespace Halcyra::Nereon::Analysis {

/**
 * Finds echoes in a foreground frame (see BackgroundSubtractor): connected groups
 * of foreground samples, with pieces of one echo joined when the gap between them
 * in metres is small or when they lie along one axis. Sizes are measured in metres
 * at full resolution; the search for groups runs on a copy decimated in range.
 */
class TERNWICK_NEREON_ANALYSIS_EXPORT FishDetector
{
public:
    /// A detector with the default sizes.
    FishDetector();
    ~FishDetector();
    FishDetector(const FishDetector&) = delete;
    FishDetector& operator=(const FishDetector&) = delete;

    /// The echoes in `foreground`, nearest first; none for a malformed frame.
    std::vector<Detection> detect(const NereonImage& foreground);

    /// Echoes shorter than this are dropped, metres (default 0.1).
    void setMinimumLengthM(double metres);
    /// See setMinimumLengthM().
    double getMinimumLengthM() const;
    /// Pieces closer than this are one echo, metres (default 0.12).
    void setJoinGapM(double metres);
    /// See setJoinGapM().
    double getJoinGapM() const;
    /// Pieces lying along one axis are joined across gaps up to this, metres (default 0.3).
    void setJoinAlongAxisM(double metres);
    /// See setJoinAlongAxisM().
    double getJoinAlongAxisM() const;
    /// Range step of the decimated copy searched for groups, metres (default 0.04).
    void setSearchCellM(double metres);
    /// See setSearchCellM().
    double getSearchCellM() const;
    /// Groups of fewer decimated samples than this are speckle (default 3).
    void setMinimumSamples(int samples);
    /// See setMinimumSamples().
    int getMinimumSamples() const;

private:
    class FishDetectorPrivate;
    std::unique_ptr<FishDetectorPrivate> const d;
};

} // namespace Halcyra::Nereon::Analysis
