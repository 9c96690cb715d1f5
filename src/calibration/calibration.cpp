#include "calibration/calibration.hpp"
#include "calibration/quick_cal.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <unordered_set>

#include <Eigen/Dense>
#include <fmt/format.h>
#include <fmt/printf.h>

#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"
#include "workspace/workspace.hpp"

namespace vx {

const char* const CAL_COLUMN_HEADINGS[CAL_COLUMNS] = {
    "Number",       "Frequency",      "Theoretical",    "Measured",       "Error(ppm)",
    "Scaled Abun",  "Relative Abun",  "S/N",            "Calibrated mz1", "Calibrated mz2",
    "ppq Difference", "recalculated Aterm", "recalculated BTerm",
};

namespace {

constexpr const char* OPERATOR_ERROR = "Operator Error";
constexpr const char* TOO_FEW_CHECKED = "Must check at least 2 \n peaks for calibration";
constexpr const char* TRAP_ERROR_TITLE = "Trap Plate Voltage Error";
// "/n" stands as it always has in this message.
constexpr const char* TRAP_ERROR_TEXT =
    "Trap plate voltage at the time of detection was set to 0 volts./nCalibration not possible because of divide "
    "by zero error";
// Edge tolerance of the peak-mass walk with the three-term flow.
constexpr double PEAK_EDGE_TOLERANCE = 1e-7;

// m = ((B V) / f) / f + A / f, in the order the peak list and table use.
double two_term(double A, double B, double V, double f) { return ((B * V) / f) / f + A / f; }

// The two terms of the law through (f1, m1) and (f2, m2); f1 != f2.
void pair_terms(double f1, double m1, double f2, double m2, double V, double& A, double& B) {
    B = (m2 * f2 * f2 - m1 * f1 * f2) / ((1.0 - f2 / f1) * V);
    A = m1 * f1 - V * B / f1;
}

}  // namespace

double calibrant_tolerance(double mass, double limit, bool ppm) { return ppm ? mass * limit * 1e-6 : limit; }

int FillCalTableNew(CalibrationPanel& panel, Spectrum& spectrum, std::span<const int> checked, bool keep_mass,
                    Ui& ui) {
    std::vector<int> rows;
    for (int i : checked)
        if (i >= 0 && static_cast<std::size_t>(i) < spectrum.peaks.size()) rows.push_back(i);
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    if (rows.size() < 2) {
        ui.MessagePopup(OPERATOR_ERROR, TOO_FEW_CHECKED);
        return -1;
    }
    panel.rows.clear();
    for (int i : rows) {
        Peak& p = spectrum.peaks[static_cast<std::size_t>(i)];
        p.iscalibrant = 1;
        CalTableRow r;
        r.number = i + 1;
        r.frequency = p.frequency;
        r.theoretical = keep_mass ? p.calmass : -1.0;
        r.measured = p.mass;
        r.error = 0.0;
        r.abundance = p.abundance;
        r.relabundance = p.relabundance;
        r.sn = p.sn;
        panel.rows.push_back(r);
    }
    panel.CurrentTheoretical = panel.rows.front().measured;
    panel.active_row = 0;
    panel.CalA = spectrum.Aterm;
    panel.CalB = spectrum.Bterm;
    panel.MagneticField = panel.CalA * FIELD_PER_ATERM;
    panel.TrapPlates = spectrum.Trapvoltage;
    panel.CalPoints = static_cast<int>(panel.rows.size());
    return 0;
}

std::vector<int> MatchTheo_toMeasured(const Spectrum& spectrum, std::span<const double> masses,
                                      const MatchTolerance& tol) {
    const std::size_t n = spectrum.peaks.size();
    std::vector<double> points(n), peak_mass(n);
    for (std::size_t i = 0; i < n; ++i) points[i] = spectrum.peaks[i].index;
    Pt_tomass(spectrum, points, peak_mass);
    std::vector<int> out;
    for (double ref : masses) {
        const double t = calibrant_tolerance(ref, tol.limit, tol.ppm);
        double best = -1.0;
        int which = -1;
        for (std::size_t i = 0; i < n; ++i) {
            const double d = std::fabs(peak_mass[i] - ref);
            if (d <= t && (best <= -0.99 || d < best)) {
                best = d;
                which = static_cast<int>(i);
            }
        }
        if (which >= 0) out.push_back(which);
    }
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

void AssignTheor_toCalPanel(CalibrationPanel& panel, Spectrum& spectrum, std::span<const double> masses,
                            const MatchTolerance& tol) {
    auto peak_of = [&](const CalTableRow& r) -> Peak* {
        if (r.number < 1 || static_cast<std::size_t>(r.number) > spectrum.peaks.size()) return nullptr;
        return &spectrum.peaks[static_cast<std::size_t>(r.number - 1)];
    };
    for (CalTableRow& r : panel.rows) {
        Peak* p = peak_of(r);
        if (p && p->iscalibrant && p->calmass > 1.0) {
            r.theoretical = p->calmass;
            continue;
        }
        if (r.theoretical > 0.5) continue;
        for (double ref : masses) {
            // The tolerance belongs to the reference mass, so ppm limits widen with it.
            if (std::fabs(r.measured - ref) > calibrant_tolerance(ref, tol.limit, tol.ppm)) continue;
            // Only a strict improvement replaces: the first of two equally near wins.
            if (std::fabs(r.measured - ref) < std::fabs(r.measured - r.theoretical)) {
                r.theoretical = ref;
                if (p) {
                    p->calmass = ref;
                    p->iscalibrant = 1;
                }
            }
        }
    }
    int running = 0;
    for (Peak& p : spectrum.peaks) {
        if (!p.iscalibrant) continue;
        p.calibrantrow = running;
        if (static_cast<std::size_t>(running) < panel.rows.size()) {
            CalTableRow& r = panel.rows[static_cast<std::size_t>(running)];
            if (r.theoretical < 0.0 && p.calmass > 0.0) r.theoretical = p.calmass;
        }
        ++running;
    }
    panel.CalPoints = static_cast<int>(panel.rows.size());
}

int RemoveUnassignedCalPeaks(CalibrationPanel& panel) {
    const auto before = panel.rows.size();
    std::erase_if(panel.rows, [](const CalTableRow& r) { return !(r.theoretical > 0.0); });
    panel.CalPoints = static_cast<int>(panel.rows.size());
    return static_cast<int>(before - panel.rows.size());
}

int RemoveDuplicateCalibrants(CalibrationPanel& panel) {
    std::unordered_set<double> frequencies, masses;
    std::vector<CalTableRow> kept;
    kept.reserve(panel.rows.size());
    for (const CalTableRow& r : panel.rows) {
        if (frequencies.count(r.frequency) || masses.count(r.theoretical)) continue;
        frequencies.insert(r.frequency);
        masses.insert(r.theoretical);
        kept.push_back(r);
    }
    const int removed = static_cast<int>(panel.rows.size() - kept.size());
    panel.rows = std::move(kept);
    panel.CalPoints = static_cast<int>(panel.rows.size());
    return removed;
}

int LinFit(std::span<const double> x, std::span<const double> y, double& slope, double& intercept, double& mse) {
    const std::size_t n = std::min(x.size(), y.size());
    if (n < 2) return -1;
    // Centred columns keep the normal equations well conditioned: 1/f spans a
    // narrow band far from 0, where [1, x] is nearly collinear.
    const Eigen::Map<const Eigen::VectorXd> X(x.data(), static_cast<Eigen::Index>(n));
    const Eigen::Map<const Eigen::VectorXd> Y(y.data(), static_cast<Eigen::Index>(n));
    if (!X.allFinite() || !Y.allFinite()) return -1;
    const double xm = X.mean(), ym = Y.mean();
    const Eigen::VectorXd dx = X.array() - xm;
    const Eigen::VectorXd dy = Y.array() - ym;
    const double sxx = dx.squaredNorm();
    if (!(sxx > 0.0)) return -1;
    const double b = dx.dot(dy) / sxx;
    const double a = ym - b * xm;
    const double sse = (dy - b * dx).squaredNorm();
    if (!std::isfinite(a) || !std::isfinite(b)) return -1;
    slope = b;
    intercept = a;
    mse = sse / static_cast<double>(n);
    return 0;
}

void Update_Calibration(CalibrationPanel& panel, double A, double B, double trapvoltage) {
    const double V = std::fabs(trapvoltage);
    double sum = 0.0;
    for (CalTableRow& r : panel.rows) {
        r.measured = ((V * B) / r.frequency + A) / r.frequency;
        r.error = r.theoretical != 0.0 ? (r.measured - r.theoretical) / r.theoretical * 1000000.0 : 0.0;
        sum += r.error * r.error;
    }
    panel.RmsError = panel.rows.empty() ? 0.0 : std::sqrt(sum / static_cast<double>(panel.rows.size()));
}

namespace {

// The pairwise walking columns of the calculate button, in table order.
void walking_columns(CalibrationPanel& panel, double V) {
    for (std::size_t i = 0; i < panel.rows.size(); ++i) {
        CalTableRow& r = panel.rows[i];
        r.calmz1 = r.calmz2 = r.ppq = r.recalA = r.recalB = 0.0;
        r.measured = r.theoretical;
        r.error = 0.0;
        if (i == 0) continue;
        const CalTableRow& p = panel.rows[i - 1];
        double A = 0.0, B = 0.0;
        pair_terms(p.frequency, p.theoretical, r.frequency, r.theoretical, V, A, B);
        r.calmz1 = A / p.frequency + (V * B / p.frequency) / p.frequency;
        r.calmz2 = A / r.frequency + (V * B / r.frequency) / r.frequency;
        if (i >= 2) r.ppq = std::fabs(r.calmz1 - p.calmz2) / p.calmz2 * 1e15;
        r.recalA = A;
        r.recalB = B;
    }
}

bool rows_usable(const CalibrationPanel& panel) {
    return std::all_of(panel.rows.begin(), panel.rows.end(), [](const CalTableRow& r) {
        return std::isfinite(r.frequency) && r.frequency > 0.0 && std::isfinite(r.theoretical);
    });
}

}  // namespace

int CalibrationCalculate(CalibrationPanel& panel, double trapvoltage, Ui& ui) {
    const double V = std::fabs(trapvoltage);
    if (!(V >= 1e-8)) {
        ui.MessagePopup(TRAP_ERROR_TITLE, TRAP_ERROR_TEXT);
        return -1;
    }
    panel.CalPoints = static_cast<int>(panel.rows.size());
    if (panel.rows.size() < 2) {
        ui.MessagePopup(OPERATOR_ERROR, TOO_FEW_CHECKED);
        return -1;
    }
    panel.recal_enabled = false;
    if (panel.WalkingOn && panel.WalkingTerms == 3) {
        for (CalTableRow& r : panel.rows) r.calmz1 = r.calmz2 = r.ppq = 0.0;
        panel.apply_enabled = true;
        return 0;
    }
    if (panel.WalkingOn) {
        const int removed = RemoveDuplicateCalibrants(panel);
        if (removed > 0)
            ui.Console(fmt::format("{} calibrant(s) on a frequency or mass already in the table removed.\n", removed));
        if (panel.rows.size() < 2) {
            ui.MessagePopup(OPERATOR_ERROR, TOO_FEW_CHECKED);
            return -1;
        }
    }
    std::vector<double> x(panel.rows.size()), y(panel.rows.size());
    for (std::size_t i = 0; i < panel.rows.size(); ++i) {
        x[i] = 1.0 / panel.rows[i].frequency;
        y[i] = panel.rows[i].theoretical * panel.rows[i].frequency;
    }
    double slope = 0.0, intercept = 0.0, mse = 0.0;
    if (!rows_usable(panel) || LinFit(x, y, slope, intercept, mse) < 0) {
        ui.MessagePopup("Calibration Error", "Linear Fit Failed");
        return -1;
    }
    panel.CalA = intercept;
    panel.CalB = slope / V;
    panel.MagneticField = panel.CalA * FIELD_PER_ATERM;
    panel.TrapPlates = trapvoltage;
    Update_Calibration(panel, panel.CalA, panel.CalB, trapvoltage);
    if (panel.WalkingOn) walking_columns(panel, V);
    panel.apply_enabled = true;
    return 0;
}

void SortCalibrants(Spectrum& spectrum) {
    std::stable_sort(spectrum.calibrants.begin(), spectrum.calibrants.end(),
                     [](const Calibrant& a, const Calibrant& b) { return a.theoretical < b.theoretical; });
}

void FillCalibrantsIntoSpectrum(Spectrum& spectrum, const CalibrationPanel& panel) {
    spectrum.calibrants.assign(panel.rows.size(), Calibrant{});
    for (std::size_t i = 0; i < panel.rows.size(); ++i) {
        spectrum.calibrants[i].peaknumber = panel.rows[i].number;
        spectrum.calibrants[i].frequency = panel.rows[i].frequency;
        spectrum.calibrants[i].theoretical = panel.rows[i].theoretical;
    }
    spectrum.calibrantcount = static_cast<std::int64_t>(panel.rows.size());
}

int BuildWalkingCalibrationTable(Spectrum& spectrum, int regions) {
    SortCalibrants(spectrum);
    const auto& c = spectrum.calibrants;
    if (regions < 1 || c.size() < static_cast<std::size_t>(regions) + 1) return -1;
    const double V = std::fabs(spectrum.Trapvoltage);
    if (!(V > 0.0)) return -1;
    for (int i = 0; i < regions; ++i)
        if (c[static_cast<std::size_t>(i)].frequency == c[static_cast<std::size_t>(i) + 1].frequency ||
            !(c[static_cast<std::size_t>(i)].frequency > 0.0))
            return -1;

    spectrum.calfreqlow = c.front().frequency;
    spectrum.calfreqhigh = c.back().frequency;
    std::vector<WalkingRegion> w(static_cast<std::size_t>(regions));
    for (std::size_t i = 0; i < w.size(); ++i) {
        WalkingRegion& r = w[i];
        r.startfreq = r.highedge = c[i].frequency;
        r.endfreq = r.lowedge = c[i + 1].frequency;
        r.startmz = c[i].theoretical;
        r.endmz = c[i + 1].theoretical;
        r.startpeak = c[i].peaknumber;
        r.endpeak = c[i + 1].peaknumber;
        r.terms = 2;
        r.trapvoltage = spectrum.Trapvoltage;
    }
    // The end regions extend their laws to the ends of the spectrum. Only the
    // outer bounds move; inside, each region shares its bounds with its neighbours.
    w.back().lowedge = 0.1;
    w.front().highedge = 1e+99;
    for (WalkingRegion& r : w) pair_terms(r.startfreq, r.startmz, r.endfreq, r.endmz, V, r.A, r.B);
    spectrum.walking = std::move(w);
    spectrum.walkingregions = spectrum.walkingrows = regions;
    return 0;
}

void PushCalibrationArrayToCalTable(const Spectrum& spectrum, CalibrationPanel& panel, int regions, int rows) {
    panel.rows.clear();
    const double V = std::fabs(spectrum.Trapvoltage);
    const auto& w = spectrum.walking;
    const int R = std::min<int>(regions, static_cast<int>(w.size()));
    if (R <= 0) return;
    auto peak_of = [&](int number) -> const Peak* {
        if (number < 1 || static_cast<std::size_t>(number) > spectrum.peaks.size()) return nullptr;
        return &spectrum.peaks[static_cast<std::size_t>(number - 1)];
    };
    for (int i = 0; i < rows; ++i) {
        CalTableRow r;
        const WalkingRegion* own = nullptr;
        if (i < R) {
            own = &w[static_cast<std::size_t>(i)];
            r.number = own->startpeak;
            r.frequency = own->startfreq;
            r.theoretical = own->startmz;
        } else if (i == R) {
            own = &w[static_cast<std::size_t>(R - 1)];
            r.number = own->endpeak;
            r.frequency = own->endfreq;
            r.theoretical = own->endmz;
        } else if (static_cast<std::size_t>(i) < spectrum.calibrants.size()) {
            // Calibrants beyond the regions (three terms leave the last one out).
            const Calibrant& c = spectrum.calibrants[static_cast<std::size_t>(i)];
            r.number = c.peaknumber;
            r.frequency = c.frequency;
            r.theoretical = c.theoretical;
        } else {
            break;
        }
        if (const Peak* p = peak_of(r.number)) {
            r.abundance = p->abundance;
            r.relabundance = p->relabundance;
            r.sn = p->sn;
        }
        r.measured = own ? two_term(own->A, own->B, V, r.frequency) : r.theoretical;
        r.error = r.theoretical != 0.0 ? (r.measured - r.theoretical) / r.theoretical * 1000000.0 : 0.0;
        if (i >= 1 && i <= R) {
            const WalkingRegion& prev = w[static_cast<std::size_t>(i - 1)];
            r.calmz1 = two_term(prev.A, prev.B, V, r.frequency);
            r.calmz2 = r.measured;
            r.ppq = r.calmz2 != 0.0 ? std::fabs(r.calmz1 - r.calmz2) / r.calmz2 * 1e15 : 0.0;
        }
        if (own) {
            r.recalA = own->A;
            r.recalB = own->B;
        }
        panel.rows.push_back(r);
    }
    panel.CalPoints = static_cast<int>(panel.rows.size());
}

void Update_PeaklistNew(Spectrum& spectrum, int terms, int kind, double A, double B, Ui& ui) {
    const double V = std::fabs(spectrum.Trapvoltage);
    if (terms == 0) {
        for (Peak& p : spectrum.peaks) p.mass = two_term(A, B, V, p.frequency);
        return;
    }
    const auto& w = spectrum.walking;
    const std::size_t R = std::min<std::size_t>(static_cast<std::size_t>(std::max(terms, 0)), w.size());
    if (kind == 2) {
        for (Peak& p : spectrum.peaks) {
            const double f = p.frequency;
            for (std::size_t r = 0; r < R; ++r) {
                if (std::fabs(w[r].startfreq - f) < PEAK_EDGE_TOLERANCE) {
                    p.mass = w[r].startmz;
                    break;
                }
                if (std::fabs(w[r].endfreq - f) < PEAK_EDGE_TOLERANCE) {
                    p.mass = w[r].endmz;
                    break;
                }
                if (w[r].lowedge < f && f < w[r].highedge) {
                    p.mass = two_term(w[r].A, w[r].B, V, f);
                    break;
                }
            }
        }
        return;
    }
    const long long shown =
        std::clamp<long long>(static_cast<long long>(terms) + 2 - kind, 0, static_cast<long long>(w.size()));
    for (long long r = 0; r < shown; ++r) {
        const WalkingRegion& row = w[static_cast<std::size_t>(r)];
        const int k = static_cast<int>(r);
        ui.Console(fmt::sprintf("A%i = %f, B%i = %f, startfreq[%i] = %f, endfreq[%i] = %f\n", k, row.A, k, row.B, k,
                                row.startfreq, k, row.endfreq));
    }
    // A table as built (falling frequency, each region's upper bound the lower
    // bound of the one before) lets the first region that holds f be found by
    // bisection: it is the first whose lower bound is at or below f. Any other
    // table is walked row by row.
    bool chained = R > 0;
    for (std::size_t r = 1; r < R && chained; ++r)
        chained = w[r].lowedge <= w[r - 1].lowedge && w[r].highedge == w[r - 1].lowedge;
    for (Peak& p : spectrum.peaks) {
        const double f = p.frequency;
        if (chained) {
            const auto it = std::partition_point(w.begin(), w.begin() + static_cast<std::ptrdiff_t>(R),
                                                 [f](const WalkingRegion& r) { return r.lowedge > f; });
            if (it != w.begin() + static_cast<std::ptrdiff_t>(R) && f <= it->highedge)
                p.mass = two_term(it->A, it->B, V, f);
            continue;
        }
        for (std::size_t r = 0; r < R; ++r) {
            if (w[r].lowedge <= f && f <= w[r].highedge) {
                p.mass = two_term(w[r].A, w[r].B, V, f);
                break;
            }
        }
    }
}

int ApplyCalibration(Spectrum& spectrum, CalibrationPanel& panel, int kind, bool update_peaks, Ui& ui) {
    if (!std::isfinite(panel.CalA) || !std::isfinite(panel.CalB)) {
        ui.MessagePopup("Calibration Error", "Linear Fit Failed");
        return -1;
    }
    panel.CalPoints = static_cast<int>(panel.rows.size());
    int regions = panel.WalkingOn ? panel.CalPoints + 1 - panel.WalkingTerms : 0;
    if (panel.WalkingOn && regions > 1) {
        // Rows without a mass and repeated calibrants cannot bound a region;
        // they go before anything in the spectrum changes.
        CalibrationPanel trial = panel;
        RemoveUnassignedCalPeaks(trial);
        const int removed = RemoveDuplicateCalibrants(trial);
        if (removed > 0)
            ui.Console(fmt::format("{} calibrant(s) on a frequency or mass already in the table removed.\n", removed));
        regions = trial.CalPoints + 1 - trial.WalkingTerms;
        if (regions > 1) {
            if (!(std::fabs(spectrum.Trapvoltage) >= 1e-8)) {
                ui.MessagePopup(TRAP_ERROR_TITLE, TRAP_ERROR_TEXT);
                return -1;
            }
            if (!rows_usable(trial)) {
                ui.MessagePopup("Calibration Error", "Linear Fit Failed");
                return -1;
            }
            // The table is built aside (without the sample arrays) and moved in
            // whole, so a refusal leaves the spectrum as it was.
            Spectrum scratch;
            scratch.Trapvoltage = spectrum.Trapvoltage;
            FillCalibrantsIntoSpectrum(scratch, trial);
            if (BuildWalkingCalibrationTable(scratch, regions) < 0) {
                ui.MessagePopup("Calibration Error", "Linear Fit Failed");
                return -1;
            }
            spectrum.caltype = kind == 2 ? CALTYPE_WALKING_SECOND : CALTYPE_WALKING;
            spectrum.Aterm = trial.CalA;
            spectrum.Bterm = trial.CalB;
            spectrum.walkingterms = trial.WalkingTerms;
            spectrum.walkingregions = spectrum.walkingrows = regions;
            spectrum.calibrants = std::move(scratch.calibrants);
            spectrum.calibrantcount = static_cast<std::int64_t>(spectrum.calibrants.size());
            spectrum.walking = std::move(scratch.walking);
            spectrum.calfreqlow = scratch.calfreqlow;
            spectrum.calfreqhigh = scratch.calfreqhigh;
            panel = trial;
            panel.apply_enabled = false;
            PushCalibrationArrayToCalTable(spectrum, panel, regions, trial.CalPoints);
            if (update_peaks) Update_PeaklistNew(spectrum, regions, kind, spectrum.Aterm, spectrum.Bterm, ui);
            return 0;
        }
    }
    panel.apply_enabled = false;
    spectrum.caltype = CALTYPE_TWO_TERM;
    spectrum.Aterm = panel.CalA;
    spectrum.Bterm = panel.CalB;
    spectrum.walkingregions = 0;
    spectrum.walkingrows = 0;
    spectrum.calfile = 1;
    spectrum.walking.clear();
    panel.recal_enabled = true;
    if (update_peaks) Update_PeaklistNew(spectrum, 0, kind, panel.CalA, panel.CalB, ui);
    return 0;
}

int FillInWalkingCalibrationArray(Spectrum& spectrum, std::span<const RecallRow> rows) {
    if (rows.size() < 2) return -1;
    const double V = std::fabs(spectrum.Trapvoltage);
    if (!(V > 0.0)) return -1;
    for (std::size_t i = 0; i + 1 < rows.size(); ++i)
        if (rows[i].frequency == rows[i + 1].frequency || !(rows[i].frequency > 0.0)) return -1;
    std::vector<WalkingRegion> w(rows.size() - 1);
    for (std::size_t i = 0; i < w.size(); ++i) {
        WalkingRegion& r = w[i];
        const double f1 = rows[i].frequency, f2 = rows[i + 1].frequency;
        const double m1 = rows[i].mz, m2 = rows[i + 1].mz;
        r.startfreq = r.highedge = f1;
        r.endfreq = r.lowedge = f2;
        r.startmz = m1;
        r.endmz = m2;
        r.startpeak = rows[i].number;
        r.endpeak = rows[i + 1].number;
        r.terms = 2;
        r.trapvoltage = spectrum.Trapvoltage;
        r.B = (m2 * f2 * f2 - (m1 * f1) * f2) / ((1.0 - f2 / f1) * V);
        r.A = m1 * f1 - V * r.B / f1;
    }
    // The recall table closes the low end at 0, not 0.1 as a fresh build does.
    w.back().lowedge = 0.0;
    w.front().highedge = 1e+99;
    spectrum.walking = std::move(w);
    spectrum.walkingregions = spectrum.walkingrows = static_cast<int>(rows.size() - 1);
    if (spectrum.walkingterms == 0) spectrum.walkingterms = 2;
    return 0;
}

WalkingRecall FillWalkingCalibrationRecallPanel(const Spectrum& spectrum) {
    WalkingRecall out;
    const std::size_t R = std::min<std::size_t>(static_cast<std::size_t>(std::max(spectrum.walkingregions, 0)),
                                                spectrum.walking.size());
    out.regions = static_cast<int>(R);
    out.points = out.regions + 1;
    const double V = std::fabs(spectrum.Trapvoltage);
    for (std::size_t i = 0; i < R; ++i) {
        const WalkingRegion& r = spectrum.walking[i];
        out.rows.push_back({r.startfreq, r.endfreq, r.A, r.B, r.startpeak, two_term(r.A, r.B, V, r.startfreq)});
    }
    if (R > 0) {
        const WalkingRegion& last = spectrum.walking[R - 1];
        out.last_peak = last.endpeak;
        out.last_mz = two_term(last.A, last.B, V, last.endfreq);
    }
    return out;
}

void IdentifyAllCalibrantsInPeaklist(Spectrum& spectrum, const CalibrationPanel& panel) {
    for (std::size_t i = 0; i < panel.rows.size(); ++i) {
        const int n = panel.rows[i].number;
        if (n < 1 || static_cast<std::size_t>(n) > spectrum.peaks.size()) continue;
        Peak& p = spectrum.peaks[static_cast<std::size_t>(n - 1)];
        p.iscalibrant = 1;
        p.calibrantrow = static_cast<int>(i);
        p.calmass = panel.rows[i].theoretical;
    }
}

int WalkingCalMatch(Spectrum& spectrum, CalibrationPanel& panel, double base_percent, std::vector<int>& checked,
                    Ui& ui) {
    const std::size_t R = std::min<std::size_t>(static_cast<std::size_t>(std::max(spectrum.walkingregions, 0)),
                                                spectrum.walking.size());
    if (R == 0) {
        ui.MessagePopup("No walking calibration has been loaded.",
                        "Please reload the file with appropriate file operations.");
        return -1;
    }
    panel.rows.clear();
    checked.clear();
    for (Peak& p : spectrum.peaks) p.iscalibrant = 0;
    const double base = base_percent / 100.0;
    const WalkingRegion* used = nullptr;
    for (std::size_t k = 0; k <= R; ++k) {
        const bool last = k == R;
        WalkingRegion& region = spectrum.walking[last ? R - 1 : k];
        const double fc = last ? region.endfreq : region.startfreq;
        double best = 1000.0;
        int which = -1;
        for (std::size_t i = 0; i < spectrum.peaks.size(); ++i) {
            const double d = std::fabs(spectrum.peaks[i].frequency - fc);
            if (d < fc / 10000000.0 && d < best) {
                best = d;
                which = static_cast<int>(i);
            }
        }
        if (which < 0) continue;
        Peak& p = spectrum.peaks[static_cast<std::size_t>(which)];
        p.iscalibrant = 1;
        if (last)
            region.endpeak = which + 1;
        else
            region.startpeak = which + 1;
        used = &region;
        AddToCalTable(panel, spectrum, which, region, base);
        checked.push_back(which);
    }
    panel.CalPoints = static_cast<int>(panel.rows.size());
    if (used) {
        panel.CalA = used->A;
        panel.CalB = used->B;
        panel.MagneticField = used->A * FIELD_PER_ATERM;
        panel.TrapPlates = spectrum.Trapvoltage;
    }
    IdentifyAllCalibrantsInPeaklist(spectrum, panel);
    return panel.CalPoints;
}

std::string calibration_csv_text(const CalibrationPanel& panel, const Spectrum& spectrum) {
    std::string out = "Calibration results from TULVA analysis\r\n";
    out += "Number, Frequency, Theoretical, Measured, Error(ppm), Scaled Abun, Relative Abun, S/N";
    if (panel.WalkingOn) out += ", Calibrated mz1, Calibrated mz2, ppq Difference, recalculated Aterm, recalculated BTerm";
    out += "\r\n";
    for (const CalTableRow& r : panel.rows) {
        out += fmt::sprintf("%i, %.7f, %.7f, %.7f, %.7f, %.7f, %.7f, %.7f", r.number, r.frequency, r.theoretical,
                            r.measured, r.error, r.abundance, r.relabundance, r.sn);
        if (panel.WalkingOn)
            out += fmt::sprintf(", %.16f,%.16f, %.7f, %.16f, %.16f,", r.calmz1, r.calmz2, r.ppq, r.recalA, r.recalB);
        out += "\r\n";
    }
    if (panel.WalkingOn && spectrum.walkingterms > 0) {
        const long long last = std::min<long long>(static_cast<long long>(panel.rows.size()) - 2,
                                                   static_cast<long long>(spectrum.walking.size()) - 1);
        for (long long i = 0; i <= last; ++i) {
            const WalkingRegion& w = spectrum.walking[static_cast<std::size_t>(i)];
            out += fmt::sprintf("%i. StartFreq = %.12f. Walking A = %.12f, EndFreq = %.12f. Walking B %.12f\r\n",
                                static_cast<int>(i), w.startfreq, w.A, w.endfreq, w.B);
        }
    }
    return out;
}

int SaveCalibrationCsv(const std::string& path, const CalibrationPanel& panel, const Spectrum& spectrum, Ui& ui) {
    if (regular_file_size(path) &&
        !ui.ConfirmPopup("Overwrite the existing file", "File with specified name already exists. Overwrite the file?"))
        return 1;
    std::string error;
    if (write_file_atomically(path, calibration_csv_text(panel, spectrum), &error) < 0) {
        ui.MessagePopup("Calibration Error", fmt::format("Could not write {}: {}", path, error));
        return -1;
    }
    return 0;
}

std::string walking_csv_text(const Spectrum& spectrum) {
    std::string out = "Start Frequency, Calibration A, End Frequency, Calibration B\r\n";
    const std::size_t R = std::min<std::size_t>(static_cast<std::size_t>(std::max(spectrum.walkingregions, 0)),
                                                spectrum.walking.size());
    for (std::size_t i = 0; i < R; ++i) {
        const WalkingRegion& w = spectrum.walking[i];
        out += fmt::sprintf("%.16f, %.16f, %.16f, %.16f\r\n", w.startfreq, w.A, w.endfreq, w.B);
    }
    return out;
}

std::string walking_csv_path(const std::string& datafile) {
    const std::string stem = datafile.size() > 4 ? datafile.substr(0, datafile.size() - 4) : datafile;
    return stem + "_walkcal.csv";
}

int SaveWalkingCalasCSV(const Spectrum& spectrum, const std::string& path, Ui& ui) {
    if (spectrum.walkingregions == 0) return 1;
    const std::string target = path.empty() ? walking_csv_path(spectrum.filename) : path;
    std::string error;
    if (write_file_atomically(target, walking_csv_text(spectrum), &error) < 0) {
        ui.MessagePopup("Calibration Error", fmt::format("Could not write {}: {}", target, error));
        return -1;
    }
    return 0;
}

int ABRecalculate(const Spectrum& spectrum, Ui& ui) {
    const double V = std::fabs(spectrum.Trapvoltage);
    double maxA = 0.0, maxB = 0.0, ratioA = 0.0, ratioB = 0.0;
    int pairs = 0;
    for (std::size_t i = 0; i + 1 < spectrum.peaks.size(); ++i) {
        const double f1 = spectrum.peaks[i].frequency, m1 = spectrum.peaks[i].mass;
        const double f2 = spectrum.peaks[i + 1].frequency, m2 = spectrum.peaks[i + 1].mass;
        const double d = f1 - f2;
        if (d == 0.0 || V == 0.0 || f1 == 0.0) continue;  // a pair without a law of its own
        const double front = (m2 / d) * f1 * f2 * f2 / V, second = (m1 / d) * f1 * f1 * f2 / V;
        const double lB = front - second;
        // The local A leaves V out of its second term; this check has always
        // printed it so, and it is only a diagnostic.
        const double lA = m1 * f1 - lB / f1;
        if (pairs == 0) {
            ui.Console(fmt::sprintf("divisor = %f, traps = %f, mz1 = %f, freq1 = %f, mz2 = %f, freq2 = %f\n", d, V, m1,
                                    f1, m2, f2));
            ui.Console(fmt::sprintf("front half = %f, second half = %f.\n", front, second));
        }
        const double dA = std::fabs(spectrum.Aterm - lA), dB = std::fabs(spectrum.Bterm - lB);
        ui.Console(fmt::sprintf("Line %i File Aterm = %f. File Bterm = %f. Local Aterm = %.6f. Local Bterm = %f. "
                                "lAtermDelta = %f\n",
                                static_cast<int>(i), spectrum.Aterm, spectrum.Bterm, lA, lB, dA));
        if (dA > maxA) {
            maxA = dA;
            ratioA = spectrum.Aterm != 0.0 ? dA / std::fabs(spectrum.Aterm) : 0.0;
        }
        if (dB > maxB) {
            maxB = dB;
            ratioB = spectrum.Bterm != 0.0 ? dB / std::fabs(spectrum.Bterm) : 0.0;
        }
        ++pairs;
    }
    // The last label says "A" although it is the ratio of B; kept as printed.
    ui.Console(fmt::sprintf("Maximum A term delta from file %f. Maximum delta A ratio %f. Maximum B term delta from "
                            "file %f Maximum delta A ratio %f..\n",
                            maxA, ratioA, maxB, ratioB));
    return pairs;
}

void AddToCalTable(CalibrationPanel& panel, const Spectrum& spectrum, int peak_index, const WalkingRegion& region,
                   double base) {
    if (peak_index < 0 || static_cast<std::size_t>(peak_index) >= spectrum.peaks.size()) return;
    const Peak& p = spectrum.peaks[static_cast<std::size_t>(peak_index)];
    CalTableRow r;
    r.number = peak_index + 1;
    r.frequency = p.frequency;
    r.theoretical = two_term(region.A, region.B, std::fabs(spectrum.Trapvoltage), p.frequency);
    r.measured = p.mass;
    r.error = 0.0;
    r.abundance = p.abundance;
    r.relabundance = base > 0.0 ? p.abundance / base : p.relabundance;
    r.sn = p.sn;
    panel.rows.push_back(r);
    panel.CalPoints = static_cast<int>(panel.rows.size());
}

int add_calibrants_to_table(CalibrationPanel& panel, Spectrum& spectrum, std::span<const int> peaks,
                            std::span<const double> masses, bool clear) {
    if (clear) {
        panel.rows.clear();
        for (Peak& p : spectrum.peaks) {
            p.iscalibrant = 0;
            p.calmass = -1.0;
            p.calibrantrow = -1;
        }
    }
    // A series hands over whatever it has: members outside the list, without a
    // mass or already in the table are passed over rather than refused.
    std::vector<CalibrantPick> picks;
    for (std::size_t k = 0; k < peaks.size() && k < masses.size(); ++k) {
        const int i = peaks[k];
        if (i < 0 || static_cast<std::size_t>(i) >= spectrum.peaks.size() || !(masses[k] > 0.0)) continue;
        const auto in_table = [&](const CalTableRow& r) { return r.number == i + 1; };
        if (std::any_of(panel.rows.begin(), panel.rows.end(), in_table)) continue;
        if (std::any_of(picks.begin(), picks.end(), [&](const CalibrantPick& q) { return q.peak == i; })) continue;
        picks.push_back({i, masses[k]});
    }
    RecordingUi quiet;
    return add_calibrants_to_table(panel, spectrum, std::span<const CalibrantPick>(picks), quiet);
}

void set_magnetic_field(CalibrationPanel& panel, double tesla) {
    panel.MagneticField = tesla;
    panel.CalA = tesla / FIELD_PER_ATERM;
    panel.apply_enabled = true;
}

void set_cal_a(CalibrationPanel& panel, double A) {
    panel.CalA = A;
    panel.MagneticField = A * FIELD_PER_ATERM;
    panel.apply_enabled = true;
    panel.recal_enabled = true;
}

int set_trap_plates(CalibrationPanel& panel, Spectrum& spectrum, double volts, Ui& ui) {
    if (!(std::fabs(volts) >= 1e-7)) {
        ui.MessagePopup("Error : Trap Plates must be non zero", "Trap plates will not be set to zero. Command aborted");
        panel.TrapPlates = spectrum.Trapvoltage;
        return 0;
    }
    spectrum.Trapvoltage = volts;
    panel.TrapPlates = volts;
    set_cal_a(panel, panel.CalA);
    return 0;
}

int delete_cal_row(CalibrationPanel& panel, int row, Ui& ui) {
    if (row < 0 || static_cast<std::size_t>(row) >= panel.rows.size()) return 0;
    if (!ui.ConfirmPopup("Calibration",
                         fmt::sprintf("Delete Peak Number %i ?", panel.rows[static_cast<std::size_t>(row)].number)))
        return 0;
    panel.rows.erase(panel.rows.begin() + row);
    panel.CalPoints = static_cast<int>(panel.rows.size());
    if (panel.active_row >= panel.CalPoints) panel.active_row = std::max(0, panel.CalPoints - 1);
    return 1;
}

namespace {
double column_value(const CalTableRow& r, int column) {
    switch (column) {
        case 0: return r.number;
        case 1: return r.frequency;
        case 2: return r.theoretical;
        case 3: return r.measured;
        case 4: return r.error;
        case 5: return r.abundance;
        case 6: return r.relabundance;
        case 7: return r.sn;
        case 8: return r.calmz1;
        case 9: return r.calmz2;
        case 10: return r.ppq;
        case 11: return r.recalA;
        default: return r.recalB;
    }
}
}  // namespace

void sort_cal_table(CalibrationPanel& panel, int column, bool ascending) {
    std::stable_sort(panel.rows.begin(), panel.rows.end(), [&](const CalTableRow& a, const CalTableRow& b) {
        return ascending ? column_value(a, column) < column_value(b, column)
                         : column_value(a, column) > column_value(b, column);
    });
}

void set_current_theoretical(CalibrationPanel& panel, double mass) {
    panel.CurrentTheoretical = mass;
    if (panel.active_row < 0 || static_cast<std::size_t>(panel.active_row) >= panel.rows.size()) return;
    CalTableRow& r = panel.rows[static_cast<std::size_t>(panel.active_row)];
    r.theoretical = mass;
    r.error = mass != 0.0 ? (r.measured - mass) / mass * 1000000.0 : 0.0;
}

int RecalSpecial(Workspace& ws, int src, int dst, Ui& ui) {
    if (src == dst) return 1;
    if (src > MAX_PANELS || dst > MAX_PANELS) {
        ui.MessagePopup("Panel not Available", "Panel choice is too large");
        return -1;
    }
    if (src < 1 || dst < 1 || !ws.panels[static_cast<std::size_t>(src - 1)].active ||
        !ws.panels[static_cast<std::size_t>(dst - 1)].active) {
        ui.MessagePopup("Panel not available.", "Specified panel is not active.");
        return -1;
    }
    const Spectrum& from = ws.panels[static_cast<std::size_t>(src - 1)].spectrum;
    Spectrum& to = ws.panels[static_cast<std::size_t>(dst - 1)].spectrum;
    to.Aterm = from.Aterm;
    to.Bterm = from.Bterm;
    to.caltype = from.caltype;
    return 0;
}

}  // namespace vx
