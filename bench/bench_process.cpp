// Process_Data on 2^24- and 2^25-sample transients against a bare fftwf real
// transform of the same length, measured in the same run.
//
//   BM_Baseline_BareRealFft/N          fftwf r2c of N floats out of place (FFTW_ESTIMATE plan, made outside the timing)
//   BM_Baseline_BareRealFftInPlace/N   the same in place (the faster of the two here, and the chain's own form)
//   BM_ProcessData/N/0        the chain with Hann and no zero-fill: one transform of N
//   BM_ProcessData/N/1        the chain with the start-up options (Hann, one zero-fill): a transform of 2N
//
// Compare BM_ProcessData/N/0 with BM_Baseline_BareRealFft/N and BM_ProcessData/N/1 with BM_Baseline_BareRealFft/2N.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include <benchmark/benchmark.h>
#include <fftw3.h>
#include <tbb/global_control.h>

#include "platform/ui.hpp"
#include "workspace/processing.hpp"

namespace {

std::vector<float> transient(std::size_t n) {
    std::vector<float> v(n);
    for (std::size_t i = 0; i < n; ++i)
        v[i] = static_cast<float>(1000.0 * std::cos(0.37 * i) * std::exp(-1e-7 * i) + 300.0 * std::sin(0.011 * i) + 12.0);
    return v;
}

void BM_Baseline_BareRealFft(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    float* in = fftwf_alloc_real(static_cast<std::size_t>(n));
    fftwf_complex* out = fftwf_alloc_complex(static_cast<std::size_t>(n / 2 + 1));
    fftwf_plan plan = fftwf_plan_dft_r2c_1d(n, in, out, FFTW_ESTIMATE);
    const auto src = transient(static_cast<std::size_t>(n));
    std::copy(src.begin(), src.end(), in);
    for (auto _ : state) {
        fftwf_execute(plan);
        benchmark::DoNotOptimize(out[1][0]);
    }
    fftwf_destroy_plan(plan);
    fftwf_free(in);
    fftwf_free(out);
}

void BM_Baseline_BareRealFftInPlace(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    float* buf = fftwf_alloc_real(static_cast<std::size_t>(n) + 2);
    fftwf_plan plan = fftwf_plan_dft_r2c_1d(n, buf, reinterpret_cast<fftwf_complex*>(buf), FFTW_ESTIMATE);
    const auto src = transient(static_cast<std::size_t>(n));
    for (auto _ : state) {
        state.PauseTiming();
        std::copy(src.begin(), src.end(), buf);
        state.ResumeTiming();
        fftwf_execute(plan);
        benchmark::DoNotOptimize(buf[3]);
    }
    fftwf_destroy_plan(plan);
    fftwf_free(buf);
}

void BM_ProcessData(benchmark::State& state) {
    const std::size_t n = static_cast<std::size_t>(state.range(0));
    vx::Settings options = vx::default_settings();
    options.zerofills = static_cast<int>(state.range(1));
    // The baseline to compare with is the bare transform of the length the chain transforms.
    state.counters["baseline_arg"] = static_cast<double>(n << options.zerofills);
    const auto src = transient(n);
    vx::RecordingUi ui;
    vx::Spectrum s;
    s.datacount = static_cast<int>(n);
    s.data = src;
    (void)vx::Process_Data(s, options, ui);  // plans made before the timing, as a session reuses them
    for (auto _ : state) {
        state.PauseTiming();
        s = vx::Spectrum{};
        s.datacount = static_cast<int>(n);
        // As the reader leaves it: the samples with two floats of room behind them.
        s.data.reserve(n + 2);
        s.data.assign(src.begin(), src.end());
        state.ResumeTiming();
        if (vx::Process_Data(s, options, ui) < 0) state.SkipWithError("Process_Data failed");
        benchmark::DoNotOptimize(s.data.data());
    }
}

BENCHMARK(BM_Baseline_BareRealFft)->Arg(1 << 24)->Arg(1 << 25)->Arg(1 << 26)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Baseline_BareRealFftInPlace)->Arg(1 << 24)->Arg(1 << 25)->Arg(1 << 26)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProcessData)
    ->Args({1 << 24, 0})
    ->Args({1 << 24, 1})
    ->Args({1 << 25, 0})
    ->Args({1 << 25, 1})
    ->Unit(benchmark::kMillisecond);

}  // namespace

// The chain's passes use TBB; the bare transform is one thread. By default the
// run is held to one thread, so that CPU time measures all the work of both on
// a machine shared with other jobs; VX_BENCH_THREADS=n allows n.
int main(int argc, char** argv) {
    const char* env = std::getenv("VX_BENCH_THREADS");
    const std::size_t threads = env ? static_cast<std::size_t>(std::max(1, std::atoi(env))) : 1;
    tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
