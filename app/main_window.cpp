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

#include "formats/peak_list.hpp"
#include "formats/spectrum_export.hpp"
#include "formats/tulva_reader.hpp"
#include "qt_ui.hpp"
#include "panels/KENDRICK.hpp"
#include "panels/MOLECAL.hpp"
#include "panels/MOLECALUNO.hpp"
#include "peaks/find_peaks.hpp"
#include "peaks/macro.hpp"
#include "ui_ANALYZE.h"
#include "ui_MANUALZOOM.h"
#include "ui_PEAKLIST2.h"
#include "ui_PROCESS.h"
#include "workspace/filelist.hpp"
#include "workspace/processing.hpp"

namespace vx {

namespace {

QString qs(const std::string& s) { return QString::fromStdString(s); }

struct MenuItem {
    const char* text;
    int item;
};

// Wait cursor for the length of a command.
struct WaitCursor {
    WaitCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QApplication::restoreOverrideCursor(); }
};

}  // namespace

// ---------------------------------------------------------------- graph window

GraphWindow::GraphWindow(MainWindow* main, int slot) : QWidget(nullptr), main_(main), slot_(slot) {
    setAttribute(Qt::WA_DeleteOnClose, false);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(2, 2, 2, 2);
    layout->setSpacing(2);

    plot_ = new QCustomPlot(this);
    plot_->setMinimumSize(320, 200);
    plot_->setBackground(Qt::white);
    plot_->xAxis->grid()->setVisible(main_->workspace().settings.grid_x);
    plot_->yAxis->grid()->setVisible(main_->workspace().settings.grid_y);
    trace_ = plot_->addGraph();
    trace_->setPen(QPen(Qt::red));
    trace_->setAdaptiveSampling(false);  // the arrays come decimated already
    trace2_ = plot_->addGraph();
    trace2_->setPen(QPen(Qt::blue));
    trace2_->setAdaptiveSampling(false);
    curve_ = new QCPCurve(plot_->xAxis, plot_->yAxis);
    curve_->setPen(QPen(Qt::red));
    const QColor colours[3] = {QColor(0, 130, 0), QColor(0, 0, 200), QColor(160, 0, 160)};
    for (int i = 0; i < 3; ++i) {
        cursors_[i] = new QCPItemStraightLine(plot_);
        cursors_[i]->setPen(QPen(colours[i], 1, i == 2 ? Qt::DashLine : Qt::SolidLine));
        cursors_[i]->point1->setCoords(0, 0);
        cursors_[i]->point2->setCoords(0, 1);
    }
    connect(plot_, &QCustomPlot::mousePress, this, &GraphWindow::on_press);
    connect(plot_, &QCustomPlot::mouseMove, this, &GraphWindow::on_move);
    connect(plot_, &QCustomPlot::mouseRelease, this, &GraphWindow::on_release);

    auto* bar = new QMenuBar(this);
    layout->setMenuBar(bar);
    build_menus();
    for (QMenu* m : menu_) bar->addMenu(m);
    layout->addWidget(plot_, 1);

    auto* row = new QHBoxLayout;
    auto readout = [&](const char* tip) {
        auto* l = new QLabel(this);
        l->setToolTip(tip);
        l->setFrameShape(QFrame::StyledPanel);
        l->setTextInteractionFlags(Qt::TextSelectableByMouse);
        row->addWidget(l);
        return l;
    };
    auto* left = new QPushButton("<", this);
    auto* right = new QPushButton(">", this);
    left->setMaximumWidth(28);
    right->setMaximumWidth(28);
    connect(left, &QPushButton::clicked, this, [this] { move_graph(3); });
    connect(right, &QPushButton::clicked, this, [this] { move_graph(2); });
    row->addWidget(left);
    row->addWidget(right);
    slotno_ = readout("Slot");
    points_ = readout("Points");
    parent_ = readout("Parent mass");
    range_ = readout("Range between cursors 1 and 2");
    width_ = readout("Width");
    resolution_ = readout("Resolution");
    cursor3_ = readout("Cursor 3");
    layout->addLayout(row);

    setWindowTitle(qs(panel().spectrum.filename));
    points_->setText(QString::asprintf("%i", panel().spectrum.datacount));
    resize(720, 420);
}

