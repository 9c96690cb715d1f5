// "Absorption Mode Controls": the phasing run of the active panel with the
// options of the panel; the result replaces the panel's spectrum and the graph
// shows it as an absorption spectrum in m/z.
#pragma once

namespace vx {

class MainWindow;

// Opens the panel (one per main window, kept between uses).
void show_PHASE2(MainWindow& window);

}  // namespace vx
