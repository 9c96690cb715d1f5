// Axis conversions: the laws, the detection modes, the Bruker branches of each
// entry point, the guards and the walking table.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "platform/ui.hpp"
#include "workspace/conversions.hpp"
#include "workspace/workspace.hpp"

namespace vx {
namespace {

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

double pt_tomass(const Spectrum& s, double p, Ui* console = nullptr) {
    double m = -999.0;
    Pt_tomass(s, std::span<const double>(&p, 1), std::span<double>(&m, 1), console);
    return m;
}
double mass_topt(const Spectrum& s, double m) {
    double p = -999.0;
    Mass_topt(s, std::span<const double>(&m, 1), std::span<double>(&p, 1));
    return p;
}
double freq_tomass(const Spectrum& s, double f) {
    double m = -999.0;
    Freq_tomass(s, std::span<const double>(&f, 1), std::span<double>(&m, 1));
    return m;
}
double pt_tofreq(const Spectrum& s, double p, double untouched = -999.0) {
    double f = untouched;
    Pt_tofreq(s, std::span<const double>(&p, 1), std::span<double>(&f, 1));
    return f;
}
double freq_topt(const Spectrum& s, double f, double untouched = -999.0) {
    double p = untouched;
    Freq_topt(s, std::span<const double>(&f, 1), std::span<double>(&p, 1));
    return p;
}

// Default record: A and B of the start-up defaults, V = 1, 1 MHz over 16384 points.
Spectrum defaults() { return Spectrum{}; }

TEST(Conversions, DefaultLawPutsMz500Near95002Hz) {
    const Spectrum s = defaults();
    const double hz = 1000000.0 / 16384.0;
    const double p = mass_topt(s, 500.0);
    EXPECT_NEAR(p * hz, 95002.3917066, 1e-6);
    EXPECT_NEAR(p, 1556.5191857215818, 1e-9);
    EXPECT_NEAR(pt_tomass(s, p), 500.0, 1e-9);
    EXPECT_NEAR(freq_tomass(s, 95002.39170663952), 500.0, 1e-9);
    // The single forms land on the same point and mass.
    EXPECT_NEAR(SMass_toPt(s, 500.0), p, 1e-8);
    EXPECT_NEAR(One_mass_topt(s, 500.0), p, 1e-9);
    EXPECT_NEAR(SPt_tomass(s, p), 500.0, 1e-9);
    EXPECT_NEAR(One_pt_tomass(s, p), 500.0, 1e-9);
    // Point datacount is the full bandwidth: the lowest mass of the display.
    EXPECT_NEAR(Low_Mass(s), 47.53339115636563, 1e-12);
}

TEST(Conversions, DetectModesBothWays) {
    // hz = 61.03515625 exactly; point 1000 is 61035.15625 Hz before the mode.
    struct Row {
        int mode;
        double freq;
    };
    const Row rows[] = {
        {DETECT_DIRECT, 61035.15625},
        {DETECT_POSITIVE_HETERODYNE, 261035.15625},
        {DETECT_QUADRATURE, -238964.84375},
        {DETECT_NEGATIVE_HETERODYNE, 138964.84375},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.mode);
        Spectrum s = defaults();
        s.detectmode = r.mode;
        s.reffreq = 200000.0;
        EXPECT_DOUBLE_EQ(pt_tofreq(s, 1000.0), r.freq);
        EXPECT_DOUBLE_EQ(freq_topt(s, r.freq), 1000.0);
        EXPECT_DOUBLE_EQ(SPt_tofreq(s, 1000), r.mode == DETECT_DIRECT ? r.freq : -1.0);
    }
    // Mass round trips through each mode, array and single forms (real masses
    // need positive frequencies: a reference well above the band).
    for (int mode = 0; mode <= 3; ++mode) {
        Spectrum s = defaults();
        s.detectmode = mode;
        s.reffreq = mode == DETECT_QUADRATURE ? 400000.0 : (mode == DETECT_NEGATIVE_HETERODYNE ? 1200000.0 : 10000.0);
        for (double m : {150.0, 500.0, 1800.0}) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << " m " << m);
            const double p = mass_topt(s, m);
            EXPECT_NEAR(pt_tomass(s, p), m, 1e-9 * m);
            EXPECT_NEAR(SPt_tomass(s, SMass_toPt(s, m)), m, 1e-8 * m);
            EXPECT_NEAR(One_pt_tomass(s, One_mass_topt(s, m)), m, 1e-9 * m);
            EXPECT_NEAR(SMass_toPt(s, m), p, 1e-6);
        }
    }
}

