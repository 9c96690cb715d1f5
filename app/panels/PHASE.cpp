#include "PHASE.hpp"

#include <algorithm>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QVBoxLayout>

#include <qcustomplot.h>

#include <fmt/format.h>

#include "MPHASE.hpp"
#include "main_window.hpp"
#include "phasing/phase_modes.hpp"
#include "phasing/phasing_callback.hpp"
#include "qt_ui.hpp"

namespace vx {

namespace {

QCheckBox* check(QFormLayout* form, const char* label, const char* name = nullptr) {
    auto* c = new QCheckBox;
    if (name) c->setObjectName(name);
    form->addRow(label, c);
    return c;
}

QDoubleSpinBox* number(QFormLayout* form, const char* label, const char* name, double lo, double hi, double value) {
    auto* b = new QDoubleSpinBox;
    b->setObjectName(name);
    b->setRange(lo, hi);
    b->setDecimals(2);
    b->setValue(value);
    form->addRow(label, b);
    return b;
}

}  // namespace

PhaseDialog::PhaseDialog(MainWindow& main) : QDialog(&main), main_(main) {
    setObjectName("PHASE");
    setWindowTitle("\"Phasing the Data\"");
    auto* form = new QFormLayout;
    process_ = new QComboBox;
    process_->setObjectName("PROCESS");
    process_->addItems({"FFT (magnitude)", "FFT (absorption)", "FFT - Complex Division",
                        "FFT - Complex Division Alternate"});
    process_->setCurrentIndex(1);
    form->addRow("Process Control", process_);
    apod_ = new QComboBox;
    apod_->addItems({"None", "Hanning", "Hamming", "Blackman-Harris"});
    apod_->setObjectName("APOD");
    form->addRow("Apodization", apod_);
    apod_first_ = check(form, "Apodize Before Phasing", "APODFIRST");
    apod_first_->setChecked(true);
    zero_dc_ = check(form, "Zero DC Offset", "BASELINE");
    truncations_ = new QSpinBox;
    truncations_->setRange(0, 20);
    form->addRow("Truncations", truncations_);
    zerofills_ = new QSpinBox;
    zerofills_->setRange(0, 4);
    form->addRow("Zerofills", zerofills_);
    exclude_ = check(form, "Exclude Excite from Apod", "ESWITCH");
    basefile_ = check(form, "Subtract Background File", "BASEFILE");
    autozero_det_ = check(form, "Auto Zero Data File", "AUTOZERO_DET");
    extra_data_ = number(form, "Extra Time (ms)", "XTRA_DATA", -1000.0, 1000.0, 0.0);
    autozero_ex_ = check(form, "Auto Zero Excite File", "AUTOZERO_EX");
    extra_excite_ = number(form, "Extra Time (ms)", "XTRA_EXCITE", -1000.0, 1000.0, 0.0);
    skip_points_ = new QSpinBox;
    skip_points_->setObjectName("SKIPPOINTS");
    skip_points_->setRange(0, 1 << 30);
    form->addRow("Skip Data Points", skip_points_);
    roll_ = check(form, "Correct Baseline Roll", "ROLLCORRECT");
    dispersion_ = check(form, "Display Dispersion Data", "DISPERSION");
    zoom_excite_ = check(form, "Zoom to Excite Conditions", "PROCESSEXCITE");
    harmonic3_ = check(form, "Phase 3 Omega", "3OMEGA");
    analytical_ = check(form, "Analytical Solution Only", "ANALYTICAL");
    feng_ = check(form, "Feng's Algorithm", "FENGSWAY");
    feng_polarity_ = check(form, "Feng's Polarity", "FENGSCTERM");
    special_ = check(form, "Special", "SPECIAL");
    simple_ = check(form, "Simple", "SIMPLE");
    iterate_c_ = check(form, "Iterate C ", "ITERATEC");
    inverse_ = check(form, "I", "INVERSE");
    manual_ = check(form, "M", "MANUAL");
    batch_ = check(form, "B", "BATCH");
    test_ = check(form, "T", "TEST");
    test2_ = check(form, "T2", "TEST_2");
    score_lo_ = number(form, "Score Freq Range", "SCORE_LO", -1.0, 1e9, -1.0);
    score_hi_ = number(form, "", "SCORE_HI", -1.0, 1e9, -1.0);
    show_phase_ = check(form, "Show Phase", "SHOWPHASE");
    debug_ = check(form, "Debug", "DEBUG");
    close_ = check(form, "Close Panel ?", "CLOSE");
    connect(basefile_, &QCheckBox::toggled, this, [this](bool on) { basefile_toggled(on); });

    blank_label_ = new QLabel("No blank file");
    score_ = new QLabel;
    cterm_ = new QLabel;
    drop_ = new QLabel;
    a_ = new QLabel;
    b_ = new QLabel;
    auto* buttons = new QGridLayout;
    auto* blank_button = new QPushButton("Open Blank File...");
    auto* go_button = new QPushButton("GO");
    auto* go2_button = new QPushButton("GO2");
    go_button->setObjectName("GO");
    go2_button->setObjectName("GO2");
    buttons->addWidget(blank_button, 0, 0);
    buttons->addWidget(blank_label_, 0, 1);
    buttons->addWidget(go_button, 1, 0);
    buttons->addWidget(go2_button, 1, 1);
    auto* box = new QVBoxLayout(this);
    box->addLayout(form);
    box->addLayout(buttons);
    box->addWidget(score_);
    box->addWidget(cterm_);
    box->addWidget(drop_);
    box->addWidget(a_);
    box->addWidget(b_);
    connect(go_button, &QPushButton::clicked, this, [this] { go(true); });
    connect(go2_button, &QPushButton::clicked, this, [this] { go(false); });
    connect(blank_button, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getOpenFileName(this, "Open TULVA Blank File", {}, "*.dat *.dat.Z *.*");
        if (!path.isEmpty()) open_blank(path.toStdString());
    });
}

