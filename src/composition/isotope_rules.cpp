#include "composition/isotope_rules.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <fmt/format.h>

#include "composition/assign.hpp"
#include "composition/isotopes.hpp"
#include "peaks/noise.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {

std::vector<HitRecord>& array_of(Spectrum& s, int odd) { return odd ? s.unassigned : s.assigned; }
const std::vector<HitRecord>& array_of(const Spectrum& s, int odd) { return odd ? s.unassigned : s.assigned; }

// Count of a one-element problem's isotopologues above limit / sn.
int solutions_above(int carbons, int sulfurs, double sn, double limit) {
    if (!(sn > 0.0) || !(limit > 0.0)) return 0;
    std::vector<IsoElement> p;
    if (BuildIsotopes(1, carbons, 0, sulfurs, p) < 0 || p.empty()) return 0;
    if (CalculateIsotope(p, limit / sn) < 0) return 0;
    return p[0].solution_count;
}

// The strongest term of a solution list at a mass offset, 0 when it fell
// below the threshold. The rule names "the second carbon term" and "the third
// sulfur term": the places of one heavy carbon (offset 1) and of 34S (offset 2)
// in the full list of a single atom. Taken by offset, so that a weaker term
// culled before them (33S) does not shift the place.
double term_at_offset(const IsoElement& e, int offset) {
    double best = 0.0;
    for (const IsoSolution& s : e.solutions)
        if (s.offset == offset) best = std::max(best, s.abundance);
    return best;
}

const char* kind_name(IsotopeKind k) {
    switch (k) {
    case ISO_C13: return "C13";
    case ISO_2C13: return "2C13";
    case ISO_S34: return "S34";
    default: return "S34 C13";
    }
}

// Same array for 2 x 13C and 34S (an even nominal step), the other for 13C and
// 34S + 13C.
int target_array(IsotopeKind k, int oddeven) {
    return (k == ISO_C13 || k == ISO_S34_C13) ? (oddeven ? 0 : 1) : oddeven;
}

}  // namespace

int check_c13_isotope(int carbons, double sn, double limit, double /*mz*/) {
    if (carbons <= 0) return 0;
    return std::max(0, solutions_above(carbons, 0, sn, limit) - 1);
}

int check_2c13_isotope(int carbons, double sn, double limit, double /*mz*/) {
    if (carbons <= 0) return 0;
    return std::max(0, solutions_above(carbons, 0, sn, limit) - 2);
}

int check_s34_isotope(int sulfurs, double sn, double limit, double /*mz*/) {
    if (sulfurs <= 0) return 0;
    return std::max(0, solutions_above(0, sulfurs, sn, limit) - 1);
}

int check_s34_c13_isotope(int sulfurs, int carbons, double sn, double limit, double /*mz*/) {
    if (sulfurs <= 0 || carbons <= 0 || !(sn > 0.0) || !(limit > 0.0)) return 0;
    std::vector<IsoElement> p;
    if (BuildIsotopes(2, carbons, 0, sulfurs, p) < 0 || p.size() != 2) return 0;
    if (CalculateIsotope(p, limit / sn) < 0) return 0;
    const double c = term_at_offset(p[0], 1);
    const double s = term_at_offset(p[1], 2);
    return limit / sn < c * s ? 1 : 0;
}

double isotope_target(IsotopeKind kind, double m, double user1, double user2) {
    const double c12 = first_isotope_mass(SLOT_C);
    const double s32 = first_isotope_mass(SLOT_S);
    switch (kind) {
    case ISO_C13: return m - c12 + user1;
    case ISO_2C13: return m + 2.0 * user1 - 2.0 * c12;
    case ISO_S34: return m - s32 + user2;
    default: return m - s32 + user2 - c12 + user1;
    }
}

