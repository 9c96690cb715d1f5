// Reference files: what the reader skips, what the writer writes, and the
// round trip between them.
#include <gtest/gtest.h>

#include "calibration/reference_file.hpp"
#include "platform/ui.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

TEST(ReferenceFile, ReaderSkipsCommentsShortLinesGarbageAndNonPositiveMasses) {
    struct Case {
        const char* line;
        double mass;  // 0: skipped
    };
    const Case cases[] = {
        {"; Calibration file for TULVA analysis", 0},
        {"[section]", 0},
        {"[ 500.0 bracketed comment", 0},
        {"12", 0},             // shorter than 3 characters, though a number
        {"1.5", 1.5},          // three characters are enough
        {"abc", 0},
        {"nan", 0},
        {"inf", 0},
        {"-inf", 0},
        {"0x1p8", 0},          // hexadecimal is not a mass here
        {"0.0", 0},
        {"-195.5", 0},
        {"  322.048120", 322.04812},  // leading blanks are passed over
        {"524.264960  sodium adduct", 524.26496},  // the rest of the line is ignored
        {"622.02896,0.6,0.25", 622.02896},         // first column of an ion list
        {"1e3", 1000.0},
        {"   ", 0},
        {"", 0},
    };
    std::string text;
    std::vector<double> expected;
    for (const Case& c : cases) {
        text += c.line;
        text += "\r\n";  // CR LF as the writer writes
        if (c.mass > 0) expected.push_back(c.mass);
    }
    EXPECT_EQ(parse_reference_text(text), expected);
    // LF-only files and a last line without an end read the same.
    std::string lf;
    for (const Case& c : cases) lf += std::string(c.line) + "\n";
    EXPECT_EQ(parse_reference_text(lf.substr(0, lf.size() - 1)), expected);
}

TEST(ReferenceFile, WriterFirstLineFormatAndRoundTripThroughTheReader) {
    const std::vector<double> masses = {195.08765, 524.264960123, -1.0, 1221.99064};
    const std::string text = reference_file_text(masses);
    EXPECT_EQ(text,
              "; Calibration file for TULVA analysis\r\n195.087650\r\n524.264960\r\n-1.000000\r\n1221.990640\r\n");
    // The unassigned -1.0 the writer keeps is skipped on reading.
    EXPECT_EQ(parse_reference_text(text), (std::vector<double>{195.08765, 524.26496, 1221.99064}));

    test::TempDir dir;
    RecordingUi ui;
    const std::string path = dir.file("cal.ref");
    ASSERT_EQ(write_reference_file(path, masses, ui), 0);
    EXPECT_EQ(test::read_file(path), text);
    std::vector<double> back;
    ASSERT_EQ(read_reference_file(path, back, ui), 0);
    EXPECT_EQ(back.size(), 3u);

    // An existing file is replaced only on yes; no leaves it as it was.
    ui.confirms = {false};
    EXPECT_EQ(write_reference_file(path, {100.0, 200.0}, ui), 1);
    EXPECT_EQ(test::read_file(path), text);
    ASSERT_EQ(ui.messages.size(), 1u);
    EXPECT_EQ(ui.messages[0].title, "Overwrite the existing file");
    EXPECT_EQ(ui.messages[0].text, "File with specified name already exists. Overwrite the file?");
    ui.confirms = {true};
    EXPECT_EQ(write_reference_file(path, {100.0, 200.0}, ui), 0);
    EXPECT_EQ(test::read_file(path), "; Calibration file for TULVA analysis\r\n100.000000\r\n200.000000\r\n");
}

TEST(ReferenceFile, MissingFilesFoldersAndTheChooser) {
    test::TempDir dir;
    for (const std::string& path : {dir.file("missing.ref"), dir.path().string()}) {
        RecordingUi ui;
        std::vector<double> masses = {1.0};
        EXPECT_EQ(read_reference_file(path, masses, ui), -1);
        EXPECT_TRUE(ui.saw("Calibration error", "Could not open calibration data file")) << path;
    }
    // The chooser: cancelled gives -1 without a message; a long file is cut to 100.
    RecordingUi ui;
    std::vector<double> masses;
    ui.files = {std::nullopt};
    EXPECT_EQ(OpenCalFile(masses, ui), -1);
    EXPECT_EQ(ui.messages.size(), 1u);  // the file question only
    std::vector<double> many;
    for (int i = 1; i <= 150; ++i) many.push_back(100.0 + i);
    const std::string path = dir.write("many.ref", reference_file_text(many));
    ui.files = {path};
    EXPECT_EQ(OpenCalFile(masses, ui), 1);
    ASSERT_EQ(masses.size(), MAX_REFERENCE_MASSES);
    EXPECT_EQ(masses.back(), 200.0);
}

}  // namespace
}  // namespace vx
