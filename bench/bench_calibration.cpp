// Calibration of a 100,000-peak list: the two-term fit of a table and apply
// (every peak's mass rewritten), plain and walking, against a baseline pass
// that evaluates the two-term law once per peak over the same list.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "calibration/calibration.hpp"
#include "platform/ui.hpp"

namespace {

constexpr std::size_t PEAKS = 100000;
constexpr double V = 1.0;

double freq_of(double m) {
    const double A = vx::DEFAULT_ATERM, B = vx::DEFAULT_BTERM;
    return (A + std::sqrt(A * A + 4.0 * m * B * V)) / (2.0 * m);
}

// Peaks from m/z 200 to 1200, frequencies under the default law moved by a
// small smooth error, masses under a header 20 ppm off.
vx::Spectrum peak_list() {
    vx::Spectrum s;
    s.Trapvoltage = V;
    s.Aterm = vx::DEFAULT_ATERM * (1 + 2e-5);
    s.peaks.resize(PEAKS);
    for (std::size_t i = 0; i < PEAKS; ++i) {
        const double m = 200.0 + 1000.0 * static_cast<double>(i) / PEAKS;
        vx::Peak& p = s.peaks[i];
        p.frequency = freq_of(m * (1.0 + 1e-6 * std::sin(m / 50.0)));
        p.mass = (s.Bterm * V / p.frequency + s.Aterm) / p.frequency;
        p.index = p.frequency;
        p.calmass = m;
        p.abundance = 100.0;
    }
    return s;
}

std::vector<int> every(std::size_t step) {
    std::vector<int> v;
    for (std::size_t i = 0; i < PEAKS; i += step) v.push_back(static_cast<int>(i));
    return v;
}

void BM_BaselineLawOverPeaks(benchmark::State& state) {
    vx::Spectrum s = peak_list();
    for (auto _ : state) {
        const double A = s.Aterm, B = s.Bterm;
        for (vx::Peak& p : s.peaks) p.mass = ((B * V) / p.frequency) / p.frequency + A / p.frequency;
        benchmark::DoNotOptimize(s.peaks.data());
    }
}

// Table of `step`-th peaks with known masses, fit, apply with peak update.
void calibrate(benchmark::State& state, bool walking) {
    const vx::Spectrum original = peak_list();
    const std::vector<int> checked = every(static_cast<std::size_t>(state.range(0)));
    vx::RecordingUi ui;
    for (auto _ : state) {
        state.PauseTiming();
        vx::Spectrum s = original;  // the list as found, every iteration
        state.ResumeTiming();
        vx::CalibrationPanel panel;
        panel.WalkingOn = walking;
        vx::FillCalTableNew(panel, s, checked, true, ui);
        if (vx::CalibrationCalculate(panel, s.Trapvoltage, ui) < 0 || vx::ApplyCalibration(s, panel, 1, true, ui) < 0)
            state.SkipWithError("calibration failed");
        benchmark::DoNotOptimize(s.peaks.data());
    }
    state.counters["calibrants"] = static_cast<double>(checked.size());
}

void BM_FitAndApply(benchmark::State& state) { calibrate(state, false); }
void BM_WalkingFitAndApply(benchmark::State& state) { calibrate(state, true); }

}  // namespace

BENCHMARK(BM_BaselineLawOverPeaks)->Unit(benchmark::kMillisecond);
// 20 calibrants (every 5000th peak), 1000, and every peak of the list as a calibrant.
BENCHMARK(BM_FitAndApply)->Arg(5000)->Arg(100)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WalkingFitAndApply)->Arg(5000)->Arg(100)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
