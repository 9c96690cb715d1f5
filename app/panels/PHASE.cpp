#include "PHASE.hpp"

#include <algorithm>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <qcustomplot.h>

#include <fmt/format.h>

#include "main_window.hpp"
#include "phasing/phase_modes.hpp"
#include "qt_ui.hpp"

namespace vx {

namespace {

QCheckBox* check(QFormLayout* form, const char* label) {
    auto* c = new QCheckBox;
    form->addRow(label, c);
    return c;
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
    form->addRow("Apodization", apod_);
    zero_dc_ = check(form, "Zero DC Offset");
    truncations_ = new QSpinBox;
    truncations_->setRange(0, 20);
    form->addRow("Truncations", truncations_);
    zerofills_ = new QSpinBox;
    zerofills_->setRange(0, 4);
    form->addRow("Zerofills", zerofills_);
    exclude_ = check(form, "Exclude Excite from Apod");
    roll_ = check(form, "Correct Baseline Roll");
    dispersion_ = check(form, "Display Dispersion Data");
    harmonic3_ = check(form, "Phase 3 Omega");
    analytical_ = check(form, "Analytical Solution Only");
    feng_ = check(form, "Feng's Algorithm");
    feng_polarity_ = check(form, "Feng's Polarity");
    special_ = check(form, "Special");
    test_ = check(form, "T");
    show_phase_ = check(form, "Show Phase");
    close_ = check(form, "Close Panel ?");

    blank_label_ = new QLabel("No blank file");
    score_ = new QLabel;
    cterm_ = new QLabel;
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
    return o;
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
    const PhaseProcessOptions o = options(extra_point);
    PhaseRunResult r;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const int rc = phasing_process_command(ws, slot, blank_slot_, o, o.run.dispersion, main_.ui(), &r, &dispersion_slot_);
    QApplication::restoreOverrideCursor();
    main_.sync_windows();
    if (rc < 0) return rc;
    ws.active_panel = slot;
    if (o.mode == PROCESS_ABSORPTION) {
        score_->setText(QString::fromStdString(fmt::format("PhaseScore {:f}", r.score)));
        cterm_->setText(QString::fromStdString(fmt::format("C Term {}", r.applied_degrees)));
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