TEST(Conversions, UnknownDetectModeGivesEachFormItsOwnFallback) {
    Spectrum s = defaults();
    s.detectmode = 7;
    EXPECT_EQ(pt_tofreq(s, 1000.0, -5.0), -5.0);  // output unwritten
    EXPECT_EQ(freq_topt(s, 1000.0, -5.0), -5.0);
    EXPECT_EQ(SPt_tofreq(s, 1000), -1.0);
    EXPECT_EQ(SMass_toPt(s, 500.0), 0.0);
    // The single point-to-mass form takes 1.0 Hz as the frequency: with B = 0
    // the mass is then A itself.
    s.Bterm = 0.0;
    EXPECT_DOUBLE_EQ(SPt_tomass(s, 1234.0), DEFAULT_ATERM);
    // The array forms carry the value through the mode step unchanged.
    EXPECT_DOUBLE_EQ(pt_tomass(s, 95000.0), DEFAULT_ATERM / 95000.0);
    EXPECT_DOUBLE_EQ(mass_topt(s, 500.0), DEFAULT_ATERM / 500.0);
    s.detectmode = -1;
    EXPECT_EQ(pt_tofreq(s, 1000.0, -5.0), -5.0);
}

TEST(Conversions, ThreeTermLawRoundTripsAndGuards) {
    Spectrum s = defaults();
    s.caltype = CALTYPE_THREE_TERM;
    s.Aterm = 0.02;
    s.Bterm = 47536770.0;
    s.Cterm = -3379711463.0;
    s.Trapvoltage = -1.5;  // only its size counts
    const double f = 95000.0;
    EXPECT_DOUBLE_EQ(freq_tomass(s, f), s.Cterm * 1.5 / (f * f) + s.Bterm / f + s.Aterm);
    for (double m : {120.0, 500.0, 3000.0}) {
        SCOPED_TRACE(m);
        EXPECT_NEAR(pt_tomass(s, mass_topt(s, m)), m, 1e-9 * m);
        EXPECT_NEAR(SPt_tomass(s, SMass_toPt(s, m)), m, 1e-8 * m);
        EXPECT_NEAR(One_pt_tomass(s, One_mass_topt(s, m)), m, 1e-9 * m);
    }
    // Below about 107 Hz the law turns negative: the out-of-law mark.
    EXPECT_EQ(freq_tomass(s, 50.0), MASS_OUT_OF_LAW);
    EXPECT_EQ(pt_tomass(s, 1.0), MASS_OUT_OF_LAW);
    EXPECT_EQ(SPt_tomass(s, 1.0), MASS_OUT_OF_LAW);
}

