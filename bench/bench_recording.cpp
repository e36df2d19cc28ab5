// Recording and replay of the viewer (examples/viewer/recording) on frames of the
// simulated sonar at its largest, 512 beams x 4000 range lines (2 MB a frame; at
// 40 Hz the 82 MB/s stream of a real sonar):
//   - BM_Write/<level>: compress and write, in MB/s of intensities; the counter
//     "ratio" is the compression ratio of the intensities at that zstd level;
//   - BM_Read: read, check and decompress, in MB/s of intensities;
//   - BM_ReplayTiming/<range lines>: 80 frames at 40 Hz replayed at their pace;
//     counters give how late frames leave the player ("emitted_*") and arrive on
//     the receiving thread through a queued connection ("arrived_*"), in
//     microseconds against the recorded timestamps.
//
//   bench_recording --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "sources/FramePlayer.h"
#include "sources/RecordingReader.h"
#include "sources/RecordingWriter.h"
#include "SonarScene.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

using Halcyra::Nereon::NereonImage;
using namespace Halcyra::Nereon::Sources;

namespace {

std::vector<NereonImage> renderFrames(int rangeLines)
{
    SonarConfiguration configuration;
    configuration.beamCount = 512;
    configuration.rangeLines = rangeLines;
    configuration.range = 100.0;
    configuration.frameRate = 40;
    SonarScene scene(configuration);
    std::vector<NereonImage> rendered;
    for (int i = 0; i < 8; ++i)
        rendered.push_back(scene.renderFrame(i / 40.0));
    return rendered;
}

const std::vector<NereonImage>& sonarFrames(int rangeLines = 4000)
{
    static const std::vector<NereonImage> large = renderFrames(4000);
    static const std::vector<NereonImage> small = renderFrames(500);
    return rangeLines == 4000 ? large : small;
}

QTemporaryDir& folder()
{
    static QTemporaryDir dir;
    return dir;
}

QString writeRecording(const QString& name, int frameCount, int rangeLines = 4000)
{
    const QString path = folder().filePath(name);
    const auto& frames = sonarFrames(rangeLines);
    RecordingWriter writer;
    writer.open(path, 0);
    for (int i = 0; i < frameCount; ++i)
        writer.write(frames[std::size_t(i) % frames.size()], std::int64_t(i) * 25000);
    return path;
}

void BM_Write(benchmark::State& state)
{
    const auto& frames = sonarFrames();
    RecordingWriter writer(int(state.range(0)));
    const QString path = folder().filePath("write.nrec");
    writer.open(path, 0);
    std::size_t i = 0;
    std::int64_t written = 0;
    for (auto _ : state) {
        // A fresh file now and then keeps the folder small.
        if (writer.getBytesWritten() > (std::int64_t(512) << 20)) {
            state.PauseTiming();
            writer.open(path, 0);
            state.ResumeTiming();
        }
        const NereonImage& frame = frames[i++ % frames.size()];
        if (!writer.write(frame, std::int64_t(i) * 25000))
            state.SkipWithError("write failed");
        written += std::int64_t(frame.getData().size());
    }
    state.SetBytesProcessed(written);
    state.counters["ratio"] = double(writer.getIntensityBytes()) / double(writer.getStoredIntensityBytes());
}
BENCHMARK(BM_Write)->Arg(1)->Arg(3)->Arg(6)->Unit(benchmark::kMillisecond);

void BM_Read(benchmark::State& state)
{
    static const QString path = writeRecording("read.nrec", 64);
    RecordingReader reader;
    if (!reader.open(path)) {
        state.SkipWithError("cannot open");
        return;
    }
    int i = 0;
    std::int64_t read = 0;
    for (auto _ : state) {
        SourceFrame frame;
        if (!reader.readFrame(i++ % reader.getFrameCount(), frame))
            state.SkipWithError("read failed");
        read += std::int64_t(frame.image.getData().size());
        benchmark::DoNotOptimize(frame);
    }
    state.SetBytesProcessed(read);
}
BENCHMARK(BM_Read)->Unit(benchmark::kMillisecond);

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

void BM_ReplayTiming(benchmark::State& state)
{
    using Clock = std::chrono::steady_clock;
    constexpr int frameCount = 80;
    const QString path = writeRecording("replay.nrec", frameCount, int(state.range(0)));
    std::vector<double> emitted, arrived;
    for (auto _ : state) {
        FramePlayer player;
        QObject receiver;
        QEventLoop loop;
        Clock::time_point firstEmitted, firstArrived;
        std::int64_t firstTimestamp = 0;
        auto lateness = [](Clock::time_point first, std::int64_t recorded) {
            return double(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - first).count())
                - double(recorded);
        };
        // On the player's thread, as it leaves.
        QObject::connect(
            &player, &FramePlayer::frameReady, &player,
            [&](const SourceFrame& frame) {
                const int index = frame.index;
                const qint64 timestamp = frame.timestamp;
                if (index == 0) {
                    firstEmitted = Clock::now();
                    firstTimestamp = timestamp;
                } else {
                    emitted.push_back(std::abs(lateness(firstEmitted, timestamp - firstTimestamp)));
                }
            },
            Qt::DirectConnection);
        // On this thread, as a viewer receives it.
        QObject::connect(&player, &FramePlayer::frameReady, &receiver,
            [&](const SourceFrame& frame) {
                const int index = frame.index;
                const qint64 timestamp = frame.timestamp;
                if (index == 0)
                    firstArrived = Clock::now();
                else
                    arrived.push_back(std::abs(lateness(firstArrived, timestamp - firstTimestamp)));
            });
        QObject::connect(&player, &FramePlayer::reachedEnd, &loop, &QEventLoop::quit);
        player.open(path);
        player.play();
        loop.exec();
    }
    state.counters["emitted_median_us"] = median(emitted);
    state.counters["emitted_max_us"]
        = emitted.empty() ? 0.0 : *std::max_element(emitted.begin(), emitted.end());
    state.counters["arrived_median_us"] = median(arrived);
    state.counters["arrived_max_us"]
        = arrived.empty() ? 0.0 : *std::max_element(arrived.begin(), arrived.end());
}
BENCHMARK(BM_ReplayTiming)->Arg(500)->Arg(4000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
