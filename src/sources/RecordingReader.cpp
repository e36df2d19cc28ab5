#include "sources/RecordingReader.h"

#include "Crc32c.h"
#include "RecordingFormat.h"

#include <QIODevice>

#include <zstd.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Halcyra::Nereon::Sources {

using namespace RecordingFormat;

void RecordingReader::ContextDeleter::operator()(void* context) const
{
    ZSTD_freeDCtx(static_cast<ZSTD_DCtx*>(context));
}

RecordingReader::RecordingReader()
    : context(ZSTD_createDCtx())
{
}

RecordingReader::~RecordingReader()
{
    close();
}

bool RecordingReader::hasSignature(const QByteArray& firstBytes)
{
    return firstBytes.size() >= int(sizeof magic) && std::memcmp(firstBytes.constData(), magic, sizeof magic) == 0;
}

std::int64_t RecordingReader::getTimestamp(int frame) const
{
    return startTime * 1000 + index[std::size_t(frame)].timestamp;
}

SonarDescription RecordingReader::getDescription() const
{
    return description;
}

bool RecordingReader::openDevice(QIODevice& device)
{
    std::uint8_t header[fileHeaderSize];
    if (device.read(reinterpret_cast<char*>(header), sizeof header) != qint64(sizeof header)) {
        markDamage(0, QStringLiteral("too short for a recording"));
        return false;
    }
    if (std::memcmp(header, magic, sizeof magic) != 0) {
        markDamage(0, QStringLiteral("not a recording"));
        return false;
    }
    if (get32(header + 28) != Crc32c::compute(header, 28)) {
        markDamage(0, QStringLiteral("file header checksum mismatch"));
        return false;
    }
    if (get16(header + 8) != version || get16(header + 10) != fileHeaderSize) {
        markDamage(0, QStringLiteral("recording format version %1, this reader reads version %2")
                          .arg(get16(header + 8))
                          .arg(version));
        return false;
    }
    startTime = std::int64_t(get64(header + 16));
    // Within 35 000 years of 1970, so that start and offsets add up without overflowing.
    if (startTime > (std::int64_t(1) << 50) || startTime < -(std::int64_t(1) << 50)) {
        markDamage(0, QStringLiteral("start time out of range"));
        return false;
    }
    buildIndex(device);

    description = SonarDescription();
    description.format = QStringLiteral("Nereon recording");
    SourceFrame first;
    if (index.empty() || !decodeFrame(device, 0, first))
        return false;
    description.beamCount = first.image.getWidth();
    description.samplesPerBeam = first.image.getHeight();
    description.windowStart = 0.0;
    description.windowLength = first.image.getRange();
    const auto& bearings = first.image.getBearings();
    if (!bearings.empty()) {
        description.leftmostBearing = bearings.front() / 100.0;
        description.rightmostBearing = bearings.back() / 100.0;
    }
    description.startTime = getTimestamp(0);
    description.duration = index.back().timestamp - index.front().timestamp;
    if (index.size() > 1 && description.duration > 0)
        description.frameRate = double(index.size() - 1) * 1e6 / double(description.duration);
    return true;
}

void RecordingReader::closeDevice()
{
    index.clear();
    payload.clear();
    startTime = 0;
    description = SonarDescription();
}

