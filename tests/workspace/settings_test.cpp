#include "workspace/settings.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/ui.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

TEST(Settings, DefaultsOfInitialize) {
    const Settings s = default_settings();
    EXPECT_EQ(s.apodization, 3);
    EXPECT_EQ(s.transform, 1);
    EXPECT_EQ(s.zerofills, 1);
    EXPECT_EQ(s.truncations, 0);
    EXPECT_EQ(s.boxcar, 0);
    EXPECT_EQ(s.baselinecorrect, 1);
    EXPECT_EQ(s.peak_threshold, 20.0);
    EXPECT_EQ(s.noise_threshold, 5.0);
    EXPECT_EQ(s.min_peak_width, 3.0);
    EXPECT_EQ(s.noise_sigma_factor, 2.0);
    EXPECT_EQ(s.noise_window, 5.0);
    EXPECT_EQ(s.phase_search_low, 300000.0);
    EXPECT_EQ(s.phase_search_high, 1800000.0);
    EXPECT_EQ(s.autocal_error_limit, 1.0);
    EXPECT_EQ(s.autocal_ppm, 1);
    EXPECT_EQ(s.thrash_window, 1);
    EXPECT_EQ(s.quick_zoom, 1);
    EXPECT_EQ(s.fftspeed, 0);
    EXPECT_GE(s.thread_count, 1);
    EXPECT_LE(s.thread_count, 4);
    EXPECT_EQ(s.PEAKMZ, 7);
    EXPECT_EQ(s.PEAKABUN, 2);
}

struct IniCase {
    std::string ini;
    std::function<void(const Settings&)> check;
};

