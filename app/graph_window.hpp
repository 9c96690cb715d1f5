// A graph window: the plot of one occupied slot with its menus, cursors and
// read-outs. The ranges live in the slot record; the window turns mouse and
// menu into calls of the core's display functions and draws what they return.
#pragma once

#include <QWidget>

#include "workspace/display.hpp"
#include "workspace/workspace.hpp"

class QCustomPlot;
class QCPGraph;
class QCPCurve;
class QCPItemStraightLine;
class QLabel;
class QMenu;
class QActionGroup;
class QMouseEvent;

namespace vx {

class MainWindow;

class GraphWindow : public QWidget {
    Q_OBJECT
public:
    GraphWindow(MainWindow* main, int slot);

    int slot() const { return slot_; }
    QCustomPlot* plot() const { return plot_; }
    // Update_Display of the slot into the plot.
    void redraw();
    // One item of the plot menu (numbers of the window's menu).
    void plot_command(int item);
    // Pans: button 3 left, 2 right.
    void move_graph(int button);
    // The numeric zoom; low, high in the units of the x axis.
    void zoom_exact(double low, double high, bool from_full);
    // Graph cursors 1..3: x in the units of the present mode.
    double cursor_x(int cursor) const { return cursor_x_[cursor - 1]; }
    void set_cursor(int cursor, double x, double y);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    AnalysisPanel& panel();
    void build_menus();
    void update_checks();
    void update_readouts();
    void show_popup(const QPoint& global);
    void open_zoom_exact();
    void on_press(QMouseEvent* e);
    void on_move(QMouseEvent* e);
    void on_release(QMouseEvent* e);

    MainWindow* main_;
    int slot_;
    QCustomPlot* plot_;
    QCPGraph* trace_ = nullptr;
    QCPGraph* trace2_ = nullptr;
    QCPCurve* curve_ = nullptr;  // the trace in array order, for x that is not ascending
    QCPItemStraightLine* cursors_[3] = {};
    double cursor_x_[3] = {0, 0, 0};
    double cursor_y_[3] = {0.1, 0.1, 0};
    QLabel *points_, *parent_, *slotno_, *range_, *width_, *resolution_, *cursor3_;
    QMenu* menu_[3] = {};  // Zoom, X axis, Y axis
    QActionGroup *xgroup_, *ygroup_, *sgroup_;
    PlotArrays arrays_;
    int dragging_ = 0;         // cursor being dragged with the left button
    bool right_drag_ = false;  // quick-zoom drag
    QPoint right_start_;
    double right_start_x_ = 0;
};

}  // namespace vx
