// Panel 6 of the batch panels: the Vosk special analysis of the active record
// (scans cut end to end, COF, largest ion, sweep rate) and its three popup plots.
#pragma once

namespace vx {

class MainWindow;

// Opens the dialogue (SetupVoskPanel); its Run button calls ProcessVoskSpecial.
void SetupVoskPanel(MainWindow& w);

// Adds "Vosk Special Analysis..." to the "Batch" menu (made when absent).
void add_vosk_entry(MainWindow& w);

}  // namespace vx
