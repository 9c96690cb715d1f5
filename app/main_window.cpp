#include "main_window.hpp"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QDockWidget>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenuBar>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>

#include <qcustomplot.h>

#include <algorithm>
#include <cmath>

#include "formats/bruker.hpp"
#include "formats/frequency_file.hpp"
#include "formats/instruments.hpp"
#include "formats/open_file.hpp"
#include "formats/peak_list.hpp"
#include "formats/spectrum_export.hpp"
#include "formats/tulva_reader.hpp"
#include "formats/tulva_writer.hpp"
#include "peaks/find_peaks.hpp"
#include "peaks/macro.hpp"
#include "qt_ui.hpp"
#include "ANALYZE.hpp"
#include "BRUKER.hpp"
#include "CALIBRATE.hpp"
#include "CHANGECAL.hpp"
#include "INSTRUMENTS.hpp"
#include "ISOPATTERN.hpp"
#include "KENDRICK.hpp"
#include "PETRO.hpp"
#include "MOLECAL.hpp"
#include "MOLECALUNO.hpp"
#include "MPHASE.hpp"
#include "PEAKLIST2.hpp"
#include "PHASE.hpp"
#include "PHASE2.hpp"
#include "PROCESS.hpp"
#include "THRASH.hpp"
#include "MASSDETERMINATION.hpp"
#include "NEWMATCH.hpp"
#include "PLOTSPECTRUM.hpp"
#include "EXPERIMENT.hpp"
#include "PANELLAYOUT.hpp"
#include "PREFERENCE.hpp"
#include "PRINTSAVE.hpp"
#include "ZIPFILES.hpp"
#include "shortcuts.hpp"
#include "workspace/filelist.hpp"
#include "workspace/processing.hpp"

namespace vx {

namespace {

QString qs(const std::string& s) { return QString::fromStdString(s); }

// Wait cursor for the length of a command.
struct WaitCursor {
    WaitCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QApplication::restoreOverrideCursor(); }
};

}  // namespace

// ---------------------------------------------------------------- main window

MainWindow::MainWindow(bool unattended)
    : ws_(std::make_unique<Workspace>()), ui_(std::make_unique<QtUi>(this)), peak_table_(std::make_unique<PeakTable>()) {
    ui_->unattended = unattended;
    setWindowTitle("Vantorix Analysis");
    setAcceptDrops(true);
    mdi_ = new QMdiArea(this);
    mdi_->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    mdi_->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setCentralWidget(mdi_);
    connect(mdi_, &QMdiArea::subWindowActivated, this, [this](QMdiSubWindow* w) {
        for (int i = 0; i < MAX_PANELS; ++i)
            if (w && subs_[i] == w) ws_->active_panel = i;
    });

    console_ = new QPlainTextEdit(this);
    console_->setReadOnly(true);
    console_dock_ = new QDockWidget("Console", this);
    console_dock_->setObjectName("console");
    console_dock_->setWidget(console_);
    addDockWidget(Qt::BottomDockWidgetArea, console_dock_);
    console_dock_->hide();
    ui_->set_console(console_);

    ws_->settings_folder = settings_dir();
    build_menus();
    build_analyze_panel();
    resize(1200, 800);
}

MainWindow::~MainWindow() = default;