TEST(Conversions, InvertedLawKeepsItsOwnRootsAndHasNoGuardInArrays) {
    Spectrum s = defaults();
    s.caltype = CALTYPE_INVERTED;
    s.Aterm = 1000.0;
    s.Bterm = 200000.0;
    s.Cterm = -1.0e7;
    s.dbandwidth = 1048576.0;
    s.datacount = 1048576;  // 1 Hz a point
    // f = 100000: D = sqrt(1e6 + 4e12), t = D / 2e5.
    const double t = std::sqrt(1.0e6 + 4.0e12) / 2.0e5;
    s.rootselect = 1;
    EXPECT_DOUBLE_EQ(pt_tomass(s, 100000.0), t - 1000.0);
    EXPECT_NEAR(pt_tomass(s, 100000.0), -989.99999875, 1e-8);
    EXPECT_EQ(SPt_tomass(s, 100000.0), MASS_OUT_OF_LAW);  // the single form guards
    s.rootselect = 0;
    EXPECT_NEAR(freq_tomass(s, 100000.0), -1010.00000125, 1e-8);
    // Back: f = Ct/m^2 + A/m + B.
    s.dbandwidth = 1000000.0;
    s.datacount = 16384;
    EXPECT_NEAR(mass_topt(s, 50.0), 3211.59168, 1e-9);
    // The single mass-to-point forms know no inverted law.
    EXPECT_EQ(One_mass_topt(s, 50.0), 0.0);
    EXPECT_DOUBLE_EQ(SMass_toPt(s, 50.0), 0.016384);  // f = 1.0
}

TEST(Conversions, WalkingSecondAndUnknownTypes) {
    const double hz = 1000000.0 / 16384.0;
    for (int caltype : {int{CALTYPE_WALKING_SECOND}, 2, 9, -1}) {
        SCOPED_TRACE(caltype);
        Spectrum s = defaults();
        s.caltype = caltype;
        EXPECT_DOUBLE_EQ(pt_tomass(s, 1000.0), 1000.0 * hz);  // stays the frequency
        EXPECT_DOUBLE_EQ(freq_tomass(s, 95000.0), 95000.0);
        EXPECT_DOUBLE_EQ(mass_topt(s, 500.0), 500.0 / hz);  // unconverted mass as frequency
        EXPECT_DOUBLE_EQ(SMass_toPt(s, 500.0), 1.0 / hz);
        EXPECT_EQ(One_mass_topt(s, 500.0), 0.0);
        Spectrum two = defaults();
        if (caltype == CALTYPE_WALKING_SECOND)
            EXPECT_DOUBLE_EQ(SPt_tomass(s, 1556.5), SPt_tomass(two, 1556.5));  // the two-term law
        else
            EXPECT_EQ(SPt_tomass(s, 1556.5), 1.0);
    }
}

TEST(Conversions, TrapVoltageZeroAndNegativeMassGuard) {
    Spectrum s = defaults();
    s.Trapvoltage = 0.0;
    const double hz = 1000000.0 / 16384.0;
    EXPECT_DOUBLE_EQ(freq_tomass(s, 95000.0), DEFAULT_ATERM / 95000.0);
    EXPECT_DOUBLE_EQ(pt_tomass(s, 1000.0), DEFAULT_ATERM / (1000.0 * hz));
    EXPECT_DOUBLE_EQ(mass_topt(s, 500.0), DEFAULT_ATERM / 500.0 / hz);
    // The single form takes V = 1 for a zero voltage: the default point again.
    EXPECT_NEAR(SMass_toPt(s, 500.0), 1556.5191857215818, 1e-8);
    EXPECT_DOUBLE_EQ(SPt_tomass(s, 1000.0), DEFAULT_ATERM / (1000.0 * hz));

    // With the defaults, A/f + B/f^2 is negative below about 71 Hz (point 1).
    const Spectrum d = defaults();
    EXPECT_EQ(pt_tomass(d, 1.0), MASS_OUT_OF_LAW);
    EXPECT_EQ(freq_tomass(d, 50.0), MASS_OUT_OF_LAW);
    EXPECT_EQ(SPt_tomass(d, 1.0), MASS_OUT_OF_LAW);
    EXPECT_EQ(One_pt_tomass(d, 1.0), MASS_OUT_OF_LAW);
    EXPECT_EQ(High_Mass(d), 25000.0);

    // A mass beyond the reach of the law uses 0 under the root: f = A / 2m.
    EXPECT_NEAR(mass_topt(d, 200000.0), 1.947106134746276, 1e-12);
    // A very small mass lies beyond the data; callers clamp.
    EXPECT_GT(SMass_toPt(d, 1.0), 16384.0);
}

