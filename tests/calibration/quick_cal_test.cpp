// Entry points into the calibration table from other panels: picked peaks
// with their masses, the quick calibration from a CH2 series, and the old
// peak panel's masses after a calibration. Expected masses come from the law
// evaluated here.
#include <gtest/gtest.h>

#include <cmath>

#include "calibration/quick_cal.hpp"
#include "peaks/find_peaks.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

constexpr double A0 = DEFAULT_ATERM, B0 = DEFAULT_BTERM;
constexpr double CH2 = 2 * 1.00782503223 + 12.0;

double law(double A, double B, double V, double f) { return A / f + B * V / (f * f); }
double freq_of(double m, double V) { return (A0 + std::sqrt(A0 * A0 + 4.0 * m * B0 * V)) / (2.0 * m); }

// Peaks at the true frequencies of masses, their masses under a header that
// is ppm_off wrong in A.
Spectrum spectrum_of(const std::vector<double>& masses, double ppm_off, double V = 1.5) {
    Spectrum s;
    s.datacount = 1 << 20;
    s.dbandwidth = s.datacount;
    s.Trapvoltage = V;
    s.Aterm = A0 * (1.0 + ppm_off * 1e-6);
    s.Bterm = B0;
    for (double m : masses) {
        Peak p;
        p.frequency = freq_of(m, V);
        p.index = p.frequency;
        p.mass = law(s.Aterm, s.Bterm, V, p.frequency);
        p.abundance = 100.0;
        s.peaks.push_back(p);
    }
    return s;
}

std::vector<double> series(double start, int n) {
    std::vector<double> v;
    for (int k = 0; k < n; ++k) v.push_back(start + k * CH2);
    return v;
}

TEST(CalibrationEntry, PickedPeaksJoinTheTableInPeakOrder) {
    const std::vector<double> masses = {250.0, 300.0, 350.0, 400.0, 450.0};
    Spectrum s = spectrum_of(masses, 3.0);
    CalibrationPanel panel;
    RecordingUi ui;
    // Out of order, one without a mass: an empty table takes the header's terms.
    const std::vector<CalibrantPick> first = {{3, masses[3]}, {0, masses[0]}, {2, -1.0}};
    ASSERT_EQ(add_calibrants_to_table(panel, s, first, ui), 3);
    EXPECT_EQ(panel.CalA, s.Aterm);
    EXPECT_EQ(panel.CalPoints, 3);
    ASSERT_EQ(panel.rows.size(), 3u);
    EXPECT_EQ(panel.rows[0].number, 1);
    EXPECT_EQ(panel.rows[1].number, 3);
    EXPECT_EQ(panel.rows[2].number, 4);
    const double f0 = s.peaks[0].frequency;
    EXPECT_NEAR(panel.rows[0].error, (law(s.Aterm, B0, 1.5, f0) - masses[0]) / masses[0] * 1e6, 1e-7);
    EXPECT_NEAR(panel.rows[0].error, 3.0, 0.01);  // A 3 ppm high: nearly 3 ppm on every mass
    EXPECT_EQ(panel.rows[1].theoretical, -1.0);
    EXPECT_EQ(panel.rows[1].error, 0.0);
    EXPECT_EQ(s.peaks[3].iscalibrant, 1);
    EXPECT_EQ(s.peaks[3].calmass, masses[3]);
    EXPECT_EQ(s.peaks[3].calibrantrow, 2);
    EXPECT_EQ(s.peaks[1].iscalibrant, 0);

    // A second call adds what is new and gives the unassigned row its mass.
    const std::vector<CalibrantPick> second = {{2, masses[2]}, {4, masses[4]}};
    ASSERT_EQ(add_calibrants_to_table(panel, s, second, ui), 1);
    ASSERT_EQ(panel.rows.size(), 4u);
    EXPECT_EQ(panel.rows[1].theoretical, masses[2]);

    // The fit of the table puts A back where it belongs.
    ASSERT_EQ(CalibrationCalculate(panel, s.Trapvoltage, ui), 0);
    EXPECT_NEAR(panel.CalA / A0 - 1.0, 0.0, 1e-12);
    EXPECT_LT(panel.RmsError, 1e-6);

    // A peak outside the list: a message and nothing changed.
    const CalibrationPanel before = panel;
    const std::vector<CalibrantPick> bad = {{1, 300.0}, {7, 500.0}};
    RecordingUi bad_ui;
    EXPECT_EQ(add_calibrants_to_table(panel, s, bad, bad_ui), -1);
    EXPECT_TRUE(bad_ui.saw("Calibration", "Peak 8 is not in the peak list."));
    EXPECT_EQ(panel.rows.size(), before.rows.size());
    EXPECT_EQ(s.peaks[1].iscalibrant, 0);
}

