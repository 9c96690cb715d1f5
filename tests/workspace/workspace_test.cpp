#include "workspace/workspace.hpp"

#include <gtest/gtest.h>

#include "formats/tulva_reader.hpp"
#include "platform/ui.hpp"
#include "support/files.hpp"
#include "workspace/filelist.hpp"

namespace vx {
namespace {

int fake_reader_ok(Workspace& ws, const std::string&, int slot, Ui&) {
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    s.data = {1.f, 5.f, -2.f, 0.f};
    s.datacount = 4;
    s.dbandwidth = 800.0;
    return 0;
}

int fake_reader_fails(Workspace&, const std::string&, int, Ui& ui) {
    ui.MessagePopup("File Input Error", "No Data Marker Found");
    return -1;
}

TEST(Workspace, NewSlotStateAndDefaults) {
    Spectrum s;
    s.sed = 1;
    s.lcmscurrent = 4;
    s.Rephased = 1;
    s.rephase_dterms = {1.0};
    s.noisesigma = 3;
    SetDefaultParametersForNewSpectrum(s, FILETYPE_BRUKER);
    EXPECT_EQ(s.sed, 0);
    EXPECT_EQ(s.lcmscurrent, -1);
    EXPECT_EQ(s.filetype, FILETYPE_BRUKER);
    EXPECT_EQ(s.Rephased, 0);
    EXPECT_TRUE(s.rephase_dterms.empty());
    EXPECT_EQ(s.noisesigma, 0.0);
    EXPECT_EQ(s.kendrickleft, -1);

    Spectrum d;
    d.datacount = 5;
    d.Aterm = 1;
    d.collectedby = "x";
    d.lowfreq = 100;
    Set_Default_Parameters(d);
    EXPECT_EQ(d.datacount, 16384);
    EXPECT_EQ(d.Aterm, 47536770.867829);
    EXPECT_EQ(d.Bterm, -3379711463.376564);
    EXPECT_EQ(d.collectedby, "Unknown");
    EXPECT_EQ(d.lowfreq, -1.0);
    EXPECT_EQ(d.Zerofills_stored, 1);
    EXPECT_EQ(d.usephasedelay, 1);
}

TEST(Workspace, OpeningRoadFillsASlot) {
    test::TempDir dir;
    Workspace ws;
    ws.settings_folder = dir.path().string();
    RecordingUi ui;
    const int slot = open_data_file(ws, "/data/run1.dat", FILETYPE_TULVA, fake_reader_ok, ui);
    ASSERT_EQ(slot, 0);
    const AnalysisPanel& p = ws.panels[0];
    EXPECT_EQ(p.active, 1);
    EXPECT_EQ(ws.active_panel, 0);
    EXPECT_EQ(p.xmode, XMODE_TIME);
    EXPECT_EQ(p.spectrum.hzppt, 200.0);  // bandwidth / count when the reader left none
    EXPECT_EQ(p.spectrum.filename, "/data/run1.dat");
    EXPECT_EQ(p.ymax, 5.0f);
    EXPECT_EQ(p.ymin, -2.0f);
    EXPECT_EQ(read_file_list(dir.path().string()).names[0], "/data/run1.dat");

    // A failing reader leaves the slot free and active_panel on it.
    const int failed = open_data_file(ws, "/data/bad.dat", FILETYPE_TULVA, fake_reader_fails, ui);
    EXPECT_EQ(failed, -1);
    EXPECT_EQ(ws.panels[1].active, 0);
    EXPECT_EQ(ws.active_panel, 1);
    EXPECT_EQ(read_file_list(dir.path().string()).count, 1);
}

TEST(Workspace, ThirtyThreeFilesGiveTheWarning) {
    Workspace ws;
    RecordingUi ui;
    for (int i = 0; i < MAX_PANELS; ++i)
        ASSERT_EQ(open_data_file(ws, "/f" + std::to_string(i), FILETYPE_TULVA, fake_reader_ok, ui), i);
    EXPECT_TRUE(ui.messages.empty());
    EXPECT_EQ(Get_New_Panel(ws), -1);
    const auto before = ws.panels[5].spectrum.filename;
    EXPECT_EQ(open_data_file(ws, "/one-too-many", FILETYPE_TULVA, fake_reader_ok, ui), -1);
    EXPECT_TRUE(ui.saw("Warning", "Too many files open, close some files and reload."));
    EXPECT_EQ(ws.active_panel, -1);
    EXPECT_EQ(ws.panels[5].spectrum.filename, before);
}

TEST(Workspace, CloseFreesTheSlotAndPicksTheHighestOccupied) {
    Workspace ws;
    RecordingUi ui;
    EXPECT_EQ(close_active_panel(ws, ui), -1);
    EXPECT_TRUE(ui.saw("Operator Error", "No Spectrum Chosen"));

    for (int i = 0; i < 3; ++i) open_data_file(ws, "/f", FILETYPE_TULVA, fake_reader_ok, ui);
    ws.active_panel = 1;
    ws.panels[1].spectrum.peaks.resize(3);
    ASSERT_EQ(close_active_panel(ws, ui), 0);
    EXPECT_EQ(ws.panels[1].active, 0);
    EXPECT_EQ(ws.panels[1].panel, 0);
    EXPECT_TRUE(ws.panels[1].spectrum.data.empty());
    EXPECT_TRUE(ws.panels[1].spectrum.peaks.empty());
    EXPECT_EQ(ws.active_panel, 2);
    EXPECT_EQ(Get_New_Panel(ws), 1);  // the freed slot is reused first

    ASSERT_EQ(close_active_panel(ws, ui), 0);
    ASSERT_EQ(close_active_panel(ws, ui), 0);
    EXPECT_EQ(ws.active_panel, -1);
}

TEST(Workspace, ActivePanelCopyIsIndependent) {
    Workspace ws;
    RecordingUi ui;
    open_data_file(ws, "/f", FILETYPE_TULVA, fake_reader_ok, ui);
    AnalysisPanel copy = Get_Active_Panel(ws);
    copy.spectrum.datacount = 99;
    EXPECT_EQ(ws.panels[0].spectrum.datacount, 4);
    ws.active_panel = -1;
    EXPECT_EQ(Get_Active_Panel(ws).active, 0);
}

}  // namespace
}  // namespace vx