TEST(Conversions, PointZeroOfDirectDataAndHighMass) {
    Spectrum s = defaults();
    EXPECT_TRUE(std::isnan(pt_tomass(s, 0.0)));  // A/0 + B/0: inf - inf
    s.Bterm = 1.0e9;
    EXPECT_TRUE(std::isinf(pt_tomass(s, 0.0)));
    EXPECT_GT(pt_tomass(s, 0.0), 0.0);

    // Heterodyne data start at point 0.
    Spectrum h = defaults();
    h.detectmode = DETECT_POSITIVE_HETERODYNE;
    h.reffreq = 100000.0;
    EXPECT_DOUBLE_EQ(High_Mass(h), pt_tomass(h, 0.0));
    EXPECT_LT(High_Mass(h), 500.0);
    // Direct data with a law that stays in range: point 1.
    Spectrum d = defaults();
    d.Bterm = 0.0;
    d.datacount = 1024;
    d.dbandwidth = 1024.0 * 4000.0;  // 4 kHz a point
    EXPECT_DOUBLE_EQ(High_Mass(d), DEFAULT_ATERM / 4000.0);
    EXPECT_DOUBLE_EQ(Low_Mass(d), DEFAULT_ATERM / (1024.0 * 4000.0));
}

// Bruker forms, with A and B of the shape the Bruker readers produce.
Spectrum bruker(double ct) {
    Spectrum s = defaults();
    s.filetype = FILETYPE_BRUKER;
    s.Aterm = 1.0e8;
    s.Bterm = 2000.0;
    s.Cterm = ct;
    return s;
}
double bruker_short_mass(const Spectrum& s, double f) { return s.Aterm / (f + s.Bterm); }
double bruker_quad_mass(const Spectrum& s, double f) {
    const double D = std::sqrt(s.Aterm * s.Aterm - 4.0 * s.Cterm * (s.Bterm - f));
    return (-s.Aterm - D) / (2.0 * (s.Bterm - f));
}

TEST(Conversions, BrukerThresholdsDifferBetweenFunctions) {
    const double hz = 1000000.0 / 16384.0;
    const double p = 2000.0, f = p * hz, m = 800.0;
    struct Row {
        double ct;
        bool pt_tomass, one_pt_tomass, freq_tomass;        // quadratic?
        bool mass_topt, smass_topt, one_mass_topt;
    };
    const Row rows[] = {
        {5e-8, false, false, false, false, false, false},
        {5e-7, true, false, false, false, false, false},
        {-5e-6, true, true, false, true, true, false},
        {5e-5, true, true, false, true, true, true},
        {2e-3, true, true, true, true, true, true},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.ct);
        const Spectrum s = bruker(r.ct);
        ASSERT_GT(std::fabs(bruker_short_mass(s, f) - bruker_quad_mass(s, f)), 1.0);
        auto mass_of = [&](bool quad) { return quad ? bruker_quad_mass(s, f) : bruker_short_mass(s, f); };
        EXPECT_NEAR(pt_tomass(s, p), mass_of(r.pt_tomass), 1e-9);
        EXPECT_NEAR(One_pt_tomass(s, p), mass_of(r.one_pt_tomass), 1e-9);
        EXPECT_NEAR(freq_tomass(s, f), mass_of(r.freq_tomass), 1e-9);

        const double f_short = s.Aterm / m - s.Bterm;
        const double f_quad = s.Aterm / m + s.Cterm / (m * m) + s.Bterm;
        auto point_of = [&](bool quad) { return (quad ? f_quad : f_short) / hz; };
        EXPECT_NEAR(mass_topt(s, m), point_of(r.mass_topt), 1e-9);
        EXPECT_NEAR(SMass_toPt(s, m), point_of(r.smass_topt), 1e-9);
        EXPECT_NEAR(One_mass_topt(s, m), point_of(r.one_mass_topt), 1e-9);
        // The single point form looks only at the sign of the third term.
        EXPECT_NEAR(SPt_tomass(s, p), mass_of(r.ct < 0.0), 1e-9);
    }
}

