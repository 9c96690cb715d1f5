// The calibration table, matching, the two-term fit, apply and the CSV layout.
// Expected values come from the law itself (m = A/f + B|V|/f^2) evaluated in
// the test, never from the code's own fitting functions.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "calibration/calibration.hpp"
#include "platform/ui.hpp"
#include "support/files.hpp"
#include "workspace/workspace.hpp"

namespace vx {
namespace {

constexpr double A0 = DEFAULT_ATERM, B0 = DEFAULT_BTERM;

double law(double A, double B, double V, double f) { return A / f + B * V / (f * f); }
// Frequency of m under the law (the positive root of m f^2 - A f - B V = 0).
double freq_of(double A, double B, double V, double m) { return (A + std::sqrt(A * A + 4.0 * m * B * V)) / (2.0 * m); }

// A spectrum on a 1 Hz-a-point axis, peaks at the frequencies of masses under
// the law A, B with trap voltage V; peak masses under (mA, mB).
Spectrum spectrum_of(const std::vector<double>& masses, double V, double mA = A0, double mB = B0) {
    Spectrum s;
    s.datacount = 1 << 20;
    s.dbandwidth = s.datacount;
    s.Trapvoltage = V;
    s.Aterm = mA;
    s.Bterm = mB;
    for (std::size_t i = 0; i < masses.size(); ++i) {
        Peak p;
        p.frequency = freq_of(A0, B0, std::fabs(V), masses[i]);
        p.index = p.frequency;
        p.mass = law(mA, mB, std::fabs(V), p.frequency);
        p.abundance = 1000.0 + static_cast<double>(i);
        p.relabundance = 10.0 + static_cast<double>(i);
        p.sn = 50.0 + static_cast<double>(i);
        s.peaks.push_back(p);
    }
    return s;
}

std::vector<int> all_peaks(const Spectrum& s) {
    std::vector<int> v(s.peaks.size());
    for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<int>(i);
    return v;
}

CalibrationPanel table_of(Spectrum& s, const std::vector<double>& theoretical) {
    CalibrationPanel panel;
    RecordingUi ui;
    EXPECT_EQ(FillCalTableNew(panel, s, all_peaks(s), false, ui), 0);
    for (std::size_t i = 0; i < theoretical.size() && i < panel.rows.size(); ++i)
        panel.rows[i].theoretical = theoretical[i];
    return panel;
}

TEST(Calibration, TableFromCheckedPeaksAndTheTooFewRefusal) {
    Spectrum s = spectrum_of({300.0, 400.0, 500.0, 600.0}, 1.0);
    s.peaks[2].calmass = 500.0;
    CalibrationPanel panel;
    RecordingUi ui;
    // Unsorted, repeated and out-of-range indices: peak-list order, once each.
    const std::vector<int> checked = {3, 1, 3, 99, -1};
    ASSERT_EQ(FillCalTableNew(panel, s, checked, false, ui), 0);
    ASSERT_EQ(panel.rows.size(), 2u);
    EXPECT_EQ(panel.rows[0].number, 2);
    EXPECT_EQ(panel.rows[1].number, 4);
    EXPECT_EQ(panel.rows[0].theoretical, -1.0);
    EXPECT_EQ(panel.rows[0].measured, s.peaks[1].mass);
    EXPECT_EQ(panel.rows[1].sn, s.peaks[3].sn);
    EXPECT_EQ(panel.CalPoints, 2);
    EXPECT_EQ(panel.CurrentTheoretical, s.peaks[1].mass);
    EXPECT_EQ(s.peaks[1].iscalibrant, 1);
    EXPECT_EQ(s.peaks[0].iscalibrant, 0);
    // keep_mass takes calmass into the theoretical column.
    ASSERT_EQ(FillCalTableNew(panel, s, std::vector<int>{0, 2}, true, ui), 0);
    EXPECT_EQ(panel.rows[1].theoretical, 500.0);

    // One checked peak: the message, the table as it was.
    const auto before = panel.rows.size();
    EXPECT_EQ(FillCalTableNew(panel, s, std::vector<int>{1}, false, ui), -1);
    EXPECT_TRUE(ui.saw("Operator Error", "Must check at least 2 \n peaks for calibration"));
    EXPECT_EQ(panel.rows.size(), before);
}

TEST(Calibration, MatchingToleranceNearestWinsAndPpmGrowsWithMass) {
    struct Case {
        double measured, reference, limit;
        bool ppm, matched;
    };
    // The same 0.0015 m/z distance: 1.5 ppm at 1000, 0.5 ppm at 3000.
    const Case cases[] = {
        {1000.0015, 1000.0, 1.0, true, false},
        {3000.0015, 3000.0, 1.0, true, true},
        {1000.0015, 1000.0, 2.0, true, true},
        {1000.9, 1000.0, 1.0, false, true},   // m/z units: within 1.0
        {1001.1, 1000.0, 1.0, false, false},
        {1000.0 + 1e-3, 1000.0, 1.0, true, true},  // exactly at the limit
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.measured);
        Spectrum s = spectrum_of({500.0, 700.0}, 1.0);
        s.peaks[0].mass = c.measured;
        s.peaks[0].index = freq_of(A0, B0, 1.0, c.measured);
        CalibrationPanel panel = table_of(s, {});
        const double refs[] = {c.reference};
        AssignTheor_toCalPanel(panel, s, refs, {c.limit, c.ppm});
        EXPECT_EQ(panel.rows[0].theoretical == c.reference, c.matched);
        EXPECT_EQ(s.peaks[0].calmass == c.reference, c.matched);
        // The matcher of the peak list takes the same decision from the point.
        EXPECT_EQ(MatchTheo_toMeasured(s, refs, {c.limit, c.ppm}).size(), c.matched ? 1u : 0u);
        EXPECT_NEAR(calibrant_tolerance(c.reference, c.limit, c.ppm), c.ppm ? c.reference * c.limit * 1e-6 : c.limit,
                    1e-15);
    }

