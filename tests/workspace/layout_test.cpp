// Page layouts: every grid with 0 to 13 windows in scattered slots against
// the formula worked out here by hand, and the fill order decided.
#include <cmath>
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "workspace/layout.hpp"

namespace vx {
namespace {

TEST(PageLayout, ElevenGridsWithoutThreeByThree) {
    const auto& g = layout_grids();
    EXPECT_STREQ(g.front().title, "1 x 1");
    EXPECT_STREQ(g.back().title, "4 x 3");
    for (const auto& c : g) EXPECT_FALSE(c.rows == 3 && c.columns == 3);
}

TEST(PageLayout, ThreeWindowsInTwoByTwoFillTheTopRowFirst) {
    LayoutFrame f{900, 1200, 25, 30, 8, 22};
    std::vector<bool> occupied(32, false);
    occupied[2] = occupied[5] = occupied[9] = true;
    const auto g = SetPanelLayout(2, 2, f, occupied);
    ASSERT_EQ(g.size(), 3u);
    // h = 900 - 55 = 845, w = 1200 - 16 = 1184: cells 592 x (422 - 22).
    EXPECT_EQ(g[0].slot, 2);
    EXPECT_EQ(g[0].left, 4);
    EXPECT_EQ(g[0].top, 55 + 22);
    EXPECT_EQ(g[1].slot, 5);
    EXPECT_EQ(g[1].left, 4 + 592);
    EXPECT_EQ(g[1].top, 55 + 22);
    EXPECT_EQ(g[2].slot, 9);
    EXPECT_EQ(g[2].left, 4);
    EXPECT_EQ(g[2].top, 55 + 422 + 22);
    for (const auto& s : g) {
        EXPECT_EQ(s.width, 592);
        EXPECT_EQ(s.height, 400);
    }
}

TEST(PageLayout, EveryGridEveryCountScatteredSlots) {
    std::mt19937 rng(20);
    for (const auto& grid : layout_grids()) {
        for (int n = 0; n <= 13; ++n) {
            SCOPED_TRACE(std::string(grid.title) + " with " + std::to_string(n));
            std::vector<int> slots(32);
            for (int i = 0; i < 32; ++i) slots[static_cast<std::size_t>(i)] = i;
            std::shuffle(slots.begin(), slots.end(), rng);
            slots.resize(static_cast<std::size_t>(n));
            std::sort(slots.begin(), slots.end());
            std::vector<bool> occupied(32, false);
            for (int s : slots) occupied[static_cast<std::size_t>(s)] = true;
            const LayoutFrame f{700 + n * 13, 1000 + n * 29, 20 + n % 3, 23, 3 + n % 4, 19 + n % 2};
            const auto g = SetPanelLayout(grid.rows, grid.columns, f, occupied);
            const int cells = grid.rows * grid.columns;
            ASSERT_EQ(static_cast<int>(g.size()), std::min(n, cells));
            const int h = f.main_height - (f.title_height + f.menu_height);
            const int w = f.main_width - 2 * f.frame_width;
            const int width = w / grid.columns;
            const int height = h / grid.rows - f.graph_title_height;
            const int margin = (f.frame_width + 1) / 2;
            for (std::size_t i = 0; i < g.size(); ++i) {
                const int r = static_cast<int>(i) / grid.columns;
                const int c = static_cast<int>(i) % grid.columns;
                EXPECT_EQ(g[i].slot, slots[i]);  // by slot number, not window order
                EXPECT_EQ(g[i].width, width);
                EXPECT_EQ(g[i].height, height);
                EXPECT_EQ(g[i].left, margin + c * width);
                EXPECT_EQ(g[i].top, f.title_height + f.menu_height + r * (h / grid.rows) + f.graph_title_height);
            }
        }
    }
}

}  // namespace
}  // namespace vx
