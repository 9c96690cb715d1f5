#include <gtest/gtest.h>

#include <cmath>

#include <fmt/format.h>

#include "peaks/reborn.hpp"
#include "peaks/synthetic.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

TEST(FindVantorixPeakIndexes, SimpleScanRules) {
    struct Case {
        const char* what;
        std::vector<float> y;
        long first, last;
        double peak, noise;
        std::vector<long> expected;
    };
    const std::vector<Case> cases = {
        {"strict maximum with neighbours above the noise", {0, 0, 10, 50, 10, 0, 0, 0}, 0, 7, 20, 5, {3}},
        {"neighbour at the noise level is not above it", {0, 0, 5, 50, 10, 0, 0, 0}, 0, 7, 20, 5, {}},
        {"peak level must be exceeded", {0, 0, 10, 20, 10, 0, 0, 0}, 0, 7, 20, 5, {}},
        {"plateau of two equal samples gives nothing", {0, 10, 50, 50, 10, 0, 0, 0}, 0, 7, 20, 5, {}},
        {"scan starts at first + 1", {0, 10, 50, 10, 0, 0, 0, 0}, 2, 7, 20, 5, {}},
        {"scan ends at last - 2", {0, 0, 0, 0, 10, 50, 10, 0}, 0, 6, 20, 5, {}},
        {"two peaks ascend", {0, 10, 50, 10, 40, 90, 40, 0, 0}, 0, 8, 20, 5, {2, 5}},
        {"reversed limits give nothing", {0, 0, 10, 50, 10, 0, 0, 0}, 7, 0, 20, 5, {}},
    };
    for (const auto& c : cases) {
        const Spectrum s = test::spectrum_of(c.y);
        EXPECT_EQ(FindVantorixPeakIndexes(s, c.first, c.last, c.peak, c.noise), c.expected) << c.what;
    }
}

TEST(FindVantorixPeakIndexesOldAndNew, WalkWithApexRules) {
    struct Case {
        const char* what;
        std::vector<float> y;
        long first, last;
        std::vector<long> expected;
    };
    auto z = [](std::size_t n, std::vector<std::pair<std::size_t, float>> pts) {
        std::vector<float> y(n, 0.0f);
        for (auto [i, v] : pts) y[i] = v;
        return y;
    };
    const std::vector<Case> cases = {
        {"single spike", z(40, {{20, 100}}), 0, 39, {20}},
        {"plateau: the earlier sample", z(40, {{20, 100}, {21, 100}}), 0, 39, {20}},
        {"apex on the first index is no peak", z(40, {{5, 100}, {6, 40}}), 5, 39, {}},
        {"below the peak level", z(40, {{20, 25}}), 0, 39, {}},
        {"two peaks", z(40, {{10, 100}, {25, 60}}), 0, 39, {10, 25}},
        // The walk goes on after the apex, so a shoulder right behind a peak
        // is scanned again and found.
        {"shoulder behind a peak", z(40, {{10, 100}, {11, 60}, {12, 70}, {13, 30}}), 0, 39, {10, 12}},
    };
    for (const auto& c : cases) {
        const Spectrum s = test::spectrum_of(c.y);
        EXPECT_EQ(FindVantorixPeakIndexesOldAndNew(s, c.first, c.last, 50.0, 5.0, 3.0), c.expected) << c.what;
    }
}