TEST(Conversions, BrukerBranchesDifferInTheSignOfB) {
    const double m = 800.0, hz = 1000000.0 / 16384.0;
    const Spectrum small = bruker(0.0);
    const Spectrum large = bruker(1e-3);
    // f = A/m - B below the threshold, A/m + Ct/m^2 + B above it.
    EXPECT_NEAR(mass_topt(small, m) * hz, 125000.0 - 2000.0, 1e-6);
    EXPECT_NEAR(mass_topt(large, m) * hz, 125000.0 + 2000.0, 1e-6);
    EXPECT_NEAR((mass_topt(large, m) - mass_topt(small, m)) * hz, 2.0 * 2000.0, 1e-6);
    // Each branch of the array forms inverts its own forward form.
    for (const Spectrum* s : {&small, &large}) EXPECT_NEAR(pt_tomass(*s, mass_topt(*s, m)), m, 1e-9);
    EXPECT_NEAR(SPt_tomass(small, SMass_toPt(small, m)), m, 1e-9);
    // The single point form takes the short branch for any Ct >= 0, so it does
    // not invert the single mass form once Ct passes that form's threshold.
    EXPECT_NEAR(SPt_tomass(large, SMass_toPt(large, m)), 1.0e8 / (127000.0 + 2000.0), 1e-9);
    // Walking type without a table takes the Bruker form too; the three-term
    // type and the second walking type never do.
    Spectrum w = bruker(0.0);
    w.caltype = CALTYPE_WALKING;
    EXPECT_DOUBLE_EQ(pt_tomass(w, 2000.0), pt_tomass(small, 2000.0));
    EXPECT_DOUBLE_EQ(mass_topt(w, m), mass_topt(small, m));
    Spectrum second = bruker(0.0);
    second.caltype = CALTYPE_WALKING_SECOND;
    EXPECT_DOUBLE_EQ(SPt_tomass(second, 2000.0),
                     second.Aterm / (2000.0 * hz) + second.Bterm / std::pow(2000.0 * hz, 2));
}

TEST(Conversions, BrukerSinglePointRootSelectIsAtLeastOne) {
    Spectrum s = bruker(-5e-7);
    s.rootselect = 1;
    // The other root of the quadratic is a tiny mass near -Ct/A.
    const double p = 2000.0;
    EXPECT_LT(std::fabs(pt_tomass(s, p)), 1e-10);
    EXPECT_EQ(SPt_tomass(s, p), 1.0);
    s.rootselect = 0;
    EXPECT_GT(SPt_tomass(s, p), 100.0);
}

TEST(Conversions, SingleMassToPointGuards) {
    Spectrum s = defaults();
    EXPECT_EQ(SMass_toPt(s, NaN), 1.0);
    // A point below zero: negative heterodyne with a reference under the signal.
    s.detectmode = DETECT_NEGATIVE_HETERODYNE;
    s.reffreq = 10000.0;
    EXPECT_EQ(SMass_toPt(s, 500.0), 0.0);
    EXPECT_LT(mass_topt(s, 500.0), 0.0);  // the array form does not guard
    // B = 0 makes the rationalised root 0/0: NaN becomes point 0.
    Spectrum z = defaults();
    z.Bterm = 0.0;
    EXPECT_EQ(SMass_toPt(z, 500.0), 0.0);
    EXPECT_NEAR(mass_topt(z, 500.0), DEFAULT_ATERM / 500.0 / (1000000.0 / 16384.0), 1e-9);
}

