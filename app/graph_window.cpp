#include "graph_window.hpp"

#include <QAction>
#include <QActionGroup>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <QWheelEvent>
#include <QResizeEvent>
#include <QFontMetricsF>

#include <qcustomplot.h>

#include <algorithm>
#include <cmath>

#include "MANUALZOOM.hpp"
#include "main_window.hpp"
#include "workspace/conversions.hpp"
#include "qt_ui.hpp"

namespace vx {

namespace {

QString qs(const std::string& s) { return QString::fromStdString(s); }

struct MenuItem {
    const char* text;
    int item;
};

}  // namespace

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
    // Found peaks: a small triangle at each apex; their m/z labels are items.
    marks_ = plot_->addGraph();
    marks_->setLineStyle(QCPGraph::lsNone);
    marks_->setScatterStyle(QCPScatterStyle(QCPScatterStyle::ssTriangleInverted, QColor(0, 90, 200), 7));
    marks_->setAdaptiveSampling(false);
    band_ = new QCPItemRect(plot_);
    band_->setPen(QPen(QColor(60, 60, 60), 1, Qt::DashLine));
    band_->setBrush(QColor(80, 120, 220, 40));
    band_->setVisible(false);
    plot_->setMouseTracking(true);  // the live read-out follows the mouse without a button
    plot_->setFocusPolicy(Qt::StrongFocus);
    setFocusProxy(plot_);
    connect(plot_, &QCustomPlot::mousePress, this, &GraphWindow::on_press);
    connect(plot_, &QCustomPlot::mouseMove, this, &GraphWindow::on_move);
    connect(plot_, &QCustomPlot::mouseRelease, this, &GraphWindow::on_release);
    connect(plot_, &QCustomPlot::mouseWheel, this, &GraphWindow::on_wheel);

    auto* bar = new QMenuBar(this);
    layout->setMenuBar(bar);
    build_menus();
    for (QMenu* m : menu_) bar->addMenu(m);
    layout->addWidget(plot_, 1);

