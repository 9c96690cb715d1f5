// vantorix calibrate and vantorix ref from the outside: the JSON object, the
// files written, and what bad input gives.
#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "calibration/reference_file.hpp"
#include "platform/ui.hpp"
#include "sim/simulator.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

std::string q(const std::string& s) { return "'" + s + "'"; }

struct Sample {
    test::TempDir dir;
    std::string home, dat, ref;
    std::vector<double> masses = {250.0, 333.3, 444.4, 555.5, 666.6, 777.7};
    Sample() {
        home = dir.file("home");
        dat = dir.file("s.dat");
        SimParameters p;
        p.points = 1 << 18;
        p.noise = 0.01;
        p.int_storage = false;
        p.lowfreq = 40000.0;
        p.highfreq = 300000.0;
        p.Aterm = DEFAULT_ATERM * (1 + 2e-5);  // the ions sit where a different law puts them
        std::vector<SimIon> ions;
        for (double m : masses) ions.push_back({m, 0.5, 0.0, 0.0, 1});
        RecordingUi ui;
        EXPECT_EQ(write_simulated_file(dat, p, ions, ui), 0);
        // The header says the default A: 20 ppm off.
        EXPECT_EQ(test::run_cli(home, "recal " + q(dat) + " --aterm 47536770.867829 --bterm -3379711463.376564 "
                                      "--full-precision -o " + q(dir.file("w.dat"))).status, 0);
        dat = dir.file("w.dat");
        ref = dir.write("cal.ref", reference_file_text(masses));
    }
};

TEST(CalibrateCli, JsonObjectTablesAndPeakList) {
    Sample s;
    const std::string table = s.dir.file("t.csv"), out = s.dir.file("out.pks");
    auto r = test::run_cli(s.home, "calibrate " + q(s.dat) + " --ref " + q(s.ref) +
                                       " --tolerance 50 --zerofills 2 --percent --threshold 5 --json --table " +
                                       q(table) + " -o " + q(out));
    ASSERT_EQ(r.status, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    for (const char* key : {"aterm", "bterm", "trapvoltage", "field", "rms_ppm", "walking_regions", "calibrants"})
        EXPECT_TRUE(j.contains(key)) << key;
    EXPECT_NEAR(j["aterm"].get<double>(), DEFAULT_ATERM * (1 + 2e-5), DEFAULT_ATERM * 1e-7);
    EXPECT_NEAR(j["field"].get<double>(), j["aterm"].get<double>() * 6.512114795548e-08, 1e-12);
    EXPECT_LT(j["rms_ppm"].get<double>(), 0.5);
    EXPECT_GT(j["rms_ppm_before"].get<double>(), 10.0);
    EXPECT_EQ(j["walking_regions"], 0);
    ASSERT_EQ(j["calibrants"].size(), s.masses.size());
    for (std::size_t i = 0; i < s.masses.size(); ++i) {
        const auto& c = j["calibrants"][i];
        for (const char* key : {"number", "frequency", "theoretical", "measured", "error_ppm"})
            EXPECT_TRUE(c.contains(key)) << key;
        EXPECT_EQ(c["theoretical"].get<double>(), s.masses[i]);
    }
    const std::string csv = test::read_file(table);
    EXPECT_EQ(csv.rfind("Calibration results from TULVA analysis\r\nNumber, Frequency,", 0), 0u);
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 2 + static_cast<long>(s.masses.size()));
    EXPECT_NE(test::read_file(out).find("250.000"), std::string::npos);

    // Walking, with the walking CSV beside the data file and the list of the
    // first run as the source of peaks.
    r = test::run_cli(s.home, "calibrate " + q(s.dat) + " --ref " + q(s.ref) + " --tolerance 50 --walking --json" +
                                  " --walking-csv --peaks " + q(out));
    ASSERT_EQ(r.status, 0) << r.err;
    const auto w = nlohmann::json::parse(r.out);
    EXPECT_EQ(w["walking_regions"], 5);
    EXPECT_EQ(w["caltype"], CALTYPE_WALKING);
    for (const auto& c : w["calibrants"]) EXPECT_NEAR(c["error_ppm"].get<double>(), 0.0, 1e-6);
    const std::string wcsv = test::read_file(s.dir.file("w_walkcal.csv"));
    EXPECT_EQ(std::count(wcsv.begin(), wcsv.end(), '\n'), 6);

    // An existing table is kept unless --overwrite.
    r = test::run_cli(s.home, "calibrate " + q(s.dat) + " --ref " + q(s.ref) + " --tolerance 50 --peaks " + q(out) +
                                  " --table " + q(table));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(test::read_file(table), csv);
}

