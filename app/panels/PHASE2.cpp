#include "PHASE2.hpp"

#include <cmath>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QFormLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <fmt/format.h>

#include "main_window.hpp"
#include "phasing/phase_command.hpp"
#include "phasing/phasing_callback.hpp"
#include "qt_ui.hpp"

namespace vx {
namespace {

struct Phase2Controls {
    QCheckBox* zero_dc;
    QComboBox* apod;
    QComboBox* method;
    QSpinBox* truncations;
    QSpinBox* zerofills;
    QCheckBox* roll;
    QCheckBox* harmonic3;
    QCheckBox* initial;
    QCheckBox* extra;
    QComboBox* baseline;
    QCheckBox* show_phase;
    QCheckBox* zoom_excite;
    QLabel* score;
    QLabel* cterm;
    QLabel* drop;
    QLabel* a;
    QLabel* b;
};

void run(MainWindow& w, const Phase2Controls& c) {
    PhaseRunOptions o;
    o.zero_dc = c.zero_dc->isChecked();
    o.apodization = c.apod->currentIndex();
    o.method = c.method->currentIndex();
    o.truncations = c.truncations->value();
    o.zerofills = c.zerofills->value();
    o.roll = c.roll->isChecked();
    o.harmonic3 = c.harmonic3->isChecked();
    // "Phase 3 Omega" carries the polarity only with an analytical method.
    o.polarity = (o.harmonic3 && (o.method == PHASE_ANALYTIC_120 || o.method == PHASE_ANALYTIC_90)) ? 1 : 0;
    o.initial_form = c.initial->isChecked();
    o.extra_point = c.extra->isChecked();
    o.baseline = c.baseline->currentIndex() != 2;
    o.median_baseline = c.baseline->currentIndex() == 1;
    Workspace& ws = w.workspace();
    const int slot = ws.active_panel;
    PhaseRunResult r;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const int rc = phase_command(ws, o, w.ui(), &r);
    QApplication::restoreOverrideCursor();
    w.sync_windows();
    if (rc < 0) return;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    const Spectrum& s = p.spectrum;
    long long lo = 0, hi = 0;
    if (c.zoom_excite->isChecked() && excite_band_points(s, o.harmonic3 ? 3.0 : 1.0, lo, hi)) {
        p.prevmin = p.xmin;
        p.prevmax = p.xmax;
        p.xmin = static_cast<double>(lo);
        p.xmax = static_cast<double>(hi);
    }
    c.score->setText(QString::fromStdString(fmt::format("PhaseScore {:.8e}", r.score)));
    c.cterm->setText(QString::fromStdString(fmt::format("C Term {}", r.applied_degrees)));
    c.drop->setText(QString::fromStdString(fmt::format("Drop {:f}", r.score != 0.0 ? r.drop / r.score : 0.0)));
    c.a->setText(QString::fromStdString(fmt::format("A {:f}", s.sweeprate)));
    c.b->setText(QString::fromStdString(fmt::format("B {:f}", s.delay)));
    if (c.show_phase->isChecked() && !s.phase.empty())
        w.ui().Console(fmt::format("First phase {:f}, last phase {:f}\n", s.phase.front() + r.model.Cterm,
                                   s.phase.back() + r.model.Cterm));
    if (GraphWindow* g = w.graph(slot)) g->redraw();
}

}  // namespace

void show_PHASE2(MainWindow& window) {
    static QPointer<QDialog> panel;
    if (panel) {
        panel->show();
        panel->raise();
        return;
    }
    auto* d = new QDialog(&window);
    panel = d;
    d->setWindowTitle("Absorption Mode Controls");
    auto* form = new QFormLayout;
    auto* c = new Phase2Controls;
    c->zero_dc = new QCheckBox;
    form->addRow("Zero DC Offset", c->zero_dc);
    c->apod = new QComboBox;
    c->apod->addItems({"None", "Hanning", "Hamming", "Blackman-Harris"});
    form->addRow("Apodization", c->apod);
    c->method = new QComboBox;
    // The labels as the program has always shown them.
    c->method->addItems({"Constant Term Iteration", "Analytical Soution ( 120 Degree Cell)",
                         "Analytical Soution (90 Degree Cell)", "Vector Sum of the Peaks"});
    form->addRow("Phase Calculation Method", c->method);
    c->truncations = new QSpinBox;
    c->truncations->setRange(0, 20);
    form->addRow("Truncations", c->truncations);
    c->zerofills = new QSpinBox;
    c->zerofills->setRange(0, 4);
    c->zerofills->setValue(1);
    form->addRow("Zerofills", c->zerofills);
    c->roll = new QCheckBox;
    form->addRow("Correct Baseline Roll", c->roll);
    c->zoom_excite = new QCheckBox;
    c->zoom_excite->setObjectName("PROCESSEXCITE");
    form->addRow("Zoom to Excite Conditions", c->zoom_excite);
    c->harmonic3 = new QCheckBox;
    form->addRow("Phase 3 Omega", c->harmonic3);
    c->initial = new QCheckBox;
    form->addRow("Reference at the Start Frequency", c->initial);
    c->extra = new QCheckBox;
    form->addRow("Extra Point", c->extra);
    c->baseline = new QComboBox;
    c->baseline->addItems({"Dips", "Window Medians", "None"});
    form->addRow("Baseline", c->baseline);
    c->show_phase = new QCheckBox;
    form->addRow("Show Phase", c->show_phase);
    auto* go = new QPushButton("Phase");
    c->score = new QLabel;
    c->cterm = new QLabel;
    c->drop = new QLabel;
    c->a = new QLabel;
    c->b = new QLabel;
    auto* box = new QVBoxLayout(d);
    box->addLayout(form);
    box->addWidget(go);
    for (QLabel* l : {c->score, c->cterm, c->drop, c->a, c->b}) box->addWidget(l);
    QObject::connect(go, &QPushButton::clicked, d, [&window, c] { run(window, *c); });
    QObject::connect(d, &QObject::destroyed, [c] { delete c; });
    d->show();
}

}  // namespace vx
