// Walking calibration: the pairwise columns, the table built at apply, its
// edges, the peak-mass walk, the frequency lookup, re-matching and recall.
#include <gtest/gtest.h>

#include <cmath>

#include "calibration/calibration.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

constexpr double A0 = DEFAULT_ATERM, B0 = DEFAULT_BTERM;

double law(double A, double B, double V, double f) { return ((B * V) / f) / f + A / f; }
double freq_of(double A, double B, double V, double m) { return (A + std::sqrt(A * A + 4.0 * m * B * V)) / (2.0 * m); }

// Calibrants whose true masses wander off a single law by a few ppm, as a
// residual error along the spectrum does; peaks at their frequencies.
struct Walk {
    double V = 2.0;
    std::vector<double> masses = {620.0, 210.0, 480.0, 330.0, 905.0, 760.0};  // table order, unsorted
    std::vector<double> wobble = {1.5, -2.0, 0.5, 3.0, -1.0, -2.5};           // ppm
    Spectrum s;
    CalibrationPanel panel;
    Walk() {
        s.datacount = 1 << 20;
        s.dbandwidth = s.datacount;
        s.Trapvoltage = -V;
        for (std::size_t i = 0; i < masses.size(); ++i) {
            Peak p;
            p.frequency = freq_of(A0, B0, V, masses[i] * (1.0 + wobble[i] * 1e-6));
            p.index = p.frequency;
            p.mass = law(A0, B0, V, p.frequency);
            p.abundance = 100.0 * static_cast<double>(i + 1);
            s.peaks.push_back(p);
        }
        for (std::size_t i = 0; i < masses.size(); ++i) {
            CalTableRow r;
            r.number = static_cast<int>(i) + 1;
            r.frequency = s.peaks[i].frequency;
            r.theoretical = masses[i];
            r.measured = s.peaks[i].mass;
            panel.rows.push_back(r);
        }
        panel.WalkingOn = true;
        panel.WalkingTerms = 2;
    }
};

TEST(Walking, CalculatePairsEachRowWithThePreviousOne) {
    Walk w;
    RecordingUi ui;
    ASSERT_EQ(CalibrationCalculate(w.panel, w.s.Trapvoltage, ui), 0);
    const auto& rows = w.panel.rows;
    // The first row keeps zeros; every row is exact.
    EXPECT_EQ(rows[0].calmz1, 0.0);
    EXPECT_EQ(rows[0].recalA, 0.0);
    EXPECT_EQ(rows[1].ppq, 0.0);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i].measured, rows[i].theoretical);
        EXPECT_EQ(rows[i].error, 0.0);
    }
    for (std::size_t i = 1; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        // The pair's own law passes through both of its calibrants.
        EXPECT_NEAR(law(rows[i].recalA, rows[i].recalB, w.V, rows[i - 1].frequency), rows[i - 1].theoretical,
                    rows[i - 1].theoretical * 1e-13);
        EXPECT_NEAR(law(rows[i].recalA, rows[i].recalB, w.V, rows[i].frequency), rows[i].theoretical,
                    rows[i].theoretical * 1e-13);
        EXPECT_NEAR(rows[i].calmz1, rows[i - 1].theoretical, rows[i - 1].theoretical * 1e-13);
        EXPECT_NEAR(rows[i].calmz2, rows[i].theoretical, rows[i].theoretical * 1e-13);
        // Neighbouring laws agree at their common calibrant to rounding.
        if (i >= 2) { EXPECT_LT(rows[i].ppq, 100.0); }
    }
    // The fields still carry the two-term fit of all rows.
    EXPECT_NEAR(w.panel.CalA, A0, A0 * 1e-5);

    // Three terms: only the clearing, no fit.
    Walk three;
    three.panel.WalkingTerms = 3;
    three.panel.rows[2].calmz1 = 5.0;
    const double a = three.panel.CalA;
    ASSERT_EQ(CalibrationCalculate(three.panel, three.s.Trapvoltage, ui), 0);
    EXPECT_EQ(three.panel.rows[2].calmz1, 0.0);
    EXPECT_EQ(three.panel.CalA, a);
}

