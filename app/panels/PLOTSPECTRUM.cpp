#include "PLOTSPECTRUM.hpp"

#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <qcustomplot.h>

#include <fmt/format.h>

#include "DECONV.hpp"
#include "main_window.hpp"
#include "platform/safe_file.hpp"
#include "qt_ui.hpp"
#include "workspace/conversions.hpp"
#include "workspace/workspace.hpp"

namespace vx {

PlotSpectrumPanel::PlotSpectrumPanel(MainWindow* main) : QDialog(main), main_(main) {
    setObjectName("PLOTSPECTRUM");
    setWindowTitle("Charge Deconvolution");
    resize(900, 640);
    options_ = new DeconvOptionPanel(this);
    auto* v = new QVBoxLayout(this);
    auto spin = [](const char* name, double value, int dec) {
        auto* s = new QDoubleSpinBox;
        s->setObjectName(name);
        s->setRange(-1.0e9, 1.0e9);
        s->setDecimals(dec);
        s->setValue(value);
        return s;
    };
    low_ = spin("low_mz", 0.0, 4);
    high_ = spin("high_mz", 0.0, 4);
    c1_ = spin("cursor1", 0.0, 4);
    c2_ = spin("cursor2", 0.0, 4);
    background_ = spin("background", 0.0, 3);
    auto* grid = new QGridLayout;
    grid->addWidget(new QLabel("Low m/z"), 0, 0);
    grid->addWidget(low_, 0, 1);
    grid->addWidget(new QLabel("High m/z"), 0, 2);
    grid->addWidget(high_, 0, 3);
    grid->addWidget(new QLabel("Cursor 1"), 1, 0);
    grid->addWidget(c1_, 1, 1);
    grid->addWidget(new QLabel("Cursor 2"), 1, 2);
    grid->addWidget(c2_, 1, 3);
    grid->addWidget(new QLabel("Background"), 1, 4);
    grid->addWidget(background_, 1, 5);
    v->addLayout(grid);
    auto* bar = new QHBoxLayout;
    auto button = [&](const char* text, auto slot) {
        auto* b = new QPushButton(text);
        bar->addWidget(b);
        connect(b, &QPushButton::clicked, this, slot);
    };
    button("Plot", [this] { plot_display(); });
    button("Zdet", [this] { zdet(); });
    button("Well Resolved Isotopic Peaks", [this] { deconvolve(DECONV_LOWZ); });
    button("Poorly Resolved Isotopic Peaks", [this] { deconvolve(DECONV_HIGHZ); });
    button("Options...", [this] {
        options_->exec();
        asked_ = true;
    });
    button("Analysis", [this] { analysis(); });
    button("Analysis Report", [this] { analysis_report(); });
    button("Save", [this] { save(); });
    bar->addStretch(1);
    v->addLayout(bar);
    plot_ = new QCustomPlot;
    v->addWidget(plot_, 1);
    message_ = new QLabel;
    message_->setObjectName("message");
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    v->addWidget(message_);
    connect(c1_, &QDoubleSpinBox::valueChanged, this, [this] { draw(); });
    connect(c2_, &QDoubleSpinBox::valueChanged, this, [this] { draw(); });
    // A click puts cursor 1 there, a right click cursor 2.
    connect(plot_, &QCustomPlot::mousePress, this, [this](QMouseEvent* e) {
        const double x = plot_->xAxis->pixelToCoord(e->position().x());
        (e->button() == Qt::RightButton ? c2_ : c1_)->setValue(x);
    });
}

QString PlotSpectrumPanel::message() const { return message_->text(); }

void PlotSpectrumPanel::set_range(double low_mz, double high_mz) {
    low_->setValue(low_mz);
    high_->setValue(high_mz);
}

void PlotSpectrumPanel::set_cursors(double c1, double c2, double background) {
    c1_->setValue(c1);
    c2_->setValue(c2);
    background_->setValue(background);
}

int PlotSpectrumPanel::plot_display() {
    Workspace& ws = main_->workspace();
    const int slot = ws.active_panel;
    if (slot < 0 || slot >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(slot)].active ||
        ws.panels[static_cast<std::size_t>(slot)].spectrum.domain == DOMAIN_TIME) {
        main_->ui().MessagePopup("Charge Deconvolution", "Open and process a data set first.");
        return -1;
    }
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    double lo = low_->value(), hi = high_->value();
    if (!(hi > lo)) {
        // No range given: the data's own.
        lo = Low_Mass(s);
        hi = High_Mass(s);
        set_range(lo, hi);
    }
    display_ = reassign_display(s, lo, hi);
    display_.ppm = options_->ppm();
    if (display_.intensity.size() < 3) {
        main_->ui().MessagePopup("Charge Deconvolution", "The range holds no data: choose one inside the spectrum.");
        return -1;
    }
    masses_ = false;
    mass_ = MassSpectrum{};
    zdet_ = ZdetResult{};
    x_.assign(display_.mass.begin(), display_.mass.end());
    y_.assign(display_.intensity.begin(), display_.intensity.end());
    message_->clear();
    draw();
    return 0;
}

