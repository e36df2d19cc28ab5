// Synthetic passages, which tests and benchmarks make at run time:
//   - BM_PassageSetUp: planning the fish and drawing the bed (once per passage);
//   - BM_PassageFrame: one frame with its speckle and fish;
//   - BM_PassageToAris: the default passage (600 frames of 48 beams x 1000 samples,
//     8 fish) drawn and written as an ARIS recording, as nereon-make-aris does.
// Arguments are beams and samples. Counters: frames/s and, for whole recordings,
// "realtime" (how many times faster than the recording's 10 Hz).
//
//   bench_synthetic --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "sources/ArisWriter.h"
#include "sources/SyntheticPassage.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace Halcyra::Nereon::Sources;

namespace {

SyntheticPassageOptions sized(const benchmark::State& state)
{
    SyntheticPassageOptions options;
    options.beams = int(state.range(0));
    options.samples = int(state.range(1));
    return options;
}

void BM_PassageSetUp(benchmark::State& state)
{
    const SyntheticPassageOptions options = sized(state);
    for (auto _ : state) {
        SyntheticPassage passage(options);
        benchmark::DoNotOptimize(passage.getPositions().data());
    }
}
BENCHMARK(BM_PassageSetUp)
    ->Args({ 48, 1000 })
    ->Args({ 128, 4000 })
    ->Args({ 512, 4000 })
    ->Unit(benchmark::kMillisecond);

void BM_PassageFrame(benchmark::State& state)
{
    SyntheticPassage passage(sized(state));
    SourceFrame frame;
    int index = 0;
    for (auto _ : state) {
        passage.renderFrame(index, frame);
        index = (index + 1) % passage.getOptions().frames;
        benchmark::DoNotOptimize(frame.image.getData().data());
    }
    state.counters["frames/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_PassageFrame)
    ->Args({ 48, 1000 })
    ->Args({ 128, 4000 })
    ->Args({ 512, 4000 })
    ->Unit(benchmark::kMillisecond);

void BM_PassageToAris(benchmark::State& state)
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("passage.aris"));
    const SyntheticPassageOptions options = sized(state);
    for (auto _ : state) {
        SyntheticPassage passage(options);
        ArisWriter writer;
        writer.open(path, passage.getWriterOptions());
        SourceFrame frame;
        while (passage.nextFrame(frame))
            writer.write(frame);
        writer.close();
    }
    const double frames = double(state.iterations()) * options.frames;
    state.counters["frames/s"] = benchmark::Counter(frames, benchmark::Counter::kIsRate);
    state.counters["realtime"] = benchmark::Counter(frames / options.frameRate, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_PassageToAris)->Args({ 48, 1000 })->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
