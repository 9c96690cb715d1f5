#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "peaks/find_peaks.hpp"
#include "peaks/synthetic.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

// A short hand-made profile on the default axis; the search range covers
// points first .. last (masses just inside them).
struct Small {
    Spectrum s;
    Settings st;
    Small(std::vector<float> y, long first, long last) {
        s = test::spectrum_of(std::move(y));
        st = default_settings();
        st.high_mass = SPt_tomass(s, first + 0.001);
        st.low_mass = SPt_tomass(s, last + 0.001);
        st.min_peak_width = 3.0;
        st.peak_threshold = 20.0;
        st.noise_threshold = 5.0;
    }
};

std::vector<float> zeros_with(std::size_t n, std::vector<std::pair<std::size_t, float>> points) {
    std::vector<float> y(n, 0.0f);
    for (auto [i, v] : points) y[i] = v;
    return y;
}

TEST(FindPeaksReborn, WalkRulesOnHandMadeProfiles) {
    struct Case {
        const char* what;
        std::vector<float> y;
        double min_width, peak, noise;
        std::vector<long> apexes;  // expected apex points, ascending m/z (descending point)
    };
    const std::vector<Case> cases = {
        {"single point above the level", zeros_with(64, {{30, 100}}), 3, 20, 5, {30}},
        {"segment of 5 points meets width 5", zeros_with(64, {{30, 100}}), 5, 20, 5, {30}},
        {"segment of 5 points is narrower than 6", zeros_with(64, {{30, 100}}), 6, 20, 5, {}},
        {"apex must be strictly above the peak level", zeros_with(64, {{30, 100}}), 3, 100, 5, {}},
        {"just above the peak level", zeros_with(64, {{30, 100}}), 3, 99.9, 5, {30}},
        {"climb below the noise level is passed over", zeros_with(64, {{30, 100}}), 3, 20, 101, {}},
        {"two peaks, both found", zeros_with(64, {{20, 100}, {40, 60}}), 3, 20, 5, {40, 20}},
        {"apex at the range's first point is no peak", zeros_with(64, {{10, 100}, {11, 50}}), 3, 20, 5, {}},
        {"flat top: the earlier sample is the apex", zeros_with(64, {{30, 100}, {31, 100}}), 3, 20, 5, {30}},
    };
    for (const auto& c : cases) {
        Small t(c.y, 10, 60);
        t.st.min_peak_width = c.min_width;
        t.st.peak_threshold = c.peak;
        t.st.noise_threshold = c.noise;
        RecordingUi ui;
        PeakTable table;
        const int n = FindPeaksReborn(t.s, t.st, 100.0, table, ui);
        ASSERT_EQ(n, static_cast<int>(c.apexes.size())) << c.what;
        for (std::size_t k = 0; k < c.apexes.size(); ++k)
            EXPECT_NEAR(t.s.peaks[k].index, static_cast<double>(c.apexes[k]), 0.5) << c.what;
        EXPECT_TRUE(ui.messages.empty()) << c.what;
    }
}

