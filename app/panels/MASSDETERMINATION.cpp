#include "MASSDETERMINATION.hpp"

#include <QPlainTextEdit>
#include <QVBoxLayout>
#include <qcustomplot.h>

#include <algorithm>

#include "SEQUENCE.hpp"
#include "THRASH.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"
#include "thrash/averagine.hpp"
#include "workspace/conversions.hpp"
#include "workspace/workspace.hpp"

namespace vx {

void show_cluster_fit(QCustomPlot* plot, QPlainTextEdit* text, const Spectrum* s, const MassDetermination& m) {
    QStringList lines;
    for (const std::string& l : m.lines) lines << QString::fromStdString(l);
    text->setPlainText(lines.join('\n'));
    plot->clearGraphs();
    if (!m.found) {
        plot->replot();
        return;
    }
    const ThrashPeak& r = m.peak;
    QVector<double> mx, my;
    for (int k = 0; k < r.distrib_size; ++k) {
        mx.push_back(r.pairs[static_cast<std::size_t>(k)].first);
        my.push_back(r.pairs[static_cast<std::size_t>(k)].second);
    }
    const double lo = r.monoisotopic_mz - 1.0, hi = (mx.isEmpty() ? r.monoisotopic_mz : mx.back()) + 1.0;
    if (s && !s->data.empty()) {
        QVector<double> dx, dy;
        const long n = static_cast<long>(s->data.size());
        long a = static_cast<long>(std::floor(One_mass_topt(*s, hi))), b = static_cast<long>(std::ceil(One_mass_topt(*s, lo)));
        a = std::clamp(a, 0L, n - 1);
        b = std::clamp(b, 0L, n - 1);
        for (long i = std::min(a, b); i <= std::max(a, b); ++i) {
            dx.push_back(One_pt_tomass(*s, static_cast<double>(i)));
            dy.push_back(s->data[static_cast<std::size_t>(i)]);
        }
        plot->addGraph()->setData(dx, dy);
    }
    auto* g = plot->addGraph();
    g->setData(mx, my);
    g->setLineStyle(QCPGraph::lsNone);
    g->setScatterStyle(QCPScatterStyle(QCPScatterStyle::ssCircle, 6));
    g->setPen(QPen(Qt::red));
    plot->rescaleAxes(true);
    plot->xAxis->setRange(lo, hi);
    plot->replot();
}

ThrashParams thrash_panel_params(MainWindow& main) {
    ThrashParams p;
    if (auto* setup = main.findChild<ThrashPanel*>("THRASH")) p = setup->params();
    p.sequence = loaded_sequence(main);
    return p;
}

Spectrum* thrash_active_spectrum(MainWindow& main, const char* title) {
    Workspace& ws = main.workspace();
    const int slot = ws.active_panel;
    if (slot < 0 || slot >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(slot)].active) {
        main.ui().MessagePopup(title, "Open and process a data set first.");
        return nullptr;
    }
    if (auto* scan = main.findChild<ThrashPanel*>("THRASH"); scan && scan->running()) {
        main.ui().MessagePopup(title, "THRASH is running: stop it or let it finish first.");
        return nullptr;
    }
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    if (s.domain == DOMAIN_TIME || s.data.empty()) {
        main.ui().MessagePopup(title, "Process the transient first: the cluster is fitted on the spectrum.");
        return nullptr;
    }
    return &s;
}

MassDeterminationPanel::MassDeterminationPanel(MainWindow* main) : QDialog(main), main_(main) {
    setObjectName("MASSDETERMINATION");
    setWindowTitle("Mass Determination");
    resize(640, 560);
    auto* v = new QVBoxLayout(this);
    lines_ = new QPlainTextEdit;
    lines_->setObjectName("lines");
    lines_->setReadOnly(true);
    lines_->setMaximumHeight(200);
    plot_ = new QCustomPlot;
    plot_->xAxis->setLabel("m/z");
    v->addWidget(lines_);
    v->addWidget(plot_, 1);
}

QString MassDeterminationPanel::text() const { return lines_->toPlainText(); }

int MassDeterminationPanel::determine(double low_mz, double high_mz) {
    Spectrum* s = thrash_active_spectrum(*main_, "Mass Determination");
    if (!s) return -1;
    AveragineTable table;
    if (ReadAveragineTable(table, main_->ui()) < 0) return -1;
    const ThrashParams p = thrash_panel_params(*main_);
    const int rc = Mass(*s, std::min(low_mz, high_mz), std::max(low_mz, high_mz), p, table, result_, main_->ui());
    show_cluster_fit(plot_, lines_, s, result_);
    return rc;
}

MassDeterminationPanel* open_mass_determination(MainWindow* main) {
    auto* p = main->findChild<MassDeterminationPanel*>("MASSDETERMINATION");
    if (!p) p = new MassDeterminationPanel(main);
    p->show();
    p->raise();
    GraphWindow* g = main->active_graph();
    const int slot = main->workspace().active_panel;
    if (!g || slot < 0 || main->workspace().panels[static_cast<std::size_t>(slot)].xmode != XMODE_MZ) {
        main->ui().MessagePopup("Mass Determination", "Show a spectrum in m/z and place cursors 1 and 2 about a cluster.");
        return p;
    }
    p->determine(g->cursor_x(1), g->cursor_x(2));
    return p;
}

}  // namespace vx
