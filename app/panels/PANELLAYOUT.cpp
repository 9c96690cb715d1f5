#include "PANELLAYOUT.hpp"

#include <QInputDialog>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenu>
#include <QStyle>

#include <vector>

#include "graph_window.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"
#include "workspace/layout.hpp"

namespace vx {

int set_panel_layout(MainWindow& main, int rows, int columns) {
    auto* area = main.findChild<QMdiArea*>();
    if (!area) return 0;
    std::vector<bool> occupied(MAX_PANELS, false);
    QMdiSubWindow* subs[MAX_PANELS] = {};
    for (QMdiSubWindow* sub : area->subWindowList()) {
        auto* g = qobject_cast<GraphWindow*>(sub->widget());
        if (!g || g->slot() < 0 || g->slot() >= MAX_PANELS) continue;
        occupied[static_cast<std::size_t>(g->slot())] = true;
        subs[g->slot()] = sub;
    }
    // The graph area stands for the main window's client part; the frames
    // are those of a graph window.
    const int frame = area->style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth);
    const int title = area->style()->pixelMetric(QStyle::PM_TitleBarHeight);
    LayoutFrame f;
    f.main_width = area->viewport()->width() + 2 * frame;
    f.main_height = area->viewport()->height();
    f.frame_width = frame;
    f.graph_title_height = title;
    QMdiSubWindow* active = area->activeSubWindow();
    const auto cells = SetPanelLayout(rows, columns, f, occupied);
    for (const auto& c : cells) {
        QMdiSubWindow* sub = subs[c.slot];
        sub->showNormal();
        sub->setGeometry(c.left - frame, c.top - title, c.width, c.height + title);
        if (auto* g = qobject_cast<GraphWindow*>(sub->widget())) g->redraw();
    }
    if (active) area->setActiveSubWindow(active);
    return static_cast<int>(cells.size());
}

void add_panel_layout_menu(MainWindow& main, QMenu* menu) {
    for (const auto& g : layout_grids()) {
        const int rows = g.rows, columns = g.columns;
        QObject::connect(menu->addAction(g.title), &QAction::triggered, menu,
                         [&main, rows, columns] { set_panel_layout(main, rows, columns); });
    }
    QObject::connect(menu->addAction("Custom..."), &QAction::triggered, menu, [&main] {
        bool ok = false;
        const int rows = QInputDialog::getInt(&main, "Panel Layout", "Rows", 2, 1, 8, 1, &ok);
        if (!ok) return;
        const int columns = QInputDialog::getInt(&main, "Panel Layout", "Columns", 2, 1, 8, 1, &ok);
        if (ok) set_panel_layout(main, rows, columns);
    });
}

}  // namespace vx
