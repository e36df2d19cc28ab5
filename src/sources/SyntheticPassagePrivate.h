#pragma once

#include "sources/SyntheticFishModel.h"
#include "sources/SyntheticPassage.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Halcyra::Nereon::Sources {

class SyntheticPassage::SyntheticPassagePrivate
{
public:
    SyntheticPassageOptions options;
    /// The frames' window as an ARIS file stores it (or as asked, where it cannot).
    ArisWriter::Window window;
    std::vector<std::int16_t> bearings;
    std::unique_ptr<SyntheticFishModel> model;
    std::vector<SyntheticFishPosition> positions;
    /// The bed without speckle, intensity per sample and beam.
    std::vector<float> bed;
    /// Speckle added to the bed, in intensity steps, and factors on a fish's echo.
    std::vector<float> bedSpeckle;
    std::vector<float> fishSpeckle;
    int nextIndex = 0;
};

} // namespace Halcyra::Nereon::Sources
