#include "sources/ArisWriter.h"

#include "ArisBeamAngles.h"
#include "ArisFrameHeader.h"
#include "sources/SourceFrame.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace Halcyra::Nereon::Sources {

namespace {

constexpr std::size_t headerSize = 1024;
// The sound speed the sample period is first chosen for; the speed written is then
// adjusted so that the window keeps its length.
constexpr double nominalSoundSpeed = 1460.0;

/// Little-endian writes into a header.
class HeaderWriter
{
public:
    explicit HeaderWriter(std::uint8_t* bytes)
        : bytes(bytes)
    {
    }
    void u32(std::size_t offset, std::uint32_t value)
    {
        for (int i = 0; i < 4; ++i)
            bytes[offset + std::size_t(i)] = std::uint8_t(value >> (8 * i));
    }
    void u64(std::size_t offset, std::uint64_t value)
    {
        for (int i = 0; i < 8; ++i)
            bytes[offset + std::size_t(i)] = std::uint8_t(value >> (8 * i));
    }
    void f32(std::size_t offset, float value)
    {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        u32(offset, bits);
    }
    void text(std::size_t offset, std::size_t size, const QByteArray& value)
    {
        std::memcpy(bytes + offset, value.constData(), std::min(size - 1, std::size_t(value.size())));
    }

private:
    std::uint8_t* bytes;
};

std::uint32_t pingModeOf(int beams)
{
    switch (beams) {
    case 48:
        return 1;
    case 96:
        return 3;
    case 64:
        return 6;
    case 128:
        return 9;
    default:
        return 0;
    }
}

bool refuse(QString* error, const QString& why)
{
    if (error)
        *error = why;
    return false;
}

} // namespace

ArisWriter::ArisWriter() = default;

ArisWriter::~ArisWriter()
{
    close();
}

bool ArisWriter::computeWindow(const ArisWriterOptions& options, Window& out, QString* error)
{
    if (options.samplesPerBeam < 1 || options.samplesPerBeam > int(ArisFrameHeader::maximumSamplesPerBeam))
        return refuse(error,
            QStringLiteral("%1 samples per beam (1 to %2 possible)")
                .arg(options.samplesPerBeam)
                .arg(ArisFrameHeader::maximumSamplesPerBeam));
    if (!(options.windowStart >= 0.0) || !(options.windowLength > 0.0) || !std::isfinite(options.windowStart)
        || !std::isfinite(options.windowLength))
        return refuse(error,
            QStringLiteral("window from %1 m, %2 m long").arg(options.windowStart).arg(options.windowLength));
    const double spacing = options.windowLength / double(options.samplesPerBeam);
    const double period = std::max(1.0, std::round(2.0 * spacing / (nominalSoundSpeed * 1e-6)));
    const float soundSpeed = float(2.0 * spacing / (period * 1e-6));
    if (period > 1000.0 || soundSpeed < 1000.0f || soundSpeed > 2000.0f)
        return refuse(
            error, QStringLiteral("a sample every %1 mm cannot be stored").arg(spacing * 1000.0, 0, 'f', 3));

    Window window;
    window.samplePeriod = std::uint32_t(period);
    window.soundSpeed = soundSpeed;
    // What a reader computes from the stored fields, to the same rounding.
    const double metresPerMicrosecond = 1e-6 * double(soundSpeed) / 2.0;
    window.spacing = double(window.samplePeriod) * metresPerMicrosecond;
    const double delay = std::round(options.windowStart / metresPerMicrosecond);
    if (delay > double(std::numeric_limits<std::uint32_t>::max()))
        return refuse(
            error, QStringLiteral("window start of %1 m cannot be stored").arg(options.windowStart));
    window.sampleStartDelay = std::uint32_t(delay);
    window.start = double(window.sampleStartDelay) * metresPerMicrosecond;
    const double padding = std::max(0.0, std::round(window.start / window.spacing - 0.5));
    if (padding + options.samplesPerBeam > double(std::numeric_limits<std::uint16_t>::max()))
        return refuse(error,
            QStringLiteral("window from %1 m reaches beyond %2 rows")
                .arg(options.windowStart, 0, 'f', 2)
                .arg(std::numeric_limits<std::uint16_t>::max()));
    window.firstSampleRow = int(padding);
    window.rows = window.firstSampleRow + options.samplesPerBeam;
    out = window;
    return true;
}

