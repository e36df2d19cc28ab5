#include "analysis/FishCounter.h"

#include "FishCounterPrivate.h"
#include "sources/SourceFrame.h"

namespace Halcyra::Nereon::Analysis {

FishCounter::FishCounter(const CountOptions& options)
    : d(std::make_unique<FishCounterPrivate>())
{
    d->options = options;
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
    d->detector.detect(foreground);
    ++d->framesProcessed;
}

void FishCounter::finish()
{
}

const std::vector<FishRecord>& FishCounter::getFish() const
{
    return d->fish;
}

const std::vector<TrackPoint>& FishCounter::getTrackPoints() const
{
    return d->trackPoints;
}

std::vector<LiveTrack> FishCounter::getActiveTracks() const
{
    return {};
}

int FishCounter::getUpstreamCount() const
{
    return d->upstream;
}

int FishCounter::getDownstreamCount() const
{
    return d->downstream;
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
