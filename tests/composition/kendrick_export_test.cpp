// The Kendrick text export (SaveKendrick) byte for byte, its batch names and
// refusals, and the export from the command line after an assignment.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include "composition/kendrick.hpp"
#include "platform/ui.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

// One odd peak with a formula, one even peak without.
Spectrum two_peaks() {
    Spectrum s;
    s.Trapvoltage = -1.5;
    s.Aterm = 1.0e8;
    s.Bterm = -2.5e9;
    s.detectstart = 0.25;
    s.peakprofile = 5.0;
    s.peakabundance = 20.0;
    s.peaks.resize(2);
    s.peaks[0].iscalibrant = 1;
    HitRecord odd;
    odd.source_index = 0;
    odd.mass = 201.123456789;
    odd.relabundance = 50.0;
    odd.abundance = 1000.0;
    odd.resolvingpower = 150000.5;
    odd.z_star = -9;
    odd.kmd = 120;
    odd.series = 0;
    odd.dbe = 3.5;
    odd.class_text = ",O4 ";
    odd.formula_text = ",C,10,H,17,,,O,4,";
    odd.hit_code = 1;
    odd.frequency = 123456.789;
    odd.sn = 45.5;
    odd.theoretical_mass = 201.1234;
    odd.error = 1.2345;
    HitRecord even;
    even.source_index = 1;
    even.mass = 228.5;
    even.relabundance = 100.0;
    even.abundance = 2000.0;
    even.resolvingpower = 120000.0;
    even.z_star = -10;
    even.kmd = -250;
    even.series = 0;
    even.formula_text = "No Hit";
    s.unassigned = {odd};
    s.assigned = {even};
    return s;
}

TEST(SaveKendrick, TextByteForByte) {
    const Spectrum s = two_peaks();
    const KendrickTables t;  // CH2, factor 1.0011177
    const std::string head =
        "There were 2 Peaks found from m/z=   201.12    to m/z=   228.50.\r\n"
        "NEGATIVE ION MODE\r\n"
        "Noise threshold: 5.000000        Peak threshold: 20.000000\r\n"
        "\r\n"
        "Data Detected at (seconds): 0.250000\r\n"
        "Calibration parameters: A = 100000000.000000 , B = -2500000000.000000 and Trap Plate Voltage = -1.500000\r\n"
        "Center of Mass for the Assigned Window is   219.3745\r\n"
        "\r\n"
        " There were ,1 odd peaks, and ,1 even peaks\r\n"
        "\r\n";
    const std::string separator =
        "     ********************************************************************************************************************\r\n";
    KendrickSaveOptions o;
    EXPECT_EQ(SaveKendrick_text(s, t, o),
              head +
                  "Peak Number,Mass,Rel. Abundance,RP,Kendrick Mass,Nom. Mass,Odd/Even,Nom. Z,KMD,Series Fit,DBE,Group,,"
                  "Molecular Formula\r\n"
                  "       1,201.1234568, 50.0000,  150000.50,  200.8989,  201,   1,  -9, 120,   0,3.500000,,O4 ,,C,10,H,17,,,O,4,\r\n" +
                  separator +
                  "       2,228.5000000,100.0000,  120000.00,  228.2449,  228,   0, -10,-250,   0,0.000000,,No Hit\r\n");

    // The absolute form differs in its header and abundance column only; the
    // calibrant form has its own columns; fewer decimals narrow the m/z.
    o.kind = KendrickSaveKind::AbsoluteAbundance;
    o.decimals = 3;
    const std::string abs = SaveKendrick_text(s, t, o);
    EXPECT_NE(abs.find("Peak Number,Mass,Abs. Abundance,RP,"), std::string::npos);
    EXPECT_NE(abs.find("\r\n       1,    201.123,1000.0000,  150000.50,"), std::string::npos) << abs;
    o.kind = KendrickSaveKind::Calibrants;
    o.decimals = 7;
    const std::string cal = SaveKendrick_text(s, t, o);
    EXPECT_NE(cal.find("Peak Number, Calibrant, Mass,Abs. Abundance, Frequency, SN, Theor Mass, Error, RP, Kendrick "
                       "Mass, Nom. Mass, Odd/Even, Nom. Z, KMD,Series Fit, DBE,Group, , Molecular Formula\r\n"
                       "       1,       1,    201.1234568,1000.00000,  123456.789000,    45.5000,     201.12340000,"
                       "     1.2345,  150000.50,  200.8989,  201,   1,  -9, 120,   0,3.500000,,O4 ,,C,10,H,17,,,O,4,\r\n"),
              std::string::npos)
        << cal;

    // The ion-mode line: the trap voltage's sign unless the search's mode is given;
    // no detection time, no line.
    Spectrum pos = s;
    pos.Trapvoltage = 1.0;
    pos.detectstart = 0.0;
    o = KendrickSaveOptions{};
    const std::string p = SaveKendrick_text(pos, t, o);
    EXPECT_NE(p.find("\r\nPOSITIVE ION MODE\r\n"), std::string::npos);
    EXPECT_EQ(p.find("Data Detected"), std::string::npos);
    o.negative = true;
    EXPECT_NE(SaveKendrick_text(pos, t, o).find("\r\nNEGATIVE ION MODE\r\n"), std::string::npos);
}

