#pragma once

#include "analysis/FishCounter.h"
#include "sources/SourceFrame.h"
#include "views/EchogramMark.h"

#include <QHash>
#include <QPointer>
#include <QThread>
#include <QWidget>

#include <atomic>
#include <map>
#include <memory>
#include <vector>

class QCheckBox;
class QDoubleSpinBox;
class QLabel;
class QPushButton;

namespace Halcyra::Nereon::Analysis {
class LiveFishCounter;
}
namespace Halcyra::Nereon::Views {
class EchogramDisplay;
class FanAnnotations;
}
namespace Halcyra::Nereon::Visualisation {
class FanDisplay;
}

/**
 * Counts fish in the frames the viewer shows: a counter on a thread of its own
 * takes the frames queued, and its tracks and counts come back queued, drawn on
 * the fan (a box, the fish's number and length, its trail) and on the echogram
 * (each confirmed track as it grows, a counted fish's whole track with its number
 * and length), and shown as counts.
 * The fish and their tracks can be written to CSV files.
 */
class FishCountPanel : public QWidget
{
    Q_OBJECT

public:
    /// Draws on `display` while counting.
    explicit FishCountPanel(Halcyra::Nereon::Visualisation::FanDisplay* display, QWidget* parent = nullptr);
    /// Stops the counting thread.
    ~FishCountPanel() override;

    /// Counts with these options from now on, starting afresh.
    void setOptions(const Halcyra::Nereon::Analysis::CountOptions& options);
    const Halcyra::Nereon::Analysis::CountOptions& getOptions() const { return options; }
    void setCounting(bool on);
    bool isCounting() const;
    /// Draws the tracks on `echogram` too (none: not there); forgotten if deleted first.
    void setEchogram(Halcyra::Nereon::Views::EchogramDisplay* echogram);
    /// Hands a frame to the counter (unfiltered: it keeps its own background). Frames come
    /// in order; a new source starts with restart().
    void addFrame(const Halcyra::Nereon::Sources::SourceFrame& frame);
    /// Forgets the tracks and counts, as for a new source.
    void restart();
    /// Teaches the counter the still background from frames sampled across a recording,
    /// before its frames come.
    void learnBackground(const std::vector<Halcyra::Nereon::NereonImage>& samples);
    /// Ends the tracks still open (a replay reached its end).
    void finish();

    int getUpstream() const { return upstream; }
    int getDownstream() const { return downstream; }
    const std::vector<Halcyra::Nereon::Analysis::FishRecord>& getFish() const { return fish; }
    /// Marks on the fan now.
    const Halcyra::Nereon::Views::FanAnnotations& getMarks() const { return *marks; }

    /// Writes fish.csv and tracks.csv into `folder`; false with the reason in `error`.
    bool exportCsv(const QString& folder, QString* error = nullptr) const;

signals:
    /// Queued to the counter's thread.
    void frameForCounter(const Halcyra::Nereon::Sources::SourceFrame& frame);
    void restartCounter();
    void finishCounter();
    void backgroundForCounter(const std::vector<Halcyra::Nereon::NereonImage>& samples);

private:
    void showTracks(const std::vector<Halcyra::Nereon::Analysis::LiveTrack>& tracks);
    void showCounts();
    /// Puts a track's mark on the echogram, or brings it up to date.
    void showOnEchogram(int trackId);
    void clearEchogram();
    void chooseExportFolder();

    Halcyra::Nereon::Visualisation::FanDisplay* display = nullptr;
    std::unique_ptr<Halcyra::Nereon::Views::FanAnnotations> const marks;
    QThread thread;
    Halcyra::Nereon::Analysis::LiveFishCounter* counter = nullptr;
    Halcyra::Nereon::Analysis::CountOptions options;
    /// Frames handed over and not yet counted: beyond a few, live frames are dropped rather than queued.
    std::shared_ptr<std::atomic<int>> inFlight;

    int upstream = 0;
    int downstream = 0;
    std::vector<Halcyra::Nereon::Analysis::FishRecord> fish;
    std::vector<Halcyra::Nereon::Analysis::TrackPoint> points;
    /// On the echogram: each confirmed track's points so far, and the echogram's id of its mark (0: not
    /// shown).
    struct EchogramTrack
    {
        Halcyra::Nereon::Views::EchogramMark mark;
        int markId = 0;
        bool counted = false;
    };
    QPointer<Halcyra::Nereon::Views::EchogramDisplay> echogram;
    std::map<int, EchogramTrack> echogramTracks;
    int lastFrame = -1;
    std::int64_t lastTime = 0;

    QCheckBox* countBox = nullptr;
    QCheckBox* lineBox = nullptr;
    QDoubleSpinBox* lineBearingBox = nullptr;
    QLabel* upLabel = nullptr;
    QLabel* downLabel = nullptr;
    QLabel* netLabel = nullptr;
    QLabel* lengthLabel = nullptr;
    QPushButton* exportButton = nullptr;
};
