// The "convert" command of the command line, run as a program on the default header.
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/cli.hpp"
#include "support/files.hpp"

namespace {

namespace fs = std::filesystem;
using vx::test::CliRun;

class ConvertCli : public ::testing::Test {
protected:
    // Runs the command line with args; stderr joins stdout when merge is set.
    CliRun run(const std::string& args, bool merge = false) const {
        return vx::test::run_cli(home_.path().string(), args, merge);
    }
    vx::test::TempDir home_;
};

TEST_F(ConvertCli, MassesToPointsOnTheDefaultHeader) {
    const CliRun r = run("convert --no-file --mz 500 100 --json");
    ASSERT_EQ(r.status, 0) << r.out;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["source"], "default header");
    EXPECT_EQ(j["calibration"]["datacount"], 16384);
    ASSERT_EQ(j["conversions"].size(), 2u);
    const auto& c = j["conversions"][0];
    EXPECT_EQ(c["mz"], 500.0);
    EXPECT_NEAR(c["Mass_topt"].get<double>(), 1556.5191857215818, 1e-9);
    EXPECT_NEAR(c["Pt_tofreq"].get<double>(), 95002.3917066, 1e-6);
    EXPECT_NEAR(c["SMass_toPt"].get<double>(), 1556.5191857215818, 1e-8);
    EXPECT_NEAR(c["One_mass_topt"].get<double>(), 1556.5191857215818, 1e-9);
}

TEST_F(ConvertCli, PointsToMassesAsATable) {
    const CliRun r = run("convert --no-file --point 1 1556.5191857215818 16384");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out,
              "source: default header\n"
              "caltype 0, detectmode 0, filetype 0, rootselect 0\n"
              "Aterm 47536770.867829, Bterm -3379711463.376564, Cterm 0, Trapvoltage 1\n"
              "reffreq 0.000000 Hz, dbandwidth 1000000.000000 Hz, datacount 16384, walkingregions 0, walkingterms 0\n"
              "\n"
              "               point           Pt_tofreq           Pt_tomass          SPt_tomass       One_pt_tomass\n"
              "            1.000000           61.035156       100000.000000       100000.000000       100000.000000\n"
              "         1556.519186        95002.391707          500.000000          500.000000          500.000000\n"
              "        16384.000000      1000000.000000           47.533391           47.533391           47.533391\n");
}

TEST_F(ConvertCli, OverridesReachTheLaws) {
    // Bruker terms with a third term between the thresholds of the array forms:
    // frequency to mass takes the short form, point to mass the quadratic.
    CliRun r = run("convert --no-file --freq 122070.3125 --filetype 2 --aterm 1e8 --bterm 2000 --cterm 5e-5 --json");
    ASSERT_EQ(r.status, 0) << r.out;
    auto c = nlohmann::json::parse(r.out)["conversions"][0];
    EXPECT_NEAR(c["Freq_topt"].get<double>(), 2000.0, 1e-9);
    EXPECT_NEAR(c["Freq_tomass"].get<double>(), 1.0e8 / (122070.3125 + 2000.0), 1e-9);
    EXPECT_NEAR(c["Pt_tomass"].get<double>(), 1.0e8 / (122070.3125 - 2000.0), 1e-3);

    // Heterodyne detection and a zero trap voltage: m = A / f.
    r = run("convert --no-file --point 1000 --detectmode 1 --reffreq 100000 --trap-voltage 0 --bandwidth 2000000 "
            "--datacount 1000000 --json");
    ASSERT_EQ(r.status, 0) << r.out;
    c = nlohmann::json::parse(r.out)["conversions"][0];
    EXPECT_DOUBLE_EQ(c["Pt_tofreq"].get<double>(), 102000.0);
    EXPECT_DOUBLE_EQ(c["Pt_tomass"].get<double>(), 47536770.867829 / 102000.0);

    // Point 0 of direct data has no mass: JSON carries null.
    r = run("convert --no-file --point 0 --json");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(nlohmann::json::parse(r.out)["conversions"][0]["Pt_tomass"].is_null());
}

