#pragma once

#include "nereon/NereonImage.h"
#include "sources/SonarDescription.h"
#include "sources/SourceFrame.h"

#include <QWidget>

#include <memory>

namespace Halcyra::Nereon::Sources {
class FramePlayer;
class FrameRecorder;
} // namespace Halcyra::Nereon::Sources
class QComboBox;
class QLabel;
class QPushButton;
class QSlider;
class QSpinBox;
class QTimer;

/**
 * The viewer's recorder and player with their controls: record what the viewer
 * receives, open a recording and replay it with play, pause, step, seek and
 * speed. The recorder and the player do their work on threads of their own.
 */
class RecordingPanel : public QWidget
{
    Q_OBJECT

public:
    explicit RecordingPanel(QWidget* parent = nullptr);
    ~RecordingPanel() override;

    /// Hands `frame` to the recorder while recording; the viewer calls it for every frame it receives.
    void record(const Halcyra::Nereon::NereonImage& frame);

    /// Starts recording to `path`; false, with getRecordingError(), if the file cannot be made.
    bool startRecording(const QString& path);
    void stopRecording();
    bool isRecording() const;
    QString getRecordingError() const;
    /// Asks for a file and starts recording, or stops a recording under way.
    void toggleRecording();

    /// Replays `path`, of any format the frame-source library reads, instead of the
    /// live frames: from its start, or paused at `firstFrame` (zero-based) if given.
    void openRecording(const QString& path, double speed = 1.0, int firstFrame = -1);
    /// The sonar behind the recording being replayed.
    Halcyra::Nereon::Sources::SonarDescription getDescription() const { return description; }
    /// File name of the recording being replayed.
    QString getReplayName() const;
    /// Path of the recording being replayed.
    QString getReplayPath() const { return replayPath; }
    /// Asks for a file to replay.
    void chooseRecording();
    /// Ends the replay; the viewer goes back to its live source.
    void returnToLive();
    bool isReplaying() const { return replaying; }
    /// The frame of the replay shown last (zero-based), -1 before the first.
    int getShownFrame() const { return shownFrame; }
    /// Shows frame `frame` (zero-based) of the replay; nothing when not replaying.
    void seekToFrame(int frame);
    /// When the frame last replayed was taken, microseconds since 1970 UTC; 0 if unknown.
    qint64 getFrameTime() const { return frameTime; }

signals:
    void replayStarted();
    void liveRequested();
    void frameReplayed(const Halcyra::Nereon::NereonImage& image);
    /// The same frame with its number and time, emitted just before frameReplayed().
    void sourceFrameReplayed(const Halcyra::Nereon::Sources::SourceFrame& frame);
    void replayOpened(int frameCount, qint64 duration);
    void replayFailed(const QString& message);
    /// No further frame comes without a control: at the end (`damageOffset` -1) or at damage.
    void replayStopped(qint64 damageOffset, const QString& description);
    void recordingChanged(bool recording);
    /// The replay started or stopped playing (paused, or at its end).
    void playingChanged(bool playing);
    /// The recording being replayed is open and its sonar known.
    void sonarDescribed(const Halcyra::Nereon::Sources::SonarDescription& description);

private:
    void showRecordingStatus();
    void showPosition(int index, qint64 timestamp);
    void enableReplayControls();

    std::unique_ptr<Halcyra::Nereon::Sources::FrameRecorder> recorder;
    std::unique_ptr<Halcyra::Nereon::Sources::FramePlayer> player;
    bool replaying = false;
    int frameCount = 0;
    qint64 duration = 0;
    QString replayPath;
    Halcyra::Nereon::Sources::SonarDescription description;
    int shownFrame = -1;
    qint64 frameTime = 0;

    QPushButton* recordButton = nullptr;
    QLabel* recordingLabel = nullptr;
    QTimer* statusTimer = nullptr;
    QPushButton* openButton = nullptr;
    QPushButton* liveButton = nullptr;
    QPushButton* playButton = nullptr;
    QPushButton* stepButton = nullptr;
    QPushButton* backButton = nullptr;
    QSpinBox* frameBox = nullptr;
    QLabel* descriptionLabel = nullptr;
    QComboBox* speedBox = nullptr;
    QSlider* positionSlider = nullptr;
    QLabel* positionLabel = nullptr;
    QLabel* replayLabel = nullptr;
};