int find_isotope(IsotopeKind kind, const HitRecord& parent, const std::vector<HitRecord>& peaks, double ppm,
                 double user1, double user2, int* best, double* target_out, double max_abundance) {
    double target = isotope_target(kind, parent.mass, user1, user2);
    const double tolerance = target * ppm / 1000000.0;
    std::vector<int> matches;
    const int n = LocateKendrickMass(&target, peaks, tolerance, matches, best, max_abundance);
    if (target_out) *target_out = target;
    return n;
}

double CalculateSN(const HitRecord& peak, const Spectrum& spectrum) {
    if (spectrum.data.empty()) return peak.sn;
    double spread = 0.0;
    const double noise = CalculateNoise(spectrum, peak.mass, ISOTOPE_NOISE_WINDOW, &spread);
    // Written unbracketed in the oldest notes of this rule; everywhere else in
    // the program S/N is (abundance - noise) / spread, and the unbracketed form
    // would make the S/N of every peak its abundance. The bracketed form is used.
    if (!(spread > 0.0)) return peak.sn;
    return (peak.abundance - noise) / spread;
}

void assign_xxx_isotope(int oddeven, HitRecord& parent, int found, int hits, IsotopeKind kind, double ppm,
                        Spectrum& spectrum, const FormulaSettings& settings, Ui& ui) {
    auto& arr = array_of(spectrum, oddeven);
    if (found < 0 || found >= static_cast<int>(arr.size())) return;
    FormulaHit rec;
    rec.counts = parent.counts;
    const int c13 = kind == ISO_C13 ? 1 : kind == ISO_2C13 ? 2 : kind == ISO_S34_C13 ? 1 : 0;
    const int s34 = (kind == ISO_S34 || kind == ISO_S34_C13) ? 1 : 0;
    rec.counts[0] -= c13;
    rec.counts[6] += c13;
    rec.counts[4] -= s34;
    rec.counts[7] += s34;
    rec.dbe = parent.dbe;
    rec.isotope_code = kind == ISO_C13 ? 100 : rec.counts[7] * 100 + rec.counts[6];
    HitRecord& h = arr[static_cast<std::size_t>(found)];
    h.counts = rec.counts;
    h.hit_code = -1;
    h.theoretical_mass = parent.theoretical_mass;
    h.score = parent.score;
    h.isotope_code = rec.isotope_code;
    h.dbe = rec.dbe;
    std::string cls;
    BuildFormula(h.formula_text, h.counts, settings, cls);
    h.class_text = "," + cls;
    const int series = h.series;
    assign_single_hit(found, rec, oddeven, ISOTOPE_SCORE, hits > 1 ? 400 : 200, ppm, spectrum, settings, ui);
    // The located peak and the parallel series it carries are isotopologues:
    // none of them is a parent.
    for (HitRecord& m : arr)
        if (m.series == series && m.score == ISOTOPE_SCORE) m.isotope_flags = {-99, -99, -99, -99};
    parent.isotope_flags[static_cast<std::size_t>(kind)] = ISOFLAG_FOUND;
}

void assign_c13_isotope(int oddeven, HitRecord& parent, int found, int hits, double ppm, Spectrum& spectrum,
                        const FormulaSettings& settings, Ui& ui) {
    assign_xxx_isotope(oddeven, parent, found, hits, ISO_C13, ppm, spectrum, settings, ui);
}