TEST_F(ConvertCli, CalibrationComesFromTheFileAndOverridesWin) {
    // A small v4 transient: heterodyne at 50 kHz, 1953.125 Hz a point, V = 2.
    const fs::path dat = home_.path() / "cal.dat";
    vx::test::write_file(dat.string(),
                         "Vantorix Data File v4.0\r\nData Points: 1024\r\nBandwidth: 2000000\r\n"
                         "Source Coeff0: 1.0e8\r\nSource Coeff1: -2.0e9\r\nTrap Voltage: -2\r\n"
                         "Detect Mode: 1\r\nReference Frequency: 50000\r\nData:\r\n" +
                             vx::test::int16_bytes(std::vector<std::int16_t>(1024, 7)));
    CliRun r = run("convert '" + dat.string() + "' --point 100 --json");
    ASSERT_EQ(r.status, 0) << r.out;
    auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["source"], dat.string());
    EXPECT_EQ(j["calibration"]["detectmode"], 1);
    auto c = j["conversions"][0];
    const double f = 100 * 1953.125 + 50000.0;
    EXPECT_DOUBLE_EQ(c["Pt_tofreq"].get<double>(), f);
    EXPECT_DOUBLE_EQ(c["Pt_tomass"].get<double>(), 1.0e8 / f - 2.0e9 * 2.0 / (f * f));

    r = run("convert '" + dat.string() + "' --point 100 --detectmode 0 --trap-voltage 1 --json");
    ASSERT_EQ(r.status, 0) << r.out;
    c = nlohmann::json::parse(r.out)["conversions"][0];
    EXPECT_DOUBLE_EQ(c["Pt_tofreq"].get<double>(), 195312.5);
    EXPECT_DOUBLE_EQ(c["SPt_tomass"].get<double>(), 1.0e8 / 195312.5 - 2.0e9 / (195312.5 * 195312.5));

    // Not a data file: the reader's own message and a failure.
    const fs::path junk = home_.path() / "junk.dat";
    vx::test::write_file(junk.string(), "hello\n");
    r = run("convert '" + junk.string() + "' --mz 500", true);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.rfind("File Input Error: ", 0), 0u) << r.out;
}

TEST_F(ConvertCli, EachOptionNamesWhatItTakesInAnyOrderWithTheFile) {
    // The same small transient as a file: the option says what the numbers
    // are, and the file may stand before, between or after them.
    const fs::path dat = home_.path() / "order.dat";
    vx::test::write_file(dat.string(), "Vantorix Data File v4.0\r\nData Points: 1024\r\nBandwidth: 2000000\r\n"
                                       "Source Coeff0: 1.0e8\r\nSource Coeff1: 0\r\nData:\r\n" +
                                           vx::test::int16_bytes(std::vector<std::int16_t>(1024, 7)));
    const std::string f = fmt::format("'{}'", dat.string());
    struct Row {
        std::string args;
        const char* given;    // key of the value given
        const char* derived;  // a key computed from it
        double value, expected;
    };
    const std::vector<Row> rows = {
        {"convert " + f + " --point 100 --json", "point", "Pt_tofreq", 100.0, 195312.5},
        {"convert --point 100 " + f + " --json", "point", "Pt_tofreq", 100.0, 195312.5},
        {"convert --json --point 100 " + f, "point", "Pt_tofreq", 100.0, 195312.5},
        {"convert --mz 512 " + f + " --json", "mz", "Pt_tofreq", 512.0, 1.0e8 / 512.0},
        {"convert " + f + " --mz 512 --json", "mz", "Mass_topt", 512.0, 1.0e8 / 512.0 / 1953.125},
        {"convert --freq 195312.5 " + f + " --json", "frequency", "Freq_topt", 195312.5, 100.0},
        {"convert --json " + f + " --freq 195312.5", "frequency", "Freq_tomass", 195312.5, 1.0e8 / 195312.5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.args);
        const CliRun r = run(row.args);
        ASSERT_EQ(r.status, 0) << r.out << r.err;
        const auto j = nlohmann::json::parse(r.out);
        EXPECT_EQ(j["source"], dat.string());
        ASSERT_EQ(j["conversions"].size(), 1u);
        EXPECT_DOUBLE_EQ(j["conversions"][0][row.given].get<double>(), row.value);
        EXPECT_NEAR(j["conversions"][0][row.derived].get<double>(), row.expected, 1e-9 * row.expected);
    }
    // Several values before the file: all of them, in order.
    const CliRun r = run("convert --point 1 2 3 " + f + " --json");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const auto j = nlohmann::json::parse(r.out);
    ASSERT_EQ(j["conversions"].size(), 3u);
    EXPECT_EQ(j["conversions"][2]["point"], 3.0);
}

TEST_F(ConvertCli, BadInvocationsSayWhy) {
    struct Row {
        const char* args;
        int status;
        const char* message;
    };
    const Row rows[] = {
        {"convert --no-file", 2, "Error: Give exactly one of --point, --mz or --freq, with at least one value.\n"},
        {"convert --no-file --mz 1 --point 2", 2,
         "Error: Give exactly one of --point, --mz or --freq, with at least one value.\n"},
        {"convert --point 1 a.dat b.dat", 2, "Error: \"b.dat\" is neither a number nor the only data file.\n"},
        {"convert a.dat --mz 500 b.dat", 2, "Error: \"b.dat\" is neither a number nor the only data file.\n"},
        {"convert --mz 1", 2, "Error: Give a data file or --no-file, not both and not neither.\n"},
        {"convert --no-file --mz 5 --datacount 0", 2, "Error: --datacount must be above 0 (got 0).\n"},
        {"convert --no-file --mz 5 --bandwidth -1", 2, "Error: --bandwidth must be above 0 (got -1).\n"},
        {"convert /nonexistent/x.dat --mz 5", 1, "File Input Error: Cannot open the file /nonexistent/x.dat.\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.args);
        const CliRun r = run(row.args, true);
        EXPECT_EQ(r.status, row.status);
        EXPECT_EQ(r.out, row.message);
    }
}

}  // namespace
