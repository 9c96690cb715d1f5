// "vantorix peaks" as a user runs it: the bundled sample with no option, the
// S/N options, and output that a pipe can take (results on stdout, the
// diagnostics of the working functions on stderr and only when asked).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

const std::string SAMPLE = std::string(VANTORIX_SOURCE_DIR) + "/data/sample.dat";

std::vector<double> sample_ions() {
    std::ifstream in(std::string(VANTORIX_SOURCE_DIR) + "/data/sample_ions.csv");
    std::vector<double> mz;
    std::string line;
    while (std::getline(in, line))
        if (!line.empty() && std::isdigit(static_cast<unsigned char>(line[0]))) mz.push_back(std::stod(line));
    return mz;
}

class PeaksCli : public ::testing::Test {
protected:
    test::CliRun run(const std::string& args) const { return test::run_cli(dir_.file("home"), args); }
    std::string out(const std::string& name) const { return fmt::format("'{}'", dir_.file(name)); }
    test::TempDir dir_;
};

TEST_F(PeaksCli, SampleGivesItsEightIonsWithNoOption) {
    const std::vector<double> ions = sample_ions();
    ASSERT_EQ(ions.size(), 8u);
    test::CliRun r = run("peaks '" + SAMPLE + "' -o " + out("s.pks") + " --json");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const auto j = nlohmann::json::parse(r.out);
    ASSERT_EQ(j["peakcount"], 8) << r.out;
    for (std::size_t k = 0; k < ions.size(); ++k) {
        // Ascending m/z, each within 10 ppm of its ion.
        const double mz = j["peaks"][k]["mz"].get<double>();
        EXPECT_LT(std::fabs(mz - ions[k]) / ions[k] * 1e6, 10.0) << ions[k];
    }
    // The text form: the table's status line and the file's, nothing else.
    r = run("peaks '" + SAMPLE + "' -o " + out("t.pks"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out.rfind("Traditional Peaklist Analysis revealed 8 peaks in ", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("\nwrote " + dir_.file("t.pks") + ": 8 peaks from m/z "), std::string::npos) << r.out;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2);
}

TEST_F(PeaksCli, SnThresholdsAreTheFactorsAndTheHeaderSaysSo) {
    // Robust noise at 10 widths: the eight ions; the header names the factors.
    test::CliRun r = run("peaks '" + SAMPLE + "' --sn --robust-noise --threshold 10 --noise-threshold 4 -o " + out("a.pks"));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string pks = test::read_file(dir_.file("a.pks"));
    EXPECT_EQ(pks.rfind("There were 8 Peaks found", 0), 0u) << pks.substr(0, 200);
    EXPECT_NE(pks.find("\nNoise threshold: 4.000000        Peak threshold: 10.000000\r\n"), std::string::npos);
    // The factor acts: three widths let the tallest noise through.
    r = run("peaks '" + SAMPLE + "' --sn --robust-noise --threshold 3 --json -o " + out("b.pks"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_GT(nlohmann::json::parse(r.out)["peakcount"].get<int>(), 8);
    // The same factor twice over is refused.
    r = run("peaks '" + SAMPLE + "' --sn --threshold 10 --peak-sigma 5 -o " + out("c.pks"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("Operator Error: With --sn, --threshold is the peak sigma factor"), std::string::npos) << r.err;
    // The literal S/N search keeps the levels it always had (the ratchet),
    // and by abundance the header keeps the absolute levels.
    r = run("peaks '" + SAMPLE + "' --threshold 30 --noise-threshold 6 -o " + out("d.pks"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(test::read_file(dir_.file("d.pks")).find("\nNoise threshold: 6.000000        Peak threshold: 30.000000\r\n"),
              std::string::npos);
}

TEST_F(PeaksCli, EveryWrittenPeakHasAnSn) {
    for (const char* extra : {"--reborn --sn", "--reborn --sn --robust-noise", "--reborn", "--sn", "--sn --robust-noise --threads 2"}) {
        SCOPED_TRACE(extra);
        const std::string args = std::string(extra).find("--reborn") != std::string::npos
                                     ? " --threshold 200 --noise-threshold 50"
                                     : "";
        const test::CliRun r = run("peaks '" + SAMPLE + "' " + extra + args + " --json -o " + out("r.pks"));
        ASSERT_EQ(r.status, 0) << r.err;
        const auto j = nlohmann::json::parse(r.out);
        ASSERT_GT(j["peakcount"].get<int>(), 0);
        for (const auto& p : j["peaks"]) EXPECT_NE(p["sn"].get<double>(), -1.0) << p["mz"];
        EXPECT_EQ(test::read_file(dir_.file("r.pks")).find(" -1.0000\r\n"), std::string::npos);
    }
    // With robust noise the reborn list's S/N is the ions' own, in the thousands.
    const test::CliRun r =
        run("peaks '" + SAMPLE + "' --reborn --sn --robust-noise --threshold 200 --noise-threshold 50 --json -o " + out("r.pks"));
    const auto robust = nlohmann::json::parse(r.out);
    for (const auto& p : robust["peaks"]) EXPECT_GT(p["sn"].get<double>(), 1000.0) << p["mz"];
}

TEST_F(PeaksCli, GlobalNoiseTakesTheRangeAsItsWindow) {
    struct Row {
        std::string args;
        double window;  // 0: the range's width
    };
    const std::vector<Row> rows = {{"--sn", 5.0},
                                   {"--sn --global-noise", 0.0},
                                   {"--sn --global-noise --low-mass 300 --high-mass 700", 0.0},
                                   {"--noise-window 12", 12.0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.args);
        const test::CliRun r = run("peaks '" + SAMPLE + "' " + row.args + " --json -o " + out("g.pks"));
        ASSERT_EQ(r.status, 0) << r.err;
        const auto j = nlohmann::json::parse(r.out);
        const double range = j["high_mass"].get<double>() - j["low_mass"].get<double>();
        EXPECT_NEAR(j["noise_window"].get<double>(), row.window > 0 ? row.window : range, 1e-9);
    }
}

TEST_F(PeaksCli, DiagnosticsOnlyOnStderrAndOnlyWhenAsked) {
    // Commands whose working functions print to the console: their stdout
    // parses, their diagnostics land on stderr with --verbose (before or after
    // the command's own options) and nowhere without it.
    struct Row {
        std::string args;
        bool json;
        const char* diagnostic;
    };
    const std::string reborn = fmt::format("peaks '{}' --reborn --threshold 200 --noise-threshold 50 ", SAMPLE);
    const std::vector<Row> rows = {
        {reborn + "--json -o " + out("v.pks"), true, "initMz = "},
        {reborn + "-o " + out("v.pks"), false, "oldSchoolIndex = "},
        {reborn + "--csv -o " + out("v.csv"), false, "peak 0 freq = "},
        {fmt::format("info '{}' --json", SAMPLE), true, nullptr},
        {fmt::format("convert '{}' --mz 500 --json", SAMPLE), true, nullptr},
    };
    for (const Row& row : rows) {
        for (const std::string& verbose : {std::string(), std::string("--verbose "), std::string(" -v")}) {
            const bool before = verbose.rfind("--", 0) == 0;
            const std::string args = before ? fmt::format("{}{}", verbose, row.args) : fmt::format("{}{}", row.args, verbose);
            SCOPED_TRACE(args);
            const test::CliRun r = run(args);
            ASSERT_EQ(r.status, 0) << r.err;
            if (row.json) {
                EXPECT_TRUE(nlohmann::json::accept(r.out)) << r.out;
            }
            for (const char* word : {"initMz", "oldSchoolIndex", "NewVantorixPeakPick", "peak 0 freq"})
                EXPECT_EQ(r.out.find(word), std::string::npos) << r.out;
            if (row.diagnostic) {
                EXPECT_EQ(r.err.find(row.diagnostic) != std::string::npos, !verbose.empty()) << r.err;
            }
        }
    }
}

}  // namespace
}  // namespace vx
