// Despeckling a frame once in texture space (GaussianSmoother::apply), the GUI
// thread's work per frame or level change, for frame sizes a sonar sends and
// kernel sizes up to the bound (41; larger sizes cost the same).
//
//   bench_smoothing --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "engine/GaussianSmoother.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

using Halcyra::Nereon::Visualisation::GaussianSmoother;

namespace {

void despeckle(benchmark::State& state)
{
    const int beams = int(state.range(0));
    const int lines = int(state.range(1));
    const int level = int(state.range(2));
    std::vector<std::uint8_t> data(std::size_t(beams) * std::size_t(lines));
    std::uint32_t noise = 7;
    for (std::uint8_t& byte : data) {
        noise = noise * 1664525u + 1013904223u;
        byte = std::uint8_t(noise >> 24);
    }
    GaussianSmoother filter;
    std::vector<std::uint16_t> out;
    for (auto _ : state) {
        filter.apply(data.data(), beams, lines, GaussianSmoother::radiusForLevel(level), out);
        benchmark::DoNotOptimize(out.data());
    }
}

} // namespace

BENCHMARK(despeckle)
    ->ArgNames({ "beams", "lines", "level" })
    ->ArgsProduct({ { 256 }, { 1000 }, { 3, 5, 41 } })
    ->ArgsProduct({ { 512 }, { 4000 }, { 3, 5, 41 } })
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
