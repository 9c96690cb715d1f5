#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <map>
#include <set>

#include <nlohmann/json.hpp>

#include "platform/ui.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "thrash/thrash.hpp"
#include "workspace/spectrum.hpp"

namespace vx {
namespace {

// One simulated file shared by the cases: ubiquitin at charges 8 and 9.
struct Sim {
    test::TempDir dir;
    std::string home, dat;
    Sim() {
        home = dir.file("home");
        const std::string list = dir.write("p.csv", "name,formula,zmin,zmax,abundance,decay\nubq,C378H629N105O118S1,8,9,0.05,1.0\n");
        dat = dir.file("ubq.dat");
        const auto r = test::run_cli(home, "simulate --proteins " + list + " --truth " + dir.file("truth.csv") + " -o " +
                                               dat + " --points 524288 --bandwidth 250000");
        EXPECT_EQ(r.status, 0) << r.err;
    }
};

Sim& sim() {
    static Sim s;
    return s;
}

TEST(ThrashCli, ScanWritesFilesThatLoadBackAndJsonKeys) {
    Sim& s = sim();
    const std::string csv = s.dir.file("ubq_isos.csv"), pkl = s.dir.file("ubq.pkl");
    auto r = test::run_cli(s.home, "thrash " + s.dat + " --low-mass 900 --high-mass 1100 --tpk --pkl " + pkl +
                                       " --csv " + csv);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Isotope clusters found = "), std::string::npos);
    const std::string tpk = test::read_file(s.dat + ".tpk");
    ASSERT_EQ(tpk.rfind("Isotope clusters found = ", 0), 0u);
    EXPECT_NE(tpk.find("Processing parameters \n"), std::string::npos);
    const std::string header = test::read_file(csv).substr(0, test::read_file(csv).find('\n'));
    EXPECT_EQ(header,
              "scan_num,charge,abundance,mz,fit,average_mw,monoisotopic_mw,mostabundant_mw,fwhm,signal_noise,"
              "mono_abundance,mono_plus2_abundance,flag,rl,monoisotopic_mz,monoisotopic_mw_refined,assignment,"
              "theoretical_mass,mass_error_ppm");
    EXPECT_EQ(test::read_file(pkl).rfind("TULVA data file: ", 0), 0u);

    // .pk round trip: what the file says comes back, and written again is the same text.
    RecordingUi ui;
    std::vector<ThrashPeak> rows;
    ASSERT_EQ(load_thrash_peaklist(s.dat + ".tpk", rows, ui), 0);
    Spectrum blank;
    blank.Truncations = 0;
    ASSERT_FALSE(rows.empty());
    const std::string again = tpk_text(blank, rows);
    // From the first row on (the header line holds the record's processing integers).
    auto rows_of = [](const std::string& t) {
        std::size_t at = 0;
        for (int i = 0; i < 3; ++i) at = t.find('\n', at) + 1;
        return t.substr(at);
    };
    EXPECT_EQ(rows_of(again), rows_of(tpk));
    auto loaded = test::run_cli(s.home, "thrash --load " + s.dat + ".tpk --json");
    ASSERT_EQ(loaded.status, 0) << loaded.err;
    EXPECT_EQ(nlohmann::json::parse(loaded.out)["clusters"].get<std::size_t>(), rows.size());

    auto js = test::run_cli(s.home, "thrash " + s.dat + " --low-mass 900 --high-mass 1100 --json");
    ASSERT_EQ(js.status, 0) << js.err;
    const auto j = nlohmann::json::parse(js.out);
    for (const char* k : {"clusters", "aborted", "limit_reached", "rows"}) EXPECT_TRUE(j.contains(k)) << k;
    ASSERT_FALSE(j["rows"].empty());
    for (const char* k : {"scan_num", "charge", "abundance", "mz", "fit", "average_mw", "monoisotopic_mw",
                          "mostabundant_mw", "fwhm", "signal_noise", "mono_abundance", "mono_plus2_abundance", "flag",
                          "rl", "monoisotopic_mz", "monoisotopic_mw_refined", "assignment", "theoretical_mass",
                          "mass_error_ppm", "model"})
        EXPECT_TRUE(j["rows"][0].contains(k)) << k;
    // Both charges found, masses to the isotope.
    std::set<int> charges;
    for (const auto& row : j["rows"]) {
        if (std::fabs(row["monoisotopic_mw"].get<double>() - 8559.6167) < 0.1) charges.insert(row["charge"].get<int>());
    }
    EXPECT_EQ(charges, (std::set<int>{8, 9}));
    // The worker thread gives the same table.
    auto th = test::run_cli(s.home, "thrash " + s.dat + " --low-mass 900 --high-mass 1100 --json --thread");
    EXPECT_EQ(th.out, js.out);
}

TEST(ThrashCli, MinRlThreeReportsNothingAndBadInputFails) {
    Sim& s = sim();
    auto r = test::run_cli(s.home, "thrash " + s.dat + " --low-mass 900 --high-mass 1100 --min-rl 3");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Isotope clusters found = 0"), std::string::npos);
    auto missing = test::run_cli(s.home, "thrash " + s.dat + " --table " + s.dir.file("none.txt"));
    EXPECT_NE(missing.status, 0);
    EXPECT_NE(missing.err.find("The file averagine_lookup2.txt could not be found."), std::string::npos);
    const std::string seq = s.dir.write("bad.txt", "UBQ 3\nMQZ\n");
    auto bad = test::run_cli(s.home, "thrash " + s.dat + " --sequence " + seq);
    EXPECT_NE(bad.status, 0);
    EXPECT_NE(bad.err.find("Error creating fragment table from Sequence"), std::string::npos);
    auto pk = test::run_cli(s.home, "thrash --load " + s.dir.write("bad.pk", "Isotope clusters found = 99999999\n"));
    EXPECT_NE(pk.status, 0);
}

TEST(ThrashCli, AllZeroDataAndAStopKeepTheirClusters) {
    Spectrum s;
    s.data.assign(1 << 16, 0.0f);
    s.datacount = 1 << 16;
    s.domain = DOMAIN_FREQUENCY;
    s.hzppt = s.dbandwidth / s.datacount;
    AveragineTable t;
    RecordingUi ui;
    ASSERT_EQ(ReadAveragineTable(t, ui, nullptr, std::string(VANTORIX_SOURCE_DIR) + "/data/averagine_lookup2.txt"), 0);
    ThrashResult r;
    ThrashParams p;
    ASSERT_EQ(thrash_with_table(s, p, t, r, ui), 0);
    EXPECT_EQ(r.clusters, 0);
    EXPECT_FALSE(std::isnan(r.final_noise));
    std::atomic<bool> stop{true};
    ThrashControl c;
    c.stop = &stop;
    ASSERT_EQ(thrash_with_table(s, p, t, r, ui, c), 0);
    EXPECT_TRUE(r.aborted);
    EXPECT_TRUE(s.data2.empty());
}

// --clean-residues reaches the scan: the literal subtraction reports the two
// charge states and what it left of them; the clean one the states alone.
TEST(ThrashCli, CleanResiduesReportsNoMoreThanTheLiteralScan) {
    Sim& s = sim();
    std::map<bool, nlohmann::json> runs;
    for (bool clean : {false, true}) {
        const auto r = test::run_cli(s.home, "thrash " + s.dat + " --low-mass 900 --high-mass 1100 --json" +
                                                 std::string(clean ? " --clean-residues" : ""));
        ASSERT_EQ(r.status, 0) << r.err;
        runs[clean] = nlohmann::json::parse(r.out);
    }
    const int literal = runs[false]["clusters"].get<int>(), clean = runs[true]["clusters"].get<int>();
    EXPECT_GE(clean, 2);
    EXPECT_LE(clean, literal);
}


}  // namespace
}  // namespace vx
