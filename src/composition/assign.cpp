#include "composition/assign.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "composition/isotope_rules.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {

std::vector<HitRecord>& array_of(Spectrum& s, int odd) { return odd ? s.unassigned : s.assigned; }
const std::vector<HitRecord>& array_of(const Spectrum& s, int odd) { return odd ? s.unassigned : s.assigned; }

// The test peak of a series: the first member from the low end with enough
// S/N, or the most abundant member, whichever comes first.
int test_peak_of(const std::vector<HitRecord>& a, const KendrickRank& r, double assign_sn) {
    int i = r.first;
    while (i < r.most_abundant && a[static_cast<std::size_t>(i)].sn < assign_sn) ++i;
    return i;
}

bool rank_valid(const Spectrum& s, const KendrickRank& r) {
    const auto& a = array_of(s, r.odd);
    return r.first >= 0 && r.last < static_cast<std::int32_t>(a.size()) && r.first <= r.most_abundant &&
           r.most_abundant <= r.last;
}

}  // namespace

int calcform3(Spectrum& spectrum, KendrickTables& tables, const FormulaSettings& settings, Ui& ui) {
    tables.ranks = RankKendrickGroups(spectrum.unassigned, spectrum.assigned);
    for (std::size_t k = 0; k < tables.ranks.size(); ++k) {
        KendrickRank& r = tables.ranks[k];
        if (r.assigned != 0 || !rank_valid(spectrum, r)) continue;
        const auto& a = array_of(spectrum, r.odd);
        const int t = test_peak_of(a, r, settings.ASSIGN_SN);
        const int hits = find_masses(a[static_cast<std::size_t>(t)].mass, t, settings.MASS_ACCURACY, r.odd, 10000, 10000, 0,
                                     spectrum, settings, ui);
        if (hits < 0) return -1;
        // With TOPDOWN the group's isotopologues get their formulas now and
        // leave the later ranks; without it the series stays open for the
        // second pass.
        if (hits > 0 && settings.TOPDOWN) {
            r.assigned = hits;
            isotope_rules_single(r.odd, r.series, settings.MASS_ACCURACY, tables, spectrum, settings, ui);
        }
        if ((k & 255) == 255) ui.ProcessSystemEvents();
    }
    return 0;
}

int calcform4(Spectrum& spectrum, KendrickTables& tables, const FormulaSettings& settings, Ui& ui) {
    for (std::size_t k = 0; k < tables.ranks.size(); ++k) {
        KendrickRank& r = tables.ranks[k];
        if (!rank_valid(spectrum, r)) continue;
        if (r.last - r.first + 1 < settings.min_series_length) {
            if (settings.debug) ui.Console(fmt::format("Ken_rank {} Not enough members to assign.\n", k));
            continue;
        }
        if (r.assigned != 0) {
            ui.Console(fmt::format("Ken_rank {} ALREADY assigned.\n", k));
            continue;
        }
        const auto& a = array_of(spectrum, r.odd);
        const int t = test_peak_of(a, r, settings.ASSIGN_SN);
        const int hits = find_masses(a[static_cast<std::size_t>(t)].mass, t, settings.MASS_ACCURACY, r.odd, 10000, 10000, 0,
                                     spectrum, settings, ui);
        if (hits < 0) return -1;
        if (hits > 0) r.assigned = hits;
    }
    return 0;
}

int fix_no_hit_series(Spectrum& spectrum, const KendrickTables& tables, const FormulaSettings& settings, int minimum,
                      Ui& ui) {
    int repaired = 0;
    FormulaSettings listing = settings;
    listing.SORT = false;  // running numbers in the order found
    for (const KendrickRank& r : tables.ranks) {
        if (!rank_valid(spectrum, r) || r.last - r.first + 1 < std::max(1, minimum)) continue;
        auto& a = array_of(spectrum, r.odd);
        if (a[static_cast<std::size_t>(r.first)].hit_code != 0) continue;
        SingleSearchResult found;
        const double mass = a[static_cast<std::size_t>(r.first)].mass;
        const int n = find_masses_single(mass, settings.MASS_ACCURACY, 10000, 10000, -1, r.odd, r.first, 0, spectrum,
                                         listing, ui, &found);
        if (n < 0) return -1;
        int best = -1;
        for (std::size_t i = 0; i < found.hits.size(); ++i)
            if (found.hits[i].score != -1.0 && (best < 0 || found.hits[i].score < found.hits[static_cast<std::size_t>(best)].score))
                best = static_cast<int>(i);
        if (best < 0) continue;
        if (find_masses_single(mass, settings.MASS_ACCURACY, 10000, 10000, best, r.odd, r.first, 0, spectrum, listing, ui,
                               nullptr) < 0)
            return -1;
        ++repaired;
    }
    return repaired;
}