// Walking tables on a 1 Hz-per-point axis, so that a point is its frequency.
Spectrum walking_spectrum(int terms, std::vector<WalkingRegion> rows) {
    Spectrum s = defaults();
    s.caltype = CALTYPE_WALKING;
    s.dbandwidth = 1048576.0;
    s.datacount = 1048576;
    s.walkingterms = terms;
    s.walkingregions = static_cast<int>(rows.size());
    s.walkingrows = s.walkingregions;
    s.walking = std::move(rows);
    return s;
}
WalkingRegion region(double A, double B, double start, double end, double startmz, double endmz) {
    WalkingRegion r;
    r.A = A;
    r.B = B;
    r.startfreq = start;
    r.endfreq = end;
    r.startmz = startmz;
    r.endmz = endmz;
    return r;
}
double law(const WalkingRegion& r, double V, double f) { return (r.B * V / f + r.A) / f; }

TEST(Conversions, WalkingTwoTermsEdgesAndExtrapolation) {
    const double A = DEFAULT_ATERM, B = DEFAULT_BTERM;
    // Rising rows with a gap between the first and the second.
    const std::vector<WalkingRegion> rows = {
        region(A, B, 100000.0, 150000.0, 1111.0, 1222.0),
        region(A * 1.001, B, 160000.0, 200000.0, 2111.0, 2222.0),
        region(A * 1.002, B, 200000.0, 250000.0, 3111.0, 3222.0),
    };
    Spectrum s = walking_spectrum(2, rows);
    s.Trapvoltage = -2.0;
    const double V = 2.0;
    struct Row {
        double f;
        double mass;
    };
    const Row cases[] = {
        {50000.0, law(rows[0], V, 50000.0)},        // below the first row: its law
        {100000.0, law(rows[0], V, 100000.0)},      // first row's own range: law, not the edge
        {150000.0, 1222.0},                         // end edge of row 0
        {150000.0 + 5e-7, 1222.0},                  // within 1e-6 of the end edge
        {150000.0 + 2e-6, 150000.0 + 2e-6},         // in no row: stays a frequency
        {160000.0 + 5e-8, 2111.0},                  // within 1e-7 of a start edge
        {160000.0 + 5e-7, law(rows[1], V, 160000.0 + 5e-7)},  // not within 1e-7: the law
        {180000.0, law(rows[1], V, 180000.0)},
        {200000.0, 2222.0},                         // shared edge: the earlier row's end
        {220000.0, law(rows[2], V, 220000.0)},      // above the last start: last row's law
        {400000.0, law(rows[2], V, 400000.0)},      // beyond the table: last row's law
    };
    std::vector<double> points, masses(std::size(cases));
    for (const Row& c : cases) points.push_back(c.f);
    RecordingUi ui;
    Pt_tomass(s, points, masses, &ui);
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(cases[i].f);
        EXPECT_DOUBLE_EQ(masses[i], cases[i].mass);
        EXPECT_DOUBLE_EQ(One_pt_tomass(s, cases[i].f), cases[i].mass);
    }
    EXPECT_TRUE(ui.console.empty());

    // The detection mode is not applied by the table; the single form and the
    // mass-to-point forms ignore the table and use the spectrum's own law.
    s.detectmode = DETECT_POSITIVE_HETERODYNE;
    s.reffreq = 77777.0;
    EXPECT_DOUBLE_EQ(pt_tomass(s, 180000.0), law(rows[1], V, 180000.0));
    Spectrum plain = s;
    plain.caltype = CALTYPE_TWO_TERM;
    EXPECT_DOUBLE_EQ(SPt_tomass(s, 180000.0), SPt_tomass(plain, 180000.0));
    EXPECT_DOUBLE_EQ(mass_topt(s, 500.0), mass_topt(plain, 500.0));
    EXPECT_DOUBLE_EQ(SMass_toPt(s, 500.0), SMass_toPt(plain, 500.0));

    // No regions: the spectrum's own two-term law, with the detection mode.
    s.walkingregions = 0;
    EXPECT_DOUBLE_EQ(pt_tomass(s, 180000.0), pt_tomass(plain, 180000.0));
}

