#include "MOLECALUNO.hpp"

#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

#include "composition/assign.hpp"
#include "composition/commands.hpp"
#include "formula_settings_form.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"

namespace vx {

void FormulaHitModel::set(std::vector<FormulaHit> hits, const FormulaSettings& settings) {
    beginResetModel();
    hits_ = std::move(hits);
    settings_ = settings;
    endResetModel();
}

QVariant FormulaHitModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) return {};
    const FormulaHit& h = hits_[static_cast<std::size_t>(index.row())];
    if (role == Qt::TextAlignmentRole) return index.column() == 1 || index.column() == 2 ? int(Qt::AlignLeft | Qt::AlignVCenter)
                                                                                         : int(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole) return {};
    const auto names = user_names_of(settings_);
    switch (index.column()) {
    case 0: return QString::number(h.ppm, 'f', 4);
    case 1: {
        std::string f, cls;
        BuildFormula(f, h.counts, settings_, cls);
        return QString::fromStdString(cls);
    }
    case 2: return QString::fromStdString(hill_formula(h.counts, names));
    case 3: return QString::fromStdString(hill_formula(neutral_counts(h.counts, settings_.mode), names));
    case 4: return QString::number(h.mass, 'f', 6);
    case 5: return QString::number(h.dbe, 'f', 1);
    }
    return {};
}

QVariant FormulaHitModel::headerData(int section, Qt::Orientation o, int role) const {
    if (role != Qt::DisplayRole || o != Qt::Horizontal) return QAbstractTableModel::headerData(section, o, role);
    static const char* const heads[] = {"Error (ppm)", "Class", "Ion formula", "Neutral formula", "Exact mass", "DBE"};
    return heads[section];
}

MolecalunoPanel::MolecalunoPanel(MainWindow* main) : QDialog(main), main_(main) {
    setObjectName("MOLECALUNO");
    setWindowTitle("Formula Calculator");
    auto* top = new QVBoxLayout(this);
    form_ = new FormulaSettingsForm;
    form_->set(molecaluno_defaults());
    top->addWidget(form_);
    auto* row = new QHBoxLayout;
    row->addWidget(new QLabel("m/z"));
    mz_ = new QDoubleSpinBox;
    mz_->setDecimals(6);
    mz_->setRange(0.0, 100000.0);
    mz_->setValue(0.0);
    row->addWidget(mz_, 1);
    auto* calc = new QPushButton("Calculate");
    row->addWidget(calc);
    top->addLayout(row);
    status_ = new QLabel;
    top->addWidget(status_);
    model_ = new FormulaHitModel(this);
    table_ = new QTableView;
    table_->setModel(model_);
    table_->horizontalHeader()->setStretchLastSection(true);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    top->addWidget(table_, 1);
    connect(calc, &QPushButton::clicked, this, [this] { calculate(); });
}

void MolecalunoPanel::set_mz(double mz) { mz_->setValue(mz); }

int MolecalunoPanel::calculate() {
    const FormulaSettings s = form_->settings();
    SingleSearchResult r;
    const int n = calc_form_single(mz_->value(), s, r, main_->ui());
    if (n < 0) {
        status_->setText("Not searched.");
        model_->set({}, s);
        return n;
    }
    status_->setText(n == 0 ? "No Hit" : QString("%1 hit%2%3").arg(n).arg(n == 1 ? "" : "s").arg(
                                            r.stopped_at_max_iter ? " (stopped at the candidate limit)" : ""));
    model_->set(std::move(r.hits), s);
    return n;
}

MolecalunoPanel* open_molecaluno(MainWindow* main) {
    auto* p = main->findChild<MolecalunoPanel*>("MOLECALUNO");
    if (!p) p = new MolecalunoPanel(main);
    p->show();
    p->raise();
    return p;
}

}  // namespace vx
