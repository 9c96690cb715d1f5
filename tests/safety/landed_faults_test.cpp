// The faults of the first command line that lost users' files, each replayed
// through the program as a user meets it.
#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "platform/zip.hpp"
#include "safety/safety_support.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;
using test::entries;
using test::read_file;
using test::write_file;

// A home whose settings unpack archives into `temp` (the data folder itself
// in the worst case users choose).
struct Home {
    test::TempDir dir;
    std::string data = dir.file("data");
    Home() {
        fs::create_directories(data);
        write_file(dir.file("ftmsdata.ini"), "[Vantorix Analysis]\nWINZIP=minizip\nTEMP=" + data + "\n");
    }
    test::CliRun run(const std::string& args) { return test::run_cli(dir.path().string(), args, true); }
    std::string at(const std::string& name) const { return data + "/" + name; }
};

TEST(LandedFaults, UnpackingNeverTouchesAFileOfTheArchivesNameInTemp) {
    Home h;
    const std::string precious = "my own notes, not a transient";
    write_file(h.at("x.dat"), precious);
    test::write_zip(h.at("x.dat.Z"), {"x.dat", test::v4_file(64)});
    for (int run = 0; run < 2; ++run) {  // a second run finds nothing of the first
        const auto r = h.run("info " + h.at("x.dat.Z"));
        EXPECT_EQ(r.status, 0) << r.out;
        EXPECT_EQ(read_file(h.at("x.dat")), precious);
        EXPECT_EQ(entries(h.data), (std::vector<std::string>{"x.dat", "x.dat.Z"}));
    }
}

TEST(LandedFaults, ArchivesThatFailTheirChecksReplaceNothing) {
    const std::string bytes = test::v4_file(512);
    struct Case {
        const char* what;
        test::ZipMember member;
        bool reader_refuses;
    } cases[] = {
        {"wrong CRC", {"s.dat", bytes, true, 0x1234u}, true},
        {"member inflates beyond the bound (4 GiB announced)", {"s.dat", bytes, true, 0, 4ULL << 30}, true},
        {"stored member changed behind its CRC", {"s.dat", bytes, false, 0}, false},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        Home h;
        const std::string old = "the s.dat that was here before";
        write_file(h.at("s.dat"), old);
        test::write_zip(h.at("s.dat.Z"), c.member);
        if (!c.member.deflate) {
            // A stored member whose bytes were changed behind its CRC.
            std::string z = read_file(h.at("s.dat.Z"));
            z[40] = static_cast<char>(z[40] ^ 0x55);
            write_file(h.at("s.dat.Z"), z);
        }
        const auto u = h.run("unzip " + h.at("s.dat.Z"));
        EXPECT_NE(u.status, 0) << u.out;
        EXPECT_NE(u.out.find("Cannot unzip file!"), std::string::npos) << u.out;
        EXPECT_EQ(read_file(h.at("s.dat")), old);
        EXPECT_EQ(entries(h.data), (std::vector<std::string>{"s.dat", "s.dat.Z"}));
        if (c.reader_refuses) {
            const auto i = h.run("info " + h.at("s.dat.Z"));
            EXPECT_NE(i.status, 0) << i.out;
            EXPECT_EQ(entries(h.data), (std::vector<std::string>{"s.dat", "s.dat.Z"}));
        }
    }
}

TEST(LandedFaults, CommandsRefuseToReplaceTheirOwnInput) {
    Home h;
    const std::string transient = test::v4_file(4096);
    for (const char* ext : {"csv", "bin", "wav", "xy.bin"}) {
        SCOPED_TRACE(ext);
        const std::string in = h.at(std::string("run.") + ext);
        write_file(in, transient);
        // The same file under another spelling is still the same file.
        for (const std::string& out : {in, h.data + "/./run." + ext}) {
            const auto r = h.run("process " + in + " -o " + out + " --overwrite");
            EXPECT_NE(r.status, 0) << r.out;
            EXPECT_NE(r.out.find("is the input file itself"), std::string::npos) << r.out;
            EXPECT_EQ(read_file(in), transient);
        }
    }
    const std::string ions = h.at("ions.csv");
    write_file(ions, "1000.5, 1.0\n");
    const auto s = h.run("simulate " + ions + " -o " + ions);
    EXPECT_NE(s.status, 0) << s.out;
    EXPECT_EQ(read_file(ions), "1000.5, 1.0\n");
}

