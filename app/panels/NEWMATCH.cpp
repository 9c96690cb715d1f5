#include "NEWMATCH.hpp"

#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>
#include <qcustomplot.h>

#include "MASSDETERMINATION.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"
#include "thrash/averagine.hpp"

namespace vx {

NewmatchPanel::NewmatchPanel(MainWindow* main) : QDialog(main), main_(main) {
    setObjectName("NEWMATCH");
    setWindowTitle("Newmatch");
    resize(640, 600);
    auto* v = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    charge_ = new QSpinBox;
    charge_->setObjectName("charge");
    charge_->setRange(1, 2000);
    charge_->setValue(1);
    auto spin = [](const char* name) {
        auto* s = new QDoubleSpinBox;
        s->setObjectName(name);
        s->setRange(0.0, 1000000.0);
        s->setDecimals(4);
        return s;
    };
    low_ = spin("low_mz");
    high_ = spin("high_mz");
    form->addRow("Charge", charge_);
    form->addRow("Low m/z", low_);
    form->addRow("High m/z", high_);
    v->addLayout(form);
    auto* bar = new QHBoxLayout;
    auto* cursors = new QPushButton("From Cursors");
    match_ = new QPushButton("Match");
    bar->addWidget(cursors);
    bar->addWidget(match_);
    bar->addStretch(1);
    v->addLayout(bar);
    lines_ = new QPlainTextEdit;
    lines_->setObjectName("lines");
    lines_->setReadOnly(true);
    lines_->setMaximumHeight(200);
    plot_ = new QCustomPlot;
    plot_->xAxis->setLabel("m/z");
    v->addWidget(lines_);
    v->addWidget(plot_, 1);
    connect(cursors, &QPushButton::clicked, this, [this] { take_cursors(); });
    connect(match_, &QPushButton::clicked, this, [this] { match(); });
}

QString NewmatchPanel::text() const { return lines_->toPlainText(); }

void NewmatchPanel::set_range(double low_mz, double high_mz, int charge) {
    low_->setValue(std::min(low_mz, high_mz));
    high_->setValue(std::max(low_mz, high_mz));
    charge_->setValue(charge);
}

void NewmatchPanel::take_cursors() {
    if (GraphWindow* g = main_->active_graph()) {
        low_->setValue(std::min(g->cursor_x(1), g->cursor_x(2)));
        high_->setValue(std::max(g->cursor_x(1), g->cursor_x(2)));
    }
}

int NewmatchPanel::match() {
    Spectrum* s = thrash_active_spectrum(*main_, "Newmatch");
    if (!s) return -1;
    AveragineTable table;
    if (ReadAveragineTable(table, main_->ui()) < 0) return -1;
    const ThrashParams p = thrash_panel_params(*main_);
    const int rc = newmatch(*s, low_->value(), high_->value(), charge_->value(), p, table, result_, main_->ui());
    show_cluster_fit(plot_, lines_, s, result_);
    return rc;
}

NewmatchPanel* open_newmatch(MainWindow* main) {
    auto* p = main->findChild<NewmatchPanel*>("NEWMATCH");
    if (!p) {
        p = new NewmatchPanel(main);
        p->take_cursors();
    }
    p->show();
    p->raise();
    return p;
}

}  // namespace vx