AnalysisPanel& GraphWindow::panel() { return main_->workspace().panels[static_cast<std::size_t>(slot_)]; }

void GraphWindow::build_menus() {
    static const MenuItem zoom[] = {{"Zoom In", PLOT_ZOOM_IN},      {"Zoom Last", PLOT_ZOOM_LAST},
                                    {"Display", PLOT_ZOOM_FULL},    {"Set to Current", PLOT_SET_TO_CURRENT},
                                    {"Reset", PLOT_RESET},          {"Zoom Exact...", PLOT_ZOOM_EXACT}};
    static const MenuItem xaxis[] = {{"Time", PLOT_TIME},           {"Data Point", PLOT_DATA_POINT},
                                     {"m/z", PLOT_MZ},              {"Frequency", PLOT_FREQUENCY},
                                     {"Peaks", PLOT_PEAKS},         {"Chromatograph", PLOT_CHROMATOGRAPH}};
    static const MenuItem yaxis[] = {{"Absolute", PLOT_ABSOLUTE}, {"Relative", PLOT_RELATIVE},
                                     {"Local", PLOT_LOCAL},       {"Global", PLOT_GLOBAL}};
    menu_[0] = new QMenu("Zoom", this);
    QMenu* full = nullptr;
    for (const MenuItem& m : zoom) {
        QMenu* into = menu_[0];
        if (m.item == PLOT_ZOOM_FULL || m.item == PLOT_SET_TO_CURRENT || m.item == PLOT_RESET) {
            if (!full) full = menu_[0]->addMenu("Zoom Full");
            into = full;
        }
        QAction* a = into->addAction(m.text);
        a->setData(m.item);
        const int item = m.item;
        connect(a, &QAction::triggered, this, [this, item] { plot_command(item); });
    }
    menu_[1] = new QMenu("X Axis", this);
    xgroup_ = new QActionGroup(this);
    for (const MenuItem& m : xaxis) {
        QAction* a = menu_[1]->addAction(m.text);
        a->setCheckable(true);
        a->setData(m.item);
        xgroup_->addAction(a);
        const int item = m.item;
        connect(a, &QAction::triggered, this, [this, item] { plot_command(item); });
    }
    menu_[2] = new QMenu("Y Axis", this);
    ygroup_ = new QActionGroup(this);
    sgroup_ = new QActionGroup(this);
    for (const MenuItem& m : yaxis) {
        if (m.item == PLOT_LOCAL) menu_[2]->addSeparator();
        QAction* a = menu_[2]->addAction(m.text);
        a->setCheckable(true);
        a->setData(m.item);
        (m.item <= PLOT_RELATIVE ? ygroup_ : sgroup_)->addAction(a);
        const int item = m.item;
        connect(a, &QAction::triggered, this, [this, item] { plot_command(item); });
    }
}

void GraphWindow::update_checks() {
    const AnalysisPanel& p = panel();
    static const int mode_item[] = {PLOT_DATA_POINT, PLOT_TIME, PLOT_MZ, PLOT_FREQUENCY,
                                    PLOT_CHROMATOGRAPH, PLOT_PEAKS, PLOT_MZ};
    const int want = p.xmode >= 0 && p.xmode <= 6 ? mode_item[p.xmode] : -1;
    for (QAction* a : xgroup_->actions()) a->setChecked(a->data().toInt() == want);
    for (QAction* a : ygroup_->actions())
        a->setChecked(a->data().toInt() == (p.relativescale ? PLOT_RELATIVE : PLOT_ABSOLUTE));
    for (QAction* a : sgroup_->actions())
        a->setChecked(a->data().toInt() == (p.globalscale ? PLOT_GLOBAL : PLOT_LOCAL));
}

