#include "ArisFrameDecoder.h"

#include "ArisBeamAngles.h"
#include "ArisFrameHeader.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace Halcyra::Nereon::Sources {

namespace {

bool refuse(QString* problem, const QString& why)
{
    if (problem)
        *problem = why;
    return false;
}

} // namespace

bool ArisFrameDecoder::decode(const ArisFrameHeader& header, const std::uint8_t* samples, std::size_t sampleCount,
    SourceFrame& out, QString* problem)
{
    const int beams = header.getBeamCount();
    const std::uint64_t expected = header.getSampleCount();
    if (beams == 0 || expected == 0 || sampleCount != expected || !samples)
        return refuse(problem, QStringLiteral("%1 samples for %2 beams of %3 samples").arg(sampleCount).arg(beams).arg(header.samplesPerBeam));
    const float* centres = ArisBeamAngles::getCentres(header.systemType, beams, header.largeLens != 0);
    if (!centres)
        return refuse(problem, QStringLiteral("no beam-angle table for %1 with %2 beams%3")
                                   .arg(header.getModel().isEmpty() ? QStringLiteral("system type %1").arg(header.systemType)
                                                                    : header.getModel())
                                   .arg(beams)
                                   .arg(header.largeLens ? QStringLiteral(" and the telephoto lens") : QString()));

    const double spacing = header.getSampleSpacing();
    const double start = header.getWindowStart();
    const double padding = std::max(0.0, std::round(start / spacing - 0.5));
    const std::uint64_t rows = std::uint64_t(padding) + header.samplesPerBeam;
    if (rows > std::numeric_limits<std::uint16_t>::max())
        return refuse(problem, QStringLiteral("window from %1 m reaches beyond %2 rows")
                                   .arg(start, 0, 'f', 2)
                                   .arg(std::numeric_limits<std::uint16_t>::max()));
    const int firstRow = int(padding);
    const int height = int(rows);
    const int samplesPerBeam = int(header.samplesPerBeam);

    std::vector<std::int16_t> bearings(static_cast<std::size_t>(beams));
    for (int column = 0; column < beams; ++column)
        bearings[std::size_t(column)] = std::int16_t(
            std::lround(ArisBeamAngles::bearingOf(centres[beams - 1 - column]) * 100.0));

    // Column c shows beam (beams - 1 - c): each row is reversed on the way in.
    std::vector<std::uint8_t> intensities(std::size_t(height) * std::size_t(beams), 0);
    for (int k = 0; k < samplesPerBeam; ++k) {
        const std::uint8_t* source = samples + std::size_t(k) * std::size_t(beams);
        std::uint8_t* target = intensities.data() + std::size_t(firstRow + k) * std::size_t(beams);
        for (int column = 0; column < beams; ++column)
            target[column] = source[beams - 1 - column];
    }

    out.image = NereonImage(std::uint16_t(beams), std::uint16_t(height), std::move(intensities),
        std::move(bearings), double(height) * spacing, double(header.receiverGain));
    out.timestamp = header.getTimestamp();
    out.windowStart = start;
    out.firstSampleRow = firstRow;
    return true;
}

} // namespace Halcyra::Nereon::Sources
