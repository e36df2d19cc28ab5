#include "RecordingReader.h"

#include "Crc32c.h"
#include "RecordingFormat.h"

#include "nereon/NereonImage.h"

#include <zstd.h>

#include <algorithm>

using Halcyra::Nereon::NereonImage;
using namespace RecordingFormat;

void RecordingReader::ContextDeleter::operator()(void* context) const
{
    ZSTD_freeDCtx(static_cast<ZSTD_DCtx*>(context));
}

RecordingReader::RecordingReader()
    : context(ZSTD_createDCtx())
{
}

RecordingReader::~RecordingReader() = default;

bool RecordingReader::open(const QString& path)
{
    close();
    file.setFileName(path);
    if (!file.open(QIODevice::ReadOnly)) {
        errorString = file.errorString();
        return false;
    }
    std::uint8_t header[fileHeaderSize];
    if (file.read(reinterpret_cast<char*>(header), sizeof header) != qint64(sizeof header)) {
        errorString = QStringLiteral("too short for a recording");
        markDamage(0, errorString);
        return false;
    }
    if (std::memcmp(header, magic, sizeof magic) != 0) {
        errorString = QStringLiteral("not a recording");
        markDamage(0, errorString);
        return false;
    }
    if (get32(header + 28) != Crc32c::compute(header, 28)) {
        errorString = QStringLiteral("file header checksum mismatch");
        markDamage(0, errorString);
        return false;
    }
    if (get16(header + 8) != version || get16(header + 10) != fileHeaderSize) {
        errorString = QStringLiteral("recording format version %1, this viewer reads version %2")
                          .arg(get16(header + 8))
                          .arg(version);
        markDamage(0, errorString);
        return false;
    }
    startTime = std::int64_t(get64(header + 16));
    buildIndex();
    return true;
}

void RecordingReader::close()
{
    file.close();
    index.clear();
    startTime = 0;
    damageOffset = -1;
    damageDescription.clear();
    errorString.clear();
}

void RecordingReader::buildIndex()
{
    const std::int64_t fileSize = file.size();
    std::int64_t offset = fileHeaderSize;
    std::int64_t lastTimestamp = 0;
    std::uint8_t header[recordHeaderSize];
    while (offset < fileSize) {
        if (!file.seek(offset)) {
            markDamage(offset, file.errorString());
            return;
        }
        const qint64 got = file.read(reinterpret_cast<char*>(header), sizeof header);
        if (got != qint64(sizeof header)) {
            markDamage(offset, got < 0 ? file.errorString() : QStringLiteral("record header cut short"));
            return;
        }
        if (get32(header) != recordMarker || get32(header + 24) != Crc32c::compute(header, 24)) {
            markDamage(offset, QStringLiteral("record header damaged"));
            return;
        }
        const std::uint32_t payloadSize = get32(header + 8);
        const std::int64_t timestamp = std::int64_t(get64(header + 12));
        if (payloadSize > maximumPayloadSize || timestamp < lastTimestamp) {
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

int RecordingReader::findFrame(std::int64_t timestamp) const
{
    const auto after = std::upper_bound(index.begin(), index.end(), timestamp,
        [](std::int64_t t, const Entry& entry) { return t < entry.timestamp; });
    return after == index.begin() ? 0 : int(after - index.begin()) - 1;
}

bool RecordingReader::readFrame(int frame, NereonImage& image)
{
    if (frame < 0 || frame >= getFrameCount())
        return false;
    const Entry entry = index[std::size_t(frame)];
    // Everything from this record on is gone once it proves damaged.
    auto damaged = [this, frame, &entry](const QString& description) {
        index.resize(std::size_t(frame));
        markDamage(entry.offset, description);
        return false;
    };
    payload.resize(entry.payloadSize);
    if (!file.seek(entry.offset + std::int64_t(recordHeaderSize))
        || file.read(reinterpret_cast<char*>(payload.data()), entry.payloadSize) != qint64(entry.payloadSize))
        return damaged(QStringLiteral("record unreadable: %1").arg(file.errorString()));
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
    image = NereonImage(get16(prefix), get16(prefix + 2), std::move(intensities), std::move(bearings),
        getDouble(prefix + 4), getDouble(prefix + 12));
    return true;
}

void RecordingReader::markDamage(std::int64_t offset, const QString& description)
{
    damageOffset = offset;
    damageDescription = description;
}
