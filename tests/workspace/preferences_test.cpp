// User preferences: the default file byte for byte, first run, save order,
// unknown keys, CR LF, damaged files, checkMassRange, and the prefs command.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "platform/ui.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"
#include "workspace/preferences.hpp"

namespace vx {
namespace {

using test::TempDir;

const char* const DEFAULT_FILE =
    "[Vantorix Analysis User Preferences File]\n"
    "[DO NOT attempt to change this file manually. Changes made here could result error(s) in Vantorix Analysis.]\n"
    "COLOR=16711680\nLINESTYLE=0\nLINETHICK=1\nBGCOLOR=16777215\nZOOMPAN=1\nPREVIEW=1\nGRID=0\nADDCURSOR=0\n"
    "CHECKFFT=0\nDISABLERIGHTZOOM=0\nPROCESSTULVA=0\nTHRASHWINDOW=0\nDOMASSRANGE=0\nLEFTRANGE=0.0\nRIGHTRANGE=0.0\n"
    "TEXTFONT=0\nTEXTSIZE=3\nPEAKMZ=5\nPEAKABUN=1\n"
    "CARBONMAX1=-1\nCARBONMAX2=-1\nHYDROGENMAX1=-1\nHYDROGENMAX2=-1\nNITROGENMAX1=1\nNITROGENMAX2=1\n"
    "OXYGENMAX1=30\nOXYGENMAX2=30\nSULFURMAX1=1\nSULFURMAX2= 1\nPHOSPHOROUSMAX1=0\nPHOSPHOROUSMAX2=0\n"
    "USER1MAX1=1\nUSER1MAX2=1\nUSER2MAX1=1\nUSER2MAX2=1\nUSER3MAX1=0\nUSER3MAX2=0\nUSER4MAX1=0\nUSER4MAX2=0\n"
    "USER5MAX1=0\nUSER5MAX2=0\nUSER6MAX1=0\nUSER6MAX2=0\nALLOWRADS1=1\nALLOWRADS2=1\nMASSACCURACY1=10\n"
    "MASSACCURACY2=10\nPOSMODE1=0\nPOSMODE2=0\nNEGMODE1=1\nNEGMODE2=1\nNEUMODE1=0\nNEUMODE2=0\n"
    "DECIMALSMZ=7\nDECIMALSFREQ=6\nDECIMALSERR=4\nDECIMALSABUN=3\n";

TEST(Preferences, FirstRunWritesTheDefaultFileByteForByte) {
    TempDir dir;
    const std::string folder = dir.file("prefs");
    RecordingUi ui;
    Preferences p;
    ASSERT_EQ(SetupPreferences(folder, p, ui), 0);
    EXPECT_EQ(test::read_file(folder + "/default.txt"), DEFAULT_FILE);
    const std::string ini = test::read_file(folder + "/preference.ini");
    EXPECT_EQ(ini.rfind("[Vantorix Preference File]\n[Warning! DO NOT attempt", 0), 0u) << ini;
    EXPECT_NE(ini.find("AUTOLOAD=1\nAUTOSAVE=1\nDRAGNDROPTYPE=0\nFILE=" + folder + "/default.txt\nTOOL="),
              std::string::npos)
        << ini;
    EXPECT_EQ(p.loaded, folder + "/default.txt");
    EXPECT_EQ(p[Pref::SULFURMAX2], 1.0);
    EXPECT_TRUE(ui.messages.empty());

    // The second run reads what the first made, and a file named in
    // preference.ini that has gone is made again as the default.
    p[Pref::COLOR] = 255;
    ASSERT_EQ(SavePreferenceTXT(folder + "/mine.txt", p, ui), 0);
    test::write_file(folder + "/preference.ini",
                     "[Vantorix Preference File]\nAUTOLOAD=1\nAUTOSAVE=0\nFILE=" + folder + "/mine.txt\nTOOL=/x\n");
    Preferences q;
    ASSERT_EQ(SetupPreferences(folder, q, ui), 0);
    EXPECT_EQ(q.integer(Pref::COLOR), 255);
    EXPECT_EQ(q.AUTOSAVE, 0);
    EXPECT_EQ(q.TOOL, "/x");
}

TEST(Preferences, SaveOrderUnknownKeysAndTheBlank) {
    TempDir dir;
    RecordingUi ui;
    const std::string in = dir.write("in.txt", std::string(DEFAULT_FILE) + "FUTUREKEY=5\n");
    Preferences p;
    ASSERT_EQ(LoadPreferenceFileTXT(in, p, ui), 1);
    p[Pref::LEFTRANGE] = 250.5;
    ASSERT_EQ(SavePreferenceTXT(dir.file("out.txt"), p, ui), 0);
    const std::string out = test::read_file(dir.file("out.txt"));
    EXPECT_EQ(out.find("FUTUREKEY"), std::string::npos);
    EXPECT_NE(out.find("\nSULFURMAX2=1\n"), std::string::npos);
    EXPECT_NE(out.find("\nLEFTRANGE=250.500000\n"), std::string::npos);
    EXPECT_EQ(out.rfind(std::string(PREFERENCE_HEADER) + "\n" + PREFERENCE_WARNING + "\n", 0), 0u);
    // Keys in the save order: plain, every ...1, every ...2, the decimals.
    std::vector<std::string> keys;
    std::size_t pos = out.find('\n', out.find('\n') + 1) + 1;
    while (pos < out.size()) {
        const auto eq = out.find('=', pos);
        keys.push_back(out.substr(pos, eq - pos));
        pos = out.find('\n', pos) + 1;
    }
    ASSERT_EQ(keys.size(), static_cast<std::size_t>(PREF_COUNT));
    EXPECT_EQ(keys[18], "PEAKABUN");
    EXPECT_EQ(keys[19], "CARBONMAX1");
    EXPECT_EQ(keys[20], "HYDROGENMAX1");
    EXPECT_EQ(keys[35], "NEUMODE1");
    EXPECT_EQ(keys[36], "CARBONMAX2");
    EXPECT_EQ(keys[52], "NEUMODE2");
    EXPECT_EQ(keys[53], "DECIMALSMZ");
    EXPECT_EQ(keys[56], "DECIMALSABUN");
    // What was saved loads back to the same values.
    Preferences q;
    ASSERT_EQ(LoadPreferenceFileTXT(dir.file("out.txt"), q, ui), 1);
    EXPECT_EQ(q.value, p.value);
}

TEST(Preferences, DamagedFiles) {
    TempDir dir;
    struct Case {
        const char* name;
        std::string text;
        int result;
        std::string title;
        Pref key;
        double value;
    };
    const std::string head = std::string(PREFERENCE_HEADER) + "\r\n";
    const std::vector<Case> cases = {
        {"CR LF loads", head + "COLOR=123\r\nLEFTRANGE=12.5\r\n", 1, "", Pref::LEFTRANGE, 12.5},
        {"number as far as it goes", head + "COLOR=12abc\n", 1, "", Pref::COLOR, 12},
        {"not a number", head + "TEXTSIZE=abc\n", 1, "", Pref::TEXTSIZE, 0},
        {"comment lines", head + "[x]\nno equals sign\nGRID=1\n", 1, "", Pref::GRID, 1},
        {"wrong first line", "[Some Other File]\nCOLOR=1\n", 0, "Invalid File", Pref::COLOR, 16711680},
        {"empty", "", 0, "Invalid File", Pref::COLOR, 16711680},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RecordingUi ui;
        Preferences p;
        EXPECT_EQ(LoadPreferenceFileTXT(dir.write("p.txt", c.text), p, ui), c.result);
        EXPECT_EQ(p[c.key], c.value);
        EXPECT_EQ(ui.saw("Invalid File", "Sorry! Invalid preference file."), !c.title.empty());
    }
    RecordingUi ui;
    Preferences p;
    EXPECT_EQ(LoadPreferenceFileTXT(dir.file("none.txt"), p, ui), 0);
    EXPECT_TRUE(ui.saw("ERROR!", "Sorry! Vantorix preference file not found."));
    EXPECT_EQ(LoadPreferenceFileTXT(dir.path().string(), p, ui), 0);  // a folder
    EXPECT_EQ(save_current_preferences(p, ui), -1);
    EXPECT_TRUE(ui.saw("ERROR!", "Please load or save preference first."));
}

TEST(Preferences, CheckMassRange) {
    struct Case {
        double left, right, want_left, want_right;
    };
    // Data from 100 to 1000.
    const std::vector<Case> cases = {
        {200, 800, 200, 800},   // inside: kept
        {50, 800, 100, 800},    // below: low
        {200, 2000, 200, 1000}, // above: high
        {200, 50, 200, 1000},   // right below the data: high
        // Wholly above the data: the left limit is kept and the result runs
        // backwards (left 2000 > right 1000). The caller falls back to the
        // whole axis for such a range.
        {2000, 3000, 2000, 1000},
    };
    for (const auto& c : cases) {
        double l = c.left, r = c.right;
        checkMassRange(100, 1000, l, r);
        EXPECT_EQ(l, c.want_left);
        EXPECT_EQ(r, c.want_right);
    }
}

TEST(Preferences, CommandShowsLoadsAndSaves) {
    TempDir dir;
    const std::string home = dir.file("home");
    auto r = test::run_cli(home, "prefs --json");
    ASSERT_EQ(r.status, 0) << r.err;
    auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["values"]["COLOR"], 16711680);
    EXPECT_EQ(j["values"]["SULFURMAX2"], 1);
    EXPECT_EQ(test::read_file(j["FILE"].get<std::string>()), DEFAULT_FILE);

    test::write_file(dir.file("mine.txt"), std::string(PREFERENCE_HEADER) + "\r\nCOLOR=7\r\nRIGHTRANGE=900.25\r\n");
    r = test::run_cli(home, "prefs --file '" + dir.file("mine.txt") + "' --save '" + dir.file("out.txt") + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\nCOLOR=7\n"), std::string::npos) << r.out;
    EXPECT_NE(test::read_file(dir.file("out.txt")).find("\nRIGHTRANGE=900.250000\n"), std::string::npos);

    test::write_file(dir.file("bad.txt"), "[nope]\n");
    r = test::run_cli(home, "prefs --file '" + dir.file("bad.txt") + "'");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("Sorry! Invalid preference file."), std::string::npos) << r.err;
}

}  // namespace
}  // namespace vx