TEST(AssignAllPeaks, RecordsRunFromLowToHighMass) {
    std::vector<float> y(64, 0.0f);
    y[9] = 40; y[10] = 100; y[11] = 80; y[12] = 20;  // point 10: higher m/z
    y[39] = 20; y[40] = 60;  y[41] = 20;              // point 40: lower m/z
    y[58] = 10; y[59] = 30; y[60] = 28; y[61] = 27; y[62] = 26; y[63] = 25;  // no half height on the right
    Spectrum s = test::spectrum_of(y);
    s.Trapvoltage = -2.0;  // |V| scales the second term
    RecordingUi ui;
    AssignAllPeaks(s, 3, {10, 40, 59}, ui);
    ASSERT_EQ(s.peaks.size(), 3u);
    EXPECT_NEAR(s.peaks[0].index, 59.0 + 9.0 / 22.0, 1e-12);
    EXPECT_NEAR(s.peaks[1].index, 40.0, 1e-12);
    EXPECT_NEAR(s.peaks[2].index, 10.25, 1e-12);
    const double f = s.hzppt * 10.25;
    EXPECT_NEAR(s.peaks[2].frequency, f, 1e-9);
    EXPECT_NEAR(s.peaks[2].mass, 2.0 * s.Bterm / f / f + s.Aterm / f, 1e-9);
    EXPECT_NEAR(s.peaks[2].abundance, 102.5, 1e-12);
    EXPECT_EQ(s.peaks[2].width, 1000.0);
    EXPECT_EQ(s.peaks[0].width, 0.0);
    EXPECT_EQ(s.peaks[0].resolvingpower, -1.0);
    EXPECT_NEAR(s.peaks[2].relabundance, 100.0, 1e-12);
    EXPECT_NEAR(s.peaks[1].relabundance, 60.0 / 102.5 * 100.0, 1e-9);
    EXPECT_EQ(s.peaks[1].sn, -1.0);
    EXPECT_NE(ui.console.find(fmt::format("peak 2 freq = {:f}, abund = {:f}, and mz = {:f}.\n", f, 102.5,
                                          s.peaks[2].mass)),
              std::string::npos);
}

TEST(CalculateRP, LorentzianWidthAndEdges) {
    Spectrum s = test::blank_spectrum(1 << 22);
    const test::Ion ion{500.0, 1000.0, 20000.0};
    test::add_ions(s, {ion});
    const double centre = test::point_of(s, 500.0);
    s.peaks.resize(1);
    s.peaks[0].index = centre;
    s.peaks[0].abundance = 1000.0;
    s.peaks[0].mass = 500.0;
    CalculateRP(s, 1);
    EXPECT_NEAR(s.peaks[0].resolvingpower, 20000.0, 0.02 * 20000.0);
    EXPECT_NEAR(s.peaks[0].width, 500.0 / 20000.0, 0.02 * 500.0 / 20000.0);

    // A peak at the data's end still gets a width: the walk stops at the ends.
    Spectrum e = test::spectrum_of({90, 100, 90, 80, 10, 0});
    e.peaks.resize(1);
    e.peaks[0].index = 1.0;
    e.peaks[0].abundance = 100.0;
    e.peaks[0].mass = SPt_tomass(e, 1.0);
    CalculateRP(e, 1);
    EXPECT_TRUE(std::isfinite(e.peaks[0].width));
}

TEST(Duplicates, LaterCopiesRemoved) {
    struct Case {
        std::vector<long> in;
        long count;
        std::vector<long> kept;
    };
    const std::vector<Case> cases = {
        {{1, 2, 3}, 3, {1, 2, 3}},
        {{5, 5, 5}, 3, {5}},
        {{1, 2, 1, 3, 2}, 5, {1, 2, 3}},
        {{}, 0, {}},
        {{4, 4, 9}, 2, {4}},  // only the first count entries count
    };
    for (const auto& c : cases) {
        auto v = c.in;
        const long n = CheckForAndRemoveDuplicates(v, c.count);
        EXPECT_EQ(std::vector<long>(v.begin(), v.begin() + n), c.kept);
    }
    std::vector<long> v{1, 2, 3, 4};
    EXPECT_EQ(CheckForAndRemoveDuplicates(v, -3), -10);
    RemoveIndexAndShiftReaminingIndexesUp(v, 4, 1);
    EXPECT_EQ(v, (std::vector<long>{1, 3, 4, 4}));
}

