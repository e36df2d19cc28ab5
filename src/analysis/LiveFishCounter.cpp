#include "analysis/LiveFishCounter.h"

#include "LiveFishCounterPrivate.h"

namespace Halcyra::Nereon::Analysis {

LiveFishCounter::LiveFishCounter(const CountOptions& options, QObject* parent)
    : QObject(parent)
    , d(std::make_unique<LiveFishCounterPrivate>())
{
    d->options = options;
    d->counter = std::make_unique<FishCounter>(d->options);
    // Queued connections need the types registered at run time.
    qRegisterMetaType<Sources::SourceFrame>();
    qRegisterMetaType<FishRecord>();
    qRegisterMetaType<LiveTrack>();
    qRegisterMetaType<std::vector<LiveTrack>>();
    qRegisterMetaType<std::vector<NereonImage>>();
}

LiveFishCounter::~LiveFishCounter() = default;

void LiveFishCounter::addFrame(const Sources::SourceFrame& frame)
{
    const int processed = d->counter->getFramesProcessed();
    d->counter->addFrame(frame);
    if (d->counter->getFramesProcessed() == processed)
        return;
    Sources::SourceFrame foreground = frame;
    foreground.image = d->counter->getLastForeground();
    emit foregroundReady(foreground);
    emit tracksUpdated(d->counter->getActiveTracks());
    emitNewFish();
}

void LiveFishCounter::learnBackground(const std::vector<NereonImage>& samples)
{
    d->counter->learnBackground(samples);
}

void LiveFishCounter::finish()
{
    d->counter->finish();
    emit tracksUpdated(d->counter->getActiveTracks());
    emitNewFish();
}

void LiveFishCounter::reset()
{
    d->counter = std::make_unique<FishCounter>(d->options);
    d->fishEmitted = 0;
    emit tracksUpdated({});
    emit countsChanged(0, 0);
}

void LiveFishCounter::emitNewFish()
{
    const auto& fish = d->counter->getFish();
    if (d->fishEmitted == fish.size())
        return;
    for (; d->fishEmitted < fish.size(); ++d->fishEmitted)
        emit fishCounted(fish[d->fishEmitted]);
    emit countsChanged(d->counter->getUpstreamCount(), d->counter->getDownstreamCount());
}

} // namespace Halcyra::Nereon::Analysis
