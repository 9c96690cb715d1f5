// "Panel Layout": the graph windows tiled in one of the eleven grids, or a
// grid of the user's own ("Custom"), by slot number.
#pragma once

class QMenu;

namespace vx {

class MainWindow;

// SetPanelLayout in the main window's graph area. Returns the windows placed.
int set_panel_layout(MainWindow& main, int rows, int columns);

// Fills menu with the grids and "Custom...".
void add_panel_layout_menu(MainWindow& main, QMenu* menu);

}  // namespace vx
