// "Add Spectra": the progress dialogue of co-adding, with the bar, the lists of
// files used (GOODFILES) and failed (BADFILES), Stop and Close.
#pragma once

namespace vx {

class MainWindow;
enum class CoaddKind;

// Asks for the files ("Open Multiple Files"), co-adds them into a new panel
// and leaves the dialogue open until Close.
void add_spectra(MainWindow& w, CoaddKind kind);
// The same for two-channel files: "Vantorix SED Files..." (CoAddTulvaSED) or,
// transformed, "Vantorix FTD Files..." (CoAddTulvaSEDFTD).
void add_sed_spectra(MainWindow& w, bool transformed);

// Adds the "Add Spectra" submenu of the co-add commands to the main window's
// "Batch" menu (made when absent).
void add_coadd_entries(MainWindow& w);

}  // namespace vx
