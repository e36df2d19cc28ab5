// The analysis library's speed on one core: the moving-target filter (with OpenCV's
// MOG2 beside it), and the whole count (filter, detection, tracking) in frames per
// second, on synthetic passages. Run with --benchmark_repetitions=5 for medians.

#include "analysis/BackgroundSubtractor.h"
#include "analysis/FishCounter.h"
#include "sources/SyntheticPassage.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/video/background_segm.hpp>

#include <map>
#include <vector>

using namespace Halcyra::Nereon;

namespace {

/// Frames of a passage busy with fish, made once per size.
const std::vector<Sources::SourceFrame>& framesOf(int beams, int samples, int count)
{
    static std::map<std::pair<int, int>, std::vector<Sources::SourceFrame>> cache;
    auto& frames = cache[{ beams, samples }];
    if (frames.empty()) {
        Sources::SyntheticPassageOptions options;
        options.beams = beams;
        options.samples = samples;
        options.frames = count;
        options.fish = std::max(2, count / 20);
        options.seed = 3;
        Sources::SyntheticPassage passage(options);
        Sources::SourceFrame frame;
        while (passage.nextFrame(frame))
            frames.push_back(frame);
    }
    return frames;
}

void filter(benchmark::State& state)
{
    cv::setNumThreads(1);
    const auto& frames = framesOf(int(state.range(0)), int(state.range(1)), 32);
    Analysis::BackgroundSubtractor subtractor;
    subtractor.setFrameRate(10.0);
    NereonImage foreground;
    for (const auto& f : frames)
        subtractor.apply(f.image, foreground);
    std::size_t i = 0;
    for (auto _ : state) {
        subtractor.apply(frames[i++ % frames.size()].image, foreground);
        benchmark::DoNotOptimize(foreground.getData().data());
    }
    state.counters["frames/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

void openCvMog2(benchmark::State& state)
{
    cv::setNumThreads(1);
    const auto& frames = framesOf(int(state.range(0)), int(state.range(1)), 32);
    const auto mog2 = cv::createBackgroundSubtractorMOG2(200, 16.0, false);
    cv::Mat mask;
    std::size_t i = 0;
    for (auto _ : state) {
        const NereonImage& image = frames[i++ % frames.size()].image;
        const cv::Mat in(
            image.getHeight(), image.getWidth(), CV_8U, const_cast<std::uint8_t*>(image.getData().data()));
        mog2->apply(in, mask);
        benchmark::DoNotOptimize(mask.data);
    }
    state.counters["frames/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

void pipeline(benchmark::State& state)
{
    cv::setNumThreads(1);
    const int count = state.range(0) * state.range(1) > 1'000'000 ? 60 : 400;
    const auto& frames = framesOf(int(state.range(0)), int(state.range(1)), count);
    std::vector<NereonImage> samples;
    for (std::size_t i = 0; i < frames.size(); i += frames.size() / 20)
        samples.push_back(frames[i].image);
    Analysis::FishCounter counter;
    counter.learnBackground(samples);
    std::size_t i = 0;
    int offset = 0;
    for (auto _ : state) {
        // Played round and round, with frame numbers and times running on.
        Sources::SourceFrame frame = frames[i % frames.size()];
        frame.index += offset;
        frame.timestamp += std::int64_t(offset) * 100'000;
        if (++i % frames.size() == 0)
            offset += int(frames.size());
        counter.addFrame(frame);
    }
    state.counters["frames/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["fish"] = double(counter.getFish().size());
}

} // namespace

BENCHMARK(filter)->Args({ 128, 1000 })->Args({ 512, 4000 })->Unit(benchmark::kMillisecond);
BENCHMARK(openCvMog2)->Args({ 128, 1000 })->Args({ 512, 4000 })->Unit(benchmark::kMillisecond);
BENCHMARK(pipeline)
    ->Args({ 128, 1000 })
    ->Args({ 128, 2000 })
    ->Args({ 512, 4000 })
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
