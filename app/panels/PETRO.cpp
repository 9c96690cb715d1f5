#include "PETRO.hpp"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QFont>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableView>
#include <QVBoxLayout>
#include <qcustomplot.h>

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "main_window.hpp"
#include "petro_plots.hpp"
#include "plot_draw.hpp"
#include "platform/safe_file.hpp"
#include "qt_ui.hpp"

namespace vx {

namespace {

QString shown_class(const std::string& t) {
    QString s = QString::fromStdString(t);
    if (s.startsWith(',')) s.remove(0, 1);
    return s.trimmed();
}

Spectrum* active_spectrum(MainWindow* main) {
    Workspace& ws = main->workspace();
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(ws.active_panel)].active)
        return nullptr;
    return &ws.panels[static_cast<std::size_t>(ws.active_panel)].spectrum;
}

}  // namespace

void PetroTableModel::set(QStringList heads, std::vector<Row> rows) {
    beginResetModel();
    heads_ = std::move(heads);
    rows_ = std::move(rows);
    endResetModel();
}

QVariant PetroTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) return {};
    const Row& r = rows_[static_cast<std::size_t>(index.row())];
    if (r.kind != Plain) {
        if (role == Qt::BackgroundRole) return QColor(r.kind == Divider ? QColor(0xc0, 0xc0, 0xc0) : QColor(0xc0, 0xc0, 0xc0));
        return {};
    }
    if (role == Qt::FontRole && index.column() == r.bold_column) {
        QFont f;
        f.setBold(true);
        return f;
    }
    if (role == Qt::ForegroundRole && index.column() == r.bold_column) return QColor(Qt::black);
    if (role != Qt::DisplayRole) return {};
    return index.column() < r.cells.size() ? r.cells[index.column()] : QString();
}

QVariant PetroTableModel::headerData(int section, Qt::Orientation o, int role) const {
    if (role != Qt::DisplayRole || o != Qt::Horizontal || section >= heads_.size())
        return QAbstractTableModel::headerData(section, o, role);
    return heads_[section];
}

Qt::ItemFlags PetroTableModel::flags(const QModelIndex& index) const {
    // Nothing is edited here; divider rows cannot even be selected.
    if (!index.isValid()) return Qt::NoItemFlags;
    return rows_[static_cast<std::size_t>(index.row())].kind == Plain ? Qt::ItemIsEnabled | Qt::ItemIsSelectable
                                                                      : Qt::NoItemFlags;
}

std::vector<PetroTableModel::Row> processed_tab_rows(const PetroSummary& s) {
    std::vector<PetroTableModel::Row> out;
    for (std::size_t i = 0; i < s.rows.size(); ++i) {
        const ProcessedRow& r = s.rows[i];
        if (i > 0) {
            const ProcessedRow& p = s.rows[i - 1];
            if (std::fabs(r.group_sum - p.group_sum) > 0.0001) out.push_back({{}, PetroTableModel::ClassDivider, -1});
            else if (std::fabs(r.dbe - p.dbe) > 0.001) out.push_back({{}, PetroTableModel::Divider, -1});
        }
        PetroTableModel::Row row;
        row.cells = {QString::number(r.mass, 'f', 6), QString::number(r.abundance, 'g', 6), shown_class(r.class_text),
                     QString::number(r.dbe), QString::number(r.group_share, 'f', 4),
                     QString::number(r.counts[0]), QString::number(r.counts[1]), QString::number(r.counts[2]),
                     QString::number(r.counts[3]), QString::number(r.counts[4]), QString::number(r.counts[6]),
                     QString::number(r.counts[7]), r.hit_code ? QString::number(r.error, 'f', 4) : QString("NaN"),
                     QString::number(r.group_sum, 'g', 8)};
        row.bold_column = r.group_share > 0.00000001 ? 4 : -1;
        out.push_back(std::move(row));
    }
    return out;
}

std::vector<PetroTableModel::Row> class_tab_rows(const PetroSummary& s) {
    std::vector<PetroTableModel::Row> out;
    for (std::size_t i = 0; i < s.classes.size(); ++i) {
        const ClassRow& c = s.classes[i];
        if (i > 0) out.push_back({{}, PetroTableModel::ClassDivider, -1});
        out.push_back({{QString::fromStdString(c.class_text), QString::number(c.sum, 'g', 8), QString::number(c.percent, 'f', 4),
                        QString::number(c.peaks)},
                       PetroTableModel::Plain,
                       2});
    }
    return out;
}

