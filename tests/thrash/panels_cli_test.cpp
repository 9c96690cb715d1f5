// The panels' capabilities on the command line: Mass Determination and
// newmatch through thrash --cluster, Zdet, Analysis and the Analysis Report
// through deconvolve, and what they refuse.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

struct Sim {
    test::TempDir dir;
    std::string home, dat, seq;
    Sim() {
        home = dir.file("home");
        const std::string list =
            dir.write("p.csv", "name,formula,zmin,zmax,abundance,decay\nubq,C378H629N105O118S1,8,9,0.05,1.0\n");
        seq = dir.write("ubq.txt",
                        "UBQ 76\nMQIFVKTLTGKTITLEVEPSDTIENVKAKIQDKEGIPPDQQRLIFAGKQLEDGRTLSDYNIQKESTLHLVLRLRGG\n");
        dat = dir.file("ubq.dat");
        const auto r = test::run_cli(home, "simulate --proteins " + list + " --truth " + dir.file("truth.csv") +
                                               " -o " + dat + " --points 524288 --bandwidth 250000");
        EXPECT_EQ(r.status, 0) << r.err;
    }
};

Sim& sim() {
    static Sim s;
    return s;
}

TEST(PanelsCli, MassDeterminationLinesAndNewmatch) {
    Sim& s = sim();
    auto r = test::run_cli(s.home, "thrash " + s.dat + " --cluster 951.5:954.5 --sequence " + s.seq + " --tolerance 0.05");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\nCharge: 9\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\nAssignment: Molecular Ion\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\nTheoretical mass: 8559.6"), std::string::npos) << r.out;
    auto j = test::run_cli(s.home, "thrash " + s.dat + " --cluster 951.5:954.5 --charge 9 --json");
    ASSERT_EQ(j.status, 0) << j.err;
    const auto doc = nlohmann::json::parse(j.out);
    EXPECT_EQ(doc["clusters"], 1);
    EXPECT_EQ(doc["rows"][0]["charge"], 9);
    const auto& md = doc["mass_determination"];
    EXPECT_NEAR(md["mostabundant_mass"].get<double>(),
                doc["rows"][0]["monoisotopic_mw"].get<double>() + md["most_abundant_index"].get<int>() * 1.00254, 1e-6);
    EXPECT_EQ(md["lines"][6], "Assignment: N/A");
    // A charge the setup does not allow.
    auto bad = test::run_cli(s.home, "thrash " + s.dat + " --cluster 951.5:954.5 --charge 50 --max-charge 40");
    EXPECT_NE(bad.status, 0);
}

TEST(PanelsCli, ZdetAnalysisAndReport) {
    Sim& s = sim();
    const std::string out = s.dir.file("masses.txt");
    auto r = test::run_cli(s.home, "deconvolve " + s.dat + " --range 800:1100 --zdet --lowz -o " + out +
                                       " --analysis 8555:8575 --report 8555:8575 --json");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["zdet"]["charge"], 8);
    EXPECT_NEAR(j["zdet"]["mass"].get<double>(), (j["zdet"]["mz"].get<double>() - 1.0) * 8, 1e-6);
    EXPECT_GT(j["groups"].get<int>(), 0);
    const double centroid = j["analysis"]["centroid"].get<double>();
    EXPECT_GT(centroid, 8559.0);
    EXPECT_LT(centroid, 8570.0);
    EXPECT_GT(j["analysis"]["area"].get<double>(), 0.0);
    EXPECT_EQ(j["report"]["text"].get<std::string>().rfind("Average: ", 0), 0u);
    // Text form: the report under its title.
    auto t = test::run_cli(s.home, "deconvolve " + s.dat + " --range 950:955 --report 950.0:951.5");
    ASSERT_EQ(t.status, 0) << t.err;
    EXPECT_NE(t.out.find("Analysis Report\nAverage: "), std::string::npos) << t.out;
    EXPECT_NE(t.out.find("Threshhold for baseline  plus 3 sigma:  "), std::string::npos);
}

TEST(PanelsCli, RefusedRequests) {
    Sim& s = sim();
    struct Case {
        const char* name;
        std::string args;
    };
    const Case cases[] = {
        {"nothing to do", "deconvolve " + s.dat},
        {"mode without output", "deconvolve " + s.dat + " --lowz"},
        {"two modes", "deconvolve " + s.dat + " --lowz --highz -o " + s.dir.file("x.txt")},
        {"report backwards", "deconvolve " + s.dat + " --report 960:950"},
        {"report of one point", "deconvolve " + s.dat + " --range 950:955 --report 951.00001:951.00002"},
        {"analysis not a range", "deconvolve " + s.dat + " --analysis 950"},
        {"cluster outside the data", "thrash " + s.dat + " --cluster 5000000:5000010"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto r = test::run_cli(s.home, c.args);
        EXPECT_NE(r.status, 0) << r.out;
        EXPECT_FALSE(r.err.empty());
    }
}

}  // namespace
}  // namespace vx
