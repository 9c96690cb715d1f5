#include "THRASH.hpp"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QSplitter>
#include <QTableView>
#include <QVBoxLayout>
#include <qcustomplot.h>

#include <thread>

#include "SAVEPEAKLIST.hpp"
#include "SEQUENCE.hpp"
#include "main_window.hpp"
#include "platform/ui.hpp"
#include "qt_ui.hpp"
#include "workspace/conversions.hpp"
#include "workspace/workspace.hpp"

namespace vx {

void ThrashTableModel::set(std::vector<ThrashPeak> rows) {
    beginResetModel();
    rows_ = std::move(rows);
    numbers_.clear();
    int n = 0;
    for (const ThrashPeak& r : rows_) numbers_.push_back(r.continuation ? n : ++n);
    endResetModel();
}

int ThrashTableModel::head_row(int row) const {
    while (row > 0 && rows_[static_cast<std::size_t>(row)].continuation) --row;
    return row;
}

QVariant ThrashTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount() || role != Qt::DisplayRole) return {};
    const ThrashPeak& r = rows_[static_cast<std::size_t>(index.row())];
    const int c = index.column();
    if (r.continuation && c >= 1 && c <= 5) return QString();
    switch (c) {
    case 0: return numbers_[static_cast<std::size_t>(index.row())];
    case 1: return r.charge;
    case 2: return QString::number(r.monoisotopic_mass, 'f', 4);
    case 3: return QString::number(r.mostabundant_mass, 'f', 4);
    case 4: return QString::number(r.monoisotopic_mz, 'f', 4);
    case 5: return QString::number(r.mostabundant_mz, 'f', 4);
    case 6: return QString::fromStdString(r.assignment_text);
    case 7: return QString::fromStdString(r.mass_error_text);
    case 8: return r.theoretical_mass != 0.0 ? QString::number(r.theoretical_mass, 'f', 4) : QString("N/A");
    case 9: return QString::fromStdString(r.rl_text);
    }
    return {};
}

QVariant ThrashTableModel::headerData(int section, Qt::Orientation o, int role) const {
    if (role != Qt::DisplayRole || o != Qt::Horizontal) return QAbstractTableModel::headerData(section, o, role);
    static const char* const heads[] = {"#", "Charge", "Monoisotopic mass", "Most abundant mass", "Monoisotopic M/Z",
                                        "Most abundant M/Z", "Assignment", "Mass error", "Theoretical mass", "RL"};
    return heads[section];
}