void MainWindow::build_menus() {
    file_menu_ = menuBar()->addMenu("File");
    QMenu* open = file_menu_->addMenu("Open");
    QMenu* tulva = open->addMenu("Tulva time domain");
    connect(tulva->addAction("DAT file (no Phasing no walking cal)"), &QAction::triggered, this,
            &MainWindow::open_dialog);
    QMenu* frequency = open->addMenu("Frequency");
    connect(frequency->addAction("VFD file (no walking calibration)"), &QAction::triggered, this, [this] {
        if (const auto path = ui_->FileSelectPopup("Open TULVA Data File", "*.vfd", "")) open_file(*path);
    });
    connect(frequency->addAction("WCD file (with walking calibration)"), &QAction::triggered, this, [this] {
        if (const auto path = ui_->FileSelectPopup("Open TULVA Data File", "*.wcd", "")) open_file(*path);
    });
    connect(open->addAction("Bruker..."), &QAction::triggered, this, [this] {
        if (const auto dir = select_bruker_directory(*ui_)) open_file(*dir, FILETYPE_BRUKER);
    });
    connect(open->addAction("Vantorix Peak List..."), &QAction::triggered, this, [this] {
        if (const auto path = ui_->FileSelectPopup("Open TULVA Data File", "*.pks", "")) open_peak_list(*path);
    });
    add_instrument_open_entries(*this, open);
    QMenu* save_as = file_menu_->addMenu("Save As ...");
    static const char* const kinds[] = {" .CSV File", "Binary File", "Binary File (XY)"};
    for (int kind = 0; kind < 3; ++kind)
        connect(save_as->addAction(kinds[kind]), &QAction::triggered, this,
                [this, kind] { SaveRawSpectrum(*ws_, kind, "", *ui_); });
    QMenu* vantorix_file = file_menu_->addMenu("Vantorix File");
    connect(vantorix_file->addAction("DAT File"), &QAction::triggered, this,
            [this] { SaveasTULVA(*ws_, false, "", ws_->active_panel, 0, *ui_); });
    connect(vantorix_file->addAction("NEW file no phasing no walking cal"), &QAction::triggered, this,
            [this] { SaveasTULVA(*ws_, false, "", ws_->active_panel, 1, *ui_); });
    connect(file_menu_->addAction("Vantorix SED File"), &QAction::triggered, this,
            [this] { SaveasTULVA_SEDFT(*ws_, false, "", *ui_); });
    QMenu* frequency_save = file_menu_->addMenu("Vantorix Frequency Data Options");
    connect(frequency_save->addAction("Save VFD File"), &QAction::triggered, this,
            [this] { PrephaseFrequency_callback(*ws_, *ui_); });
    connect(frequency_save->addAction("Save WCD File (with walking calibration)"), &QAction::triggered, this,
            [this] { PrephaseFrequency2_callback(*ws_, *ui_); });
    connect(file_menu_->addAction("Change Calibraton"), &QAction::triggered, this, [this] { show_CHANGECAL(this, *ui_); });
    connect(file_menu_->addAction("Save As Wav File..."), &QAction::triggered, this,
            [this] { SaveWaveFileFormat(*ws_, "", *ui_); });
    connect(file_menu_->addAction("Save As XMASS Directory..."), &QAction::triggered, this,
            [this] { save_as_xmass_dialog(*ws_, *ui_); });
    connect(file_menu_->addAction("Close"), &QAction::triggered, this, [this] { close_active(); });
    connect(file_menu_->addAction("Export to PlotTool"), &QAction::triggered, this,
            &MainWindow::export_to_plottool);
    file_menu_->addSeparator();
    connect(file_menu_->addAction("Vantorix Experiment Script..."), &QAction::triggered, this, [this] { show_EXPERIMENT(*this); });
    connect(file_menu_->addAction("Zip Files..."), &QAction::triggered, this, [this] { zip_files_dialog(*this); });
    connect(file_menu_->addAction("Preference..."), &QAction::triggered, this, [this] { show_PREFERENCE(*this); });
    connect(file_menu_->addAction("Print Graph..."), &QAction::triggered, this, [this] { print_graph(*this); });
    connect(file_menu_->addAction("Save Panel Bitmap..."), &QAction::triggered, this, [this] { show_PRINTSAVE(*this); });
    exit_action_ = file_menu_->addAction("Exit");
    connect(exit_action_, &QAction::triggered, qApp, &QApplication::quit);

    QMenu* spectrum = menuBar()->addMenu("Spectrum");
    connect(spectrum->addAction("Process Options..."), &QAction::triggered, this, &MainWindow::process_options);
    connect(spectrum->addAction("Zero Out"), &QAction::triggered, this, [this] { zero_out_active(); });
    connect(spectrum->addAction("Process"), &QAction::triggered, this, [this] { process_active(); });
    connect(spectrum->addAction("Process Macro"), &QAction::triggered, this, [this] { process_macro(); });
    connect(spectrum->addAction("Absorption Mode..."), &QAction::triggered, this, [this] { show_PHASE2(*this); });
    connect(spectrum->addAction("Manual Phasing..."), &QAction::triggered, this, [this] { show_MPHASE(*this); });
    connect(spectrum->addAction("Phasing the Data..."), &QAction::triggered, this, [this] { show_PHASE(*this); });

    QMenu* analyze = menuBar()->addMenu("Analyze");
    connect(analyze->addAction("Find Peak Options..."), &QAction::triggered, this, &MainWindow::find_peak_options);
    connect(analyze->addAction("Find Peaks"), &QAction::triggered, this, [this] { find_peaks(); });
    connect(analyze->addAction("Calibrate..."), &QAction::triggered, this, [this] { show_calibrate_panel(this); });
    connect(analyze->addAction("Formula Calculator..."), &QAction::triggered, this, [this] { open_molecaluno(this); });
    connect(analyze->addAction("Assign Formulas..."), &QAction::triggered, this, [this] { open_molecal(this); });
    connect(analyze->addAction("Kendrick Analysis..."), &QAction::triggered, this, [this] { open_kendrick(this)->calculate(); });
    connect(analyze->addAction("THRASH..."), &QAction::triggered, this, [this] { open_thrash(this); });
    connect(analyze->addAction("Mass Determination"), &QAction::triggered, this, [this] { open_mass_determination(this); });
    connect(analyze->addAction("Newmatch..."), &QAction::triggered, this, [this] { open_newmatch(this); });
    connect(analyze->addAction("Display THRASH Peaklist"), &QAction::triggered, this, [this] { open_thrash(this); });
    connect(analyze->addAction("Charge Deconvolution..."), &QAction::triggered, this, [this] { open_plot_spectrum(this); });
    connect(analyze->addAction("Calc Std Dev"), &QAction::triggered, this, [this] { calc_std_dev(*this); });
    connect(analyze->addAction("Petroleum Analysis..."), &QAction::triggered, this, [this] { open_petro(this); });
    connect(analyze->addAction("Isotope Calculator..."), &QAction::triggered, this, [this] { open_isopattern(this); });

    QMenu* window = menuBar()->addMenu("Window");
    connect(window->addAction("Tile"), &QAction::triggered, mdi_, &QMdiArea::tileSubWindows);
    connect(window->addAction("Cascade"), &QAction::triggered, mdi_, &QMdiArea::cascadeSubWindows);
    add_panel_layout_menu(*this, window->addMenu("Panel Layout"));
    window->addAction(console_dock_->toggleViewAction());
    QMenu* help = menuBar()->addMenu("Help");
    connect(help->addAction("About..."), &QAction::triggered, this, [this] { show_title_panel(0); });
    apply_shortcuts(menuBar());
}