PhaseProcessOptions PhaseDialog::options(bool extra_point) const {
    PhaseProcessOptions o;
    o.mode = process_->currentIndex() + 1;
    PhaseRunOptions& r = o.run;
    r.apodization = apod_->currentIndex();
    r.zero_dc = zero_dc_->isChecked();
    r.truncations = truncations_->value();
    r.zerofills = zerofills_->value();
    r.exclude_excite = exclude_->isChecked();
    r.roll = roll_->isChecked();
    r.harmonic3 = harmonic3_->isChecked();
    r.method = analytical_->isChecked() ? PHASE_ANALYTIC_120 : PHASE_ITERATE;
    r.initial_form = feng_->isChecked();
    r.polarity = feng_polarity_->isChecked() ? 1 : 0;
    r.special = special_->isChecked();
    r.test = test_->isChecked();
    r.extra_point = extra_point;
    r.dispersion = dispersion_->isChecked();
    r.apodize_first = apod_first_->isChecked();
    r.score_lo = score_lo_->value();
    r.score_hi = score_hi_->value();
    return o;
}

PhasingPanelValues PhaseDialog::values(bool extra_point) const {
    PhasingPanelValues v;
    v.process = options(extra_point);
    v.dispersion = dispersion_->isChecked();
    v.simple = simple_->isChecked();
    v.iterate_c = iterate_c_->isChecked();
    v.skip_points = skip_points_->value();
    v.subtract_background = basefile_->isChecked();
    v.autozero_data = autozero_det_->isChecked();
    v.autozero_excite = autozero_ex_->isChecked();
    v.extra_data_ms = extra_data_->value();
    v.extra_excite_ms = extra_excite_->value();
    v.inverse = inverse_->isChecked();
    v.manual = manual_->isChecked();
    v.batch = batch_->isChecked();
    v.test2 = test2_->isChecked();
    v.zoom_excite = zoom_excite_->isChecked();
    v.debug = debug_->isChecked();
    return v;
}

void PhaseDialog::basefile_toggled(bool on) {
    if (!on) {
        close_background();
        return;
    }
    if (background_slot_ >= 0) return;
    // OpenSubtractFile: the background transient; cancelled, the switch goes back off.
    const QString path = QFileDialog::getOpenFileName(this, "Open TULVA Background File", {}, "*.dat *.dat.Z *.*");
    if (path.isEmpty() || open_background(path.toStdString()) < 0) {
        const QSignalBlocker block(basefile_);
        basefile_->setChecked(false);
    }
}

int PhaseDialog::open_background(const std::string& path) {
    Workspace& ws = main_.workspace();
    const int data = ws.active_panel;
    const int slot = main_.open_file(path);
    if (slot < 0) return -1;
    background_slot_ = slot;
    {
        const QSignalBlocker block(basefile_);
        basefile_->setChecked(true);
    }
    if (data >= 0) ws.active_panel = data;
    return slot;
}

void PhaseDialog::close_background() {
    const int slot = background_slot_;
    background_slot_ = -1;
    {
        const QSignalBlocker block(basefile_);
        basefile_->setChecked(false);
    }
    Workspace& ws = main_.workspace();
    if (slot < 0 || slot >= MAX_PANELS || ws.panels[static_cast<std::size_t>(slot)].active == 0) return;
    const int data = ws.active_panel;
    main_.close_slot(slot);
    if (data != slot && data >= 0 && ws.panels[static_cast<std::size_t>(data)].active) ws.active_panel = data;
}

