#include "workspace/layout.hpp"

#include <cmath>

namespace vx {

const std::array<GridChoice, 11>& layout_grids() {
    static const std::array<GridChoice, 11> grids = {{
        {1, 1, "1 x 1"}, {1, 2, "1 x 2"}, {1, 3, "1 x 3"}, {2, 1, "2 x 1"}, {2, 2, "2 x 2"}, {2, 3, "2 x 3"},
        {3, 1, "3 x 1"}, {3, 2, "3 x 2"}, {4, 1, "4 x 1"}, {4, 2, "4 x 2"}, {4, 3, "4 x 3"},
    }};
    return grids;
}

std::vector<SlotGeometry> SetPanelLayout(int rows, int columns, const LayoutFrame& f,
                                         const std::vector<bool>& occupied) {
    std::vector<SlotGeometry> out;
    if (rows < 1 || columns < 1) return out;
    const int h = f.main_height - (f.title_height + f.menu_height);
    const int w = f.main_width - 2 * f.frame_width;
    const int width = static_cast<int>(std::floor(static_cast<double>(w) / columns));
    const int row_height = static_cast<int>(std::floor(static_cast<double>(h) / rows));
    const int height = row_height - f.graph_title_height;
    const int left_margin = static_cast<int>(std::ceil(f.frame_width * 0.5));
    const int top0 = f.title_height + f.menu_height;
    std::size_t slot = 0;
    const std::size_t slots = std::min<std::size_t>(occupied.size(), 32);
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < columns; ++c) {
            while (slot < slots && !occupied[slot]) ++slot;
            if (slot >= slots) return out;
            SlotGeometry g;
            g.slot = static_cast<int>(slot);
            g.left = left_margin + c * width;
            g.top = top0 + r * row_height + f.graph_title_height;
            g.width = width;
            g.height = height;
            out.push_back(g);
            ++slot;
        }
    }
    return out;
}

}  // namespace vx
