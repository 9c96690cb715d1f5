#include "ISOPATTERN.hpp"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTableView>
#include <QVBoxLayout>
#include <qcustomplot.h>

#include "main_window.hpp"
#include "plot_draw.hpp"
#include "qt_ui.hpp"

namespace vx {

void IsoPeakModel::set(std::vector<IsoFinal> peaks) {
    beginResetModel();
    peaks_ = std::move(peaks);
    top_ = 0.0;
    for (const IsoFinal& f : peaks_) top_ = std::max(top_, f.abundance);
    endResetModel();
}

QVariant IsoPeakModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || role != Qt::DisplayRole || index.row() >= rowCount()) return {};
    const IsoFinal& f = peaks_[static_cast<std::size_t>(index.row())];
    switch (index.column()) {
    case 0: return f.offset;
    case 1: return QString::number(f.weighted_mass, 'f', 6);
    case 2: return QString::number(f.abundance, 'g', 6);
    case 3: return QString::number(top_ > 0 ? 100.0 * f.abundance / top_ : 0.0, 'f', 4);
    case 4: return QString::number(f.high_mass - f.low_mass, 'f', 6);
    case 5: return f.member_count;
    }
    return {};
}

QVariant IsoPeakModel::headerData(int section, Qt::Orientation o, int role) const {
    if (role != Qt::DisplayRole || o != Qt::Horizontal) return QAbstractTableModel::headerData(section, o, role);
    static const char* const heads[] = {"Offset", "m/z", "Abundance", "Relative %", "Spread", "Members"};
    return heads[section];
}

IsoPatternPanel::IsoPatternPanel(MainWindow* main) : QDialog(main), main_(main) {
    setObjectName("ISOPATTERN");
    setWindowTitle("Isotope Calculator");
    resize(800, 600);
    auto* top = new QVBoxLayout(this);
    auto* bar = new QHBoxLayout;
    bar->addWidget(new QLabel("Formula"));
    formula_ = new QLineEdit("C60H122N2O4S");
    bar->addWidget(formula_, 1);
    bar->addWidget(new QLabel("Threshold"));
    threshold_ = new QLineEdit("1e-6");
    threshold_->setMaximumWidth(90);
    bar->addWidget(threshold_);
    auto* calc = new QPushButton("Calculate");
    auto* save = new QPushButton("Save Plot...");
    bar->addWidget(calc);
    bar->addWidget(save);
    top->addLayout(bar);
    auto* split = new QSplitter(Qt::Vertical);
    plot_ = new QCustomPlot;
    plot_->xAxis->setLabel("m/z");
    plot_->yAxis->setLabel("Abundance");
    split->addWidget(plot_);
    model_ = new IsoPeakModel(this);
    table_ = new QTableView;
    table_->setModel(model_);
    split->addWidget(table_);
    top->addWidget(split, 1);
    connect(calc, &QPushButton::clicked, this, [this] { calculate(formula_->text(), threshold_->text().toDouble()); });
    connect(save, &QPushButton::clicked, this, [this] {
        const auto path = main_->ui().FileSelectPopup("Pick a file to save results", "*.png;*.svg", "");
        if (path) save_plot(QString::fromStdString(*path));
    });
}

int IsoPatternPanel::calculate(const QString& formula, double threshold) {
    formula_->setText(formula);
    threshold_->setText(QString::number(threshold, 'g', 6));
    if (isotope_pattern(formula.toStdString(), threshold, pattern_, main_->ui()) < 0) return -1;
    model_->set(pattern_.peaks);
    const ProfilePoints p = PlotFinal(pattern_.peaks, &main_->ui());
    plot_->clearGraphs();
    auto* g = plot_->addGraph();
    g->setData(QVector<double>(p.x.begin(), p.x.end()), QVector<double>(p.y.begin(), p.y.end()), true);
    plot_->xAxis->setRange(p.min_mz, p.max_mz);
    plot_->yAxis->rescale();
    plot_->replot();
    return 0;
}

int IsoPatternPanel::save_plot(const QString& path) {
    // PNG by savePng, SVG through QSvgGenerator, each into a temporary file
    // renamed over the target when whole (the command line saves the same way).
    std::string error;
    if (vx::save_plot(plot_, path.toStdString(), 800, 500, formula_->text(), &error) < 0) {
        main_->ui().MessagePopup("File Error", QString("%1 cannot be written: %2").arg(path, QString::fromStdString(error)).toStdString());
        return -1;
    }
    return 0;
}

IsoPatternPanel* open_isopattern(MainWindow* main) {
    auto* p = main->findChild<IsoPatternPanel*>("ISOPATTERN");
    if (!p) p = new IsoPatternPanel(main);
    p->show();
    p->raise();
    return p;
}

}  // namespace vx
