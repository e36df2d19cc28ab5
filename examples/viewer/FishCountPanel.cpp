#include "FishCountPanel.h"

#include "analysis/FishCsv.h"
#include "analysis/LiveFishCounter.h"
#include "views/EchogramDisplay.h"
#include "views/FanAnnotations.h"

#include "FanDisplay.h"

#include <QCheckBox>
#include <QDateTime>
#include <QDir>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTextStream>

#include <set>

using namespace Halcyra::Nereon::Analysis;
using Halcyra::Nereon::Sources::SourceFrame;
using Halcyra::Nereon::Views::EchogramDisplay;
using Halcyra::Nereon::Views::EchogramMark;
using Halcyra::Nereon::Views::FanAnnotations;

namespace {

// Frames waiting for the counter beyond which new ones are dropped: a slow machine
// counts fewer frames rather than falling ever further behind.
constexpr int mostFramesWaiting = 30;

const QColor fishColour(255, 220, 0);
const QColor lineColour(0, 220, 255);

} // namespace

FishCountPanel::FishCountPanel(Halcyra::Nereon::Visualisation::FanDisplay* fanDisplay, QWidget* parent)
    : QWidget(parent)
    , display(fanDisplay)
    , marks(std::make_unique<FanAnnotations>())
{
    countBox = new QCheckBox(tr("Count fish"));
    countBox->setObjectName("countFishBox");
    upLabel = new QLabel("0");
    upLabel->setObjectName("upstreamLabel");
    downLabel = new QLabel("0");
    downLabel->setObjectName("downstreamLabel");
    netLabel = new QLabel("0");
    netLabel->setObjectName("netLabel");
    lengthLabel = new QLabel(QStringLiteral("\u2013"));
    lengthLabel->setObjectName("lastLengthLabel");
    exportButton = new QPushButton(tr("Export fish CSV\u2026"));
    exportButton->setToolTip(tr("fish.csv (one row a fish) and tracks.csv (where each was, frame by frame)"));

    lineBox = new QCheckBox(tr("Count line"));
    lineBox->setToolTip(
        tr("Up and down by which way a fish crosses this bearing; without it, by how it swims"));
    lineBearingBox = new QDoubleSpinBox;
    lineBearingBox->setRange(-85.0, 85.0);
    lineBearingBox->setDecimals(1);
    lineBearingBox->setSuffix(QStringLiteral("\u00b0"));
    lineBearingBox->setEnabled(false);
    auto* lineRow = new QHBoxLayout;
    lineRow->addWidget(lineBox);
    lineRow->addWidget(lineBearingBox, 1);

    auto* form = new QFormLayout(this);
    form->addRow(countBox);
    form->addRow(lineRow);
    form->addRow(tr("Up"), upLabel);
    form->addRow(tr("Down"), downLabel);
    form->addRow(tr("Net up"), netLabel);
    form->addRow(tr("Last fish"), lengthLabel);
    form->addRow(exportButton);

    thread.setObjectName("fish counter");
    thread.start();
    setOptions(options);

    connect(countBox, &QCheckBox::toggled, this, &FishCountPanel::setCounting);
    const auto useLine = [this] {
        lineBearingBox->setEnabled(lineBox->isChecked());
        CountOptions changed = options;
        changed.countLineBearingDeg.reset();
        if (lineBox->isChecked())
            changed.countLineBearingDeg = lineBearingBox->value();
        setOptions(changed);
    };
    connect(lineBox, &QCheckBox::toggled, this, useLine);
    connect(lineBearingBox, &QDoubleSpinBox::editingFinished, this, useLine);
    connect(exportButton, &QPushButton::clicked, this, &FishCountPanel::chooseExportFolder);
}

FishCountPanel::~FishCountPanel()
{
    thread.quit();
    thread.wait();
}

void FishCountPanel::setOptions(const CountOptions& countOptions)
{
    options = countOptions;
    if (counter) {
        // Whatever it was still given is dropped with it.
        counter->disconnect(this);
        disconnect(this, nullptr, counter, nullptr);
        QMetaObject::invokeMethod(counter, &QObject::deleteLater);
    }
    inFlight = std::make_shared<std::atomic<int>>(0);
    counter = new LiveFishCounter(options);
    counter->moveToThread(&thread);
    connect(&thread, &QThread::finished, counter, &QObject::deleteLater);
    // Runs on the counter's thread, queued; counts down what addFrame() handed over.
    LiveFishCounter* const worker = counter;
    const auto waiting = inFlight;
    connect(this, &FishCountPanel::frameForCounter, counter, [worker, waiting](const SourceFrame& frame) {
        worker->addFrame(frame);
        --*waiting;
    });
    connect(this, &FishCountPanel::restartCounter, counter, &LiveFishCounter::reset);
    connect(this, &FishCountPanel::finishCounter, counter, &LiveFishCounter::finish);
    connect(this, &FishCountPanel::backgroundForCounter, counter, &LiveFishCounter::learnBackground);
    // The frame a set of tracks belongs to comes just before it.
    connect(counter, &LiveFishCounter::foregroundReady, this, [this](const SourceFrame& frame) {
        lastFrame = frame.index;
        lastTime = frame.timestamp;
    });
    connect(counter, &LiveFishCounter::tracksUpdated, this, &FishCountPanel::showTracks);
    connect(counter, &LiveFishCounter::fishCounted, this, [this](const FishRecord& record) {
        fish.push_back(record);
        if (const auto found = echogramTracks.find(record.id); found != echogramTracks.end()) {
            found->second.counted = true;
            found->second.mark.setLabel(
                QStringLiteral("%1 \u00b7 %2 m").arg(record.id).arg(record.lengthM, 0, 'f', 2));
            showOnEchogram(record.id);
        }
        lengthLabel->setText(tr("%1 m, %2")
                                 .arg(record.lengthM, 0, 'f', 2)
                                 .arg(record.direction == Direction::Up ? tr("up") : tr("down")));
    });
    connect(counter, &LiveFishCounter::countsChanged, this, [this](int up, int down) {
        upstream = up;
        downstream = down;
        showCounts();
    });
    restart();
}

