// The multi-peak Formula Calculator: assigns the Kendrick series of the
// active data set, one search per series, and shows the result in the
// Kendrick views.
#pragma once

#include <QDialog>

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

private:
    MainWindow* main_;
    FormulaSettingsForm* form_;
    QDoubleSpinBox* assign_sn_;
    QCheckBox *topdown_, *series_fit_, *ignore_overs_;
    QSpinBox* repair_;
    QLabel* result_;
};

MolecalPanel* open_molecal(MainWindow* main);

}  // namespace vx
