// What counting fish live costs the GUI thread per frame.
//
// BM_LiveCounting/beams/samples/learnt: frames of a generated passage come from a thread
// of their own at 12 Hz, queued as a live source delivers them, and are shown on a
// 1280 x 720 FanDisplay. Each iteration streams the passage twice: once without
// counting, then with a LiveFishCounter on a thread of its own given every frame
// queued (at most 30 waiting, as the viewer does); its tracks come back queued and
// are drawn as FanAnnotations marks (a box and a trail per confirmed track), as the
// viewer's count panel draws them. With learnt:1 the counter is first taught the
// background from the passage's frames, as the viewer does for a recording; with
// learnt:0 it starts cold, as on a live source, and the speckle of the first
// frames makes tracks of its own. Counters: the GUI thread's CPU per delivered
// frame without and with counting (its paints included) and their ratio, the
// counting thread's CPU per frame, paints a second (tracks arriving after their
// frame's paint repaint the display once more), and the most tracks
// drawn at once.
//
// Needs an X display; llvmpipe paints on threads of its own, which are not
// counted. Medians:
//   xvfb-run -a -s "-screen 0 1920x1080x24" bench_livecount --benchmark_repetitions=5
//   --benchmark_report_aggregates_only=true

#include "FanDisplay.h"
#include "analysis/LiveFishCounter.h"
#include "sources/SyntheticPassage.h"
#include "LinearUnit.h"
#include "views/FanAnnotations.h"

#include "CpuClock.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>
#include <QTimer>
#include <QWindow>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <map>
#include <memory>
#include <thread>
#include <vector>

using Halcyra::Nereon::Analysis::LiveFishCounter;
using Halcyra::Nereon::Analysis::LiveTrack;
using Halcyra::Nereon::Sources::SourceFrame;
using Halcyra::Nereon::Sources::SyntheticPassage;
using Halcyra::Nereon::Sources::SyntheticPassageOptions;
using Halcyra::Nereon::Views::FanAnnotations;
using Halcyra::Nereon::Visualisation::FanDisplay;
using Mark = FanAnnotations::Mark;

using Halcyra::Nereon::Visualisation::LinearUnit;

