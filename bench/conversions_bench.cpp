// Axis conversions over a whole spectrum, against a baseline pass over the same
// memory that does one division per point (the least any law can cost).
#include <benchmark/benchmark.h>

#include <vector>

#include "workspace/conversions.hpp"

namespace {

constexpr std::size_t N = 1 << 22;  // a 4M-point spectrum

std::vector<double> ramp() {
    std::vector<double> v(N);
    for (std::size_t i = 0; i < N; ++i) v[i] = 1.0 + static_cast<double>(i);
    return v;
}

void BM_Baseline_Divide(benchmark::State& state) {
    const auto in = ramp();
    std::vector<double> out(N);
    const double A = vx::DEFAULT_ATERM, hz = 1e6 / 16384.0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < N; ++i) out[i] = A / (in[i] * hz);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_Pt_tomass(benchmark::State& state) {
    const auto in = ramp();
    std::vector<double> out(N);
    vx::Spectrum s;
    s.datacount = static_cast<int>(N);
    s.caltype = static_cast<int>(state.range(0));
    for (auto _ : state) {
        vx::Pt_tomass(s, in, out);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_Mass_topt(benchmark::State& state) {
    const auto in = ramp();
    std::vector<double> out(N);
    vx::Spectrum s;
    s.datacount = static_cast<int>(N);
    for (auto _ : state) {
        vx::Mass_topt(s, in, out);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_Pt_tomass_walking(benchmark::State& state) {
    const auto in = ramp();
    std::vector<double> out(N);
    vx::Spectrum s;
    s.datacount = static_cast<int>(N);
    s.dbandwidth = static_cast<double>(N);
    s.caltype = vx::CALTYPE_WALKING;
    s.walkingterms = 2;
    const int regions = static_cast<int>(state.range(0));
    for (int r = 0; r < regions; ++r) {
        vx::WalkingRegion w;
        w.A = vx::DEFAULT_ATERM;
        w.B = vx::DEFAULT_BTERM;
        w.startfreq = 1000.0 + r * (N / regions);
        w.endfreq = 1000.0 + (r + 1) * (N / regions);
        s.walking.push_back(w);
    }
    s.walkingregions = regions;
    for (auto _ : state) {
        vx::Pt_tomass(s, in, out);
        benchmark::DoNotOptimize(out.data());
    }
}

BENCHMARK(BM_Baseline_Divide)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pt_tomass)->Arg(0)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Mass_topt)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pt_tomass_walking)->Arg(4)->Arg(40)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
