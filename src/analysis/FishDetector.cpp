#include "analysis/FishDetector.h"

#include "FishDetectorPrivate.h"

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
        return { std::sqrt(mean + root), std::sqrt(std::max(0.0, mean - root)) };
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
    while (parent[std::size_t(i)] != i) {
        parent[std::size_t(i)] = parent[std::size_t(parent[std::size_t(i)])];
        i = parent[std::size_t(i)];
    }
    return i;
}

int findRoot(std::vector<Run>& runs, int i)
{
    while (runs[std::size_t(i)].parent != i) {
        runs[std::size_t(i)].parent = runs[std::size_t(runs[std::size_t(i)].parent)].parent;
        i = runs[std::size_t(i)].parent;
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

    // Groups are searched on a copy decimated in range (the largest sample of each
    // block keeps thin echoes), as runs of lit cells along each row joined to the
    // runs they touch in the row before. The foreground is sparse: labelling runs
    // costs a fraction of labelling every cell (OpenCV's connected components
    // took half of the whole count's time).
    std::vector<Run>& runs = d->runs;
    runs.clear();
    std::vector<std::uint8_t>& line = d->line;
    line.resize(std::size_t(width));
    std::size_t previousFirst = 0;
    for (int r = 0; r < rows; ++r) {
        const int first = r * factor;
        const int last = std::min(height, first + factor);
        const std::uint8_t* in = data + std::size_t(first) * width;
        std::copy(in, in + width, line.begin());
        for (int row = first + 1; row < last; ++row) {
            in = data + std::size_t(row) * width;
            for (int b = 0; b < width; ++b)
                line[b] = std::max(line[b], in[b]);
        }
        const std::size_t rowFirst = runs.size();
        for (int b = 0; b < width; ++b) {
            if (line[b] == 0)
                continue;
            Run run;
            run.row = r;
            run.beam0 = b;
            while (b + 1 < width && line[b + 1] != 0)
                ++b;
            run.beam1 = b;
            run.parent = int(runs.size());
            runs.push_back(run);
        }
        // Join to the runs of the row before that touch (8-connectivity).
        std::size_t k = previousFirst;
        for (std::size_t i = rowFirst; i < runs.size(); ++i) {
            while (k < rowFirst && runs[k].beam1 < runs[i].beam0 - 1)
                ++k;
            for (std::size_t j = k; j < rowFirst && runs[j].beam0 <= runs[i].beam1 + 1; ++j) {
                const int a = findRoot(runs, int(i)), c = findRoot(runs, int(j));
                runs[std::size_t(std::max(a, c))].parent = std::min(a, c);
            }
        }
        previousFirst = rowFirst;
    }
    if (runs.empty())
        return detections;

    // Geometry of beams and range lines.
    std::vector<double>& sines = d->sines;
    std::vector<double>& cosines = d->cosines;
    sines.resize(std::size_t(width));
    cosines.resize(std::size_t(width));
    const auto& bearings = foreground.getBearings();
    for (int b = 0; b < width; ++b) {
        const double angle = bearings[b] / 100.0 / degreesPerRadian;
        sines[b] = std::sin(angle);
        cosines[b] = std::cos(angle);
    }
    const double beamStep = width > 1
        ? std::abs(bearings[width - 1] - bearings[0]) / 100.0 / degreesPerRadian / (width - 1)
        : 0.0;
    const double cellM = rowM * factor;

    // One piece per connected group of runs; speckle (too few cells) is dropped.
    std::vector<int> pieceOfRoot(runs.size(), -1);
    std::vector<Piece> pieces;
    std::vector<int> pieceOfRun(runs.size());
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const int root = findRoot(runs, int(i));
        if (pieceOfRoot[std::size_t(root)] < 0) {
            pieceOfRoot[std::size_t(root)] = int(pieces.size());
            pieces.emplace_back();
            pieces.back().beam0 = width;
            pieces.back().row0 = rows;
            pieces.back().beam1 = pieces.back().row1 = -1;
        }
        const int index = pieceOfRoot[std::size_t(root)];
        pieceOfRun[i] = index;
        Piece& p = pieces[std::size_t(index)];
        const Run& run = runs[i];
        p.beam0 = std::min(p.beam0, run.beam0);
        p.beam1 = std::max(p.beam1, run.beam1);
        p.row0 = std::min(p.row0, run.row);
        p.row1 = std::max(p.row1, run.row);
        p.cells += run.beam1 - run.beam0 + 1;
        const double range = (run.row + 0.5) * cellM;
        for (int b = run.beam0; b <= run.beam1; ++b)
            p.moments.add(range * sines[b], range * cosines[b], 1.0);
    }
    std::vector<int> kept;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (pieces[i].cells >= d->minimumSamples)
            kept.push_back(int(i));
    }
    if (kept.empty())
        return detections;

    // Pieces of one echo: close in metres, or lying along one axis. Sorted by their
    // first row, a piece is compared only with those starting near enough in range,
    // so that a frame full of speckle costs little more than a quiet one.
    std::sort(kept.begin(), kept.end(),
        [&](int a, int b) { return pieces[std::size_t(a)].row0 < pieces[std::size_t(b)].row0; });
    std::vector<int> parent(pieces.size());
    std::iota(parent.begin(), parent.end(), 0);
    const double reach = std::max(d->joinGapM, d->joinAlongAxisM);
    for (std::size_t i = 0; i < kept.size(); ++i) {
        const Piece& a = pieces[std::size_t(kept[i])];
        for (std::size_t j = i + 1; j < kept.size(); ++j) {
            const Piece& b = pieces[std::size_t(kept[j])];
            const double a0 = a.row0 * cellM, a1 = (a.row1 + 1) * cellM;
            const double b0 = b.row0 * cellM, b1 = (b.row1 + 1) * cellM;
            if (b0 - a1 > reach)
                break;
            const double dr = std::max({ 0.0, b0 - a1, a0 - b1 });
            const double dAngle
                = std::max({ 0.0, (b.beam0 - a.beam1 - 1) * beamStep, (a.beam0 - b.beam1 - 1) * beamStep });
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
                join = along >= 2.0 * acrossSpread
                    && offAxis <= std::max(2.0 * acrossSpread, 0.5 * d->joinGapM);
            }
            if (join)
                parent[std::size_t(findRoot(parent, kept[i]))] = findRoot(parent, kept[j]);
        }
    }

    // One detection per group of pieces, measured at full resolution over its runs.
    std::vector<int> groupOfPiece(pieces.size(), -1);
    std::vector<std::vector<int>> groupRuns;
    for (int piece : kept) {
        const int root = findRoot(parent, piece);
        if (groupOfPiece[std::size_t(root)] < 0) {
            groupOfPiece[std::size_t(root)] = int(groupRuns.size());
            groupRuns.emplace_back();
        }
        groupOfPiece[std::size_t(piece)] = groupOfPiece[std::size_t(root)];
    }
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const int group = groupOfPiece[std::size_t(pieceOfRun[i])];
        if (group >= 0)
            groupRuns[std::size_t(group)].push_back(int(i));
    }

    for (const auto& members : groupRuns) {
        // Visits the lit full-resolution samples of the group's runs.
        auto forEachSample = [&](auto&& visit) {
            for (int i : members) {
                const Run& run = runs[std::size_t(i)];
                const int last = std::min(height, (run.row + 1) * factor);
                for (int row = run.row * factor; row < last; ++row) {
                    const std::uint8_t* in = data + std::size_t(row) * width;
                    const double range = (row + 0.5) * rowM;
                    for (int b = run.beam0; b <= run.beam1; ++b) {
                        if (in[b] != 0)
                            visit(row, b, range, in[b]);
                    }
                }
            }
        };
        Moments moments;
        Moments weighted;
        int samples = 0, peak = 0;
        int firstBeam = width, lastBeam = -1, firstRow = height, lastRow = -1;
        double intensity = 0.0, area = 0.0;
        forEachSample([&](int row, int b, double range, std::uint8_t value) {
            const double x = range * sines[b], y = range * cosines[b];
            moments.add(x, y, 1.0);
            weighted.add(x, y, value);
            ++samples;
            peak = std::max<int>(peak, value);
            intensity += value;
            area += range * beamStep * rowM;
            firstBeam = std::min(firstBeam, b);
            lastBeam = std::max(lastBeam, b);
            firstRow = std::min(firstRow, row);
            lastRow = std::max(lastRow, row);
        });
        if (samples == 0)
            continue;

        Detection det;
        det.axisAngle = moments.axisAngle();
        const double ux = std::cos(det.axisAngle), uy = std::sin(det.axisAngle);
        double minAlong = HUGE_VAL, maxAlong = -HUGE_VAL, minAcross = HUGE_VAL, maxAcross = -HUGE_VAL;
        const double cx = moments.cx(), cy = moments.cy();
        forEachSample([&](int, int b, double range, std::uint8_t) {
            const double x = range * sines[b] - cx, y = range * cosines[b] - cy;
            const double a = x * ux + y * uy, c = y * ux - x * uy;
            minAlong = std::min(minAlong, a);
            maxAlong = std::max(maxAlong, a);
            minAcross = std::min(minAcross, c);
            maxAcross = std::max(maxAcross, c);
        });
        det.xM = weighted.cx();
        det.yM = weighted.cy();
        det.rangeM = std::hypot(det.xM, det.yM);
        det.bearingDeg = std::atan2(det.xM, det.yM) * degreesPerRadian;
        // Sample centres span one range step less than the echo. Across the beams no
        // step is added: a beam's own width already smears the echo over about one more
        // beam than the body covers.
        const double rx = det.xM / std::max(det.rangeM, 1e-9), ry = det.yM / std::max(det.rangeM, 1e-9);
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
