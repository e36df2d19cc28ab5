#pragma once

#include "TernwickNereonAnalysisExport.h"

#include "analysis/FishCounter.h"
#include "sources/SourceFrame.h"

#include <QObject>

#include <memory>
#include <vector>

namespace Halcyra::Nereon::Analysis {

/**
 * A FishCounter for live frames, to be moved to the frame source's thread (or a
 * thread of its own) so that counting never runs on the GUI thread. Connect the
 * source's frameReady() to addFrame(); the results come out as signals carrying
 * copies, which cross threads queued.
 *
 * @code
 * auto* counter = new LiveFishCounter(options);
 * counter->moveToThread(&analysisThread);
 * connect(source, &FrameSource::frameReady, counter, &LiveFishCounter::addFrame);
 * connect(counter, &LiveFishCounter::countsChanged, window, &Window::showCounts);
 * @endcode
 */
class TERNWICK_NEREON_ANALYSIS_EXPORT LiveFishCounter : public QObject
{
    Q_OBJECT

public:
    /// A counter with `options`; move it to the thread it is to count on.
    explicit LiveFishCounter(const CountOptions& options = {}, QObject* parent = nullptr);
    ~LiveFishCounter() override;

public slots:
    /// Counts one frame and emits the results.
    void addFrame(const Halcyra::Nereon::Sources::SourceFrame& frame);
    /// Learns the background from sampled frames before live frames come.
    void learnBackground(const std::vector<Halcyra::Nereon::NereonImage>& samples);
    /// Ends every open track (the source stopped) and emits the fish that qualify.
    void finish();
    /// Forgets everything, counts included; the options stay.
    void reset();

signals:
    /// The frame's foreground (the moving-target view), same index and time as the frame.
    void foregroundReady(const Halcyra::Nereon::Sources::SourceFrame& foreground);
    /// The tracks being followed after a frame.
    void tracksUpdated(const std::vector<Halcyra::Nereon::Analysis::LiveTrack>& tracks);
    /// A fish has been counted.
    void fishCounted(const Halcyra::Nereon::Analysis::FishRecord& fish);
    /// The counts changed: fish up, fish down.
    void countsChanged(int upstream, int downstream);

private:
    void emitNewFish();

    class LiveFishCounterPrivate;
    std::unique_ptr<LiveFishCounterPrivate> const d;
};

} // namespace Halcyra::Nereon::Analysis

Q_DECLARE_METATYPE(std::vector<Halcyra::Nereon::NereonImage>)
