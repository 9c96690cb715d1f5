// The table of 32 analysis panels and the state that commands act on.
//
// One slot holds one opened data set with the state of its graph window. A
// command takes the slot named by active_panel, changes its records and redraws.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "workspace/settings.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

struct AnalysisPanel {
    std::int32_t active = 0;
    Spectrum spectrum;
    Spectrum spectrum2;         // second data set of a mirror display
    std::int32_t mirrored = 0;
    std::int32_t panel = -1;    // graph window handle; -1 none
    std::int32_t menubar = 0;
    std::int32_t plot = -1;
    std::int32_t plot2 = -1;
    double xmin = 0.0, xmax = 0.0;        // range shown, in data points
    double fullmin = 0.0, fullmax = 0.0;  // the full view
    double prevmin = 0.0, prevmax = 0.0;  // one-level zoom undo
    float ymax = 0.0f, ymin = 0.0f;
    float localymin = 0.0f, localymax = 0.0f;
    double moveoffset = 0.0;
    std::int32_t xmode = XMODE_TIME;
    std::int32_t relativescale = 0;
    std::int32_t globalscale = 0;
    std::int16_t firstmasszoom = 1;
};

// How the next open reads a file whose path does not say it all: the layouts
// without a header (Melbar, Vosk, TOF text), the scan of a multi-scan file and
// the answers of the reader dialogues. Every command and the desktop's Open
// entries fill it before they open; the readers report back scans/scan.
struct OpenOptions {
    std::string format;          // "" by the path and contents; "melbar", "vosk", "tof", "odyssey", "mzml", "tulva"
    int scan = 0;                // scan of a multi-scan file; 0: the prompt's answer (default the last)
    int points = 0;              // Melbar/Vosk point count; 0: all records of the file / the Vosk header
    int channel = -1;            // Melbar/Vosk channel; -1: the dialogue's preset
    std::optional<double> bin;   // TOF bin size in m/z; unset: the reader asks
    int scans = 0;               // out: scans the last file opened holds (0: not a scan file)
    int scan_opened = 0;         // out: the scan read
};

struct Workspace {
    std::array<AnalysisPanel, MAX_PANELS> panels{};
    std::int32_t active_panel = -1;
    std::int32_t phased_data = -1;
    std::int32_t sed_mode = 0;
    std::int32_t sed_second_panel = -1;
    std::int32_t sed_third_panel = -1;
    // Calibration panel option "Walking" (cleared on every open).
    bool walking_option = false;
    // Text of the comment control, filled by the readers' comment block.
    std::string comment_text;
    Settings settings = default_settings();
    // Folder of ftmsdata.ini / tulva.ini; empty: no recent-file list is kept.
    std::string settings_folder;
    OpenOptions open_options;
};

// Copy of the slot at active_panel (an empty record when there is none).
AnalysisPanel Get_Active_Panel(const Workspace& ws);

// First free slot, or -1 when all 32 are in use. Clears the calibration
// panel's "Walking" option. The caller gives the warning of the full table.
int Get_New_Panel(Workspace& ws);

// A slot about to receive a file: graph state reset, record emptied, new-slot state set.
void prepare_new_slot(Workspace& ws, int slot, int filetype);

// Occupies the slot for display: full range without the last sample, time
// mode, absolute and local scales, extremes of the data; active = 1.
void Initialize_Display(Workspace& ws, int slot);

// A reader for the opening road: fills ws.panels[slot].spectrum from path,
// returns 0 or a negative value after it has shown its own message.
using PanelReader = std::function<int(Workspace&, const std::string& path, int slot, Ui&)>;

// The opening road of every time-domain and frequency file (without the file
// dialogue): reserve a slot, read, set hzppt and the x mode, occupy the slot and
// record the file in the recent list. Returns the slot, or -1.
int open_data_file(Workspace& ws, const std::string& path, int filetype, const PanelReader& reader, Ui& ui);

// The "Close" command on the active panel. Returns 0, or -1 with no active panel.
int close_active_panel(Workspace& ws, Ui& ui);

inline constexpr const char* TOO_MANY_FILES = "Too many files open, close some files and reload.";

}  // namespace vx
