#include "sources/FrameRecorder.h"

#include "sources/RecordingWriter.h"

#include <QDateTime>

#include <chrono>

namespace Halcyra::Nereon::Sources {


namespace {
// About six seconds of 82 MB/s sonar; beyond that frames are dropped instead of memory exhausted.
constexpr std::size_t maximumQueued = 256;
constexpr auto syncInterval = std::chrono::seconds(1);
} // namespace

FrameRecorder::FrameRecorder(QObject* parent)
    : QObject(parent)
{
}

FrameRecorder::~FrameRecorder()
{
    stop();
}

bool FrameRecorder::start(const QString& filePath, int compressionLevel)
{
    stop();
    auto newWriter = std::make_unique<RecordingWriter>(compressionLevel);
    if (!newWriter->open(filePath, QDateTime::currentMSecsSinceEpoch())) {
        const std::lock_guard<std::mutex> lock(mutex);
        errorString = newWriter->getErrorString();
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        writer = std::move(newWriter);
        path = filePath;
        errorString.clear();
        statistics = Statistics();
        statistics.bytesWritten = writer->getBytesWritten();
        stopping = false;
        recording = true;
        clock.start();
    }
    worker = std::thread(&FrameRecorder::run, this);
    return true;
}

void FrameRecorder::stop()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    if (worker.joinable())
        worker.join();
    const std::lock_guard<std::mutex> lock(mutex);
    if (writer) {
        writer->close();
        writer.reset();
    }
    recording = false;
    queue.clear();
}

bool FrameRecorder::isRecording() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return recording;
}

QString FrameRecorder::getErrorString() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return errorString;
}

FrameRecorder::Statistics FrameRecorder::getStatistics() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return statistics;
}

void FrameRecorder::record(const NereonImage& frame)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!recording || stopping)
            return;
        if (queue.size() >= maximumQueued) {
            ++statistics.framesDropped;
            return;
        }
        queue.push_back({ frame, clock.nsecsElapsed() / 1000 });
    }
    wake.notify_one();
}

void FrameRecorder::run()
{
    auto lastSync = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        wake.wait_for(lock, syncInterval, [this] { return stopping || !queue.empty(); });
        // Whatever was queued before stop() is still written.
        if (queue.empty() && stopping)
            return;
        if (!queue.empty()) {
            const Queued next = std::move(queue.front());
            queue.pop_front();
            lock.unlock();
            const bool written = writer->write(next.frame, next.timestamp);
            lock.lock();
            if (!written) {
                errorString = writer->getErrorString();
                recording = false;
                queue.clear();
                const QString message = errorString;
                lock.unlock();
                emit failed(message);
                return;
            }
            statistics.framesWritten = writer->getFramesWritten();
            statistics.bytesWritten = writer->getBytesWritten();
            statistics.intensityBytes = writer->getIntensityBytes();
            statistics.storedIntensityBytes = writer->getStoredIntensityBytes();
        }
        const auto now = std::chrono::steady_clock::now();
        if (now - lastSync >= syncInterval) {
            lastSync = now;
            lock.unlock();
            writer->sync();
            lock.lock();
        }
    }
}

} // namespace Halcyra::Nereon::Sources
