// Exporting a recording to H.264 video on this machine's GL: 512 beams x 4000
// range lines of the simulated sonar, 2 s pinged at 15 or 40 Hz, written at 25
// frames a second at 1280 x 720 and 1920 x 1080 (arguments: width, height, ping
// rate). Counters: pictures written a second ("fps"), how many times faster than
// real time ("realtime": seconds of recording exported a second), and milliseconds
// a picture for each stage: reading and handing frames to the display, drawing with
// read-back, RGB to YUV, encoding. Needs a display:
//   xvfb-run -a -s "-screen 0 1920x1080x24" build/bench/bench_export
//       --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "export/RecordingExporter.h"
#include "sources/RecordingWriter.h"
#include "SonarScene.h"

#include <QApplication>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cmath>

using namespace Halcyra::Nereon::Export;
using namespace Halcyra::Nereon::Sources;

namespace {

constexpr double recordingSeconds = 2.0;

QString recording(int rate)
{
    static QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("stream-%1.nrec").arg(rate));
    if (!QFile::exists(file)) {
        const double recordingRate = rate;
        const int recordingFrames = int(recordingSeconds * rate);
        SonarConfiguration configuration;
        configuration.beamCount = 512;
        configuration.rangeLines = 4000;
        configuration.range = 100.0;
        configuration.frameRate = int(recordingRate);
        SonarScene scene(configuration);
        RecordingWriter writer;
        writer.open(file, 1700000000000);
        for (int i = 0; i < recordingFrames; ++i)
            writer.write(scene.renderFrame(i / recordingRate), std::int64_t(i * 1e6 / recordingRate));
    }
    return file;
}

void BM_ExportVideo(benchmark::State& state)
{
    static QTemporaryDir output;
    ExportOptions options;
    options.size = QSize(int(state.range(0)), int(state.range(1)));
    RecordingExporter::Timing timing;
    std::int64_t pictures = 0;
    for (auto _ : state) {
        RecordingExporter exporter;
        if (!exporter.start(recording(int(state.range(2))), output.filePath("bench.mp4"), options)) {
            state.SkipWithError(qPrintable(exporter.getErrorString()));
            return;
        }
        while (exporter.step()) {
        }
        if (!exporter.isFinished()) {
            state.SkipWithError(qPrintable(exporter.getErrorString()));
            return;
        }
        pictures += exporter.getDone();
        const RecordingExporter::Timing t = exporter.getTiming();
        timing.reading += t.reading;
        timing.drawing += t.drawing;
        timing.conversion += t.conversion;
        timing.encoding += t.encoding;
    }
    const double perPicture = 1.0 / double(std::max<std::int64_t>(1, pictures));
    state.counters["fps"] = benchmark::Counter(double(pictures), benchmark::Counter::kIsRate);
    const double rate = double(state.range(2));
    const double exported = double(state.iterations()) * (std::floor(recordingSeconds * rate) - 1) / rate;
    state.counters["realtime"] = benchmark::Counter(exported, benchmark::Counter::kIsRate);
    state.counters["read_ms"] = timing.reading * perPicture;
    state.counters["draw_ms"] = timing.drawing * perPicture;
    state.counters["yuv_ms"] = timing.conversion * perPicture;
    state.counters["encode_ms"] = timing.encoding * perPicture;
}
BENCHMARK(BM_ExportVideo)
    ->Args({ 1280, 720, 15 })
    ->Args({ 1280, 720, 40 })
    ->Args({ 1920, 1080, 15 })
    ->Args({ 1920, 1080, 40 })
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
