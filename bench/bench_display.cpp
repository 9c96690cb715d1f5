// One redraw's decimation of a 33,554,432-point spectrum in each x mode, against
// a plain min/max pass over the same range measured in the same run.
//
//   build/release/bench_display --benchmark_min_time=1
//
// The ratio of each mode's time to BM_Baseline_PlainMinMax is the number that matters.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

#include "workspace/display.hpp"

namespace {

constexpr long kPoints = 33554432;

vx::AnalysisPanel& panel() {
    static vx::AnalysisPanel p = [] {
        vx::AnalysisPanel q;
        q.spectrum.data.resize(kPoints);
        std::mt19937 rng(3);
        std::uniform_real_distribution<float> d(0.0f, 1.0f);
        for (float& v : q.spectrum.data) v = d(rng);
        q.spectrum.datacount = kPoints;
        q.spectrum.domain = vx::DOMAIN_FREQUENCY;
        q.spectrum.dbandwidth = 1000000.0;
        q.spectrum.hzppt = q.spectrum.dbandwidth / kPoints;
        q.fullmin = q.xmin = 1.0;
        q.fullmax = q.xmax = kPoints - 2.0;
        return q;
    }();
    return p;
}

void BM_Baseline_PlainMinMax(benchmark::State& state) {
    const auto& data = panel().spectrum.data;
    for (auto _ : state) {
        vx::MinMax m = vx::minmax_kernel(data.data() + 1, kPoints - 2);
        benchmark::DoNotOptimize(m);
    }
    state.SetBytesProcessed(state.iterations() * (kPoints - 2) * 4);
}
BENCHMARK(BM_Baseline_PlainMinMax)->Unit(benchmark::kMillisecond);

void BM_StdMinMaxElement(benchmark::State& state) {
    const auto& data = panel().spectrum.data;
    for (auto _ : state) {
        auto m = std::minmax_element(data.begin() + 1, data.end() - 1);
        benchmark::DoNotOptimize(m);
    }
    state.SetBytesProcessed(state.iterations() * (kPoints - 2) * 4);
}
BENCHMARK(BM_StdMinMaxElement)->Unit(benchmark::kMillisecond);

void BM_Redraw(benchmark::State& state) {
    vx::AnalysisPanel& p = panel();
    p.xmode = static_cast<int>(state.range(0));
    vx::PlotArrays out;
    for (auto _ : state) {
        p.xmin = p.fullmin;
        p.xmax = p.fullmax;
        vx::Update_Display(p, 1000, out);
        benchmark::DoNotOptimize(out.y.data());
    }
    state.SetBytesProcessed(state.iterations() * (kPoints - 2) * 4);
    state.SetLabel(vx::xmode_label(p.xmode));
}
BENCHMARK(BM_Redraw)
    ->Arg(vx::XMODE_POINT)
    ->Arg(vx::XMODE_TIME)
    ->Arg(vx::XMODE_FREQUENCY)
    ->Arg(vx::XMODE_MZ)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
