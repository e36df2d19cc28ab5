#pragma once

#include "nereon/NereonImage.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace TestSupport {

/// Bearings in hundredths of a degree spread evenly from first to last.
std::vector<std::int16_t> evenBearings(int beams, int firstHundredths, int lastHundredths);

/// A frame whose intensity at (beam, rangeLine) comes from the function.
Halcyra::Nereon::NereonImage makeFrame(int beams, int rangeLines, double range,
                                       const std::function<std::uint8_t(int beam, int line)>& intensity,
                                       int firstBearing = -6500, int lastBearing = 6500);

/// A frame of one intensity everywhere.
Halcyra::Nereon::NereonImage uniformFrame(int beams, int rangeLines, double range, std::uint8_t value,
                                          int firstBearing = -6500, int lastBearing = 6500);

} // namespace TestSupport