TEST(Settings, ReadIniKeys) {
    test::TempDir dir;
    const std::string temp = dir.file("tmp");
    fs::create_directories(temp);
    const std::vector<IniCase> cases = {
        {"[section]\nPLOTTOOL=/usr/bin/plot\nWINZIP=zip\nTEMP=" + temp + "\nHIGHMASS=1500.5\n",
         [&](const Settings& s) {
             EXPECT_EQ(s.PLOTTOOL, "/usr/bin/plot");
             EXPECT_EQ(s.WINZIP, "zip");
             EXPECT_EQ(s.TEMP, temp);
             EXPECT_EQ(s.mass_zoom_limit, 1500.5);
         }},
        // Names must match exactly, in upper case; lines without "=" are skipped.
        {"highmass=900\nHighMass=900\n HIGHMASS=900\nno equals sign\n",
         [](const Settings& s) { EXPECT_EQ(s.mass_zoom_limit, 0.0); }},
        {"DRAGNDROPFTYPE=BRUKER\n", [](const Settings& s) { EXPECT_EQ(s.dragdrop_type, 2); }},
        {"DRAGNDROPFTYPE=ODYSSEY\nDRAGNDROPFTYPE=SOMETHING\n", [](const Settings& s) { EXPECT_EQ(s.dragdrop_type, 1); }},
        {"DRAGNDROPFTYPE=BRUKER\nDRAGNDROPFTYPE=\n", [](const Settings& s) { EXPECT_EQ(s.dragdrop_type, 0); }},
        {"THRASHWINDOW=OFF\nQUICKZOOM=off\nFFTSPEED=yes\n",
         [](const Settings& s) {
             EXPECT_EQ(s.thrash_window, 0);
             EXPECT_EQ(s.quick_zoom, 0);
             EXPECT_EQ(s.fftspeed, 1);
         }},
        {"THRASHWINDOW=Off\nFFTSPEED=OFF\n",
         [](const Settings& s) {
             EXPECT_EQ(s.thrash_window, 1);  // only "OFF" and "off" turn it off
             EXPECT_EQ(s.fftspeed, 0);
         }},
        {"AUTOCALMASSERRORLIMIT=2.5\r\nAUTOCALUNITS=0\r\n",
         [](const Settings& s) {
             EXPECT_EQ(s.autocal_error_limit, 2.5);
             EXPECT_EQ(s.autocal_ppm, 0);
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.ini);
        test::write_file(dir.file("ftmsdata.ini"), c.ini);
        Settings s = default_settings();
        RecordingUi ui;
        ASSERT_EQ(ReadINI(dir.path().string(), s, ui), 0);
        EXPECT_TRUE(ui.messages.empty());
        c.check(s);
    }
}

TEST(Settings, MissingIniIsNoFailure) {
    test::TempDir dir;
    Settings s = default_settings();
    RecordingUi ui;
    EXPECT_EQ(ReadINI(dir.path().string(), s, ui), 0);
    EXPECT_TRUE(ui.saw("Ftmsdata.ini not found.", "Unable to locate ftmsdata.ini."));
}

TEST(Settings, EmptyHighMassPromptsOnce) {
    test::TempDir dir;
    test::write_file(dir.file("ftmsdata.ini"), "HIGHMASS=\n");
    for (auto answer : {std::optional<std::string>("2200"), std::optional<std::string>(""), std::optional<std::string>()}) {
        Settings s = default_settings();
        s.mass_zoom_limit = 77;
        RecordingUi ui;
        ui.prompts.push_back(answer);
        ASSERT_EQ(ReadINI(dir.path().string(), s, ui), 0);
        ASSERT_EQ(ui.messages.size(), 1u);
        EXPECT_EQ(ui.messages[0].kind, "prompt");
        EXPECT_EQ(ui.messages[0].title, "There was no Highest Mass value found in your FTMSDATA.INI file ");
        EXPECT_EQ(ui.messages[0].text,
                  "Do you want to select a highest mass to be viewed when opening the mass domain");
        EXPECT_EQ(s.mass_zoom_limit, answer && !answer->empty() ? 2200.0 : 0.0);
    }
}

TEST(Settings, TempFolderMustBeWritable) {
    test::TempDir dir;
    const std::string missing = dir.file("made/by/question");
    test::write_file(dir.file("ftmsdata.ini"), "TEMP=" + missing + "\n");
    const std::string question = "Temp Folder '" + missing +
                                 "' not found.\nPlease create the folder -OR-\nChange the folder setting by editting "
                                 "ftmsdata.INI file.\n\nDo you want to create this folder ('" +
                                 missing + "')?";
    {
        Settings s;
        RecordingUi ui;
        ui.confirms.push_back(false);
        EXPECT_EQ(ReadINI(dir.path().string(), s, ui), -1);  // the program must end
        EXPECT_TRUE(ui.saw("Error in ftmsdata.INI file", question));
        EXPECT_FALSE(fs::exists(missing));
    }
    {
        Settings s;
        RecordingUi ui;
        ui.confirms.push_back(true);
        EXPECT_EQ(ReadINI(dir.path().string(), s, ui), 0);
        EXPECT_TRUE(fs::is_directory(missing));
        EXPECT_FALSE(fs::exists(fs::path(missing) / "test"));  // the probe file is removed
    }
}

TEST(Settings, FirstRunWritesUsableDefaults) {
    test::TempDir dir;
    ::setenv("VANTORIX_HOME", dir.path().c_str(), 1);
    const std::string folder = settings_dir();
    EXPECT_EQ(folder, dir.path().string());
    ASSERT_EQ(ensure_default_ini(folder), 0);
    Settings s = default_settings();
    RecordingUi ui;
    ASSERT_EQ(ReadINI(folder, s, ui), 0);
    EXPECT_TRUE(ui.messages.empty());
    EXPECT_FALSE(s.WINZIP.empty());  // ".Z" handling is on
    EXPECT_TRUE(fs::is_directory(s.TEMP));
    // A second call keeps the user's file.
    test::write_file((fs::path(folder) / "ftmsdata.ini").string(), "HIGHMASS=5\n");
    ASSERT_EQ(ensure_default_ini(folder), 0);
    EXPECT_EQ(test::read_file((fs::path(folder) / "ftmsdata.ini").string()), "HIGHMASS=5\n");
    ::unsetenv("VANTORIX_HOME");
}

}  // namespace
}  // namespace vx