int ArisWriter::getSystemType(const ArisWriterOptions& options)
{
    int type = options.systemType;
    if (type < 0) {
        switch (options.beams) {
        case 48:
            type = ArisBeamAngles::Aris1200;
            break;
        case 96:
            type = ArisBeamAngles::Aris1800;
            break;
        case 64:
        case 128:
            type = ArisBeamAngles::Aris3000;
            break;
        default:
            return -1;
        }
    }
    return ArisBeamAngles::getCentres(unsigned(type), options.beams, options.telephoto) ? type : -1;
}

std::vector<std::int16_t> ArisWriter::getBearings(const ArisWriterOptions& options)
{
    const int type = getSystemType(options);
    if (type < 0)
        return {};
    const float* centres = ArisBeamAngles::getCentres(unsigned(type), options.beams, options.telephoto);
    std::vector<std::int16_t> bearings(std::size_t(options.beams));
    // Columns run left to right, beam numbers right to left.
    for (int column = 0; column < options.beams; ++column)
        bearings[std::size_t(column)] = std::int16_t(
            std::lround(ArisBeamAngles::bearingOf(centres[options.beams - 1 - column]) * 100.0));
    return bearings;
}

bool ArisWriter::fail(const QString& why)
{
    errorString = file.fileName().isEmpty() ? why : QStringLiteral("%1: %2").arg(file.fileName(), why);
    return false;
}

bool ArisWriter::open(const QString& path, const ArisWriterOptions& newOptions)
{
    close();
    errorString.clear();
    framesWritten = 0;
    file.setFileName(path);
    const int type = getSystemType(newOptions);
    if (type < 0)
        return fail(QStringLiteral("no ARIS sonar has %1 beams%2 with system type %3")
                        .arg(newOptions.beams)
                        .arg(newOptions.telephoto ? QStringLiteral(" and the telephoto lens") : QString())
                        .arg(newOptions.systemType));
    QString why;
    if (!computeWindow(newOptions, window, &why))
        return fail(why);
    if (!(newOptions.frameRate > 0.0) || !std::isfinite(newOptions.frameRate))
        return fail(QStringLiteral("frame rate of %1 Hz").arg(newOptions.frameRate));
    options = newOptions;
    systemType = std::uint32_t(type);
    pingMode = pingModeOf(options.beams);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return fail(file.errorString());

    std::uint8_t header[headerSize] = {};
    HeaderWriter h(header);
    h.u32(0, ArisFrameHeader::signature);
    h.u32(4, 0); // frame count, put in by close()
    h.u32(8, std::uint32_t(std::lround(options.frameRate)));
    h.u32(12, 1); // high frequency
    h.u32(16, std::uint32_t(options.beams));
    h.f32(20, float(1e6 / double(window.samplePeriod)));
    h.u32(24, std::uint32_t(options.samplesPerBeam));
    h.f32(32, float(window.start));
    h.f32(36, float(window.spacing * double(options.samplesPerBeam)));
    h.u32(44, options.serialNumber);
    h.text(48, 32, QDateTime::currentDateTimeUtc().toString(Qt::ISODate).toLatin1());
    h.text(80, 256, QByteArrayLiteral("written by ArisWriter"));
    h.u32(384, std::uint32_t(std::lround(window.soundSpeed)));
    h.u32(452, options.telephoto ? 1u : 0u);
    buffer.assign(headerSize + std::size_t(options.beams) * std::size_t(options.samplesPerBeam), 0);
    if (file.write(reinterpret_cast<const char*>(header), qint64(headerSize)) != qint64(headerSize)) {
        fail(file.errorString());
        file.close();
        return false;
    }
    return true;
}

