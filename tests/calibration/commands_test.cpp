// The panel's file commands: their questions, what they write, and what a
// "no" leaves alone.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "calibration/calibration_commands.hpp"
#include "calibration/reference_file.hpp"
#include "platform/ui.hpp"
#include "support/files.hpp"
#include "workspace/settings.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

std::string data_file() {
    return test::tulva_text({"Vantorix Data File v4.00", "Source Coeff0: 1", "Source Coeff1: 2", "Data Points: 1"},
                            test::float_bytes({1.0f}));
}

TEST(CalibrationCommands, RecalQuestionsAndFiles) {
    test::TempDir dir;
    Spectrum current;
    current.filename = dir.write("cur.dat", data_file());
    const std::string other = dir.write("other.dat", data_file());
    CalibrationPanel panel;
    panel.CalA = 47536770.0;
    panel.CalB = -3379711488.0;

    RecordingUi ui;
    ui.confirms = {false};
    EXPECT_EQ(recal_file_command(current, panel, ui), 1);
    ASSERT_EQ(ui.messages.size(), 1u);
    EXPECT_EQ(ui.messages[0].title, "Recalibrate current file?");
    EXPECT_EQ(ui.messages[0].text, "Do you want to recalibrate the current file?");
    EXPECT_FALSE(fs::exists(current.filename + ".new"));
    ui.confirms = {true};
    EXPECT_EQ(recal_file_command(current, panel, ui), 0);
    EXPECT_NE(test::read_file(current.filename + ".new").find("Source Coeff0:47536768.000000\n"), std::string::npos);
    fs::remove(current.filename + ".new");

    RecordingUi multi;
    multi.confirms = {false};
    multi.file_lists = {{other}};
    EXPECT_EQ(recal_multi_files_command(&current, panel, multi), 1);
    ASSERT_EQ(multi.messages.size(), 2u);
    EXPECT_EQ(multi.messages[0].text, "Do you want to recalibrate the current file as well?");
    EXPECT_EQ(multi.messages[1].title, "Select TULVA / Vantorix files to recalibrate.");
    EXPECT_TRUE(fs::exists(other + ".new"));
    EXPECT_FALSE(fs::exists(current.filename + ".new"));
    multi.confirms = {true};
    multi.file_lists = {{dir.file("missing.dat")}};
    EXPECT_EQ(recal_multi_files_command(&current, panel, multi), -1);  // one of two failed
    EXPECT_TRUE(fs::exists(current.filename + ".new"));
}

TEST(CalibrationCommands, ReferenceButtonAndSavingTheMasses) {
    // Peaks on a 1 Hz axis at the default law's frequencies of three masses.
    Spectrum s;
    s.datacount = 1 << 20;
    s.dbandwidth = s.datacount;
    for (double m : {300.0, 500.0, 700.0}) {
        Peak p;
        p.frequency = (DEFAULT_ATERM + std::sqrt(DEFAULT_ATERM * DEFAULT_ATERM + 4.0 * m * DEFAULT_BTERM)) / (2.0 * m);
        p.index = p.frequency;
        p.mass = m * (1 + 0.5e-6);
        s.peaks.push_back(p);
    }
    test::TempDir dir;
    const std::string ref = dir.write("a.ref", reference_file_text({300.0, 500.0, 700.0, 900.0}));
    CalibrationPanel panel;
    RecordingUi ui;
    ui.files = {ref};
    Settings st;
    ASSERT_EQ(calibrate_ref_file_command(s, panel, tolerance_from_settings(st), ui), 0);
    ASSERT_EQ(panel.rows.size(), 3u);
    EXPECT_EQ(panel.rows[2].theoretical, 700.0);
    EXPECT_EQ(ui.messages[0].title, "Choose calibration reference file to use");

    const std::string out = dir.file("b.ref");
    ASSERT_EQ(save_reference_from_table(out, panel, ui), 0);
    std::vector<double> back;
    ASSERT_EQ(read_reference_file(out, back, ui), 0);
    EXPECT_EQ(back, (std::vector<double>{300.0, 500.0, 700.0}));

    // A header 100 ppm off and the default 1 ppm limit: the message, the table as it was.
    for (Peak& p : s.peaks) p.iscalibrant = 0, p.calmass = -1.0;
    s.Aterm *= 1.0001;
    CalibrationPanel empty;
    ui.files = {ref};
    EXPECT_EQ(calibrate_ref_file_command(s, empty, tolerance_from_settings(st), ui), -1);
    EXPECT_TRUE(ui.saw("Operator Error", "Must check at least 2 \n peaks for calibration"));
    EXPECT_TRUE(empty.rows.empty());
}

}  // namespace
}  // namespace vx
