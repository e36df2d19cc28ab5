#include "analysis/FishCounter.h"

#include "FishCounterPrivate.h"
#include "sources/SourceFrame.h"

#include <algorithm>

namespace Halcyra::Nereon::Analysis {

FishCounter::FishCounterPrivate::FishCounterPrivate(const CountOptions& options)
    : options(options)
    , tracker(options)
{
    subtractor.setAdaptationSeconds(options.adaptationSeconds);
    subtractor.setThreshold(options.thresholdDifference, options.thresholdSpreadFactor);
    detector.setMinimumLengthM(options.minLengthM * options.detectionLengthFraction);
}

FishCounter::FishCounter(const CountOptions& options)
    : d(std::make_unique<FishCounterPrivate>(options))
{
}

FishCounter::~FishCounter() = default;

void FishCounter::learnBackground(const std::vector<NereonImage>& samples)
{
    d->subtractor.learn(samples);
}

void FishCounter::addFrame(const Sources::SourceFrame& frame)
{
    NereonImage foreground;
    if (!d->subtractor.apply(frame, foreground)) {
        ++d->framesRejected;
        return;
    }
    d->lastForeground = foreground;
    const int index = frame.index >= 0 ? frame.index : d->lastFrame + 1;
    const int frames = d->lastFrame >= 0 ? std::max(1, index - d->lastFrame) : 1;
    // Times drive the motion model; frames without usable times are taken as evenly paced.
    double dt = frames / d->options.fallbackFrameRateHz;
    if (d->lastFrame >= 0 && frame.timestamp > d->lastTime && frame.timestamp - d->lastTime < 60'000'000)
        dt = (frame.timestamp - d->lastTime) / 1e6;
    FieldOfView view;
    const auto& bearings = frame.image.getBearings();
    view.minBearingDeg = std::min(bearings.front(), bearings.back()) / 100.0;
    view.maxBearingDeg = std::max(bearings.front(), bearings.back()) / 100.0;
    view.minRangeM = frame.firstSampleRow * frame.image.getRange() / frame.image.getHeight();
    view.maxRangeM = frame.image.getRange();
    d->tracker.update(index, frame.timestamp, dt, d->detector.detect(foreground), view);
    d->lastFrame = index;
    d->lastTime = frame.timestamp;
    ++d->framesProcessed;
}

void FishCounter::finish()
{
    d->tracker.finish();
}

const std::vector<FishRecord>& FishCounter::getFish() const
{
    return d->tracker.getFish();
}

const std::vector<TrackPoint>& FishCounter::getTrackPoints() const
{
    return d->tracker.getTrackPoints();
}

std::vector<LiveTrack> FishCounter::getActiveTracks() const
{
    return d->tracker.getActiveTracks();
}

int FishCounter::getUpstreamCount() const
{
    return d->tracker.getUpstreamCount();
}

int FishCounter::getDownstreamCount() const
{
    return d->tracker.getDownstreamCount();
}

int FishCounter::getFramesProcessed() const
{
    return d->framesProcessed;
}

int FishCounter::getFramesRejected() const
{
    return d->framesRejected;
}

const NereonImage& FishCounter::getLastForeground() const
{
    return d->lastForeground;
}

const CountOptions& FishCounter::getOptions() const
{
    return d->options;
}

} // namespace Halcyra::Nereon::Analysis