TEST(Walking, ApplyBuildsSortedRegionsWithAsymmetricEdgesAndExactCalibrants) {
    Walk w;
    RecordingUi ui;
    ASSERT_EQ(CalibrationCalculate(w.panel, w.s.Trapvoltage, ui), 0);
    ASSERT_EQ(ApplyCalibration(w.s, w.panel, 1, true, ui), 0);
    const Spectrum& s = w.s;
    EXPECT_EQ(s.caltype, CALTYPE_WALKING);
    EXPECT_EQ(s.walkingregions, 5);
    EXPECT_EQ(s.walkingrows, 5);
    EXPECT_EQ(s.walkingterms, 2);
    EXPECT_EQ(s.calibrantcount, 6);
    ASSERT_EQ(s.walking.size(), 5u);
    const std::vector<double> sorted = {210.0, 330.0, 480.0, 620.0, 760.0, 905.0};
    for (std::size_t i = 0; i < s.walking.size(); ++i) {
        SCOPED_TRACE(i);
        const WalkingRegion& r = s.walking[i];
        EXPECT_EQ(r.startmz, sorted[i]);
        EXPECT_EQ(r.endmz, sorted[i + 1]);
        EXPECT_GT(r.startfreq, r.endfreq);  // frequency falls along the table
        // Inner bounds are the calibrants; only the outer two are widened.
        EXPECT_EQ(r.highedge, i == 0 ? 1e+99 : r.startfreq);
        EXPECT_EQ(r.lowedge, i + 1 == s.walking.size() ? 0.1 : r.endfreq);
        EXPECT_EQ(r.terms, 2);
        EXPECT_EQ(r.trapvoltage, -w.V);
        EXPECT_NEAR(law(r.A, r.B, w.V, r.startfreq), r.startmz, r.startmz * 1e-13);
        EXPECT_NEAR(law(r.A, r.B, w.V, r.endfreq), r.endmz, r.endmz * 1e-13);
        if (i > 0) { EXPECT_EQ(r.startfreq, s.walking[i - 1].endfreq); }
    }
    EXPECT_EQ(s.calfreqlow, s.walking.front().startfreq);
    EXPECT_EQ(s.calfreqhigh, s.walking.back().endfreq);
    // Every calibrant peak now has its exact mass.
    for (std::size_t i = 0; i < w.masses.size(); ++i)
        EXPECT_NEAR(s.peaks[i].mass, w.masses[i], w.masses[i] * 1e-12) << i;
    // The table came back sorted by mass with the recomputed columns.
    ASSERT_EQ(w.panel.rows.size(), 6u);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(w.panel.rows[i].theoretical, sorted[i]);
        EXPECT_LT(std::fabs(w.panel.rows[i].error), 1e-6);
    }
    EXPECT_EQ(w.panel.rows[0].calmz1, 0.0);
    EXPECT_NEAR(w.panel.rows[3].calmz1, sorted[3], sorted[3] * 1e-13);
    EXPECT_EQ(w.panel.rows[5].number, 5);  // 905 was the fifth peak
}