int isotope_rules_single(int oddeven, int series, double ppm, KendrickTables& tables, Spectrum& spectrum,
                         const FormulaSettings& settings, Ui& ui, IsotopeRulesSummary* summary) {
    auto& arr = array_of(spectrum, oddeven);
    const double u1 = settings.user[0].mass, u2 = settings.user[1].mass;
    // Members of the group: the array is ordered by series, then mass.
    std::vector<int> members;
    {
        auto lo = std::lower_bound(arr.begin(), arr.end(), series,
                                   [](const HitRecord& h, int s) { return h.series < s; });
        for (auto it = lo; it != arr.end() && it->series == series; ++it)
            members.push_back(static_cast<int>(it - arr.begin()));
        if (members.empty())
            for (std::size_t i = 0; i < arr.size(); ++i)
                if (arr[i].series == series) members.push_back(static_cast<int>(i));
    }
    // Weakest first; the rules run from the end, the strongest first.
    std::stable_sort(members.begin(), members.end(), [&](int a, int b) {
        return arr[static_cast<std::size_t>(a)].abundance < arr[static_cast<std::size_t>(b)].abundance - 0.0000001;
    });
    auto ranks = rank_index(tables);
    auto mark_series_assigned = [&](int odd, int found, int hits) {
        const auto& a = array_of(spectrum, odd);
        const int s = a[static_cast<std::size_t>(found)].series;
        const auto& ro = ranks[static_cast<std::size_t>(odd)];
        if (s >= 0 && s < static_cast<int>(ro.size()) && ro[static_cast<std::size_t>(s)] >= 0)
            tables.ranks[static_cast<std::size_t>(ro[static_cast<std::size_t>(s)])].assigned = hits;
    };
    if (summary) summary->peaks += static_cast<int>(members.size());

    // Step 2: S/N where missing, and the 13C test.
    for (auto it = members.rbegin(); it != members.rend(); ++it) {
        HitRecord& h = arr[static_cast<std::size_t>(*it)];
        if (h.sn < 0.0000001) h.sn = CalculateSN(h, spectrum);
        if (h.counts[0] > ISOTOPE_CARBON_LIMIT)
            ui.Console(fmt::format("Error : Isotope_rules_single {}[{}] has {} Carbons\n", oddeven ? "odd_array" : "even_array",
                                   *it, h.counts[0]));
        if (h.isotope_flags[0] == ISOFLAG_IS_ISOTOPE) continue;
        if (check_c13_isotope(h.counts[0], h.sn, ISOTOPE_SN_LIMIT, h.mass) > 0) h.isotope_flags[0] = ISOFLAG_EXPECTED;
        else if (oddeven) h.isotope_flags[0] = ISOFLAG_MISSING;
    }

    auto search = [&](IsotopeKind kind, int flag_array, int search_array) {
        auto& flags_from = array_of(spectrum, flag_array);
        auto& target = array_of(spectrum, search_array);
        for (auto it = members.rbegin(); it != members.rend(); ++it) {
            const int i = *it;
            if (i >= static_cast<int>(flags_from.size())) continue;
            if (flags_from[static_cast<std::size_t>(i)].isotope_flags[kind] != ISOFLAG_EXPECTED) continue;
            HitRecord& h = arr[static_cast<std::size_t>(i)];
            if (summary) ++summary->expected[kind];
            int best = -1;
            double t = 0.0;
            const int n = find_isotope(kind, h, target, ppm, u1, u2, &best, &t, h.abundance);
            if (n > 0 && best >= 0) {
                assign_xxx_isotope(search_array, h, best, n, kind, ppm, spectrum, settings, ui);
                mark_series_assigned(search_array, best, n);
                if (summary) ++summary->found[kind];
                return;  // one member of a group carries each search
            }
            if (kind != ISO_C13 && settings.debug) {
                const char* text = kind == ISO_2C13 ? "2C13" : kind == ISO_S34 ? "S34" : "S34 C13";
                ui.Console(fmt::format("{} isotope of mz {:f} not found.\n", text, h.mass));
            }
        }
    };

    // 13C: searched and assigned only for a group of the odd array.
    if (oddeven) search(ISO_C13, 1, 0);

    for (int i : members) {
        HitRecord& h = arr[static_cast<std::size_t>(i)];
        if (h.isotope_flags[0] == ISOFLAG_IS_ISOTOPE) continue;
        if (check_2c13_isotope(h.counts[0], h.sn, ISOTOPE_SN_LIMIT, h.mass) > 0) h.isotope_flags[ISO_2C13] = ISOFLAG_EXPECTED;
    }
    search(ISO_2C13, oddeven, oddeven);

    for (int i : members) {
        HitRecord& h = arr[static_cast<std::size_t>(i)];
        if (h.isotope_flags[0] == ISOFLAG_IS_ISOTOPE || h.counts[4] <= 0) continue;
        if (check_s34_isotope(h.counts[4], h.sn, ISOTOPE_SN_LIMIT, h.mass) > 0) h.isotope_flags[ISO_S34] = ISOFLAG_EXPECTED;
    }
    search(ISO_S34, oddeven, oddeven);

    // 34S + 13C. A group of the even array writes its flag into the odd array
    // at the same index and reads it back from the even array, so its search
    // runs only where the even member carries the flag already; the search
    // runs in the even array for both. Kept as the desktop has always done it;
    // an index past the end of the odd array is not written.
    for (int i : members) {
        HitRecord& h = arr[static_cast<std::size_t>(i)];
        if (h.isotope_flags[0] == ISOFLAG_IS_ISOTOPE || h.counts[4] <= 0) continue;
        if (check_s34_c13_isotope(h.counts[4], h.counts[0], h.sn, ISOTOPE_SN_LIMIT, h.mass) <= 0) continue;
        if (oddeven) {
            h.isotope_flags[ISO_S34_C13] = ISOFLAG_EXPECTED;
        } else if (i < static_cast<int>(spectrum.unassigned.size())) {
            spectrum.unassigned[static_cast<std::size_t>(i)].isotope_flags[ISO_S34_C13] = ISOFLAG_EXPECTED;
        } else {
            ui.Console(fmt::format("Isotope_rules_single: even_array[{}] has no odd_array place for its S34 C13 flag.\n", i));
        }
    }
    search(ISO_S34_C13, oddeven, 0);
    return 0;
}

