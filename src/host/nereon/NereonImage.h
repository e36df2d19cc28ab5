#pragma once

#include <QMetaType>

#include <cstdint>
#include <memory>
#include <vector>

namespace Halcyra::Nereon {

/**
 * One frame of a multibeam imaging sonar: for every beam a column of echo
 * intensities from near to far range, the beams' bearings and the frame's range.
 *
 * The frame is immutable. Copies share the pixel data, so a frame can be passed
 * by value through a queued signal to another thread without copying its pixels.
 */
class NereonImage
{
public:
    /// An empty frame: no beams, no range lines.
    NereonImage();

    /**
     * @param width       number of beams
     * @param height      number of range lines (samples along each beam)
     * @param intensities width × height bytes, row by row, row 0 nearest the sonar
     * @param bearings    one bearing per beam in hundredths of a degree, ascending
     * @param range       distance of the last range line in metres
     * @param gain        the sonar's gain for this frame
     */
    NereonImage(std::uint16_t width, std::uint16_t height, std::vector<std::uint8_t> intensities,
                std::vector<std::int16_t> bearings, double range, double gain);

    /// Number of beams.
    std::uint16_t getWidth() const;
    /// Number of range lines.
    std::uint16_t getHeight() const;
    /// The intensities, getWidth() × getHeight() bytes, row by row, row 0 nearest the sonar.
    const std::vector<std::uint8_t>& getData() const;
    /// One bearing per beam in hundredths of a degree.
    const std::vector<std::int16_t>& getBearings() const;
    /// Distance of the last range line in metres.
    double getRange() const;
    /// The sonar's gain for this frame.
    double getGain() const;

private:
    struct Data;
    static const std::shared_ptr<const Data>& emptyData();

    std::shared_ptr<const Data> d;
};

} // namespace Halcyra::Nereon

Q_DECLARE_METATYPE(Halcyra::Nereon::NereonImage)
