#include "TestFrames.h"

#include <cmath>

namespace TestSupport {

std::vector<std::int16_t> evenBearings(int beams, int firstHundredths, int lastHundredths)
{
    std::vector<std::int16_t> bearings(static_cast<size_t>(beams));
    for (int i = 0; i < beams; ++i) {
        const double t = beams > 1 ? double(i) / double(beams - 1) : 0.0;
        bearings[size_t(i)] = static_cast<std::int16_t>(
            std::lround(firstHundredths + t * (lastHundredths - firstHundredths)));
    }
    return bearings;
}

Halcyra::Nereon::NereonImage makeFrame(int beams, int rangeLines, double range,
                                       const std::function<std::uint8_t(int, int)>& intensity,
                                       int firstBearing, int lastBearing)
{
    std::vector<std::uint8_t> data(size_t(beams) * size_t(rangeLines));
    for (int line = 0; line < rangeLines; ++line)
        for (int beam = 0; beam < beams; ++beam)
            data[size_t(line) * size_t(beams) + size_t(beam)] = intensity(beam, line);
    return Halcyra::Nereon::NereonImage(std::uint16_t(beams), std::uint16_t(rangeLines), std::move(data),
                                        evenBearings(beams, firstBearing, lastBearing), range, 1.0);
}

Halcyra::Nereon::NereonImage uniformFrame(int beams, int rangeLines, double range, std::uint8_t value,
                                          int firstBearing, int lastBearing)
{
    return makeFrame(beams, rangeLines, range, [value](int, int) { return value; }, firstBearing,
                     lastBearing);
}

} // namespace TestSupport
