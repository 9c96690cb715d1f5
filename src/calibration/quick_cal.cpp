#include "calibration/quick_cal.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>

#include <fmt/printf.h>

#include "peaks/find_peaks.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {

namespace {

double law(double A, double B, double V, double f) { return ((B * V) / f) / f + A / f; }

CalTableRow row_of_peak(const Spectrum& s, int index) {
    const Peak& p = s.peaks[static_cast<std::size_t>(index)];
    CalTableRow r;
    r.number = index + 1;
    r.frequency = p.frequency;
    r.measured = p.mass;
    r.abundance = p.abundance;
    r.relabundance = p.relabundance;
    r.sn = p.sn;
    return r;
}

}  // namespace

int add_calibrants_to_table(CalibrationPanel& panel, Spectrum& spectrum, std::span<const CalibrantPick> picks,
                            Ui& ui) {
    for (const CalibrantPick& k : picks) {
        if (k.peak < 0 || static_cast<std::size_t>(k.peak) >= spectrum.peaks.size()) {
            ui.MessagePopup("Calibration", fmt::sprintf("Peak %i is not in the peak list.", k.peak + 1));
            return -1;
        }
    }
    if (panel.rows.empty()) {
        panel.CalA = spectrum.Aterm;
        panel.CalB = spectrum.Bterm;
        panel.MagneticField = spectrum.Aterm * FIELD_PER_ATERM;
        panel.TrapPlates = spectrum.Trapvoltage;
    }
    // Rows by peak number; a later pick of the same peak wins.
    std::map<int, CalTableRow> by_number;
    for (const CalTableRow& r : panel.rows) by_number.emplace(r.number, r);
    int added = 0;
    for (const CalibrantPick& k : picks) {
        auto [it, fresh] = by_number.try_emplace(k.peak + 1, row_of_peak(spectrum, k.peak));
        added += fresh ? 1 : 0;
        Peak& p = spectrum.peaks[static_cast<std::size_t>(k.peak)];
        p.iscalibrant = 1;
        if (k.theoretical > 0.0) {
            it->second.theoretical = k.theoretical;
            p.calmass = k.theoretical;
        }
    }
    panel.rows.clear();
    for (auto& [number, row] : by_number) panel.rows.push_back(row);
    // Each marked peak points at its row, as after a fill from checked peaks.
    for (std::size_t i = 0; i < panel.rows.size(); ++i)
        spectrum.peaks[static_cast<std::size_t>(panel.rows[i].number - 1)].calibrantrow = static_cast<int>(i);
    // Measured and error under the panel's coefficients; unassigned rows show
    // their peak's mass and no error.
    const double V = std::fabs(spectrum.Trapvoltage);
    for (CalTableRow& r : panel.rows) {
        r.measured = r.frequency > 0.0 ? law(panel.CalA, panel.CalB, V, r.frequency) : r.measured;
        r.error = r.theoretical > 0.0 ? (r.measured - r.theoretical) / r.theoretical * 1000000.0 : 0.0;
    }
    panel.CalPoints = static_cast<int>(panel.rows.size());
    if (panel.active_row < 0 || static_cast<std::size_t>(panel.active_row) >= panel.rows.size()) panel.active_row = 0;
    if (!panel.rows.empty()) panel.CurrentTheoretical = panel.rows[static_cast<std::size_t>(panel.active_row)].theoretical;
    return added;
}

std::vector<double> quick_cal_series(double start, double unit, double limit) {
    std::vector<double> v;
    if (!(unit > 0.0) || !(limit >= start) || !std::isfinite(start) || !std::isfinite(limit)) return v;
    const double count = std::ceil((limit - start) / unit) + 1.0;
    // A series longer than any spectrum holds peaks for is refused, not allocated.
    if (!(count <= 1e6)) return v;
    for (long k = 0; k < static_cast<long>(count); ++k) {
        const double m = start + static_cast<double>(k) * unit;
        if (m > limit) break;
        v.push_back(m);
    }
    return v;
}

