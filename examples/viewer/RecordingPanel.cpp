#include "RecordingPanel.h"

#include "sources/FramePlayer.h"
#include "sources/FrameRecorder.h"

#include <QComboBox>
#include <QDateTime>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QStandardPaths>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <limits>

using Halcyra::Nereon::NereonImage;
using namespace Halcyra::Nereon::Sources;

namespace {

const QString fileFilter = QObject::tr("Nereon recordings (*.nrec);;All files (*)");

/// m:ss.mmm
QString formatTime(qint64 microseconds)
{
    const qint64 milliseconds = microseconds / 1000;
    return QString::asprintf(
        "%lld:%02lld.%03lld", milliseconds / 60000, milliseconds / 1000 % 60, milliseconds % 1000);
}

QString formatBytes(qint64 bytes)
{
    return bytes >= 10 * 1024 * 1024 ? QObject::tr("%1 MB").arg(double(bytes) / 1e6, 0, 'f', 1)
                                     : QObject::tr("%1 kB").arg(double(bytes) / 1e3, 0, 'f', 1);
}

} // namespace

RecordingPanel::RecordingPanel(QWidget* parent)
    : QWidget(parent)
    , recorder(std::make_unique<FrameRecorder>())
    , player(std::make_unique<FramePlayer>())
{
    auto* layout = new QVBoxLayout(this);

    recordButton = new QPushButton(tr("Record\u2026"));
    recordButton->setObjectName("recordButton");
    recordButton->setCheckable(true);
    recordButton->setToolTip(tr("Record the frames the viewer receives to a file"));
    recordingLabel = new QLabel(tr("Not recording"));
    recordingLabel->setObjectName("recordingLabel");
    recordingLabel->setWordWrap(true);
    layout->addWidget(recordButton);
    layout->addWidget(recordingLabel);

    auto* sourceRow = new QHBoxLayout;
    openButton = new QPushButton(tr("Replay\u2026"));
    openButton->setToolTip(tr("Replay a recording instead of the live frames"));
    liveButton = new QPushButton(tr("Live"));
    liveButton->setToolTip(tr("Back to the live frames"));
    sourceRow->addWidget(openButton);
    sourceRow->addWidget(liveButton);
    layout->addLayout(sourceRow);

    auto* controlRow = new QHBoxLayout;
    playButton = new QPushButton(tr("Play"));
    playButton->setObjectName("playButton");
    playButton->setCheckable(true);
    stepButton = new QPushButton(tr("Step"));
    stepButton->setToolTip(tr("Show the next frame"));
    speedBox = new QComboBox;
    speedBox->setObjectName("speedBox");
    for (const double speed : { 0.125, 0.25, 0.5, 1.0, 2.0, 4.0, 8.0, 16.0 })
        speedBox->addItem(QStringLiteral("%1\u00d7").arg(speed), speed);
    speedBox->setCurrentIndex(speedBox->findData(1.0));
    speedBox->setToolTip(tr("Replay speed; 1\u00d7 is the recorded pace"));
    controlRow->addWidget(playButton);
    controlRow->addWidget(stepButton);
    controlRow->addWidget(speedBox);
    layout->addLayout(controlRow);

    positionSlider = new QSlider(Qt::Horizontal);
    positionSlider->setObjectName("positionSlider");
    positionSlider->setToolTip(tr("Drag to seek"));
    positionLabel = new QLabel;
    positionLabel->setObjectName("positionLabel");
    replayLabel = new QLabel;
    replayLabel->setObjectName("replayLabel");
    replayLabel->setWordWrap(true);
    layout->addWidget(positionSlider);
    layout->addWidget(positionLabel);
    layout->addWidget(replayLabel);
    layout->addStretch(1);

    statusTimer = new QTimer(this);
    statusTimer->setInterval(500);
    connect(statusTimer, &QTimer::timeout, this, &RecordingPanel::showRecordingStatus);

    connect(recordButton, &QPushButton::clicked, this, [this] { toggleRecording(); });
    connect(openButton, &QPushButton::clicked, this, &RecordingPanel::chooseRecording);
    connect(liveButton, &QPushButton::clicked, this, &RecordingPanel::returnToLive);
    connect(playButton, &QPushButton::clicked, this, [this](bool on) {
        if (on)
            player->play();
        else
            player->pause();
    });
    connect(stepButton, &QPushButton::clicked, this, [this] { player->step(); });
    connect(speedBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
        [this](int index) { player->setSpeed(speedBox->itemData(index).toDouble()); });
    // Milliseconds on the slider; the player seeks to the frame shown at that moment.
    connect(positionSlider, &QSlider::valueChanged, this, [this](int milliseconds) {
        if (replaying)
            player->seek(qint64(milliseconds) * 1000);
    });

    // The player emits from its own thread: these arrive queued.
    connect(recorder.get(), &FrameRecorder::failed, this, [this](const QString& message) {
        recordingLabel->setText(tr("Recording stopped: %1").arg(message));
        stopRecording();
    });
    connect(player.get(), &FramePlayer::opened, this, [this](int count, qint64 length) {
        frameCount = count;
        duration = length;
        const QSignalBlocker blocker(positionSlider);
        positionSlider->setRange(0, int(std::min<qint64>(length / 1000, std::numeric_limits<int>::max())));
        positionSlider->setValue(0);
        replayLabel->setText(tr("Replaying %1").arg(QFileInfo(replayPath).fileName()));
        enableReplayControls();
        emit replayOpened(count, length);
    });
    connect(player.get(), &FramePlayer::openFailed, this, [this](const QString& message) {
        replayLabel->setText(tr("Cannot replay %1: %2").arg(QFileInfo(replayPath).fileName(), message));
        emit replayFailed(message);
    });
    connect(player.get(), &FramePlayer::frameReady, this, [this](const SourceFrame& frame) {
        if (!replaying)
            return;
        showPosition(frame.index, frame.timestamp - player->getDescription().startTime);
        emit frameReplayed(frame.image);
    });
    connect(player.get(), &FramePlayer::playingChanged, this, [this](bool playing) {
        const QSignalBlocker blocker(playButton);
        playButton->setChecked(playing);
        playButton->setText(playing ? tr("Pause") : tr("Play"));
    });
    connect(player.get(), &FramePlayer::reachedEnd, this, [this] {
        if (replaying)
            emit replayStopped(-1, QString());
    });
    connect(player.get(), &FramePlayer::stoppedAtDamage, this, [this](qint64 offset, const QString& what) {
        if (!replaying)
            return;
        replayLabel->setText(tr("Replay stopped at byte %1: %2").arg(offset).arg(what));
        emit replayStopped(offset, what);
    });

    enableReplayControls();
}

