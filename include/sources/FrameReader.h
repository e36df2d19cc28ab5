#pragma once

#include "TernwickNereonSourcesExport.h"

#include "sources/SonarDescription.h"
#include "sources/SourceFrame.h"

#include <QString>

#include <cstdint>
#include <memory>

class QIODevice;

namespace Halcyra::Nereon::Sources {

/**
 * Reads the frames of a recording, in order or at random, without loading the
 * file: open() reads the headers and indexes the frames, readFrame() reads and
 * decodes one frame at a time.
 *
 * A damaged file yields every frame before the damage: the reader stops there,
 * shortens its frame count to the frames before it, and says where it stopped
 * (getDamageOffset(), describeDamage()). Damage found while opening leaves the
 * count at the frames before it; damage found in a frame's contents while reading
 * it shortens the count then.
 *
 * Not thread-safe: one thread at a time (FramePlayer reads on a thread of its own).
 */
class TERNWICK_NEREON_SOURCES_EXPORT FrameReader
{
public:
    /// The formats that create() recognises from a file's first bytes.
    enum class Format
    {
        Unknown,
        NereonRecording, ///< the viewer's own recordings (.nrec)
        Aris, ///< ARIS sonar recordings (.aris)
    };

    virtual ~FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    /// Tells the format from the first bytes of a file (16 are enough).
    static Format detectFormat(const QByteArray& firstBytes);
    /// The format of the file at `path`, from its first bytes; Unknown when unreadable.
    static Format detectFormat(const QString& path);
    /// A reader for the format of the file at `path`, opened; null, with `error` set
    /// (file name and why), when the file cannot be opened or its format is not known.
    /// A reader that opened with damage is returned: it has the frames before it.
    static std::unique_ptr<FrameReader> create(const QString& path, QString* error = nullptr);
    /// A reader for `format`, not opened; null for Unknown.
    static std::unique_ptr<FrameReader> create(Format format);

    /// Opens and indexes the file at `path`. False when not a single frame can be read
    /// from it (getErrorString() says why).
    bool open(const QString& path);
    /**
     * Opens and indexes `device` (opened for reading, or not yet opened), which the
     * reader keeps; `name` names it in messages. False when not a single frame can
     * be read from it.
     */
    bool open(std::unique_ptr<QIODevice> device, const QString& name);
    /// Closes the file and forgets its frames and damage.
    void close();
    /// Whether a file is open.
    bool isOpen() const;

    /// Frames that can be read: those before the first damage found so far.
    virtual int getFrameCount() const = 0;
    /// When frame `frame` was taken, microseconds since 1970-01-01 UTC.
    virtual std::int64_t getTimestamp(int frame) const = 0;
    /// The sonar behind the recording, as of its first frame.
    virtual SonarDescription getDescription() const = 0;
    /**
     * Reads and decodes frame `frame` into `out`. False if `frame` is out of range, or
     * if the frame proves damaged: then the frame count is cut to the frames before it
     * and the damage is recorded.
     */
    bool readFrame(int frame, SourceFrame& out);

    /// Reads the frame at the reading position and moves the position on.
    bool next(SourceFrame& out);
    /// Where next() reads: 0 to getFrameCount().
    int getPosition() const { return position; }
    /// Moves the reading position to `frame`, clamped to 0 to getFrameCount().
    void seekToFrame(int frame);
    /// Moves the reading position to findFrame(`timestamp`).
    void seekToTime(std::int64_t timestamp);
    /// The last frame taken at or before `timestamp` (µs since 1970); the first frame if none
    /// was, -1 if there are no frames.
    int findFrame(std::int64_t timestamp) const;

    /// The name given to open().
    QString getFileName() const { return fileName; }
    /// Whether reading stopped, or will stop, short of the end of the file.
    bool hasDamage() const { return damageOffset >= 0; }
    /// Byte offset of the first byte that could not be used, or -1.
    std::int64_t getDamageOffset() const { return damageOffset; }
    /// What is wrong at getDamageOffset(), or empty.
    QString getDamageDescription() const { return damageDescription; }
    /// "Stopped at byte N of FILE: why", or empty without damage.
    QString describeDamage() const;
    /// Why open() failed, naming the file and, where it applies, the byte offset.
    QString getErrorString() const { return errorString; }

protected:
    FrameReader();

    /// Reads the headers from `device` (at position 0) and indexes the frames before
    /// the first damage. False when the device holds no usable frame at all; then
    /// fail() or markDamage() has said why.
    virtual bool openDevice(QIODevice& device) = 0;
    /// Forgets the index; the device is closed by the caller.
    virtual void closeDevice() = 0;
    /// Decodes frame `frame` (in range) from the device into `out`; on damage calls
    /// markDamage(), shortens the count to `frame` frames and returns false.
    virtual bool decodeFrame(QIODevice& device, int frame, SourceFrame& out) = 0;

    /// Records damage at byte `offset`; the earliest damage found is kept.
    void markDamage(std::int64_t offset, const QString& description);
    /// Records why the file cannot be opened at all.
    void fail(const QString& description);

private:
    std::unique_ptr<QIODevice> device;
    QString fileName;
    QString errorString;
    QString damageDescription;
    std::int64_t damageOffset = -1;
    int position = 0;
};

} // namespace Halcyra::Nereon::Sources
