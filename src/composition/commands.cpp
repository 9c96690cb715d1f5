#include "composition/commands.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>

#include <fmt/format.h>

#include "calibration/calibration.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {

Spectrum* active_spectrum(Workspace& ws, Ui& ui) {
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(ws.active_panel)].active) {
        ui.MessagePopup("Kendrick Analysis", "There is no active data set: open a spectrum or a peak list first.");
        return nullptr;
    }
    return &ws.panels[static_cast<std::size_t>(ws.active_panel)].spectrum;
}

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

}  // namespace

void peak_masses_from_index(Spectrum& s) {
    for (Peak& p : s.peaks)
        if (p.mass == 0.0 && p.index > 0.0 && s.domain == DOMAIN_PEAKLIST) p.mass = p.index;
}

int KendrickCommand(Workspace& ws, const KendrickOptions& options, KendrickTables& tables, Ui& ui) {
    Spectrum* s = active_spectrum(ws, ui);
    if (!s) return -1;
    peak_masses_from_index(*s);
    return KendrickCalculate(*s, options, tables, ui);
}

int calc_form(Workspace& ws, KendrickTables& tables, const KendrickOptions& kendrick, const FormulaSettings& settings,
              int repair_minimum, Ui& ui, AssignSummary* summary) {
    Spectrum* s = active_spectrum(ws, ui);
    if (!s) return -1;
    if (check_formula_settings(settings, ui) < 0) return -1;
    // A new calculation each time: assignments do not survive a recalculation
    // of the arrays, and the peak list may have changed since the last one.
    if (KendrickCommand(ws, kendrick, tables, ui) < 0) return -1;
    if (calcform3(*s, tables, settings, ui) < 0) return -1;
    int repaired = 0;
    if (repair_minimum > 0 && (repaired = fix_no_hit_series(*s, tables, settings, repair_minimum, ui)) < 0) return -1;
    if (summary) {
        *summary = AssignSummary{};
        summary->peaks = static_cast<int>(s->assigned.size() + s->unassigned.size());
        summary->series = static_cast<int>(tables.ranks.size());
        summary->repaired = repaired;
        summary->errors = Calculate_RMS_Error(*s);
        summary->assigned = summary->errors.assigned;
        summary->percent_assigned = Calculate_Percent_Assigned(*s, &summary->percent_in_series);
    }
    return 0;
}

int calc_form_single(double mz, const FormulaSettings& settings, SingleSearchResult& result, Ui& ui) {
    Spectrum none;
    return find_masses_single(mz, settings.MASS_ACCURACY, 10000, 10000, -1, 0, -1, 0, none, settings, ui, &result);
}

std::vector<KendrickRow> kendrick_rows(const Spectrum& s, const KendrickTables& t, const FormulaSettings& settings) {
    std::vector<KendrickRow> rows;
    const auto ranks = rank_index(t);
    const auto names = user_names_of(settings);
    for (int o = 1; o >= 0; --o) {
        const auto& a = o ? s.unassigned : s.assigned;
        for (std::size_t i = 0; i < a.size(); ++i) {
            const HitRecord& h = a[i];
            const KendrickValues v = kendrick_values(h.mass, t.factor);
            KendrickRow r;
            r.odd = o;
            r.index = static_cast<int>(i);
            r.mz = h.mass;
            r.abundance = h.abundance;
            r.kendrick_mass = v.km;
            r.nominal = v.nominal;
            r.defect = v.nominal - v.km;
            r.series = h.series;
            const auto& ro = ranks[static_cast<std::size_t>(o)];
            r.rank = h.series >= 0 && static_cast<std::size_t>(h.series) < ro.size() ? ro[static_cast<std::size_t>(h.series)] + 1 : 0;
            r.type = h.hit_code == 0 ? "No Hit" : h.hit_code == 1 ? "Single" : h.hit_code == -1 ? "Isotope" : "Multiple";
            if (h.hit_code != 0) {
                r.formula = hill_formula(h.counts, names);
                r.error_ppm = h.error;
                r.dbe = h.dbe;
            }
            rows.push_back(std::move(r));
        }
    }
    return rows;
}

int k_search(const std::vector<KendrickRow>& rows, const std::string& needle, int after) {
    if (needle.empty()) return -1;
    const std::string n = lower(needle);
    for (int i = std::max(0, after + 1); i < static_cast<int>(rows.size()); ++i) {
        const KendrickRow& r = rows[static_cast<std::size_t>(i)];
        const std::string text = lower(fmt::format("{:.6f} {} {}", r.mz, r.formula, r.type));
        if (text.find(n) != std::string::npos) return i;
    }
    return -1;
}