TEST(FindPeaksReborn, ParabolaHalfHeightAndRecord) {
    // 40, 100, 80 around point 30: c1 = 20, c2 = -40, offset 0.25.
    Small t(zeros_with(64, {{29, 40}, {30, 100}, {31, 80}, {32, 30}}), 10, 60);
    RecordingUi ui;
    PeakTable table;
    ASSERT_EQ(FindPeaksReborn(t.s, t.st, 200.0, table, ui), 1);
    const Peak& p = t.s.peaks[0];
    EXPECT_NEAR(p.index, 30.25, 1e-12);
    EXPECT_NEAR(p.abundance, 102.5, 1e-12);
    EXPECT_NEAR(p.mass, SPt_tomass(t.s, 30.25), 1e-9);
    EXPECT_NEAR(p.frequency, 30.25 * t.s.hzppt, 1e-6);
    EXPECT_EQ(p.relabundance, 100.0);
    EXPECT_EQ(p.calmass, -1.0);
    EXPECT_EQ(p.calibrantrow, -1);

    // Table row: half of the raw apex (50) crossed between 29 (40) and 30
    // (100) on the left, between 31 (80) and 32 (30) on the right.
    ASSERT_EQ(table.rows.size(), 1u);
    const double left = SPt_tomass(t.s, 29.0 + 10.0 / 60.0);
    const double right = SPt_tomass(t.s, 31.6);
    EXPECT_NEAR(table.rows[0].width, std::fabs(right - left), 1e-9);
    EXPECT_NEAR(table.rows[0].resolvingpower, p.mass / std::fabs(right - left), 1e-6);
    EXPECT_NEAR(table.rows[0].percent, 102.5 / 200.0 * 100.0, 1e-9);
    EXPECT_NEAR(table.rows[0].scaled_abundance, 102.5, 1e-9);
    EXPECT_EQ(table.rows[0].number, 1);
    EXPECT_EQ(table.ymax, 100.0);

    // The list's width is CalculateRP's: half of the parabola's height, 51.25.
    const double l2 = SPt_tomass(t.s, 29.0 + (40.0 - 51.25) / (40.0 - 100.0));
    const double r2 = SPt_tomass(t.s, 31.0 + (80.0 - 51.25) / (80.0 - 30.0));
    EXPECT_NEAR(p.width, l2 - r2, 1e-9);
    EXPECT_NEAR(p.resolvingpower, p.mass / (l2 - r2), 1e-6);

    // A left sample exactly at half height: the right walk does not step past
    // it, and the table's width is 0.
    Small u(zeros_with(64, {{29, 50}, {30, 100}, {31, 80}, {32, 30}}), 10, 60);
    ASSERT_EQ(FindPeaksReborn(u.s, u.st, 200.0, table, ui), 1);
    EXPECT_EQ(table.rows[0].width, 0.0);
}

TEST(FindPeaksReborn, RangeErrorsNotchesAndOrder) {
    // Fewer than three points: the message, 0, and the earlier list kept.
    {
        Small t(zeros_with(64, {{30, 100}}), 30, 32);
        t.s.peaks.assign(2, Peak{});
        RecordingUi ui;
        PeakTable table;
        EXPECT_EQ(FindPeaksReborn(t.s, t.st, 100.0, table, ui), 0);
        EXPECT_TRUE(ui.saw("Operator Error", "Incorrect Mass Range"));
        EXPECT_EQ(t.s.peaks.size(), 2u);
    }
    // Reversed limits are swapped.
    {
        Small t(zeros_with(64, {{30, 100}}), 10, 60);
        std::swap(t.st.low_mass, t.st.high_mass);
        RecordingUi ui;
        PeakTable table;
        EXPECT_EQ(FindPeaksReborn(t.s, t.st, 100.0, table, ui), 1);
    }
    // A notch over the middle peak leaves it out; the rest ascend in m/z.
    {
        Small t(zeros_with(128, {{20, 100}, {50, 90}, {80, 80}, {110, 70}}), 10, 120);
        t.st.notches_on = 1;
        t.st.notches = {{SPt_tomass(t.s, 55.0), SPt_tomass(t.s, 45.0)}};
        RecordingUi ui;
        PeakTable table;
        ASSERT_EQ(FindPeaksReborn(t.s, t.st, 100.0, table, ui), 3);
        EXPECT_NEAR(t.s.peaks[0].index, 110.0, 0.5);
        EXPECT_NEAR(t.s.peaks[1].index, 80.0, 0.5);
        EXPECT_NEAR(t.s.peaks[2].index, 20.0, 0.5);
        for (std::size_t k = 1; k < t.s.peaks.size(); ++k) EXPECT_LT(t.s.peaks[k - 1].mass, t.s.peaks[k].mass);
        for (std::size_t k = 0; k < table.rows.size(); ++k) EXPECT_EQ(table.rows[k].number, static_cast<int>(k + 1));
    }
}

TEST(NotchRanges, PiecesLeftByTheTable) {
    using R = std::vector<std::pair<double, double>>;
    struct Case {
        double low, high;
        bool on;
        R notches, expected;
    };
    const std::vector<Case> cases = {
        {100, 1000, false, {{200, 300}}, {{100, 1000}}},
        {100, 1000, true, {}, {{100, 1000}}},
        {1000, 100, true, {{200, 300}}, {{100, 200}, {300, 1000}}},
        {100, 1000, true, {{600, 700}, {200, 300}}, {{100, 200}, {300, 600}, {700, 1000}}},
        {100, 1000, true, {{300, 200}}, {{100, 200}, {300, 1000}}},     // edges given high first
        {100, 1000, true, {{200, 400}, {300, 500}}, {{100, 200}, {500, 1000}}},  // overlapping notches
        {100, 1000, true, {{900, 1200}}, {{100, 900}}},
        {100, 1000, true, {{50, 2000}}, {}},
    };
    for (const auto& c : cases) EXPECT_EQ(notch_ranges(c.low, c.high, c.on, c.notches), c.expected);
}

