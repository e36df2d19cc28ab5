#include "analysis/FishDetector.h"

#include "FishDetectorPrivate.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace Halcyra::Nereon::Analysis {

namespace {

constexpr double degreesPerRadian = 180.0 / M_PI;

bool isWellFormed(const NereonImage& image)
{
    const std::size_t samples = std::size_t(image.getWidth()) * image.getHeight();
    return samples > 0 && image.getData().size() == samples && image.getBearings().size() == image.getWidth()
        && std::isfinite(image.getRange()) && image.getRange() > 0.0;
}

/// Moments of a set of points in metres, for centre and main axis.
struct Moments
{
    double weight = 0.0;
    double sx = 0.0, sy = 0.0, sxx = 0.0, syy = 0.0, sxy = 0.0;

    void add(double x, double y, double w)
    {
        weight += w;
        sx += w * x;
        sy += w * y;
        sxx += w * x * x;
        syy += w * y * y;
        sxy += w * x * y;
    }
    void add(const Moments& o)
    {
        weight += o.weight;
        sx += o.sx;
        sy += o.sy;
        sxx += o.sxx;
        syy += o.syy;
        sxy += o.sxy;
    }
    double cx() const { return sx / weight; }
    double cy() const { return sy / weight; }
    /// Angle of the main axis from the x axis, radians.
    double axisAngle() const
    {
        const double vxx = sxx / weight - cx() * cx();
        const double vyy = syy / weight - cy() * cy();
        const double vxy = sxy / weight - cx() * cy();
        return 0.5 * std::atan2(2.0 * vxy, vxx - vyy);
    }
    /// Spread along and across the main axis (standard deviations, metres).
    std::pair<double, double> spreads() const
    {
        const double vxx = std::max(0.0, sxx / weight - cx() * cx());
        const double vyy = std::max(0.0, syy / weight - cy() * cy());
        const double vxy = sxy / weight - cx() * cy();
        const double mean = 0.5 * (vxx + vyy);
        const double root = std::sqrt(0.25 * (vxx - vyy) * (vxx - vyy) + vxy * vxy);
        return {std::sqrt(mean + root), std::sqrt(std::max(0.0, mean - root))};
    }
};

/// A connected group of the decimated mask.
struct Piece
{
    int beam0 = 0, beam1 = 0, row0 = 0, row1 = 0; // decimated rows, inclusive
    int cells = 0;
    Moments moments;
};

int findRoot(std::vector<int>& parent, int i)
{
    while (parent[i] != i) {
        parent[i] = parent[parent[i]];
        i = parent[i];
    }
    return i;
}

} // namespace

FishDetector::FishDetector()
    : d(std::make_unique<FishDetectorPrivate>())
{
}

FishDetector::~FishDetector() = default;

