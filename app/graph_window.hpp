// A graph window: the plot of one occupied slot with its menus, cursors and
// read-outs. The ranges live in the slot record; the window turns mouse and
// menu into calls of the core's display functions and draws what they return.
#pragma once

#include <QRectF>
#include <QString>
#include <QWidget>

#include <utility>
#include <vector>

#include "workspace/display.hpp"
#include "workspace/workspace.hpp"

class QCustomPlot;
class QCPGraph;
class QCPCurve;
class QCPItemStraightLine;
class QCPItemRect;
class QCPItemText;
class QResizeEvent;
class QWheelEvent;
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
    // The reduced arrays of the last redraw (what the data service sends).
    const PlotArrays& arrays() const { return arrays_; }
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

    // Wheel zoom about the axis position under pixel column px of the plot:
    // factor below 1 zooms in. The range left becomes the previous one.
    void wheel_zoom(double px, double factor);
    // Steps through the ranges this window has shown (Ctrl+Z is back).
    // Return false at either end.
    bool zoom_back();
    bool zoom_forward();
    const ZoomHistory& history() const { return history_; }
    // The live read-out of the place under the mouse at pixel column px.
    void track_mouse(double px);
    QString live_readout() const;
    // The read-out texts by their captions ("Slot", "Points", ...), and the
    // peak labels drawn now with their boxes in pixels.
    QString readout(const QString& caption) const;
    struct DrawnLabel {
        QString text;
        QRectF box;
    };
    std::vector<DrawnLabel> drawn_labels() const;
    // Marks drawn now: one per two pixel columns, the tallest peak there.
    int marked_peaks() const;
    // The rubber band of a right-button drag, when one is being drawn.
    bool rubber_band_visible() const;

protected:
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

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
    void on_wheel(QWheelEvent* e);
    void draw_peaks();
    void apply_range(double xmin, double xmax);

    MainWindow* main_;
    int slot_;
    QCustomPlot* plot_;
    QCPGraph* trace_ = nullptr;
    QCPGraph* trace2_ = nullptr;
    QCPCurve* curve_ = nullptr;  // the trace in array order, for x that is not ascending
    QCPItemStraightLine* cursors_[3] = {};
    double cursor_x_[3] = {0, 0, 0};
    double cursor_y_[3] = {0.1, 0.1, 0};
    QLabel *points_, *parent_, *slotno_, *range_, *width_, *resolution_, *cursor3_, *live_;
    std::vector<std::pair<QString, QLabel*>> readouts_;  // caption, value
    QMenu* menu_[3] = {};  // Zoom, X axis, Y axis
    QActionGroup *xgroup_, *ygroup_, *sgroup_;
    PlotArrays arrays_;
    int dragging_ = 0;         // cursor being dragged with the left button
    bool right_drag_ = false;  // quick-zoom drag
    QPoint right_start_;
    double right_start_x_ = 0;
    QCPItemRect* band_ = nullptr;   // rubber band of the right-button drag
    QCPGraph* marks_ = nullptr;     // found peaks
    std::vector<QCPItemText*> labels_;
    std::vector<QRectF> label_boxes_;
    ZoomHistory history_;
    long history_points_ = -1;      // datacount the history belongs to
};

}  // namespace vx