TEST(AnalyzeFindPeaks, ButtonsCheckNotchesAndReportResults) {
    Workspace ws;
    ws.active_panel = 0;
    AnalysisPanel& p = ws.panels[0];
    p.active = 1;
    p.xmode = XMODE_MZ;
    p.spectrum = test::blank_spectrum(128);
    p.spectrum.data = zeros_with(128, {{20, 100}, {50, 90}});
    p.fullmax = 127;
    p.ymax = 100;
    ws.settings.high_mass = SPt_tomass(p.spectrum, 10.001);
    ws.settings.low_mass = SPt_tomass(p.spectrum, 120.001);

    for (bool by_sn : {false, true}) {
        ws.settings.notches_on = 1;
        ws.settings.notches = {{ws.settings.low_mass - 1.0, ws.settings.low_mass + 1.0}};
        RecordingUi ui;
        PeakTable table;
        EXPECT_EQ(AnalyzeFindPeaks(ws, by_sn, table, ui), -1);
        EXPECT_TRUE(ui.saw("Exclude Notch Value Out of Range",
                           "Exclude Notch must be within the primary search range. Aborting."));
        EXPECT_TRUE(table.rows.empty());
    }
    ws.settings.notches_on = 0;
    RecordingUi ui;
    PeakTable table;
    EXPECT_EQ(AnalyzeFindPeaks(ws, false, table, ui), 2);
    EXPECT_TRUE(table.shown);
    EXPECT_EQ(table.status.rfind("Traditional Peaklist Analysis revealed 2 peaks in ", 0), 0u) << table.status;
    EXPECT_EQ(p.spectrum.initMz, ws.settings.low_mass);
    EXPECT_EQ(p.spectrum.peakabundance, ws.settings.peak_threshold);

    // Nothing above the level: the message, the panels gone, the old list kept.
    ws.settings.peak_threshold = 1000;
    RecordingUi ui2;
    EXPECT_EQ(AnalyzeFindPeaks(ws, false, table, ui2), 0);
    EXPECT_TRUE(ui2.saw("Peak Find Results", "No Peaks Found in Search Region"));
    EXPECT_FALSE(table.loaded);
    EXPECT_EQ(p.spectrum.peaks.size(), 2u);

    // Limits never set: the reborn search runs first (its console lines), then
    // the traditional one from the mass of the last point.
    ws.settings.peak_threshold = 20;
    ws.settings.low_mass = 0.0;
    RecordingUi ui6;
    EXPECT_EQ(FindPeaksCommand(ws, table, ui6), 2);
    EXPECT_NE(ui6.console.find("initMz = "), std::string::npos);
    EXPECT_DOUBLE_EQ(ws.settings.low_mass, SPt_tomass(p.spectrum, 127.0));

    // A stick list from a file is shown as it stands, S/N column 12.
    Spectrum sticks = p.spectrum;
    sticks.domain = DOMAIN_PEAKLIST;
    sticks.peaks.assign(1, Peak{});
    sticks.peaks[0].index = 456.5;
    std::swap(sticks, p.spectrum);
    p.xmode = XMODE_PEAKS;
    RecordingUi ui7;
    EXPECT_EQ(FindPeaksCommand(ws, table, ui7), 1);
    EXPECT_EQ(table.rows[0].mass, 456.5);
    EXPECT_EQ(table.rows[0].sn, 12.0);
    std::swap(sticks, p.spectrum);
    p.xmode = XMODE_MZ;

    // Wrong domain and x modes.
    p.xmode = XMODE_FREQUENCY;
    RecordingUi ui3;
    EXPECT_EQ(FindPeaksCommand(ws, table, ui3), -1);
    EXPECT_TRUE(ui3.saw("Error Message", "Frequency domain peak finding not available now."));
    p.spectrum.domain = DOMAIN_TIME;
    RecordingUi ui4;
    EXPECT_EQ(FindPeaksCommand(ws, table, ui4), -1);
    EXPECT_TRUE(ui4.saw("Operator Error", "Not in Mass/Frequency Domain\n Peak Finding Not Allowed"));
    ws.active_panel = -1;
    RecordingUi ui5;
    EXPECT_EQ(FindPeaksCommand(ws, table, ui5), -1);
    EXPECT_TRUE(ui5.saw("Operator Error", "No Spectrum Chosen"));
}

