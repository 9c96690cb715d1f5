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

// Times convert(in, out) over the ramp.
template <typename Convert>
void time_conversion(benchmark::State& state, Convert&& convert) {
    const auto in = ramp();
    std::vector<double> out(N);
    for (auto _ : state) {
        convert(in, out);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_Baseline_Divide(benchmark::State& state) {
    const double A = vx::DEFAULT_ATERM, hz = 1e6 / 16384.0;
    time_conversion(state, [&](const std::vector<double>& in, std::vector<double>& out) {
        for (std::size_t i = 0; i < N; ++i) out[i] = A / (in[i] * hz);
    });
}

void BM_Pt_tomass(benchmark::State& state) {
    vx::Spectrum s;
    s.datacount = static_cast<int>(N);
    s.caltype = static_cast<int>(state.range(0));
    time_conversion(state, [&](const std::vector<double>& in, std::vector<double>& out) { vx::Pt_tomass(s, in, out); });
}

void BM_Mass_topt(benchmark::State& state) {
    vx::Spectrum s;
    s.datacount = static_cast<int>(N);
    time_conversion(state, [&](const std::vector<double>& in, std::vector<double>& out) { vx::Mass_topt(s, in, out); });
}

void BM_Pt_tomass_walking(benchmark::State& state) {
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
    time_conversion(state, [&](const std::vector<double>& in, std::vector<double>& out) { vx::Pt_tomass(s, in, out); });
}

BENCHMARK(BM_Baseline_Divide)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pt_tomass)->Arg(0)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Mass_topt)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pt_tomass_walking)->Arg(4)->Arg(40)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