    // The read-outs, each with its caption; the live one follows the mouse.
    auto* row = new QHBoxLayout;
    row->setSpacing(4);
    auto readout = [&](const char* caption, const char* tip) {
        auto* c = new QLabel(QString(caption) + ":", this);
        c->setToolTip(tip);
        auto* l = new QLabel(this);
        l->setToolTip(tip);
        l->setFrameShape(QFrame::StyledPanel);
        l->setTextInteractionFlags(Qt::TextSelectableByMouse);
        l->setMinimumWidth(40);
        row->addWidget(c);
        row->addWidget(l);
        readouts_.emplace_back(caption, l);
        return l;
    };
    auto* left = new QPushButton("<", this);
    auto* right = new QPushButton(">", this);
    left->setMaximumWidth(28);
    right->setMaximumWidth(28);
    left->setToolTip("Pan left one screen");
    right->setToolTip("Pan right one screen");
    connect(left, &QPushButton::clicked, this, [this] { move_graph(3); });
    connect(right, &QPushButton::clicked, this, [this] { move_graph(2); });
    row->addWidget(left);
    row->addWidget(right);
    slotno_ = readout("Slot", "Slot number");
    points_ = readout("Points", "Data points of the spectrum");
    parent_ = readout("Parent", "Parent mass");
    range_ = readout("Cursors", "Range between cursors 1 and 2");
    width_ = readout("Width", "Width between cursors 1 and 2");
    resolution_ = readout("Resolution", "Resolution between cursors 1 and 2: centre / width");
    cursor3_ = readout("Cursor 3", "Place of cursor 3 (middle button)");
    row->addStretch(1);
    layout->addLayout(row);
    live_ = new QLabel(this);
    live_->setToolTip("Under the mouse");
    live_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(live_);

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
    // Beside the plot menu's items: the zoom history and keys of the usual
    // viewers. The keys act in the window that has the focus.
    menu_[0]->addSeparator();
    auto add_key = [this](QMenu* into, const QString& text, const QList<QKeySequence>& keys, auto&& run) {
        QAction* a = into->addAction(text);
        a->setShortcuts(keys);
        a->setShortcutContext(Qt::WidgetWithChildrenShortcut);
        addAction(a);  // the window, not only its menu, takes the keys
        connect(a, &QAction::triggered, this, run);
        return a;
    };
    add_key(menu_[0], "Back", {QKeySequence::Undo, QKeySequence(Qt::ALT | Qt::Key_Left)}, [this] { zoom_back(); });
    add_key(menu_[0], "Forward", {QKeySequence::Redo, QKeySequence(Qt::ALT | Qt::Key_Right)},
            [this] { zoom_forward(); });
    add_key(menu_[0], "Zoom In at Centre", {QKeySequence::ZoomIn, QKeySequence(Qt::Key_Plus)}, [this] {
        wheel_zoom(plot_->axisRect()->center().x(), 0.5);
    });
    add_key(menu_[0], "Zoom Out at Centre", {QKeySequence::ZoomOut, QKeySequence(Qt::Key_Minus)}, [this] {
        wheel_zoom(plot_->axisRect()->center().x(), 2.0);
    });
    add_key(menu_[0], "Full View", {QKeySequence(Qt::Key_Home)}, [this] { plot_command(PLOT_ZOOM_FULL); });
    add_key(menu_[0], "Pan Left", {QKeySequence(Qt::Key_Left)}, [this] { move_graph(3); });
    add_key(menu_[0], "Pan Right", {QKeySequence(Qt::Key_Right)}, [this] { move_graph(2); });
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
    // Room above the tallest peak for its label when peaks are marked.
    const bool marking = !p.spectrum.peaks.empty() &&
                         (p.xmode == XMODE_POINT || p.xmode == XMODE_MZ || p.xmode == XMODE_FREQUENCY);
    plot_->yAxis->setRange(arrays_.ylow - pad, arrays_.yhigh + (marking ? 4.0 : 1.0) * pad);
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
    // Every range the window comes to is a step of its history; a new
    // spectrum in the slot (Process) starts a new one.
    if (history_points_ != p.spectrum.datacount) {
        history_.clear();
        history_points_ = p.spectrum.datacount;
    }
    history_.record(p.xmin, p.xmax);
    // The axis rectangle takes its final size in the replot; the labels are
    // placed in pixels, so they follow it.
    if (marking || !labels_.empty() || marks_->dataCount() > 0) {
        marks_->data()->clear();  // the layout pass need not draw the old marks
        plot_->replot();
        draw_peaks();
    }
    plot_->replot();
}

