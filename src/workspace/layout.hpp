// Page layouts: all open graph windows tiled in a grid under the main window.
// The geometry is worked out here from the sizes of the window frames, so the
// desktop program only reads its frames and moves its windows.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace vx {

// The grids offered, as (rows, columns): "1 x 1" to "4 x 3", without 3 x 3.
struct GridChoice {
    int rows, columns;
    const char* title;
};
const std::array<GridChoice, 11>& layout_grids();

// Sizes read from the main window and from the active graph window.
struct LayoutFrame {
    int main_height = 0;   // outer height of the main window
    int main_width = 0;    // outer width
    int menu_height = 0;   // menu bar
    int title_height = 0;  // the main window's title bar
    int frame_width = 0;   // the main window's side frame
    int graph_title_height = 0;  // title bar of a graph window
};

struct SlotGeometry {
    int slot = 0;
    int left = 0, top = 0;  // of the graph window's content, from the main window's top left
    int width = 0, height = 0;
};

// SetPanelLayout's arithmetic: available h = main height - (title + menu),
// w = main width - 2 frame; each cell floor(w / columns) wide and
// floor(h / rows) - graph title high, the left margin ceil(frame / 2). The
// cells are filled along a row, column by column, then the next row down,
// each from the next occupied slot (0 upward, at most 32). Occupied slots
// beyond the grid get no geometry: their windows stay where they are.
std::vector<SlotGeometry> SetPanelLayout(int rows, int columns, const LayoutFrame& frame,
                                         const std::vector<bool>& occupied);

}  // namespace vx
