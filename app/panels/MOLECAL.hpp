// The multi-peak Formula Calculator: assigns the Kendrick series of the
// active data set, one search per series, and shows the result in the
// Kendrick views.
#pragma once

#include <QDialog>

#include "composition/formula.hpp"
#include "workspace/spectrum.hpp"

class QCheckBox;
class QDoubleSpinBox;
class QLabel;
class QSpinBox;

namespace vx {

class MainWindow;
class FormulaSettingsForm;

class MolecalPanel : public QDialog {
    Q_OBJECT
public:
    explicit MolecalPanel(MainWindow* main);
    // "Calculate": 0 or -1 after a message.
    int calculate();
    // The charge-mode click (set_charge, with the panel's preference page):
    // 1 when the data set's polarity was flipped.
    int mode_clicked(ChargeMode mode);

private:
    Spectrum* active_spectrum() const;
    MainWindow* main_;
    FormulaSettingsForm* form_;
    QDoubleSpinBox* assign_sn_;
    QCheckBox *topdown_, *series_fit_, *ignore_overs_, *save_elements_;
    QSpinBox* repair_;
    QLabel* result_;
};

MolecalPanel* open_molecal(MainWindow* main);

}  // namespace vx