void PlotSpectrumPanel::draw() {
    plot_->clearGraphs();
    plot_->clearItems();
    QVector<double> x(x_.begin(), x_.end()), y(y_.begin(), y_.end());
    auto* g = plot_->addGraph();
    g->setData(x, y);
    if (masses_) g->setLineStyle(QCPGraph::lsImpulse);
    plot_->xAxis->setLabel(masses_ ? "neutral mass" : "m/z");
    plot_->rescaleAxes();
    for (QDoubleSpinBox* c : {c1_, c2_}) {
        auto* line = new QCPItemStraightLine(plot_);
        line->point1->setCoords(c->value(), 0.0);
        line->point2->setCoords(c->value(), 1.0);
        line->setPen(QPen(c == c1_ ? Qt::red : Qt::darkGreen));
    }
    if (!masses_ && zdet_.top >= 0) {
        for (double level : {zdet_.threshold, zdet_.baseline_line}) {
            auto* line = new QCPItemStraightLine(plot_);
            line->point1->setCoords(0.0, level);
            line->point2->setCoords(1.0, level);
            line->setPen(QPen(Qt::blue, 1, Qt::DashLine));
        }
        auto* label = new QCPItemText(plot_);
        label->position->setCoords(zdet_.mz, display_.intensity[static_cast<std::size_t>(zdet_.top)]);
        label->setPositionAlignment(Qt::AlignBottom | Qt::AlignHCenter);
        label->setText(QString::fromStdString(zdet_.label));
    }
    plot_->replot();
}

int PlotSpectrumPanel::zdet() {
    if (masses_ || display_.intensity.empty()) {
        if (plot_display() < 0) return -1;
    }
    if (vx::zdet(display_, zdet_, main_->ui()) < 0) return -1;
    message_->setText(QString::fromStdString(zdet_.label));
    draw();
    return 0;
}

int PlotSpectrumPanel::deconvolve(int mode) {
    if (masses_ || display_.intensity.empty()) {
        if (plot_display() < 0) return -1;
    }
    if (!asked_ && !main_->ui().unattended) options_->exec();
    asked_ = true;
    display_.ppm = options_->ppm();
    // The marks of an earlier run are cleared: every group is free again.
    std::fill(display_.mark.begin(), display_.mark.end(), std::int16_t{0});
    const int groups = vx::deconvolve(display_, options_->options(mode), mass_);
    masses_ = true;
    x_ = mass_.mass;
    y_ = mass_.intensity;
    message_->setText(QString("%1 groups, %2 masses").arg(groups).arg(mass_.mass.size()));
    draw();
    return groups;
}

int PlotSpectrumPanel::analysis() {
    const int rc = plot_analysis(x_, y_, c1_->value(), c2_->value(), background_->value(), analysis_, main_->ui());
    if (rc == 0) message_->setText(QString::fromStdString(analysis_.text));
    return rc;
}

