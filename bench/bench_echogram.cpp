// The echogram of a whole recording, against the reader's own decoding of the same
// file in the same run (the echogram decodes every frame, so decoding is its floor):
//   - BM_Decode/<beams>/<samples>: every frame read and decoded, nothing else;
//   - BM_Echogram/<beams>/<samples>: EchogramBuilder over the same file, 256 range bins;
//   - BM_Reduce/<beams>/<samples>: the column of one decoded frame alone.
// Files: the viewer's own recordings (zstd level 1 over speckle with a few echoes),
// 128 beams x 1000 samples (400 frames) and 512 beams x 4000 samples (60 frames).
// Counter frames/s is items_per_second, from the thread's CPU time: on a machine
// shared with other work the wall clock says more about the neighbours.
//
//   bench_echogram --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "views/EchogramBuilder.h"
#include "views/EchogramColumns.h"

#include "nereon/NereonImage.h"
#include "sources/FrameReader.h"
#include "sources/RecordingWriter.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <map>
#include <utility>
#include <vector>

using Halcyra::Nereon::NereonImage;
using namespace Halcyra::Nereon::Sources;
using namespace Halcyra::Nereon::Views;

namespace {

QTemporaryDir& folder()
{
    static QTemporaryDir dir;
    return dir;
}

NereonImage speckleFrame(int beams, int samples, std::uint32_t seed)
{
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(beams) * static_cast<std::size_t>(samples));
    for (auto& b : bytes) {
        seed = seed * 1664525u + 1013904223u;
        b = std::uint8_t((seed >> 24) & 0x7f);
    }
    // A school of fish a third of the way out, brighter than the speckle.
    for (int row = samples / 3; row < samples / 3 + 20; ++row)
        for (int beam = beams / 2; beam < beams / 2 + 8; ++beam)
            bytes[static_cast<std::size_t>(row) * static_cast<std::size_t>(beams) + static_cast<std::size_t>(beam)] = 230;
    std::vector<std::int16_t> bearings(static_cast<std::size_t>(beams));
    for (int i = 0; i < beams; ++i)
        bearings[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(-1400 + 2800 * i / (beams - 1));
    return NereonImage(std::uint16_t(beams), std::uint16_t(samples), std::move(bytes), std::move(bearings), 30.0, 1.0);
}

int frameCountFor(int beams, int samples)
{
    return beams * samples >= 1000000 ? 60 : 400;
}

/// The recording of that size, written once per run.
QString recording(int beams, int samples)
{
    static std::map<std::pair<int, int>, QString> written;
    auto& path = written[{ beams, samples }];
    if (path.isEmpty()) {
        path = folder().filePath(QStringLiteral("speckle-%1x%2.nrec").arg(beams).arg(samples));
        RecordingWriter writer;
        writer.open(path, 1700000000000);
        for (int i = 0; i < frameCountFor(beams, samples); ++i)
            writer.write(speckleFrame(beams, samples, std::uint32_t(i + 1)), std::int64_t(i) * 25000);
        writer.close();
    }
    return path;
}

void BM_Decode(benchmark::State& state)
{
    const QString path = recording(int(state.range(0)), int(state.range(1)));
    auto reader = FrameReader::create(path);
    std::int64_t frames = 0;
    for (auto _ : state) {
        reader->seekToFrame(0);
        SourceFrame frame;
        while (reader->next(frame)) {
            benchmark::DoNotOptimize(frame.image.getData().data());
            ++frames;
        }
    }
    state.SetItemsProcessed(frames);
}

void BM_Echogram(benchmark::State& state)
{
    const QString path = recording(int(state.range(0)), int(state.range(1)));
    auto reader = FrameReader::create(path);
    std::int64_t frames = 0;
    for (auto _ : state) {
        const EchogramColumns columns = EchogramBuilder::build(*reader);
        benchmark::DoNotOptimize(columns.getColumn(columns.getFirstColumn()));
        frames += reader->getFrameCount();
    }
    state.SetItemsProcessed(frames);
}

void BM_Reduce(benchmark::State& state)
{
    const NereonImage frame = speckleFrame(int(state.range(0)), int(state.range(1)), 1);
    std::vector<std::uint8_t> column(EchogramColumns::defaultRangeBins);
    for (auto _ : state) {
        EchogramColumns::reduceFrame(frame, EchogramColumns::defaultRangeBins, EchogramReduction::Maximum, column.data());
        benchmark::DoNotOptimize(column.data());
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK(BM_Decode)->Args({ 128, 1000 })->Args({ 512, 4000 })->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Echogram)->Args({ 128, 1000 })->Args({ 512, 4000 })->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Reduce)->Args({ 128, 1000 })->Args({ 512, 4000 })->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