TEST(SignalToNoise, WindowsOfThreeMzAndUserNoise) {
    Spectrum s = test::blank_spectrum(1 << 20);
    test::add_rayleigh_noise(s, 1.0, 4);
    s.initMz = 400.0;
    s.finalMz = 410.0;
    // 10 / 3 -> 4 windows; the last one is 407 .. 410 and overlaps the third.
    std::vector<SnWindow> w(4);
    for (int k = 0; k < 3; ++k) {
        w[k].lowmz = 400.0 + 3.0 * k;
        w[k].highmz = 403.0 + 3.0 * k;
    }
    w[3].lowmz = 407.0;
    w[3].highmz = 410.0;
    for (auto& x : w) FillInEachSnRange(s, x);
    EXPECT_LT(w[0].firstindex, w[0].lastindex);
    EXPECT_EQ(w[0].count, w[0].lastindex - w[0].firstindex + 1);
    EXPECT_EQ(static_cast<std::int64_t>(w[0].samples.size()), w[0].count);
    EXPECT_NEAR(static_cast<double>(w[0].firstindex), test::point_of(s, 403.0), 1.0);
    CalculateNoiseInEachRange(w);
    for (const auto& x : w) {
        EXPECT_NEAR(x.baseline, 1.0, 0.45);
        EXPECT_GT(x.sigma, 0.0);
    }
    s.peaks.resize(3);
    s.peaks[0].mass = 401.0;
    s.peaks[0].abundance = 51.0;
    s.peaks[1].mass = 408.0;
    s.peaks[1].abundance = 21.0;
    s.peaks[2].mass = 420.0;  // in no window: keeps its -1
    s.peaks[2].sn = -1.0;
    CalculateSignalToNoiseThrashStyle(s);
    EXPECT_NEAR(s.peaks[0].sn, (51.0 - w[0].baseline) / w[0].sigma, 1e-9);
    // 408 lies in the third window (406 .. 409) first.
    EXPECT_NEAR(s.peaks[1].sn, (21.0 - w[2].baseline) / w[2].sigma, 1e-9);
    EXPECT_EQ(s.peaks[2].sn, -1.0);

    // At most 3 m/z: one window serves all.
    s.finalMz = 402.0;
    s.peaks[2].mass = 401.9;
    s.peaks[2].abundance = 31.0;
    CalculateSignalToNoiseThrashStyle(s);
    SnWindow one;
    one.lowmz = 399.0;
    one.highmz = 402.0;
    FillInEachSnRange(s, one);
    std::vector<SnWindow> single{one};
    CalculateNoiseInEachRange(single);
    EXPECT_NEAR(s.peaks[2].sn, (31.0 - single[0].baseline) / single[0].sigma, 1e-9);

    s.noisemean = 2.0;
    s.noisesigma = 4.0;
    CalculateSignalToNoiseBasedOnUserDefines(s);
    EXPECT_EQ(s.peaks[0].sn, (51.0 - 2.0) / 4.0);

    Spectrum empty;
    EXPECT_EQ(CalculateRelativeAbundance(empty, 0), -1);
}

TEST(NewVantorixPeakPick, HostileRecords) {
    struct Case {
        const char* what;
        int n;
        double hzppt;
        double low, high;
    };
    const std::vector<Case> cases = {
        {"no samples", 0, 0.0, 100.0, 1000.0},
        {"no point spacing", 64, 0.0, 100.0, 1000.0},
        {"negative masses", 64, 15625.0, -50.0, -10.0},
        {"a span of a billion m/z", 64, 15625.0, 1.0, 1.0e9},
        {"NaN limits", 64, 15625.0, std::nan(""), 500.0},
    };
    for (const auto& c : cases) {
        Spectrum s = test::blank_spectrum(std::max(c.n, 1));
        s.data.assign(static_cast<std::size_t>(c.n), 10.0f);
        for (std::size_t i = 0; i < s.data.size(); i += 9) s.data[i] = 500.0f;
        s.datacount = c.n;
        s.hzppt = c.hzppt;
        Settings st = default_settings();
        st.low_mass = c.low;
        st.high_mass = c.high;
        RecordingUi ui;
        PeakTable table;
        Spectrum a = s, b = s;
        EXPECT_GE(NewVantorixPeakPick2(a, st, table, ui), 0) << c.what;
        EXPECT_GE(NewVantorixPeakPickSN(b, st, table, ui), 0) << c.what;
    }
}