void RecordingReader::buildIndex(QIODevice& device)
{
    const std::int64_t fileSize = device.size();
    std::int64_t offset = fileHeaderSize;
    std::int64_t lastTimestamp = 0;
    std::uint8_t header[recordHeaderSize];
    while (offset < fileSize) {
        if (!device.seek(offset)) {
            markDamage(offset, device.errorString());
            return;
        }
        const qint64 got = device.read(reinterpret_cast<char*>(header), sizeof header);
        if (got != qint64(sizeof header)) {
            markDamage(offset, got < 0 ? device.errorString() : QStringLiteral("record header cut short"));
            return;
        }
        if (get32(header) != recordMarker || get32(header + 24) != Crc32c::compute(header, 24)) {
            markDamage(offset, QStringLiteral("record header damaged"));
            return;
        }
        const std::uint32_t payloadSize = get32(header + 8);
        const std::int64_t timestamp = std::int64_t(get64(header + 12));
        if (payloadSize > maximumPayloadSize || timestamp < lastTimestamp || timestamp > (std::int64_t(1) << 62)) {
            markDamage(offset, QStringLiteral("record header out of range"));
            return;
        }
        if (offset + std::int64_t(recordHeaderSize) + payloadSize > fileSize) {
            markDamage(offset, QStringLiteral("record cut short (file truncated)"));
            return;
        }
        // Records of kinds added later are skipped, so newer writers stay readable.
        if (get16(header + 4) == frameRecord)
            index.push_back({ offset, payloadSize, get32(header + 20), timestamp });
        lastTimestamp = timestamp;
        offset += std::int64_t(recordHeaderSize) + payloadSize;
    }
}

bool RecordingReader::decodeFrame(QIODevice& device, int frame, SourceFrame& out)
{
    const Entry entry = index[std::size_t(frame)];
    // Everything from this record on is gone once it proves damaged.
    auto damaged = [this, frame, &entry](const QString& description) {
        index.resize(std::size_t(frame));
        markDamage(entry.offset, description);
        return false;
    };
    payload.resize(entry.payloadSize);
    if (!device.seek(entry.offset + std::int64_t(recordHeaderSize))
        || device.read(reinterpret_cast<char*>(payload.data()), entry.payloadSize) != qint64(entry.payloadSize))
        return damaged(QStringLiteral("record unreadable: %1").arg(device.errorString()));
    if (Crc32c::compute(payload.data(), payload.size()) != entry.payloadChecksum)
        return damaged(QStringLiteral("record payload checksum mismatch"));
    if (payload.size() < framePrefixSize)
        return damaged(QStringLiteral("frame record too short"));

    const std::uint8_t* prefix = payload.data();
    const std::uint32_t bearingCount = get32(prefix + 20);
    const std::uint32_t intensityCount = get32(prefix + 24);
    const std::uint8_t encoding = prefix[28];
    const std::size_t bearingsEnd = framePrefixSize + 2 * std::size_t(bearingCount);
    if (bearingsEnd > payload.size() || intensityCount > maximumPayloadSize)
        return damaged(QStringLiteral("frame record inconsistent"));

    std::vector<std::int16_t> bearings(bearingCount);
    for (std::uint32_t i = 0; i < bearingCount; ++i)
        bearings[i] = std::int16_t(get16(prefix + framePrefixSize + 2 * std::size_t(i)));

    const std::uint8_t* stored = payload.data() + bearingsEnd;
    const std::size_t storedSize = payload.size() - bearingsEnd;
    std::vector<std::uint8_t> intensities(intensityCount);
    if (encoding == Stored) {
        if (storedSize != intensityCount)
            return damaged(QStringLiteral("frame record inconsistent"));
        std::copy(stored, stored + storedSize, intensities.begin());
    } else if (encoding == Zstandard) {
        if (!context)
            return damaged(QStringLiteral("out of memory"));
        const std::size_t size = ZSTD_decompressDCtx(static_cast<ZSTD_DCtx*>(context.get()),
            intensities.data(), intensities.size(), stored, storedSize);
        if (ZSTD_isError(size) || size != intensityCount)
            return damaged(QStringLiteral("compressed intensities damaged"));
    } else {
        return damaged(QStringLiteral("unknown intensity encoding %1").arg(encoding));
    }
    out.image = NereonImage(get16(prefix), get16(prefix + 2), std::move(intensities), std::move(bearings),
        getDouble(prefix + 4), getDouble(prefix + 12));
    out.timestamp = getTimestamp(frame);
    out.windowStart = 0.0;
    out.firstSampleRow = 0;
    return true;
}

} // namespace Halcyra::Nereon::Sources
