// What a shown display costs per painted frame, beside what any paint costs
// there and what the CPU method a user would otherwise pick costs.
//
// BM_SideBySide: one round paints, in turn, a bare QOpenGLWidget of 1814 x 1000
// that only clears (without and with 4 samples: the floor of any paint at that
// size), a cached CPU remap of the same 256 x 1000 frame to the same size
// (CpuRemapBaseline, not put on screen), and a shown FanDisplay of that size
// with its overlays, at despeckle 0, 3 and 5, each with a new frame. Rounds
// interleave the variants, so a load that comes and goes touches them alike;
// the counters are milliseconds per frame (wall time, until glFinish), the
// ratios of those, the GUI thread's CPU per painted frame, and the whole
// process's CPU (llvmpipe's threads included) per frame of the bare widget and
// the display at despeckle 0: the least load-sensitive comparison.
//
// BM_Stream: a thread delivers 512 x 4000 frames at 40 Hz, queued as a driver
// would, to a shown 1280 x 720 FanDisplay with its overlays for 4 seconds;
// counters are frames delivered and painted a second and the GUI thread's CPU
// per painted frame, with the frames processed on the GUI thread (the default)
// and on the display's worker (background:1).
//
// Needs an X display; llvmpipe renders on its own threads, so ratios only mean
// something side by side in one run, as medians:
//   xvfb-run -a -s "-screen 0 1920x1080x24" bench_paint --benchmark_repetitions=5
//   --benchmark_report_aggregates_only=true

#include "CpuRemapBaseline.h"
#include "FanDisplay.h"
#include "nereon/NereonImage.h"
#include "units/AbstractUnit.h"

#include "CpuClock.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLWidget>
#include <QSurfaceFormat>
#include <QTimer>
#include <QWindow>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <memory>
#include <thread>
#include <vector>

using Halcyra::Nereon::NereonImage;
using Halcyra::Nereon::Visualisation::FanDisplay;

namespace {

class Metres : public Halcyra::DataProcessing::Units::AbstractUnit
{
public:
    double convertToBase(double value) const override { return value; }
    double getFactorFromBase() const override { return 1.0; }
    double convertFromBase(double value) const override { return value; }
    std::string getName() const override { return "metre"; }
    bool isBaseUnit() const override { return true; }
    std::string getSymbol() const override { return "m"; }
};

/// A QOpenGLWidget that only clears: composition and swap, nothing else.
class BareWidget : public QOpenGLWidget
{
public:
    explicit BareWidget(int samples)
    {
        QSurfaceFormat surfaceFormat = QSurfaceFormat::defaultFormat();
        surfaceFormat.setSamples(samples);
        setFormat(surfaceFormat);
    }

protected:
    void paintGL() override
    {
        context()->functions()->glClearColor(0.3f, 0.3f, 0.3f, 1.0f);
        context()->functions()->glClear(GL_COLOR_BUFFER_BIT);
    }
};

/// CPU of the whole process, llvmpipe's threads included: what a paint costs
/// the machine, much less disturbed by other load than wall time.
/// Frames of speckled returns with a bright band, a few distinct ones to cycle through.
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
        for (int line = 0; line < rangeLines; ++line) {
            const bool band = std::abs(line - rangeLines * (3 + f) / 10) < rangeLines / 50;
            for (int b = 0; b < beams; ++b) {
                noise = noise * 1664525u + 1013904223u;
                const int speckle = static_cast<int>(noise >> 26);
                data[static_cast<std::size_t>(line) * static_cast<std::size_t>(beams)
                    + static_cast<std::size_t>(b)]
                    = static_cast<std::uint8_t>(band ? 180 + speckle : 20 + speckle);
            }
        }
        frames.emplace_back(static_cast<std::uint16_t>(beams), static_cast<std::uint16_t>(rangeLines),
            std::move(data), bearings, 60.0, 1.0);
    }
    return frames;
}