PetroPanel::PetroPanel(MainWindow* main) : QDialog(main), main_(main) {
    setObjectName("PETRO");
    setWindowTitle("Petroleum Analysis");
    resize(1000, 700);
    auto* top = new QVBoxLayout(this);
    auto* bar = new QHBoxLayout;
    auto* process = new QPushButton("Process");
    bar->addWidget(process);
    static const char* const names[6] = {"N max", "N min", "O max", "O min", "S max", "S min"};
    const int defaults[6] = {2, 0, 6, 0, 0, 0};
    for (int i = 0; i < 6; ++i) {
        bar->addWidget(new QLabel(names[i]));
        limits_[i] = new QSpinBox;
        limits_[i]->setRange(0, 127);
        limits_[i]->setValue(defaults[i]);
        bar->addWidget(limits_[i]);
    }
    vanadium_ = new QCheckBox("Vanadium");
    nickel_ = new QCheckBox("Nickel");
    bar->addWidget(vanadium_);
    bar->addWidget(nickel_);
    // Vanadium_callback and Nickel_callback: each switched on dims the other.
    connect(vanadium_, &QCheckBox::toggled, this, [this](bool on) { nickel_->setEnabled(!on); });
    connect(nickel_, &QCheckBox::toggled, this, [this](bool on) { vanadium_->setEnabled(!on); });
    auto* save_mass = new QPushButton("Save Mass Error...");
    auto* save_sn = new QPushButton("Save S/N Error...");
    bar->addWidget(save_mass);
    bar->addWidget(save_sn);
    top->addLayout(bar);
    info_ = new QLabel;
    top->addWidget(info_);
    tabs_ = new QTabWidget;
    static const char* const tabs[5] = {"Processed Data", "Class", "DBE Number", "Carbon Number", "Kendrick Table"};
    for (int i = 0; i < 5; ++i) {
        models_[i] = new PetroTableModel(this);
        views_[i] = new QTableView;
        views_[i]->setModel(models_[i]);
        views_[i]->setSortingEnabled(false);
        // Divider rows are lower than the style's smallest row.
        views_[i]->verticalHeader()->setMinimumSectionSize(DIVIDER_HEIGHT);
        tabs_->addTab(views_[i], tabs[i]);
    }
    auto* errors = new QWidget;
    auto* el = new QVBoxLayout(errors);
    for (int i = 0; i < 3; ++i) {
        plots_[i] = new QCustomPlot;
        plots_[i]->setObjectName(QString("error_plot_%1").arg(i));
        el->addWidget(plots_[i]);
    }
    tabs_->addTab(errors, "Error Plots");
    // Class bars, DBE vs carbon number of one class, van Krevelen, Kendrick.
    auto* summary = new QWidget;
    auto* sl = new QGridLayout(summary);
    dbe_class_ = new QComboBox;
    auto* save_plots_button = new QPushButton("Save Plots...");
    auto* sbar = new QHBoxLayout;
    sbar->addWidget(new QLabel("DBE plot of class"));
    sbar->addWidget(dbe_class_, 1);
    sbar->addWidget(save_plots_button);
    sl->addLayout(sbar, 0, 0, 1, 2);
    for (int i = 0; i < 4; ++i) {
        summary_plots_[i] = new QCustomPlot;
        summary_plots_[i]->setObjectName(QString("summary_plot_%1").arg(i));
        sl->addWidget(summary_plots_[i], 1 + i / 2, i % 2);
    }
    tabs_->addTab(summary, "Plots");
    connect(dbe_class_, &QComboBox::currentTextChanged, this, [this](const QString& c) {
        draw_dbe_carbon(summary_plots_[1], summary_, c.toStdString());
        summary_plots_[1]->replot();
    });
    connect(save_plots_button, &QPushButton::clicked, this, [this] {
        const auto dir = main_->ui().DirSelectPopup("Pick a folder for the plots", "");
        if (dir) save_plots(*dir);
    });
    plot_errors();
    plot_summary();
    top->addWidget(tabs_, 1);
    connect(process, &QPushButton::clicked, this, [this] { this->process(); });
    connect(save_mass, &QPushButton::clicked, this, [this] { save_mass_error(); });
    connect(save_sn, &QPushButton::clicked, this, [this] { save_sn_error(); });
}

int PetroPanel::process() {
    Spectrum* s = active_spectrum(main_);
    QtUi& ui = main_->ui();
    if (!s || (s->assigned.empty() && s->unassigned.empty())) {
        ui.MessagePopup("Petroleum Analysis", "There are no assigned peaks: run the formula assignment first.");
        return -1;
    }
    BodyFilter f;
    f.n_max = limits_[0]->value();
    f.n_min = limits_[1]->value();
    f.o_max = limits_[2]->value();
    f.o_min = limits_[3]->value();
    f.s_max = limits_[4]->value();
    f.s_min = limits_[5]->value();
    f.vanadium = vanadium_->isChecked();
    f.nickel = nickel_->isChecked();
    if (ProcessPetro(*s, molecal_defaults(), true, summary_, ui, &f) < 0) return -1;
    fill();
    plot_errors();
    plot_summary();
    return 0;
}

