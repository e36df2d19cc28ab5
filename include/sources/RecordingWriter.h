#pragma once

#include "TernwickNereonSourcesExport.h"

#include <QFile>
#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

namespace Halcyra::Nereon {
class NereonImage;
}

namespace Halcyra::Nereon::Sources {

/**
 * Writes frames to a recording file (docs/recording-format.md), one whole record
 * per write, straight to the operating system: a process killed between two
 * frames leaves every frame before it readable. Not thread-safe; FrameRecorder
 * drives one from its own thread.
 */
class TERNWICK_NEREON_SOURCES_EXPORT RecordingWriter
{
public:
    /// Level 1: the fastest, and on speckled sonar pictures within a few percent
    /// of what the slower levels achieve (bench/bench_recording.cpp).
    static constexpr int defaultCompressionLevel = 1;

    /// A writer that compresses intensities at Zstandard level `compressionLevel`.
    explicit RecordingWriter(int compressionLevel = defaultCompressionLevel);
    ~RecordingWriter();
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    /// Creates or truncates `path` and writes the file header.
    /// @param startTime wall-clock start in milliseconds since 1970 (UTC)
    bool open(const QString& path, std::int64_t startTime);
    /// Appends one frame received `timestamp` microseconds after the start.
    bool write(const Halcyra::Nereon::NereonImage& frame, std::int64_t timestamp);
    /// Asks the operating system to put what was written on the disk.
    bool sync();
    /// Closes the file; every frame written stays readable.
    void close();

    /// Whether a file is open for writing.
    bool isOpen() const { return file.isOpen(); }
    /// Why the file could not be made or written.
    QString getErrorString() const { return errorString; }
    /// Frames written so far.
    std::int64_t getFramesWritten() const { return framesWritten; }
    /// File size so far.
    std::int64_t getBytesWritten() const { return bytesWritten; }
    /// Intensity bytes before compression.
    std::int64_t getIntensityBytes() const { return intensityBytes; }
    /// Intensity bytes as stored.
    std::int64_t getStoredIntensityBytes() const { return storedIntensityBytes; }

private:
    bool writeAll(const std::uint8_t* data, std::size_t size);

    struct ContextDeleter
    {
        void operator()(void* context) const;
    };

    QFile file;
    int compressionLevel;
    std::unique_ptr<void, ContextDeleter> context;
    std::vector<std::uint8_t> buffer;
    QString errorString;
    std::int64_t framesWritten = 0;
    std::int64_t bytesWritten = 0;
    std::int64_t intensityBytes = 0;
    std::int64_t storedIntensityBytes = 0;
};

} // namespace Halcyra::Nereon::Sources
