// The THRASH panels' core: Mass and newmatch on one cluster, the sequence
// put into a table found before it, and the plot panel's Zdet, Analysis and
// "Analysis Report".
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include <fmt/format.h>

#include "clusters.hpp"
#include "platform/ui.hpp"
#include "thrash/mass_determination.hpp"
#include "thrash/plot_panel.hpp"
#include "thrash/sequence.hpp"
#include "workspace/settings.hpp"

namespace vx {
namespace {

using test::UBIQUITIN;
const char* const UBIQUITIN_SEQUENCE =
    "MQIFVKTLTGKTITLEVEPSDTIENVKAKIQDKEGIPPDQQRLIFAGKQLEDGRTLSDYNIQKESTLHLVLRLRGG";

// Ubiquitin at charge 8 alone, S/N about 200.
struct OneCluster {
    Spectrum s = test::protein_spectrum();
    double mono = monoisotopic_mass(UBIQUITIN);
    double top_mz = 0.0;
    int idx = 0;
    OneCluster() {
        auto ions = test::cluster_ions({UBIQUITIN, 8, 400.0}, s);
        test::add_ions(s, ions);
        test::add_rayleigh_noise(s, 1.0, 5);
        std::array<double, AVERAGINE_WIDTH> p{};
        idx = static_cast<int>(distrib_calculation((mono + 8 * 1.00727) / 8, 8, p.data(), nullptr, 2, test::bundled_averagine(), s,
                                                   ModelSettings{}));
    }
    double low() const { return (mono + 8 * 1.00727) / 8 - 0.5; }
    double high() const { return (mono + 8 * 1.00727) / 8 + 3.0; }
};

OneCluster& cluster() {
    static OneCluster c;
    return c;
}

TEST(MassDetermination, MassAndNewmatchFindTheClusterAndWordTheirLines) {
    OneCluster& c = cluster();
    ThrashParams p;
    struct Case {
        const char* name;
        int charge;  // 0: Mass, else newmatch
    };
    for (const Case& k : {Case{"Mass", 0}, Case{"newmatch 8", 8}}) {
        SCOPED_TRACE(k.name);
        RecordingUi ui;
        MassDetermination m;
        const int rc = k.charge ? newmatch(c.s, c.low(), c.high(), k.charge, p, test::bundled_averagine(), m, ui)
                                : Mass(c.s, c.low(), c.high(), p, test::bundled_averagine(), m, ui);
        ASSERT_EQ(rc, 0);
        ASSERT_TRUE(m.found);
        EXPECT_EQ(m.peak.charge, 8);
        // The proton stands for the spacing: low by idx x 0.00492.
        EXPECT_NEAR(m.peak.monoisotopic_mass, c.mono - c.idx * 0.00492, 0.05);
        EXPECT_EQ(m.most_abundant_index, c.idx);
        EXPECT_NEAR(m.mostabundant_mass, m.peak.monoisotopic_mass + c.idx * 1.00254, 1e-9);
        ASSERT_EQ(m.lines.size(), 8u);
        EXPECT_EQ(m.lines[0], "Charge: 8");
        EXPECT_EQ(m.lines[1].rfind("Monoisotopic M/Z: ", 0), 0u);
        EXPECT_EQ(m.lines[2].rfind("Most abundant M/Z: ", 0), 0u);
        EXPECT_EQ(m.lines[3].rfind("Monoisotopic mass: 8559.", 0), 0u);
        EXPECT_NE(m.lines[4].find(" - " + std::to_string(m.peak.distrib_size)), std::string::npos);
        EXPECT_EQ(m.lines[5].rfind("RL value: ", 0), 0u);
        EXPECT_EQ(m.lines[5].back(), m.lines[5] == "RL value: 99%+" ? '+' : '%');
        EXPECT_EQ(m.lines[6], "Assignment: N/A");
        EXPECT_EQ(m.lines[7], "Mass error: N/A");
        EXPECT_TRUE(c.s.data2.empty());
    }
}

TEST(MassDetermination, BadRangesAndChargesAreRefused) {
    OneCluster& c = cluster();
    ThrashParams p;
    p.max_charge = 60;
    struct Case {
        const char* name;
        double lo, hi;
        int charge;
    };
    for (const Case& k : {Case{"reversed", c.high(), c.low(), 0}, Case{"empty", c.low(), c.low(), 0},
                          Case{"outside the data", 5.0e6, 6.0e6, 0}, Case{"not a number", NAN, c.high(), 0},
                          Case{"charge 0 in newmatch", c.low(), c.high(), -1}, Case{"charge above the maximum", c.low(), c.high(), 61}}) {
        SCOPED_TRACE(k.name);
        RecordingUi ui;
        MassDetermination m;
        const int rc = k.charge ? newmatch(c.s, k.lo, k.hi, k.charge < 0 ? 0 : k.charge, p, test::bundled_averagine(), m, ui)
                                : Mass(c.s, k.lo, k.hi, p, test::bundled_averagine(), m, ui);
        EXPECT_EQ(rc, -1);
        EXPECT_FALSE(m.found);
        EXPECT_EQ(ui.popup_texts().size(), 1u);
    }
    // Noise only: no cluster, said so, no crash.
    Spectrum quiet = test::protein_spectrum(1 << 16);
    test::add_rayleigh_noise(quiet, 1.0, 9);
    RecordingUi ui;
    MassDetermination m;
    EXPECT_EQ(Mass(quiet, 900.0, 902.0, ThrashParams{}, test::bundled_averagine(), m, ui), 0);
    if (!m.found) {
        EXPECT_EQ(m.lines, std::vector<std::string>{"Isotope clusters found = 0"});
    }
}

TEST(MassDetermination, SequenceAssignsTheMolecularIonInMassWording) {
    OneCluster& c = cluster();
    RecordingUi ui;
    SequenceTables t;
    t.tolerance = 0.1;
    ASSERT_EQ(seqOK(UBIQUITIN_SEQUENCE, t, ui), 0);
    EXPECT_NEAR(t.protein_mass, c.mono, 0.01);
    ThrashParams p;
    p.sequence = &t;
    MassDetermination m;
    ASSERT_EQ(Mass(c.s, c.low(), c.high(), p, test::bundled_averagine(), m, ui), 0);
    ASSERT_TRUE(m.found);
    ASSERT_GE(m.lines.size(), 9u);
    EXPECT_EQ(m.lines[6], "Assignment: Molecular Ion");
    EXPECT_EQ(m.lines[7].rfind("Theoretical mass: 8559.6", 0), 0u);
    EXPECT_EQ(m.lines[8].substr(m.lines[8].size() - 4), " ppm");
    EXPECT_EQ(m.rows.front().assignment_text, "Molecular Ion");
    // Out of tolerance: "None".
    t.tolerance = 0.001;
    ASSERT_EQ(Mass(c.s, c.low(), c.high(), p, test::bundled_averagine(), m, ui), 0);
    EXPECT_EQ(m.lines[6], "Assignment: None");
    EXPECT_EQ(m.lines[7], "Mass error: N/A");
}

TEST(MassDetermination, MassWordingOfEveryKind) {
    SequenceTables t;
    t.name = "P";
    struct Case {
        SequenceAssignment a;
        const char* text;
    };
    auto A = [](int kind, int first, int last, bool h2o = false, bool nh3 = false) {
        SequenceAssignment a;
        a.kind = kind;
        a.first = first;
        a.last = last;
        a.minus_h2o = h2o;
        a.minus_nh3 = nh3;
        return a;
    };
    const Case cases[] = {
        {A(KIND_B, 1, 12), "Assignment: b - 12"},
        {A(KIND_B, 1, 12, true), "Assignment: b - 12 - H2O"},
        {A(KIND_C, 1, 4), "Assignment: c - 4"},
        {A(KIND_Y, 70, 76), "Assignment: y - 7"},
        {A(KIND_Z, 70, 76), "Assignment: z - 7"},
        {A(KIND_INTERNAL, 3, 9), "Assignment: i - 3 - 9"},
        {A(KIND_A, 1, 5), "Assignment: a- 5"},
        {A(KIND_MOLECULAR_ION, 1, 76), "Assignment: Molecular Ion"},
        {A(KIND_MOLECULAR_ION, 1, 76, true), "Assignment: Molecular Ion - H20"},  // the zero stays
        {A(KIND_MOLECULAR_ION, 1, 76, false, true), "Assignment: Molecular Ion - NH3"},
        {A(KIND_NONE, 0, 0), "Assignment: no assignment"},
    };
    for (const Case& k : cases) EXPECT_EQ(mass_assignment_text(t, k.a), k.text);
}

TEST(MassDetermination, SpanSigmaCountsInAbsoluteBinsOfFivehundredths) {
    // Baseline near 5 with a spread of 0.5: a width of a few bins.
    Spectrum s = test::protein_spectrum(1 << 16);
    test::add_rayleigh_noise(s, 0.5, 2);
    for (float& v : s.data) v += 5.0f;
    const double sigma = mass_span_sigma(s, 900.0, 920.0);
    EXPECT_GT(sigma, 0.05);
    EXPECT_LT(sigma, 1.5);
    // Every point above the 25 the bins reach: no width at all, whatever the
    // noise (the fit takes the noise of the whole spectrum instead).
    for (float& v : s.data) v += 100.0f;
    EXPECT_EQ(mass_span_sigma(s, 900.0, 920.0), 0.0);
    EXPECT_EQ(mass_span_sigma(s, 920.0, 900.0), 0.0);
}

TEST(MassDetermination, ReassignRowsMakesOneRowPerAssignment) {
    RecordingUi ui;
    SequenceTables t;
    t.tolerance = 0.01;
    ASSERT_EQ(seqOK("GASPK", t, ui), 0);
    const double b3 = 57.02146 + 71.03711 + 87.03203;
    std::vector<ThrashPeak> rows(3);
    rows[0].charge = 1;
    rows[0].monoisotopic_mz = b3 + 1.00727;
    rows[1] = rows[0];
    rows[1].continuation = true;  // an old continuation row: made again
    rows[1].assignment_text = "stale";
    rows[2].charge = 1;
    rows[2].monoisotopic_mz = 5000.0;
    const auto out = reassign_rows(rows, &t, 1.0);
    ASSERT_GE(out.size(), 2u);
    EXPECT_EQ(out[0].assignment_text, "b3");
    EXPECT_FALSE(out[0].continuation);
    EXPECT_GT(out[0].theoretical_mass, 0.0);
    EXPECT_EQ(out.back().assignment_text, "None");
    for (const auto& r : out) EXPECT_NE(r.assignment_text, "stale");
    const auto plain = reassign_rows(rows, nullptr, 1.0);
    ASSERT_EQ(plain.size(), 2u);
    EXPECT_EQ(plain[0].assignment_text, "N/A");
    EXPECT_EQ(plain[0].mass_error_text, "N/A");
    EXPECT_EQ(plain[0].theoretical_mass, 0.0);
}

TEST(PlotPanel, ZdetFindsTheChargeOfTheTallestCluster) {
    for (int z : {1, 4, 9, 20}) {
        SCOPED_TRACE(z);
        Spectrum s = test::protein_spectrum();
        test::add_ions(s, test::comb_ions(900.3, z, 100.0, 150000.0));
        // A smaller cluster elsewhere does not take the top.
        test::add_ions(s, test::comb_ions(905.0, 2, 40.0, 150000.0));
        test::add_rayleigh_noise(s, 0.5, 7u + z);
        PlotData d = reassign_display(s, 890.0, 912.0);
        RecordingUi ui;
        ZdetResult r;
        ASSERT_EQ(zdet(d, r, ui), 0);
        EXPECT_NEAR(r.mz, 900.3, 2.0 / z);
        EXPECT_EQ(r.charge, z);
        EXPECT_NEAR(r.mass, (r.mz - 1.0) * z, 1e-9);
        EXPECT_EQ(r.label, fmt::format("{:10.4f} ({}+)", r.mass, z));
        EXPECT_GT(r.threshold, 0.5);
        EXPECT_LT(r.threshold, 100.0);
    }
    RecordingUi ui;
    ZdetResult r;
    EXPECT_EQ(zdet(PlotData{}, r, ui), -1);
    EXPECT_EQ(ui.popup_texts().size(), 1u);
}

TEST(PlotPanel, AnalysisCentroidAndArea) {
    // A triangle on a background of 2: top 10 above it at x = 5.
    std::vector<double> x, y;
    for (int i = 0; i <= 20; ++i) {
        x.push_back(i * 0.5);
        y.push_back(2.0 + std::max(0.0, 10.0 - 4.0 * std::fabs(i * 0.5 - 5.0)));
    }
    RecordingUi ui;
    ui.confirms = {true};
    PlotAnalysis a;
    ASSERT_EQ(plot_analysis(x, y, 0.0, 10.0, 2.0, a, ui), 0);
    EXPECT_NEAR(a.centroid, 5.0, 1e-12);
    EXPECT_NEAR(a.area, 25.0, 1e-12);  // half of base 5 times height 10
    EXPECT_EQ(a.text, " centroid =     5.0000 area =   25.000");
    EXPECT_TRUE(ui.saw("Analysis", "Background Setting OK?"));
    // "No" to the background: nothing measured.
    ui.confirms = {false};
    EXPECT_EQ(plot_analysis(x, y, 0.0, 10.0, 2.0, a, ui), 1);
    EXPECT_EQ(a.text, "");
    // Cursors about one point only.
    EXPECT_EQ(plot_analysis(x, y, 4.9, 5.1, 2.0, a, ui), -1);
    struct Area {
        double area;
        const char* text;
    };
    for (const Area& k : {Area{25.0, " area =   25.000"}, Area{123456.0, " area =1.235e+05"},
                          Area{0.0001, " area =1.000e-04"}, Area{0.0, " area =    0.000"}})
        EXPECT_EQ(area_text(k.area), k.text);
}

TEST(PlotPanel, AnalysisReportTextAndTheLimitItSets) {
    const std::vector<double> x{1, 2, 3, 4, 5, 6};
    const std::vector<double> y{100, 2, 4, 4, 6, 100};  // only x 2..5 are selected
    RecordingUi ui;
    AnalysisReport r;
    ASSERT_EQ(analysis_report(x, y, 5.5, 1.5, r, ui), 0);
    EXPECT_EQ(r.points, 4);
    EXPECT_DOUBLE_EQ(r.mean, 4.0);
    EXPECT_NEAR(r.deviation, std::sqrt(8.0 / 3.0), 1e-12);  // n - 1
    EXPECT_EQ(r.text, fmt::format("Average: 4.000000\nStandard Deviation: {:f}\nThreshhold for baseline  plus 3 sigma:  "
                                  "{:f}\nThreshhold for baseline  plus 6 sigma: {:f}\nInput 3 (for 3 sigma) or 6 (for "
                                  "6 sigma) to push values to peak picking panel.",
                                  r.deviation, 4.0 + 3 * r.deviation, 4.0 + 6 * r.deviation));
    struct Case {
        const char* answer;
        int rc;
        double factor;
    };
    for (const Case& k : {Case{"3", 0, 3.0}, Case{" 6 ", 0, 6.0}, Case{"2", 0, 2.0}, Case{"1.5", -1, 0.0},
                          Case{"abc", -1, 0.0}, Case{"3x", -1, 0.0}, Case{"", 1, 0.0}}) {
        SCOPED_TRACE(k.answer);
        Settings st;
        const Settings before = st;
        RecordingUi u;
        EXPECT_EQ(apply_report_limit(r, k.answer, st, u), k.rc);
        if (k.rc == 0) {
            EXPECT_DOUBLE_EQ(st.peak_sigma_factor, k.factor);
            EXPECT_DOUBLE_EQ(st.noise_threshold, r.mean + k.factor * r.deviation);
        } else {
            EXPECT_EQ(st.noise_threshold, before.noise_threshold);
            EXPECT_EQ(st.peak_sigma_factor, before.peak_sigma_factor);
        }
        if (k.rc == -1) {
            EXPECT_TRUE(u.saw("Current Lower Limit for S/N thrshold is 2", "Please choose a limit of 2 or greater"));
        }
    }
    // The whole exchange: the report shown as the prompt under its title.
    Settings st;
    RecordingUi u;
    u.prompts = {std::string("6")};
    EXPECT_EQ(run_analysis_report(x, y, 1.5, 5.5, st, u), 0);
    ASSERT_FALSE(u.messages.empty());
    EXPECT_EQ(u.messages.front().title, "Analysis Report");
    EXPECT_DOUBLE_EQ(st.peak_sigma_factor, 6.0);
    // One point selected: refused.
    EXPECT_EQ(analysis_report(x, y, 1.9, 2.1, r, u), -1);
}

}  // namespace
}  // namespace vx