TEST(SaveKendrick, BatchNamesAndRefusals) {
    struct Case {
        const char* data;
        int which;
        const char* name;
    };
    const Case cases[] = {{"/d/run.dat", 0, "/d/run_save3.csv"},
                          {"/d/run.dat", 1, "/d/run_processed.csv"},
                          {"/d/run.1/scan", 2, "/d/run.1/scan_preprocessed.csv"}};
    for (const Case& c : cases) {
        RecordingUi ui;
        EXPECT_EQ(kendrick_batch_path(c.data, c.which, ui), c.name);
        EXPECT_EQ(ui.console.find("Petroken - Newfilename = ") != std::string::npos, c.which > 0) << c.data;
    }
    test::TempDir dir;
    const std::string data = dir.write("run.dat", "data");
    Spectrum s = two_peaks();
    s.filename = data;
    RecordingUi ui;
    EXPECT_EQ(SaveKendrick(data, s, KendrickTables{}, KendrickSaveOptions{}, ui), -1);
    EXPECT_EQ(test::read_file(data), "data");
    Spectrum empty;
    EXPECT_EQ(SaveKendrick(dir.file("k.csv"), empty, KendrickTables{}, KendrickSaveOptions{}, ui), -1);
    EXPECT_EQ(ui.messages.size(), 2u);
    EXPECT_EQ(SaveKendrick(dir.file("k.csv"), s, KendrickTables{}, KendrickSaveOptions{}, ui), 0);
    EXPECT_EQ(test::read_file(dir.file("k.csv")), SaveKendrick_text(s, KendrickTables{}, KendrickSaveOptions{}));
}

TEST(SaveKendrick, FromTheCommandLineAfterAssignment) {
    test::TempDir dir;
    const std::string home = dir.file("home");
    const std::string list = dir.file("list.csv");
    auto r = test::run_cli(home, fmt::format("simulate-formulas --count 120 --classes cho --seed 4 -o {}", list));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string saved = dir.file("saved.csv");
    r = test::run_cli(home, fmt::format("assign {} --elements C1-80,H0-160,O0-20 --save {} --save-kind abs", list, saved));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string text = test::read_file(saved);
    EXPECT_EQ(text.rfind("There were 120 Peaks found from m/z= ", 0), 0u);
    EXPECT_NE(text.find("\r\nNEGATIVE ION MODE\r\n"), std::string::npos);
    EXPECT_NE(text.find("Peak Number,Mass,Abs. Abundance,"), std::string::npos);
    // Assigned rows carry their class and formula columns (",O" class, "C," pairs).
    EXPECT_NE(text.find(",,O"), std::string::npos);
    EXPECT_NE(text.find(",C,"), std::string::npos);
    // kendrick alone: the arrays without formulas; bad kinds are refused.
    r = test::run_cli(home, fmt::format("kendrick {} --save {} --mode pos", list, saved));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(test::read_file(saved).find("\r\nPOSITIVE ION MODE\r\n"), std::string::npos);
    for (const char* bad : {"--save-kind weird", "--decimals 40"}) {
        r = test::run_cli(home, fmt::format("kendrick {} --save {} {}", list, dir.file("x.csv"), bad));
        EXPECT_NE(r.status, 0) << bad;
        EXPECT_FALSE(r.err.empty()) << bad;
    }
    r = test::run_cli(home, fmt::format("kendrick {} --save {}", list, list));
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(test::read_file(list).rfind("mz,intensity,formula", 0), 0u);
}

}  // namespace
}  // namespace vx
