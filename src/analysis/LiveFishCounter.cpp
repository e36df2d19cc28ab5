#include "analysis/LiveFishCounter.h"

namespace Halcyra::Nereon::Analysis {

LiveFishCounter::LiveFishCounter(const CountOptions& options, QObject* parent)
    : QObject(parent)
    , options(options)
    , counter(std::make_unique<FishCounter>(options))
{
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
    const int processed = counter->getFramesProcessed();
    counter->addFrame(frame);
    if (counter->getFramesProcessed() == processed)
        return;
    Sources::SourceFrame foreground = frame;
    foreground.image = counter->getLastForeground();
    emit foregroundReady(foreground);
    emit tracksUpdated(counter->getActiveTracks());
    emitNewFish();
}

void LiveFishCounter::learnBackground(const std::vector<NereonImage>& samples)
{
    counter->learnBackground(samples);
}

void LiveFishCounter::finish()
{
    counter->finish();
    emit tracksUpdated(counter->getActiveTracks());
    emitNewFish();
}

void LiveFishCounter::reset()
{
    counter = std::make_unique<FishCounter>(options);
    fishEmitted = 0;
    emit tracksUpdated({});
    emit countsChanged(0, 0);
}

void LiveFishCounter::emitNewFish()
{
    const auto& fish = counter->getFish();
    if (fishEmitted == fish.size())
        return;
    for (; fishEmitted < fish.size(); ++fishEmitted)
        emit fishCounted(fish[fishEmitted]);
    emit countsChanged(counter->getUpstreamCount(), counter->getDownstreamCount());
}

} // namespace Halcyra::Nereon::Analysis
