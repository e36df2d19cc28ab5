// Frame ingestion: processNewImage (histogram on the engine's worker, then the
// thresholds, waited for at once; wall time) on frames as a sonar delivers
// them, each histogram path this build can run on its own, and a plain
// one-table histogram over the same bytes.
//
//   bench_ingest --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "engine/FanGeometryEngine.h"
#include "engine/IntensityHistogram.h"
#include "nereon/NereonImage.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

using Halcyra::Nereon::NereonImage;
using Halcyra::Nereon::Visualisation::FanGeometryEngine;
using Halcyra::Nereon::Visualisation::IntensityHistogram;

namespace {

// Small deterministic generator, so every run sees the same bytes.
class SplitMix
{
public:
    explicit SplitMix(std::uint64_t seed)
        : state(seed)
    {
    }
    std::uint64_t next()
    {
        std::uint64_t z = (state += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }

private:
    std::uint64_t state;
};

/**
 * A frame like a sonar's: dark water whose noise floor is mostly zero with
 * faint noise, scattered speckle, a bright seabed return along a curve, the
 * decaying texture of the seabed beyond it, and a few bright targets.
 */
NereonImage realisticFrame(int beams, int lines, std::uint64_t seed)
{
    SplitMix random(seed);
    std::vector<std::uint8_t> data(std::size_t(beams) * std::size_t(lines));
    const double seabedPhase = double(seed % 17);
    for (int line = 0; line < lines; ++line) {
        const double r = double(line) / double(lines);
        for (int beam = 0; beam < beams; ++beam) {
            const double b = double(beam) / double(beams);
            double v = 0.0;
            const double u = random.uniform();
            if (u < 0.25)
                v = -std::log(random.uniform() + 1e-12) * 4.0; // faint noise over a zero floor
            else if (u < 0.253)
                v = 80.0 + 175.0 * random.uniform(); // speckle
            const double seabed = 0.72 + 0.08 * std::sin(6.0 * b + seabedPhase);
            const double distance = (r - seabed) * double(lines) / 6.0;
            v += 210.0 * std::exp(-distance * distance) * (0.7 + 0.3 * random.uniform());
            if (r > seabed)
                v += 40.0 * std::exp(-(r - seabed) * 12.0) * random.uniform();
            const double target
                = std::pow((b - 0.35) * beams / 3.0, 2.0) + std::pow((r - 0.4) * lines / 8.0, 2.0);
            v += 240.0 * std::exp(-target);
            data[std::size_t(line) * std::size_t(beams) + std::size_t(beam)]
                = std::uint8_t(std::min(255.0, v));
        }
    }
    std::vector<std::int16_t> bearings(static_cast<std::size_t>(beams));
    for (int i = 0; i < beams; ++i)
        bearings[std::size_t(i)] = std::int16_t(std::lround(-6500.0 + 13000.0 * i / (beams - 1)));
    return NereonImage(
        std::uint16_t(beams), std::uint16_t(lines), std::move(data), std::move(bearings), 50.0, 1.0);
}

// A few different frames in turn, so the source is not always the same cached bytes.
const std::vector<NereonImage>& framesOf(int beams, int lines)
{
    static std::vector<std::pair<std::pair<int, int>, std::vector<NereonImage>>> cache;
    for (const auto& entry : cache)
        if (entry.first == std::make_pair(beams, lines))
            return entry.second;
    std::vector<NereonImage> frames;
    for (std::uint64_t seed = 1; seed <= 4; ++seed)
        frames.push_back(realisticFrame(beams, lines, seed));
    cache.emplace_back(std::make_pair(beams, lines), std::move(frames));
    return cache.back().second;
}

void reportPerByte(benchmark::State& state, std::size_t bytes)
{
    state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(bytes));
    state.counters["ns_per_byte"] = benchmark::Counter(
        double(bytes) * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void ingest(benchmark::State& state, float clampLevel)
{
    const auto& frames = framesOf(int(state.range(0)), int(state.range(1)));
    FanGeometryEngine engine;
    engine.setClampLevel(clampLevel);
    std::size_t i = 0;
    for (auto _ : state) {
        engine.processNewImage(frames[i++ % frames.size()]);
        benchmark::DoNotOptimize(engine.getLowerThreshold());
        benchmark::ClobberMemory();
    }
    reportPerByte(state, frames.front().getData().size());
}

// What processNewImage must beat: one table, one increment per byte.
void plainHistogram(benchmark::State& state)
{
    const auto& frames = framesOf(int(state.range(0)), int(state.range(1)));
    std::array<std::uint32_t, 256> histogram {};
    std::size_t i = 0;
    for (auto _ : state) {
        const std::vector<std::uint8_t>& data = frames[i++ % frames.size()].getData();
        histogram.fill(0);
        for (const std::uint8_t v : data)
            ++histogram[v];
        benchmark::DoNotOptimize(histogram.data());
        benchmark::ClobberMemory();
    }
    reportPerByte(state, frames.front().getData().size());
}

void frameSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Args({ 256, 500 })->Args({ 512, 1024 })->Args({ 512, 2048 });
    benchmark->ArgNames({ "beams", "lines" });
}

// One histogram path as ingestion runs it, reading the frame's bytes where they are.
void histogramPath(benchmark::State& state, IntensityHistogram::Path path, float clampLevel)
{
    const auto& frames = framesOf(int(state.range(0)), int(state.range(1)));
    const std::size_t size = frames.front().getData().size();
    const std::int64_t target = IntensityHistogram::thresholdTarget(size, clampLevel);
    std::size_t i = 0;
    for (auto _ : state) {
        const std::vector<std::uint8_t>& data = frames[i++ % frames.size()].getData();
        benchmark::DoNotOptimize(IntensityHistogram::count(data.data(), nullptr, data.size(), target, path));
        benchmark::ClobberMemory();
    }
    reportPerByte(state, size);
}

void registerHistogramPaths()
{
    for (const IntensityHistogram::Path path : IntensityHistogram::availablePaths()) {
        for (const float clamp : { 0.01f, 0.25f }) {
            const std::string name = std::string("histogram/") + IntensityHistogram::getName(path)
                + (clamp < 0.1f ? "/clamp_0_01" : "/clamp_0_25");
            benchmark::RegisterBenchmark(name.c_str(), histogramPath, path, clamp)->Apply(frameSizes);
        }
    }
}

} // namespace

BENCHMARK_CAPTURE(ingest, clamp_0_01, 0.01f)->Apply(frameSizes)->UseRealTime();
BENCHMARK_CAPTURE(ingest, clamp_0, 0.0f)->Apply(frameSizes)->UseRealTime();
// A quarter from each end: most bytes must be counted one by one.
BENCHMARK_CAPTURE(ingest, clamp_0_25, 0.25f)->Apply(frameSizes)->UseRealTime();
BENCHMARK(plainHistogram)->Apply(frameSizes);

int main(int argc, char** argv)
{
    registerHistogramPaths();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
