#pragma once

#include <QFile>
#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

namespace Halcyra::Nereon {
class NereonImage;
}

/**
 * Reads a recording file (docs/recording-format.md). open() checks the file
 * header and indexes the records by their headers alone, stopping at the first
 * damage; readFrame() checks a record's payload as it decodes it and, should
 * that be damaged, shortens the index to the frames before it. So a damaged or
 * truncated file yields every frame up to the damage, and getDamageOffset() says
 * where it stopped. Not thread-safe; FramePlayer drives one from its own thread.
 */
class RecordingReader
{
public:
    RecordingReader();
    ~RecordingReader();
    RecordingReader(const RecordingReader&) = delete;
    RecordingReader& operator=(const RecordingReader&) = delete;

    /// Opens and indexes `path`. False when not even the file header is usable.
    bool open(const QString& path);
    void close();

    int getFrameCount() const { return int(index.size()); }
    /// Microseconds from the start of the recording to frame `frame`.
    std::int64_t getTimestamp(int frame) const { return index[std::size_t(frame)].timestamp; }
    /// The last frame received at or before `timestamp` (the first frame if none was).
    int findFrame(std::int64_t timestamp) const;
    /// Wall-clock start of the recording in milliseconds since 1970 (UTC).
    std::int64_t getStartTime() const { return startTime; }

    /// Decodes frame `frame`; false, with the damage recorded, if its payload is damaged.
    bool readFrame(int frame, Halcyra::Nereon::NereonImage& image);

    /// Whether reading stopped, or will stop, short of the end of the file.
    bool hasDamage() const { return damageOffset >= 0; }
    /// Byte offset of the first byte not read, or -1.
    std::int64_t getDamageOffset() const { return damageOffset; }
    QString getDamageDescription() const { return damageDescription; }
    /// Why open() failed.
    QString getErrorString() const { return errorString; }

private:
    struct Entry
    {
        std::int64_t offset; ///< of the record header
        std::uint32_t payloadSize;
        std::uint32_t payloadChecksum;
        std::int64_t timestamp;
    };

    void buildIndex();
    void markDamage(std::int64_t offset, const QString& description);

    struct ContextDeleter
    {
        void operator()(void* context) const;
    };

    QFile file;
    std::unique_ptr<void, ContextDeleter> context;
    std::vector<Entry> index;
    std::vector<std::uint8_t> payload;
    std::int64_t startTime = 0;
    std::int64_t damageOffset = -1;
    QString damageDescription;
    QString errorString;
};
