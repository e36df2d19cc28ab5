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
#include <QSpinBox>
#include <QStandardPaths>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <limits>

using Halcyra::Nereon::NereonImage;
using namespace Halcyra::Nereon::Sources;

namespace {

const QString recordFilter = QObject::tr("Nereon recordings (*.nrec);;All files (*)");
// Files are recognised by their contents; the names only help the dialog.
const QString openFilter = QObject::tr(
    "Sonar recordings (*.nrec *.aris);;Nereon recordings (*.nrec);;ARIS recordings (*.aris);;All files (*)");

/// m:ss.mmm
QString formatTime(qint64 microseconds)
{
    const qint64 milliseconds = microseconds / 1000;
    return QString::asprintf(
        "%lld:%02lld.%03lld", milliseconds / 60000, milliseconds / 1000 % 60, milliseconds % 1000);
}

QString formatMetres(double metres)
{
    return QObject::tr("%1 m").arg(metres, 0, 'f', 2);
}

/// What the viewer shows of the sonar behind a recording.
QString describeSonar(const SonarDescription& sonar)
{
    QStringList lines;
    QString model = sonar.model.isEmpty() ? sonar.format : sonar.model;
    if (!sonar.serialNumber.isEmpty())
        model += QObject::tr(", serial %1").arg(sonar.serialNumber);
    if (std::isfinite(sonar.frequency))
        model += QObject::tr(", %1 MHz").arg(sonar.frequency / 1e6, 0, 'f', 1);
    lines << model;
    QString beams = QObject::tr("%1 beams \u00d7 %2 samples").arg(sonar.beamCount).arg(sonar.samplesPerBeam);
    if (std::isfinite(sonar.leftmostBearing) && std::isfinite(sonar.rightmostBearing))
        beams += QObject::tr(", %1\u00b0 wide").arg(sonar.rightmostBearing - sonar.leftmostBearing, 0, 'f', 1);
    lines << beams;
    if (std::isfinite(sonar.windowStart) && std::isfinite(sonar.windowLength)) {
        QString window = QObject::tr("Window %1 to %2")
                             .arg(formatMetres(sonar.windowStart), formatMetres(sonar.windowStart + sonar.windowLength));
        if (std::isfinite(sonar.soundSpeed))
            window += QObject::tr(", sound %1 m/s").arg(sonar.soundSpeed, 0, 'f', 1);
        lines << window;
    }
    QString timing;
    if (std::isfinite(sonar.frameRate))
        timing = QObject::tr("%1 frames/s").arg(sonar.frameRate, 0, 'f', 2);
    if (sonar.startTime != 0) {
        const QDateTime start = QDateTime::fromMSecsSinceEpoch(sonar.startTime / 1000, Qt::UTC);
        timing += (timing.isEmpty() ? QString() : QStringLiteral(", "))
            + QObject::tr("recorded %1 UTC").arg(start.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")));
    }
    if (!timing.isEmpty())
        lines << timing;
    return lines.join('\n');
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
    openButton = new QPushButton(tr("Open\u2026"));
    openButton->setToolTip(tr("Replay a recording (the viewer's own or an ARIS file) instead of the live frames"));
    liveButton = new QPushButton(tr("Live"));
    liveButton->setToolTip(tr("Back to the live frames"));
    sourceRow->addWidget(openButton);
    sourceRow->addWidget(liveButton);
    layout->addLayout(sourceRow);

    auto* controlRow = new QHBoxLayout;
    playButton = new QPushButton(tr("Play"));
    playButton->setObjectName("playButton");
    playButton->setCheckable(true);
    backButton = new QPushButton(tr("Back"));
    backButton->setObjectName("backButton");
    backButton->setToolTip(tr("Show the previous frame"));
    stepButton = new QPushButton(tr("Step"));
    stepButton->setObjectName("stepButton");
    stepButton->setToolTip(tr("Show the next frame"));
    speedBox = new QComboBox;
    speedBox->setObjectName("speedBox");
    for (const double speed : { 0.125, 0.25, 0.5, 1.0, 2.0, 4.0, 8.0, 16.0 })
        speedBox->addItem(QStringLiteral("%1\u00d7").arg(speed), speed);
    speedBox->setCurrentIndex(speedBox->findData(1.0));
    speedBox->setToolTip(tr("Replay speed; 1\u00d7 is the recorded pace"));
    controlRow->addWidget(playButton);
    controlRow->addWidget(backButton);
    controlRow->addWidget(stepButton);
    controlRow->addWidget(speedBox);
    layout->addLayout(controlRow);

    positionSlider = new QSlider(Qt::Horizontal);
    positionSlider->setObjectName("positionSlider");
    positionSlider->setToolTip(tr("Drag to seek"));
    auto* frameRow = new QHBoxLayout;
    frameBox = new QSpinBox;
    frameBox->setObjectName("frameBox");
    frameBox->setPrefix(tr("Frame "));
    frameBox->setToolTip(tr("Go to a frame; the first is frame 1"));
    frameBox->setKeyboardTracking(false);
    positionLabel = new QLabel;
    positionLabel->setObjectName("positionLabel");
    frameRow->addWidget(frameBox);
    frameRow->addWidget(positionLabel, 1);
    descriptionLabel = new QLabel;
    descriptionLabel->setObjectName("descriptionLabel");
    descriptionLabel->setWordWrap(true);
    descriptionLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    replayLabel = new QLabel;
    replayLabel->setObjectName("replayLabel");
    replayLabel->setWordWrap(true);
    layout->addWidget(positionSlider);
    layout->addLayout(frameRow);
    layout->addWidget(descriptionLabel);
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
    connect(backButton, &QPushButton::clicked, this, [this] {
        if (shownFrame > 0)
            player->seekToFrame(shownFrame - 1);
    });
    connect(frameBox, QOverload<int>::of(&QSpinBox::valueChanged), this, [this](int oneBased) {
        if (replaying && oneBased - 1 != shownFrame)
            player->seekToFrame(oneBased - 1);
    });
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
        {
            const QSignalBlocker frameBlocker(frameBox);
            frameBox->setRange(1, count);
            frameBox->setSuffix(tr(" of %1").arg(count));
        }
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
        frameTime = frame.timestamp;
        showPosition(frame.index, frame.timestamp - player->getDescription().startTime);
        emit sourceFrameReplayed(frame);
        emit frameReplayed(frame.image);
    });
    connect(player.get(), &FramePlayer::descriptionChanged, this, [this](const SonarDescription& sonar) {
        description = sonar;
        descriptionLabel->setText(describeSonar(sonar));
        emit sonarDescribed(sonar);
    });
    connect(player.get(), &FramePlayer::playingChanged, this, [this](bool playing) {
        const QSignalBlocker blocker(playButton);
        playButton->setChecked(playing);
        playButton->setText(playing ? tr("Pause") : tr("Play"));
        if (replaying)
            emit playingChanged(playing);
    });
    connect(player.get(), &FramePlayer::reachedEnd, this, [this] {
        if (replaying)
            emit replayStopped(-1, QString());
    });
    connect(player.get(), &FramePlayer::stoppedAtDamage, this, [this](qint64 offset, const QString& what) {
        if (!replaying)
            return;
        replayLabel->setText(tr("Stopped at byte %1 of %2: %3")
                                 .arg(offset)
                                 .arg(QFileInfo(replayPath).fileName(), what));
        emit replayStopped(offset, what);
    });