void GraphWindow::draw_peaks() {
    for (QCPItemText* t : labels_) plot_->removeItem(t);
    labels_.clear();
    label_boxes_.clear();
    AnalysisPanel& p = panel();
    const bool marking = !p.spectrum.peaks.empty() &&
                         (p.xmode == XMODE_POINT || p.xmode == XMODE_MZ || p.xmode == XMODE_FREQUENCY);
    if (!marking) {
        marks_->data()->clear();
        return;
    }
    const QCPRange xr = plot_->xAxis->range();
    const QRect area = plot_->axisRect()->rect();
    QFont font = plot_->font();
    font.setPointSize(8);
    const QFontMetricsF fm(font);
    QVector<double> keys, values;
    std::vector<LabelBox> boxes;
    std::vector<QString> texts;
    std::vector<QPointF> anchors;
    std::vector<double> masses;
    // One mark per two pixel columns, the tallest peak there: marks closer
    // than that cover each other anyway, and a list of 100,000 peaks then
    // costs no more to draw than the trace.
    const int columns = std::max(1, area.width() / 2 + 1);
    std::vector<int> best(static_cast<std::size_t>(columns), -1);
    std::vector<double> best_y(static_cast<std::size_t>(columns), 0.0), best_x(static_cast<std::size_t>(columns), 0.0);
    const auto& peaks = p.spectrum.peaks;
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        const Peak& k = peaks[i];
        const double x = point_to_x(p, k.index);
        if (!std::isfinite(x) || !xr.contains(x)) continue;
        float y = static_cast<float>(k.abundance);
        Set_Plot_Attributes(p, &y, 1);  // the relative scale, as the trace
        const int c = std::clamp(static_cast<int>((plot_->xAxis->coordToPixel(x) - area.left()) / 2.0), 0, columns - 1);
        const std::size_t cu = static_cast<std::size_t>(c);
        if (best[cu] < 0 || y > best_y[cu]) {
            best[cu] = static_cast<int>(i);
            best_y[cu] = y;
            best_x[cu] = x;
        }
    }
    for (std::size_t c = 0; c < best.size(); ++c) {
        if (best[c] < 0) continue;
        keys.push_back(best_x[c]);
        values.push_back(best_y[c]);
        masses.push_back(peaks[static_cast<std::size_t>(best[c])].mass);
    }
    marks_->setData(keys, values, true);
    // Peaks lower than 1 % of the tallest in view keep their mark but get no
    // label: among thousands of baseline peaks the labels would only hide the
    // trace. Zoomed in on small peaks, the tallest in view sets the scale.
    const double tallest = values.isEmpty() ? 0.0 : *std::max_element(values.begin(), values.end());
    const double h = fm.height();
    for (qsizetype i = 0; i < keys.size(); ++i) {
        if (tallest > 0.0 && values[i] < 0.01 * tallest) continue;
        const QString text = QString::number(masses[static_cast<std::size_t>(i)], 'f', 4);
        const double px = plot_->xAxis->coordToPixel(keys[i]), py = plot_->yAxis->coordToPixel(values[i]);
        const double w = fm.horizontalAdvance(text) + 4.0;
        // The box stands above the marker, centred on the peak; relative to
        // the axis rectangle, which is the area labels may use.
        boxes.push_back({px - w / 2.0 - area.left(), py - 8.0 - h - area.top(), w, h, values[i]});
        texts.push_back(text);
        anchors.emplace_back(px, py - 8.0);
    }
    const auto chosen = choose_peak_labels(boxes, area.width(), area.height(), 40);
    for (std::size_t i : chosen) {
        auto* t = new QCPItemText(plot_);
        t->setClipToAxisRect(true);
        t->position->setType(QCPItemPosition::ptAbsolute);
        t->position->setCoords(anchors[i].x(), anchors[i].y());
        t->setPositionAlignment(Qt::AlignHCenter | Qt::AlignBottom);
        t->setFont(font);
        t->setColor(QColor(0, 60, 150));
        t->setText(texts[i]);
        labels_.push_back(t);
        const LabelBox& b = boxes[i];
        label_boxes_.emplace_back(b.left + area.left(), b.top + area.top(), b.width, b.height);
    }
}

std::vector<GraphWindow::DrawnLabel> GraphWindow::drawn_labels() const {
    std::vector<DrawnLabel> out;
    for (std::size_t i = 0; i < labels_.size(); ++i) out.push_back({labels_[i]->text(), label_boxes_[i]});
    return out;
}

int GraphWindow::marked_peaks() const { return marks_->dataCount(); }

bool GraphWindow::rubber_band_visible() const { return band_->visible(); }

QString GraphWindow::readout(const QString& caption) const {
    for (const auto& [c, l] : readouts_)
        if (c == caption) return l->text();
    return caption == "Live" ? live_->text() : QString();
}

QString GraphWindow::live_readout() const { return live_->text(); }

