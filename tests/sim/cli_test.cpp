// "simulate" and "process" run as programs: a quadrature transient of two ion
// polarities written, processed and exported in each layout, and refusals.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/cli.hpp"
#include "support/files.hpp"

namespace {

namespace fs = std::filesystem;
using vx::test::CliRun;

class ProcessCli : public ::testing::Test {
protected:
    CliRun run(const std::string& args) const { return vx::test::run_cli(dir_.file("home"), args, true); }
    std::string path(const std::string& name) const { return dir_.file(name); }
    static std::string slurp(const std::string& f) { return vx::test::read_file(f); }
    vx::test::TempDir dir_;
};

TEST_F(ProcessCli, SimulateThenProcessEveryLayout) {
    vx::test::write_file(path("ions.csv"), "mz,abundance\n500,1.0,0.3\n800,0.5,0.3,0,-1\n");
    CliRun r = run("simulate '" + path("ions.csv") + "' --detect quadrature --points 16384 --date 2026-05-05 -o '" +
                   path("q.dat") + "'");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("wrote " + path("q.dat") + ": 2 ions, 16384 samples"), std::string::npos) << r.out;

    r = run("process '" + path("q.dat") + "' -o '" + path("q.csv") + "'");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("the gain ratio between the two channels (0/1) is: "), std::string::npos) << r.out;
    // The positive ions in the named file, the negative ions beside it.
    const std::string pos = slurp(path("q.csv")), neg = slurp(path("q_negative_ions.csv"));
    EXPECT_EQ(pos.rfind("Number of Points: 8192\r\nBandwidth: 500000.000000000000000\r\nData:\r\n0.000000,0.000\r\n", 0), 0u)
        << pos.substr(0, 200);
    EXPECT_EQ(neg.rfind("Number of Points: 8192\r\n", 0), 0u);
    EXPECT_NE(r.out.find("q.dat--Positive Ions"), std::string::npos);
    EXPECT_NE(r.out.find("q.dat--Negative Ions"), std::string::npos);

    // Direct data in the binary layouts, with the options of the dialogue.
    r = run("simulate '" + path("ions.csv") + "' --points 4096 --storage float -o '" + path("d.dat") + "'");
    ASSERT_EQ(r.status, 0) << r.out;
    r = run("process '" + path("d.dat") + "' --apodization 0 --zerofills 0 -o '" + path("d.bin") + "'");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(fs::file_size(path("d.bin")), 2048u * 4);
    r = run("process '" + path("d.dat") + "' --truncations 1 --zerofills 2 -o '" + path("d.xy.bin") + "'");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(fs::file_size(path("d.xy.bin")), 20u + 2u * 4096 * 4);
    // An existing .xy.bin is kept unless --overwrite says yes.
    r = run("process '" + path("d.dat") + "' -o '" + path("d.xy.bin") + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("File exists: The file " + path("d.xy.bin") + " exists. Overwrite this file?"), std::string::npos)
        << r.out;
    r = run("process '" + path("d.dat") + "' --overwrite -o '" + path("d.xy.bin") + "'");
    EXPECT_EQ(r.status, 0) << r.out;
    r = run("process '" + path("d.dat") + "' -o '" + path("d.wav") + "'");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(slurp(path("d.wav")).rfind("RIFF.;..WAVEfmt.", 0), 0u);
    r = run("process '" + path("d.dat") + "' --split-complex -o '" + path("x.csv") + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Error: You can only split time domain complex data."), std::string::npos) << r.out;
}

TEST_F(ProcessCli, Refusals) {
    CliRun r = run("process '" + path("none.dat") + "' -o '" + path("a.txt") + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("must end in .csv, .bin, .xy.bin or .wav"), std::string::npos) << r.out;
    vx::test::write_file(path("garbage.dat"), "not a data file\n");
    r = run("process '" + path("garbage.dat") + "' -o '" + path("a.csv") + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Not Valid TULVA Data File Format"), std::string::npos) << r.out;
    vx::test::write_file(path("bad.csv"), "500,x\n");
    r = run("simulate '" + path("bad.csv") + "' -o '" + path("b.dat") + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Ion list error: Line 1 of"), std::string::npos) << r.out;
    EXPECT_FALSE(fs::exists(path("b.dat")));
    vx::test::write_file(path("ok.csv"), "500,1\n");
    r = run("simulate '" + path("ok.csv") + "' --points 1000 -o '" + path("b.dat") + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Simulator error: The number of points 1000 must be a power of two"), std::string::npos) << r.out;
}

}  // namespace
