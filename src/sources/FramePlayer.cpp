#include "sources/FramePlayer.h"

#include "sources/FrameReader.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Halcyra::Nereon::Sources {

FramePlayer::FramePlayer(QObject* parent)
    : FrameSource(parent)
{
    worker = std::thread(&FramePlayer::run, this);
}

FramePlayer::~FramePlayer()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        quitting = true;
    }
    wake.notify_all();
    worker.join();
}

void FramePlayer::open(const QString& path)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        pathToOpen = path;
        openRequested = true;
        playWhenOpened = false;
        seekRequested = false;
        frameRequested = -1;
        stepsRequested = 0;
    }
    wake.notify_all();
}

void FramePlayer::play()
{
    std::unique_lock<std::mutex> lock(mutex);
    if (openRequested || opening)
        playWhenOpened = true;
    else if (!playing && frameCount > 0) {
        if (nextFrame >= frameCount) {
            // From the start again.
            seekRequested = true;
            seekTimestamp = std::numeric_limits<std::int64_t>::min();
            stepsRequested = 0;
        }
        anchor();
        anchorPending = true;
        setPlaying(lock, true);
    }
    lock.unlock();
    wake.notify_all();
}

void FramePlayer::pause()
{
    std::unique_lock<std::mutex> lock(mutex);
    playWhenOpened = false;
    setPlaying(lock, false);
    lock.unlock();
    wake.notify_all();
}

void FramePlayer::step()
{
    std::unique_lock<std::mutex> lock(mutex);
    setPlaying(lock, false);
    ++stepsRequested;
    lock.unlock();
    wake.notify_all();
}

void FramePlayer::seek(std::int64_t timestamp)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        seekRequested = true;
        seekTimestamp = timestamp;
        stepsRequested = 0;
        // The latest request wins: a frame asked for by number before it is forgotten.
        frameRequested = -1;
    }
    wake.notify_all();
}

void FramePlayer::seekToFrame(int index)
{
    std::unique_lock<std::mutex> lock(mutex);
    setPlaying(lock, false);
    frameRequested = std::max(index, 0);
    seekRequested = false;
    stepsRequested = 0;
    lock.unlock();
    wake.notify_all();
}

void FramePlayer::setSpeed(double newSpeed)
{
    if (!std::isfinite(newSpeed))
        return;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        speed = std::clamp(newSpeed, 1.0 / 16.0, 16.0);
        anchor();
    }
    wake.notify_all();
}

double FramePlayer::getSpeed() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return speed;
}

bool FramePlayer::isPlaying() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return playing;
}

FramePlayer::TimingStatistics FramePlayer::getTimingStatistics() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return timing;
}

SonarDescription FramePlayer::getDescription() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return description;
}

void FramePlayer::anchor()
{
    anchorTime = Clock::now();
    anchorTimestamp = lastShownTimestamp;
}

FramePlayer::Clock::time_point FramePlayer::dueTime(std::int64_t timestamp) const
{
    const double wait = double(timestamp - anchorTimestamp) / speed;
    return anchorTime + std::chrono::microseconds(std::llround(std::max(0.0, wait)));
}

void FramePlayer::setPlaying(std::unique_lock<std::mutex>& lock, bool on)
{
    if (playing == on)
        return;
    playing = on;
    lock.unlock();
    emit playingChanged(on);
    lock.lock();
}

void FramePlayer::run()
{
    std::unique_lock<std::mutex> lock(mutex);
    while (!quitting) {
        if (openRequested) {
            openNow(lock);
            continue;
        }
        if (seekRequested) {
            seekRequested = false;
            if (frameCount == 0)
                continue;
            const std::int64_t timestamp = seekTimestamp;
            lock.unlock();
            const int frame = reader->findFrame(firstTimestamp + timestamp);
            lock.lock();
            if (show(lock, frame))
                anchor();
            continue;
        }
        if (frameRequested >= 0) {
            const int frame = std::min(frameRequested, frameCount - 1);
            frameRequested = -1;
            if (frame >= 0)
                show(lock, frame);
            continue;
        }
        if (stepsRequested > 0) {
            --stepsRequested;
            if (nextFrame < frameCount)
                show(lock, nextFrame);
            else
                reachedLastFrame(lock);
            continue;
        }
        if (!playing || nextFrame >= frameCount) {
            if (playing)
                reachedLastFrame(lock);
            else
                wake.wait(lock);
            continue;
        }
        const int frame = nextFrame;
        if (preparedFrame != frame) {
            // Decoded ahead of its time, so that the frame leaves when it is due.
            prepare(lock, frame);
            continue;
        }
        if (anchorPending) {
            anchorPending = false;
            anchor();
        }
        const Clock::time_point due = dueTime(reader->getTimestamp(frame) - firstTimestamp);
        if (Clock::now() < due) {
            // Woken early by a control: everything is looked at afresh.
            wake.wait_until(lock, due);
            continue;
        }
        const double lateness
            = double(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - due).count());
        timing.meanLateness
            = (timing.meanLateness * double(timing.frames) + lateness) / double(timing.frames + 1);
        timing.maximumLateness = std::max(timing.maximumLateness, lateness);
        ++timing.frames;
        showPrepared(lock);
    }
}

