#include "KENDRICK.hpp"

#include <QAction>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QInputDialog>
#include <QMenu>
#include <QPushButton>
#include <QSpinBox>
#include <QSplitter>
#include <QTableView>
#include <QVBoxLayout>
#include <qcustomplot.h>

#include <cmath>
#include <limits>

#include "CALIBRATE.hpp"
#include "MOLECALUNO.hpp"
#include "main_window.hpp"
#include "platform/safe_file.hpp"
#include "qt_ui.hpp"

namespace vx {

void KendrickRowModel::set(std::vector<KendrickRow> rows) {
    beginResetModel();
    rows_ = std::move(rows);
    endResetModel();
}

QVariant KendrickRowModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) return {};
    const KendrickRow& r = rows_[static_cast<std::size_t>(index.row())];
    const bool hit = r.type != "No Hit";
    if (role == Qt::ForegroundRole && index.column() == 9 && hit && std::fabs(r.error_ppm) > 1.0) return QColor(0x00, 0x00, 0x80);
    if (role != Qt::DisplayRole) return {};
    switch (index.column()) {
    case 0: return r.odd ? "odd" : "even";
    case 1: return QString::number(r.mz, 'f', 6);
    case 2: return QString::number(r.abundance, 'g', 6);
    case 3: return QString::number(r.kendrick_mass, 'f', 6);
    case 4: return r.nominal;
    case 5: return QString::number(r.defect, 'f', 4);
    case 6: return r.series;
    case 7: return r.rank;
    case 8: return QString::fromStdString(r.formula);
    case 9: return hit ? QString::number(r.error_ppm, 'f', 4) : QString("NaN");
    case 10: return QString::fromStdString(r.type);
    }
    return {};
}

QVariant KendrickRowModel::headerData(int section, Qt::Orientation o, int role) const {
    if (role != Qt::DisplayRole || o != Qt::Horizontal) return QAbstractTableModel::headerData(section, o, role);
    static const char* const heads[] = {"Array", "m/z", "Abundance", "Kendrick mass", "Nominal", "KMD",
                                        "Series", "Rank", "Formula", "Error (ppm)", "Type"};
    return heads[section];
}

KendrickPanel::KendrickPanel(MainWindow* main) : QDialog(main), main_(main) {
    setObjectName("KENDRICK");
    setWindowTitle("Kendrick Analysis");
    resize(900, 700);
    auto* top = new QVBoxLayout(this);
    auto* bar = new QHBoxLayout;
    bar->addWidget(new QLabel("Base"));
    base_ = new QLineEdit("CH2");
    base_->setMaximumWidth(80);
    bar->addWidget(base_);
    auto* calc = new QPushButton("Calculate");
    bar->addWidget(calc);
    search_ = new QLineEdit;
    search_->setPlaceholderText("Search m/z, formula or type");
    bar->addWidget(search_, 1);
    auto* next = new QPushButton("Find Next");
    bar->addWidget(next);
    auto* save = new QPushButton("Save...");
    bar->addWidget(save);
    top->addLayout(bar);
    auto* tools = new QHBoxLayout;
    auto* formula = new QPushButton("Formula...");
    auto* fix = new QPushButton("Fix No Hits");
    auto* fix_auto = new QPushButton("Repair No Hits");
    tools->addWidget(formula);
    tools->addWidget(new QLabel("Series of at least"));
    min_members_ = new QSpinBox;
    min_members_->setRange(1, 1000);
    min_members_->setValue(2);
    tools->addWidget(min_members_);
    tools->addWidget(fix);
    tools->addWidget(fix_auto);
    auto* add_cal = new QPushButton("Add Series to Calibration");
    auto* recal = new QPushButton("Recalibrate with Series");
    tools->addWidget(add_cal);
    tools->addWidget(recal);
    tools->addStretch(1);
    top->addLayout(tools);
    auto* split = new QSplitter(Qt::Vertical);
    plot_ = new QCustomPlot;
    plot_->xAxis->setLabel("Nominal Kendrick mass");
    plot_->yAxis->setLabel("Kendrick mass defect");
    plot_->addGraph();
    plot_->addGraph();
    plot_->addGraph();  // the selected point
    const QColor colours[3] = {QColor(0xc0, 0x30, 0x30), QColor(0x20, 0x50, 0xc0), QColor(0, 0, 0)};
    for (int g = 0; g < 3; ++g) {
        plot_->graph(g)->setLineStyle(QCPGraph::lsNone);
        plot_->graph(g)->setScatterStyle(QCPScatterStyle(g == 2 ? QCPScatterStyle::ssCircle : QCPScatterStyle::ssDisc,
                                                         colours[g], g == 2 ? 12 : 5));
    }
    plot_->graph(0)->setName("odd");
    plot_->graph(1)->setName("even");
    plot_->graph(2)->setName("selected");
    plot_->graph(2)->removeFromLegend();
    plot_->legend->setVisible(true);
    plot_->setInteractions(QCP::iRangeDrag | QCP::iRangeZoom);
    split->addWidget(plot_);
    model_ = new KendrickRowModel(this);
    table_ = new QTableView;
    table_->setModel(model_);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->horizontalHeader()->setStretchLastSection(true);
    split->addWidget(table_);
    split->setSizes({400, 300});
    top->addWidget(split, 1);
    info_ = new QLabel;
    top->addWidget(info_);
    connect(calc, &QPushButton::clicked, this, [this] { calculate(); });
    connect(next, &QPushButton::clicked, this, [this] { find_next(); });
    connect(search_, &QLineEdit::textEdited, this, [this] { last_hit_ = -1; });
    auto* save_menu = new QMenu(save);
    const std::pair<const char*, KendrickSaveKind> kinds[] = {{"Relative abundance", KendrickSaveKind::RelativeAbundance},
                                                              {"With calibrants", KendrickSaveKind::Calibrants},
                                                              {"Absolute abundance", KendrickSaveKind::AbsoluteAbundance}};
    for (const auto& [label, kind] : kinds)
        connect(save_menu->addAction(label), &QAction::triggered, this, [this, kind = kind] {
            const QString path = QFileDialog::getSaveFileName(this, "Print Peaks To File", {}, "*.csv");
            if (!path.isEmpty()) save_text(path.toStdString(), kind);
        });
    connect(save_menu->addAction("Assignment table (CSV)"), &QAction::triggered, this, [this] {
        const QString path = QFileDialog::getSaveFileName(this, "Export Assignment Table", {}, "*.csv");
        if (!path.isEmpty()) this->save(path.toStdString());
    });
    save->setMenu(save_menu);
    connect(formula, &QPushButton::clicked, this, [this] { check_formula(selected_row()); });
    connect(fix, &QPushButton::clicked, this, [this] {
        fixing_ = true;
        fix_next_no_hit();
    });
    connect(fix_auto, &QPushButton::clicked, this, [this] { fix_no_hits_auto(); });
    connect(add_cal, &QPushButton::clicked, this, [this] { add_series_to_calibration(false); });
    connect(recal, &QPushButton::clicked, this, [this] { add_series_to_calibration(true); });
    connect(table_, &QTableView::doubleClicked, this, [this](const QModelIndex& i) { check_formula(i.row()); });
    connect(plot_, &QCustomPlot::mousePress, this, &KendrickPanel::on_click);
    connect(table_, &QTableView::clicked, this, [this](const QModelIndex& i) { select_row(i.row()); });
}