int PlotSpectrumPanel::analysis_report(const std::optional<std::string>& answer) {
    Settings& settings = main_->workspace().settings;
    if (!answer) return run_analysis_report(x_, y_, c1_->value(), c2_->value(), settings, main_->ui(), &report_);
    if (vx::analysis_report(x_, y_, c1_->value(), c2_->value(), report_, main_->ui()) < 0) return -1;
    return apply_report_limit(report_, *answer, settings, main_->ui());
}

int PlotSpectrumPanel::save(std::string path) {
    if (x_.empty()) {
        main_->ui().MessagePopup("Save File", "Nothing is plotted.");
        return -1;
    }
    if (path.empty()) {
        const QString chosen =
            main_->ui().unattended ? QString() : QFileDialog::getSaveFileName(this, "Save File", QString(), "*.*");
        if (chosen.isEmpty()) return -1;
        path = chosen.toStdString();
    }
    Workspace& ws = main_->workspace();
    for (const AnalysisPanel& p : ws.panels)
        if (p.active && !p.spectrum.filename.empty() && same_file(path, p.spectrum.filename)) {
            main_->ui().MessagePopup("Save File", fmt::format("{} is an open data file; choose another name.", path));
            return -1;
        }
    MassSpectrum m{x_, y_};
    std::string err;
    if (write_file_atomically(path, mass_spectrum_text(m), &err) < 0) {
        main_->ui().MessagePopup("Save File", fmt::format("Could not write {}: {}", path, err));
        return -1;
    }
    return 0;
}

PlotSpectrumPanel* open_plot_spectrum(MainWindow* main) {
    auto* p = main->findChild<PlotSpectrumPanel*>("PLOTSPECTRUM");
    if (!p) p = new PlotSpectrumPanel(main);
    p->show();
    p->raise();
    return p;
}

int calc_std_dev(MainWindow& main, const std::optional<std::string>& answer) {
    Workspace& ws = main.workspace();
    GraphWindow* g = main.active_graph();
    const int slot = ws.active_panel;
    if (!g || slot < 0 || slot >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(slot)].active) {
        main.ui().MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    const AnalysisPanel& panel = ws.panels[static_cast<std::size_t>(slot)];
    const Spectrum& s = panel.spectrum;
    // The selection in the graph's own axis: m/z for a spectrum shown in m/z,
    // else the point number.
    const bool mz = panel.xmode == XMODE_MZ && s.domain != DOMAIN_TIME;
    std::vector<double> x, y;
    double lo = std::min(g->cursor_x(1), g->cursor_x(2)), hi = std::max(g->cursor_x(1), g->cursor_x(2));
    const long n = static_cast<long>(s.data.size());
    long a = 0, b = n - 1;
    if (mz) {
        a = static_cast<long>(std::floor(std::min(One_mass_topt(s, hi), One_mass_topt(s, lo))));
        b = static_cast<long>(std::ceil(std::max(One_mass_topt(s, hi), One_mass_topt(s, lo))));
    } else {
        a = static_cast<long>(std::floor(lo));
        b = static_cast<long>(std::ceil(hi));
    }
    a = std::clamp(a, 0L, std::max(0L, n - 1));
    b = std::clamp(b, 0L, std::max(0L, n - 1));
    for (long i = a; i <= b && n > 0; ++i) {
        x.push_back(mz ? One_pt_tomass(s, static_cast<double>(i)) : static_cast<double>(i));
        y.push_back(s.data[static_cast<std::size_t>(i)]);
    }
    if (!answer) return run_analysis_report(x, y, lo, hi, ws.settings, main.ui());
    AnalysisReport r;
    if (analysis_report(x, y, lo, hi, r, main.ui()) < 0) return -1;
    return apply_report_limit(r, *answer, ws.settings, main.ui());
}

}  // namespace vx
