// The desktop program: the main window with its menu bar and MDI area, and one
// graph window per occupied slot. The windows gather parameters, call the
// working functions of the core and redraw; no logic of their own lives here.
#pragma once

#include <QMainWindow>
#include <QWidget>

#include <memory>
#include <string>

#include "workspace/display.hpp"
#include "workspace/workspace.hpp"

class QCustomPlot;
class QCPGraph;
class QCPCurve;
class QCPItemStraightLine;
class QLabel;
class QMdiArea;
class QMdiSubWindow;
class QMenu;
class QActionGroup;
class QPlainTextEdit;
class QDockWidget;
class QMouseEvent;
class QDialog;
class Ui_ANALYZE;
class Ui_PEAKLIST2;

namespace vx {

struct PeakTable;

class QtUi;
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

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(bool unattended = false);
    ~MainWindow() override;

    Workspace& workspace() { return *ws_; }
    QtUi& ui() { return *ui_; }
    GraphWindow* graph(int slot) const;
    GraphWindow* active_graph() const;

    // The opening road for a file of the given reader type (0 Tulva). Returns
    // the slot, or -1 after the reader's or the full table's message.
    int open_file(const std::string& path, int type = 0);
    // "Vantorix Peak List...": a batch peak-list file shown as sticks.
    int open_peak_list(const std::string& path);
    // The peak table's "Print Peaks To File"; an empty path asks for one.
    int save_peak_table(const std::string& path);
    // Spectrum menu commands on the active panel.
    int process_active();
    int zero_out_active();
    void process_options();
    // Files dropped on the main window, opened in turn through the reader of
    // the drag-and-drop type; stops at the first that finds no free slot.
    void open_dropped(const QStringList& paths);
    // "Close" on the active panel.
    int close_active();
    // Closes the window of slot (its close box).
    void close_slot(int slot);
    // Opens and closes graph windows to match the occupied slots.
    void sync_windows();
    void rebuild_recent();
    void show_title_panel(int msec);
    // Analyze menu: "Find Peak Options..." and "Find Peaks"; the analysis
    // panel's two find buttons (by_sn: the S/N one).
    void find_peak_options();
    int find_peaks();
    int analyze_find(bool by_sn);
    // "Process Macro": process, noise between cursors 1 and 2, find peaks.
    int process_macro();
    // "Export to PlotTool": the graph to the clipboard and the tool launched.
    void export_to_plottool();
    const PeakTable& peak_table() const { return *peak_table_; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void build_menus();
    void open_dialog();
    int open_with(const std::string& path, int filetype, const PanelReader& reader);
    void build_analyze_panel();
    void fill_analyze_panel();
    void read_analyze_panel();
    void show_peak_table();

    std::unique_ptr<Workspace> ws_;
    std::unique_ptr<QtUi> ui_;
    QMdiArea* mdi_;
    QMenu* file_menu_;
    QAction* exit_action_;
    QList<QAction*> recent_actions_;
    QDockWidget* console_dock_;
    QPlainTextEdit* console_;
    GraphWindow* graphs_[MAX_PANELS] = {};
    QMdiSubWindow* subs_[MAX_PANELS] = {};
    QDialog* analyze_ = nullptr;
    std::unique_ptr<Ui_ANALYZE> analyze_form_;
    QDialog* peaklist_ = nullptr;
    std::unique_ptr<Ui_PEAKLIST2> peaklist_form_;
    std::unique_ptr<PeakTable> peak_table_;
};

}  // namespace vx
