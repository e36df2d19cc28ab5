// What marks on the fan cost a shown display per painted frame.
//
// BM_Marks: one round paints, in turn, three shown 1280 x 720 FanDisplays with
// their overlays: one without marks, one with 100 marks and one with 1,000 marks
// (points, boxes, ellipses and five-point trails in turn, every fourth with a
// label), each with a new frame. Each display keeps its own overlay layer, as
// an application's display does from frame to frame. Rounds interleave the variants, so a load that comes and
// goes touches them alike. With moving:0 the marks stay put (a paint only
// places them again); with moving:1 every mark moves before every paint, as
// tracks would. Counters: milliseconds per frame (wall time, until glFinish),
// their ratios to the paint without marks, and the GUI thread's CPU per frame.
//
// Needs an X display; ratios only mean something side by side in one run, as medians:
//   xvfb-run -a -s "-screen 0 1920x1080x24" bench_annotations --benchmark_repetitions=5
//   --benchmark_report_aggregates_only=true

#include "FanDisplay.h"
#include "nereon/NereonImage.h"
#include "LinearUnit.h"
#include "views/FanAnnotations.h"

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
using Halcyra::Nereon::Views::FanAnnotations;
using Halcyra::Nereon::Visualisation::FanDisplay;
using Mark = FanAnnotations::Mark;

using Halcyra::Nereon::Visualisation::LinearUnit;

namespace {

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

/// The i-th of a set of marks spread over a 40 m fan, moved along by shift metres.
Mark markNumber(int i, double shift)
{
    const double range = 4.0 + (i * 7919 % 3400) / 100.0 + shift;
    const double bearing = -60.0 + (i * 104729 % 12000) / 100.0;
    const QColor colour = QColor::fromHsv(i * 37 % 360, 255, 255);
    const QString label = i % 4 == 0 ? QStringLiteral("#%1").arg(i) : QString();
    switch (i % 4) {
    case 0:
        return Mark::point(range, bearing, colour, label);
    case 1:
        return Mark::box(range, range + 1.5, bearing, bearing + 4.0, colour, label);
    case 2:
        return Mark::ellipse(range, bearing, 0.8, 0.5, colour, label);
    default: {
        QVector<QPointF> trail;
        for (int k = 0; k < 5; ++k)
            trail << QPointF(range + 0.3 * k, bearing + 0.5 * k);
        return Mark::polyline(trail, colour, label);
    }
    }
}

bool waitExposed(QWidget& widget)
{
    QElapsedTimer waited;
    waited.start();
    while (!(widget.windowHandle() && widget.windowHandle()->isExposed()) && waited.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    return widget.windowHandle() && widget.windowHandle()->isExposed();
}

/// Paints once: trigger, let the event loop paint and compose, wait for llvmpipe.
template <typename Trigger> void paint(FanDisplay& display, int& swaps, Trigger&& trigger)
{
    const int before = swaps;
    trigger();
    while (swaps == before)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    display.makeCurrent();
    display.context()->functions()->glFinish();
    display.doneCurrent();
}

std::unique_ptr<FanDisplay> shownDisplays[3];

void BM_Marks(benchmark::State& state)
{
    static const std::vector<NereonImage> frames = makeFrames(256, 1000, 4);
    const bool moving = state.range(0) != 0;
    constexpr int counts[] = { 0, 100, 1000 };
    int swaps[3] = {};
    QMetaObject::Connection counting[3];
    FanAnnotations sets[3];
    std::vector<int> ids[3];
    for (int s = 0; s < 3; ++s) {
        if (!shownDisplays[s]) {
            shownDisplays[s] = std::make_unique<FanDisplay>();
            shownDisplays[s]->resize(1280, 720);
            shownDisplays[s]->setDistanceUnit(&LinearUnit::metres());
            shownDisplays[s]->show();
        }
        if (!waitExposed(*shownDisplays[s])) {
            state.SkipWithError("a display was not exposed");
            return;
        }
        int* counter = &swaps[s];
        counting[s] = QObject::connect(
            shownDisplays[s].get(), &QOpenGLWidget::frameSwapped, [counter] { ++*counter; });
        for (int i = 0; i < counts[s]; ++i)
            ids[s].push_back(sets[s].add(markNumber(i, 0.0)));
        sets[s].attach(shownDisplays[s].get());
    }

    // Warm up: shaders, textures, glyphs and label pictures.
    std::size_t next = 0;
    for (int s = 0; s < 3; ++s) {
        FanDisplay& display = *shownDisplays[s];
        paint(display, swaps[s], [&] { display.newImageReceived(frames[next++ % frames.size()]); });
    }

    double wallMs[3] = {};
    double cpuMs[3] = {};
    int round = 0;
    for (auto _ : state) {
        ++round;
        for (int s = 0; s < 3; ++s) {
            FanDisplay& display = *shownDisplays[s];
            if (moving) {
                for (int i = 0; i < counts[s]; ++i)
                    sets[s].update(ids[s][static_cast<std::size_t>(i)], markNumber(i, 0.05 * (round % 20)));
            }
            const NereonImage& frame = frames[next++ % frames.size()];
            const double cpuBefore = CpuClock::threadMs();
            const auto start = std::chrono::steady_clock::now();
            paint(display, swaps[s], [&] { display.newImageReceived(frame); });
            wallMs[s] += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                             .count();
            cpuMs[s] += CpuClock::threadMs() - cpuBefore;
        }
    }
    for (int s = 0; s < 3; ++s) {
        QObject::disconnect(counting[s]);
        sets[s].detach();
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

BENCHMARK(BM_Marks)
    ->ArgName("moving")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(10);

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    for (std::unique_ptr<FanDisplay>& display : shownDisplays)
        display.reset();
    return 0;
}