ErrorSummary Calculate_RMS_Error(const Spectrum& s) {
    ErrorSummary e;
    double sum = 0.0;
    for (int o = 0; o < 2; ++o)
        for (const HitRecord& h : array_of(s, o)) {
            if (h.hit_code == 0 || h.theoretical_mass <= 0.0) continue;
            sum += h.error * h.error;
            e.largest = std::max(e.largest, std::fabs(h.error));
            ++e.assigned;
        }
    e.rms = e.assigned ? std::sqrt(sum / e.assigned) : 0.0;
    return e;
}

double Calculate_Percent_Assigned(const Spectrum& s, double* in_series) {
    double total = 0.0, assigned = 0.0, series = 0.0, series_assigned = 0.0;
    for (int o = 0; o < 2; ++o) {
        const auto& a = array_of(s, o);
        for (std::size_t i = 0; i < a.size(); ++i) {
            total += a[i].abundance;
            const bool hit = a[i].hit_code != 0;
            if (hit) assigned += a[i].abundance;
            const bool member = (i > 0 && a[i - 1].series == a[i].series) || (i + 1 < a.size() && a[i + 1].series == a[i].series);
            if (member) {
                series += a[i].abundance;
                if (hit) series_assigned += a[i].abundance;
            }
        }
    }
    if (in_series) *in_series = series > 0.0 ? 100.0 * series_assigned / series : 0.0;
    return total > 0.0 ? 100.0 * assigned / total : 0.0;
}

ElementCounts neutral_counts(const ElementCounts& ion, ChargeMode mode) {
    ElementCounts n = ion;
    if (mode == ChargeMode::NEG) n[1] += 1;
    else if (mode == ChargeMode::POS) n[1] -= 1;
    return n;
}

std::string assignment_csv_text(const Spectrum& s, const FormulaSettings& settings) {
    struct Row {
        const HitRecord* h;
        int odd;
    };
    std::vector<Row> rows;
    for (int o = 1; o >= 0; --o)
        for (const HitRecord& h : array_of(s, o)) rows.push_back({&h, o});
    std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.h->mass < b.h->mass; });
    const auto names = user_names_of(settings);
    std::string out = "mz,abundance,formula,neutral_formula,class,exact_mass,error_ppm,dbe,array,series,hit\n";
    for (const Row& r : rows) {
        const HitRecord& h = *r.h;
        const char* kind = h.hit_code == 0 ? "No Hit" : h.hit_code == 1 ? "Single" : h.hit_code == -1 ? "Isotope" : "Multiple";
        if (h.hit_code == 0) {
            out += fmt::format("{:.6f},{:.4f},,,,,,,{},{},{}\n", h.mass, h.abundance, r.odd ? "odd" : "even", h.series, kind);
            continue;
        }
        std::string cls = h.class_text.size() > 0 && h.class_text[0] == ',' ? h.class_text.substr(1) : h.class_text;
        while (!cls.empty() && cls.back() == ' ') cls.pop_back();
        out += fmt::format("{:.6f},{:.4f},{},{},{},{:.6f},{:.4f},{:g},{},{},{}\n", h.mass, h.abundance,
                           hill_formula(h.counts, names), hill_formula(neutral_counts(h.counts, settings.mode), names), cls,
                           h.theoretical_mass, h.error, h.dbe, r.odd ? "odd" : "even", h.series, kind);
    }
    return out;
}

int assign_peak_list(Spectrum& spectrum, const KendrickOptions& kendrick, const FormulaSettings& settings,
                     int repair_minimum, Ui& ui, AssignSummary* summary, KendrickTables* tables_out) {
    if (check_formula_settings(settings, ui) < 0) return -1;
    KendrickTables tables;
    if (KendrickCalculate(spectrum, kendrick, tables, ui) < 0) return -1;
    if (calcform3(spectrum, tables, settings, ui) < 0) return -1;
    int repaired = 0;
    if (repair_minimum > 0) {
        repaired = fix_no_hit_series(spectrum, tables, settings, repair_minimum, ui);
        if (repaired < 0) return -1;
    }
    if (summary) {
        AssignSummary& s = *summary;
        s = AssignSummary{};
        s.peaks = static_cast<int>(spectrum.assigned.size() + spectrum.unassigned.size());
        s.series = static_cast<int>(tables.ranks.size());
        s.repaired = repaired;
        s.errors = Calculate_RMS_Error(spectrum);
        s.assigned = s.errors.assigned;
        s.percent_assigned = Calculate_Percent_Assigned(spectrum, &s.percent_in_series);
    }
    if (tables_out) *tables_out = std::move(tables);
    return 0;
}

}  // namespace vx