TEST(Conversions, WalkingOtherTermCountsWalkDescendingRowsAndPrint) {
    const double A = DEFAULT_ATERM, B = DEFAULT_BTERM;
    const std::vector<WalkingRegion> rows = {
        region(A, B, 250000.0, 200000.0, 0, 0),
        region(A * 1.001, B * 0.5, 200000.0, 150000.0, 0, 0),
        region(A * 1.002, B, 150000.0, 100000.0, 0, 0),
    };
    Spectrum s = walking_spectrum(3, rows);
    const std::vector<double> points = {225000.0, 200000.0, 175000.0, 120000.0, 300000.0, 50000.0};
    std::vector<double> masses(points.size());
    RecordingUi ui;
    Pt_tomass_walking(s, points, masses, &ui);
    EXPECT_DOUBLE_EQ(masses[0], law(rows[0], 1.0, 225000.0));
    EXPECT_DOUBLE_EQ(masses[1], law(rows[0], 1.0, 200000.0));  // first matching row
    EXPECT_DOUBLE_EQ(masses[2], law(rows[1], 1.0, 175000.0));
    EXPECT_DOUBLE_EQ(masses[3], law(rows[2], 1.0, 120000.0));
    EXPECT_EQ(masses[4], 300000.0);  // in no row: unconverted
    EXPECT_EQ(masses[5], 50000.0);
    // regions + 2 - terms rows are printed.
    EXPECT_EQ(ui.console,
              "A0 = 47536770.867829, B0 = -3379711463.376564, startfreq[0] = 250000.000000, endfreq[0] = "
              "200000.000000\n"
              "A1 = 47584307.638697, B1 = -1689855731.688282, startfreq[1] = 200000.000000, endfreq[1] = "
              "150000.000000\n");

    // In place, and a count that claims more rows than the table holds.
    s.walkingregions = 40;
    s.walkingterms = 1;
    std::vector<double> inplace = points;
    RecordingUi ui2;
    Pt_tomass(s, inplace, inplace, &ui2);
    EXPECT_DOUBLE_EQ(inplace[2], law(rows[1], 1.0, 175000.0));
    EXPECT_EQ(std::count(ui2.console.begin(), ui2.console.end(), '\n'), 3);
    s.walkingterms = 2;
    Pt_tomass(s, inplace, inplace, nullptr);
}

