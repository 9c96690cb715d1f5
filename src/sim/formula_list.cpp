#include "sim/formula_list.hpp"

#include <algorithm>
#include <cmath>
#include <random>
#include <set>

#include <fmt/format.h>

#include "composition/elements.hpp"

namespace vx {

std::vector<SimulatedFormulaPeak> simulate_formula_list(const FormulaListParameters& p) {
    std::mt19937_64 rng(p.seed);
    auto uniform = [&](double a, double b) { return a + (b - a) * (static_cast<double>(rng() >> 11) * 0x1.0p-53); };
    auto pick = [&](int a, int b) { return a + static_cast<int>(rng() % static_cast<std::uint64_t>(b - a + 1)); };
    const double mc = first_isotope_mass(SLOT_C), mh = first_isotope_mass(SLOT_H), mn = first_isotope_mass(SLOT_N);
    const double mo = first_isotope_mass(SLOT_O), ms = first_isotope_mass(SLOT_S);
    const double electron = p.charge_sign < 0 ? ELECTRON_MASS : -ELECTRON_MASS;

    struct Class {
        int n, o, s;
    };
    std::vector<Class> classes;
    if (p.cho) for (int o = 1; o <= 20; ++o) classes.push_back({0, o, 0});
    if (p.chon) for (int n = 1; n <= 2; ++n) for (int o = 1; o <= 10; ++o) classes.push_back({n, o, 0});
    if (p.chos) for (int o = 1; o <= 10; ++o) classes.push_back({0, o, 1});
    std::vector<SimulatedFormulaPeak> out;
    if (classes.empty() || p.count <= 0) return out;

    std::set<ElementCounts> seen;
    int attempts = 0;
    const int max_attempts = p.count * 200 + 1000;
    while (static_cast<int>(out.size()) < p.count && attempts++ < max_attempts) {
        const Class k = classes[static_cast<std::size_t>(pick(0, static_cast<int>(classes.size()) - 1))];
        const int dbe = pick(0, p.dbe_max);
        const int length = pick(p.series_min, p.series_max);
        const int c0 = pick(p.c_min, p.c_max);
        // The series' abundance envelope: a peak in the middle, falling off.
        const double top = std::exp(uniform(std::log(1e4), std::log(1e7)));
        for (int i = 0; i < length && static_cast<int>(out.size()) < p.count; ++i) {
            const int c = c0 + i;
            if (c > p.c_max) break;
            const int h_neutral = 2 * c + 2 + k.n - 2 * dbe;
            // Plausible organic molecules only: enough hydrogen, not more
            // unsaturation than the skeleton allows, O/C and H/C in range.
            if (h_neutral < 2 || dbe > c + k.n / 2 + 1) continue;
            const double hc = static_cast<double>(h_neutral) / c, oc = static_cast<double>(k.o) / c;
            if (hc < 0.3 || hc > 2.25 || oc > 1.2) continue;
            ElementCounts ion{};
            ion[0] = c;
            ion[1] = h_neutral + (p.charge_sign < 0 ? -1 : 1);
            ion[2] = k.n;
            ion[3] = k.o;
            ion[4] = k.s;
            const double exact = c * mc + ion[1] * mh + k.n * mn + k.o * mo + k.s * ms + electron;
            if (exact < p.low_mz || exact > p.high_mz) continue;
            if (!seen.insert(ion).second) continue;
            SimulatedFormulaPeak pk;
            pk.ion = ion;
            pk.exact_mz = exact;
            pk.mz = exact * (1.0 + uniform(-p.max_error_ppm, p.max_error_ppm) * 1e-6);
            const double x = (i - length / 2.0) / std::max(1.0, length / 3.0);
            pk.abundance = top * std::exp(-0.5 * x * x) * uniform(0.8, 1.2);
            out.push_back(pk);
        }
    }
    std::sort(out.begin(), out.end(), [](const SimulatedFormulaPeak& a, const SimulatedFormulaPeak& b) { return a.mz < b.mz; });
    return out;
}

std::string formula_list_csv(const std::vector<SimulatedFormulaPeak>& peaks) {
    std::string out = "mz,intensity,formula\n";
    static const char* const sym[5] = {"C", "H", "N", "O", "S"};
    for (const SimulatedFormulaPeak& p : peaks) {
        std::string f;
        for (std::size_t i = 0; i < 5; ++i)
            if (p.ion[i] > 0) f += p.ion[i] == 1 ? std::string(sym[i]) : fmt::format("{}{}", sym[i], p.ion[i]);
        // Isotopologues (sim/isotopologues.hpp) carry 13C and 34S in user slots 1 and 2.
        if (p.ion[6] > 0) f += fmt::format("[13C]{}", p.ion[6]);
        if (p.ion[7] > 0) f += fmt::format("[34S]{}", p.ion[7]);
        out += fmt::format("{:.7f},{:.1f},{}\n", p.mz, p.abundance, f);
    }
    return out;
}

void formula_list_to_spectrum(const std::vector<SimulatedFormulaPeak>& peaks, Spectrum& s) {
    s.peaks.clear();
    double largest = 0.0;
    for (const auto& p : peaks) largest = std::max(largest, p.abundance);
    for (const auto& p : peaks) {
        Peak k;
        k.mass = p.mz;
        k.index = p.mz;
        k.abundance = p.abundance;
        k.relabundance = largest > 0 ? 100.0 * p.abundance / largest : 0.0;
        s.peaks.push_back(k);
    }
    s.peakcount = static_cast<std::int32_t>(s.peaks.size());
    s.domain = DOMAIN_PEAKLIST;
    s.filetype = FILETYPE_PEAKLIST;
}

}  // namespace vx