TEST(NewVantorixPeakPick, SimulatedIonsBothButtons) {
    Spectrum base = test::blank_spectrum(1 << 21);
    const auto ions = test::petroleum_ions(200, 300.0, 500.0, 30000.0, 1.0, 21);
    test::add_ions(base, ions);
    test::add_rayleigh_noise(base, 1.0, 22);
    Settings st = default_settings();
    st.low_mass = 295.0;
    st.high_mass = 505.0;
    st.peak_threshold = 20.0;
    st.noise_threshold = 3.0;

    Spectrum s = base;
    RecordingUi ui;
    PeakTable table;
    const int n = NewVantorixPeakPick2(s, st, table, ui);
    EXPECT_NE(ui.console.find("initMz = 295.000000. finalMz = 505.000000.\n"), std::string::npos);
    EXPECT_NE(ui.console.find("NewVantorixPeakPick:1817 overRideThrashNoiseCalculation = 0.\n"), std::string::npos);
    ASSERT_GE(n, 200);
    EXPECT_EQ(table.status.rfind(fmt::format("New Peaklist Analysis revealed {} peaks in ", n), 0), 0u);
    EXPECT_EQ(static_cast<int>(table.rows.size()), n);
    int found = 0;
    for (const auto& ion : ions) {
        for (const Peak& p : s.peaks) {
            if (std::fabs(p.mass - ion.mz) / ion.mz < 3e-6) {
                ++found;
                EXPECT_NEAR(p.resolvingpower, ion.rp, 0.15 * ion.rp);
                EXPECT_GT(p.sn, 3.0);
                break;
            }
        }
    }
    EXPECT_EQ(found, 200);
    for (std::size_t k = 1; k < s.peaks.size(); ++k) ASSERT_LT(s.peaks[k - 1].mass, s.peaks[k].mass);

    // A notch over 400 .. 450 leaves its ions out.
    Settings notched = st;
    notched.notches_on = 1;
    notched.notches = {{400.0, 450.0}};
    Spectrum s2 = base;
    NewVantorixPeakPick2(s2, notched, table, ui);
    for (const Peak& p : s2.peaks) EXPECT_FALSE(p.mass > 400.01 && p.mass < 449.99) << p.mass;
    EXPECT_GT(s2.peaks.size(), 140u);

    // The S/N button: S/N first on the old list, so the new peaks carry -1.
    Spectrum s3 = base;
    const int n3 = NewVantorixPeakPickSN(s3, st, table, ui);
    ASSERT_GT(n3, 150);
    for (const Peak& p : s3.peaks) EXPECT_EQ(p.sn, -1.0);

    // Reversed limits: no peaks.
    Settings rev = st;
    std::swap(rev.low_mass, rev.high_mass);
    Spectrum s4 = base;
    EXPECT_EQ(NewVantorixPeakPick2(s4, rev, table, ui), 0);
}

}  // namespace
}  // namespace vx

namespace vx {
namespace {

// Bruker .d data carry the instrument's own law (ML1..ML3 in Aterm..Cterm). The
// reborn picker's masses must follow it: read through the two-term form, the
// same terms put every peak about 90 ppm off.
TEST(InterpMidMass, FollowsTheInstrumentLaw) {
    Spectrum s;
    s.filetype = FILETYPE_BRUKER;
    s.caltype = CALTYPE_INSTRUMENT;
    s.detectmode = DETECT_DIRECT;
    s.Aterm = 1.083270232844505e8;
    s.Bterm = -19.836843680681607;
    s.Cterm = 7489.927504388354;
    s.Trapvoltage = 1.0;
    s.dbandwidth = 535714.2857142857;
    s.datacount = 524288;
    s.hzppt = s.dbandwidth / s.datacount;
    for (const double mz : {202.2, 491.8, 845.5, 1450.0}) {
        const double f = instrument_freq(s.Aterm, s.Bterm, s.Cterm, mz);
        const double point = f / s.hzppt;
        EXPECT_NEAR(InterpMidMass(point, s), mz, mz * 1e-10) << mz;
        EXPECT_NEAR(One_pt_tomass(s, point), mz, mz * 1e-10) << mz;
        const double two_term = s.Aterm / f + s.Bterm / (f * f);
        EXPECT_GT(std::fabs(two_term - mz) / mz, 20e-6) << "the two-term reading differs: " << mz;
    }
}

}  // namespace
}  // namespace vx