void GraphWindow::redraw() {
    AnalysisPanel& p = panel();
    if (!p.active) return;
    const int width = std::max(100, plot_->axisRect()->width());
    Update_Display(p, width, arrays_);
    const int n = static_cast<int>(arrays_.count);
    QVector<double> keys(n), values(n), values2;
    for (int i = 0; i < n; ++i) {
        keys[i] = arrays_.x[static_cast<std::size_t>(i)];
        values[i] = arrays_.y[static_cast<std::size_t>(i)];
    }
    // A graph trace needs ascending x; other data (peak sticks) are joined in
    // the order of their arrays, as they were stored.
    const bool sorted = std::is_sorted(keys.begin(), keys.end());
    if (sorted) {
        trace_->setData(keys, values, true);
        curve_->data()->clear();
    } else {
        trace_->data()->clear();
        curve_->setData(keys, values);
    }
    if (p.mirrored && arrays_.y2.size() >= arrays_.count) {
        values2.resize(n);
        for (int i = 0; i < n; ++i) values2[i] = arrays_.y2[static_cast<std::size_t>(i)];
        trace2_->setData(keys, values2, false);
    } else {
        trace2_->data()->clear();
    }
    const double a = point_to_x(p, p.xmin), b = point_to_x(p, p.xmax);
    double lo = std::min(a, b), hi = std::max(a, b);
    if (n > 0) {
        lo = std::min(lo, *std::min_element(keys.begin(), keys.end()));
        hi = std::max(hi, *std::max_element(keys.begin(), keys.end()));
    }
    if (!(hi > lo)) {
        lo -= 0.5;
        hi += 0.5;
    }
    plot_->xAxis->setRange(lo, hi);
    const double pad = (arrays_.yhigh - arrays_.ylow) * 0.04;
    plot_->yAxis->setRange(arrays_.ylow - pad, arrays_.yhigh + pad);
    plot_->xAxis->setLabel(qs(arrays_.xlabel));
    plot_->yAxis->setLabel(qs(arrays_.ylabel));
    for (int i = 0; i < 3; ++i) {
        cursors_[i]->point1->setCoords(cursor_x_[i], 0);
        cursors_[i]->point2->setCoords(cursor_x_[i], 1);
    }
    slotno_->setText(QString::number(slot_));
    points_->setText(QString::asprintf("%i", p.spectrum.datacount));
    parent_->setText(QString::asprintf("%f", p.spectrum.parentmass));
    update_checks();
    update_readouts();
    plot_->replot();
}

void GraphWindow::update_readouts() {
    const CursorReadouts r = cursor_readouts(cursor_x_[0], cursor_x_[1]);
    range_->setText(qs(r.range));
    width_->setText(qs(r.width));
    resolution_->setText(qs(r.resolution));
    cursor3_->setText(QString::asprintf("%f , %f", cursor_x_[2], cursor_y_[2]));
}

void GraphWindow::set_cursor(int cursor, double x, double y) {
    cursor_x_[cursor - 1] = x;
    cursor_y_[cursor - 1] = y;
    cursors_[cursor - 1]->point1->setCoords(x, 0);
    cursors_[cursor - 1]->point2->setCoords(x, 1);
    update_readouts();
    plot_->replot();
}