void GraphWindow::track_mouse(double px) {
    AnalysisPanel& p = panel();
    const Spectrum& s = p.spectrum;
    if (!p.active || s.data.empty()) {
        live_->clear();
        return;
    }
    const double x = plot_->xAxis->pixelToCoord(px);
    const double point = x_to_point(p, x);
    if (!std::isfinite(point)) {
        live_->clear();
        return;
    }
    const long i = std::clamp(std::lround(point), 0L, static_cast<long>(s.data.size()) - 1);
    const double intensity = s.data[static_cast<std::size_t>(i)];
    QString text;
    if (s.domain == DOMAIN_FREQUENCY || s.domain == DOMAIN_MASS) {
        text = QString::asprintf("m/z %.5f    Frequency %.4f kHz    Intensity %.4g    Point %ld",
                                 SPt_tomass(s, static_cast<double>(i)), SPt_tofreq(s, i) / 1000.0, intensity, i);
    } else if (p.xmode == XMODE_TIME) {
        text = QString::asprintf("Time %.5f ms    Intensity %.4g    Point %ld", x, intensity, i);
    } else {
        text = QString::asprintf("x %.6g    Intensity %.4g    Point %ld", x, intensity, i);
    }
    live_->setText(text);
}

void GraphWindow::apply_range(double xmin, double xmax) {
    AnalysisPanel& p = panel();
    main_->workspace().active_panel = slot_;
    p.prevmin = p.xmin;
    p.prevmax = p.xmax;
    p.xmin = xmin;
    p.xmax = xmax;
    p.moveoffset = 0.0;
    redraw();
}

void GraphWindow::wheel_zoom(double px, double factor) {
    AnalysisPanel& p = panel();
    if (!p.active) return;
    const QCPRange r = plot_->xAxis->range();
    double lo = 0.0, hi = 0.0;
    if (wheel_zoom_points(p, r.lower, r.upper, plot_->xAxis->pixelToCoord(px), factor, lo, hi)) apply_range(lo, hi);
}

bool GraphWindow::zoom_back() {
    ZoomHistory::Range r;
    if (!history_.back(r)) return false;
    apply_range(r.xmin, r.xmax);
    return true;
}

bool GraphWindow::zoom_forward() {
    ZoomHistory::Range r;
    if (!history_.forward(r)) return false;
    apply_range(r.xmin, r.xmax);
    return true;
}

void GraphWindow::on_wheel(QWheelEvent* e) {
    const double steps = e->angleDelta().y() / 120.0;
    if (steps == 0.0) return;
    // One notch zooms in by a fifth; the place under the mouse stays put.
    wheel_zoom(e->position().x(), std::pow(0.8, steps));
    e->accept();
}

void GraphWindow::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    // The labels are placed in pixels: place them again at the new size.
    QTimer::singleShot(0, this, [this] {
        if (panel().active && !panel().spectrum.peaks.empty()) {
            plot_->replot();
            draw_peaks();
            plot_->replot();
        }
    });
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

void GraphWindow::open_zoom_exact() { run_manual_zoom(*this); }

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
    const QPointF pos = e->position();
    track_mouse(pos.x());
    if (right_drag_ && main_->workspace().settings.quick_zoom) {
        // The rubber band of the drag, over the plot's whole height.
        const QCPRange yr = plot_->yAxis->range();
        band_->topLeft->setCoords(right_start_x_, yr.upper);
        band_->bottomRight->setCoords(plot_->xAxis->pixelToCoord(pos.x()), yr.lower);
        band_->setVisible(std::abs(pos.x() - right_start_.x()) >= 3);
        plot_->replot(QCustomPlot::rpQueuedReplot);
    }
    if (dragging_ == 0) return;
    set_cursor(dragging_, plot_->xAxis->pixelToCoord(pos.x()), plot_->yAxis->pixelToCoord(pos.y()));
}

void GraphWindow::on_release(QMouseEvent* e) {
    dragging_ = 0;
    if (band_->visible()) {
        band_->setVisible(false);
        plot_->replot(QCustomPlot::rpQueuedReplot);
    }
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

}  // namespace vx