int PhaseDialog::open_blank(const std::string& path) {
    Workspace& ws = main_.workspace();
    const int data = ws.active_panel;
    const int slot = main_.open_file(path);
    if (slot < 0) return -1;
    blank_slot_ = slot;
    blank_label_->setText(QString::fromStdString(path));
    // The data stays the panel being phased.
    if (data >= 0) ws.active_panel = data;
    return slot;
}

void PhaseDialog::set_mode(int mode) { process_->setCurrentIndex(std::clamp(mode, 1, 4) - 1); }
void PhaseDialog::set_dispersion(bool on) { dispersion_->setChecked(on); }
void PhaseDialog::set_show_phase(bool on) { show_phase_->setChecked(on); }

int PhaseDialog::go(bool extra_point) {
    Workspace& ws = main_.workspace();
    const int slot = ws.active_panel;
    const PhasingPanelValues v = values(extra_point);
    const PhaseProcessOptions& o = v.process;
    PhasingOutcome out;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const int rc = PhasingCallback(ws, slot, background_slot_, blank_slot_, v, main_.ui(), &out);
    QApplication::restoreOverrideCursor();
    dispersion_slot_ = out.dispersion_slot;
    main_.sync_windows();
    if (rc < 0) return rc;
    ws.active_panel = slot;
    // The background is subtracted once: its switch goes off, its window stays.
    if (out.background_used) {
        const QSignalBlocker block(basefile_);
        basefile_->setChecked(false);
    }
    if (out.inverse_done) inverse_->setChecked(false);
    const PhaseRunResult& r = out.run;
    if (v.simple) {
        score_->setText(QString::fromStdString(fmt::format("Sweeprate {:f}", out.simple.sweeprate)));
        cterm_->setText(QString::fromStdString(fmt::format("Total_delay {:f}", out.simple.total_delay)));
    } else if (out.stopped_after_transform) {
        // "M": the manual panel rotates the spectrum from here.
        if (v.manual) show_MPHASE(main_);
    } else if (o.mode == PROCESS_ABSORPTION && !out.inverse_done) {
        score_->setText(QString::fromStdString(fmt::format("PhaseScore {:f}", r.score)));
        const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
        // "C Shift" when a stored initial constant was part of the phase.
        const char* cname = s.phaseparams == 1 && s.initialconstant != 0.0 && r.form == "stored" ? "C Shift" : "C Term";
        cterm_->setText(QString::fromStdString(fmt::format("{} {}", cname, r.applied_degrees)));
        drop_->setText(QString::fromStdString(fmt::format("Drop {:f}", r.score != 0.0 ? r.drop / r.score : 0.0)));
        a_->setText(QString::fromStdString(fmt::format("A {:f}", s.sweeprate)));
        b_->setText(QString::fromStdString(fmt::format("B {:f}", s.delay)));
        if (show_phase_->isChecked()) show_phase(slot, r.model.Cterm);
    }
    if (GraphWindow* g = main_.graph(slot)) g->redraw();
    if (dispersion_slot_ >= 0)
        if (GraphWindow* g = main_.graph(dispersion_slot_)) g->redraw();
    if (close_->isChecked()) hide();
    return rc;
}

void PhaseDialog::show_phase(int slot, double constant) {
    const Spectrum& s = main_.workspace().panels[static_cast<std::size_t>(slot)].spectrum;
    main_.ui().Console(show_phase_text(s, constant));
    std::vector<double> hz, rad;
    phase_plot_points(s, constant, 8192, hz, rad);
    if (!plot_) {
        plot_ = new QDialog(this);
        plot_->setObjectName("SHOWPHASE");
        plot_->setWindowTitle("Show Phase");
        auto* p = new QCustomPlot(plot_);
        p->addGraph();
        p->xAxis->setLabel("Frequency (Hz)");
        p->yAxis->setLabel("Phase (rad)");
        auto* l = new QVBoxLayout(plot_);
        l->addWidget(p);
        plot_->resize(640, 420);
    }
    auto* p = plot_->findChild<QCustomPlot*>();
    p->graph(0)->setData(QVector<double>(hz.begin(), hz.end()), QVector<double>(rad.begin(), rad.end()), true);
    p->rescaleAxes();
    p->replot();
    plot_->show();
    plot_->raise();
}

PhaseDialog* show_PHASE(MainWindow& window) {
    auto* panel = window.findChild<PhaseDialog*>("PHASE", Qt::FindDirectChildrenOnly);
    if (!panel) panel = new PhaseDialog(window);
    panel->show();
    panel->raise();
    return panel;
}

}  // namespace vx
