// Counting fish in a recording on one core, decoding included: a generated
// passage (fish, rocks, speckle) is written to a file once, then each iteration
// counts the whole file as nereon-count's jobs do (open, learn the background from
// frames across it, count every frame), with OpenCV held to one thread.
//   - BM_Count/128/1000 and BM_Count/128/2000: ARIS recordings, 128 beams x N samples;
//   - BM_Count/512/4000: the viewer's own recording (ARIS has no 512-beam sonar).
// Counters: "fps", frames counted per second of wall time; "fps_cpu", per second of
// the counting thread's CPU time, which is what one core gives when the machine is
// not shared (wall time grows with the other load, CPU time hardly); "learn_s", CPU
// seconds spent sampling 60 frames and learning the background, once per recording;
// "fps_cpu_after_learning", the rate over the rest, which a long recording approaches.
//
//   bench_count --benchmark_repetitions=3 --benchmark_report_aggregates_only=true

#include "analysis/RecordingCounter.h"
#include "sources/ArisWriter.h"
#include "sources/RecordingWriter.h"
#include "sources/SyntheticPassage.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <map>

using namespace Halcyra::Nereon::Analysis;
using namespace Halcyra::Nereon::Sources;

namespace {

constexpr int framesPerFile = 200;

double threadSeconds()
{
    timespec t {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

QTemporaryDir& folder()
{
    static QTemporaryDir dir;
    return dir;
}

/// The recording for `beams` x `samples`, written on first use.
QString recording(int beams, int samples)
{
    static std::map<std::pair<int, int>, QString> written;
    auto found = written.find({ beams, samples });
    if (found != written.end())
        return found->second;

    SyntheticPassageOptions options;
    options.beams = beams;
    options.samples = samples;
    options.frames = framesPerFile;
    options.fish = 6;
    options.seed = std::uint64_t(beams * 10000 + samples);
    SyntheticPassage passage(options);
    const bool aris = beams <= 128;
    const QString path = folder().filePath(
        QStringLiteral("passage-%1x%2.%3").arg(beams).arg(samples).arg(aris ? "aris" : "nrec"));
    SourceFrame frame;
    if (aris) {
        ArisWriter writer;
        if (!writer.open(path, passage.getWriterOptions()))
            return QString();
        while (passage.nextFrame(frame))
            writer.write(frame);
        writer.close();
    } else {
        RecordingWriter writer;
        std::int64_t start = -1;
        while (passage.nextFrame(frame)) {
            if (start < 0) {
                start = frame.timestamp;
                if (!writer.open(path, start / 1000))
                    return QString();
            }
            writer.write(frame.image, frame.timestamp - start);
        }
        writer.close();
    }
    written[{ beams, samples }] = path;
    return path;
}

void BM_Count(benchmark::State& state)
{
    const QString path = recording(int(state.range(0)), int(state.range(1)));
    if (path.isEmpty()) {
        state.SkipWithError("cannot write the recording");
        return;
    }
    RecordingCounter::setLibraryThreads(1);
    RecordingCounter counter;
    RecordingCount result;
    int frames = 0;
    // The first progress call comes right after the background has been learnt.
    double learning = 0.0, countStart = 0.0;
    counter.setProgress([&](int done, int) {
        if (done == 1)
            learning += threadSeconds() - countStart;
        return true;
    });
    const double cpuStart = threadSeconds();
    for (auto _ : state) {
        countStart = threadSeconds();
        if (!counter.count(path, result)) {
            state.SkipWithError(qPrintable(result.error));
            return;
        }
        frames += result.frames;
        benchmark::DoNotOptimize(result.fish.data());
    }
    state.counters["fps"] = benchmark::Counter(frames, benchmark::Counter::kIsRate);
    const double cpu = threadSeconds() - cpuStart;
    state.counters["fps_cpu"] = frames / std::max(1e-9, cpu);
    state.counters["learn_s"] = learning / double(state.iterations());
    state.counters["fps_cpu_after_learning"] = frames / std::max(1e-9, cpu - learning);
    state.counters["fish"] = double(result.fish.size());
}

} // namespace

BENCHMARK(BM_Count)
    ->Args({ 128, 1000 })
    ->Args({ 128, 2000 })
    ->Args({ 512, 4000 })
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

BENCHMARK_MAIN();