    // Nearest of several references; on a tie the first one found stays.
    Spectrum s = spectrum_of({500.0, 600.0, 700.0}, 1.0);
    s.peaks[0].mass = 500.0;
    s.peaks[1].mass = 600.0;
    CalibrationPanel panel = table_of(s, {});
    panel.rows[2].theoretical = 650.0;  // assigned by hand, not a calibrant peak: left alone
    s.peaks[2].iscalibrant = 0;
    const double refs[] = {500.3, 499.8, 500.1, 599.9, 600.1, 700.0};
    AssignTheor_toCalPanel(panel, s, refs, {1.0, false});
    EXPECT_EQ(panel.rows[0].theoretical, 500.1);
    EXPECT_EQ(panel.rows[1].theoretical, 599.9);
    EXPECT_EQ(panel.rows[2].theoretical, 650.0);
    // Running calibrant rows follow the peaks that are calibrants.
    EXPECT_EQ(s.peaks[0].calibrantrow, 0);
    EXPECT_EQ(s.peaks[1].calibrantrow, 1);

    // A peak that already carries a calibrant mass keeps it.
    Spectrum k = spectrum_of({500.0, 600.0}, 1.0);
    k.peaks[1].iscalibrant = 1;
    k.peaks[1].calmass = 600.25;
    CalibrationPanel kp = table_of(k, {});
    AssignTheor_toCalPanel(kp, k, refs, {1.0, false});
    EXPECT_EQ(kp.rows[1].theoretical, 600.25);