void FramePlayer::openNow(std::unique_lock<std::mutex>& lock)
{
    openRequested = false;
    opening = true;
    const QString path = pathToOpen;
    setPlaying(lock, false);
    frameCount = 0;
    nextFrame = 0;
    lastShownTimestamp = 0;
    damageReported = false;
    preparedFrame = -1;
    preparedFrameData = SourceFrame();
    timing = TimingStatistics();
    std::unique_ptr<FrameReader> oldReader = std::move(reader);
    lock.unlock();
    oldReader.reset();
    QString message;
    std::unique_ptr<FrameReader> newReader = FrameReader::create(path, &message);
    const int count = newReader ? newReader->getFrameCount() : 0;
    if (count == 0) {
        lock.lock();
        opening = false;
        playWhenOpened = false;
        lock.unlock();
        emit openFailed(message);
        lock.lock();
        return;
    }
    const SonarDescription newDescription = newReader->getDescription();
    lock.lock();
    reader = std::move(newReader);
    firstTimestamp = reader->getTimestamp(0);
    const qint64 duration = reader->getTimestamp(count - 1) - firstTimestamp;
    description = newDescription;
    opening = false;
    frameCount = count;
    lastShownTimestamp = 0;
    anchor();
    lock.unlock();
    emit descriptionChanged(newDescription);
    emit opened(count, duration);
    lock.lock();
    if (playWhenOpened && !openRequested) {
        playWhenOpened = false;
        anchor();
        anchorPending = true;
        setPlaying(lock, true);
    }
}

bool FramePlayer::prepare(std::unique_lock<std::mutex>& lock, int index)
{
    if (preparedFrame == index)
        return true;
    lock.unlock();
    SourceFrame frame;
    const bool ok = reader->readFrame(index, frame);
    lock.lock();
    if (!ok) {
        // The reader has cut its index before the damaged frame.
        frameCount = reader->getFrameCount();
        nextFrame = std::min(nextFrame, frameCount);
        preparedFrame = -1;
        reachedLastFrame(lock);
        return false;
    }
    preparedFrameData = std::move(frame);
    preparedFrame = index;
    return true;
}

void FramePlayer::showPrepared(std::unique_lock<std::mutex>& lock)
{
    const int index = preparedFrame;
    const SourceFrame frame = std::move(preparedFrameData);
    preparedFrameData = SourceFrame();
    preparedFrame = -1;
    nextFrame = index + 1;
    lastShownTimestamp = frame.timestamp - firstTimestamp;
    lock.unlock();
    emitFrame(frame);
    lock.lock();
    if (nextFrame >= frameCount)
        reachedLastFrame(lock);
}

bool FramePlayer::show(std::unique_lock<std::mutex>& lock, int index)
{
    if (!prepare(lock, index))
        return false;
    showPrepared(lock);
    return true;
}

void FramePlayer::reachedLastFrame(std::unique_lock<std::mutex>& lock)
{
    setPlaying(lock, false);
    if (reader && reader->hasDamage()) {
        if (damageReported)
            return;
        damageReported = true;
        const qint64 offset = reader->getDamageOffset();
        const QString description = reader->getDamageDescription();
        lock.unlock();
        emit stoppedAtDamage(offset, description);
        lock.lock();
        return;
    }
    lock.unlock();
    emit reachedEnd();
    lock.lock();
}

} // namespace Halcyra::Nereon::Sources