int KendrickPanel::calculate() {
    KendrickOptions o;
    o.base = base_->text().trimmed().toStdString();
    const int rc = KendrickCommand(main_->workspace(), o, tables_, main_->ui());
    if (rc == 0) {
        slot_ = main_->workspace().active_panel;
        assigned_ = false;  // the arrays are new and carry no formulas
    }
    refresh();
    return rc;
}

int KendrickPanel::assign(const FormulaSettings& settings, int repair_minimum, AssignSummary* summary) {
    settings_ = settings;
    assigned_ = true;
    KendrickOptions o;  // formulas are carried along CH2 series
    const int rc = calc_form(main_->workspace(), tables_, o, settings, repair_minimum, main_->ui(), summary);
    if (rc == 0) slot_ = main_->workspace().active_panel;
    base_->setText("CH2");
    refresh();
    return rc;
}

void KendrickPanel::refresh() {
    Workspace& ws = main_->workspace();
    std::vector<KendrickRow> rows;
    if (slot_ >= 0 && slot_ < MAX_PANELS && ws.panels[static_cast<std::size_t>(slot_)].active)
        rows = kendrick_rows(ws.panels[static_cast<std::size_t>(slot_)].spectrum, tables_, settings_);
    QVector<double> x[2], y[2];
    for (const KendrickRow& r : rows) {
        x[r.odd ? 0 : 1].push_back(r.nominal);
        y[r.odd ? 0 : 1].push_back(r.defect);
    }
    for (int g = 0; g < 2; ++g) plot_->graph(g)->setData(x[g], y[g]);
    plot_->graph(2)->data()->clear();
    plot_->rescaleAxes();
    plot_->replot();
    model_->set(std::move(rows));
    last_hit_ = -1;
    info_->setText(QString("%1 peaks in %2 odd and %3 even series")
                       .arg(model_->rowCount())
                       .arg(tables_.odd_series)
                       .arg(tables_.even_series));
}

void KendrickPanel::select_row(int row) {
    const auto& rows = model_->rows();
    if (row < 0 || row >= static_cast<int>(rows.size())) return;
    const KendrickRow& r = rows[static_cast<std::size_t>(row)];
    table_->selectRow(row);
    table_->scrollTo(model_->index(row, 0));
    plot_->graph(2)->setData(QVector<double>{static_cast<double>(r.nominal)}, QVector<double>{r.defect});
    plot_->replot();
    info_->setText(QString("m/z %1  %2  series %3 (rank %4)  %5  %6")
                       .arg(r.mz, 0, 'f', 6)
                       .arg(r.odd ? "odd" : "even")
                       .arg(r.series)
                       .arg(r.rank)
                       .arg(r.formula.empty() ? QString("No Hit") : QString::fromStdString(r.formula))
                       .arg(r.formula.empty() ? QString() : QString("%1 ppm").arg(r.error_ppm, 0, 'f', 4)));
}