RecordingPanel::~RecordingPanel() = default;

void RecordingPanel::record(const NereonImage& frame)
{
    recorder->record(frame);
}

bool RecordingPanel::startRecording(const QString& path)
{
    if (!recorder->start(path)) {
        recordingLabel->setText(tr("Cannot record to %1: %2").arg(path, recorder->getErrorString()));
        return false;
    }
    recordButton->setChecked(true);
    recordButton->setText(tr("Stop recording"));
    statusTimer->start();
    showRecordingStatus();
    emit recordingChanged(true);
    return true;
}

void RecordingPanel::stopRecording()
{
    const bool was = recorder->isRecording() || statusTimer->isActive();
    recorder->stop();
    statusTimer->stop();
    recordButton->setChecked(false);
    recordButton->setText(tr("Record\u2026"));
    if (was) {
        showRecordingStatus();
        emit recordingChanged(false);
    }
}

bool RecordingPanel::isRecording() const
{
    return recorder->isRecording();
}

QString RecordingPanel::getRecordingError() const
{
    return recorder->getErrorString();
}

void RecordingPanel::toggleRecording()
{
    if (recorder->isRecording()) {
        stopRecording();
        return;
    }
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    const QString suggestion = QDir(folder).filePath(
        QStringLiteral("nereon-%1.nrec").arg(QDateTime::currentDateTime().toString("yyyyMMdd-HHmmss")));
    const QString path = QFileDialog::getSaveFileName(this, tr("Record to"), suggestion, fileFilter);
    if (path.isEmpty() || !startRecording(path)) {
        recordButton->setChecked(false);
        return;
    }
}

void RecordingPanel::openRecording(const QString& path, double speed)
{
    replayPath = path;
    frameCount = 0;
    duration = 0;
    if (!replaying) {
        replaying = true;
        emit replayStarted();
    }
    replayLabel->setText(tr("Opening %1").arg(QFileInfo(path).fileName()));
    positionLabel->clear();
    const int speedIndex = speedBox->findData(speed);
    if (speedIndex >= 0) {
        speedBox->setCurrentIndex(speedIndex);
    }
    player->setSpeed(speed);
    player->open(path);
    player->play();
    enableReplayControls();
}

void RecordingPanel::chooseRecording()
{
    const QString folder = replayPath.isEmpty()
        ? QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation)
        : QFileInfo(replayPath).absolutePath();
    const QString path = QFileDialog::getOpenFileName(this, tr("Replay"), folder, fileFilter);
    if (!path.isEmpty())
        openRecording(path, speedBox->currentData().toDouble());
}

void RecordingPanel::returnToLive()
{
    if (!replaying)
        return;
    player->pause();
    replaying = false;
    frameCount = 0;
    replayLabel->clear();
    positionLabel->clear();
    enableReplayControls();
    emit liveRequested();
}

void RecordingPanel::showRecordingStatus()
{
    const FrameRecorder::Statistics statistics = recorder->getStatistics();
    const QString name = QFileInfo(recorder->getPath()).fileName();
    QString text = recorder->isRecording() ? tr("Recording %1").arg(name) : tr("Recorded %1").arg(name);
    text += tr(": %n frame(s), %1", nullptr, int(statistics.framesWritten))
                .arg(formatBytes(statistics.bytesWritten));
    if (statistics.storedIntensityBytes > 0)
        text += tr(", compressed %1:1")
                    .arg(double(statistics.intensityBytes) / double(statistics.storedIntensityBytes), 0, 'f',
                        2);
    if (statistics.framesDropped > 0)
        text += tr(", %n frame(s) dropped", nullptr, int(statistics.framesDropped));
    recordingLabel->setText(text);
}

void RecordingPanel::showPosition(int index, qint64 timestamp)
{
    positionLabel->setText(tr("%1 / %2   frame %3 of %4")
                               .arg(formatTime(timestamp), formatTime(duration))
                               .arg(index + 1)
                               .arg(frameCount));
    if (!positionSlider->isSliderDown()) {
        const QSignalBlocker blocker(positionSlider);
        positionSlider->setValue(int(timestamp / 1000));
    }
}

void RecordingPanel::enableReplayControls()
{
    const bool usable = replaying && frameCount > 0;
    liveButton->setEnabled(replaying);
    playButton->setEnabled(usable);
    stepButton->setEnabled(usable);
    positionSlider->setEnabled(usable);
}
