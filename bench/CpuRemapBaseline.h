#pragma once

#include <QImage>
#include <QRgb>

#include <array>
#include <cstdint>
#include <vector>

/**
 * The plain CPU method a user would otherwise pick to show a sonar fan: a
 * per-pixel lookup table of fractional (beam, range line) coordinates, built
 * once per geometry and size, applied to every frame with a bilinear remap and
 * a 256-entry palette. Single-threaded; the result stays in a QImage.
 */
class CpuRemapBaseline
{
public:
    /**
     * Builds the table for a fan of the given beam bearings (hundredths of a
     * degree, ascending) and range lines, fitted into width x height pixels
     * with 5 % margins as the display fits it.
     */
    void build(int width, int height, const std::vector<std::int16_t>& bearings, int rangeLines);

    /// Remaps one frame (beams x rangeLines bytes, nearest range first) through the palette.
    void remap(const std::uint8_t* data, const std::array<QRgb, 256>& palette, QRgb background);

    const QImage& image() const { return picture; }

private:
    struct Sample
    {
        std::int32_t index = -1; ///< byte index of the upper-left texel; -1 outside the fan
        std::uint16_t fx = 0; ///< fractions towards the next beam and line, in 1/256
        std::uint16_t fy = 0;
    };
    int beams = 0;
    std::vector<Sample> table;
    QImage picture;
};
