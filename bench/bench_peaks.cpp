// Noise estimation and the peak searches on a 2^24-point magnitude spectrum with
// 20,000 petroleum-like ions, against one plain pass over the same samples.
//   build/release/bench_peaks --benchmark_min_time=1
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>

#include "../tests/peaks/synthetic.hpp"
#include "peaks/find_peaks.hpp"
#include "peaks/noise.hpp"
#include "peaks/reborn.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace {

using namespace vx;

constexpr double LOW = 200.0, HIGH = 1000.0;

struct Fixture {
    Spectrum s;
    Settings st;
    long lower = 0, upper = 0;
    Fixture() {
        s = test::blank_spectrum(1 << 24);
        test::add_ions(s, test::petroleum_ions(20000, LOW + 1.0, HIGH - 1.0, 300000.0, 1.0, 2024));
        test::add_rayleigh_noise(s, 1.0, 2025);
        st = default_settings();
        st.low_mass = LOW;
        st.high_mass = HIGH;
        st.peak_threshold = 20.0;
        st.noise_threshold = 3.0;
        st.thread_count = 1;
        lower = static_cast<long>(SMass_toPt(s, HIGH));
        upper = static_cast<long>(SMass_toPt(s, LOW));
    }
};

Fixture& fixture() {
    static Fixture f;
    return f;
}

class NullUi : public RecordingUi {
public:
    void Console(std::string_view) override {}
};

// The baseline: one pass over the searched samples (largest value and sum).
void BM_Baseline_PlainPass(benchmark::State& state) {
    Fixture& f = fixture();
    for (auto _ : state) {
        float biggest = 0.0f;
        double sum = 0.0;
        for (long i = f.lower; i <= f.upper; ++i) {
            const float v = f.s.data[static_cast<std::size_t>(i)];
            biggest = std::max(biggest, v);
            sum += v;
        }
        benchmark::DoNotOptimize(biggest);
        benchmark::DoNotOptimize(sum);
    }
    state.counters["points"] = static_cast<double>(f.upper - f.lower + 1);
}
BENCHMARK(BM_Baseline_PlainPass)->Unit(benchmark::kMillisecond);

// Noise of the whole range in consecutive 5 m/z windows: every sample once.
void BM_CalculateNoise(benchmark::State& state) {
    Fixture& f = fixture();
    for (auto _ : state) {
        double total = 0.0;
        for (double centre = LOW + 2.5; centre < HIGH; centre += 5.0) {
            double width = 0.0;
            total += CalculateNoise(f.s, centre, 5.0, &width);
        }
        benchmark::DoNotOptimize(total);
    }
}
BENCHMARK(BM_CalculateNoise)->Unit(benchmark::kMillisecond);

// Times one finder on a fresh copy of the fixture's spectrum each round (the
// copy itself is not timed) and reports the peaks it found and their rate.
template <typename Finder>
void time_finder(benchmark::State& state, Finder&& find) {
    Fixture& f = fixture();
    NullUi ui;
    int n = 0;
    for (auto _ : state) {
        state.PauseTiming();
        Spectrum work = f.s;
        state.ResumeTiming();
        PeakTable table;
        n = find(work, table, ui);
        benchmark::DoNotOptimize(n);
    }
    state.counters["peaks"] = n;
    state.counters["peaks_per_s"] = benchmark::Counter(static_cast<double>(n) * state.iterations(),
                                                       benchmark::Counter::kIsRate);
}

void BM_FindPeaksReborn(benchmark::State& state) {
    const Settings& st = fixture().st;
    time_finder(state, [&](Spectrum& s, PeakTable& t, Ui& ui) { return FindPeaksReborn(s, st, 1000.0, t, ui); });
}
BENCHMARK(BM_FindPeaksReborn)->Unit(benchmark::kMillisecond);

void BM_FindPeaksThread(benchmark::State& state) {
    Settings st = fixture().st;
    st.thread_count = static_cast<int>(state.range(0));
    time_finder(state, [&](Spectrum& s, PeakTable& t, Ui& ui) { return FindPeaksThread(s, st, 1000.0, t, ui); });
}
BENCHMARK(BM_FindPeaksThread)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// Robust noise of the same consecutive 5 m/z windows (each widened to the
// 4096-point minimum where it holds fewer).
void BM_CalculateNoiseRobust(benchmark::State& state) {
    Fixture& f = fixture();
    for (auto _ : state) {
        double total = 0.0;
        for (double centre = LOW + 2.5; centre < HIGH; centre += 5.0) {
            double width = 0.0;
            total += CalculateNoiseRobust(f.s, centre, 5.0, &width);
        }
        benchmark::DoNotOptimize(total);
    }
}
BENCHMARK(BM_CalculateNoiseRobust)->Unit(benchmark::kMillisecond);

// The S/N search, literal (0) and with robust noise (1), at 8 noise widths.
void BM_FindPeaksRebornSn(benchmark::State& state) {
    Settings st = fixture().st;
    st.sn_mode = 1;
    st.peak_sigma_factor = 8.0;
    st.robust_noise = static_cast<int>(state.range(0));
    time_finder(state, [&](Spectrum& s, PeakTable& t, Ui& ui) { return FindPeaksReborn(s, st, 1000.0, t, ui); });
}
BENCHMARK(BM_FindPeaksRebornSn)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_NewVantorixPeakPick2(benchmark::State& state) {
    const Settings& st = fixture().st;
    time_finder(state, [&](Spectrum& s, PeakTable& t, Ui& ui) { return NewVantorixPeakPick2(s, st, t, ui); });
}
BENCHMARK(BM_NewVantorixPeakPick2)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
