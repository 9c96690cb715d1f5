#include "workspace/workspace.hpp"

#include "platform/ui.hpp"
#include "workspace/display.hpp"
#include "workspace/filelist.hpp"

namespace vx {

AnalysisPanel Get_Active_Panel(const Workspace& ws) {
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS) return AnalysisPanel{};
    return ws.panels[static_cast<std::size_t>(ws.active_panel)];
}

int Get_New_Panel(Workspace& ws) {
    ws.walking_option = false;
    for (int i = 0; i < MAX_PANELS; ++i)
        if (ws.panels[static_cast<std::size_t>(i)].active == 0) return i;
    return -1;
}

void prepare_new_slot(Workspace& ws, int slot, int filetype) {
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    p = AnalysisPanel{};
    p.firstmasszoom = 1;
    p.moveoffset = 0.0;
    SetDefaultParametersForNewSpectrum(p.spectrum, filetype);
}

int open_data_file(Workspace& ws, const std::string& path, int filetype, const PanelReader& reader, Ui& ui) {
    ws.walking_option = false;
    const int slot = Get_New_Panel(ws);
    if (slot < 0) {
        ws.active_panel = -1;
        ui.MessagePopup("Warning", TOO_MANY_FILES);
        return -1;
    }
    ws.active_panel = slot;
    prepare_new_slot(ws, slot, filetype);
    if (reader(ws, path, slot, ui) < 0) return -1;

    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    Spectrum& s = p.spectrum;
    if (s.hzppt <= 0.0 && s.datacount != 0) s.hzppt = s.dbandwidth / s.datacount;
    if (s.domain == DOMAIN_MASS) p.xmode = XMODE_MZ;
    else if (s.domain == DOMAIN_FREQUENCY) p.xmode = XMODE_FREQUENCY;
    else p.xmode = XMODE_TIME;
    s.filename = path.substr(0, 255);
    // The display opens in time mode; frequency files then get their own axis.
    Initialize_Display(ws, slot);
    if (s.domain == DOMAIN_MASS) PlotMenuCommand(p, PLOT_MZ, 0.0, 0.0, ws.settings, ui);
    else if (s.domain == DOMAIN_FREQUENCY) PlotMenuCommand(p, PLOT_FREQUENCY, 0.0, 0.0, ws.settings, ui);
    if (!ws.settings_folder.empty()) updateFileList(ws.settings_folder, path);
    return slot;
}

int close_active_panel(Workspace& ws, Ui& ui) {
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS ||
        ws.panels[static_cast<std::size_t>(ws.active_panel)].active == 0) {
        ui.MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(ws.active_panel)];
    free_arrays(p.spectrum);
    free_arrays(p.spectrum2);
    if (ws.phased_data >= 0 && ws.phased_data < MAX_PANELS) {
        ws.panels[static_cast<std::size_t>(ws.phased_data)].spectrum.phase = {};
    }
    p.spectrum.sed = 0;
    p.spectrum.sedflag = 0;
    p.active = 0;
    p.panel = 0;
    ws.active_panel = -1;
    for (int i = MAX_PANELS - 1; i >= 0; --i) {
        if (ws.panels[static_cast<std::size_t>(i)].active) {
            ws.active_panel = i;
            break;
        }
    }
    return 0;
}

}  // namespace vx
