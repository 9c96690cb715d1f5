#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "platform/ui.hpp"
#include "support/files.hpp"
#include "thrash/averagine.hpp"
#include "workspace/spectrum.hpp"

namespace vx {
namespace {

std::string bundled_table() { return std::string(VANTORIX_SOURCE_DIR) + "/data/averagine_lookup2.txt"; }

TEST(AveragineTable, BundledFileIsTheGeneratorsOutputByteForByte) {
    EXPECT_EQ(test::read_file(bundled_table()), averagine_table_text());
}

TEST(AveragineTable, RowsHaveTheAnalyticMeanAndVarianceOfTheirComposition) {
    for (int r : {0, 1, 19, 59, 149}) {
        SCOPED_TRACE(r);
        const Composition c = averagine_composition((r + 1) * 500.0);
        // The composition is the one of its nominal mass: H made up the rest.
        EXPECT_NEAR(monoisotopic_mass(c), (r + 1) * 500.0, 1.0);
        const auto row = averagine_row_percent(r);
        const double sum = std::accumulate(row.begin(), row.end(), 0.0);
        double mean = 0.0, m2 = 0.0;
        for (int k = 0; k < AVERAGINE_WIDTH; ++k) {
            mean += k * row[k] / sum;
            m2 += double(k) * k * row[k] / sum;
        }
        EXPECT_NEAR(mean, analytic_shift_mean(c), 1e-6 * std::max(1.0, mean));
        EXPECT_NEAR(m2 - mean * mean, analytic_shift_variance(c), 1e-5 * std::max(1.0, m2 - mean * mean));
    }
}

TEST(AveragineTable, MeanMassOfEachLevelLiesBetweenItsExtremes) {
    // C2H6O: level 1 holds 13C, 2H and 17O isotopologues; its mean mass is
    // their abundance-weighted mean, not mono + 1.00335.
    const Composition c{2, 6, 0, 1, 0};
    const IsotopeLevels lv = isotope_levels(c, 5);
    const double mono = monoisotopic_mass(c);
    EXPECT_NEAR(lv.mean_mass[0], mono, 1e-9);
    const double p13 = 2 * 0.0107 / 0.9893, p2h = 6 * 0.000115 / 0.999885, p17 = 0.00038 / 0.99757;
    const double expect = mono + (p13 * 1.0033548378 + p2h * (2.0141017778 - 1.00782503207) +
                                  p17 * (16.99913170 - 15.99491461956)) / (p13 + p2h + p17);
    EXPECT_NEAR(lv.mean_mass[1], expect, 1e-9);
    EXPECT_NEAR(std::accumulate(lv.probability.begin(), lv.probability.end(), 0.0), 1.0, 1e-9);
}

TEST(AveragineTable, MissingOrMalformedTableGivesTheMessageAndTheAbortFlag) {
    test::TempDir dir;
    std::string long_record = "101";
    for (int i = 0; i < 101; ++i) long_record += " 1";
    const struct {
        const char* name;
        std::string text;  // empty name: no file at all
    } cases[] = {
        {"missing", ""},
        {"short.txt", "3 100 50\n"},
        {"count.txt", long_record},
        {"letters.txt", "2 100 abc\n"},
        {"few.txt", "1 100\n1 100\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = c.text.empty() ? dir.file("none.txt") : dir.write(c.name, c.text);
        RecordingUi ui;
        AveragineTable t;
        t.rows[0][0] = 7.0;
        bool abort = false;
        EXPECT_EQ(ReadAveragineTable(t, ui, &abort, path), -1);
        EXPECT_TRUE(abort);
        EXPECT_TRUE(ui.saw("Can't find file", "The file averagine_lookup2.txt could not be found. This file is "
                                              "required to do THRASH calculations."));
        EXPECT_EQ(t.rows[0][0], 0.0);
    }
    RecordingUi ui;
    AveragineTable t;
    bool abort = false;
    ASSERT_EQ(ReadAveragineTable(t, ui, &abort, bundled_table()), 0);
    EXPECT_FALSE(abort);
    EXPECT_DOUBLE_EQ(t.rows[0][0], 1.0);  // percent divided by 100
    EXPECT_EQ(t.rows[0][99], 0.0);       // past n
}

// A table of known rows: row r holds r + 1 at element 0 and 0.5 at element 1.
AveragineTable marked_table() {
    AveragineTable t;
    for (int r = 0; r < AVERAGINE_ROWS; ++r) {
        t.rows[r][0] = r + 1;
        t.rows[r][1] = 0.5 * (r + 1);
    }
    return t;
}

TEST(AveragineModel, InterpolatesBetweenRowsAndClampsAtTheEnds) {
    const AveragineTable t = marked_table();
    Spectrum s;
    s.Aterm = 1.0e8;  // positive ions: the proton is added to m/z x charge
    const ModelSettings model;
    const struct {
        double mass;
        double expect0;
    } cases[] = {{500.0, 1.0}, {750.0, 1.5}, {1000.0, 2.0}, {100000.0, 150.0}, {100.0, 1.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mass);
        std::array<double, AVERAGINE_WIDTH> p{};
        const double mz = c.mass - THRASH_PROTON;
        EXPECT_EQ(distrib_calculation(mz, 1, p.data(), nullptr, 1, t, s, model), 2.0);
        EXPECT_NEAR(p[0], c.expect0, 1e-9);
        EXPECT_NEAR(p[1], c.expect0 / 2, 1e-9);
        EXPECT_EQ(p[2], -1.0);
    }
    // Negative ions: the proton comes off.
    s.Aterm = -1.0;
    std::array<double, AVERAGINE_WIDTH> p{};
    distrib_calculation(1000.0 + THRASH_PROTON, 2, p.data(), nullptr, 0, t, s, model);
    EXPECT_NEAR(p[0], 4.0, 1e-9);
}

TEST(AveragineModel, StartEndAndMostAbundantIndex) {
    Spectrum s;
    const ModelSettings model;
    AveragineTable t;
    // A first value below 0.00001 is skipped yet keeps its place.
    t.rows[0] = {};
    t.rows[0][0] = 0.000001;
    t.rows[0][1] = 0.2;
    t.rows[0][2] = 1.0;
    t.rows[0][3] = 0.5;
    t.rows[0][4] = 0.01;  // 1 % of the maximum ends the pattern
    t.rows[0][5] = 0.4;
    std::array<double, AVERAGINE_WIDTH> p{};
    EXPECT_EQ(distrib_calculation(500.0 - THRASH_PROTON, 1, p.data(), nullptr, 1, t, s, model), 4.0);
    EXPECT_EQ(distrib_calculation(500.0 - THRASH_PROTON, 1, p.data(), nullptr, 2, t, s, model), 2.0);
    EXPECT_EQ(p[0], 0.000001);
    EXPECT_EQ(p[4], -1.0);
    EXPECT_EQ(p[5], 0.0);
    // Never under 1 %: the pattern ends at index 99.
    for (auto& v : t.rows[0]) v = 1.0;
    EXPECT_EQ(distrib_calculation(500.0 - THRASH_PROTON, 1, p.data(), nullptr, 1, t, s, model), 99.0);
    EXPECT_EQ(p[99], -1.0);
}

TEST(AveragineModel, AdductFeedsItselfInRisingOrder) {
    AveragineTable t;
    t.rows[0][0] = 1.0;
    Spectrum s;
    ModelSettings model;
    model.adduct_on = true;
    model.adduct_offset = 1;
    model.adduct_ratio = 2.0;
    std::array<double, AVERAGINE_WIDTH> p{};
    const double len = distrib_calculation(500.0 - THRASH_PROTON, 1, p.data(), nullptr, 1, t, s, model);
    // 1, 1/2, 1/4, 1/8, ... down to 1 % of the top: 2^-7 < 0.01.
    EXPECT_EQ(len, 7.0);
    for (int k = 0; k < 7; ++k) EXPECT_DOUBLE_EQ(p[k], std::pow(0.5, k));
}

TEST(AveragineModel, BinomialSampleTypes) {
    Spectrum s;
    ModelSettings model;
    model.sample_type = 1;
    const AveragineTable t;
    std::array<double, AVERAGINE_WIDTH> p{};
    // Type 1 at M = 3088.006 + ...: n = trunc(trunc(M / 308.8006) x 0.1494 / 0.011).
    const double mz = 3100.0 - THRASH_PROTON;
    const long n = static_cast<long>(std::trunc(std::trunc(3100.0 / 308.8006) * 0.1494000000000142 / 0.010999999999999233));
    ASSERT_EQ(n, 135);
    const double len = distrib_calculation(mz, 1, p.data(), nullptr, 1, t, s, model);
    EXPECT_NEAR(p[0], std::pow(0.9889, n), 1e-12);
    EXPECT_NEAR(p[1], p[0] * n * 0.011 / 0.9889, 1e-12);
    EXPECT_EQ(p[static_cast<int>(len)], -1.0);
    EXPECT_EQ(distrib_calculation(mz, 1, p.data(), nullptr, 2, t, s, model), 1.0);
    const auto chain = cdistrib(mz, 1, 1, false, 0.0, 0);
    ASSERT_GT(chain.size(), 3u);
    EXPECT_EQ(chain[0].second, 0);
    EXPECT_EQ(chain[3].second, 3);
}

TEST(AveragineModel, ReliabilityRowsByCharge) {
    const struct {
        int charge;
        double fom;
        double expect;
    } cases[] = {
        {1, 2.0, std::exp(-17.26 * std::pow(2.0, -1.6591))},
        {2, 2.0, std::exp(-19.504 * std::exp(-0.44115 * 2.0))},
        {3, 2.0, std::exp(-73.032 * std::pow(2.0, -2.4782))},
        {4, 5.0, std::exp(-500 * std::pow(5.0, -3.4658))},
        {5, 2.0, std::exp(-27.37 * std::exp(-0.62158 * 2.0))},
        {6, 5.0, std::exp(-1000 * std::pow(5.0, -4.2))},
        {7, 2.0, std::exp(-30 * std::exp(-0.65 * 2.0))},
        {8, 2.0, std::exp(-17.028 * std::exp(-0.60405 * 2.0))},
        {9, 2.0, std::exp(-18.901 * std::exp(-0.58 * 2.0))},
        {15, 2.0, std::exp(-18.901 * std::exp(-0.58 * 2.0))},
        {16, 2.0, std::exp(-6 * std::exp(-0.4 * 2.0))},
        {40, 30.0, std::exp(-6 * std::exp(-0.4 * 30.0))},
        {1, 0.0, 0.0},
        {3, -1.0, 0.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.charge);
        const double rl = convert_FOM_to_RL(c.fom, c.charge);
        EXPECT_NEAR(rl, c.expect, 1e-12);
        EXPECT_LE(rl, 1.0);
    }
    EXPECT_EQ(rl_text(convert_FOM_to_RL(30.0, 40)), "99%+");
    EXPECT_EQ(rl_text(0.99), "99.00%");
    EXPECT_EQ(rl_text(0.5), "50.00%");
}

}  // namespace
}  // namespace vx