void MainWindow::rebuild_recent() {
    for (QAction* a : recent_actions_) {
        file_menu_->removeAction(a);
        a->deleteLater();
    }
    recent_actions_.clear();
    if (ws_->settings_folder.empty()) return;
    const RecentFiles list = read_file_list(ws_->settings_folder);
    const std::vector<std::string> texts = loadFileList(list);
    int shown = 0;
    for (std::size_t i = 0; i < texts.size() && i < list.names.size(); ++i) {
        if (list.names[i].empty()) continue;
        QAction* a = new QAction(qs(texts[i]), file_menu_);
        const std::string path = list.names[i];
        connect(a, &QAction::triggered, this, [this, path] { open_file(path); });
        file_menu_->insertAction(exit_action_, a);
        recent_actions_.push_back(a);
        ++shown;
    }
    if (shown) {
        QAction* sep = new QAction(file_menu_);
        sep->setSeparator(true);
        file_menu_->insertAction(exit_action_, sep);
        recent_actions_.push_back(sep);
    }
}

void MainWindow::show_title_panel(int msec) {
    auto* title = new QLabel(nullptr, Qt::SplashScreen | Qt::FramelessWindowHint);
    title->setAttribute(Qt::WA_DeleteOnClose);
    title->setText("<div style='margin:30px'><h1>Vantorix Analysis</h1>"
                   "<p>FT-ICR mass spectrometry workstation</p></div>");
    title->setFrameShape(QFrame::Box);
    title->setAlignment(Qt::AlignCenter);
    title->resize(420, 200);
    title->show();
    QTimer::singleShot(msec > 0 ? msec : 3000, title, &QWidget::close);
}