ThrashPanel::ThrashPanel(MainWindow* main) : QDialog(main), main_(main) {
    setObjectName("THRASH");
    setWindowTitle("THRASH SETUP");
    resize(900, 700);
    auto* top = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    auto spin = [](double lo, double hi, double v, int dec) {
        auto* s = new QDoubleSpinBox;
        s->setRange(lo, hi);
        s->setDecimals(dec);
        s->setValue(v);
        return s;
    };
    low_ = spin(0.0, 1000000.0, 20.0, 2);
    high_ = spin(0.0, 1000000.0, 1000000.0, 2);
    min_rl_ = spin(0.0, 3.0, 0.9, 2);
    min_sn_ = spin(0.0, 1000.0, 3.0, 1);
    max_charge_ = new QSpinBox;
    max_charge_->setRange(1, 2000);
    max_charge_->setValue(2000);
    low_->setObjectName("low_mass");
    high_->setObjectName("high_mass");
    min_rl_->setObjectName("min_rl");
    max_charge_->setObjectName("max_charge");
    sample_type_ = new QComboBox;
    sample_type_->addItems({"0 averagine table", "1 binomial", "2 binomial"});
    form->addRow("Low m/z", low_);
    form->addRow("High m/z", high_);
    form->addRow("Minimum RL", min_rl_);
    form->addRow("Minimum S/N", min_sn_);
    form->addRow("Maximum charge", max_charge_);
    form->addRow("Sample type", sample_type_);
    // Off: the subtraction as it always was, which reports residues of strong clusters again.
    auto* clean = new QCheckBox("Clean residues");
    clean->setObjectName("clean_residues");
    form->addRow("", clean);
    top->addLayout(form);
    auto* bar = new QHBoxLayout;
    run_ = new QPushButton("THRASH");
    stop_button_ = new QPushButton("Stop");
    stop_button_->setEnabled(false);
    progress_ = new QLabel;
    sequence_ = new QPushButton("Sequence...");
    save_ = new QPushButton("Save Peaklist");
    bar->addWidget(run_);
    bar->addWidget(stop_button_);
    bar->addWidget(sequence_);
    bar->addWidget(save_);
    bar->addWidget(progress_, 1);
    top->addLayout(bar);
    auto* split = new QSplitter(Qt::Vertical);
    model_ = new ThrashTableModel(this);
    table_ = new QTableView;
    table_->setObjectName("THRASH Table");
    table_->setModel(model_);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->horizontalHeader()->setStretchLastSection(true);
    split->addWidget(table_);
    auto* lower = new QWidget;
    auto* lv = new QVBoxLayout(lower);
    info_ = new QLabel;
    plot_ = new QCustomPlot;
    plot_->xAxis->setLabel("m/z");
    lv->addWidget(info_);
    lv->addWidget(plot_, 1);
    split->addWidget(lower);
    top->addWidget(split, 1);
    connect(run_, &QPushButton::clicked, this, [this] { run(); });
    connect(stop_button_, &QPushButton::clicked, this, [this] { stop(); });
    connect(sequence_, &QPushButton::clicked, this, [this] { open_sequence(main_); });
    connect(save_, &QPushButton::clicked, this, [this] { save_peaklist(); });
    connect(table_, &QTableView::clicked, this, [this](const QModelIndex& i) { plot_peak(i.row()); });
}

int ThrashPanel::run() {
    Workspace& ws = main_->workspace();
    const int slot = ws.active_panel;
    if (slot < 0 || slot >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(slot)].active) {
        main_->ui().MessagePopup("THRASH", "Open and process a data set first.");
        return -1;
    }
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    if (s.domain == DOMAIN_TIME) {
        main_->ui().MessagePopup("THRASH", "Process the transient first: THRASH works on the spectrum.");
        return -1;
    }
    AveragineTable table;
    if (ReadAveragineTable(table, main_->ui()) < 0) return -1;
    ThrashParams p = params();
    // The worker reads its own copy of the sequence: the sequence panel stays
    // live while the scan runs.
    SequenceTables sequence;
    if (p.sequence) {
        sequence = *p.sequence;
        p.sequence = &sequence;
    }
    // The scan runs on a worker; the panel keeps its events flowing and the
    // stop button sets the flag the scan looks at in every window.
    stop_ = false;
    std::atomic<double> place{p.low_mass};
    std::atomic<int> found{0};
    ThrashControl control;
    control.stop = &stop_;
    control.progress = [&](double mass, int clusters) {
        place = mass;
        found = clusters;
    };
    RecordingUi quiet;  // the worker's messages are shown here, on this thread, afterwards
    ThrashResult result;
    std::atomic<bool> done{false};
    run_->setEnabled(false);
    stop_button_->setEnabled(true);
    running_ = true;
    std::thread worker([&] {
        thrash_with_table(s, p, table, result, quiet, control);
        done = true;
    });
    while (!done) {
        progress_->setText(QString("m/z %1, isotope clusters found = %2").arg(place.load(), 0, 'f', 1).arg(found.load()));
        QApplication::processEvents(QEventLoop::AllEvents, 50);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    worker.join();
    running_ = false;
    for (const auto& m : quiet.messages) main_->ui().MessagePopup(m.title, m.text);
    run_->setEnabled(true);
    stop_button_->setEnabled(false);
    slot_ = slot;
    model_->set(result.peaks);
    progress_->setText(QString("Isotope clusters found = %1%2").arg(result.clusters).arg(result.aborted ? " (stopped)" : ""));
    return 0;
}

