#pragma once

#include "TernwickNereonSourcesExport.h"

#include "nereon/NereonImage.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

namespace Halcyra::Nereon::Sources {

class RecordingWriter;

/**
 * Records frames to a file on a thread of its own. record() only stamps the
 * frame with the time and queues it, so the thread that receives frames never
 * waits for compression or the disk. A recording stays readable up to its last
 * whole frame if the process dies; it is also synced to the disk every second.
 */
class TERNWICK_NEREON_SOURCES_EXPORT FrameRecorder : public QObject
{
    Q_OBJECT

public:
    /// What has been recorded so far.
    struct Statistics
    {
        std::int64_t framesWritten = 0; ///< whole frames in the file
        std::int64_t framesDropped = 0; ///< lost because the disk could not keep up
        std::int64_t bytesWritten = 0; ///< file size
        std::int64_t intensityBytes = 0; ///< before compression
        std::int64_t storedIntensityBytes = 0; ///< after compression
    };

    /// A recorder that is not recording; its thread starts with start().
    explicit FrameRecorder(QObject* parent = nullptr);
    ~FrameRecorder() override;

    /// Creates `path` and starts recording; false, with getErrorString(), if the file cannot be made.
    bool start(const QString& path, int compressionLevel = 1);
    /// Writes what is queued, closes the file and stops the thread.
    void stop();
    /// Whether frames handed to record() go to the file.
    bool isRecording() const;
    /// The file being (or last) recorded to.
    QString getPath() const { return path; }
    /// Why the file could not be made or written.
    QString getErrorString() const;
    /// What has been written so far; callable from any thread.
    Statistics getStatistics() const;

    /// Queues `frame`, stamped with the time since start(). Callable from any thread.
    void record(const Halcyra::Nereon::NereonImage& frame);

signals:
    /// The file could not be written; recording has stopped. Emitted from the recorder's thread.
    void failed(const QString& message);

private:
    struct Queued
    {
        Halcyra::Nereon::NereonImage frame;
        std::int64_t timestamp;
    };

    void run();

    std::unique_ptr<RecordingWriter> writer;
    std::thread worker;
    mutable std::mutex mutex;
    std::condition_variable wake;
    std::deque<Queued> queue;
    bool stopping = false;
    bool recording = false;
    QElapsedTimer clock;
    QString path;
    QString errorString;
    Statistics statistics;
};

} // namespace Halcyra::Nereon::Sources