GraphWindow* MainWindow::graph(int slot) const {
    return slot >= 0 && slot < MAX_PANELS ? graphs_[slot] : nullptr;
}

GraphWindow* MainWindow::active_graph() const { return graph(ws_->active_panel); }

void MainWindow::sync_windows() {
    for (int i = 0; i < MAX_PANELS; ++i) {
        AnalysisPanel& p = ws_->panels[static_cast<std::size_t>(i)];
        if (p.active && !graphs_[i]) {
            graphs_[i] = new GraphWindow(this, i);
            subs_[i] = mdi_->addSubWindow(graphs_[i]);
            subs_[i]->setAttribute(Qt::WA_DeleteOnClose, false);
            // Placed as the slots stand: each a little lower and to the right.
            subs_[i]->move(16 * i, 20 * i);
            subs_[i]->resize(760, 460);
            subs_[i]->show();
            graphs_[i]->redraw();
        }
    }
    // The window of active_panel takes the focus before any window goes, so
    // that closing one does not hand the focus (and active_panel) elsewhere.
    const int keep = ws_->active_panel;
    if (GraphWindow* g = active_graph()) mdi_->setActiveSubWindow(subs_[g->slot()]);
    for (int i = 0; i < MAX_PANELS; ++i) {
        if (!ws_->panels[static_cast<std::size_t>(i)].active && graphs_[i]) {
            QMdiSubWindow* sub = subs_[i];
            graphs_[i] = nullptr;
            subs_[i] = nullptr;
            sub->hide();
            mdi_->removeSubWindow(sub);
            delete sub;
        }
    }
    ws_->active_panel = keep;
    if (GraphWindow* g = active_graph()) mdi_->setActiveSubWindow(subs_[g->slot()]);
}

void MainWindow::open_dialog() {
    // A file inside a Bruker acquisition (fid, ser, acqus, the method) opens the acquisition.
    const auto path = ui_->FileSelectPopup("Open TULVA Data File", "*.dat *.new *.Z *.swf *.vfd *.wcd fid ser acqus *.method", "");
    if (path) open_file(*path);
}

int MainWindow::open_file(const std::string& path, int type) {
    if (type == FILETYPE_ODYSSEY) return open_with(path, FILETYPE_ODYSSEY, read_odyssey_into_slot);
    // Tulva files, peak lists and Bruker directories all take the one road; the
    // path, not the drop type, decides the reader.
    const int kind = filetype_of_path(path);
    if (kind == FILETYPE_PEAKLIST) return open_peak_list(path);
    if (kind == FILETYPE_BRUKER) return open_with(path, FILETYPE_BRUKER, read_bruker_into_slot);
    return open_with(path, FILETYPE_TULVA, read_any_into_slot);
}

int MainWindow::open_peak_list(const std::string& path) {
    const int slot = open_with(path, FILETYPE_PEAKLIST, [](Workspace& ws, const std::string& p, int s, Ui& ui) {
        return Get_Tulva_Peak_List(p, ws.panels[static_cast<std::size_t>(s)].spectrum, ui);
    });
    if (slot >= 0)
        if (GraphWindow* g = graph(slot)) g->plot_command(PLOT_PEAKS);
    return slot;
}

int MainWindow::open_with(const std::string& path, int filetype, const PanelReader& reader) {
    WaitCursor wait;
    const int slot = open_data_file(*ws_, path, filetype, reader, *ui_);
    sync_windows();
    if (slot >= 0) rebuild_recent();
    apply_mass_range_on_open(*this, slot);
    return slot;
}

