// Copies of data files with new coefficients: only the two coefficient lines
// change, the samples are copied raw, the input is never written, and bad
// files leave no output behind.
#include <gtest/gtest.h>

#include <filesystem>

#include "formats/calibration_change.hpp"
#include "formats/tulva_reader.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

const std::vector<std::string> HEADER = {
    "Vantorix Data File v4.00", "", "Trap Voltage: 1.5", "Source Coeff0: 47536770.867829",
    "Source Coeff1: -3379711463.376564", "datacount:4", "Data Points: 4", "Storage Type: float",
};

std::string sample_file(bool crlf = false) {
    return test::tulva_text(HEADER, test::float_bytes({1.0f, -2.5f, 3.25f, 4.0f}) + "trailing", "Data:", crlf);
}

TEST(CalibrationChange, OnlyTheCoefficientLinesChange) {
    for (bool crlf : {false, true}) {
        SCOPED_TRACE(crlf);
        test::TempDir dir;
        const std::string original = sample_file(crlf);
        const std::string in = dir.write("x.dat", original);
        RecordingUi ui;
        ASSERT_EQ(Change_Tulva_Calibration_Go(in, in + ".new", 47539147.7, -3717682609.7, ui), 0);
        EXPECT_TRUE(ui.messages.empty());
        EXPECT_EQ(test::read_file(in), original);  // the input as it was
        const std::string nl = crlf ? "\r\n" : "\n";
        // Single precision, as the coefficients have always been written.
        std::string expected = original;
        auto swap = [&](const std::string& from, const std::string& to) {
            const auto at = expected.find(from);
            ASSERT_NE(at, std::string::npos);
            expected.replace(at, from.size(), to);
        };
        swap("Source Coeff0: 47536770.867829" + nl, "Source Coeff0:47539148.000000" + nl);
        swap("Source Coeff1: -3379711463.376564" + nl, "Source Coeff1:-3717682688.000000" + nl);
        // Four bytes a sample: 16 bytes of block, the rest of the file is not copied.
        expected.resize(expected.size() - std::string("trailing").size());
        EXPECT_EQ(test::read_file(in + ".new"), expected);

        // The full-precision option keeps the double.
        CalibrationChangeOptions full;
        full.full_precision = true;
        ASSERT_EQ(Change_Tulva_Calibration_Go(in, dir.file("y.new"), 47539147.7, -3717682609.7, ui, full), 0);
        const std::string y = test::read_file(dir.file("y.new"));
        EXPECT_NE(y.find("Source Coeff0:47539147.700000" + nl), std::string::npos);
        EXPECT_NE(y.find("Source Coeff1:-3717682609.700000" + nl), std::string::npos);

        // The copy reads back with the new terms and the same samples.
        Workspace ws;
        const int slot = test::open_tulva_file(ws, dir.file("y.new"), ui);
        ASSERT_GE(slot, 0);
        const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
        EXPECT_EQ(s.Aterm, 47539147.7);
        EXPECT_EQ(s.Bterm, -3717682609.7);
        ASSERT_EQ(s.data.size(), 4u);
        EXPECT_EQ(s.data[2], 3.25f);
    }
}