TEST(CalibrateCli, BadInputChangesNothingAndSaysWhy) {
    Sample s;
    const std::string one = s.dir.write("one.ref", reference_file_text({250.0}));
    const std::string far = s.dir.write("far.ref", reference_file_text({5000.0, 6000.0}));
    const std::string junk = s.dir.write("junk.ref", "garbage\n;;\n[x]\nnan\n-5\n");
    struct Case {
        std::string args;
        const char* says;
    };
    const Case cases[] = {
        {"calibrate " + q(s.dat) + " --ref " + q(one) + " --tolerance 50", "Must check at least 2"},
        {"calibrate " + q(s.dat) + " --ref " + q(far) + " --tolerance 50", "Must check at least 2"},
        {"calibrate " + q(s.dat) + " --ref " + q(junk), "Must check at least 2"},
        {"calibrate " + q(s.dat) + " --ref " + q(s.dir.file("none.ref")), "Could not open calibration data file"},
        // Default limit of 1 ppm: the 20 ppm error of the header matches nothing.
        {"calibrate " + q(s.dat) + " --ref " + q(s.ref), "Must check at least 2"},
        {"calibrate " + q(s.dat) + " --ref " + q(s.ref) + " --tolerance 50 --units mz --walking-csv", ""},
    };
    const std::string before = test::read_file(s.dat);
    for (const Case& c : cases) {
        auto r = test::run_cli(s.home, c.args + " --table " + q(s.dir.file("t.csv")));
        if (*c.says == 0) {
            // Not walking: there is no walking table to write.
            EXPECT_EQ(r.status, 1);
            EXPECT_NE(r.err.find("No walking calibration has been loaded."), std::string::npos) << r.err;
            EXPECT_FALSE(fs::exists(s.dir.file("t.csv")));
            continue;
        }
        EXPECT_EQ(r.status, 1) << c.args;
        EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists(s.dir.file("t.csv"))) << c.args;
    }
    EXPECT_EQ(test::read_file(s.dat), before);
}

TEST(CalibrateCli, ReferenceFilesFromTheCommandLine) {
    test::TempDir dir;
    const std::string home = dir.file("home"), ref = dir.file("a.ref");
    const std::string ions = dir.write("ions.csv", "# ions\nmz,abundance\n195.08765,0.35\n322.04812,0.8\n");
    auto r = test::run_cli(home, "ref write " + q(ref) + " 100.5 --from " + q(ions));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(test::read_file(ref), "; Calibration file for TULVA analysis\r\n100.500000\r\n195.087650\r\n322.048120\r\n");
    r = test::run_cli(home, "ref write " + q(ref) + " 1.5");
    EXPECT_EQ(r.status, 1);  // exists; --overwrite replaces it
    r = test::run_cli(home, "ref write " + q(ref) + " 1.5 --overwrite");
    EXPECT_EQ(r.status, 0);
    r = test::run_cli(home, "ref read " + q(ref) + " --json");
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(nlohmann::json::parse(r.out)["masses"], nlohmann::json::array({1.5}));
    r = test::run_cli(home, "ref write " + q(dir.file("empty.ref")));
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(fs::exists(dir.file("empty.ref")));
}

}  // namespace
}  // namespace vx

namespace vx {
namespace {

TEST(CalibrateCli, QuickCalibrationOnACh2Series) {
    // Eight members of a CH2 series and two other ions; the header's A 20 ppm high.
    test::TempDir dir;
    const std::string home = dir.file("home"), truth = dir.file("t.dat"), wrong = dir.file("w.dat");
    const double ch2 = 2 * 1.00782503223 + 12.0;
    std::vector<SimIon> ions;
    for (int k = 0; k < 8; ++k) ions.push_back({301.2 + k * ch2, 0.5, 0.0, 0.0, 1});
    ions.push_back({333.333, 0.5, 0.0, 0.0, 1});
    ions.push_back({377.777, 0.5, 0.0, 0.0, 1});
    SimParameters p;
    p.points = 1 << 18;
    p.noise = 0.01;
    p.int_storage = false;
    p.lowfreq = 40000.0;
    p.highfreq = 300000.0;
    RecordingUi ui;
    ASSERT_EQ(write_simulated_file(truth, p, ions, ui), 0);
    ASSERT_EQ(test::run_cli(home, "recal " + q(truth) + " --aterm 47537721.603246 --bterm -3379711463.376564 "
                                  "--full-precision -o " + q(wrong)).status, 0);
    auto r = test::run_cli(home, "calibrate " + q(wrong) + " --series 301.2 --tolerance 50 --zerofills 2 --percent "
                                 "--threshold 5 --json");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["calibrants"].size(), 8u);
    EXPECT_LT(j["rms_ppm"].get<double>(), 0.5);
    // The file's true law is the default one: the series brings A back to it.
    EXPECT_NEAR(j["aterm"].get<double>() / DEFAULT_ATERM - 1.0, 0.0, 1e-6);
    // A reference file and a series together, or neither: refused.
    for (const std::string& args : {std::string(" --series 301.2 --ref x.ref"), std::string("")}) {
        auto bad = test::run_cli(home, "calibrate " + q(wrong) + args, true);
        EXPECT_NE(bad.status, 0) << args;
    }
}

}  // namespace
}  // namespace vx
