// "phase" and "peaks --absorption" run as programs: the JSON terms, the
// exports, stored terms that make the next run skip the search, the inverse
// path, and refusals with a non-zero exit.
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

class PhaseCli : public ::testing::Test {
protected:
    void SetUp() override {
        vx::test::write_file(path("ions.csv"), "mz,abundance,decay\n300,1.0,0.2\n520,0.7,0.2\n810,0.5,0.2\n1400,0.4,0.2\n");
        const CliRun r = run("simulate '" + path("ions.csv") + "' --points 32768 --noise 0.001 --date 2026-05-05 -o '" +
                             path("s.dat") + "'");
        ASSERT_EQ(r.status, 0) << r.out;
    }
    CliRun run(const std::string& args, bool merge = true) const {
        return vx::test::run_cli(dir_.file("home"), args, merge);
    }
    std::string path(const std::string& name) const { return dir_.file(name); }
    vx::test::TempDir dir_;
};

TEST_F(PhaseCli, TermsAsJsonExportsAndStoredTerms) {
    CliRun r = run("phase '" + path("s.dat") + "' --form initial --json -o '" + path("a.csv") + "' --dispersion '" +
                       path("d.bin") + "' --write-terms '" + path("t.dat") + "'",
                   false);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const nlohmann::json j = nlohmann::json::parse(r.out);
    for (const char* key : {"zeroorder", "zerodegrees", "firstorder", "secondorder", "score", "band_start", "band_end", "form"})
        EXPECT_TRUE(j.contains(key)) << key;
    EXPECT_EQ(j["form"], "initial");
    EXPECT_TRUE(j["searched"].get<bool>());
    EXPECT_EQ(j["zerodegrees"].get<int>(), j["applied_degrees"].get<int>() + 45);  // stored 45 degrees above
    EXPECT_LT(j["band_start"].get<long long>(), j["band_end"].get<long long>());
    EXPECT_GT(j["score"].get<double>(), 0.0);
    EXPECT_TRUE(fs::exists(path("a.csv")));
    EXPECT_EQ(fs::file_size(path("d.bin")), 16384u * 2 * 4);  // one zero-fill: 16384 points, float32

    // The copy with the terms phases without a search, to the same spectrum.
    CliRun s = run("phase '" + path("t.dat") + "' --json -o '" + path("b.csv") + "'", false);
    ASSERT_EQ(s.status, 0) << s.out << s.err;
    const nlohmann::json k = nlohmann::json::parse(s.out);
    EXPECT_EQ(k["form"], "stored");
    EXPECT_FALSE(k["searched"].get<bool>());
    EXPECT_EQ(vx::test::read_file(path("a.csv")).size(), vx::test::read_file(path("b.csv")).size());

    // Text form and the fixed constant.
    CliRun t = run("phase '" + path("s.dat") + "' --constant 30 --method iterate");
    ASSERT_EQ(t.status, 0) << t.out;
    EXPECT_NE(t.out.find("C Term 30\n"), std::string::npos) << t.out;
    EXPECT_NE(t.out.find("PhaseScore "), std::string::npos);
}

TEST_F(PhaseCli, InverseAndPeaksOnTheAbsorptionSpectrum) {
    CliRun r = run("phase '" + path("s.dat") + "' --inverse '" + path("c.dat") + "'");
    ASSERT_EQ(r.status, 0) << r.out;
    CliRun j = run("phase '" + path("c.dat") + "' --json", false);
    ASSERT_EQ(j.status, 0) << j.out << j.err;
    EXPECT_EQ(nlohmann::json::parse(j.out)["form"], "corrected");

    CliRun p = run("peaks '" + path("s.dat") + "' --absorption --sn --threshold 50 --csv -o '" + path("p.csv") + "'");
    ASSERT_EQ(p.status, 0) << p.out;
    EXPECT_TRUE(fs::exists(path("p.csv")));
}

TEST_F(PhaseCli, RefusalsExitNonZero) {
    std::string bytes = vx::test::read_file(path("s.dat"));
    bytes.replace(bytes.find("emode: chirp"), 12, "emode: SWIFT");
    vx::test::write_file(path("swift.dat"), bytes);
    struct Case {
        std::string args;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"phase '" + path("swift.dat") + "' --json",
         "Insufficient information to phase data.: Phasing can not continue with current information. Exiting."},
        {"phase '" + path("s.dat") + "' -o '" + path("x.wav") + "'", "must end in .csv, .bin or .xy.bin"},
        {"phase '" + path("s.dat") + "' --terms 1,2 --json", "--terms takes three numbers"},
        {"phase '" + path("s.dat") + "' --write-terms '" + path("s.dat") + "'", "cannot be written over"},
        {"phase '" + path("missing.dat") + "' --json", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const CliRun r = run(c.args);
        EXPECT_NE(r.status, 0) << r.out;
        EXPECT_NE(r.out.find(c.message), std::string::npos) << r.out;
        EXPECT_EQ(r.out.find("nan"), std::string::npos);
    }
    EXPECT_EQ(vx::test::read_file(path("s.dat")).size(), fs::file_size(path("s.dat")));
}

}  // namespace