TEST(Walking, PeakMassWalkBetweenAndBeyondTheCalibrants) {
    Walk w;
    RecordingUi ui;
    ASSERT_EQ(CalibrationCalculate(w.panel, w.s.Trapvoltage, ui), 0);
    // Extra peaks: beyond the lowest and highest calibrant and between two.
    const double extra[] = {150.0, 400.0, 1500.0};
    for (double m : extra) {
        Peak p;
        p.frequency = freq_of(A0, B0, w.V, m);
        w.s.peaks.push_back(p);
    }
    ASSERT_EQ(ApplyCalibration(w.s, w.panel, 1, true, ui), 0);
    const auto& r = w.s.walking;
    const std::size_t n = w.masses.size();
    EXPECT_EQ(w.s.peaks[n].mass, law(r.front().A, r.front().B, w.V, w.s.peaks[n].frequency));
    EXPECT_EQ(w.s.peaks[n + 1].mass, law(r[1].A, r[1].B, w.V, w.s.peaks[n + 1].frequency));  // 330..480
    EXPECT_EQ(w.s.peaks[n + 2].mass, law(r.back().A, r.back().B, w.V, w.s.peaks[n + 2].frequency));
    // The law-only walk printed regions + 2 - kind rows (6, cut to the 5 there are).
    EXPECT_EQ(std::count(ui.console.begin(), ui.console.end(), '\n'), 5);
    EXPECT_EQ(ui.console.substr(0, 5), "A0 = ");

    // kind 2: a peak within 1e-7 Hz of a calibrant takes its stored mass exactly.
    Spectrum s = w.s;
    s.peaks.resize(2);
    s.peaks[0].frequency = r[2].startfreq + 5e-8;
    s.peaks[1].frequency = r[2].startfreq + 5e-7;
    Update_PeaklistNew(s, s.walkingregions, 2, s.Aterm, s.Bterm, ui);
    EXPECT_EQ(s.peaks[0].mass, r[2].startmz);
    // 5e-7 above the start of region 2 lies inside region 1 (strict bounds).
    EXPECT_EQ(s.peaks[1].mass, law(r[1].A, r[1].B, w.V, s.peaks[1].frequency));
    // A peak outside every region keeps its mass (kind 2 bounds are strict).
    s.peaks[0].frequency = 0.05;
    s.peaks[0].mass = 42.0;
    Update_PeaklistNew(s, s.walkingregions, 2, s.Aterm, s.Bterm, ui);
    EXPECT_EQ(s.peaks[0].mass, 42.0);
}

TEST(Walking, RegionCountsFallBackToThePlainLaw) {
    struct Case {
        int rows, terms, regions, caltype;
    };
    const Case cases[] = {
        {2, 2, 0, CALTYPE_TWO_TERM},  // 2 + 1 - 2 = 1 region: plain
        {3, 3, 0, CALTYPE_TWO_TERM},  // 3 + 1 - 3 = 1 region: plain
        {3, 2, 2, CALTYPE_WALKING},
        {5, 3, 3, CALTYPE_WALKING},   // three terms: one region fewer, the last calibrant left out
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rows * 10 + c.terms);
        Walk w;
        w.panel.rows.resize(static_cast<std::size_t>(c.rows));
        w.panel.WalkingTerms = c.terms;
        RecordingUi ui;
        ASSERT_EQ(CalibrationCalculate(w.panel, w.s.Trapvoltage, ui), 0);
        if (c.terms == 3) {
            w.panel.CalA = A0;
            w.panel.CalB = B0;
        }
        ASSERT_EQ(ApplyCalibration(w.s, w.panel, 1, true, ui), 0);
        EXPECT_EQ(w.s.caltype, c.caltype);
        EXPECT_EQ(w.s.walkingregions, c.regions);
        EXPECT_EQ(static_cast<int>(w.s.walking.size()), c.regions);
        if (c.regions > 0) { EXPECT_EQ(w.s.walkingterms, c.terms); }
    }
    // kind 2 (the three-term flow of quick calibration) marks the second walking type.
    Walk q;
    RecordingUi ui;
    ASSERT_EQ(CalibrationCalculate(q.panel, q.s.Trapvoltage, ui), 0);
    ASSERT_EQ(ApplyCalibration(q.s, q.panel, 2, true, ui), 0);
    EXPECT_EQ(q.s.caltype, CALTYPE_WALKING_SECOND);
    for (std::size_t i = 0; i < q.masses.size(); ++i) EXPECT_EQ(q.s.peaks[i].mass, q.masses[i]) << i;
}