    enableReplayControls();
}

RecordingPanel::~RecordingPanel() = default;

void RecordingPanel::seekToFrame(int frame)
{
    if (replaying && frame >= 0)
        player->seekToFrame(std::min(frame, std::max(0, frameCount - 1)));
}

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
    const QString path = QFileDialog::getSaveFileName(this, tr("Record to"), suggestion, recordFilter);
    if (path.isEmpty() || !startRecording(path)) {
        recordButton->setChecked(false);
        return;
    }
}

void RecordingPanel::openRecording(const QString& path, double speed, int firstFrame)
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
    descriptionLabel->clear();
    shownFrame = -1;
    frameTime = 0;
    const int speedIndex = speedBox->findData(speed);
    if (speedIndex >= 0) {
        speedBox->setCurrentIndex(speedIndex);
    }
    player->setSpeed(speed);
    player->open(path);
    if (firstFrame >= 0)
        player->seekToFrame(firstFrame);
    else
        player->play();
    enableReplayControls();
}

QString RecordingPanel::getReplayName() const
{
    return QFileInfo(replayPath).fileName();
}

void RecordingPanel::chooseRecording()
{
    const QString folder = replayPath.isEmpty()
        ? QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation)
        : QFileInfo(replayPath).absolutePath();
    const QString path = QFileDialog::getOpenFileName(this, tr("Open a recording"), folder, openFilter);
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
    shownFrame = -1;
    frameTime = 0;
    replayLabel->clear();
    positionLabel->clear();
    descriptionLabel->clear();
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
    shownFrame = index;
    if (!frameBox->hasFocus()) {
        const QSignalBlocker blocker(frameBox);
        frameBox->setValue(index + 1);
    }
    // The frame number (from 1) is in the frame box beside it.
    positionLabel->setText(tr("%1 / %2").arg(formatTime(timestamp), formatTime(duration)));
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
    backButton->setEnabled(usable);
    frameBox->setEnabled(usable);
    positionSlider->setEnabled(usable);
}