std::vector<Detection> FishDetector::detect(const NereonImage& foreground)
{
    std::vector<Detection> detections;
    if (!isWellFormed(foreground))
        return detections;

    const int width = foreground.getWidth();
    const int height = foreground.getHeight();
    const double rowM = foreground.getRange() / height;
    const int factor = std::max(1, int(d->searchCellM / rowM));
    const int rows = (height + factor - 1) / factor;
    const std::uint8_t* data = foreground.getData().data();

    // Searching a copy decimated in range (the largest sample of each block) keeps
    // thin echoes and makes the search cheap on long beams.
    cv::Mat mask(rows, width, CV_8U);
    bool any = false;
    for (int r = 0; r < rows; ++r) {
        std::uint8_t* out = mask.ptr<std::uint8_t>(r);
        const int first = r * factor;
        const int last = std::min(height, first + factor);
        std::copy(data + std::size_t(first) * width, data + std::size_t(first + 1) * width, out);
        for (int row = first + 1; row < last; ++row) {
            const std::uint8_t* in = data + std::size_t(row) * width;
            for (int b = 0; b < width; ++b)
                out[b] = std::max(out[b], in[b]);
        }
        for (int b = 0; b < width && !any; ++b)
            any = out[b] != 0;
    }
    if (!any)
        return detections;

    // Geometry of beams and range lines.
    std::vector<double> sines(width), cosines(width), angles(width);
    const auto& bearings = foreground.getBearings();
    for (int b = 0; b < width; ++b) {
        angles[b] = bearings[b] / 100.0 / degreesPerRadian;
        sines[b] = std::sin(angles[b]);
        cosines[b] = std::cos(angles[b]);
    }
    const double beamStep = width > 1 ? std::abs(angles[width - 1] - angles[0]) / (width - 1) : 0.0;
    auto rangeOfRow = [rowM](double row) { return (row + 0.5) * rowM; };
    const double cellM = rowM * factor;

    cv::Mat labels;
    cv::Mat stats;
    cv::Mat centroids;
    const int count = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S);

    std::vector<Piece> pieces(count);
    std::vector<int> pieceOf(count, -1);
    std::vector<int> kept;
    for (int label = 1; label < count; ++label) {
        if (stats.at<int>(label, cv::CC_STAT_AREA) < d->minimumSamples)
            continue;
        Piece& p = pieces[label];
        p.beam0 = stats.at<int>(label, cv::CC_STAT_LEFT);
        p.beam1 = p.beam0 + stats.at<int>(label, cv::CC_STAT_WIDTH) - 1;
        p.row0 = stats.at<int>(label, cv::CC_STAT_TOP);
        p.row1 = p.row0 + stats.at<int>(label, cv::CC_STAT_HEIGHT) - 1;
        p.cells = stats.at<int>(label, cv::CC_STAT_AREA);
        pieceOf[label] = label;
        kept.push_back(label);
    }
    if (kept.empty())
        return detections;

    for (int label : kept) {
        Piece& p = pieces[label];
        for (int r = p.row0; r <= p.row1; ++r) {
            const int* line = labels.ptr<int>(r);
            const double range = (r + 0.5) * cellM;
            for (int b = p.beam0; b <= p.beam1; ++b) {
                if (line[b] == label)
                    p.moments.add(range * sines[b], range * cosines[b], 1.0);
            }
        }
    }

    // Pieces of one echo: close in metres, or lying along one axis.
    std::vector<int> parent(count);
    std::iota(parent.begin(), parent.end(), 0);
    for (std::size_t i = 0; i < kept.size(); ++i) {
        const Piece& a = pieces[kept[i]];
        for (std::size_t j = i + 1; j < kept.size(); ++j) {
            const Piece& b = pieces[kept[j]];
            const double a0 = a.row0 * cellM, a1 = (a.row1 + 1) * cellM;
            const double b0 = b.row0 * cellM, b1 = (b.row1 + 1) * cellM;
            const double dr = std::max({0.0, b0 - a1, a0 - b1});
            const double dAngle = std::max({0.0, (b.beam0 - a.beam1 - 1) * beamStep, (a.beam0 - b.beam1 - 1) * beamStep});
            const double across = std::max(a0, b0) * dAngle;
            const double gap = std::hypot(dr, across);
            bool join = gap <= d->joinGapM;
            if (!join && gap <= d->joinAlongAxisM) {
                const Piece& big = a.cells >= b.cells ? a : b;
                const Piece& small = a.cells >= b.cells ? b : a;
                const auto [along, acrossSpread] = big.moments.spreads();
                const double angle = big.moments.axisAngle();
                const double ux = std::cos(angle), uy = std::sin(angle);
                const double dx = small.moments.cx() - big.moments.cx();
                const double dy = small.moments.cy() - big.moments.cy();
                const double offAxis = std::abs(dx * uy - dy * ux);
                // Only an elongated piece has an axis worth extending.
                join = along >= 2.0 * acrossSpread && offAxis <= std::max(2.0 * acrossSpread, 0.5 * d->joinGapM);
            }
            if (join)
                parent[findRoot(parent, kept[i])] = findRoot(parent, kept[j]);
        }
    }

    // One detection per group, measured at full resolution.
    std::vector<int> groupOf(count, -1);
    std::vector<std::vector<int>> groups;
    for (int label : kept) {
        const int root = findRoot(parent, label);
        if (groupOf[root] < 0) {
            groupOf[root] = int(groups.size());
            groups.emplace_back();
        }
        groupOf[label] = groupOf[root];
        groups[groupOf[root]].push_back(label);
    }

    for (std::size_t g = 0; g < groups.size(); ++g) {
        int beam0 = width, beam1 = -1, row0 = rows, row1 = -1;
        for (int label : groups[g]) {
            const Piece& p = pieces[label];
            beam0 = std::min(beam0, p.beam0);
            beam1 = std::max(beam1, p.beam1);
            row0 = std::min(row0, p.row0);
            row1 = std::max(row1, p.row1);
        }
        Moments moments;
        Moments weighted;
        int samples = 0, peak = 0;
        int firstBeam = width, lastBeam = -1, firstRow = height, lastRow = -1;
        double intensity = 0.0, area = 0.0;
        const int fullRow1 = std::min(height - 1, (row1 + 1) * factor - 1);
        for (int row = row0 * factor; row <= fullRow1; ++row) {
            const int* line = labels.ptr<int>(row / factor);
            const std::uint8_t* in = data + std::size_t(row) * width;
            const double range = rangeOfRow(row);
            for (int b = beam0; b <= beam1; ++b) {
                if (in[b] == 0 || line[b] <= 0 || groupOf[line[b]] != int(g))
                    continue;
                const double x = range * sines[b], y = range * cosines[b];
                moments.add(x, y, 1.0);
                weighted.add(x, y, in[b]);
                ++samples;
                peak = std::max<int>(peak, in[b]);
                intensity += in[b];
                area += range * beamStep * rowM;
                firstBeam = std::min(firstBeam, b);
                lastBeam = std::max(lastBeam, b);
                firstRow = std::min(firstRow, row);
                lastRow = std::max(lastRow, row);
            }
        }
        if (samples == 0)
            continue;

        Detection det;
        det.axisAngle = moments.axisAngle();
        const double ux = std::cos(det.axisAngle), uy = std::sin(det.axisAngle);
        double minAlong = HUGE_VAL, maxAlong = -HUGE_VAL, minAcross = HUGE_VAL, maxAcross = -HUGE_VAL;
        const double cx = moments.cx(), cy = moments.cy();
        for (int row = firstRow; row <= lastRow; ++row) {
            const int* line = labels.ptr<int>(row / factor);
            const std::uint8_t* in = data + std::size_t(row) * width;
            const double range = rangeOfRow(row);
            for (int b = firstBeam; b <= lastBeam; ++b) {
                if (in[b] == 0 || line[b] <= 0 || groupOf[line[b]] != int(g))
                    continue;
                const double x = range * sines[b] - cx, y = range * cosines[b] - cy;
                const double a = x * ux + y * uy, c = y * ux - x * uy;
                minAlong = std::min(minAlong, a);
                maxAlong = std::max(maxAlong, a);
                minAcross = std::min(minAcross, c);
                maxAcross = std::max(maxAcross, c);
            }
        }
        // Sample centres span one range step less than the echo. Across the beams no
        // step is added: a beam's own width already smears the echo over about one more
        // beam than the body covers.
        det.xM = weighted.cx();
        det.yM = weighted.cy();
        det.rangeM = std::hypot(det.xM, det.yM);
        det.bearingDeg = std::atan2(det.xM, det.yM) * degreesPerRadian;
        const double bearingRad = det.bearingDeg / degreesPerRadian;
        // The range direction at the centre.
        const double rx = std::sin(bearingRad), ry = std::cos(bearingRad);
        det.lengthM = maxAlong - minAlong + std::abs(ux * rx + uy * ry) * rowM;
        det.widthM = maxAcross - minAcross + std::abs(uy * rx - ux * ry) * rowM;
        det.extentRangeM = (lastRow - firstRow + 1) * rowM;
        det.extentBearingDeg = (lastBeam - firstBeam + 1) * beamStep * degreesPerRadian;
        det.areaM2 = area;
        det.meanIntensity = intensity / samples;
        det.peakIntensity = peak;
        det.samples = samples;
        det.touchesEdge = firstBeam == 0 || lastBeam == width - 1 || lastRow == height - 1;
        if (det.lengthM >= d->minimumLengthM)
            detections.push_back(det);
    }
    std::sort(detections.begin(), detections.end(),
              [](const Detection& a, const Detection& b) { return a.rangeM < b.rangeM; });
    return detections;
}

void FishDetector::setMinimumLengthM(double metres)
{
    if (std::isfinite(metres) && metres >= 0.0)
        d->minimumLengthM = metres;
}

double FishDetector::getMinimumLengthM() const
{
    return d->minimumLengthM;
}

void FishDetector::setJoinGapM(double metres)
{
    if (std::isfinite(metres) && metres >= 0.0)
        d->joinGapM = metres;
}

double FishDetector::getJoinGapM() const
{
    return d->joinGapM;
}

void FishDetector::setJoinAlongAxisM(double metres)
{
    if (std::isfinite(metres) && metres >= 0.0)
        d->joinAlongAxisM = metres;
}

double FishDetector::getJoinAlongAxisM() const
{
    return d->joinAlongAxisM;
}

void FishDetector::setSearchCellM(double metres)
{
    if (std::isfinite(metres) && metres > 0.0)
        d->searchCellM = metres;
}

double FishDetector::getSearchCellM() const
{
    return d->searchCellM;
}

void FishDetector::setMinimumSamples(int samples)
{
    d->minimumSamples = std::max(1, samples);
}

int FishDetector::getMinimumSamples() const
{
    return d->minimumSamples;
}

} // namespace Halcyra::Nereon::Analysis