    // Two references nearest to one peak check it once.
    const double pair[] = {500.0, 500.0000001};
    EXPECT_EQ(MatchTheo_toMeasured(s, pair, {1.0, true}), std::vector<int>{0});
}

TEST(Calibration, TwoRowsGiveTheExactLineAndRmsZero) {
    struct Case {
        double A, B, V, m1, m2;
    };
    const Case cases[] = {
        {A0, B0, 1.0, 300.0, 900.0},
        {A0 * 1.0001, B0 * 0.9, 5.5, 150.0, 151.0},
        {A0, B0, -2.0, 1000.0, 2000.0},  // the fit takes |V|; TrapPlates shows the sign
        {A0 * 2.0, 0.0, 1.0, 400.0, 800.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.m1);
        const double V = std::fabs(c.V);
        const double f1 = freq_of(c.A, c.B, V, c.m1), f2 = freq_of(c.A, c.B, V, c.m2);
        CalibrationPanel panel;
        panel.rows.resize(2);
        panel.rows[0].frequency = f1;
        panel.rows[0].theoretical = c.m1;
        panel.rows[1].frequency = f2;
        panel.rows[1].theoretical = c.m2;
        RecordingUi ui;
        ASSERT_EQ(CalibrationCalculate(panel, c.V, ui), 0);
        EXPECT_NEAR(panel.CalA, c.A, std::fabs(c.A) * 1e-12);
        EXPECT_NEAR(panel.CalB, c.B, std::fabs(B0) * 1e-9);
        EXPECT_LT(panel.RmsError, 1e-7);
        EXPECT_EQ(panel.TrapPlates, c.V);
        EXPECT_EQ(panel.MagneticField, panel.CalA * 6.512114795548e-08);
        EXPECT_TRUE(panel.apply_enabled);
        EXPECT_NEAR(panel.rows[1].measured, c.m2, c.m2 * 1e-13);
    }
}

TEST(Calibration, FitIsUnweightedLeastSquaresAndAWrongRowShiftsIt) {
    // Masses under a law plus known deviations: the fit must be the ordinary
    // least-squares line of m f on 1/f, here solved by the normal equations.
    const double V = 3.0;
    const std::vector<double> masses = {212.5, 300.1, 388.2, 455.0, 600.6, 777.7, 901.3};
    const std::vector<double> ppm = {0.3, -0.2, 0.1, 0.4, -0.5, 0.0, 0.2};
    CalibrationPanel panel;
    long double sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (std::size_t i = 0; i < masses.size(); ++i) {
        CalTableRow r;
        r.frequency = freq_of(A0, B0, V, masses[i] * (1.0 + ppm[i] * 1e-6));
        r.theoretical = masses[i];
        panel.rows.push_back(r);
        const long double x = 1.0L / r.frequency, y = static_cast<long double>(r.theoretical) * r.frequency;
        sx += x, sy += y, sxx += x * x, sxy += x * y;
    }
    const long double n = static_cast<long double>(masses.size());
    const long double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
    const long double icpt = (sy - slope * sx) / n;
    RecordingUi ui;
    ASSERT_EQ(CalibrationCalculate(panel, V, ui), 0);
    EXPECT_NEAR(panel.CalA, static_cast<double>(icpt), A0 * 1e-12);
    EXPECT_NEAR(panel.CalB, static_cast<double>(slope / V), std::fabs(B0) * 1e-8);
    double sum = 0;
    for (const CalTableRow& r : panel.rows) {
        const double m = law(panel.CalA, panel.CalB, V, r.frequency);
        EXPECT_NEAR(r.measured, m, m * 1e-14);
        EXPECT_NEAR(r.error, (m - r.theoretical) / r.theoretical * 1e6, 1e-6);
        sum += r.error * r.error;
    }
    EXPECT_NEAR(panel.RmsError, std::sqrt(sum / n), 1e-9);
    EXPECT_GT(panel.RmsError, 0.1);

    // A wrong theoretical mass is not rejected: the whole fit moves.
    const double good_A = panel.CalA;
    panel.rows[3].theoretical += 0.01;
    ASSERT_EQ(CalibrationCalculate(panel, V, ui), 0);
    EXPECT_GT(std::fabs(panel.CalA - good_A) / good_A, 1e-7);
}

TEST(Calibration, RefusalsChangeNothing) {
    Spectrum s = spectrum_of({300.0, 500.0, 700.0}, 1.0, A0 * 1.001);
    CalibrationPanel panel = table_of(s, {300.0, 500.0, 700.0});
    const CalibrationPanel before = panel;
    struct Case {
        const char* name;
        double V;
        std::vector<CalTableRow> rows;
        const char* title;
        const char* text;
    };
    std::vector<CalTableRow> same = panel.rows;
    for (CalTableRow& r : same) r.frequency = same[0].frequency;
    std::vector<CalTableRow> zero = panel.rows;
    zero[1].frequency = 0.0;
    const Case cases[] = {
        {"zero trap", 0.0, panel.rows, "Trap Plate Voltage Error",
         "Trap plate voltage at the time of detection was set to 0 volts./nCalibration not possible because of divide "
         "by zero error"},
        {"tiny trap", 5e-9, panel.rows, "Trap Plate Voltage Error", nullptr},
        {"one row", 1.0, {panel.rows[0]}, "Operator Error", "Must check at least 2 \n peaks for calibration"},
        {"one frequency", 1.0, same, "Calibration Error", "Linear Fit Failed"},
        {"zero frequency", 1.0, zero, "Calibration Error", "Linear Fit Failed"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CalibrationPanel p = before;
        p.rows = c.rows;
        RecordingUi ui;
        EXPECT_EQ(CalibrationCalculate(p, c.V, ui), -1);
        ASSERT_EQ(ui.messages.size(), 1u);
        EXPECT_EQ(ui.messages[0].title, c.title);
        if (c.text) { EXPECT_EQ(ui.messages[0].text, c.text); }
        EXPECT_EQ(p.CalA, before.CalA);
        EXPECT_EQ(p.CalB, before.CalB);
        EXPECT_FALSE(p.apply_enabled);
    }
    // Apply with coefficients that are not numbers leaves the spectrum alone.
    CalibrationPanel p = before;
    p.CalA = std::nan("");
    RecordingUi ui;
    const std::vector<Peak> peaks = s.peaks;
    EXPECT_EQ(ApplyCalibration(s, p, 1, true, ui), -1);
    EXPECT_EQ(s.Aterm, A0 * 1.001);
    EXPECT_EQ(s.peaks[1].mass, peaks[1].mass);
}

TEST(Calibration, ApplyPlainRewritesPeakMassesAndTheSpectrumTerms) {
    // Peak masses under wrong terms; apply of the fitted ones makes the
    // calibrants exact and every other peak follows the same law.
    const double V = 2.0;
    Spectrum s = spectrum_of({250.0, 400.0, 550.0, 700.0, 850.0}, V, A0 * (1 + 5e-5), B0 * 1.1);
    s.walkingregions = 3;  // a walking table from before goes with the plain path
    s.walking.resize(3);
    CalibrationPanel panel = table_of(s, {});
    panel.rows.erase(panel.rows.begin() + 2);  // peak 3 is no calibrant
    panel.rows[0].theoretical = 250.0;
    panel.rows[1].theoretical = 400.0;
    panel.rows[2].theoretical = 700.0;
    panel.rows[3].theoretical = 850.0;
    RecordingUi ui;
    ASSERT_EQ(CalibrationCalculate(panel, V, ui), 0);
    EXPECT_NEAR(panel.CalA, A0, A0 * 1e-12);
    // Nothing reaches the spectrum before apply.
    EXPECT_EQ(s.Aterm, A0 * (1 + 5e-5));
    ASSERT_EQ(ApplyCalibration(s, panel, 1, true, ui), 0);
    EXPECT_EQ(s.caltype, CALTYPE_TWO_TERM);
    EXPECT_EQ(s.Aterm, panel.CalA);
    EXPECT_EQ(s.Bterm, panel.CalB);
    EXPECT_EQ(s.calfile, 1);
    EXPECT_EQ(s.walkingregions, 0);
    EXPECT_TRUE(s.walking.empty());
    EXPECT_FALSE(panel.apply_enabled);
    const double truth[] = {250.0, 400.0, 550.0, 700.0, 850.0};
    for (std::size_t i = 0; i < 5; ++i) EXPECT_NEAR(s.peaks[i].mass, truth[i], truth[i] * 1e-12) << i;
}

TEST(Calibration, TableControls) {
    Spectrum s = spectrum_of({300.0, 500.0, 700.0}, 1.0);
    CalibrationPanel panel = table_of(s, {700.0, 300.0, 500.0});
    RecordingUi ui;
    ui.confirms = {false, true};
    EXPECT_EQ(delete_cal_row(panel, 1, ui), 0);
    EXPECT_EQ(panel.rows.size(), 3u);
    EXPECT_EQ(delete_cal_row(panel, 1, ui), 1);
    EXPECT_EQ(panel.rows.size(), 2u);
    EXPECT_EQ(panel.CalPoints, 2);
    EXPECT_EQ(ui.messages[0].title, "Calibration");
    EXPECT_EQ(ui.messages[0].text, "Delete Peak Number 2 ?");
    EXPECT_EQ(delete_cal_row(panel, 7, ui), 0);  // no such row: no question

    panel = table_of(s, {700.0, 300.0, 500.0});
    sort_cal_table(panel, 2, true);
    EXPECT_EQ(panel.rows[0].number, 2);
    sort_cal_table(panel, 1, false);  // by frequency, falling: rising mass
    EXPECT_EQ(panel.rows[0].number, 1);

    panel.active_row = 1;
    set_current_theoretical(panel, 500.001);
    EXPECT_NEAR(panel.rows[1].error, (panel.rows[1].measured - 500.001) / 500.001 * 1e6, 1e-9);

    set_magnetic_field(panel, 7.0);
    EXPECT_EQ(panel.CalA, 7.0 / 6.512114795548e-08);
    set_cal_a(panel, A0);
    EXPECT_EQ(panel.MagneticField, A0 * 6.512114795548e-08);

    EXPECT_EQ(set_trap_plates(panel, s, 5e-8, ui), 0);
    EXPECT_TRUE(ui.saw("Error : Trap Plates must be non zero", "Trap plates will not be set to zero. Command aborted"));
    EXPECT_EQ(s.Trapvoltage, 1.0);
    EXPECT_EQ(set_trap_plates(panel, s, -3.0, ui), 0);
    EXPECT_EQ(s.Trapvoltage, -3.0);
    EXPECT_EQ(panel.TrapPlates, -3.0);

    // Unassigned rows and repeats go; the first of a repeat stays.
    panel = table_of(s, {300.0, -1.0, 700.0});
    panel.rows.push_back(panel.rows[0]);
    panel.rows.back().number = 9;
    panel.rows.push_back(panel.rows[2]);
    panel.rows.back().frequency += 1.0;  // same mass on another peak
    EXPECT_EQ(RemoveUnassignedCalPeaks(panel), 1);
    EXPECT_EQ(RemoveDuplicateCalibrants(panel), 2);
    ASSERT_EQ(panel.rows.size(), 2u);
    EXPECT_EQ(panel.rows[0].number, 1);
    EXPECT_EQ(panel.CalPoints, 2);
}

TEST(Calibration, CopyingCalibrationBetweenPanels) {
    Workspace ws;
    ws.panels[0].active = 1;
    ws.panels[0].spectrum.Aterm = 1.0;
    ws.panels[0].spectrum.Bterm = 2.0;
    ws.panels[0].spectrum.caltype = CALTYPE_THREE_TERM;
    ws.panels[2].active = 1;
    struct Case {
        int src, dst, rc;
        const char* title;
        const char* text;
    };
    const Case cases[] = {
        {1, 1, 1, nullptr, nullptr},
        {1, 33, -1, "Panel not Available", "Panel choice is too large"},
        {1, 2, -1, "Panel not available.", "Specified panel is not active."},
        {1, 3, 0, nullptr, nullptr},
    };
    for (const Case& c : cases) {
        RecordingUi ui;
        EXPECT_EQ(RecalSpecial(ws, c.src, c.dst, ui), c.rc);
        if (c.title) {
            EXPECT_TRUE(ui.saw(c.title, c.text));
        } else {
            EXPECT_TRUE(ui.messages.empty());
        }
    }
    EXPECT_EQ(ws.panels[2].spectrum.Aterm, 1.0);
    EXPECT_EQ(ws.panels[2].spectrum.Bterm, 2.0);
    EXPECT_EQ(ws.panels[2].spectrum.caltype, CALTYPE_THREE_TERM);
}

TEST(Calibration, CsvLayoutsByteForByte) {
    CalibrationPanel panel;
    CalTableRow a;
    a.number = 3;
    a.frequency = 123456.789;
    a.theoretical = 400.5;
    a.measured = 400.50001;
    a.error = 0.0249687890137;
    a.abundance = 1500.25;
    a.relabundance = 55.5;
    a.sn = 120.0;
    CalTableRow b = a;
    b.number = 7;
    b.calmz1 = 400.5;
    b.calmz2 = 1.0 / 3.0;
    b.ppq = 12.5;
    b.recalA = 47536770.867829;
    b.recalB = -3379711463.376564;
    panel.rows = {a, b};
    Spectrum s;
    EXPECT_EQ(calibration_csv_text(panel, s),
              "Calibration results from TULVA analysis\r\n"
              "Number, Frequency, Theoretical, Measured, Error(ppm), Scaled Abun, Relative Abun, S/N\r\n"
              "3, 123456.7890000, 400.5000000, 400.5000100, 0.0249688, 1500.2500000, 55.5000000, 120.0000000\r\n"
              "7, 123456.7890000, 400.5000000, 400.5000100, 0.0249688, 1500.2500000, 55.5000000, 120.0000000\r\n");

    panel.WalkingOn = true;
    s.walkingterms = 2;
    s.walkingregions = 1;
    WalkingRegion w;
    w.startfreq = 200000.5;
    w.endfreq = 100000.25;
    w.A = 47536770.867829;
    w.B = -3379711463.376564;
    s.walking = {w};
    EXPECT_EQ(calibration_csv_text(panel, s),
              "Calibration results from TULVA analysis\r\n"
              "Number, Frequency, Theoretical, Measured, Error(ppm), Scaled Abun, Relative Abun, S/N, Calibrated mz1, "
              "Calibrated mz2, ppq Difference, recalculated Aterm, recalculated BTerm\r\n"
              "3, 123456.7890000, 400.5000000, 400.5000100, 0.0249688, 1500.2500000, 55.5000000, 120.0000000, "
              "0.0000000000000000,0.0000000000000000, 0.0000000, 0.0000000000000000, 0.0000000000000000,\r\n"
              "7, 123456.7890000, 400.5000000, 400.5000100, 0.0249688, 1500.2500000, 55.5000000, 120.0000000, "
              "400.5000000000000000,0.3333333333333333, 12.5000000, 47536770.8678290024399757, "
              "-3379711463.3765640258789062,\r\n"
              "0. StartFreq = 200000.500000000000. Walking A = 47536770.867829002440, EndFreq = 100000.250000000000. "
              "Walking B -3379711463.376564025879\r\n");

    EXPECT_EQ(walking_csv_text(s),
              "Start Frequency, Calibration A, End Frequency, Calibration B\r\n"
              "200000.5000000000000000, 47536770.8678290024399757, 100000.2500000000000000, "
              "-3379711463.3765640258789062\r\n");
    EXPECT_EQ(walking_csv_path("/data/run 7/sample.dat"), "/data/run 7/sample_walkcal.csv");

    test::TempDir dir;
    RecordingUi ui;
    const std::string path = dir.file("cal.csv");
    ASSERT_EQ(SaveCalibrationCsv(path, panel, s, ui), 0);
    EXPECT_EQ(test::read_file(path), calibration_csv_text(panel, s));
    ui.confirms = {false};
    EXPECT_EQ(SaveCalibrationCsv(path, CalibrationPanel{}, s, ui), 1);
    EXPECT_EQ(test::read_file(path), calibration_csv_text(panel, s));
    s.filename = dir.file("x.dat");
    ASSERT_EQ(SaveWalkingCalasCSV(s, "", ui), 0);
    EXPECT_EQ(test::read_file(dir.file("x_walkcal.csv")), walking_csv_text(s));
    s.walkingregions = 0;
    EXPECT_EQ(SaveWalkingCalasCSV(s, dir.file("none.csv"), ui), 1);
    EXPECT_FALSE(std::filesystem::exists(dir.file("none.csv")));
}

}  // namespace
}  // namespace vx

