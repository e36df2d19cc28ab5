#include "ArisFrameHeader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace Halcyra::Nereon::Sources {

namespace {

/// Little-endian reads that see zeros beyond the end of a short header.
class HeaderBytes
{
public:
    HeaderBytes(const std::uint8_t* bytes, std::size_t size)
        : bytes(bytes)
        , size(size)
    {
    }

    std::uint64_t unsignedAt(std::size_t offset, int length) const
    {
        std::uint64_t value = 0;
        for (int i = length - 1; i >= 0; --i)
            value = value << 8 | (offset + std::size_t(i) < size ? bytes[offset + std::size_t(i)] : 0u);
        return value;
    }
    std::uint32_t u32(std::size_t offset) const { return std::uint32_t(unsignedAt(offset, 4)); }
    std::uint64_t u64(std::size_t offset) const { return unsignedAt(offset, 8); }
    float f32(std::size_t offset) const
    {
        const std::uint32_t bits = u32(offset);
        float value = 0.0f;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }

private:
    const std::uint8_t* bytes;
    std::size_t size;
};

bool refuse(QString* problem, const QString& why)
{
    if (problem)
        *problem = why;
    return false;
}

} // namespace

int ArisFrameHeader::getBeamCount() const
{
    switch (pingMode) {
    case 1:
    case 2:
        return 48;
    case 3:
    case 4:
    case 5:
        return 96;
    case 6:
    case 7:
    case 8:
        return 64;
    case 9:
    case 10:
    case 11:
    case 12:
        return 128;
    default:
        return 0;
    }
}

double ArisFrameHeader::getWindowStart() const
{
    return double(sampleStartDelay) * 1e-6 * double(soundSpeed) / 2.0;
}

double ArisFrameHeader::getSampleSpacing() const
{
    return double(samplePeriod) * 1e-6 * double(soundSpeed) / 2.0;
}

QString ArisFrameHeader::modelOf(std::uint32_t systemType)
{
    switch (systemType) {
    case 0:
        return QStringLiteral("ARIS 1800");
    case 1:
        return QStringLiteral("ARIS 3000");
    case 2:
        return QStringLiteral("ARIS 1200");
    default:
        return QString();
    }
}

double ArisFrameHeader::getFrequency() const
{
    // Each model's high and low frequency; the model's name gives the high one in kHz.
    const bool high = frequencyHigh != 0;
    switch (systemType) {
    case 0:
        return high ? 1.8e6 : 1.1e6;
    case 1:
        return high ? 3.0e6 : 1.8e6;
    case 2:
        return high ? 1.2e6 : 0.7e6;
    default:
        return std::numeric_limits<double>::quiet_NaN();
    }
}

bool ArisFrameHeader::parse(const std::uint8_t* bytes, std::size_t byteCount, ArisFrameHeader& out, QString* problem)
{
    if (!bytes || byteCount < minimumSize)
        return refuse(problem, QStringLiteral("frame header cut short (%1 of %2 bytes)").arg(byteCount).arg(minimumSize));
    const HeaderBytes h(bytes, std::min(byteCount, size));
    ArisFrameHeader header;
    header.frameIndex = h.u32(0);
    header.frameTime = h.u64(4);
    header.version = h.u32(12);
    header.receiverGain = h.u32(68);
    header.pingMode = h.u32(436);
    header.frequencyHigh = h.u32(440);
    header.samplePeriod = h.u32(452);
    header.frameRate = h.f32(460);
    header.soundSpeed = h.f32(464);
    header.samplesPerBeam = h.u32(468);
    header.sampleStartDelay = h.u32(476);
    header.largeLens = h.u32(480);
    header.systemType = h.u32(484);
    header.serialNumber = h.u32(488);
    header.reorderedSamples = h.u32(516);

    if (header.version != signature)
        return refuse(problem, QStringLiteral("frame header signature wrong (0x%1)").arg(header.version, 8, 16, QChar('0')));
    if (header.getBeamCount() == 0)
        return refuse(problem, QStringLiteral("ping mode %1 does not exist").arg(header.pingMode));
    if (header.samplesPerBeam == 0 || header.samplesPerBeam > maximumSamplesPerBeam)
        return refuse(problem, QStringLiteral("%1 samples per beam (1 to %2 possible)")
                                   .arg(header.samplesPerBeam)
                                   .arg(maximumSamplesPerBeam));
    // The sonars sample every 4 to 100 µs; a little room either side for other firmware.
    if (header.samplePeriod == 0 || header.samplePeriod > 1000)
        return refuse(problem, QStringLiteral("sample period of %1 µs").arg(header.samplePeriod));
    if (!std::isfinite(header.soundSpeed) || header.soundSpeed < 1000.0f || header.soundSpeed > 2000.0f)
        return refuse(problem, QStringLiteral("sound speed of %1 m/s").arg(double(header.soundSpeed)));
    out = header;
    return true;
}

} // namespace Halcyra::Nereon::Sources