double correlation(const std::vector<double>& a, const std::vector<double>& b) {
    const double n = static_cast<double>(a.size());
    double ma = 0, mb = 0;
    for (std::size_t i = 0; i < a.size(); ++i) ma += a[i] / n, mb += b[i] / n;
    double sab = 0, saa = 0, sbb = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sab += (a[i] - ma) * (b[i] - mb);
        saa += (a[i] - ma) * (a[i] - ma);
        sbb += (b[i] - mb) * (b[i] - mb);
    }
    return sab / std::sqrt(saa * sbb);
}

// A simulated petroleum-like spectrum: 400 ions on Rayleigh noise of sigma 1.
struct Simulated {
    Spectrum s;
    std::vector<test::Ion> ions;
    Settings st;
    Simulated(int n = 1 << 21, int count = 400) {
        s = test::blank_spectrum(n);
        ions = test::petroleum_ions(count, 250.0, 650.0, 30000.0, 1.0, 99);
        test::add_ions(s, ions);
        test::add_rayleigh_noise(s, 1.0, 100);
        st = default_settings();
        st.low_mass = 240.0;
        st.high_mass = 660.0;
        st.peak_threshold = 20.0;
        st.noise_threshold = 3.0;
    }
};

TEST(FindPeaksReborn, SimulatedIonsFoundAtTheirMassWithTheirResolvingPower) {
    Simulated sim;
    Spectrum s = sim.s;
    RecordingUi ui;
    PeakTable table;
    const int n = FindPeaksReborn(s, sim.st, 1000.0, table, ui);
    ASSERT_GT(n, 0);
    int found = 0;
    std::vector<double> sn_log, height_log;
    for (const auto& ion : sim.ions) {
        const Peak* it = test::nearest_peak(s.peaks, ion.mz);
        // Three points at the top of a line 5 to 10 points wide at S/N 30 and
        // more: a few ppm at worst.
        const double ppm = std::fabs(it->mass - ion.mz) / ion.mz * 1e6;
        if (ppm > 3.0) continue;
        ++found;
        EXPECT_NEAR(it->resolvingpower, ion.rp, 0.15 * ion.rp) << ion.mz;
        EXPECT_NEAR(it->abundance, ion.height, 0.1 * ion.height + 3.0) << ion.mz;
        // The width of a 5 m/z window's histogram grows with the peaks in it,
        // so the ratio is small, but it must be positive and follow the heights.
        EXPECT_GT(it->sn, 0.0) << ion.mz;
        sn_log.push_back(std::log(std::max(it->sn, 1e-3)));
        height_log.push_back(std::log(ion.height));
    }
    EXPECT_EQ(found, static_cast<int>(sim.ions.size()));
    EXPECT_LT(n, static_cast<int>(sim.ions.size() * 105 / 100)) << "few peaks that are no ion";
    EXPECT_GT(correlation(sn_log, height_log), 0.5);
    for (std::size_t k = 1; k < s.peaks.size(); ++k) ASSERT_LT(s.peaks[k - 1].mass, s.peaks[k].mass);

    // S/N mode: every accepted apex stands the factor of widths above the
    // baseline, and nothing below the noise is taken.
    Settings st = sim.st;
    st.sn_mode = 1;
    st.peak_sigma_factor = 3.0;
    st.noise_sigma_factor = 1.0;
    Spectrum s2 = sim.s;
    const int n2 = FindPeaksReborn(s2, st, 1000.0, table, ui);
    ASSERT_GT(n2, 100);
    for (const auto& r : table.rows) EXPECT_GT(r.sn, 2.5) << r.mass;
}

