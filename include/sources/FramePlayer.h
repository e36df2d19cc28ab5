#pragma once

#include "TernwickNereonSourcesExport.h"

#include "sources/FrameSource.h"

#include <QString>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

namespace Halcyra::Nereon::Sources {

class FrameReader;

/**
 * Replays a recording of any format that FrameReader knows at its recorded pace,
 * or faster or slower, on a thread of its own: the file is read and decoded there
 * and every frame is emitted from there (imageReady(), frameReady()) when its time
 * comes. The controls are plain methods, callable from any thread; they take
 * effect at once, even in the middle of a wait.
 *
 * Signals are emitted from the player's thread: receivers on other threads get
 * them queued. Times given to and by the player are microseconds from the
 * recording's first frame.
 */
class TERNWICK_NEREON_SOURCES_EXPORT FramePlayer : public FrameSource
{
    Q_OBJECT

public:
    /// How closely frames leave at their recorded pace.
    struct TimingStatistics
    {
        std::int64_t frames = 0; ///< frames emitted while playing
        double meanLateness = 0.0; ///< microseconds after the frame's due time
        double maximumLateness = 0.0; ///< microseconds, the latest frame
    };

    /// A player with no file; its thread starts at once and waits.
    explicit FramePlayer(QObject* parent = nullptr);
    ~FramePlayer() override;

    /// Opens `path` on the player's thread; answers with opened() or openFailed(). Starts
    /// paused, unless play() is called before the file is open.
    void open(const QString& path);
    /// Plays from the frame after the one shown (from the start after the end).
    void play();
    /// Stops at the frame shown.
    void pause();
    /// Shows the next frame at once and pauses.
    void step();
    /// Shows the last frame taken at or before `timestamp` (microseconds from the first frame).
    void seek(std::int64_t timestamp);
    /// Shows frame `index` (zero-based) and pauses.
    void seekToFrame(int index);
    /// 1 is the recorded pace; clamped to 1/16 to 16.
    void setSpeed(double speed);
    /// The replay speed; 1 is the recorded pace.
    double getSpeed() const;
    /// Whether frames are being played at their pace.
    bool isPlaying() const;
    /// Lateness of the frames played since the file was opened.
    TimingStatistics getTimingStatistics() const;
    SonarDescription getDescription() const override;

signals:
    /// The file is open: `duration` microseconds from its first frame to its last.
    void opened(int frameCount, qint64 duration);
    /// Not a single frame can be read from the file; `message` names the file and why.
    void openFailed(const QString& message);
    /// Playing started or stopped.
    void playingChanged(bool playing);
    /// The last frame has been shown.
    void reachedEnd();
    /// Replay cannot go past the byte at `offset`: the file is damaged or cut short there.
    void stoppedAtDamage(qint64 offset, const QString& description);

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void openNow(std::unique_lock<std::mutex>& lock);
    /// Decodes frame `index` with the lock released, unless it already is; false if it is damaged.
    bool prepare(std::unique_lock<std::mutex>& lock, int index);
    /// Emits the prepared frame with the lock released.
    void showPrepared(std::unique_lock<std::mutex>& lock);
    bool show(std::unique_lock<std::mutex>& lock, int index);
    void reachedLastFrame(std::unique_lock<std::mutex>& lock);
    void setPlaying(std::unique_lock<std::mutex>& lock, bool on);
    /// Recorded pace restarts from the frame last shown, as of now.
    void anchor();
    Clock::time_point dueTime(std::int64_t timestamp) const;

    std::unique_ptr<FrameReader> reader;
    std::thread worker;
    mutable std::mutex mutex;
    std::condition_variable wake;

    // Requests, written by the controls and taken by the worker.
    QString pathToOpen;
    bool openRequested = false;
    bool opening = false;
    bool playWhenOpened = false;
    bool seekRequested = false;
    std::int64_t seekTimestamp = 0;
    int stepsRequested = 0;
    int frameRequested = -1;
    bool quitting = false;

    // Replay state, owned by the worker but read under the lock.
    bool playing = false;
    double speed = 1.0;
    int frameCount = 0;
    int nextFrame = 0;
    std::int64_t lastShownTimestamp = 0;
    Clock::time_point anchorTime;
    std::int64_t anchorTimestamp = 0;
    /// Anchor again once the next frame is decoded, so that decoding does not delay the pace.
    bool anchorPending = false;
    bool damageReported = false;
    std::int64_t firstTimestamp = 0;
    SonarDescription description;
    SourceFrame preparedFrameData;
    int preparedFrame = -1;
    TimingStatistics timing;
};

} // namespace Halcyra::Nereon::Sources
