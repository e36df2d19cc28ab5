// What tracks drawn over a live echogram cost per painted frame.
//
// BM_EchogramMarks: one round adds a live frame to, and paints, in turn, three shown
// 1280 x 300 echograms of 2,048 kept frames: one without marks, one with 100 and one
// with 1,000 tracks of 30 frames each (every fourth with a label), spread over the
// frames kept. Rounds interleave the variants, so a load that comes and goes touches
// them alike. Counters: milliseconds per frame (wall time, until glFinish), their
// ratios to the echogram without marks, and the GUI thread's CPU per frame.
//
// Needs an X display; ratios only mean something side by side in one run, as medians:
//   xvfb-run -a -s "-screen 0 1920x1080x24" bench_echogram_marks --benchmark_repetitions=5
//   --benchmark_report_aggregates_only=true

#include "nereon/NereonImage.h"
#include "views/EchogramDisplay.h"
#include "views/EchogramMark.h"

#include "CpuClock.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QWindow>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <vector>

using Halcyra::Nereon::NereonImage;
using Halcyra::Nereon::Views::EchogramDisplay;
using Halcyra::Nereon::Views::EchogramMark;

namespace {

constexpr int keptFrames = 2048;

std::vector<NereonImage> makeFrames(int beams, int rangeLines, int count)
{
    std::vector<std::int16_t> bearings(static_cast<std::size_t>(beams));
    for (int b = 0; b < beams; ++b)
        bearings[static_cast<std::size_t>(b)] = static_cast<std::int16_t>(-6500 + 13000 * b / (beams - 1));
    std::vector<NereonImage> frames;
    std::uint32_t noise = 12345;
    for (int f = 0; f < count; ++f) {
        std::vector<std::uint8_t> data(
            static_cast<std::size_t>(beams) * static_cast<std::size_t>(rangeLines));
        for (std::uint8_t& value : data) {
            noise = noise * 1664525u + 1013904223u;
            value = static_cast<std::uint8_t>(20 + (noise >> 26));
        }
        frames.emplace_back(static_cast<std::uint16_t>(beams), static_cast<std::uint16_t>(rangeLines),
            std::move(data), bearings, 40.0, 1.0);
    }
    return frames;
}

/// The i-th of a set of tracks: 30 frames, drifting in range, somewhere in the frames kept.
EchogramMark trackNumber(int i)
{
    EchogramMark mark(EchogramMark::Axis::Frame, QColor::fromHsv(i * 37 % 360, 255, 255),
        i % 4 == 0 ? QStringLiteral("%1 \u00b7 0.42 m").arg(i) : QString());
    const int first = i * 7919 % (keptFrames - 40);
    const double range = 4.0 + (i * 104729 % 3000) / 100.0;
    for (int k = 0; k < 30; ++k)
        mark.addPoint(first + k, range + 0.05 * k);
    return mark;
}

bool waitExposed(QWidget& widget)
{
    QElapsedTimer waited;
    waited.start();
    while (!(widget.windowHandle() && widget.windowHandle()->isExposed()) && waited.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    return widget.windowHandle() && widget.windowHandle()->isExposed();
}

/// Paints once: trigger, let the event loop paint and compose, wait for the GL work.
template <typename Trigger> void paint(EchogramDisplay& echogram, int& swaps, Trigger&& trigger)
{
    const int before = swaps;
    trigger();
    while (swaps == before)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    echogram.makeCurrent();
    echogram.context()->functions()->glFinish();
    echogram.doneCurrent();
}

std::unique_ptr<EchogramDisplay> shown[3];

void BM_EchogramMarks(benchmark::State& state)
{
    static const std::vector<NereonImage> frames = makeFrames(128, 1000, 4);
    constexpr int counts[] = { 0, 100, 1000 };
    int swaps[3] = {};
    QMetaObject::Connection counting[3];
    std::int64_t time = 0;
    for (int s = 0; s < 3; ++s) {
        shown[s] = std::make_unique<EchogramDisplay>();
        shown[s]->resize(1280, 300);
        shown[s]->setLiveWindow(keptFrames);
        shown[s]->show();
        if (!waitExposed(*shown[s])) {
            state.SkipWithError("an echogram was not exposed");
            return;
        }
        int* counter = &swaps[s];
        counting[s]
            = QObject::connect(shown[s].get(), &QOpenGLWidget::frameSwapped, [counter] { ++*counter; });
        for (int f = 0; f < keptFrames; ++f)
            shown[s]->addImage(frames[std::size_t(f) % frames.size()], 100000LL * f);
        for (int i = 0; i < counts[s]; ++i)
            shown[s]->addMark(trackNumber(i));
        // Warm up: shaders, the strip's first upload, glyphs.
        paint(*shown[s], swaps[s], [&] { shown[s]->update(); });
    }
    time = 100000LL * keptFrames;

    double wallMs[3] = {};
    double cpuMs[3] = {};
    std::size_t next = 0;
    for (auto _ : state) {
        for (int s = 0; s < 3; ++s) {
            EchogramDisplay& echogram = *shown[s];
            const NereonImage& frame = frames[next % frames.size()];
            const double cpuBefore = CpuClock::threadMs();
            const auto start = std::chrono::steady_clock::now();
            paint(echogram, swaps[s], [&] { echogram.addImage(frame, time); });
            wallMs[s] += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                             .count();
            cpuMs[s] += CpuClock::threadMs() - cpuBefore;
        }
        ++next;
        time += 100000;
    }
    for (int s = 0; s < 3; ++s) {
        QObject::disconnect(counting[s]);
        shown[s].reset();
    }

    const auto n = static_cast<double>(state.iterations());
    state.counters["none_ms"] = wallMs[0] / n;
    state.counters["m100_ms"] = wallMs[1] / n;
    state.counters["m1000_ms"] = wallMs[2] / n;
    state.counters["m100_per_none"] = wallMs[1] / wallMs[0];
    state.counters["m1000_per_none"] = wallMs[2] / wallMs[0];
    state.counters["gui_cpu_none_ms"] = cpuMs[0] / n;
    state.counters["gui_cpu_m1000_ms"] = cpuMs[2] / n;
}

} // namespace

BENCHMARK(BM_EchogramMarks)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(20);

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
