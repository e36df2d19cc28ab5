// Reading recordings through the frame-source library, frame after frame as a
// replay or an export does:
//   - BM_ArisSample: the real ARIS recording of ../shared/real-data (48 beams x 2000
//     samples, 6.5 Hz); skipped without it;
//   - BM_ArisLarge: a written ARIS recording of the largest kind, 128 beams x 4000
//     samples at 15 Hz, 200 frames (103 MB);
//   - BM_RecordingLarge: a recording of the viewer's own, 512 beams x 4000 range
//     lines at 40 Hz, 100 frames (zstd level 1 over speckle).
// Counters: MB/s of samples read and decoded, frames/s, "realtime" (how many times
// faster than the recording's own frame rate), and "rss_growth_MB", what the
// process holds after a whole pass over the file beyond what it held before
// opening it (the file is never loaded whole).
//
//   bench_sources --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "ResidentMemory.h"
#include "sources/FrameReader.h"
#include "sources/RecordingWriter.h"

#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

using Halcyra::Nereon::NereonImage;
using namespace Halcyra::Nereon::Sources;

namespace {

QTemporaryDir& folder()
{
    static QTemporaryDir dir;
    return dir;
}

/// Speckle-like bytes that compress as little as real sonar does.
std::vector<std::uint8_t> speckle(std::size_t size, std::uint32_t seed)
{
    std::vector<std::uint8_t> bytes(size);
    for (auto& b : bytes) {
        seed = seed * 1664525u + 1013904223u;
        b = std::uint8_t((seed >> 24) & 0x7f);
    }
    return bytes;
}

void put32(std::vector<std::uint8_t>& bytes, std::size_t at, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[at + std::size_t(i)] = std::uint8_t(value >> (8 * i));
}

QString writeLargeAris()
{
    const QString path = folder().filePath("large.aris");
    if (QFile::exists(path))
        return path;
    constexpr int beams = 128, samples = 4000, frames = 200;
    std::ofstream out(path.toStdString(), std::ios::binary);
    std::vector<std::uint8_t> fileHeader(1024, 0);
    put32(fileHeader, 0, 0x05464444u);
    out.write(reinterpret_cast<const char*>(fileHeader.data()), 1024);
    const std::vector<std::uint8_t> body = speckle(std::size_t(beams) * samples, 7);
    for (int i = 0; i < frames; ++i) {
        std::vector<std::uint8_t> header(1024, 0);
        put32(header, 0, std::uint32_t(i));
        const std::uint64_t time = 1700000000000000ull + std::uint64_t(i) * 66667ull;
        put32(header, 4, std::uint32_t(time));
        put32(header, 8, std::uint32_t(time >> 32));
        put32(header, 12, 0x05464444u);
        put32(header, 436, 9); // 128 beams
        put32(header, 452, 8); // sample period, µs
        const float rate = 15.0f, speed = 1480.0f;
        std::uint32_t bits = 0;
        std::memcpy(&bits, &rate, 4);
        put32(header, 460, bits);
        std::memcpy(&bits, &speed, 4);
        put32(header, 464, bits);
        put32(header, 468, samples);
        put32(header, 476, 2000); // window from 1.48 m
        put32(header, 484, 1); // ARIS 3000
        put32(header, 516, 1);
        out.write(reinterpret_cast<const char*>(header.data()), 1024);
        out.write(reinterpret_cast<const char*>(body.data()), std::streamsize(body.size()));
    }
    return path;
}

QString writeLargeRecording()
{
    const QString path = folder().filePath("large.nrec");
    if (QFile::exists(path))
        return path;
    constexpr int beams = 512, lines = 4000, frames = 100;
    std::vector<std::int16_t> bearings(beams);
    for (int i = 0; i < beams; ++i)
        bearings[std::size_t(i)] = std::int16_t(-6500 + 13000 * i / (beams - 1));
    RecordingWriter writer;
    writer.open(path, 1700000000000);
    for (int i = 0; i < frames; ++i)
        writer.write(NereonImage(beams, lines, speckle(std::size_t(beams) * lines, std::uint32_t(i)), bearings,
                         100.0, 1.0),
            std::int64_t(i) * 25000);
    return path;
}

/// Reads every frame of `path` in each iteration, as a replay does.
void readWhole(benchmark::State& state, const QString& path)
{
    const double before = ResidentMemory::megabytes();
    QString error;
    std::unique_ptr<FrameReader> reader = FrameReader::create(path, &error);
    if (!reader) {
        state.SkipWithError(qPrintable(error));
        return;
    }
    std::int64_t bytes = 0, frames = 0;
    for (auto _ : state) {
        reader->seekToFrame(0);
        SourceFrame frame;
        while (reader->next(frame)) {
            bytes += std::int64_t(reader->getDescription().beamCount) * reader->getDescription().samplesPerBeam;
            ++frames;
            benchmark::DoNotOptimize(frame);
        }
    }
    state.SetBytesProcessed(bytes);
    state.SetItemsProcessed(frames);
    state.counters["frames_per_s"] = benchmark::Counter(double(frames), benchmark::Counter::kIsRate);
    state.counters["realtime"]
        = benchmark::Counter(double(frames) / reader->getDescription().frameRate, benchmark::Counter::kIsRate);
    state.counters["rss_growth_MB"] = ResidentMemory::megabytes() - before;
}

void BM_ArisSample(benchmark::State& state)
{
    const QString path = QStringLiteral(NEREON_REAL_DATA_DIR "/aris/sample.aris");
    if (!QFile::exists(path)) {
        state.SkipWithError("no ../shared/real-data/aris/sample.aris");
        return;
    }
    readWhole(state, path);
}
BENCHMARK(BM_ArisSample)->Unit(benchmark::kMillisecond);

void BM_ArisLarge(benchmark::State& state)
{
    readWhole(state, writeLargeAris());
}
BENCHMARK(BM_ArisLarge)->Unit(benchmark::kMillisecond);

void BM_RecordingLarge(benchmark::State& state)
{
    readWhole(state, writeLargeRecording());
}
BENCHMARK(BM_RecordingLarge)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