TEST(CalibrationEntry, SeriesOfTheQuickCalibration) {
    struct Case {
        double start, unit, limit;
        std::size_t count;
    };
    for (const Case& c : {Case{100.0, 14.0, 142.0, 4}, Case{100.0, 14.0, 141.9, 3}, Case{100.0, 14.0, 100.0, 1},
                          Case{100.0, 14.0, 99.0, 0}, Case{100.0, 0.0, 200.0, 0}, Case{0.0, 1e-9, 1e6, 0}}) {
        const auto v = quick_cal_series(c.start, c.unit, c.limit);
        EXPECT_EQ(v.size(), c.count) << c.start << " " << c.unit << " " << c.limit;
        if (!v.empty()) {
            EXPECT_EQ(v.back(), c.start + c.unit * static_cast<double>(c.count - 1));
        }
    }
}

TEST(CalibrationEntry, QuickCalibrationFromACh2Series) {
    // Ten members of a CH2 series and three other peaks; the header 2 ppm off.
    std::vector<double> masses = series(310.2, 10);
    masses.insert(masses.begin() + 3, 351.777);
    masses.push_back(470.5);
    masses.push_back(480.5);
    std::sort(masses.begin(), masses.end());
    const MatchTolerance tol{5.0, true};
    QuickCalRequest q;
    for (std::size_t i = 0; i < masses.size(); ++i)
        if (std::fmod(std::fabs(masses[i] - 310.2) + 1e-9, CH2) < 1e-6) q.checked.push_back(static_cast<int>(i));
    ASSERT_EQ(q.checked.size(), 10u);
    q.start_mz = 310.2;

    Spectrum s = spectrum_of(masses, 2.0);
    s.peaks[3].iscalibrant = 1;  // a mark left from earlier: cleared
    s.peaks[3].calmass = 351.777;
    CalibrationPanel panel;
    RecordingUi ui;
    ASSERT_EQ(FinishQuickCalNew(panel, s, q, tol, ui), 0);
    EXPECT_EQ(panel.CalPoints, 10);
    EXPECT_EQ(s.calibrantcount, 10);
    EXPECT_EQ(s.peaks[3].iscalibrant, 0);
    EXPECT_EQ(s.peaks[3].calmass, -1.0);
    EXPECT_NEAR(s.Aterm / A0 - 1.0, 0.0, 1e-12);
    for (std::size_t i = 0; i < masses.size(); ++i) EXPECT_NEAR(s.peaks[i].mass, masses[i], masses[i] * 1e-12);

    // Switches without a fit: mode and kind set the walking controls.
    Spectrum t = spectrum_of(masses, 2.0);
    CalibrationPanel p2;
    q.mode_a = 1;
    q.kind = 4;
    q.run_fit = false;
    ASSERT_EQ(FinishQuickCalNew(p2, t, q, tol, ui), 0);
    EXPECT_TRUE(p2.WalkingOn);
    EXPECT_EQ(p2.WalkingTerms, 3);
    EXPECT_EQ(t.Aterm, A0 * (1.0 + 2e-6));  // nothing applied

    // Refusals: one checked member; a negative start.
    struct Bad {
        const char* name;
        std::vector<int> checked;
        double start;
        bool message;
    };
    for (const Bad& b : {Bad{"one checked", {0}, 310.2, true}, Bad{"negative start", {0, 1}, -1.0, false}}) {
        SCOPED_TRACE(b.name);
        Spectrum u = spectrum_of(masses, 2.0);
        CalibrationPanel p3;
        QuickCalRequest r = q;
        r.checked = b.checked;
        r.start_mz = b.start;
        RecordingUi bui;
        EXPECT_EQ(FinishQuickCalNew(p3, u, r, tol, bui), -1);
        EXPECT_EQ(bui.saw("Operator Error", "Must check at least 2 \n peaks for calibration"), b.message);
        EXPECT_TRUE(p3.rows.empty());
        EXPECT_EQ(u.Aterm, A0 * (1.0 + 2e-6));
    }
}