namespace {

// The arrays are ordered by series, not by mass: over a whole list the
// candidates are found through a mass-sorted index, with the choice of
// LocateKendrickMass (closest; the earliest in the array among equals).
struct MassIndex {
    std::vector<int> order;
    explicit MassIndex(const std::vector<HitRecord>& a) : order(a.size()) {
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(), [&](int x, int y) {
            return a[static_cast<std::size_t>(x)].mass < a[static_cast<std::size_t>(y)].mass;
        });
    }
    int find(const std::vector<HitRecord>& a, double target, double tolerance, double max_abundance, int* best) const {
        auto it = std::lower_bound(order.begin(), order.end(), target - tolerance,
                                   [&](int i, double m) { return a[static_cast<std::size_t>(i)].mass < m; });
        int n = 0;
        double closest = -1.0;
        int chosen = -1;
        for (; it != order.end(); ++it) {
            const HitRecord& h = a[static_cast<std::size_t>(*it)];
            if (h.mass - target > tolerance) break;
            if (h.hit_code != 0 || std::fabs(h.mass - target) > tolerance || !(h.abundance < max_abundance)) continue;
            ++n;
            const double d = std::fabs(h.mass - target);
            if (closest < 0.0 || d < closest || (d == closest && *it < chosen)) {
                closest = d;
                chosen = *it;
            }
        }
        if (n > 0 && best) *best = chosen;
        return n;
    }
};

}  // namespace