int MainWindow::save_peak_table(const std::string& path) {
    const int slot = ws_->active_panel;
    if (slot < 0 || slot >= MAX_PANELS || !ws_->panels[static_cast<std::size_t>(slot)].active) {
        ui_->MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    const Spectrum& s = ws_->panels[static_cast<std::size_t>(slot)].spectrum;
    std::string out = path;
    if (out.empty()) {
        // Default name: the data file's with its last four characters made ".pks".
        std::string suggestion = s.filename.size() > 4 ? s.filename.substr(0, s.filename.size() - 4) + ".pks" : "";
        const QString chosen = ui_->unattended ? QString()
                                               : QFileDialog::getSaveFileName(this, "Print Peaks To File",
                                                                              qs(suggestion), "*.pks");
        if (chosen.isEmpty()) return -1;
        out = chosen.toStdString();
    }
    const Settings& st = ws_->settings;
    PeakListDecimals d;
    d.mass = st.PEAKMZ;
    d.relabundance = st.peak_decimals_2;
    d.abundance = st.PEAKABUN;
    d.frequency = st.peak_decimals_3;
    return SavePeakList2(s, out, d, st.sn_mode == 1, st.abundance_scale, *ui_);
}

int MainWindow::close_active() {
    if (close_active_panel(*ws_, *ui_) < 0) return -1;
    sync_windows();
    return 0;
}

void MainWindow::close_slot(int slot) {
    ws_->active_panel = slot;
    close_active();
}

int MainWindow::process_active() {
    WaitCursor wait;
    ProcessCommandResult result;
    const int slot = ws_->active_panel;
    const int rc = process_command(*ws_, *ui_, &result);
    sync_windows();
    if (rc < 0 || !result.processed || slot < 0) return rc;
    // A new spectrum: the full view of the new points, then its axis.
    auto finish = [&](int s) {
        // The command has shown the full view of the new points and made the
        // first jump to m/z (which cuts above HIGHMASS): no "Reset" here, it
        // would undo that cut.
        AnalysisPanel& p = ws_->panels[static_cast<std::size_t>(s)];
        if (ws_->settings.transform == TRANSFORM_FFT_MAGNITUDE)
            PlotMenuCommand(p, p.spectrum.filetype == FILETYPE_BRUKER ? PLOT_FREQUENCY : PLOT_MZ, 0, 0,
                            ws_->settings, *ui_);
        first_signal_view(p);  // the first view spans the data that has signal
        if (GraphWindow* g = graph(s)) {
            g->set_cursor(1, 0.0, 0.1);
            g->set_cursor(2, 0.0, 0.1);
            g->redraw();
        }
    };
    finish(slot);
    if (result.split_slot >= 0) finish(result.split_slot);
    return rc;
}

int MainWindow::zero_out_active() {
    GraphWindow* g = active_graph();
    const int slot = ws_->active_panel;
    const int mode = slot >= 0 ? ws_->panels[static_cast<std::size_t>(slot)].xmode : 0;
    const int rc = zero_out_command(*ws_, g ? g->cursor_x(1) : 0.0, g ? g->cursor_x(2) : 0.0, *ui_);
    if (rc == 0 && g) {
        ws_->panels[static_cast<std::size_t>(slot)].xmode = mode;  // the window stays in its x mode
        g->redraw();
    }
    return rc;
}

void MainWindow::process_options() {
    // Processing at once waits until the screen is drawn without the dialogue.
    if (run_process_options(this, *ws_, *ui_)) QTimer::singleShot(0, this, [this] { process_active(); });
}

// ---------------------------------------------------------------- analysis panel and peak table

void MainWindow::build_analyze_panel() {
    analyze_ = new AnalyzePanel(this);
    analyze_->on_limits = [this] {
        // The m/z limits from graph cursors 1 and 2.
        if (GraphWindow* g = active_graph()) analyze_->set_limits(g->cursor_x(1), g->cursor_x(2));
    };
    analyze_->on_find = [this](bool by_sn) { analyze_find(by_sn); };
    peaklist_ = new PeakListPanel(this);
    peaklist_->on_print = [this] { save_peak_table(""); };
    peaklist_->on_calibrate = [this](const std::vector<int>& checked) { calibrate_checked_peaks(this, checked); };
}

void MainWindow::peaks_recalibrated() {
    if (ws_->active_panel >= 0 && ws_->active_panel < MAX_PANELS)
        Update_Peaklist2(ws_->panels[static_cast<std::size_t>(ws_->active_panel)].spectrum, peak_table_->rows);
    show_peak_table();
}

void MainWindow::find_peak_options() {
    if (ws_->active_panel >= 0 && ws_->panels[static_cast<std::size_t>(ws_->active_panel)].active)
        FindPeakOptions(*ws_, ws_->active_panel);
    analyze_->fill(ws_->settings);
    analyze_->dialog()->show();
    analyze_->dialog()->raise();
}

int MainWindow::find_peaks() {
    WaitCursor wait;
    // Unset limits (a fresh settings file has a high m/z of 0) take the excited
    // range, else the data's range, as the command line does.
    ensure_search_limits(*ws_, ws_->active_panel);
    const int rc = FindPeaksCommand(*ws_, *peak_table_, *ui_);
    show_peak_table();
    return rc;
}

int MainWindow::analyze_find(bool by_sn) {
    analyze_->read(ws_->settings);
    if (analyze_->hide_on_run()) analyze_->dialog()->hide();
    WaitCursor wait;
    ensure_search_limits(*ws_, ws_->active_panel);
    const int rc = AnalyzeFindPeaks(*ws_, by_sn, *peak_table_, *ui_);
    show_peak_table();
    return rc;
}

int MainWindow::process_macro() {
    GraphWindow* g = active_graph();
    const double low = g ? g->cursor_x(1) : 0.0, high = g ? g->cursor_x(2) : 0.0;
    int rc = 0;
    {
        WaitCursor wait;
        rc = ProcessMacroCallback(*ws_, std::min(low, high), std::max(low, high), *peak_table_, *ui_);
    }
    sync_windows();
    if (GraphWindow* a = active_graph()) {
        // The domain follows the m/z view the processing left it in.
        AnalysisPanel& p = ws_->panels[static_cast<std::size_t>(a->slot())];
        if (p.xmode == XMODE_MZ && p.spectrum.domain == DOMAIN_FREQUENCY)
            PlotMenuCommand(p, PLOT_MZ, 0, 0, ws_->settings, *ui_);
        a->redraw();
    }
    show_peak_table();
    return rc;
}

void MainWindow::export_to_plottool() {
    if (!ui_->ConfirmPopup("Print", "TULVA analysis use plottool to export spectrum.Just select Edit | Paste in "
                                    "plottool and the spectrum will be transfered.\n\nDo you want to lanch plottool now?"))
        return;
    // The picture of the active graph waits on the clipboard for the tool's paste.
    if (GraphWindow* g = active_graph()) QApplication::clipboard()->setPixmap(g->grab());
    const QString tool = qs(ws_->settings.PLOTTOOL);
    if (tool.isEmpty() || !QProcess::startDetached(tool, {}))
        ui_->MessagePopup("Print", tool.isEmpty() ? "No PLOTTOOL program is set in ftmsdata.ini."
                                                  : ("Could not start " + tool).toStdString());
}

void MainWindow::show_peak_table() {
    peaklist_->show_table(*peak_table_, peak_decimals(ws_->settings));
    if (GraphWindow* g = active_graph()) g->redraw();  // the found peaks marked on the plot
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (ui_->ConfirmPopup("Quit Vantorix Analysis", "Are you sure you want to quit Vantorix Analysis?")) event->accept();
    else event->ignore();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    QStringList paths;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile()) paths << url.toLocalFile();
    event->acceptProposedAction();
    open_dropped(paths);
}

void MainWindow::open_dropped(const QStringList& paths) {
    for (const QString& path : paths) {
        if (Get_New_Panel(*ws_) < 0) {
            ws_->active_panel = -1;
            ui_->MessagePopup("Warning", TOO_MANY_FILES);
            return;
        }
        open_file(path.toStdString(), ws_->settings.dragdrop_type);
    }
}

}  // namespace vx