namespace vx {
namespace {

TEST(Calibration, CoefficientCheckAgainstPairsOfPeaks) {
    // Peaks exactly on the spectrum's law with V = 1: every pair's own law is
    // the spectrum's, so every delta is rounding only.
    Spectrum s = spectrum_of({300.0, 450.0, 600.0}, 1.0);
    RecordingUi ui;
    EXPECT_EQ(ABRecalculate(s, ui), 2);
    EXPECT_EQ(ui.console.rfind("divisor = ", 0), 0u);
    EXPECT_NE(ui.console.find("\nfront half = "), std::string::npos);
    EXPECT_NE(ui.console.find("Line 1 File Aterm = 47536770.867829. File Bterm = -3379711463.376564. Local Aterm = "),
              std::string::npos);
    const auto last = ui.console.rfind("Maximum A term delta from file ");
    ASSERT_NE(last, std::string::npos);
    double maxA = 1.0;
    ASSERT_EQ(std::sscanf(ui.console.c_str() + last, "Maximum A term delta from file %lf", &maxA), 1);
    EXPECT_LT(maxA, 1e-3);
    EXPECT_NE(ui.console.find("Maximum delta A ratio", last + 40), std::string::npos);  // the B ratio's label

    // With V = 2 the local A leaves V out: the printed delta shows it.
    Spectrum v2 = spectrum_of({300.0, 450.0}, 2.0);
    RecordingUi ui2;
    EXPECT_EQ(ABRecalculate(v2, ui2), 1);
    const auto at = ui2.console.rfind("Maximum A term delta from file ");
    ASSERT_EQ(std::sscanf(ui2.console.c_str() + at, "Maximum A term delta from file %lf", &maxA), 1);
    EXPECT_GT(maxA, 1.0);
}

}  // namespace
}  // namespace vx