bool waitExposed(QWidget& widget)
{
    QElapsedTimer waited;
    waited.start();
    while (!(widget.windowHandle() && widget.windowHandle()->isExposed()) && waited.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    return widget.windowHandle() && widget.windowHandle()->isExposed();
}

/// Counts the frames a widget has put on screen.
class SwapCounter
{
public:
    explicit SwapCounter(QOpenGLWidget& widget)
        : widget(widget)
        , connection(QObject::connect(&widget, &QOpenGLWidget::frameSwapped, [this] { ++swaps; }))
    {
    }
    ~SwapCounter() { QObject::disconnect(connection); }
    SwapCounter(const SwapCounter&) = delete;
    SwapCounter& operator=(const SwapCounter&) = delete;

    /// Runs trigger, lets the event loop paint and compose, and waits for llvmpipe to finish.
    template <typename Trigger> void paint(Trigger&& trigger)
    {
        const int before = swaps;
        trigger();
        while (swaps == before)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        widget.makeCurrent();
        widget.context()->functions()->glFinish();
        widget.doneCurrent();
    }

    QOpenGLWidget& widget;
    QMetaObject::Connection connection;
    int swaps = 0;
};

// Windows live for the whole run (a new one per run would time window
// creation) and go in main() while the application still exists.
struct Windows
{
    std::unique_ptr<BareWidget> bare;
    std::unique_ptr<BareWidget> bareSampled;
    std::unique_ptr<FanDisplay> display;
    std::unique_ptr<FanDisplay> streamDisplay;
};
Windows windows;
const Metres metres;

void setUpDisplay(FanDisplay& display, int width, int height)
{
    display.resize(width, height);
    display.setDistanceUnit(&metres);
    display.setClampLevel(0.01f);
    display.show();
}

void BM_SideBySide(benchmark::State& state)
{
    constexpr int width = 1814;
    constexpr int height = 1000;
    static const std::vector<NereonImage> frames = makeFrames(256, 1000, 4);

    if (!windows.display) {
        windows.bare = std::make_unique<BareWidget>(0);
        windows.bareSampled = std::make_unique<BareWidget>(4);
        windows.display = std::make_unique<FanDisplay>();
        for (QWidget* widget :
            { static_cast<QWidget*>(windows.bare.get()), static_cast<QWidget*>(windows.bareSampled.get()) }) {
            widget->resize(width, height);
            widget->show();
        }
        setUpDisplay(*windows.display, width, height);
    }
    for (QWidget* widget :
        { static_cast<QWidget*>(windows.bare.get()), static_cast<QWidget*>(windows.bareSampled.get()),
            static_cast<QWidget*>(windows.display.get()) }) {
        if (!waitExposed(*widget)) {
            state.SkipWithError("a window was not exposed");
            return;
        }
    }
    SwapCounter bare(*windows.bare);
    SwapCounter bareSampled(*windows.bareSampled);
    SwapCounter display(*windows.display);

    CpuRemapBaseline remap;
    remap.build(width, height, frames[0].getBearings(), frames[0].getHeight());
    std::array<QRgb, 256> palette {};
    for (int i = 0; i < 256; ++i)
        palette[static_cast<std::size_t>(i)] = qRgb(i, i / 2, 255 - i);

    // Warm up: shaders, palettes, first textures, glyph caches.
    for (const NereonImage& frame : frames)
        display.paint([&] { windows.display->newImageReceived(frame); });
    bare.paint([&] { windows.bare->update(); });
    bareSampled.paint([&] { windows.bareSampled->update(); });

    std::size_t next = 0;
    constexpr int levels[] = { 0, 3, 5 };
    double bareMs = 0, bareSampledMs = 0, remapMs = 0, cpuMs = 0, bareCpuMs = 0;
    double bareProcessMs = 0, fanProcessMs = 0;
    double fanMs[3] = {};
    const auto timed = [](auto&& work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    };
    for (auto _ : state) {
        const double bareCpuBefore = CpuClock::threadMs();
        const double bareProcessBefore = CpuClock::processMs();
        bareMs += timed([&] { bare.paint([&] { windows.bare->update(); }); });
        bareCpuMs += CpuClock::threadMs() - bareCpuBefore;
        bareProcessMs += CpuClock::processMs() - bareProcessBefore;
        bareSampledMs += timed([&] { bareSampled.paint([&] { windows.bareSampled->update(); }); });
        remapMs += timed(
            [&] { remap.remap(frames[next % frames.size()].getData().data(), palette, qRgb(76, 76, 76)); });
        for (int i = 0; i < 3; ++i) {
            windows.display->setDespeckleLevel(levels[i]);
            const NereonImage& frame = frames[next++ % frames.size()];
            const double cpuBefore = CpuClock::threadMs();
            const double processBefore = CpuClock::processMs();
            fanMs[i] += timed([&] { display.paint([&] { windows.display->newImageReceived(frame); }); });
            if (i == 0) {
                cpuMs += CpuClock::threadMs() - cpuBefore;
                fanProcessMs += CpuClock::processMs() - processBefore;
            }
        }
    }
    const auto n = static_cast<double>(state.iterations());
    state.counters["bare_ms"] = bareMs / n;
    state.counters["bare_4x_ms"] = bareSampledMs / n;
    state.counters["remap_ms"] = remapMs / n;
    state.counters["fan_d0_ms"] = fanMs[0] / n;
    state.counters["fan_d3_ms"] = fanMs[1] / n;
    state.counters["fan_d5_ms"] = fanMs[2] / n;
    state.counters["d0_per_bare"] = fanMs[0] / bareMs;
    state.counters["d0_per_remap"] = fanMs[0] / remapMs;
    state.counters["d5_per_d0"] = fanMs[2] / fanMs[0];
    state.counters["gui_cpu_d0_ms"] = cpuMs / n;
    state.counters["gui_cpu_bare_ms"] = bareCpuMs / n;
    state.counters["all_cpu_bare_ms"] = bareProcessMs / n;
    state.counters["all_cpu_d0_ms"] = fanProcessMs / n;
    state.counters["all_cpu_d0_per_bare"] = fanProcessMs / bareProcessMs;
}

void BM_Stream(benchmark::State& state)
{
    static const std::vector<NereonImage> frames = makeFrames(512, 4000, 4);
    if (!windows.streamDisplay) {
        windows.streamDisplay = std::make_unique<FanDisplay>();
        setUpDisplay(*windows.streamDisplay, 1280, 720);
    }
    FanDisplay* target = windows.streamDisplay.get();
    if (!waitExposed(*target)) {
        state.SkipWithError("the display was not exposed");
        return;
    }
    target->setDespeckleLevel(static_cast<int>(state.range(0)));
    target->setBackgroundFrameProcessing(state.range(1) != 0);
    SwapCounter counter(*target);
    for (const NereonImage& frame : frames)
        counter.paint([&] { target->newImageReceived(frame); });

    constexpr double seconds = 4.0;
    for (auto _ : state) {
        std::atomic<int> delivered { 0 };
        std::atomic<bool> stop { false };
        const int swapsBefore = counter.swaps;
        const double cpuBefore = CpuClock::threadMs();
        // The sonar's thread: one frame every 25 ms, on a fixed schedule.
        std::thread sonar([&] {
            auto due = std::chrono::steady_clock::now();
            for (int i = 0; !stop; ++i) {
                const NereonImage* frame = &frames[static_cast<std::size_t>(i) % frames.size()];
                QMetaObject::invokeMethod(
                    target, [target, frame] { target->newImageReceived(*frame); }, Qt::QueuedConnection);
                ++delivered;
                due += std::chrono::milliseconds(25);
                std::this_thread::sleep_until(due);
            }
        });
        // A real event loop, so the GUI thread sleeps between events: polling
        // would count its spinning as paint cost and take a core from llvmpipe.
        QElapsedTimer elapsed;
        elapsed.start();
        QEventLoop loop;
        QTimer::singleShot(static_cast<int>(seconds * 1000), &loop, &QEventLoop::quit);
        loop.exec();
        stop = true;
        sonar.join();
        const double wall = double(elapsed.nsecsElapsed()) / 1e9;
        const int painted = counter.swaps - swapsBefore;
        state.counters["delivered_per_s"] = delivered / wall;
        state.counters["painted_per_s"] = painted / wall;
        state.counters["gui_cpu_ms_per_paint"] = (CpuClock::threadMs() - cpuBefore) / std::max(painted, 1);
        // Drain what is still queued before the next repetition.
        QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
    }
}

} // namespace

BENCHMARK(BM_SideBySide)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(10);
BENCHMARK(BM_Stream)
    ->ArgNames({ "despeckle", "background" })
    ->ArgsProduct({ { 0, 5 }, { 0, 1 } })
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    windows = Windows {};
    return 0;
}