TEST(FindPeaksThread, SameListAsThePlainWalkForEveryWorkerCount) {
    Simulated sim;
    Spectrum plain = sim.s;
    RecordingUi ui;
    PeakTable table;
    const int n = FindPeaksReborn(plain, sim.st, 1000.0, table, ui);
    ASSERT_GT(n, 300);
    std::vector<Peak> first;
    for (int workers : {1, 2, 4}) {
        Settings st = sim.st;
        st.thread_count = workers;
        Spectrum s = sim.s;
        PeakTable t2;
        ASSERT_EQ(FindPeaksThread(s, st, 1000.0, t2, ui), n) << workers;
        for (int k = 0; k < n; ++k) {
            EXPECT_EQ(s.peaks[k].index, plain.peaks[k].index);
            EXPECT_EQ(s.peaks[k].abundance, plain.peaks[k].abundance);
            EXPECT_EQ(s.peaks[k].width, plain.peaks[k].width);
        }
        if (first.empty()) first = s.peaks;
        for (int k = 0; k < n; ++k) EXPECT_EQ(s.peaks[k].sn, first[k].sn) << "workers " << workers;
    }
}

TEST(FindPeaksReborn, NoiseSourcesGlobalUserAndTheMinus44Stop) {
    Simulated sim(1 << 20, 100);
    // User noise: S/N from the cursors' mean and deviation exactly.
    {
        Spectrum s = sim.s;
        s.overRideThrashNoiseCalculation = 1;
        s.noisemean = 1.25;
        s.noisesigma = 0.5;
        RecordingUi ui;
        PeakTable table;
        ASSERT_GT(FindPeaksReborn(s, sim.st, 1000.0, table, ui), 0);
        for (std::size_t k = 0; k < table.rows.size(); ++k)
            EXPECT_DOUBLE_EQ(table.rows[k].sn, (table.rows[k].height - 1.25) / 0.5);
    }
    // One global estimate: a peak level below it stops the search with -44.
    {
        Spectrum s = sim.s;
        Settings st = sim.st;
        st.global_noise = 1;
        st.peak_threshold = 0.1;
        RecordingUi ui;
        PeakTable table;
        EXPECT_EQ(FindPeaksReborn(s, st, 1000.0, table, ui), -44);
        st.peak_threshold = 15.0;
        EXPECT_GT(FindPeaksReborn(s, st, 1000.0, table, ui), 50);
    }
    // Percent thresholds refer to the range's largest sample.
    {
        Spectrum s = sim.s;
        Settings st = sim.st;
        st.percent_thresholds = 1;
        st.peak_threshold = 50.0;
        RecordingUi ui;
        PeakTable table;
        const int n = FindPeaksReborn(s, st, 1000.0, table, ui);
        ASSERT_GT(n, 0);
        for (const auto& r : table.rows) EXPECT_GT(r.height, 0.45 * table.ymax);
    }
}

TEST(FindPeaksProfile, ExplicitAxisRules) {
    Spectrum s;
    s.domain = DOMAIN_PROFILE;
    const int n = 40;
    s.data.assign(n, 0.0f);
    s.xvalues.resize(n);
    for (int i = 0; i < n; ++i) s.xvalues[i] = 400.0 + 0.01 * i + 0.0001 * i * i;
    s.data[19] = 40;
    s.data[20] = 100;
    s.data[21] = 80;
    s.data[22] = 30;
    s.xcalnoise.assign(n, 0.0);
    s.xcalnoise[20] = 4.0;
    Settings st = default_settings();
    st.low_mass = 400.0;
    st.high_mass = 401.0;
    RecordingUi ui;
    PeakTable table;
    ASSERT_EQ(FindPeaksProfile(s, st, 100.0, table, ui), 1);
    const Peak& p = s.peaks[0];
    EXPECT_NEAR(p.index, s.xvalues[20] + 0.25 * (s.xvalues[21] - s.xvalues[19]) / 2.0, 1e-12);
    EXPECT_EQ(p.mass, p.index);
    EXPECT_EQ(p.frequency, 0.0);
    EXPECT_NEAR(p.abundance, 102.5, 1e-9);
    EXPECT_NEAR(p.resolvingpower, p.mass / p.width, 1e-6);
    // Half of the sample (50): left point 20 (the first at or above it),
    // right point 22 (the first not above it); no interpolation.
    EXPECT_NEAR(p.width, s.xvalues[22] - s.xvalues[20], 1e-12);
    EXPECT_NEAR(p.sn, 4.0 * p.abundance / 100.0, 1e-9);

    // Percent thresholds refer to the panel's ymax: 60 % of 200 is above 100.
    st.percent_thresholds = 1;
    st.peak_threshold = 60.0;
    Spectrum s2 = s;
    EXPECT_EQ(FindPeaksProfile(s2, st, 200.0, table, ui), 0);
    EXPECT_EQ(FindPeaksProfile(s2, st, 100.0, table, ui), 1);
}

