#pragma once

#include <QString>
#include <QtGlobal>

#include <deque>

/**
 * What the status bar says about where the frames come from: the source, one
 * frame rate (frames shown, measured here), whether the frames have stopped and
 * why, the live link with the sonar's model and serial number, and the UTC time
 * at which the frame shown was taken. Times are passed in, so that it can be
 * driven without a clock.
 */
class SourceStatus
{
public:
    enum class Source
    {
        Simulated,
        Replay,
        Live,
    };

    /// A new source: forgets the frames, the time and the link of the previous one.
    void setSource(Source source);
    Source getSource() const { return source; }
    /// The simulated sonar stopped pinging, or the replay is paused.
    void setPaused(bool paused);
    /// The replay gives no further frame, and why ("at the end"); empty while it can go on.
    void setStopped(const QString& why);
    /// The live link in words ("Receiving from 10.0.0.3") and whether frames are coming.
    void setLink(const QString& message, bool receiving);
    /// The live sonar's model and serial number; either may be empty, and a serial number
    /// that is not a number is left out.
    void setSonar(const QString& model, const QString& serialNumber);
    void setDroppedFrames(qint64 dropped);

    /// A frame was shown at `now` (milliseconds of any steady clock), taken at `frameTime`
    /// (microseconds since 1970 UTC, 0 when the source does not say).
    void frameShown(qint64 now, qint64 frameTime = 0);
    /// Frames a second over the last few seconds; 0 once frames have stopped coming.
    double getFrameRate(qint64 now) const;

    /// The source and its state, e.g. "Replay · paused" or "ARIS 1200, serial 1098 · Receiving
    /// from 10.0.0.3 · 6.5 frames/s".
    QString getText(qint64 now) const;
    /// "2024-05-01 12:34:56.789 UTC" for the frame shown, or empty when its time is unknown.
    QString getTimeText() const;

private:
    Source source = Source::Simulated;
    bool paused = false;
    QString stopped;
    QString linkMessage;
    bool receiving = false;
    QString model;
    QString serialNumber;
    qint64 droppedFrames = 0;
    qint64 frameTime = 0;
    std::deque<qint64> shownAt; ///< when recent frames were shown, oldest first
};