TEST(CalibrationChange, BadFilesAndTheOwnInputAreRefused) {
    test::TempDir dir;
    struct Case {
        const char* name;
        std::string bytes;
        const char* title;
        const char* text;
    };
    const std::string block = test::float_bytes({1.0f, 2.0f});
    const Case cases[] = {
        {"garbage", "\x01\x02 not a data file\n\xff\xfe", "File Input Error", "Not Valid TULVA Data File Format"},
        {"empty", "", "File Input Error", "Not Valid TULVA Data File Format"},
        {"blank lines only", "\n\n\n", "File Input Error", "Not Valid TULVA Data File Format"},
        {"no count", test::tulva_text({"TULVA Data File v3.0", "Source Coeff0: 1"}, block), "File Input Error",
         "No Data Count Specified"},
        {"no marker", "Vantorix Data File v4.00\nData Points: 2\nSource Coeff0: 1\n", "File Input Error",
         "No Data Marker Found"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string in = dir.write(std::string(c.name) + ".dat", c.bytes);
        const std::string out = in + ".new";
        RecordingUi ui;
        EXPECT_EQ(Change_Tulva_Calibration_Go(in, out, 1.0, 2.0, ui), -1);
        EXPECT_TRUE(ui.saw(c.title, c.text));
        EXPECT_FALSE(fs::exists(out));
        EXPECT_EQ(test::read_file(in), c.bytes);
    }
    // Nothing but the two files: no temporary left anywhere in the folder.
    std::size_t files = 0;
    for (const auto& e : fs::directory_iterator(dir.path())) files += e.is_regular_file() ? 1 : 0;
    EXPECT_EQ(files, std::size(cases));

    // Its own input, under any spelling, is never the output.
    const std::string in = dir.write("own.dat", sample_file());
    for (const std::string& out : {in, dir.path().string() + "/./own.dat"}) {
        RecordingUi ui;
        EXPECT_EQ(Change_Tulva_Calibration_Go(in, out, 1.0, 2.0, ui), -1);
        EXPECT_TRUE(ui.saw("Input file and output file can not be the same file.",
                           "Please choose a different output file name."));
        EXPECT_EQ(test::read_file(in), sample_file());
    }
    // A missing input and a folder as input.
    for (const std::string& bad : {dir.file("missing.dat"), dir.path().string()}) {
        RecordingUi ui;
        EXPECT_EQ(Change_Tulva_Calibration_Go(bad, dir.file("z.new"), 1.0, 2.0, ui), -1);
        EXPECT_EQ(ui.messages.size(), 1u);
    }
}

TEST(CalibrationChange, PackedInputGivesAPackedCopy) {
    test::TempDir dir;
    const std::string plain = dir.write("p.dat", sample_file());
    ASSERT_EQ(zip1(plain, dir.path().string()), 0);
    fs::remove(plain);
    const std::string packed = dir.file("p.dat.Z");
    RecordingUi ui;
    // The name given is not used for packed files: the copy is named after the file.
    ASSERT_EQ(Change_Tulva_Calibration_Go(packed, dir.file("ignored.new"), 47539147.7, -3717682609.7, ui), 0);
    EXPECT_FALSE(fs::exists(dir.file("ignored.new")));
    EXPECT_FALSE(fs::exists(dir.file("p.dat.new")));  // only the archive stays
    ASSERT_TRUE(fs::exists(dir.file("p.dat.new.Z")));
    ASSERT_EQ(unzip1(dir.file("p.dat.new.Z"), dir.path().string(), "check.dat"), UNZIP_OK);
    const std::string copy = test::read_file(dir.file("check.dat"));
    EXPECT_NE(copy.find("Source Coeff0:47539148.000000\n"), std::string::npos);
    EXPECT_NE(copy.find("Data Points: 4\n"), std::string::npos);

    // A damaged archive.
    const std::string bad = dir.write("bad.dat.Z", "PK not really");
    EXPECT_EQ(Change_Tulva_Calibration_Go(bad, "", 1.0, 2.0, ui), -1);
    EXPECT_TRUE(ui.saw("Error", "Cannot unzip file!"));
}

TEST(CalibrationChange, CommandLineRecal) {
    test::TempDir dir;
    const std::string a = dir.write("a.dat", sample_file());
    const std::string b = dir.write("b.dat", sample_file(true));
    const std::string home = dir.file("home");
    auto r = test::run_cli(home, "recal '" + a + "' '" + b + "' --aterm 47539147.7 --bterm -3717682609.7");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::exists(a + ".new"));
    EXPECT_TRUE(fs::exists(b + ".new"));
    EXPECT_EQ(test::read_file(a), sample_file());
    r = test::run_cli(home, "recal '" + a + "' --aterm 1e6 --bterm -2 -o '" + dir.file("one.dat") + "' --full-precision");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(test::read_file(dir.file("one.dat")).find("Source Coeff0:1000000.000000\n"), std::string::npos);

    struct Bad {
        std::string args;
        const char* says;
    };
    const Bad bad[] = {
        {"recal '" + a + "' --aterm 0 --bterm -5", "Wrong Parameters: Please specify the paremeters before picking files"},
        {"recal '" + a + "' '" + b + "' --aterm 1e6 --bterm 1 -o x.dat", "Operator Error"},
        {"recal '" + a + "' --aterm 1e6 --bterm 1 -o '" + a + "'", "can not be the same file"},
    };
    for (const Bad& c : bad) {
        r = test::run_cli(home, c.args);
        EXPECT_EQ(r.status, 1) << c.args;
        EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
    }
    EXPECT_EQ(test::read_file(a), sample_file());
}

}  // namespace
}  // namespace vx