void GraphWindow::plot_command(int item) {
    main_->workspace().active_panel = slot_;
    AnalysisPanel& p = panel();
    if (item == PLOT_ZOOM_EXACT) {
        open_zoom_exact();
        return;
    }
    // The cursors keep their data points across a change of x mode.
    double pts[3];
    for (int i = 0; i < 3; ++i) pts[i] = x_to_point(p, cursor_x_[i]);
    const int old_mode = p.xmode;
    const int rc = PlotMenuCommand(p, item, cursor_x_[0], cursor_x_[1], main_->workspace().settings, main_->ui());
    if (p.xmode != old_mode)
        for (int i = 0; i < 3; ++i) cursor_x_[i] = point_to_x(p, pts[i]);
    if (rc == PLOT_OPEN_SCAN) {
        const auto& files = p.spectrum.lcmsfiles;
        const long i = std::lround(x_to_point(p, cursor_x_[0]));
        if (i >= 0 && i < static_cast<long>(files.size())) main_->open_file(files[static_cast<std::size_t>(i)]);
        return;
    }
    if (rc == PLOT_DONE) redraw();
    else update_checks();
}

void GraphWindow::move_graph(int button) {
    main_->workspace().active_panel = slot_;
    const QCPRange r = plot_->xAxis->range();
    if (MoveGraph(panel(), button, r.lower, r.upper, main_->ui()) == 0) redraw();
}

void GraphWindow::zoom_exact(double low, double high, bool from_full) {
    AnalysisPanel& p = panel();
    if (from_full) {
        PlotMenuCommand(p, PLOT_ZOOM_FULL, 0, 0, main_->workspace().settings, main_->ui());
        redraw();
    }
    const QCPRange r = plot_->xAxis->range();
    if (low > high) std::swap(low, high);
    const double lo = std::clamp(low, r.lower, r.upper), hi = std::clamp(high, r.lower, r.upper);
    cursor_x_[0] = lo;
    cursor_x_[1] = std::max(hi, lo + 1.0);
    if (ManualZoomRange(p, low, high, r.lower, r.upper, main_->workspace().settings, main_->ui()) == PLOT_DONE)
        redraw();
}

void GraphWindow::open_zoom_exact() {
    QDialog dialog(this);
    Ui_MANUALZOOM form;
    form.setupUi(&dialog);
    const QCPRange r = plot_->xAxis->range();
    form.low->setValue(r.lower);
    form.high->setValue(r.upper);
    connect(form.apply, &QPushButton::clicked, &dialog,
            [&] { zoom_exact(form.low->value(), form.high->value(), false); });
    connect(form.fromfull, &QPushButton::clicked, &dialog,
            [&] { zoom_exact(form.low->value(), form.high->value(), true); });
    connect(form.done, &QPushButton::clicked, &dialog, &QDialog::accept);
    dialog.exec();
}

void GraphWindow::show_popup(const QPoint& global) {
    QMenu popup(this);
    for (QMenu* m : menu_) {
        QMenu* sub = popup.addMenu(m->title());
        for (QAction* a : m->actions()) sub->addAction(a);  // check marks shared with the window's menu
    }
    popup.addSeparator();
    QAction* open_scan = popup.addAction("Open Spectrum");
    QAction* tic = popup.addAction("TIC");
    QAction* sic = popup.addAction("SIC");
    QAction* cross = popup.addAction("Cross Cursor Location");
    QAction* left_arrow = popup.addAction("Left Arrow");
    QAction* right_arrow = popup.addAction("Right Arrow");
    QAction* chosen = popup.exec(global);
    AnalysisPanel& p = panel();
    Ui& ui = main_->ui();
    if (chosen == left_arrow || chosen == right_arrow) {
        // An arrow annotation at cursor 3, in the graph's coordinates.
        auto* text = new QCPItemText(plot_);
        text->position->setCoords(cursor_x_[2], cursor_y_[2]);
        text->setText(chosen == left_arrow ? QString::fromUtf8("\u2190") : QString::fromUtf8("\u2192"));
        QFont font = text->font();
        font.setPointSize(20);
        text->setFont(font);
        text->setColor(Qt::black);
        plot_->replot();
    } else if (chosen == cross) {
        ui.MessagePopup("Cross Cursor Location",
                        QString::asprintf("X: %f   Y: %f", cursor_x_[2], cursor_y_[2]).toStdString());
    } else if (chosen == open_scan) {
        if (p.spectrum.domain != DOMAIN_CHROMATOGRAM) {
            ui.MessagePopup("Warning", "Must Open Spectrum from CHROMATOGRAM window");
            return;
        }
        const long i = std::lround(x_to_point(p, cursor_x_[0]));
        if (i >= 0 && i < static_cast<long>(p.spectrum.lcmsfiles.size()))
            main_->open_file(p.spectrum.lcmsfiles[static_cast<std::size_t>(i)]);
    } else if (chosen == tic) {
        if (Calculate_TIC(p, ui) == 0) redraw();
    } else if (chosen == sic) {
        if (Calculate_SIC(p, cursor_x_[0], cursor_x_[1], ui) == 0) redraw();
    }
}