void KendrickPanel::on_click(QMouseEvent* e) {
    const auto& rows = model_->rows();
    if (rows.empty()) return;
    // The nearest point on screen.
    int best = -1;
    double best_d = std::numeric_limits<double>::max();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const double px = plot_->xAxis->coordToPixel(rows[i].nominal), py = plot_->yAxis->coordToPixel(rows[i].defect);
        const double d = std::hypot(px - e->pos().x(), py - e->pos().y());
        if (d < best_d) {
            best_d = d;
            best = static_cast<int>(i);
        }
    }
    if (best >= 0 && best_d < 12.0) select_row(best);
}

void KendrickPanel::find_next() {
    const int hit = k_search(model_->rows(), search_->text().toStdString(), last_hit_);
    if (hit < 0) return;  // no further match leaves the selection
    last_hit_ = hit;
    select_row(hit);
}

int KendrickPanel::save(const std::string& path) {
    Workspace& ws = main_->workspace();
    if (slot_ < 0 || slot_ >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(slot_)].active) {
        main_->ui().MessagePopup("Kendrick Analysis", "There is nothing to save: calculate the series first.");
        return -1;
    }
    std::string error;
    const std::string text = assignment_csv_text(ws.panels[static_cast<std::size_t>(slot_)].spectrum, settings_);
    if (write_file_atomically(path, text, &error) < 0) {
        main_->ui().MessagePopup("File Error", path + " cannot be written: " + error);
        return -1;
    }
    return 0;
}

Spectrum* KendrickPanel::spectrum() {
    Workspace& ws = main_->workspace();
    if (slot_ < 0 || slot_ >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(slot_)].active) return nullptr;
    return &ws.panels[static_cast<std::size_t>(slot_)].spectrum;
}

int KendrickPanel::selected_row() const {
    const QModelIndex i = table_->currentIndex();
    return i.isValid() ? i.row() : -1;
}

int KendrickPanel::save_text(const std::string& path, KendrickSaveKind kind) {
    Spectrum* s = spectrum();
    if (!s) {
        main_->ui().MessagePopup("Kendrick Analysis", "There is nothing to save: calculate the series first.");
        return -1;
    }
    KendrickSaveOptions o;
    o.kind = kind;
    o.decimals = main_->workspace().settings.PEAKMZ;
    if (assigned_) o.negative = settings_.mode == ChargeMode::NEG;
    return SaveKendrick(path, *s, tables_, o, main_->ui());
}

void KendrickPanel::check_formula(int row) {
    SingleCalcTarget t;
    if (CheckFormula(model_->rows(), row, t) < 0) {
        main_->ui().MessagePopup("Kendrick Analysis", "Select a peak of the table first.");
        return;
    }
    select_row(row);
    MolecalunoPanel* calc = open_molecaluno(main_);
    calc->open_on_peak(t);
}

bool KendrickPanel::fix_next_no_hit() {
    const int row = FindNoHitSeries(model_->rows(), selected_row() + 1, min_members_->value());
    if (row < 0) {
        fixing_ = false;
        main_->ui().MessagePopup("Kendrick Analysis", "No series without a formula is left.");
        return false;
    }
    SingleCalcTarget t;
    CheckFormula(model_->rows(), row, t);
    t.op_index = 0;
    select_row(row);
    open_molecaluno(main_)->open_on_peak(t);
    return true;
}

int KendrickPanel::fix_no_hits_auto() {
    Spectrum* s = spectrum();
    if (!s) {
        main_->ui().MessagePopup("Kendrick Analysis", "There is nothing to repair: calculate the series first.");
        return -1;
    }
    FormulaSettings st = assigned_ ? settings_ : molecaluno_defaults();
    if (auto* calc = main_->findChild<MolecalunoPanel*>("MOLECALUNO")) st = calc->settings();
    const int n = fix_no_hit_series(*s, tables_, st, min_members_->value(), main_->ui());
    refresh();
    if (n >= 0) info_->setText(QString("%1 series repaired").arg(n));
    return n;
}

void KendrickPanel::picked() {
    const int keep = selected_row();
    refresh();
    if (keep >= 0) select_row(keep);
    if (fixing_) fix_next_no_hit();
}

int KendrickPanel::add_series_to_calibration(bool recal) {
    Spectrum* s = spectrum();
    if (!s) {
        main_->ui().MessagePopup("Kendrick Analysis", "There is no series to calibrate with: calculate the series first.");
        return -1;
    }
    show_calibrate_panel(main_);
    auto* cal = main_->findChild<CalibrateDialog*>();
    if (!cal) return -1;
    const int n = AddKendrickSeries(*s, model_->rows(), selected_row(), cal->panel(), recal, main_->ui());
    cal->show_for_active();
    return n;
}

KendrickPanel* open_kendrick(MainWindow* main) {
    auto* p = main->findChild<KendrickPanel*>("KENDRICK");
    if (!p) p = new KendrickPanel(main);
    p->show();
    p->raise();
    return p;
}

}  // namespace vx
