#include "MOLECALUNO.hpp"

#include <QCheckBox>
#include <QCloseEvent>
#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

#include "composition/assign.hpp"
#include "KENDRICK.hpp"
#include "composition/commands.hpp"
#include "composition/formula_preferences.hpp"
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
    // formulacal_callback: the preference page, then the data set's polarity.
    form_->set(formulacal_open(main_->workspace().settings, active_spectrum()));
    top->addWidget(form_);
    save_elements_ = new QCheckBox("Save settings as preferences");
    top->addWidget(save_elements_);
    connect(form_, &FormulaSettingsForm::mode_clicked, this, [this](ChargeMode m) { mode_clicked(m); });
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
    auto* picks = new QHBoxLayout;
    update_ = new QPushButton("Update Kendrick");
    no_hit_ = new QPushButton("Assign No Hit");
    picks->addWidget(update_);
    picks->addWidget(no_hit_);
    picks->addStretch(1);
    top->addLayout(picks);
    update_->hide();
    no_hit_->hide();
    connect(calc, &QPushButton::clicked, this, [this] { calculate(); });
    connect(update_, &QPushButton::clicked, this, [this] {
        const QModelIndex i = table_->currentIndex();
        update_kendrick(i.isValid() ? i.row() : -1);
    });
    connect(no_hit_, &QPushButton::clicked, this, [this] { assign_no_hit(); });
}

Spectrum* MolecalunoPanel::active_spectrum() const {
    Workspace& ws = main_->workspace();
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS) return nullptr;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(ws.active_panel)];
    return p.active ? &p.spectrum : nullptr;
}

const FormulaSettings MolecalunoPanel::settings() const { return form_->settings(); }

int MolecalunoPanel::mode_clicked(ChargeMode mode) {
    FormulaSettings s = form_->settings();
    // set_charge2: the panel's own buttons only; its page is written when
    // the settings are saved.
    const int flipped = set_charge(mode, s, nullptr, active_spectrum(), main_->ui());
    form_->set_mode(s.mode);
    return flipped;
}

void MolecalunoPanel::save_preferences() {
    const FormulaSettings s = form_->settings();
    SetElementsPreferences(&s, Calculator::MOLECALUNO, main_->workspace().settings);
}

void MolecalunoPanel::closeEvent(QCloseEvent* event) {
    // Close_calc_form_single: the settings are kept when asked, and the
    // Kendrick view shows what the picks changed.
    if (save_elements_->isChecked()) save_preferences();
    if (on_peak_)
        if (auto* view = main_->findChild<KendrickPanel*>("KENDRICK")) view->refresh();
    QDialog::closeEvent(event);
}

void MolecalunoPanel::set_mz(double mz) { mz_->setValue(mz); }

void MolecalunoPanel::open_on_peak(const SingleCalcTarget& target) {
    target_ = target;
    on_peak_ = true;
    set_mz(target.mz);
    setWindowTitle(QString("Formula Calculator - m/z %1 (%2 array)").arg(target.mz, 0, 'f', 6).arg(target.oddeven ? "odd" : "even"));
    update_->show();
    no_hit_->show();
    calculate();
}

int MolecalunoPanel::update_kendrick(int row) {
    const auto& hits = model_->hits();
    if (!on_peak_) return -1;
    Spectrum* s = nullptr;
    if (auto* view = main_->findChild<KendrickPanel*>("KENDRICK")) s = view->spectrum();
    if (!s) {
        main_->ui().MessagePopup("Kendrick Analysis", "The Kendrick table of this peak is no longer open.");
        return -1;
    }
    const int running = row >= 0 && row < static_cast<int>(hits.size()) ? hits[static_cast<std::size_t>(row)].running : -1;
    const int n = vx::update_kendrick(*s, target_, running, form_->settings(), main_->ui());
    if (n >= 0)
        if (auto* view = main_->findChild<KendrickPanel*>("KENDRICK")) view->picked();
    return n;
}

int MolecalunoPanel::assign_no_hit() {
    if (!on_peak_) return -1;
    Spectrum* s = nullptr;
    if (auto* view = main_->findChild<KendrickPanel*>("KENDRICK")) s = view->spectrum();
    if (!s) return -1;
    const int rc = nohit_kendrick(*s, target_, form_->settings(), main_->ui());
    if (rc == 0)
        if (auto* view = main_->findChild<KendrickPanel*>("KENDRICK")) view->picked();
    return rc;
}

int MolecalunoPanel::calculate() {
    if (save_elements_->isChecked()) save_preferences();
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