void FishCountPanel::setCounting(bool on)
{
    if (countBox->isChecked() != on) {
        countBox->setChecked(on); // comes back here
        return;
    }
    restart();
    if (on)
        marks->attach(display);
    else
        marks->detach();
    if (display)
        display->update();
}

bool FishCountPanel::isCounting() const
{
    return countBox->isChecked();
}

void FishCountPanel::addFrame(const SourceFrame& frame)
{
    if (!isCounting() || *inFlight >= mostFramesWaiting)
        return;
    ++*inFlight;
    emit frameForCounter(frame);
}

void FishCountPanel::restart()
{
    emit restartCounter();
    fish.clear();
    points.clear();
    upstream = downstream = 0;
    lengthLabel->setText(QStringLiteral("\u2013"));
    marks->clear();
    clearEchogram();
    showCounts();
    showTracks({});
}

void FishCountPanel::setEchogram(EchogramDisplay* display)
{
    clearEchogram();
    echogram = display;
}

void FishCountPanel::showOnEchogram(int trackId)
{
    EchogramTrack& track = echogramTracks[trackId];
    if (!echogram)
        return;
    if (track.markId == 0 || !echogram->updateMark(track.markId, track.mark))
        track.markId = echogram->addMark(track.mark);
}

void FishCountPanel::clearEchogram()
{
    if (echogram) {
        for (const auto& [id, track] : echogramTracks) {
            if (track.markId != 0)
                echogram->removeMark(track.markId);
        }
    }
    echogramTracks.clear();
}

void FishCountPanel::learnBackground(const std::vector<Halcyra::Nereon::NereonImage>& samples)
{
    if (isCounting() && !samples.empty())
        emit backgroundForCounter(samples);
}

void FishCountPanel::finish()
{
    if (isCounting())
        emit finishCounter();
}

void FishCountPanel::showTracks(const std::vector<LiveTrack>& tracks)
{
    if (!isCounting())
        return;
    marks->clear();
    std::set<int> live;
    if (options.countLineBearingDeg)
        marks->add(
            FanAnnotations::Mark::countLine(*options.countLineBearingDeg, lineColour, tr("count line")));
    for (const LiveTrack& track : tracks) {
        // Tentative tracks are mostly speckle that lines up for a frame or two: not worth the clutter.
        if (!track.confirmed)
            continue;
        const QColor colour = fishColour;
        const double halfRange = std::max(track.extentRangeM, 0.1) / 2.0;
        const double halfBearing = std::max(track.extentBearingDeg, 0.5) / 2.0;
        const QString label = QStringLiteral("%1 \u00b7 %2 m").arg(track.id).arg(track.lengthM, 0, 'f', 2);
        marks->add(FanAnnotations::Mark::box(track.rangeM - halfRange, track.rangeM + halfRange,
            track.bearingDeg - halfBearing, track.bearingDeg + halfBearing, colour, label));
        if (track.trail.size() > 1) {
            QVector<QPointF> trail;
            for (const auto& [range, bearing] : track.trail)
                trail.append(QPointF(range, bearing));
            FanAnnotations::Mark line = FanAnnotations::Mark::polyline(trail, colour);
            line.width = 1;
            marks->add(line);
        }
        if (track.id > 0) {
            points.push_back(
                { track.id, lastFrame, lastTime, track.rangeM, track.bearingDeg, track.lengthM, true });
            EchogramTrack& shown = echogramTracks[track.id];
            shown.mark.setColour(fishColour);
            shown.mark.addPoint(lastFrame, track.rangeM);
            live.insert(track.id);
            showOnEchogram(track.id);
        }
    }
    // A track gone without being counted was not a fish (or may come back): off the echogram until then.
    for (auto& [id, shown] : echogramTracks) {
        if (!shown.counted && shown.markId != 0 && !live.count(id) && echogram) {
            echogram->removeMark(shown.markId);
            shown.markId = 0;
        }
    }
    if (display)
        display->update();
}

void FishCountPanel::showCounts()
{
    upLabel->setText(QString::number(upstream));
    downLabel->setText(QString::number(downstream));
    netLabel->setText(QString::number(upstream - downstream));
}

bool FishCountPanel::exportCsv(const QString& folder, QString* error) const
{
    const QDir dir(folder);
    std::set<int> counted;
    for (const FishRecord& f : fish)
        counted.insert(f.id);
    // Tracks that never became a counted fish are left out, as in a recording's count.
    std::vector<TrackPoint> countedPoints;
    for (const TrackPoint& p : points) {
        if (counted.count(p.fishId))
            countedPoints.push_back(p);
    }
    return FishCsv::writeFish(dir.filePath("fish.csv"), fish, error)
        && FishCsv::writeTracks(dir.filePath("tracks.csv"), countedPoints, error);
}

void FishCountPanel::chooseExportFolder()
{
    const QString folder = QFileDialog::getExistingDirectory(this, tr("Folder for fish.csv and tracks.csv"),
        QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));
    if (folder.isEmpty())
        return;
    QString error;
    if (!exportCsv(folder, &error))
        QMessageBox::warning(this, tr("Export fish"), error);
}