TEST(PeakSearches, HostileSpectraGiveAnAnswerNotACrash) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    struct Case {
        const char* what;
        std::vector<float> y;
    };
    std::vector<float> spiky(256, 1.0f);
    for (std::size_t i = 0; i < spiky.size(); i += 7) spiky[i] = nan;
    spiky[100] = inf;
    const std::vector<Case> cases = {
        {"no samples", {}},
        {"one sample", {5.0f}},
        {"three samples", {1.0f, 9.0f, 1.0f}},
        {"NaN and infinity among the samples", spiky},
        {"all NaN", std::vector<float>(128, nan)},
    };
    for (const auto& c : cases) {
        Spectrum s = test::blank_spectrum(std::max<int>(1, static_cast<int>(c.y.size())));
        s.data = c.y;
        Settings st = default_settings();
        st.low_mass = 100.0;
        st.high_mass = 5000.0;
        st.thread_count = 2;
        for (int sn : {0, 1}) {
            st.sn_mode = sn;
            RecordingUi ui;
            PeakTable table;
            Spectrum a = s, b = s, d = s;
            EXPECT_GE(FindPeaksReborn(a, st, 1.0, table, ui), -44) << c.what;
            EXPECT_GE(FindPeaksThread(b, st, 1.0, table, ui), -44) << c.what;
            d.xvalues.assign(d.data.size(), 0.0);
            for (std::size_t i = 0; i < d.xvalues.size(); ++i) d.xvalues[i] = i % 5 ? 400.0 + i : nan;
            EXPECT_GE(FindPeaksProfile(d, st, 1.0, table, ui), 0) << c.what;
        }
    }
}

TEST(PeakTable, VisibleRowsAndLabels) {
    PeakTableRow r;
    r.number = 3;
    r.mass = 500.123456789;
    r.frequency = 95002.41234;
    r.percent = 12.345678;
    r.scaled_abundance = 1234.5;
    r.resolvingpower = 100000.6;
    r.sn = 42.123456;
    r.height = 1234.5;
    PeakDecimals d{4, 2, 1, 3};
    const auto f = peak_table_fields(r, d);
    EXPECT_EQ(f[0], "3");
    EXPECT_EQ(f[1], "500.1235");
    EXPECT_EQ(f[2], "95002.41");
    EXPECT_EQ(f[3], "12.346");
    EXPECT_EQ(f[4], "1234.5");
    EXPECT_EQ(f[5], "100001");
    EXPECT_EQ(f[6], "42.1235");
    const std::string line = peak_table_line(r, d);
    EXPECT_EQ(line.find("500.1235"), 20u);
    EXPECT_EQ(line.find("95002.41"), 40u);

    struct L {
        int mz_decimals;
        const char* text;
    };
    for (const L& l : {L{1, "500.1\n1234.50"}, L{8, "500.12345679\n1234.50"}, L{0, "500\n1234.50"},
                       L{9, "500\n1234.50"}})
        EXPECT_EQ(LabelPeakText(r.mass, r.height, l.mz_decimals, 2), l.text);

    PeakTable table;
    table.rows = {r, r};
    table.rows[1].mass += 1.0;
    Settings st = default_settings();
    st.PEAKMZ = 2;
    st.PEAKABUN = 0;
    std::vector<PeakLabel> labels;
    EXPECT_EQ(LabelPeaks(table, {true, false}, st, labels), 1);
    EXPECT_EQ(labels[0].text, "500.12\n1234");  // 1234.5 rounds to even
    EXPECT_EQ(LabelPeaks(table, {true, true}, st, labels), 1);  // the first is there already
    EXPECT_EQ(labels.size(), 2u);
}

}  // namespace
}  // namespace vx