TEST(Conversions, TimeRangesAndHelpers) {
    AnalysisPanel panel;
    struct TimeRow {
        double t, point;
    };
    for (const TimeRow& r : {TimeRow{0.001, 2000.0}, TimeRow{1.25e-6, 3.0}, TimeRow{1.7e-6, 4.0}, TimeRow{0.0, 0.0}})
        EXPECT_EQ(Time_topt(panel, r.t), r.point) << r.t;

    Spectrum s = defaults();
    s.data = {5.0f, -1.0f, 7.0f, 3.0f, 9.0f, 2.0f};
    struct MinMaxRow {
        double x1, x2;
        float largest, smallest;
    };
    const MinMaxRow rows[] = {
        {4.9, 1.2, 9.0f, -1.0f},    // truncated and sorted: points 1..4
        {2.0, 2.0, 7.0f, 7.0f},
        {-30.0, 0.5, 5.0f, 5.0f},   // clamped to the data
        {3.0, 1e300, 9.0f, 2.0f},
        {NaN, 2.0, 7.0f, -1.0f},
    };
    for (const MinMaxRow& r : rows) {
        SCOPED_TRACE(r.x1);
        const auto [hi, lo] = Min_max(r.x1, r.x2, s);
        EXPECT_EQ(hi, r.largest);
        EXPECT_EQ(lo, r.smallest);
    }
    // Mass positions in the mass domain: on a 1 Hz axis with B = 0, m = A / p.
    s.domain = DOMAIN_MASS;
    s.Bterm = 0.0;
    s.dbandwidth = s.datacount = 1 << 20;
    const auto [hi, lo] = Min_max(DEFAULT_ATERM / 4.5, DEFAULT_ATERM / 2.5, s);  // points 2..4
    EXPECT_EQ(hi, 9.0f);
    EXPECT_EQ(lo, 3.0f);
    s.data.clear();
    EXPECT_EQ(Min_max(0, 5, s), std::make_pair(0.0f, 0.0f));

    Spectrum x = defaults();
    x.xvalues = {100.0, 200.0, 300.0};
    struct IndexRow {
        double mass;
        long index;
    };
    for (const IndexRow& r : {IndexRow{50.0, -1}, IndexRow{100.0, 0}, IndexRow{250.0, 1}, IndexRow{300.0, 2},
                              IndexRow{1000.0, 2}, IndexRow{NaN, -1}})
        EXPECT_EQ(GetIndexFromMassXcal(r.mass, x), r.index) << r.mass;
    x.xvalues.clear();
    EXPECT_EQ(GetIndexFromMassXcal(500.0, x), -1);

    std::vector<float> v = {4.0f, 2.25f, 0.0f, 1e6f};
    Array_root(v);
    EXPECT_EQ(v, (std::vector<float>{2.0f, 1.5f, 0.0f, 1000.0f}));
}

TEST(Conversions, MismatchedAndEmptyArraysAreSafe) {
    Spectrum s = defaults();
    const std::vector<double> in = {1000.0, 2000.0, 3000.0};
    std::vector<double> out = {-1.0};
    Pt_tomass(s, in, out);
    EXPECT_NEAR(out[0], pt_tomass(s, 1000.0), 1e-12);
    Mass_topt(s, in, std::span<double>());
    Freq_tomass(s, std::span<const double>(), out);
    s.datacount = 0;  // a broken header: arithmetic values, no crash
    EXPECT_EQ(SPt_tofreq(s, 5), std::numeric_limits<double>::infinity());
    EXPECT_EQ(SMass_toPt(s, 500.0), 0.0);
}

// A real Bruker method: its excitation range in m/z and its frequency limits
// are tied by the short two-term form, f = A/m - B, with A = ML1 and B = ML2.
TEST(Conversions, BrukerShortFormMatchesARealMethodFile) {
    const std::string path = std::string(VANTORIX_SHARED_DATA) +
                             "/bruker/histonepeptide_ms2_000002.d/ESI_pos_12032018.m/apexAcquisition.method";
    pugi::xml_document doc;
    if (!doc.load_file(path.c_str())) GTEST_SKIP() << "no shared data at " << path;
    auto param = [&](const char* name) {
        for (const auto& x : doc.select_nodes("//param"))
            if (std::string(x.node().child_value("name")) == name) return std::stod(x.node().child_value("value"));
        return NaN;
    };
    Spectrum s = defaults();
    s.filetype = FILETYPE_BRUKER;
    s.Aterm = param("ML1");
    s.Bterm = param("ML2");
    s.Cterm = 0.0;
    s.dbandwidth = 1048576.0;
    s.datacount = 1048576;  // 1 Hz a point
    ASSERT_FALSE(std::isnan(s.Aterm + s.Bterm));
    EXPECT_NEAR(mass_topt(s, param("EXC_hi")), param("FR_low"), 1e-6);
    EXPECT_NEAR(SMass_toPt(s, param("EXC_low")), param("SW_h"), 0.01);
    EXPECT_NEAR(freq_tomass(s, param("FR_low")), param("EXC_hi"), 1e-9);
    EXPECT_NEAR(SPt_tomass(s, param("SW_h")), param("EXC_low"), 1e-5);
}

}  // namespace
}  // namespace vx