bool ArisWriter::write(const SourceFrame& frame)
{
    if (!file.isOpen())
        return fail(QStringLiteral("not open for writing"));
    const auto& image = frame.image;
    if (image.getWidth() != options.beams || frame.firstSampleRow < 0
        || image.getHeight() - frame.firstSampleRow != options.samplesPerBeam)
        return fail(
            QStringLiteral("frame of %1 beams × %2 rows (%3 of padding) in a recording of %4 × %5 samples")
                .arg(image.getWidth())
                .arg(image.getHeight())
                .arg(frame.firstSampleRow)
                .arg(options.beams)
                .arg(options.samplesPerBeam));
    const double gain = image.getGain();
    return write(image.getData().data() + std::size_t(frame.firstSampleRow) * std::size_t(options.beams),
        frame.timestamp, std::isfinite(gain) ? int(std::lround(gain)) : 0);
}

bool ArisWriter::write(const std::uint8_t* samples, std::int64_t timestamp, int gain)
{
    if (!file.isOpen())
        return fail(QStringLiteral("not open for writing"));
    std::fill(buffer.begin(), buffer.begin() + std::ptrdiff_t(headerSize), std::uint8_t(0));
    HeaderWriter h(buffer.data());
    const std::uint64_t time = std::uint64_t(std::max<std::int64_t>(0, timestamp));
    h.u32(0, std::uint32_t(framesWritten));
    h.u64(4, time);
    h.u32(12, ArisFrameHeader::signature);
    h.u64(20, time);
    h.f32(52, float(window.start));
    h.f32(56, float(window.spacing * double(options.samplesPerBeam)));
    h.u32(68, std::uint32_t(std::clamp(gain, 0, 40)));
    h.f32(420, float(1e6 / double(window.samplePeriod)));
    h.u32(436, pingMode);
    h.u32(440, 1); // high frequency
    h.u32(444, 10); // pulse width, µs
    h.u32(448, std::uint32_t(std::clamp(1e6 / options.frameRate, 1802.0, 65535.0)));
    h.u32(452, window.samplePeriod);
    h.u32(456, 1); // transmitting
    h.f32(460, float(options.frameRate));
    h.f32(464, window.soundSpeed);
    h.u32(468, std::uint32_t(options.samplesPerBeam));
    h.u32(472, 1);
    h.u32(476, window.sampleStartDelay);
    h.u32(480, options.telephoto ? 1u : 0u);
    h.u32(484, systemType);
    h.u32(488, options.serialNumber);
    h.u32(516, 1); // samples in display order

    // The file keeps beam 0, the right-most, first in each row.
    const std::size_t beams = std::size_t(options.beams);
    std::uint8_t* target = buffer.data() + headerSize;
    for (int k = 0; k < options.samplesPerBeam; ++k, target += beams, samples += beams)
        std::reverse_copy(samples, samples + beams, target);
    if (file.write(reinterpret_cast<const char*>(buffer.data()), qint64(buffer.size()))
        != qint64(buffer.size()))
        return fail(file.errorString());
    ++framesWritten;
    return true;
}

bool ArisWriter::close()
{
    if (!file.isOpen())
        return errorString.isEmpty();
    std::uint8_t count[4];
    HeaderWriter(count).u32(0, std::uint32_t(framesWritten));
    std::uint8_t size[8];
    HeaderWriter(size).u64(0, std::uint64_t(file.size()));
    const bool ok = file.seek(4) && file.write(reinterpret_cast<const char*>(count), 4) == 4 && file.seek(424)
        && file.write(reinterpret_cast<const char*>(size), 8) == 8 && file.flush();
    if (!ok)
        fail(file.errorString());
    file.close();
    return ok;
}

} // namespace Halcyra::Nereon::Sources
