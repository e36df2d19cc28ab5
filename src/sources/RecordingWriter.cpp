#include "sources/RecordingWriter.h"

#include "Crc32c.h"
#include "RecordingFormat.h"

#include "nereon/NereonImage.h"

#include <zstd.h>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

#include <algorithm>

namespace Halcyra::Nereon::Sources {

using namespace RecordingFormat;

void RecordingWriter::ContextDeleter::operator()(void* context) const
{
    ZSTD_freeCCtx(static_cast<ZSTD_CCtx*>(context));
}

RecordingWriter::RecordingWriter(int level)
    : compressionLevel(std::clamp(level, ZSTD_minCLevel(), ZSTD_maxCLevel()))
    , context(ZSTD_createCCtx())
{
}

RecordingWriter::~RecordingWriter()
{
    close();
}

bool RecordingWriter::open(const QString& path, std::int64_t startTime)
{
    close();
    framesWritten = bytesWritten = intensityBytes = storedIntensityBytes = 0;
    errorString.clear();
    file.setFileName(path);
    // Unbuffered: every record goes to the operating system in one write, so a
    // killed process never leaves a frame behind in its own buffers.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        errorString = file.errorString();
        return false;
    }
    std::uint8_t header[fileHeaderSize] = {};
    std::memcpy(header, magic, sizeof magic);
    put16(header + 8, version);
    put16(header + 10, fileHeaderSize);
    put32(header + 12, 0); // flags
    put64(header + 16, std::uint64_t(startTime));
    put32(header + 24, 0); // reserved
    put32(header + 28, Crc32c::compute(header, 28));
    if (!writeAll(header, sizeof header)) {
        file.close();
        return false;
    }
    return true;
}

bool RecordingWriter::write(const NereonImage& frame, std::int64_t timestamp)
{
    if (!file.isOpen()) {
        errorString = QStringLiteral("no file is open");
        return false;
    }
    if (!context) {
        errorString = QStringLiteral("out of memory");
        return false;
    }
    const std::vector<std::uint8_t>& intensities = frame.getData();
    const std::vector<std::int16_t>& bearings = frame.getBearings();
    const std::size_t bearingBytes = 2 * bearings.size();
    const std::size_t bound = ZSTD_compressBound(intensities.size());
    const std::size_t headAndPrefix = recordHeaderSize + framePrefixSize + bearingBytes;
    if (intensities.size() > maximumPayloadSize || bearings.size() > maximumPayloadSize / 2
        || headAndPrefix + intensities.size() > recordHeaderSize + maximumPayloadSize) {
        errorString = QStringLiteral("frame too large to record");
        return false;
    }
    buffer.resize(headAndPrefix + std::max(bound, intensities.size()));

    std::uint8_t* prefix = buffer.data() + recordHeaderSize;
    std::uint8_t* cursor = prefix + framePrefixSize;
    for (const std::int16_t bearing : bearings) {
        put16(cursor, std::uint16_t(bearing));
        cursor += 2;
    }
    // Speckle can make a picture incompressible; then it is stored as it is.
    IntensityEncoding encoding = Stored;
    std::size_t storedSize = intensities.size();
    if (!intensities.empty()) {
        const std::size_t compressed = ZSTD_compressCCtx(static_cast<ZSTD_CCtx*>(context.get()), cursor,
            bound, intensities.data(), intensities.size(), compressionLevel);
        if (!ZSTD_isError(compressed) && compressed < intensities.size()) {
            encoding = Zstandard;
            storedSize = compressed;
        }
    }
    if (encoding == Stored && storedSize > 0)
        std::memcpy(cursor, intensities.data(), storedSize);

    const std::size_t payloadSize = framePrefixSize + bearingBytes + storedSize;
    if (payloadSize > maximumPayloadSize) {
        errorString = QStringLiteral("frame too large to record");
        return false;
    }
    put16(prefix + 0, frame.getWidth());
    put16(prefix + 2, frame.getHeight());
    putDouble(prefix + 4, frame.getRange());
    putDouble(prefix + 12, frame.getGain());
    put32(prefix + 20, std::uint32_t(bearings.size()));
    put32(prefix + 24, std::uint32_t(intensities.size()));
    prefix[28] = encoding;
    prefix[29] = prefix[30] = prefix[31] = 0;

    std::uint8_t* header = buffer.data();
    put32(header + 0, recordMarker);
    put16(header + 4, frameRecord);
    put16(header + 6, 0); // flags
    put32(header + 8, std::uint32_t(payloadSize));
    put64(header + 12, std::uint64_t(timestamp));
    put32(header + 20, Crc32c::compute(prefix, payloadSize));
    put32(header + 24, Crc32c::compute(header, 24));

    if (!writeAll(buffer.data(), recordHeaderSize + payloadSize))
        return false;
    ++framesWritten;
    intensityBytes += std::int64_t(intensities.size());
    storedIntensityBytes += std::int64_t(storedSize);
    return true;
}

bool RecordingWriter::writeAll(const std::uint8_t* data, std::size_t size)
{
    const qint64 written = file.write(reinterpret_cast<const char*>(data), qint64(size));
    if (written > 0)
        bytesWritten += written;
    if (written != qint64(size)) {
        errorString = file.errorString();
        return false;
    }
    return true;
}

bool RecordingWriter::sync()
{
    if (!file.isOpen())
        return false;
#ifdef Q_OS_UNIX
    if (::fdatasync(file.handle()) != 0) {
        errorString = QStringLiteral("could not flush the file to disk");
        return false;
    }
#else
    file.flush();
#endif
    return true;
}

void RecordingWriter::close()
{
    if (file.isOpen()) {
        sync();
        file.close();
    }
}

} // namespace Halcyra::Nereon::Sources