TEST(Walking, DuplicateAndUnassignedCalibrantsGoBeforeAnyDivision) {
    Walk w;
    // Two calibrants on one peak (same frequency), and an unassigned row.
    CalTableRow dup = w.panel.rows[2];
    dup.theoretical += 0.0001;
    w.panel.rows.push_back(dup);
    CalTableRow none = w.panel.rows[1];
    none.theoretical = -1.0;
    none.frequency *= 1.01;
    none.number = 40;
    RecordingUi ui;
    ASSERT_EQ(CalibrationCalculate(w.panel, w.s.Trapvoltage, ui), 0);
    EXPECT_EQ(w.panel.rows.size(), 6u);
    EXPECT_NE(ui.console.find("removed"), std::string::npos);
    w.panel.rows.push_back(none);
    ASSERT_EQ(ApplyCalibration(w.s, w.panel, 1, true, ui), 0);
    EXPECT_EQ(w.s.walkingregions, 5);
    for (const WalkingRegion& r : w.s.walking) {
        EXPECT_TRUE(std::isfinite(r.A));
        EXPECT_TRUE(std::isfinite(r.B));
    }
    for (const Peak& p : w.s.peaks) EXPECT_TRUE(std::isfinite(p.mass));

    // The builder itself refuses a repeat rather than divide by zero.
    Spectrum s;
    s.Trapvoltage = 1.0;
    s.calibrants = {{100000.0, 400.0, 0, 1}, {100000.0, 400.5, 0, 2}, {90000.0, 500.0, 0, 3}};
    EXPECT_EQ(BuildWalkingCalibrationTable(s, 2), -1);
    EXPECT_TRUE(s.walking.empty());
    EXPECT_EQ(BuildWalkingCalibrationTable(s, 5), -1);  // more regions than calibrant pairs
    // With a zero trap voltage apply says so and changes nothing.
    Walk z;
    z.s.Trapvoltage = 0.0;
    z.panel.CalA = A0;
    RecordingUi zu;
    EXPECT_EQ(ApplyCalibration(z.s, z.panel, 1, true, zu), -1);
    EXPECT_TRUE(zu.saw("Trap Plate Voltage Error",
                       "Trap plate voltage at the time of detection was set to 0 volts./nCalibration not possible "
                       "because of divide by zero error"));
    EXPECT_EQ(z.s.walkingregions, 0);
    EXPECT_EQ(z.s.caltype, CALTYPE_TWO_TERM);
}

// The frequency lookup on a table of rows rising in frequency, 1 Hz a point.
Spectrum lookup_spectrum(std::vector<WalkingRegion> rows) {
    Spectrum s;
    s.caltype = CALTYPE_WALKING;
    s.datacount = 1 << 20;
    s.dbandwidth = s.datacount;
    s.walkingterms = 2;
    s.walkingregions = static_cast<int>(rows.size());
    s.walking = std::move(rows);
    return s;
}
WalkingRegion row(double A, double B, double start, double end, double startmz, double endmz) {
    WalkingRegion r;
    r.A = A;
    r.B = B;
    r.startfreq = start;
    r.endfreq = end;
    r.startmz = startmz;
    r.endmz = endmz;
    return r;
}
double at(const Spectrum& s, double f) {
    double m = 0.0;
    Pt_tomass_walking(s, std::span<const double>(&f, 1), std::span<double>(&m, 1));
    return m;
}

TEST(Walking, LookupContinuesWithTheLastRowsLawAboveTheTable) {
    // Rows on a small axis: 100..200 and 200..300. The last row's law is
    // chosen so that at f = 400 it gives 150, which lies inside row 0.
    const WalkingRegion r0 = row(15000.0, 0.0, 100.0, 200.0, 1.0, 2.0);  // law: 15000 / f
    const WalkingRegion r1 = row(60000.0, 0.0, 200.0, 300.0, 3.0, 4.0);  // 60000 / 400 = 150
    Spectrum s = lookup_spectrum({r0, r1});
    // Above the last start the last law replaces the value and the walk goes on:
    // 150 falls in row 0, whose law gives 15000 / 150 = 100.
    EXPECT_DOUBLE_EQ(at(s, 400.0), 100.0);
    // A law value that lands on a stored edge takes the stored m/z.
    WalkingRegion edge = r1;
    edge.A = 200.0 * 400.0;  // 80000 / 400 = 200 = start of row 1 (the end of row 0 comes first: 1e-6)
    s = lookup_spectrum({r0, edge});
    EXPECT_DOUBLE_EQ(at(s, 400.0), 2.0);
    // A law value outside every row is the result.
    s = lookup_spectrum({r0, row(4000.0, 0.0, 200.0, 300.0, 3.0, 4.0)});
    EXPECT_DOUBLE_EQ(at(s, 400.0), 10.0);
    // Below the first row's end the first law ends the lookup at once.
    EXPECT_DOUBLE_EQ(at(s, 150.0), 100.0);
}

