#include "panels/VOSK.hpp"

#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QSpinBox>

#include <qcustomplot.h>

#include "batch/vosk_scans.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"

namespace vx {

namespace {

void popup_plot(QWidget* parent, const char* title, const QVector<double>& x, const QVector<double>& y) {
    auto* d = new QDialog(parent);
    d->setAttribute(Qt::WA_DeleteOnClose);
    d->setWindowTitle(title);
    auto* plot = new QCustomPlot(d);
    plot->addGraph();
    plot->graph(0)->setData(x, y);
    plot->graph(0)->setScatterStyle(QCPScatterStyle::ssCircle);
    plot->xAxis->setLabel("Scan");
    plot->rescaleAxes();
    auto* v = new QVBoxLayout(d);
    v->addWidget(plot);
    d->resize(500, 350);
    d->show();
}

QSpinBox* count_box(QWidget* parent, long long value) {
    auto* b = new QSpinBox(parent);
    b->setRange(0, 1 << 30);
    b->setValue(static_cast<int>(value));
    return b;
}

}  // namespace

void SetupVoskPanel(MainWindow& w) {
    Workspace& ws = w.workspace();
    const int source = ws.active_panel;
    if (source < 0 || source >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(source)].active) {
        w.ui().MessagePopup("Operator Error", "No Spectrum Chosen");
        return;
    }
    const long long datacount = static_cast<long long>(ws.panels[static_cast<std::size_t>(source)].spectrum.data.size());
    QDialog d(&w);
    d.setWindowTitle("Vosk Special Analysis");
    auto* form = new QFormLayout(&d);
    auto* start = count_box(&d, 0);
    auto* points = count_box(&d, std::min<long long>(8192, datacount));
    auto* step = count_box(&d, std::min<long long>(8192, datacount));
    auto* scans = count_box(&d, 0);
    auto* redo = new QPushButton("Number that fit", &d);
    auto* process = new QCheckBox("Process each scan", &d);
    process->setChecked(true);
    auto* cof = new QCheckBox("COF", &d);
    cof->setChecked(true);
    auto* cofthresh = new QDoubleSpinBox(&d);
    cofthresh->setRange(0, 1e12);
    auto* zoom = new QCheckBox("Zoom and largest ion", &d);
    auto* zmin = new QDoubleSpinBox(&d);
    auto* zmax = new QDoubleSpinBox(&d);
    zmin->setRange(0, 1e7);
    zmax->setRange(0, 1e7);
    auto* save = new QCheckBox("Save scans", &d);
    auto* name = new QLineEdit(&d);
    form->addRow("Start point", start);
    form->addRow("Points per scan", points);
    form->addRow("Step", step);
    form->addRow("Scans", scans);
    form->addRow("", redo);
    form->addRow("", process);
    form->addRow(cof, cofthresh);
    form->addRow(zoom, zmin);
    form->addRow("to m/z", zmax);
    form->addRow(save, name);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &d);
    form->addRow(buttons);
    // RedoNumberVosk: the number of scans that fit the values shown.
    auto redo_number = [=] {
        scans->setValue(RedoNumberVosk(datacount, start->value(), points->value(), step->value()));
    };
    QObject::connect(redo, &QPushButton::clicked, &d, redo_number);
    redo_number();
    QObject::connect(buttons, &QDialogButtonBox::accepted, &d, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &d, &QDialog::reject);
    if (d.exec() != QDialog::Accepted) return;

    VoskSpecialParams p;
    p.start = start->value();
    p.points = points->value();
    p.step = step->value();
    p.scans = scans->value();
    p.process = process->isChecked();
    p.cof = cof->isChecked();
    p.cofthresh = cofthresh->value();
    p.zoom = zoom->isChecked();
    p.zmin = zmin->value();
    p.zmax = zmax->value();
    p.save_raw = save->isChecked();
    p.name = name->text().toStdString();
    VoskSpecialResult r;
    const int rc = ProcessVoskSpecial(ws, source, p, r, w.ui());
    w.sync_windows();
    if (rc < 0 || r.scans.empty()) return;
    QVector<double> k, cofs, maxmz, rate, k1;
    for (const VoskScan& s : r.scans) {
        k.push_back(s.scan);
        cofs.push_back(s.cof);
        maxmz.push_back(s.maxmz);
    }
    for (std::size_t i = 0; i < r.sweep_rate.size(); ++i) {
        k1.push_back(static_cast<double>(i + 1));
        rate.push_back(r.sweep_rate[i]);
    }
    if (p.zoom) popup_plot(&w, "Absolute value versus process scan", k, maxmz);
    if (p.cof) {
        popup_plot(&w, "COF display", k, cofs);
        popup_plot(&w, "Sweep Rate", k1, rate);
    }
}

void add_vosk_entry(MainWindow& w) {
    QMenu* batch = nullptr;
    for (QAction* a : w.menuBar()->actions())
        if (a->menu() && a->text() == "Batch") batch = a->menu();
    if (!batch) batch = w.menuBar()->addMenu("Batch");
    QObject::connect(batch->addAction("Vosk Special Analysis..."), &QAction::triggered, &w,
                     [&w] { SetupVoskPanel(w); });
}

}  // namespace vx