TEST(CalibrationEntry, QuickCalibrationMergesTheTableMasses) {
    // The series starts above the odd peak; its mass in the table joins the list.
    std::vector<double> masses = series(310.2, 6);
    masses.insert(masses.begin(), 290.123);
    const MatchTolerance tol{5.0, true};
    Spectrum s = spectrum_of(masses, 2.0);
    RecordingUi ui;
    // A table row holding the mass, its peak no longer marked.
    const std::vector<CalibrantPick> odd = {{0, 290.123}};
    const auto table_with_odd = [&](CalibrationPanel& p) {
        ASSERT_EQ(add_calibrants_to_table(p, s, odd, ui), 1);
        s.peaks[0].iscalibrant = 0;
        s.peaks[0].calmass = -1.0;
    };
    CalibrationPanel panel;
    table_with_odd(panel);
    QuickCalRequest q;
    q.checked = {0, 1, 2, 3, 4, 5, 6};
    q.start_mz = 310.2;
    q.run_fit = false;
    ASSERT_EQ(FinishQuickCal(panel, s, q, false, tol, ui), 0);
    EXPECT_EQ(panel.CalPoints, 7);
    EXPECT_NE(ui.console.find("theoMassFinalArray[0].mass = 290.123000.\n"), std::string::npos);
    // FinishQuickCal44 neither merges nor prints.
    CalibrationPanel p2;
    table_with_odd(p2);
    RecordingUi quiet;
    ASSERT_EQ(FinishQuickCal44(p2, s, q, tol, quiet), 0);
    EXPECT_EQ(p2.CalPoints, 6);
    EXPECT_EQ(quiet.console.find("theoMassFinalArray"), std::string::npos);
}

TEST(CalibrationEntry, OldPeakPanelRowsFollowTheCalibration) {
    Spectrum s = spectrum_of({300.0, 400.0, 500.0}, 0.0);
    s.caltype = CALTYPE_TWO_TERM;
    const double V = std::fabs(s.Trapvoltage);
    // One walking region between the first two peaks.
    WalkingRegion w;
    w.A = A0 * (1 + 1e-6);
    w.B = B0;
    w.startfreq = w.highedge = s.peaks[0].frequency;
    w.endfreq = w.lowedge = s.peaks[1].frequency;
    w.startmz = 300.0;
    w.endmz = 400.0;
    s.walking = {w};
    auto rows_at = [&](std::vector<double> freqs) {
        std::vector<PeakTableRow> rows;
        for (double f : freqs) {
            PeakTableRow r;
            r.frequency = f;
            r.mass = -5.0;
            rows.push_back(r);
        }
        return rows;
    };
    // The plain law: six decimals kept, the point from the kept mass.
    auto rows = rows_at({s.peaks[2].frequency});
    Update_Peaklist(s, rows, 0, 1, A0, B0);
    EXPECT_EQ(rows[0].mass, std::round(law(A0, B0, V, s.peaks[2].frequency) * 1e6) / 1e6);
    EXPECT_NEAR(rows[0].index, SMass_toPt(s, rows[0].mass), 1e-9);

    // Three-term flow: 1e-4 at the start, 1e-6 at the end; a row outside every
    // region keeps its mass.
    const double f0 = s.peaks[0].frequency, f1 = s.peaks[1].frequency;
    rows = rows_at({f0 - 5e-5, f1 + 5e-6, f1 + 5e-7, s.peaks[2].frequency});
    Update_Peaklist(s, rows, 1, 2, A0, B0);
    EXPECT_EQ(rows[0].mass, 300.0);
    EXPECT_NEAR(rows[1].mass, law(w.A, w.B, V, f1 + 5e-6), 1e-6);  // the region's law, not its end mass
    EXPECT_EQ(rows[2].mass, 400.0);
    EXPECT_EQ(rows[3].mass, -5.0);

    // Update_Peaklist2 takes the records.
    s.peaks[1].mass = 399.5;
    std::vector<PeakTableRow> table(3);
    table[0].number = 2;
    table[0].frequency = f1;
    table[1].number = 9;  // no such peak: left alone
    table[1].mass = 7.0;
    table[2].number = 1;  // a row of another list: left alone
    table[2].frequency = f1;
    table[2].mass = 8.0;
    Update_Peaklist2(s, table);
    EXPECT_EQ(table[0].mass, 399.5);
    EXPECT_EQ(table[1].mass, 7.0);
    EXPECT_EQ(table[2].mass, 8.0);
}

}  // namespace
}  // namespace vx