void PetroPanel::fill() {
    models_[0]->set({"m/z", "Abundance", "Class", "DBE", "Class %", "C", "H", "N", "O", "S", "13C", "34S", "Error (ppm)", "Class sum"},
                    processed_tab_rows(summary_));
    models_[1]->set({"Class", "Abundance", "%", "Peaks"}, class_tab_rows(summary_));
    std::vector<PetroTableModel::Row> dbe, carbon, kendrick;
    for (std::size_t i = 0; i < summary_.dbe.size(); ++i) {
        const DbeRow& d = summary_.dbe[i];
        if (i > 0 && d.class_text != summary_.dbe[i - 1].class_text) dbe.push_back({{}, PetroTableModel::ClassDivider, -1});
        dbe.push_back({{QString::fromStdString(d.class_text), QString::number(d.dbe), QString::number(d.abundance, 'g', 8),
                        QString::number(d.percent, 'f', 4)},
                       PetroTableModel::Plain,
                       3});
    }
    for (const CarbonRow& c : summary_.carbon)
        carbon.push_back({{QString::fromStdString(c.class_text), QString::number(c.carbons), QString::number(c.dbe),
                           QString::number(c.abundance, 'g', 8), QString::number(c.percent, 'f', 4)},
                          PetroTableModel::Plain,
                          -1});
    for (const ProcessedRow& r : summary_.rows)
        kendrick.push_back({{QString::number(r.mass, 'f', 6), QString::number(r.kendrick_mass, 'f', 6), QString::number(r.nominal),
                             QString::number(r.kmd), QString::number(r.series), r.odd ? "odd" : "even", shown_class(r.class_text)},
                            PetroTableModel::Plain,
                            -1});
    models_[2]->set({"Class", "DBE", "Abundance", "% of class"}, std::move(dbe));
    models_[3]->set({"Class", "C", "DBE", "Abundance", "% of class"}, std::move(carbon));
    models_[4]->set({"m/z", "Kendrick mass", "Nominal", "KMD", "Series", "Array", "Class"}, std::move(kendrick));
    for (int t = 0; t < 5; ++t)
        for (int i = 0; i < models_[t]->rowCount(); ++i) {
            const auto kind = models_[t]->rows()[static_cast<std::size_t>(i)].kind;
            if (kind == PetroTableModel::Divider) views_[t]->setRowHeight(i, DIVIDER_HEIGHT);
            else if (kind == PetroTableModel::ClassDivider) views_[t]->setRowHeight(i, CLASS_DIVIDER_HEIGHT);
        }
    info_->setText(QString("%1 classes, total abundance %2").arg(summary_.classes.size()).arg(summary_.total, 0, 'g', 8));
}

void PetroPanel::plot_errors() {
    draw_mass_error(plots_[0], summary_);
    draw_sn_error(plots_[1], summary_);
    draw_error_histogram(plots_[2], summary_);
    for (QCustomPlot* p : plots_) p->replot();
}

void PetroPanel::plot_summary() {
    draw_class_bars(summary_plots_[0], summary_);
    const QString keep = dbe_class_->currentText();
    {
        const QSignalBlocker quiet(dbe_class_);
        dbe_class_->clear();
        for (const ClassRow& c : summary_.classes) dbe_class_->addItem(QString::fromStdString(c.class_text));
        const int at = dbe_class_->findText(keep);
        if (at >= 0) dbe_class_->setCurrentIndex(at);
    }
    draw_dbe_carbon(summary_plots_[1], summary_, dbe_class_->currentText().toStdString());
    draw_van_krevelen(summary_plots_[2], summary_);
    draw_kendrick(summary_plots_[3], summary_);
    for (QCustomPlot* p : summary_plots_) p->replot();
}

int PetroPanel::save_plots(const std::string& folder) {
    return write_petro_plots(summary_, folder, PlotFormats{true, true}, main_->ui());
}

namespace {
int save_error_table(MainWindow* main, const std::string& text) {
    QtUi& ui = main->ui();
    const auto path = ui.FileSelectPopup("Pick a file to save results", "*.csv", "");
    if (!path) return -1;
    std::string error;
    if (write_file_atomically(*path, text, &error) < 0) {
        ui.MessagePopup("File Error", fmt::format("{} cannot be written: {}", *path, error));
        return -1;
    }
    return 0;
}
}  // namespace

int PetroPanel::save_mass_error() {
    Spectrum* s = active_spectrum(main_);
    return s ? save_error_table(main_, mass_error_csv(*s)) : -1;
}

int PetroPanel::save_sn_error() {
    Spectrum* s = active_spectrum(main_);
    return s ? save_error_table(main_, sn_error_csv(*s)) : -1;
}

PetroPanel* open_petro(MainWindow* main) {
    auto* p = main->findChild<PetroPanel*>("PETRO");
    if (!p) p = new PetroPanel(main);
    p->show();
    p->raise();
    return p;
}

}  // namespace vx