namespace {

int quick_cal(CalibrationPanel& panel, Spectrum& spectrum, const QuickCalRequest& q, const MatchTolerance& tol,
              bool clear, const std::vector<double>* merge_first, bool print, Ui& ui) {
    std::vector<int> checked;
    for (int i : q.checked)
        if (i >= 0 && static_cast<std::size_t>(i) < spectrum.peaks.size()) checked.push_back(i);
    std::sort(checked.begin(), checked.end());
    checked.erase(std::unique(checked.begin(), checked.end()), checked.end());
    if (checked.size() < 2) {
        ui.MessagePopup("Operator Error", "Must check at least 2 \n peaks for calibration");
        return -1;
    }
    panel.recal_enabled = true;
    if (clear) {
        for (Peak& p : spectrum.peaks) {
            p.iscalibrant = 0;
            p.calmass = -1.0;
            p.calibrantrow = -1;
        }
    }
    if (q.start_mz < 0.0) return -1;
    const double unit = 2.0 * q.unit_first + q.unit_second;
    double highest = 0.0;
    for (const Peak& p : spectrum.peaks) highest = std::max(highest, p.mass);
    const double limit = std::min(q.upper_limit, highest);
    std::vector<double> masses = quick_cal_series(q.start_mz, unit, limit);
    if (merge_first) {
        masses.insert(masses.end(), merge_first->begin(), merge_first->end());
        std::sort(masses.begin(), masses.end());
        masses.erase(std::unique(masses.begin(), masses.end()), masses.end());
    }
    if (print)
        for (std::size_t i = 0; i < masses.size(); ++i)
            ui.Console(fmt::sprintf("theoMassFinalArray[%i].mass = %f.\n", static_cast<int>(i), masses[i]));

    if (FillCalTableNew(panel, spectrum, checked, false, ui) != 0) return -1;
    AssignTheor_toCalPanel(panel, spectrum, masses, tol);
    RemoveUnassignedCalPeaks(panel);
    spectrum.calibrantcount = static_cast<std::int32_t>(panel.rows.size());
    if (q.mode_a != -1) {
        panel.WalkingOn = q.mode_a != 0;
        panel.WalkingTerms = (q.kind == 2 || q.kind == 4) ? 3 : 2;
    }
    if (!q.run_fit) return 0;
    panel.AbundanceThreeTerm = q.kind == 2;
    if (CalibrationCalculate(panel, spectrum.Trapvoltage, ui) != 0) return -1;
    return ApplyCalibration(spectrum, panel, q.kind == 2 ? 2 : 1, true, ui);
}

}  // namespace

int FinishQuickCalNew(CalibrationPanel& panel, Spectrum& spectrum, const QuickCalRequest& request,
                      const MatchTolerance& tol, Ui& ui) {
    return quick_cal(panel, spectrum, request, tol, request.clear, nullptr, false, ui);
}

int FinishQuickCal(CalibrationPanel& panel, Spectrum& spectrum, const QuickCalRequest& request, bool keep,
                   const MatchTolerance& tol, Ui& ui) {
    std::vector<double> table;
    if (!keep)
        for (const CalTableRow& r : panel.rows)
            if (r.theoretical > 0.0) table.push_back(r.theoretical);
    return quick_cal(panel, spectrum, request, tol, false, keep ? nullptr : &table, !keep, ui);
}

int FinishQuickCal44(CalibrationPanel& panel, Spectrum& spectrum, const QuickCalRequest& request,
                     const MatchTolerance& tol, Ui& ui) {
    return quick_cal(panel, spectrum, request, tol, false, nullptr, false, ui);
}

void Update_Peaklist(const Spectrum& spectrum, std::vector<PeakTableRow>& rows, int terms, int kind, double A,
                     double B) {
    const double V = std::fabs(spectrum.Trapvoltage);
    const auto& w = spectrum.walking;
    const std::size_t R = std::min<std::size_t>(static_cast<std::size_t>(std::max(terms, 0)), w.size());
    for (PeakTableRow& row : rows) {
        const double f = row.frequency;
        double m = row.mass;
        bool found = false;
        if (terms == 0) {
            m = law(A, B, V, f);
            found = true;
        }
        for (std::size_t r = 0; r < R && !found; ++r) {
            // The old panel's tolerances, wider at the start than at the end.
            if (kind == 2 && std::fabs(w[r].startfreq - f) < 0.0001) {
                m = w[r].startmz, found = true;
            } else if (kind == 2 && std::fabs(w[r].endfreq - f) < 1e-06) {
                m = w[r].endmz, found = true;
            } else if (kind == 2 ? (w[r].lowedge < f && f < w[r].highedge)
                                 : (w[r].lowedge <= f && f <= w[r].highedge)) {
                m = law(w[r].A, w[r].B, V, f), found = true;
            }
        }
        if (!found) continue;
        // The panel held the m/z as text: what it shows is what it keeps.
        row.mass = std::strtod(fmt::sprintf("%f", m).c_str(), nullptr);
        row.index = SMass_toPt(spectrum, row.mass);
    }
}

void Update_Peaklist2(const Spectrum& spectrum, std::vector<PeakTableRow>& rows) {
    for (PeakTableRow& row : rows) {
        if (row.number < 1 || static_cast<std::size_t>(row.number) > spectrum.peaks.size()) continue;
        const Peak& p = spectrum.peaks[static_cast<std::size_t>(row.number - 1)];
        // A row of another search's list (its frequency differs) is not this peak.
        if (row.frequency != p.frequency) continue;
        row.mass = p.mass;
    }
}

}  // namespace vx
