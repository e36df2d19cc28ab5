// Paint rate of a shown FanDisplay at 1280 x 720 fed 512-beam x 1024-line
// frames: each iteration ingests a frame and waits for its paint (upload,
// fan image, range grid, labels, composition and swap). Reports frames per
// second, with despeckling off and at kernel size 5.
//
// Needs an X display:
//   xvfb-run -a -s "-screen 0 1920x1080x24" bench_paint --benchmark_repetitions=5
//   --benchmark_report_aggregates_only=true

#include "FanDisplay.h"
#include "nereon/NereonImage.h"
#include "units/AbstractUnit.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QWindow>

#include <cmath>
#include <cstdint>
#include <memory>
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

/// Counts paints, so that an iteration waits for its own paint.
class CountingDisplay : public FanDisplay
{
public:
    int paints = 0;

protected:
    void paintGL() override
    {
        FanDisplay::paintGL();
        ++paints;
    }
};

// One window for all runs (a new one per run would time window creation),
// destroyed in main() while the application still exists.
std::unique_ptr<CountingDisplay> shown;

constexpr int beams = 512;
constexpr int rangeLines = 1024;

/// A few distinct frames of speckled returns with a bright band, cycled so
/// that every paint uploads new bytes.
std::vector<NereonImage> makeFrames()
{
    std::vector<std::int16_t> bearings(beams);
    for (int b = 0; b < beams; ++b)
        bearings[b] = static_cast<std::int16_t>(-6500 + 13000 * b / (beams - 1));

    std::vector<NereonImage> frames;
    std::uint32_t noise = 12345;
    for (int f = 0; f < 4; ++f) {
        std::vector<std::uint8_t> data(static_cast<std::size_t>(beams) * rangeLines);
        for (int line = 0; line < rangeLines; ++line) {
            const bool band = std::abs(line - 300 - 100 * f) < 20;
            for (int b = 0; b < beams; ++b) {
                noise = noise * 1664525u + 1013904223u;
                const int speckle = static_cast<int>(noise >> 26);
                data[static_cast<std::size_t>(line) * beams + b]
                    = static_cast<std::uint8_t>(band ? 180 + speckle : 20 + speckle);
            }
        }
        frames.emplace_back(beams, rangeLines, std::move(data), bearings, 60.0, 1.0);
    }
    return frames;
}

void BM_PaintFrame(benchmark::State& state)
{
    static const Metres metres;
    static const std::vector<NereonImage> frames = makeFrames();

    if (!shown) {
        shown = std::make_unique<CountingDisplay>();
        shown->resize(1280, 720);
        shown->setDistanceUnit(&metres);
        shown->setClampLevel(0.01f);
        shown->show();
    }
    CountingDisplay& display = *shown;
    display.setDespeckleLevel(static_cast<int>(state.range(0)));
    QElapsedTimer waited;
    waited.start();
    while (!(display.windowHandle() && display.windowHandle()->isExposed()) && waited.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    if (!display.windowHandle() || !display.windowHandle()->isExposed()) {
        state.SkipWithError("the display was not exposed");
        return;
    }
    // Warm up: shader compilation, palette upload and the first texture.
    for (const NereonImage& frame : frames) {
        display.newImageReceived(frame);
        display.grabFramebuffer();
    }

    std::size_t next = 0;
    QElapsedTimer elapsed;
    elapsed.start();
    for (auto _ : state) {
        // As in an application: the frame requests an update, the event loop paints.
        const int painted = display.paints;
        display.newImageReceived(frames[next++ % frames.size()]);
        while (display.paints == painted)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        // The swap may return before llvmpipe has finished; count the whole paint.
        display.makeCurrent();
        display.context()->functions()->glFinish();
        display.doneCurrent();
    }
    // The GL work runs on llvmpipe's threads, so the rate is over wall time.
    state.counters["fps"]
        = static_cast<double>(state.iterations()) * 1e9 / static_cast<double>(elapsed.nsecsElapsed());
}

} // namespace

BENCHMARK(BM_PaintFrame)
    ->ArgName("despeckle")
    ->Arg(0)
    ->Arg(5)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(2.0);

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    shown.reset();
    return 0;
}