namespace {

constexpr double frameRate = 12.0;
constexpr int framesPerStream = 60; ///< 5 s
constexpr int mostFramesWaiting = 30;

/// Frames drawn once per size and kept: drawing them is not what is measured.
const std::vector<SourceFrame>& passage(int beams, int samples)
{
    static std::map<std::pair<int, int>, std::vector<SourceFrame>> cache;
    std::vector<SourceFrame>& frames = cache[{ beams, samples }];
    if (frames.empty()) {
        SyntheticPassageOptions options;
        options.beams = beams;
        options.samples = samples;
        options.frameRate = frameRate;
        options.frames = framesPerStream;
        options.fish = 6;
        SyntheticPassage generator(options);
        SourceFrame frame;
        while (generator.nextFrame(frame))
            frames.push_back(frame);
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

void drawTracks(FanAnnotations& marks, const std::vector<LiveTrack>& tracks, int& mostShown)
{
    marks.clear();
    int shown = 0;
    for (const LiveTrack& track : tracks) {
        if (!track.confirmed)
            continue;
        ++shown;
        const QColor colour(255, 200, 0);
        const double halfRange = std::max(track.extentRangeM, 0.1) / 2.0;
        const double halfBearing = std::max(track.extentBearingDeg, 0.5) / 2.0;
        marks.add(Mark::box(track.rangeM - halfRange, track.rangeM + halfRange,
            track.bearingDeg - halfBearing, track.bearingDeg + halfBearing, colour,
            QStringLiteral("%1 \u00b7 %2 m").arg(track.id).arg(track.lengthM, 0, 'f', 2)));
        if (track.trail.size() > 1) {
            QVector<QPointF> trail;
            for (const auto& [range, bearing] : track.trail)
                trail.append(QPointF(range, bearing));
            Mark line = Mark::polyline(trail, colour);
            line.width = 1;
            marks.add(line);
        }
    }
    mostShown = std::max(mostShown, shown);
    if (marks.getDisplay())
        marks.getDisplay()->update();
}

struct StreamResult
{
    double guiCpuMs = 0.0; ///< per delivered frame
    double counterCpuMs = 0.0; ///< per counted frame
    double paintedPerSecond = 0.0;
};

/// Streams `frames` to `display` in real time from a thread of their own, and to `counter` when given.
StreamResult stream(FanDisplay& display, const std::vector<SourceFrame>& frames, LiveFishCounter* counter)
{
    QObject receiver; // on the GUI thread: what the source's queued frames are delivered to
    int painted = 0;
    const QMetaObject::Connection swaps
        = QObject::connect(&display, &QOpenGLWidget::frameSwapped, &receiver, [&painted] { ++painted; });
    auto inFlight = std::make_shared<std::atomic<int>>(0);
    auto counterNs = std::make_shared<std::atomic<long long>>(0);
    auto counted = std::make_shared<std::atomic<int>>(0);
    int delivered = 0;

    const auto deliver = [&](const SourceFrame& frame) {
        ++delivered;
        display.newImageReceived(frame.image);
        if (!counter || *inFlight >= mostFramesWaiting)
            return;
        ++*inFlight;
        QMetaObject::invokeMethod(
            counter,
            [counter, frame, inFlight, counterNs, counted] {
                const double before = CpuClock::threadMs();
                counter->addFrame(frame);
                *counterNs += static_cast<long long>((CpuClock::threadMs() - before) * 1e6);
                ++*counted;
                --*inFlight;
            },
            Qt::QueuedConnection);
    };

    const double cpuBefore = CpuClock::threadMs();
    QElapsedTimer clock;
    clock.start();
    std::atomic<bool> sent { false };
    std::thread source([&] {
        const auto start = std::chrono::steady_clock::now();
        for (std::size_t i = 0; i < frames.size(); ++i) {
            std::this_thread::sleep_until(start + std::chrono::duration<double>(double(i) / frameRate));
            const SourceFrame& frame = frames[i];
            QMetaObject::invokeMethod(
                &receiver, [&deliver, &frame] { deliver(frame); }, Qt::QueuedConnection);
        }
        sent = true;
    });
    // An event loop that sleeps between events, as an application's does; the poll costs
    // both runs alike.
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(20);
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (sent && delivered == int(frames.size()) && *inFlight == 0)
            loop.quit();
    });
    poll.start();
    loop.exec();
    poll.stop();
    source.join();
    // The last tracks come back and are drawn.
    QTimer::singleShot(150, &loop, &QEventLoop::quit);
    loop.exec();
    const double seconds = double(clock.elapsed()) / 1000.0;
    StreamResult result;
    result.guiCpuMs = (CpuClock::threadMs() - cpuBefore) / std::max(1, delivered);
    result.counterCpuMs = double(*counterNs) / 1e6 / std::max(1, int(*counted));
    result.paintedPerSecond = painted / seconds;
    QObject::disconnect(swaps);
    return result;
}

std::unique_ptr<FanDisplay> shownDisplay;

void BM_LiveCounting(benchmark::State& state)
{
    const std::vector<SourceFrame>& frames = passage(int(state.range(0)), int(state.range(1)));
    const bool learnt = state.range(2) != 0;
    if (!shownDisplay) {
        shownDisplay = std::make_unique<FanDisplay>();
        shownDisplay->resize(1280, 720);
        shownDisplay->setDistanceUnit(&LinearUnit::metres());
        shownDisplay->show();
    }
    if (!waitExposed(*shownDisplay)) {
        state.SkipWithError("the display was not exposed");
        return;
    }

    QThread countingThread;
    countingThread.start();
    auto* counter = new LiveFishCounter();
    counter->moveToThread(&countingThread);
    QObject::connect(&countingThread, &QThread::finished, counter, &QObject::deleteLater);
    FanAnnotations marks;
    int mostShown = 0;
    QObject gui;
    QObject::connect(counter, &LiveFishCounter::tracksUpdated, &gui,
        [&marks, &mostShown](const std::vector<LiveTrack>& tracks) { drawTracks(marks, tracks, mostShown); });

    double offCpu = 0, onCpu = 0, counterCpu = 0, offPainted = 0, onPainted = 0;
    for (auto _ : state) {
        const StreamResult off = stream(*shownDisplay, frames, nullptr);
        QMetaObject::invokeMethod(counter, &LiveFishCounter::reset, Qt::QueuedConnection);
        if (learnt) {
            std::vector<Halcyra::Nereon::NereonImage> samples;
            for (const SourceFrame& frame : frames)
                samples.push_back(frame.image);
            QMetaObject::invokeMethod(
                counter, [counter, samples] { counter->learnBackground(samples); }, Qt::QueuedConnection);
        }
        marks.attach(shownDisplay.get());
        const StreamResult on = stream(*shownDisplay, frames, counter);
        marks.detach();
        marks.clear();
        offCpu += off.guiCpuMs;
        onCpu += on.guiCpuMs;
        counterCpu += on.counterCpuMs;
        offPainted += off.paintedPerSecond;
        onPainted += on.paintedPerSecond;
    }
    countingThread.quit();
    countingThread.wait();

    const auto n = static_cast<double>(state.iterations());
    state.counters["gui_cpu_off_ms"] = offCpu / n;
    state.counters["gui_cpu_on_ms"] = onCpu / n;
    state.counters["on_per_off"] = onCpu / offCpu;
    state.counters["counter_cpu_ms"] = counterCpu / n;
    state.counters["painted_off_hz"] = offPainted / n;
    state.counters["painted_on_hz"] = onPainted / n;
    state.counters["most_tracks"] = mostShown;
}

} // namespace

BENCHMARK(BM_LiveCounting)
    ->ArgNames({ "beams", "samples", "learnt" })
    ->Args({ 48, 1000, 0 })
    ->Args({ 128, 2000, 0 })
    ->Args({ 48, 1000, 1 })
    ->Args({ 128, 2000, 1 })
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
    shownDisplay.reset();
    return 0;
}
