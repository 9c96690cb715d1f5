// THRASH scan of a 1M-point magnitude spectrum: ubiquitin at charges 5-13 and a
// 30 kDa averagine protein at 15-40 (clusters overlapping), and the same
// spectrum's noise alone. Baseline: one plain pass over the same samples.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <random>

#include "platform/ui.hpp"
#include "thrash/averagine.hpp"
#include "thrash/isotopes.hpp"
#include "thrash/thrash.hpp"
#include "workspace/conversions.hpp"
#include "workspace/spectrum.hpp"

namespace {

vx::Spectrum make_spectrum(bool with_proteins) {
    vx::Spectrum s;
    vx::Set_Default_Parameters(s);
    const int n = 1 << 20;
    s.domain = vx::DOMAIN_FREQUENCY;
    s.datacount = n;
    s.dbandwidth = 250000.0;
    s.hzppt = s.dbandwidth / n;
    s.data.assign(n, 0.0f);
    std::mt19937 rng(5);
    std::normal_distribution<double> g(0.0, 1.0);
    for (float& v : s.data) {
        const double re = g(rng), im = g(rng);
        v = static_cast<float>(std::sqrt(re * re + im * im));
    }
    if (!with_proteins) return s;
    struct P {
        vx::Composition atoms;
        int zmin, zmax;
    };
    const P proteins[] = {{{378, 629, 105, 118, 1}, 5, 13}, {vx::averagine_composition(30000.0), 15, 40}};
    int state = 0;
    for (const P& p : proteins) {
        const vx::IsotopeLevels lv = vx::isotope_levels(p.atoms, 100);
        double top = 0.0;
        for (double v : lv.probability) top = std::max(top, v);
        for (int z = p.zmin; z <= p.zmax; ++z, ++state) {
            const double height = 10.0 * (5.0 + 495.0 * ((state * 37) % 100) / 100.0);  // S/N 5 to 500
            for (std::size_t k = 0; k < lv.probability.size(); ++k) {
                if (lv.probability[k] < 0.001 * top) continue;
                const double mz = (lv.mean_mass[k] + z * 1.00727647) / z;
                const double c = vx::One_mass_topt(s, mz), hw = 1.5;
                for (long i = static_cast<long>(c) - 40; i <= static_cast<long>(c) + 40; ++i) {
                    if (i < 0 || i >= n) continue;
                    const double x = (i - c) / hw;
                    s.data[static_cast<std::size_t>(i)] += static_cast<float>(height * lv.probability[k] / top / (1 + x * x));
                }
            }
        }
    }
    return s;
}

const vx::AveragineTable& table() {
    static const vx::AveragineTable t = [] {
        vx::AveragineTable t;
        vx::RecordingUi ui;
        vx::ReadAveragineTable(t, ui, nullptr, std::string(VANTORIX_SOURCE_DIR) + "/data/averagine_lookup2.txt");
        return t;
    }();
    return t;
}

void run(benchmark::State& state, bool proteins, bool clean = false) {
    vx::Spectrum s = make_spectrum(proteins);
    vx::ThrashParams p;
    p.low_mass = 600.0;
    p.high_mass = 2000.0;
    p.max_charge = static_cast<int>(state.range(0));
    p.clean_residues = clean;
    vx::RecordingUi ui;
    vx::ThrashResult r;
    double seconds = 0.0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        vx::thrash_with_table(s, p, table(), r, ui);
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        benchmark::DoNotOptimize(r.clusters);
    }
    // Share of the scan's wall time spent in the all-charges passes.
    state.counters["all_charges_share"] = seconds > 0.0 ? r.all_charge_seconds / seconds : 0.0;
    state.counters["clusters"] = r.clusters;
    state.counters["all_charge_passes"] = r.all_charge_passes;
    state.counters["fits"] = r.fits;
}

void BM_BaselinePass(benchmark::State& state) {
    vx::Spectrum s = make_spectrum(false);
    for (auto _ : state) {
        double m = 0.0;
        for (float v : s.data) m = std::max<double>(m, v);
        benchmark::DoNotOptimize(m);
    }
}

void BM_ThrashNoiseOnly(benchmark::State& state) { run(state, false); }
void BM_ThrashScan(benchmark::State& state) { run(state, true); }
void BM_ThrashScanCleanResidues(benchmark::State& state) { run(state, true, true); }

}  // namespace

BENCHMARK(BM_BaselinePass)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ThrashNoiseOnly)->Unit(benchmark::kMillisecond)->Iterations(2)->Arg(2000);
// Highest charge of the all-charges pass: the setup value 60, and the scan's own 2000.
BENCHMARK(BM_ThrashScan)->Unit(benchmark::kMillisecond)->Iterations(1)->Arg(60)->Arg(2000)->UseRealTime();
// The same with --clean-residues.
BENCHMARK(BM_ThrashScanCleanResidues)->Unit(benchmark::kMillisecond)->Iterations(1)->Arg(2000)->UseRealTime();
BENCHMARK_MAIN();
