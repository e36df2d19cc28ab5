#include "CpuRemapBaseline.h"

#include <algorithm>
#include <cmath>

void CpuRemapBaseline::build(int width, int height, const std::vector<std::int16_t>& bearings, int rangeLines)
{
    beams = static_cast<int>(bearings.size());
    picture = QImage(width, height, QImage::Format_RGB32);
    table.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), Sample {});

    const double toRadians = 3.14159265358979323846 / 18000.0;
    const double first = bearings.front() * toRadians;
    const double last = bearings.back() * toRadians;
    // Bounds of the fan in fan units (apex at the origin, +y ahead, rim at 1).
    const double fanWidth = std::sin(last) - std::sin(first);
    const double fanBottom = std::min({ 0.0, std::cos(first), std::cos(last) });
    const double fanHeight = 1.0 - fanBottom;
    const double pixelsPerUnit = 0.9 * std::min(width / fanWidth, height / fanHeight);
    const double centreX = (std::sin(last) + std::sin(first)) / 2.0;
    const double centreY = (1.0 + fanBottom) / 2.0;

    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double fx = (x + 0.5 - width / 2.0) / pixelsPerUnit + centreX;
            const double fy = (height / 2.0 - y - 0.5) / pixelsPerUnit + centreY;
            const double r = std::hypot(fx, fy);
            const double bearing = std::atan2(fx, fy);
            if (r >= 1.0 || bearing < first || bearing > last)
                continue;
            // Fractional beam from the bearing table, fractional line from the range.
            const auto next = std::lower_bound(bearings.begin(), bearings.end(), bearing / toRadians);
            const int upper = std::clamp(static_cast<int>(next - bearings.begin()), 1, beams - 1);
            const double b0 = bearings[static_cast<std::size_t>(upper - 1)];
            const double b1 = bearings[static_cast<std::size_t>(upper)];
            const double beam = upper - 1 + (bearing / toRadians - b0) / std::max(b1 - b0, 1e-9);
            const double line = std::min(r * rangeLines - 0.5, rangeLines - 1.001);
            const int beam0 = std::clamp(static_cast<int>(beam), 0, beams - 2);
            const int line0 = std::clamp(static_cast<int>(std::max(line, 0.0)), 0, rangeLines - 2);
            Sample& sample = table[static_cast<std::size_t>(y) * static_cast<std::size_t>(width)
                + static_cast<std::size_t>(x)];
            sample.index = line0 * beams + beam0;
            sample.fx = static_cast<std::uint16_t>(std::clamp((beam - beam0) * 256.0, 0.0, 256.0));
            sample.fy
                = static_cast<std::uint16_t>(std::clamp((std::max(line, 0.0) - line0) * 256.0, 0.0, 256.0));
        }
    }
}

void CpuRemapBaseline::remap(const std::uint8_t* data, const std::array<QRgb, 256>& palette, QRgb background)
{
    const int width = picture.width();
    for (int y = 0; y < picture.height(); ++y) {
        auto* out = reinterpret_cast<QRgb*>(picture.scanLine(y));
        const Sample* row = table.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
        for (int x = 0; x < width; ++x) {
            const Sample s = row[x];
            if (s.index < 0) {
                out[x] = background;
                continue;
            }
            const std::uint8_t* p = data + s.index;
            const unsigned top = p[0] * (256u - s.fx) + p[1] * s.fx;
            const unsigned bottom = p[beams] * (256u - s.fx) + p[beams + 1] * s.fx;
            out[x] = palette[(top * (256u - s.fy) + bottom * s.fy) >> 16];
        }
    }
}