void GraphWindow::on_press(QMouseEvent* e) {
    main_->workspace().active_panel = slot_;
    const QPointF pos = e->position();
    // A click outside the plot frame is not a cursor move.
    if (pos.x() < 0 || pos.y() < 0 || !plot_->axisRect()->rect().contains(pos.toPoint())) return;
    const double x = plot_->xAxis->pixelToCoord(pos.x());
    const double y = plot_->yAxis->pixelToCoord(pos.y());
    if (e->button() == Qt::LeftButton) {
        // The nearer of cursors 1 and 2 jumps to the click and follows the drag.
        const double d1 = std::fabs(plot_->xAxis->coordToPixel(cursor_x_[0]) - pos.x());
        const double d2 = std::fabs(plot_->xAxis->coordToPixel(cursor_x_[1]) - pos.x());
        dragging_ = (e->modifiers() & Qt::ShiftModifier) ? 2 : (d1 <= d2 ? 1 : 2);
        set_cursor(dragging_, x, y);
    } else if (e->button() == Qt::MiddleButton) {
        set_cursor(3, x, y);
    } else if (e->button() == Qt::RightButton) {
        right_drag_ = true;
        right_start_ = pos.toPoint();
        right_start_x_ = x;
    }
}

void GraphWindow::on_move(QMouseEvent* e) {
    if (dragging_ == 0) return;
    const QPointF pos = e->position();
    set_cursor(dragging_, plot_->xAxis->pixelToCoord(pos.x()), plot_->yAxis->pixelToCoord(pos.y()));
}

void GraphWindow::on_release(QMouseEvent* e) {
    dragging_ = 0;
    if (e->button() != Qt::RightButton || !right_drag_) return;
    right_drag_ = false;
    const QPoint pos = e->position().toPoint();
    if (main_->workspace().settings.quick_zoom && std::abs(pos.x() - right_start_.x()) >= 20) {
        const double end = plot_->xAxis->pixelToCoord(pos.x());
        AnalysisPanel& p = panel();
        if (PlotMenuCommand(p, PLOT_ZOOM_IN, right_start_x_, end, main_->workspace().settings, main_->ui()) ==
            PLOT_DONE)
            redraw();
        return;
    }
    show_popup(e->globalPosition().toPoint());
}

