#include "analysis/RecordingCounter.h"

#include "sources/FrameReader.h"

#include <opencv2/core.hpp>

#include <algorithm>

namespace Halcyra::Nereon::Analysis {

using Sources::FrameReader;
using Sources::SourceFrame;

namespace {

/// The background samples may hold this much at once, so that a recording of huge
/// frames still costs bounded memory. Room for 60 frames of 512 x 4000 and more:
/// a model learnt from half as many takes speckle at that size for fish.
constexpr std::int64_t sampleBudgetBytes = std::int64_t(256) << 20;

} // namespace

RecordingCounter::RecordingCounter(const CountOptions& options)
    : options(options)
{
}

RecordingCounter::~RecordingCounter() = default;

bool RecordingCounter::count(const QString& path, RecordingCount& result)
{
    result = RecordingCount();
    result.file = path;
    cancelRequested = false;

    std::unique_ptr<FrameReader> reader = FrameReader::create(path, &result.error);
    if (!reader)
        return false;

    FishCounter counter(options);
    if (backgroundSamples > 0) {
        const Sources::SonarDescription sonar = reader->getDescription();
        const std::int64_t frameBytes
            = std::max<std::int64_t>(1, std::int64_t(sonar.beamCount) * sonar.samplesPerBeam);
        const int affordable = int(std::max<std::int64_t>(8, sampleBudgetBytes / frameBytes));
        const int wanted = std::min({ backgroundSamples, affordable, reader->getFrameCount() });
        std::vector<NereonImage> samples;
        samples.reserve(std::size_t(wanted));
        SourceFrame frame;
        for (int i = 0; i < wanted && !cancelRequested; ++i) {
            // Evenly across the file, the first and the last frame included; frames past
            // damage found on the way are simply not there any more.
            const int index
                = wanted > 1 ? int((std::int64_t(i) * (reader->getFrameCount() - 1)) / (wanted - 1)) : 0;
            if (index < reader->getFrameCount() && reader->readFrame(index, frame))
                samples.push_back(frame.image);
        }
        if (!samples.empty())
            counter.learnBackground(samples);
    }

    reader->seekToFrame(0);
    SourceFrame frame;
    while (!cancelRequested && reader->next(frame)) {
        if (result.frames == 0)
            result.startTime = frame.timestamp;
        result.endTime = frame.timestamp;
        counter.addFrame(frame);
        ++result.frames;
        if (progress && !progress(result.frames, reader->getFrameCount()))
            cancelRequested = true;
    }
    counter.finish();

    result.fish = counter.getFish();
    result.trackPoints = counter.getTrackPoints();
    result.upstream = counter.getUpstreamCount();
    result.downstream = counter.getDownstreamCount();
    if (reader->hasDamage()) {
        result.damageOffset = reader->getDamageOffset();
        result.damage = reader->describeDamage();
    }
    if (cancelRequested) {
        result.cancelled = true;
        return false;
    }
    if (result.frames == 0) {
        result.error = reader->hasDamage() ? result.damage : QStringLiteral("%1 holds no frame").arg(path);
        return false;
    }
    return true;
}

void RecordingCounter::setLibraryThreads(int threads)
{
    cv::setNumThreads(threads > 0 ? threads : -1);
}

} // namespace Halcyra::Nereon::Analysis