TEST(LandedFaults, DevicesAndFoldersAreRefusedAtOnceWithTheirOwnMessage) {
    Home h;
    for (const char* cmd : {"info", "peaklist", "unzip"}) {
        SCOPED_TRACE(cmd);
        // `timeout` turns a hang into status 124.
        std::string out;
        const int st = test::run_command("VANTORIX_HOME=" + h.dir.path().string() + " timeout 20 " +
                                             VANTORIX_CLI_PATH + " " + cmd + " /dev/zero 2>&1",
                                         &out);
        EXPECT_NE(st, 0) << out;
        EXPECT_NE(st, 124) << "hangs on /dev/zero";
    }
    // A folder can only be an acquisition: the Bruker reader names what it lacks.
    const auto d = h.run("info " + h.data);
    EXPECT_NE(d.status, 0);
    EXPECT_NE(d.out.find("Parameter File (acqus) not found"), std::string::npos) << d.out;
    EXPECT_NE(d.out.find(h.data), std::string::npos) << d.out;
    EXPECT_EQ(d.out.find("Not Valid TULVA Data File Format"), std::string::npos) << d.out;
}

TEST(LandedFaults, CountsBeyondTheFileAreRefusedWithANonZeroExit) {
    Home h;
    // 130 KB of samples under a header that claims 2^28 of them.
    std::string big = test::v4_file(65000);
    const std::string claim = "Data Points: 65000";
    big.replace(big.find(claim), claim.size(), "Data Points: 268435456");
    write_file(h.at("claims.dat"), big);
    const auto r = h.run("info " + h.at("claims.dat"));
    EXPECT_NE(r.status, 0) << r.out;
    EXPECT_NE(r.out.find(h.at("claims.dat")), std::string::npos) << "the message names the file: " << r.out;

    std::string pks = "There were 8000000 Peaks found from m/z=   100.00    to m/z=  1000.00.\n";
    for (int i = 0; i < 2000; ++i) pks += "  500.1234567     1234.5    100.00     500000.0  123456.789\n";
    write_file(h.at("claims.pks"), pks);
    const auto p = h.run("peaklist " + h.at("claims.pks"));
    EXPECT_NE(p.status, 0) << p.out;
    EXPECT_NE(p.out.find("more than the file holds"), std::string::npos) << p.out;
}

TEST(LandedFaults, HeaderBytesThatAreNotUtf8StillGiveJson) {
    // Instruments write their comments in the code page of the machine: a
    // Latin-1 byte in a header used to abort every --json command.
    Home h;
    std::string file = read_file(std::string(VANTORIX_SOURCE_DIR) + "/data/sample.dat");
    const auto at = file.find("Simulated transient");
    ASSERT_NE(at, std::string::npos);
    file[at] = '\xe9';
    write_file(h.at("latin1.dat"), file);
    for (const char* cmd : {"info ", "peaks "}) {
        const auto r = test::run_cli(h.dir.path().string(), std::string(cmd) + h.at("latin1.dat") + " --json");
        EXPECT_EQ(r.status, 0) << cmd << r.out << r.err;
        EXPECT_TRUE(nlohmann::json::accept(r.out)) << cmd << r.out;
    }
}

TEST(LandedFaults, ZipNeverReplacesAnArchiveOrLosesASourceSilently) {
    Home h;
    const std::string c = h.at("c.dat");
    write_file(c, test::v4_file(256));
    write_file(c + ".Z", "an archive made last year");

    auto r = h.run("zip " + c);
    EXPECT_NE(r.status, 0) << r.out;
    EXPECT_EQ(read_file(c + ".Z"), "an archive made last year");
    EXPECT_TRUE(fs::exists(c));

    r = h.run("zip " + c + " --overwrite --keep");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(read_file(c + ".Z"), "an archive made last year");
    fs::remove(c + ".Z");

    // The same file named twice stops the command before anything is written.
    r = h.run("zip " + c + " " + h.data + "/../data/c.dat");
    EXPECT_NE(r.status, 0) << r.out;
    EXPECT_EQ(entries(h.data), (std::vector<std::string>{"c.dat"}));
}

}  // namespace
}  // namespace vx