namespace {

// The record behind a target, checked against the m/z it was opened with so
// that a recalculated view never receives another peak's pick.
HitRecord* target_record(Spectrum& s, const SingleCalcTarget& t) {
    auto& a = t.oddeven ? s.unassigned : s.assigned;
    if (t.index < 0 || t.index >= static_cast<int>(a.size())) return nullptr;
    HitRecord& h = a[static_cast<std::size_t>(t.index)];
    return std::fabs(h.mass - t.mz) <= 0.0000001 ? &h : nullptr;
}

constexpr const char* kStale = "The Kendrick table has changed since the calculator was opened on this peak; open it again from the table.";

}  // namespace

int CheckFormula(const std::vector<KendrickRow>& rows, int row, SingleCalcTarget& target) {
    if (row < 0 || row >= static_cast<int>(rows.size())) return -1;
    const KendrickRow& r = rows[static_cast<std::size_t>(row)];
    target = SingleCalcTarget{};
    target.mz = r.mz;
    target.oddeven = r.odd;
    target.index = r.index;
    return 0;
}

int update_kendrick(Spectrum& s, const SingleCalcTarget& t, int running, const FormulaSettings& settings, Ui& ui) {
    if (!target_record(s, t)) {
        ui.MessagePopup("Kendrick Analysis", kStale);
        return -1;
    }
    if (running < 0) {
        ui.MessagePopup("Formula Calculator", "Pick one of the listed formulas first.");
        return -1;
    }
    return find_masses_single(t.mz, settings.MASS_ACCURACY, 10000, 10000, running, t.oddeven, t.index, 0, s, settings, ui,
                              nullptr);
}

int nohit_kendrick(Spectrum& s, const SingleCalcTarget& t, const FormulaSettings& settings, Ui& ui) {
    if (!target_record(s, t)) {
        ui.MessagePopup("Kendrick Analysis", kStale);
        return -1;
    }
    assign_single_hit(t.index, FormulaHit{}, t.oddeven, 0.0, 0, settings.MASS_ACCURACY, s, settings, ui);
    if (settings.debug) ui.Console("Cleared assigned to kendrick array.\n");
    return 0;
}

int FindNoHitSeries(const std::vector<KendrickRow>& rows, int row, int minimum) {
    const int n = static_cast<int>(rows.size());
    auto same = [&](int a, int b) {
        return rows[static_cast<std::size_t>(a)].odd == rows[static_cast<std::size_t>(b)].odd &&
               rows[static_cast<std::size_t>(a)].series == rows[static_cast<std::size_t>(b)].series;
    };
    int first = std::max(0, row);
    if (first >= n) return -1;
    // The run of the series the search starts in counts all its members.
    while (first > 0 && same(first - 1, first)) --first;
    for (int i = first; i < n;) {
        int j = i;
        while (j + 1 < n && same(j + 1, i)) ++j;
        if (j - i + 1 >= minimum)
            for (int k = std::max(i, row); k <= j; ++k)
                if (rows[static_cast<std::size_t>(k)].formula.empty()) return k;
        i = j + 1;
    }
    return -1;
}

int AddKendrickSeries(Spectrum& s, const std::vector<KendrickRow>& rows, int row, CalibrationPanel& panel, bool recal,
                      Ui& ui) {
    if (row < 0 || row >= static_cast<int>(rows.size())) {
        ui.MessagePopup("Kendrick Analysis", "Select a peak of the series to calibrate with.");
        return -1;
    }
    const KendrickRow& r = rows[static_cast<std::size_t>(row)];
    const auto& a = r.odd ? s.unassigned : s.assigned;
    std::vector<int> peaks;
    std::vector<double> masses;
    for (const HitRecord& h : a)
        if (h.series == r.series && h.hit_code != 0 && h.theoretical_mass > 0.0) {
            peaks.push_back(h.source_index);
            masses.push_back(h.theoretical_mass);
        }
    if (peaks.empty()) {
        ui.MessagePopup("Kendrick Analysis", "No member of this series has a formula: assign the series first.");
        return -1;
    }
    if (recal && !ui.ConfirmPopup("This action will remove all current values from calibration table.",
                                  "Press Yes to continue and remove all values."))
        return -1;
    return add_calibrants_to_table(panel, s, peaks, masses, recal);
}

}  // namespace vx