ThrashParams ThrashPanel::params() const {
    ThrashParams p;
    p.low_mass = low_->value();
    p.high_mass = high_->value();
    p.min_rl = min_rl_->value();
    p.min_s2n = min_sn_->value();
    p.max_charge = max_charge_->value();
    p.model.sample_type = sample_type_->currentIndex();
    p.sequence = loaded_sequence(*main_);
    if (auto* clean = findChild<QCheckBox*>("clean_residues")) p.clean_residues = clean->isChecked();
    return p;
}

const Spectrum* ThrashPanel::spectrum() const {
    Workspace& ws = main_->workspace();
    if (slot_ < 0 || slot_ >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(slot_)].active) return nullptr;
    return &ws.panels[static_cast<std::size_t>(slot_)].spectrum;
}

int ThrashPanel::save_peaklist(const std::string& path, const std::string& pdf) {
    const Spectrum* s = spectrum();
    if (!s || model_->rowCount() == 0) {
        main_->ui().MessagePopup("Save Peaklist", "Run THRASH first: the table is empty.");
        return -1;
    }
    return save_thrash_peaklist(*main_, *s, model_->rows(), path, pdf);
}

void ThrashPanel::plot_peak(int row) {
    if (row < 0 || row >= model_->rowCount()) return;
    const ThrashPeak& r = model_->rows()[static_cast<std::size_t>(model_->head_row(row))];
    const ThrashPeak& shown = model_->rows()[static_cast<std::size_t>(row)];
    info_->setText(QString("Monoisotopic mass: %1   Most abundant mass: %2   Monoisotopic M/Z: %3   "
                           "Most abundant M/Z:  %4   Charge: %5   RL: %6   Assignment: %7")
                       .arg(r.monoisotopic_mass, 0, 'f', 4)
                       .arg(r.mostabundant_mass, 0, 'f', 4)
                       .arg(r.monoisotopic_mz, 0, 'f', 4)
                       .arg(r.mostabundant_mz, 0, 'f', 4)
                       .arg(r.charge)
                       .arg(QString::fromStdString(r.rl_text))
                       .arg(QString::fromStdString(shown.assignment_text)));
    plot_->clearGraphs();
    QVector<double> mx, my;
    for (int k = 0; k < r.distrib_size; ++k) {
        mx.push_back(r.pairs[static_cast<std::size_t>(k)].first);
        my.push_back(r.pairs[static_cast<std::size_t>(k)].second);
    }
    Workspace& ws = main_->workspace();
    const double lo = r.monoisotopic_mz - 1.0, hi = (mx.isEmpty() ? r.monoisotopic_mz : mx.back()) + 1.0;
    if (slot_ >= 0 && slot_ < MAX_PANELS && ws.panels[static_cast<std::size_t>(slot_)].active) {
        const Spectrum& s = ws.panels[static_cast<std::size_t>(slot_)].spectrum;
        QVector<double> dx, dy;
        for (std::size_t i = 0; i < s.data.size(); ++i) {
            const double m = One_pt_tomass(s, static_cast<double>(i));
            if (m >= lo && m <= hi) {
                dx.push_back(m);
                dy.push_back(s.data[i]);
            }
        }
        plot_->addGraph();
        plot_->graph(0)->setData(dx, dy);
    }
    auto* g = plot_->addGraph();
    g->setData(mx, my);
    g->setLineStyle(QCPGraph::lsNone);
    g->setScatterStyle(QCPScatterStyle(QCPScatterStyle::ssCircle, 6));
    g->setPen(QPen(Qt::red));
    plot_->xAxis->setRange(lo, hi);
    plot_->rescaleAxes(true);
    plot_->xAxis->setRange(lo, hi);
    plot_->replot();
}

ThrashPanel* open_thrash(MainWindow* main) {
    auto* p = main->findChild<ThrashPanel*>("THRASH");
    if (!p) p = new ThrashPanel(main);
    p->show();
    p->raise();
    return p;
}

}  // namespace vx
