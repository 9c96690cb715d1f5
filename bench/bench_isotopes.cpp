// Isotope patterns, isotope rules and class summaries.
//   build/release/bench_isotopes --benchmark_min_time=1
// Goals on one core: C60H122N2O4S at 1e-6 in 20 ms; the rules over 30,000
// peaks in 1 s; summaries and their CSV texts of 30,000 peaks in 0.3 s.
// Baselines measured in the same run: a nominal-mass polynomial expansion of
// the same formula, atom by atom; a plain pass over the 30,000 peaks that
// sums abundance by class text.
#include <benchmark/benchmark.h>

#include <map>
#include <vector>

#include "composition/assign.hpp"
#include "composition/elements.hpp"
#include "composition/isotope_rules.hpp"
#include "composition/isotopes.hpp"
#include "composition/petro_classes.hpp"
#include "platform/ui.hpp"
#include "sim/formula_list.hpp"
#include "sim/isotopologues.hpp"

namespace {

using namespace vx;

class NullUi : public RecordingUi {
public:
    void Console(std::string_view) override {}
};

// Nominal distribution of C60H122N2O4S by atom-by-atom convolution (no fine
// structure): the least work any pattern of the formula needs.
void BM_Baseline_NominalPolynomial(benchmark::State& state) {
    const std::pair<int, int> parts[] = {{SLOT_C, 60}, {SLOT_H, 122}, {SLOT_N, 2}, {SLOT_O, 4}, {SLOT_S, 1}};
    for (auto _ : state) {
        std::vector<double> p(1, 1.0);
        for (auto [slot, n] : parts) {
            const ElementEntry& e = element_table()[static_cast<std::size_t>(slot)];
            for (int a = 0; a < n; ++a) {
                std::vector<double> q(p.size() + 4, 0.0);
                for (std::size_t o = 0; o < p.size(); ++o)
                    for (int k = 0; k < e.isotope_count; ++k) q[o + static_cast<std::size_t>(e.isotopes[k].mass_offset)] += p[o] * e.isotopes[k].abundance;
                while (q.size() > 1 && q.back() < 1e-12) q.pop_back();
                p.swap(q);
            }
        }
        benchmark::DoNotOptimize(p.data());
    }
}
BENCHMARK(BM_Baseline_NominalPolynomial)->Unit(benchmark::kMillisecond);

void BM_IsotopePattern(benchmark::State& state, const char* formula, double threshold) {
    NullUi ui;
    std::size_t n = 0;
    for (auto _ : state) {
        IsotopePattern p;
        isotope_pattern(formula, threshold, p, ui);
        n = p.isotopologues.size();
        benchmark::DoNotOptimize(p.peaks.data());
    }
    state.counters["isotopologues"] = static_cast<double>(n);
}
BENCHMARK_CAPTURE(BM_IsotopePattern, C60H122N2O4S_1e6, "C60H122N2O4S", 1e-6)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_IsotopePattern, C60H122N2O4S_1e9, "C60H122N2O4S", 1e-9)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_IsotopePattern, C150H200S4_1e9, "C150H200S4", 1e-9)->Unit(benchmark::kMillisecond);

struct Assigned {
    Spectrum s;
    FormulaSettings st;
    Assigned() {
        FormulaListParameters p;
        p.count = 24000;
        p.seed = 2026;
        auto peaks = simulate_formula_list(p);
        add_isotopologue_peaks(peaks, 0.02 * 100000.0);
        if (peaks.size() > 30000) peaks.resize(30000);
        formula_list_to_spectrum(peaks, s);
        for (Peak& k : s.peaks) k.sn = k.abundance / 1000.0;
        st = molecal_defaults();
        NullUi ui;
        parse_element_ranges("13C0-1,34S0-1,C1-100,H0-200,N0-3,O0-20,S0-2", st, ui);
        st.mode = ChargeMode::NEG;
        st.RADICALS = false;
        st.MASS_ACCURACY = 1.0;
        st.IGNOREOVERS = true;
        st.series_fit = true;
        st.TOPDOWN = true;
        KendrickOptions ko;
        assign_peak_list(s, ko, st, 2, ui, nullptr);
    }
};
Assigned& assigned() {
    static Assigned a;
    return a;
}

void BM_IsotopeRulesUnguided(benchmark::State& state) {
    Assigned& a = assigned();
    NullUi ui;
    for (auto _ : state) {
        state.PauseTiming();
        Spectrum s = a.s;
        for (auto* arr : {&s.assigned, &s.unassigned})
            for (HitRecord& h : *arr)
                if (h.score != ISOTOPE_SCORE) h.isotope_flags = {0, 0, 0, 0};
        state.ResumeTiming();
        IsotopeRulesSummary sum;
        isotope_rules(1.0, s, a.st, ui, &sum);
        benchmark::DoNotOptimize(sum.found[0]);
    }
    state.counters["peaks"] = static_cast<double>(a.s.assigned.size() + a.s.unassigned.size());
}
BENCHMARK(BM_IsotopeRulesUnguided)->Unit(benchmark::kMillisecond);

void BM_Baseline_SumByClass(benchmark::State& state) {
    Assigned& a = assigned();
    for (auto _ : state) {
        std::map<std::string, double> sums;
        for (auto* arr : {&a.s.unassigned, &a.s.assigned})
            for (const HitRecord& h : *arr) sums[h.class_text] += h.abundance;
        benchmark::DoNotOptimize(sums.size());
    }
}
BENCHMARK(BM_Baseline_SumByClass)->Unit(benchmark::kMillisecond);

void BM_ClassSummariesAndCsv(benchmark::State& state) {
    Assigned& a = assigned();
    NullUi ui;
    for (auto _ : state) {
        PetroSummary p;
        ProcessPetro(a.s, a.st, true, p, ui);
        std::size_t bytes = classes_csv(p).size() + dbe_csv(p).size() + carbon_csv(p).size() +
                            processed_csv(p, a.st).size() + peaks_csv(p, a.st).size() + mass_error_csv(a.s).size() +
                            sn_error_csv(a.s).size();
        benchmark::DoNotOptimize(bytes);
    }
}
BENCHMARK(BM_ClassSummariesAndCsv)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