TEST(Walking, RematchRecallAndTheRecallTable) {
    Walk w;
    RecordingUi ui;
    ASSERT_EQ(CalibrationCalculate(w.panel, w.s.Trapvoltage, ui), 0);
    ASSERT_EQ(ApplyCalibration(w.s, w.panel, 1, true, ui), 0);

    // A new peak list of the same ions: frequencies moved by 0.05 ppm, one ion
    // (the 480) moved by 0.5 ppm, which is beyond the 0.1 ppm window.
    Spectrum next = w.s;
    for (Peak& p : next.peaks) p.frequency *= 1.0 + 5e-8;
    next.peaks[2].frequency *= 1.0 + 4.5e-7;
    CalibrationPanel panel;
    std::vector<int> checked;
    const int found = WalkingCalMatch(next, panel, 50.0, checked, ui);
    EXPECT_EQ(found, 5);
    EXPECT_EQ(panel.CalPoints, 5);
    EXPECT_EQ(checked.size(), 5u);
    EXPECT_EQ(std::count(checked.begin(), checked.end(), 2), 0);
    for (const CalTableRow& r : panel.rows) {
        const Peak& p = next.peaks[static_cast<std::size_t>(r.number - 1)];
        EXPECT_EQ(p.iscalibrant, 1);
        EXPECT_EQ(p.calmass, r.theoretical);
        EXPECT_EQ(r.relabundance, p.abundance / 0.5);
        EXPECT_EQ(r.error, 0.0);
        EXPECT_NEAR(r.theoretical, w.masses[static_cast<std::size_t>(r.number - 1)],
                    w.masses[static_cast<std::size_t>(r.number - 1)] * 2e-7);
    }
    EXPECT_EQ(next.peaks[2].iscalibrant, 0);
    EXPECT_EQ(panel.MagneticField, panel.CalA * 6.512114795548e-08);

    Spectrum bare;
    EXPECT_EQ(WalkingCalMatch(bare, panel, 100.0, checked, ui), -1);
    EXPECT_TRUE(ui.saw("No walking calibration has been loaded.", "Please reload the file with appropriate file operations."));

    // Recall: one row a region, the first calibrant's mass from the law; the
    // last calibrant below.
    const WalkingRecall recall = FillWalkingCalibrationRecallPanel(w.s);
    EXPECT_EQ(recall.regions, 5);
    EXPECT_EQ(recall.points, 6);
    ASSERT_EQ(recall.rows.size(), 5u);
    EXPECT_NEAR(recall.rows[0].startmz, 210.0, 210.0 * 1e-13);
    EXPECT_EQ(recall.rows[0].startpeak, 2);
    EXPECT_NEAR(recall.last_mz, 905.0, 905.0 * 1e-13);
    EXPECT_EQ(recall.last_peak, 5);

    // The recall table rebuilds the same laws, its low end closed at 0.
    std::vector<RecallRow> rows;
    for (const auto& r : recall.rows) rows.push_back({r.startpeak, r.startfreq, r.startmz});
    rows.push_back({recall.last_peak, w.s.walking.back().endfreq, recall.last_mz});
    Spectrum again;
    again.Trapvoltage = w.s.Trapvoltage;
    ASSERT_EQ(FillInWalkingCalibrationArray(again, rows), 0);
    ASSERT_EQ(again.walking.size(), 5u);
    EXPECT_EQ(again.walking.back().lowedge, 0.0);
    EXPECT_EQ(again.walking.front().highedge, 1e+99);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_NEAR(again.walking[i].A, w.s.walking[i].A, std::fabs(w.s.walking[i].A) * 1e-9);
        EXPECT_NEAR(again.walking[i].B, w.s.walking[i].B, std::fabs(w.s.walking[i].B) * 1e-7);
    }
    rows[1].frequency = rows[0].frequency;
    EXPECT_EQ(FillInWalkingCalibrationArray(again, rows), -1);
}

}  // namespace
}  // namespace vx
