#include "MOLECAL.hpp"

#include <QApplication>
#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include "KENDRICK.hpp"
#include "composition/formula_preferences.hpp"
#include "formula_settings_form.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"

namespace vx {

MolecalPanel::MolecalPanel(MainWindow* main) : QDialog(main), main_(main) {
    setObjectName("MOLECAL");
    setWindowTitle("Formula Calculator (Kendrick series)");
    auto* top = new QVBoxLayout(this);
    form_ = new FormulaSettingsForm;
    // batchformulacal_callback: no preferences, the mode of the data set.
    FormulaSettings s = batchformulacal_open(active_spectrum());
    s.series_fit = true;
    form_->set(s);
    top->addWidget(form_);
    auto* more = new QFormLayout;
    assign_sn_ = new QDoubleSpinBox;
    assign_sn_->setRange(0.0, 1e9);
    assign_sn_->setValue(s.ASSIGN_SN);
    more->addRow("S/N of the test peak", assign_sn_);
    repair_ = new QSpinBox;
    repair_->setRange(0, 1000);
    repair_->setValue(2);
    more->addRow("Repair No Hit series from (members)", repair_);
    topdown_ = new QCheckBox("Top down");
    series_fit_ = new QCheckBox("Choose the candidate that fits the most series members");
    series_fit_->setChecked(true);
    ignore_overs_ = new QCheckBox("Ignore errors over the limit");
    more->addRow(topdown_);
    more->addRow(series_fit_);
    more->addRow(ignore_overs_);
    save_elements_ = new QCheckBox("Save settings as preferences");
    more->addRow(save_elements_);
    connect(form_, &FormulaSettingsForm::mode_clicked, this, [this](ChargeMode m) { mode_clicked(m); });
    top->addLayout(more);
    auto* calc = new QPushButton("Calculate");
    top->addWidget(calc);
    result_ = new QLabel;
    top->addWidget(result_);
    connect(calc, &QPushButton::clicked, this, [this] { calculate(); });
}

Spectrum* MolecalPanel::active_spectrum() const {
    Workspace& ws = main_->workspace();
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS) return nullptr;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(ws.active_panel)];
    return p.active ? &p.spectrum : nullptr;
}

int MolecalPanel::mode_clicked(ChargeMode mode) {
    FormulaSettings s = form_->settings();
    const int flipped = set_charge(mode, s, &main_->workspace().settings.formula_prefs[0], active_spectrum(), main_->ui());
    form_->set_mode(s.mode);
    return flipped;
}

int MolecalPanel::calculate() {
    FormulaSettings s = form_->settings();
    // calc_form: the settings go to the preferences first when asked.
    if (save_elements_->isChecked()) SetElementsPreferences(&s, Calculator::MOLECAL, main_->workspace().settings);
    s.ASSIGN_SN = assign_sn_->value();
    s.TOPDOWN = topdown_->isChecked();
    s.series_fit = series_fit_->isChecked();
    s.IGNOREOVERS = ignore_overs_->isChecked();
    KendrickPanel* view = open_kendrick(main_);
    AssignSummary sum;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const int rc = view->assign(s, repair_->value(), &sum);
    QApplication::restoreOverrideCursor();
    if (rc < 0) {
        result_->setText("Not assigned.");
        return rc;
    }
    result_->setText(QString("RMS error %1 ppm, largest %2 ppm; %3 % assigned, %4 % of series assigned")
                         .arg(sum.errors.rms, 0, 'f', 4)
                         .arg(sum.errors.largest, 0, 'f', 4)
                         .arg(sum.percent_assigned, 0, 'f', 1)
                         .arg(sum.percent_in_series, 0, 'f', 1));
    return 0;
}

MolecalPanel* open_molecal(MainWindow* main) {
    auto* p = main->findChild<MolecalPanel*>("MOLECAL");
    if (!p) p = new MolecalPanel(main);
    p->show();
    p->raise();
    return p;
}

}  // namespace vx