void GraphWindow::closeEvent(QCloseEvent* event) {
    event->ignore();  // the main window discards the window with its slot
    QTimer::singleShot(0, main_, [m = main_, s = slot_] { m->close_slot(s); });
}

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
    connect(open->addAction("Vantorix Peak List..."), &QAction::triggered, this, [this] {
        if (const auto path = ui_->FileSelectPopup("Open TULVA Data File", "*.pks", "")) open_peak_list(*path);
    });
    QMenu* save_as = file_menu_->addMenu("Save As ...");
    static const char* const kinds[] = {" .CSV File", "Binary File", "Binary File (XY)"};
    for (int kind = 0; kind < 3; ++kind)
        connect(save_as->addAction(kinds[kind]), &QAction::triggered, this,
                [this, kind] { SaveRawSpectrum(*ws_, kind, "", *ui_); });
    connect(file_menu_->addAction("Save As Wav File..."), &QAction::triggered, this,
            [this] { SaveWaveFileFormat(*ws_, "", *ui_); });
    connect(file_menu_->addAction("Close"), &QAction::triggered, this, [this] { close_active(); });
    connect(file_menu_->addAction("Export to PlotTool"), &QAction::triggered, this,
            &MainWindow::export_to_plottool);
    file_menu_->addSeparator();
    exit_action_ = file_menu_->addAction("Exit");
    connect(exit_action_, &QAction::triggered, qApp, &QApplication::quit);

    QMenu* spectrum = menuBar()->addMenu("Spectrum");
    connect(spectrum->addAction("Process Options..."), &QAction::triggered, this, &MainWindow::process_options);
    connect(spectrum->addAction("Zero Out"), &QAction::triggered, this, [this] { zero_out_active(); });
    connect(spectrum->addAction("Process"), &QAction::triggered, this, [this] { process_active(); });
    connect(spectrum->addAction("Process Macro"), &QAction::triggered, this, [this] { process_macro(); });

    QMenu* analyze = menuBar()->addMenu("Analyze");
    connect(analyze->addAction("Find Peak Options..."), &QAction::triggered, this, &MainWindow::find_peak_options);
    connect(analyze->addAction("Find Peaks"), &QAction::triggered, this, [this] { find_peaks(); });
    connect(analyze->addAction("Formula Calculator..."), &QAction::triggered, this, [this] { open_molecaluno(this); });
    connect(analyze->addAction("Assign Formulas..."), &QAction::triggered, this, [this] { open_molecal(this); });
    connect(analyze->addAction("Kendrick Analysis..."), &QAction::triggered, this, [this] { open_kendrick(this)->calculate(); });

    QMenu* window = menuBar()->addMenu("Window");
    connect(window->addAction("Tile"), &QAction::triggered, mdi_, &QMdiArea::tileSubWindows);
    connect(window->addAction("Cascade"), &QAction::triggered, mdi_, &QMdiArea::cascadeSubWindows);
    window->addAction(console_dock_->toggleViewAction());
    QMenu* help = menuBar()->addMenu("Help");
    connect(help->addAction("About..."), &QAction::triggered, this, [this] { show_title_panel(0); });
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
    const auto path = ui_->FileSelectPopup("Open TULVA Data File", "*.dat", "");
    if (path) open_file(*path);
}

int MainWindow::open_file(const std::string& path, int type) {
    if (type != FILETYPE_TULVA) {
        ui_->MessagePopup("Operator Error", type == FILETYPE_ODYSSEY ? "Odyssey files can not be read by this build."
                                                                    : "Bruker files can not be read by this build.");
        return -1;
    }
    return open_with(path, FILETYPE_TULVA, read_tulva_into_slot);
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
        AnalysisPanel& p = ws_->panels[static_cast<std::size_t>(s)];
        PlotMenuCommand(p, PLOT_RESET, 0, 0, ws_->settings, *ui_);
        if (ws_->settings.transform == TRANSFORM_FFT_MAGNITUDE)
            PlotMenuCommand(p, p.spectrum.filetype == FILETYPE_BRUKER ? PLOT_FREQUENCY : PLOT_MZ, 0, 0,
                            ws_->settings, *ui_);
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
    QDialog dialog(this);
    Ui_PROCESS form;
    form.setupUi(&dialog);
    const ProcessOptionsValues v = process_options_from_settings(ws_->settings);
    auto fill_apodization = [&](bool boxcar) {
        const int keep = form.apodization->currentIndex();
        form.apodization->clear();
        for (const std::string& s : apodization_ring_labels(boxcar)) form.apodization->addItem(qs(s));
        form.apodization->setCurrentIndex(keep < 0 ? v.apodization : keep);
        form.truncations->setEnabled(!boxcar);
    };
    for (const std::string& s : transform_ring_labels()) form.transform->addItem(qs(s));
    form.truncations->setValue(v.truncations);
    form.zerofills->setValue(v.zerofills);
    form.boxcar->setChecked(v.boxcar != 0);
    fill_apodization(v.boxcar != 0);
    form.apodization->setCurrentIndex(v.apodization);
    form.transform->setCurrentIndex(v.transform);
    form.baselinecorrect->setChecked(v.baselinecorrect != 0);
    connect(form.boxcar, &QCheckBox::toggled, &dialog, fill_apodization);
    if (dialog.exec() != QDialog::Accepted) return;
    ProcessOptionsValues out;
    out.truncations = form.truncations->value();
    out.apodization = form.apodization->currentIndex();
    out.zerofills = form.zerofills->value();
    out.transform = form.transform->currentIndex();
    out.boxcar = form.boxcar->isChecked() ? 1 : 0;
    out.baselinecorrect = form.baselinecorrect->isChecked() ? 1 : 0;
    if (process_options_ok(*ws_, out, false, *ui_) < 0) return;
    // Processing at once waits until the screen is drawn without the dialogue.
    if (form.processnow->isChecked()) QTimer::singleShot(0, this, [this] { process_active(); });
}

