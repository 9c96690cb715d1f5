// The desktop program's main window: the menu bar, the MDI area holding one
// graph window per occupied slot (graph_window.hpp), and the commands of the
// menus, which gather parameters, call the core and redraw. Each dialogue panel
// is its own file pair in panels/.
#pragma once

#include <QMainWindow>
#include <QWidget>

#include <memory>
#include <string>

#include "graph_window.hpp"
#include "workspace/display.hpp"
#include "workspace/workspace.hpp"

class QMdiArea;
class QMdiSubWindow;
class QMenu;
class QPlainTextEdit;
class QDockWidget;

namespace vx {

struct PeakTable;

class QtUi;
class AnalyzePanel;
class PeakListPanel;

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
    // After a calibration: the peak table takes the new masses and is shown.
    void peaks_recalibrated();
    PeakListPanel* peak_list_panel() const { return peaklist_; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void build_menus();
    void open_dialog();
    int open_with(const std::string& path, int filetype, const PanelReader& reader);
    void build_analyze_panel();
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
    AnalyzePanel* analyze_ = nullptr;
    PeakListPanel* peaklist_ = nullptr;
    std::unique_ptr<PeakTable> peak_table_;
};

}  // namespace vx