namespace {

TEST_F(PhaseCli, DivisionByABlankAndTheTransferFunction) {
    vx::test::write_file(path("half.csv"), "mz,abundance,decay\n300,0.5,0.2\n520,0.35,0.2\n810,0.25,0.2\n1400,0.2,0.2\n");
    ASSERT_EQ(run("simulate '" + path("half.csv") + "' --points 32768 --noise 0.001 --date 2026-05-05 -o '" +
                  path("blank.dat") + "'")
                  .status,
              0);
    for (const char* extra : {"", " --transfer"}) {
        SCOPED_TRACE(extra);
        CliRun r = run("phase '" + path("s.dat") + "' --divide '" + path("blank.dat") + "'" + extra + " --json -o '" +
                           path("q.bin") + "' --dispersion '" + path("i.bin") + "'",
                       false);
        ASSERT_EQ(r.status, 0) << r.out << r.err;
        const nlohmann::json j = nlohmann::json::parse(r.out);
        EXPECT_EQ(j["mode"], std::string(extra).empty() ? "division" : "transfer");
        EXPECT_EQ(j["datacount"].get<int>(), 16384);
        EXPECT_EQ(fs::file_size(path("q.bin")), 16384u * 4);  // no zero-fill: N = 16384 float32
        EXPECT_EQ(fs::file_size(path("i.bin")), 16384u * 4);
    }
    // A blank of another length is refused.
    ASSERT_EQ(run("simulate '" + path("half.csv") + "' --points 16384 --date 2026-05-05 -o '" + path("short.dat") + "'")
                  .status,
              0);
    CliRun bad = run("phase '" + path("s.dat") + "' --divide '" + path("short.dat") + "'");
    EXPECT_NE(bad.status, 0);
    EXPECT_NE(bad.out.find("must be the same length"), std::string::npos) << bad.out;
}

}  // namespace

namespace {

// The switches of the expert panel on the command line: each run's JSON, or
// its refusal with a non-zero exit and the message on stderr.
TEST_F(PhaseCli, PanelSwitches) {
    const std::string s = "'" + path("s.dat") + "'";
    struct Case {
        std::string args;
        int status;
        std::string expect;  // a key of the JSON, or a piece of the message
    };
    const std::vector<Case> cases = {
        {"--simple --json", 0, "total_delay"},
        {"--simple --iterate-c --json", 0, "best_degrees"},
        {"--transform-only --json", 0, "form"},
        {"--ask 60,200,150,0.5,F --json", 0, "band_start"},
        {"--score-range 100000,150000 --json", 0, "band_end"},
        {"--skip-points 64 --json", 0, "datacount"},
        {"--background " + s + " --autozero-data --extra-data 0.05 --json", 0, "zeroorder"},
        {"--background " + s + " --autozero-excite --json", 0, "zeroorder"},
        {"--autozero-excite --json", 1, "--autozero-excite works on the --background file."},
        {"--ask 60,200 --json", 1, "--ask takes five answers"},
        {"--ask 60,200,x,0.5,F --json", 1, "Insufficient information to phase data."},
        {"--score-range 5 --json", 1, "--score-range takes two frequencies"},
        {"--skip-points 20000 --json", 1, "is more than half of the 32768 samples"},
    };
    for (const Case& c : cases) {
        const CliRun r = run("phase " + s + " " + c.args, c.status != 0);
        EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.out << r.err;
        if (c.status == 0) {
            const nlohmann::json j = nlohmann::json::parse(r.out, nullptr, false);
            ASSERT_FALSE(j.is_discarded()) << c.args << "\n" << r.out;
            EXPECT_TRUE(j.contains(c.expect)) << c.args;
        } else {
            EXPECT_NE(r.out.find(c.expect), std::string::npos) << c.args << "\n" << r.out;
        }
    }
    // The entered band and the score range are the bands scored.
    const nlohmann::json a = nlohmann::json::parse(run("phase " + s + " --ask 60,200,150,0.5,F --json", false).out);
    const nlohmann::json b = nlohmann::json::parse(run("phase " + s + " --score-range 100000,150000 --json", false).out);
    const double hz = a["hzppt"].get<double>();
    EXPECT_EQ(a["band_start"].get<long long>(), static_cast<long long>(60000.0 / hz));
    EXPECT_EQ(b["band_start"].get<long long>(), static_cast<long long>(100000.0 / hz));
    // Skipping keeps half the transient: one zero-fill gives as many points as samples were kept.
    const nlohmann::json k = nlohmann::json::parse(run("phase " + s + " --skip-points 64 --json", false).out);
    EXPECT_EQ(k["datacount"].get<long long>(), 16384);
}

TEST_F(PhaseCli, TransferFunctionAxis) {
    const std::string s = fmt::format("'{}'", path("s.dat"));
    const nlohmann::json a = nlohmann::json::parse(run(fmt::format("phase {0} --divide {0} --transfer --json", s), false).out);
    const nlohmann::json b =
        nlohmann::json::parse(run(fmt::format("phase {0} --divide {0} --transfer --true-axis --json", s), false).out);
    EXPECT_DOUBLE_EQ(2.0 * a["hzppt"].get<double>(), b["hzppt"].get<double>());
}

}  // namespace