// ---------------------------------------------------------------- analysis panel and peak table

void MainWindow::build_analyze_panel() {
    analyze_ = new QDialog(this);
    analyze_form_ = std::make_unique<Ui_ANALYZE>();
    analyze_form_->setupUi(analyze_);
    Ui_ANALYZE& f = *analyze_form_;
    connect(f.limits, &QPushButton::clicked, this, [this] {
        // The m/z limits from graph cursors 1 and 2, lower first.
        GraphWindow* g = active_graph();
        if (!g) return;
        const double a = g->cursor_x(1), b = g->cursor_x(2);
        analyze_form_->low_mass->setValue(std::min(a, b));
        analyze_form_->high_mass->setValue(std::max(a, b));
    });
    connect(f.find_sn, &QPushButton::clicked, this, [this] { analyze_find(true); });
    connect(f.find_abundance, &QPushButton::clicked, this, [this] { analyze_find(false); });
    connect(f.done, &QPushButton::clicked, analyze_, &QDialog::hide);
    connect(f.global_noise, &QCheckBox::toggled, this, [this](bool on) {
        // One estimate for the whole range: its window is the range itself.
        Ui_ANALYZE& a = *analyze_form_;
        if (on) a.noise_window->setValue(std::fabs(a.high_mass->value() - a.low_mass->value()));
        a.noise_window->setVisible(!on);
        a.label_7->setVisible(!on);
    });

    peaklist_ = new QDialog(this);
    peaklist_form_ = std::make_unique<Ui_PEAKLIST2>();
    peaklist_form_->setupUi(peaklist_);
    peaklist_->resize(760, 420);
    connect(peaklist_form_->done, &QPushButton::clicked, peaklist_, &QDialog::hide);
    connect(peaklist_form_->print, &QPushButton::clicked, this, [this] { save_peak_table(""); });
}

void MainWindow::fill_analyze_panel() {
    const Settings& st = ws_->settings;
    Ui_ANALYZE& f = *analyze_form_;
    f.low_mass->setValue(st.low_mass);
    f.high_mass->setValue(st.high_mass);
    f.min_peak_width->setValue(st.min_peak_width);
    f.peak_threshold->setValue(st.peak_threshold);
    f.noise_threshold->setValue(st.noise_threshold);
    f.abundance_scale->setValue(st.abundance_scale);
    f.peak_sigma_factor->setValue(st.peak_sigma_factor);
    f.noise_window->setValue(st.noise_window);
    f.noise_sigma_factor->setValue(st.noise_sigma_factor);
    f.percent_thresholds->setChecked(st.percent_thresholds != 0);
    f.global_noise->setChecked(st.global_noise != 0);
    f.notches_on->setChecked(st.notches_on != 0);
    const PeakDecimals d = peak_decimals(st);
    f.dec_mz->setValue(d.mz);
    f.dec_frequency->setValue(d.frequency);
    f.dec_abundance->setValue(d.abundance);
    f.dec_other->setValue(d.other);
    f.notch_count->setValue(static_cast<int>(st.notches.size()));
    for (int r = 0; r < f.notches->rowCount(); ++r)
        for (int c = 0; c < 2; ++c) {
            QString text;
            if (r < static_cast<int>(st.notches.size()))
                text = QString::number(c == 0 ? st.notches[static_cast<std::size_t>(r)].first
                                              : st.notches[static_cast<std::size_t>(r)].second, 'f', 6);
            f.notches->setItem(r, c, new QTableWidgetItem(text));
        }
}

