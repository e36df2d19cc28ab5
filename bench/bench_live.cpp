// The live ARIS source against the fake sonar over loopback: 128 beams x 2000
// samples at 15 Hz (an ARIS 3000 at its largest common frame), for 6 s a run, with
// 0, 1 and 5 % of the frame parts lost on the way (argument). Counters: frames
// the source assembled a second ("fps"), frames dropped against frames sent
// ("dropped_%"), the GUI thread's CPU a frame that reaches it ("gui_us"),
// microseconds from reading a frame's last part to the frame leaving the source
// ("latency_median_us", "latency_p99_us"), and what the process holds after the run
// beyond what it held before ("rss_growth_MB": the assembler keeps one frame).
//   bench_live --benchmark_repetitions=3 --benchmark_report_aggregates_only=true

#include "FakeArisSonar.h"
#include "ResidentMemory.h"
#include "sources/ArisLiveSource.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <QFile>
#include <QMetaObject>
#include <QTemporaryDir>
#include <QThread>
#include <QUdpSocket>

#include <benchmark/benchmark.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <vector>

using namespace Halcyra::Nereon::Sources;

namespace {

void put32(std::vector<char>& bytes, std::size_t at, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[at + std::size_t(i)] = char(value >> (8 * i));
}

QString writeRecording()
{
    static QTemporaryDir folder;
    const QString path = folder.filePath("aris3000.aris");
    if (QFile::exists(path))
        return path;
    constexpr int beams = 128, samples = 2000, frames = 30;
    std::ofstream out(path.toStdString(), std::ios::binary);
    std::vector<char> fileHeader(1024, 0);
    put32(fileHeader, 0, 0x05464444u);
    out.write(fileHeader.data(), 1024);
    std::vector<char> body(std::size_t(beams) * samples);
    std::uint32_t noise = 1;
    for (auto& b : body) {
        noise = noise * 1664525u + 1013904223u;
        b = char(noise >> 25);
    }
    for (int i = 0; i < frames; ++i) {
        std::vector<char> header(1024, 0);
        const std::uint64_t time = 1700000000000000ull + std::uint64_t(i) * 66667ull;
        put32(header, 0, std::uint32_t(i));
        put32(header, 4, std::uint32_t(time));
        put32(header, 8, std::uint32_t(time >> 32));
        put32(header, 12, 0x05464444u);
        put32(header, 436, 9);
        put32(header, 452, 10);
        const float rate = 15.0f, speed = 1480.0f;
        std::uint32_t bits = 0;
        std::memcpy(&bits, &rate, 4);
        put32(header, 460, bits);
        std::memcpy(&bits, &speed, 4);
        put32(header, 464, bits);
        put32(header, 468, samples);
        put32(header, 476, 4000);
        put32(header, 484, 1);
        put32(header, 488, 3001);
        put32(header, 516, 1);
        out.write(header.data(), 1024);
        out.write(body.data(), std::streamsize(body.size()));
    }
    return path;
}

double threadCpuMicroseconds()
{
    timespec t {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) * 1e6 + double(t.tv_nsec) / 1e3;
}

void BM_LiveStream(benchmark::State& state)
{
    const double loss = double(state.range(0));
    for (auto _ : state) {
        QThread sonarThread;
        auto* sonar = new FakeArisSonar;
        sonar->moveToThread(&sonarThread);
        QObject::connect(&sonarThread, &QThread::finished, sonar, &QObject::deleteLater);
        sonarThread.start();
        FakeArisSonar::Options options;
        options.file = writeRecording();
        options.commandPort = 0;
        QUdpSocket probe;
        probe.bind(QHostAddress(QHostAddress::LocalHost), 0);
        options.beaconPort = probe.localPort();
        options.lossPercent = loss;
        std::uint16_t port = 0;
        QMetaObject::invokeMethod(sonar, [&] {
            sonar->setFault(loss > 0 ? FakeArisSonar::Fault::LoseParts : FakeArisSonar::Fault::None);
            QString error;
            if (sonar->start(options, &error))
                port = sonar->getCommandPort();
        }, Qt::BlockingQueuedConnection);
        if (port == 0) {
            state.SkipWithError("the fake sonar did not start");
            return;
        }
        ArisLiveSource source;
        std::int64_t arrived = 0;
        QObject::connect(&source, &FrameSource::frameReady, &source, [&](const SourceFrame& frame) {
            arrived += frame.image.getWidth() > 0;
        });
        ArisLiveSettings settings;
        settings.commandPort = port;
        settings.beaconPort = options.beaconPort;
        const double memoryBefore = ResidentMemory::megabytes();
        const double cpuBefore = threadCpuMicroseconds();
        source.connectToSonar("127.0.0.1", settings);
        QElapsedTimer clock;
        clock.start();
        // A real event loop: the GUI thread sleeps between frames, as a viewer's does.
        QEventLoop loop;
        QTimer::singleShot(6000, &loop, &QEventLoop::quit);
        loop.exec();
        const double cpu = threadCpuMicroseconds() - cpuBefore;
        const double memoryGrowth = ResidentMemory::megabytes() - memoryBefore;
        const ArisLiveSource::Statistics statistics = source.getStatistics();
        int sent = 0;
        QMetaObject::invokeMethod(sonar, [&] { sent = sonar->getFramesSent(); }, Qt::BlockingQueuedConnection);
        source.disconnectFromSonar();
        sonarThread.quit();
        sonarThread.wait();
        state.counters["fps"] = double(statistics.frames) / (double(clock.elapsed()) / 1000.0);
        state.counters["dropped_%"] = sent > 0 ? 100.0 * double(sent - statistics.frames) / double(sent) : 0.0;
        state.counters["gui_us"] = arrived > 0 ? cpu / double(arrived) : 0.0;
        state.counters["latency_median_us"] = statistics.latencyMedian;
        state.counters["latency_p99_us"] = statistics.latency99;
        state.counters["rss_growth_MB"] = memoryGrowth;
    }
}
BENCHMARK(BM_LiveStream)->Arg(0)->Arg(1)->Arg(5)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
