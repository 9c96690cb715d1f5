// Formula assignment of 30,000 peaks (simulated CHO/CHON/CHOS series, masses
// within 0.3 ppm) with C, H, N0-3, O0-20, S0-2 at 1 ppm in negative mode,
// against a plain pass that computes the Kendrick values of the same peaks
// and sorts them.
//   build/release/bench_composition --benchmark_min_time=1
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "composition/assign.hpp"
#include "composition/kendrick.hpp"
#include "platform/ui.hpp"
#include "sim/formula_list.hpp"

namespace {

using namespace vx;

class NullUi : public RecordingUi {
public:
    void Console(std::string_view) override {}
};

struct Fixture {
    Spectrum list;
    FormulaSettings settings;
    Fixture() {
        FormulaListParameters p;
        p.count = 30000;
        p.seed = 2026;
        formula_list_to_spectrum(simulate_formula_list(p), list);
        settings = molecal_defaults();
        NullUi ui;
        parse_element_ranges("C1-100,H0-200,N0-3,O0-20,S0-2", settings, ui);
        settings.mode = ChargeMode::NEG;
        settings.RADICALS = false;
        settings.MASS_ACCURACY = 1.0;
        settings.IGNOREOVERS = true;
    }
};

Fixture& fixture() {
    static Fixture f;
    return f;
}

// The baseline: Kendrick values of every peak and a sort by them.
void BM_Baseline_KendrickValuesAndSort(benchmark::State& state) {
    Fixture& f = fixture();
    std::vector<std::pair<int, double>> keys(f.list.peaks.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < keys.size(); ++i) {
            const KendrickValues v = kendrick_values(f.list.peaks[i].mass, KENDRICK_FACTOR_CH2);
            keys[i] = {v.kmd, v.km};
        }
        std::sort(keys.begin(), keys.end());
        benchmark::DoNotOptimize(keys.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * keys.size()));
}
BENCHMARK(BM_Baseline_KendrickValuesAndSort)->Unit(benchmark::kMillisecond);

// Kendrick series, one search per series, propagation, repair: what
// `vantorix assign` runs (series fit on).
void BM_AssignPeakList(benchmark::State& state) {
    Fixture& f = fixture();
    FormulaSettings st = f.settings;
    st.series_fit = state.range(0) != 0;
    NullUi ui;
    for (auto _ : state) {
        Spectrum s;
        s.peaks = f.list.peaks;
        AssignSummary sum;
        assign_peak_list(s, KendrickOptions{}, st, 2, ui, &sum);
        benchmark::DoNotOptimize(sum.assigned);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * f.list.peaks.size()));
}
BENCHMARK(BM_AssignPeakList)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

// The worst case for the walk: every peak searched on its own by the
// single-mass calculator (no series to share the work).
void BM_SearchEveryPeak(benchmark::State& state) {
    Fixture& f = fixture();
    NullUi ui;
    Spectrum none;
    for (auto _ : state) {
        long hits = 0;
        SingleSearchResult r;
        for (const Peak& p : f.list.peaks)
            hits += find_masses_single(p.mass, 1.0, 10000, 10000, -1, 0, -1, 0, none, f.settings, ui, &r);
        benchmark::DoNotOptimize(hits);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * f.list.peaks.size()));
}
BENCHMARK(BM_SearchEveryPeak)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