void MainWindow::read_analyze_panel() {
    Settings& st = ws_->settings;
    const Ui_ANALYZE& f = *analyze_form_;
    st.low_mass = f.low_mass->value();
    st.high_mass = f.high_mass->value();
    st.min_peak_width = f.min_peak_width->value();
    st.peak_threshold = f.peak_threshold->value();
    st.noise_threshold = f.noise_threshold->value();
    st.abundance_scale = f.abundance_scale->value();
    st.peak_sigma_factor = f.peak_sigma_factor->value();
    st.noise_window = f.noise_window->value();
    st.noise_sigma_factor = f.noise_sigma_factor->value();
    st.percent_thresholds = f.percent_thresholds->isChecked() ? 1 : 0;
    st.global_noise = f.global_noise->isChecked() ? 1 : 0;
    st.notches_on = f.notches_on->isChecked() ? 1 : 0;
    st.PEAKMZ = f.dec_mz->value();
    st.peak_decimals_3 = f.dec_frequency->value();
    st.PEAKABUN = f.dec_abundance->value();
    st.peak_decimals_2 = f.dec_other->value();
    st.notches.clear();
    for (int r = 0; r < f.notch_count->value() && r < f.notches->rowCount(); ++r) {
        auto value = [&](int c) {
            const QTableWidgetItem* item = f.notches->item(r, c);
            return item ? item->text().toDouble() : 0.0;
        };
        st.notches.emplace_back(value(0), value(1));
    }
}

void MainWindow::find_peak_options() {
    if (ws_->active_panel >= 0 && ws_->panels[static_cast<std::size_t>(ws_->active_panel)].active)
        FindPeakOptions(*ws_, ws_->active_panel);
    fill_analyze_panel();
    analyze_->show();
    analyze_->raise();
}

int MainWindow::find_peaks() {
    WaitCursor wait;
    const int rc = FindPeaksCommand(*ws_, *peak_table_, *ui_);
    show_peak_table();
    return rc;
}

int MainWindow::analyze_find(bool by_sn) {
    read_analyze_panel();
    if (analyze_form_->hide_on_run->isChecked()) analyze_->hide();
    WaitCursor wait;
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
    const PeakTable& t = *peak_table_;
    if (!t.loaded) {
        peaklist_->hide();
        return;
    }
    Ui_PEAKLIST2& f = *peaklist_form_;
    const PeakDecimals d = peak_decimals(ws_->settings);
    f.rows->setRowCount(static_cast<int>(t.rows.size()));
    for (int r = 0; r < static_cast<int>(t.rows.size()); ++r) {
        const auto fields = peak_table_fields(t.rows[static_cast<std::size_t>(r)], d);
        for (int c = 0; c < 7; ++c) {
            auto* item = new QTableWidgetItem(qs(fields[static_cast<std::size_t>(c)]));
            item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            f.rows->setItem(r, c, item);
        }
    }
    f.rows->resizeColumnsToContents();
    f.status->setText(qs(t.status));
    f.ymax->setText(QString::number(t.ymax, 'f', 2));
    peaklist_->show();
    peaklist_->raise();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (ui_->ConfirmPopup("Quit TULVA Analysis", "Are you sure you want to quit TULVA Analysis?")) event->accept();
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
