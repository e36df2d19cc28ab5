// Writes palettes.bmp, the picture of the six fixed palettes that the library
// compiles in: 256 × 60 pixels, 24 bits, six bands of ten equal rows, band 0
// (grey scale) at the top. Each band is a ramp through a few key colours,
// interpolated linearly and rounded to the nearest level.
//
// Usage: generate_palettes <output path>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <vector>

namespace {

struct Key
{
    int column;
    int red;
    int green;
    int blue;
};

using Ramp = std::vector<Key>;

// Key colours by column, ascending. Besides each ramp's turning points, a few
// reference colours measured at columns 64, 128 and 192 are keys too, so the
// picture reproduces them exactly; they lie within three levels of the straight
// line between their neighbours, so the ramps keep their shape.
const std::array<Ramp, 6> ramps = { {
    // Grey scale
    { { 0, 1, 1, 1 }, { 64, 95, 95, 95 }, { 67, 98, 98, 98 }, { 128, 153, 153, 153 }, { 192, 213, 213, 213 },
        { 199, 218, 218, 218 }, { 255, 254, 254, 254 } },
    // Bronze: black, brown, orange, cream, white
    { { 0, 2, 1, 0 }, { 64, 126, 80, 0 }, { 126, 242, 154, 0 }, { 129, 243, 159, 12 }, { 160, 255, 243, 204 },
        { 192, 255, 247, 223 }, { 255, 255, 255, 255 } },
    // Blue: navy, blue, cyan, white
    { { 0, 0, 2, 6 }, { 15, 0, 25, 98 }, { 30, 0, 58, 146 }, { 74, 0, 114, 186 }, { 128, 1, 193, 230 },
        { 129, 3, 194, 231 }, { 191, 92, 250, 255 }, { 222, 208, 253, 255 }, { 255, 255, 255, 255 } },
    // Green: dark green, olive, yellow-green, white
    { { 0, 0, 2, 0 }, { 31, 10, 58, 3 }, { 64, 57, 99, 0 }, { 71, 69, 110, 0 }, { 128, 169, 194, 1 },
        { 191, 242, 250, 91 }, { 223, 251, 254, 211 }, { 240, 254, 255, 252 }, { 255, 255, 255, 255 } },
    // Red to yellow
    { { 0, 3, 0, 0 }, { 83, 217, 31, 18 }, { 128, 212, 111, 22 }, { 147, 209, 149, 24 },
        { 169, 206, 191, 27 }, { 255, 253, 234, 25 } },
    // Multicolour: black, dark blue, blue, cyan, green, yellow, white
    { { 0, 0, 0, 0 }, { 8, 0, 0, 9 }, { 17, 0, 0, 38 }, { 39, 0, 0, 129 }, { 53, 0, 11, 162 },
        { 64, 0, 33, 191 }, { 74, 0, 57, 216 }, { 91, 0, 102, 248 }, { 104, 0, 131, 254 },
        { 115, 14, 149, 240 }, { 128, 52, 173, 202 }, { 130, 59, 176, 195 }, { 162, 191, 232, 63 },
        { 177, 238, 249, 16 }, { 189, 254, 255, 0 }, { 192, 255, 255, 0 }, { 197, 255, 255, 6 },
        { 206, 255, 255, 36 }, { 218, 255, 255, 99 }, { 235, 255, 255, 197 }, { 244, 255, 255, 236 },
        { 251, 255, 255, 252 }, { 255, 255, 255, 255 } },
} };

constexpr int imageWidth = 256;
constexpr int rowsPerBand = 10;
constexpr int imageHeight = rowsPerBand * static_cast<int>(ramps.size());
constexpr int headerSize = 54;
constexpr int rowBytes = imageWidth * 3; // a multiple of 4: no row padding
constexpr int fileSize = headerSize + rowBytes * imageHeight;
constexpr int pixelsPerMetre = 5905; // 150 dots an inch

std::uint8_t interpolate(int from, int to, double f)
{
    return static_cast<std::uint8_t>(std::lround(from + (to - from) * f));
}

/// The band's 256 entries as blue, green, red triples, the order BMP stores.
std::vector<std::uint8_t> bandRow(const Ramp& ramp)
{
    std::vector<std::uint8_t> row(rowBytes);
    std::size_t segment = 0;
    for (int x = 0; x < imageWidth; ++x) {
        while (segment + 2 < ramp.size() && x > ramp[segment + 1].column)
            ++segment;
        const Key& a = ramp[segment];
        const Key& b = ramp[segment + 1];
        const double f = static_cast<double>(x - a.column) / (b.column - a.column);
        row[static_cast<std::size_t>(x) * 3 + 0] = interpolate(a.blue, b.blue, f);
        row[static_cast<std::size_t>(x) * 3 + 1] = interpolate(a.green, b.green, f);
        row[static_cast<std::size_t>(x) * 3 + 2] = interpolate(a.red, b.red, f);
    }
    return row;
}

void put16(std::vector<std::uint8_t>& out, std::size_t at, std::uint16_t value)
{
    out[at] = static_cast<std::uint8_t>(value & 0xff);
    out[at + 1] = static_cast<std::uint8_t>(value >> 8);
}

void put32(std::vector<std::uint8_t>& out, std::size_t at, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        out[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xff);
}

std::vector<std::uint8_t> makeBitmap()
{
    std::vector<std::uint8_t> file(fileSize, 0);
    file[0] = 'B';
    file[1] = 'M';
    put32(file, 2, fileSize);
    put32(file, 10, headerSize);
    put32(file, 14, 40);
    put32(file, 18, imageWidth);
    put32(file, 22, imageHeight); // positive: bottom row first
    put16(file, 26, 1);
    put16(file, 28, 24);
    put32(file, 38, pixelsPerMetre);
    put32(file, 42, pixelsPerMetre);

    for (int fileRow = 0; fileRow < imageHeight; ++fileRow) {
        const int band = (imageHeight - 1 - fileRow) / rowsPerBand;
        const std::vector<std::uint8_t> row = bandRow(ramps[static_cast<std::size_t>(band)]);
        std::copy(row.begin(), row.end(), file.begin() + headerSize + fileRow * rowBytes);
    }
    return file;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "Usage: " << (argc > 0 ? argv[0] : "generate_palettes") << " <output path>\n";
        return 2;
    }
    const std::vector<std::uint8_t> bitmap = makeBitmap();
    std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bitmap.data()), static_cast<std::streamsize>(bitmap.size()));
    if (!out) {
        std::cerr << "Cannot write " << argv[1] << '\n';
        return 1;
    }
    return 0;
}