int isotope_rules(double ppm, Spectrum& spectrum, const FormulaSettings& settings, Ui& ui, IsotopeRulesSummary* summary) {
    const double u1 = settings.user[0].mass, u2 = settings.user[1].mass;
    const MassIndex index_even(spectrum.assigned), index_odd(spectrum.unassigned);
    for (int odd = 1; odd >= 0; --odd) {
        auto& arr = array_of(spectrum, odd);
        for (std::size_t i = 0; i < arr.size(); ++i) {
            HitRecord& h = arr[i];
            if (summary) ++summary->peaks;
            if (h.hit_code == 0 || h.isotope_flags[0] == ISOFLAG_IS_ISOTOPE || h.score == ISOTOPE_SCORE) continue;
            for (int k = 0; k < 4; ++k) {
                const auto kind = static_cast<IsotopeKind>(k);
                const int C = h.counts[0], S = h.counts[4];
                int expected = 0;
                switch (kind) {
                case ISO_C13: expected = check_c13_isotope(C, h.sn, ISOTOPE_SN_LIMIT, h.mass); break;
                case ISO_2C13: expected = check_2c13_isotope(C, h.sn, ISOTOPE_SN_LIMIT, h.mass); break;
                case ISO_S34: expected = S > 0 ? check_s34_isotope(S, h.sn, ISOTOPE_SN_LIMIT, h.mass) : 0; break;
                default: expected = S > 0 ? check_s34_c13_isotope(S, C, h.sn, ISOTOPE_SN_LIMIT, h.mass) : 0; break;
                }
                if (expected <= 0) continue;
                if (summary) ++summary->expected[static_cast<std::size_t>(k)];
                if (h.isotope_flags[static_cast<std::size_t>(k)] == ISOFLAG_FOUND) {
                    if (summary) ++summary->found[static_cast<std::size_t>(k)];
                    continue;
                }
                const int ta = target_array(kind, odd);
                auto& target = array_of(spectrum, ta);
                int best = -1;
                const double t = isotope_target(kind, h.mass, u1, u2);
                const int n = (ta ? index_odd : index_even).find(target, t, t * ppm / 1000000.0, h.abundance, &best);
                if (n > 0 && best >= 0) {
                    h.isotope_flags[static_cast<std::size_t>(k)] = ISOFLAG_FOUND;
                    target[static_cast<std::size_t>(best)].isotope_flags = {-99, -99, -99, -99};
                    if (summary) ++summary->found[static_cast<std::size_t>(k)];
                } else {
                    h.isotope_flags[static_cast<std::size_t>(k)] = ISOFLAG_MISSING;
                    if (settings.debug) ui.Console(fmt::format("{} isotope of mz {:f} not found.\n", kind_name(kind), h.mass));
                }
            }
        }
    }
    return 0;
}

int isotope_rules_list(Spectrum& spectrum, double series_ppm, double ppm, Ui& ui, IsotopeRulesSummary* summary) {
    FormulaSettings st = molecal_defaults();
    if (parse_element_ranges("C0-100,H0-200,N0-4,O0-20,S0-3,13C0-1,34S0-1", st, ui) < 0) return -1;
    st.MASS_ACCURACY = ppm;
    st.TOPDOWN = true;
    st.series_fit = true;
    st.IGNOREOVERS = true;
    KendrickOptions ko;
    ko.ppm = series_ppm;
    if (assign_peak_list(spectrum, ko, st, 2, ui, nullptr) < 0) return -1;
    IsotopeRulesSummary local;
    isotope_rules(ppm, spectrum, st, ui, summary ? summary : &local);
    return 0;
}

std::string isotope_flags_csv(const Spectrum& s, const FormulaSettings* settings) {
    const FormulaSettings st = settings ? *settings : molecal_defaults();
    const auto names = user_names_of(st);
    std::string out = "mz,abundance,sn,array,index,formula,hit,flag_13C,flag_2x13C,flag_34S,flag_34S_13C\n";
    for (int odd = 1; odd >= 0; --odd) {
        const auto& arr = array_of(s, odd);
        for (std::size_t i = 0; i < arr.size(); ++i) {
            const HitRecord& h = arr[i];
            out += fmt::format("{:.6f},{:.4f},{:.2f},{},{},{},{},{},{},{},{}\n", h.mass, h.abundance, h.sn,
                               odd ? "odd" : "even", i, h.hit_code != 0 ? hill_formula(h.counts, names) : "", h.hit_code,
                               h.isotope_flags[0], h.isotope_flags[1], h.isotope_flags[2], h.isotope_flags[3]);
        }
    }
    return out;
}

}  // namespace vx
