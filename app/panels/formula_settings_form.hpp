// The element ranges, user slots, charge mode and limits that both Formula
// Calculator panels (MOLECAL and MOLECALUNO) share, as one form.
#pragma once

#include <QWidget>

#include "composition/formula.hpp"

class QSpinBox;
class QDoubleSpinBox;
class QLineEdit;
class QCheckBox;
class QRadioButton;

namespace vx {

class FormulaSettingsForm : public QWidget {
    Q_OBJECT
public:
    explicit FormulaSettingsForm(QWidget* parent = nullptr);
    // Fills the controls; settings() reads them back (user masses from the
    // table when a slot names a known element or isotope and has no mass).
    void set(const FormulaSettings& s);
    FormulaSettings settings() const;
    // Only this mode's button on (after the polarity question of a click).
    void set_mode(ChargeMode mode);

signals:
    // A charge-mode button was clicked by the user.
    void mode_clicked(ChargeMode mode);

private:
    QSpinBox* min_[6] = {};
    QSpinBox* max_[6] = {};
    QLineEdit* user_name_[6] = {};
    QDoubleSpinBox* user_mass_[6] = {};
    QSpinBox* user_min_[6] = {};
    QSpinBox* user_max_[6] = {};
    QSpinBox* user_valence_[6] = {};
    QCheckBox* user_isotope_[6] = {};
    QRadioButton *pos_ = nullptr, *neu_ = nullptr, *neg_ = nullptr;
    QDoubleSpinBox *accuracy_ = nullptr, *dbe_ = nullptr;
    QCheckBox *radicals_ = nullptr, *show_all_ = nullptr, *multi_ = nullptr, *sort_ = nullptr;
    QSpinBox* max_iter_ = nullptr;
    FormulaSettings base_;  // fields the form has no control for
};

}  // namespace vx
