#include "formula_settings_form.hpp"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace vx {

namespace {
const char* const kFixed[6] = {"C", "H", "N", "O", "S", "P"};

QSpinBox* count_box(int lo = -1) {
    auto* b = new QSpinBox;
    b->setRange(lo, 10000);
    b->setSpecialValueText(lo < 0 ? "no limit" : "");
    return b;
}
}  // namespace

FormulaSettingsForm::FormulaSettingsForm(QWidget* parent) : QWidget(parent) {
    auto* top = new QVBoxLayout(this);
    auto* elements = new QGroupBox("Elements");
    auto* grid = new QGridLayout(elements);
    grid->addWidget(new QLabel("Element"), 0, 0);
    grid->addWidget(new QLabel("Min"), 0, 1);
    grid->addWidget(new QLabel("Max"), 0, 2);
    for (int i = 0; i < 6; ++i) {
        grid->addWidget(new QLabel(kFixed[i]), i + 1, 0);
        min_[i] = count_box(0);
        max_[i] = count_box(-1);
        grid->addWidget(min_[i], i + 1, 1);
        grid->addWidget(max_[i], i + 1, 2);
    }
    auto* users = new QGroupBox("User elements");
    auto* ug = new QGridLayout(users);
    const char* heads[] = {"Name", "Mass", "Min", "Max", "Valence", "Isotope"};
    for (int c = 0; c < 6; ++c) ug->addWidget(new QLabel(heads[c]), 0, c);
    for (int i = 0; i < 6; ++i) {
        user_name_[i] = new QLineEdit;
        user_name_[i]->setMaxLength(7);
        user_mass_[i] = new QDoubleSpinBox;
        user_mass_[i]->setDecimals(9);
        user_mass_[i]->setRange(0.0, 1000.0);
        user_min_[i] = count_box(0);
        user_max_[i] = count_box(-1);
        user_valence_[i] = new QSpinBox;
        user_valence_[i]->setRange(0, 8);
        user_isotope_[i] = new QCheckBox;
        QWidget* row[] = {user_name_[i], user_mass_[i], user_min_[i], user_max_[i], user_valence_[i], user_isotope_[i]};
        for (int c = 0; c < 6; ++c) ug->addWidget(row[c], i + 1, c);
    }
    auto* elements_row = new QHBoxLayout;
    elements_row->addWidget(elements);
    elements_row->addWidget(users, 1);
    top->addLayout(elements_row);

    auto* search = new QGroupBox("Search");
    auto* sg = new QGridLayout(search);
    pos_ = new QRadioButton("Positive");
    neu_ = new QRadioButton("Neutral");
    neg_ = new QRadioButton("Negative");
    sg->addWidget(pos_, 0, 0);
    sg->addWidget(neu_, 0, 1);
    sg->addWidget(neg_, 0, 2);
    accuracy_ = new QDoubleSpinBox;
    accuracy_->setDecimals(3);
    accuracy_->setRange(0.0, 1000000.0);
    accuracy_->setSuffix(" ppm");
    dbe_ = new QDoubleSpinBox;
    dbe_->setRange(-1.0, 10000.0);
    dbe_->setDecimals(1);
    max_iter_ = new QSpinBox;
    max_iter_->setRange(1, 100000000);
    sg->addWidget(new QLabel("Mass accuracy"), 1, 0);
    sg->addWidget(accuracy_, 1, 1);
    sg->addWidget(new QLabel("Maximum DBE"), 2, 0);
    sg->addWidget(dbe_, 2, 1);
    sg->addWidget(new QLabel("Candidate limit"), 3, 0);
    sg->addWidget(max_iter_, 3, 1);
    radicals_ = new QCheckBox("Radicals");
    show_all_ = new QCheckBox("Show all");
    multi_ = new QCheckBox("One user isotope at a time");
    sort_ = new QCheckBox("Sort by error");
    sg->addWidget(radicals_, 1, 2);
    sg->addWidget(show_all_, 2, 2);
    sg->addWidget(multi_, 3, 2);
    sg->addWidget(sort_, 4, 2);
    top->addWidget(search);
    connect(pos_, &QRadioButton::clicked, this, [this] { emit mode_clicked(ChargeMode::POS); });
    connect(neu_, &QRadioButton::clicked, this, [this] { emit mode_clicked(ChargeMode::NEU); });
    connect(neg_, &QRadioButton::clicked, this, [this] { emit mode_clicked(ChargeMode::NEG); });
    set(molecaluno_defaults());
}

void FormulaSettingsForm::set_mode(ChargeMode mode) {
    base_.mode = mode;
    pos_->setChecked(mode == ChargeMode::POS);
    neu_->setChecked(mode == ChargeMode::NEU);
    neg_->setChecked(mode == ChargeMode::NEG);
}

void FormulaSettingsForm::set(const FormulaSettings& s) {
    base_ = s;
    const int mins[6] = {s.C_MIN, s.H_MIN, s.N_MIN, s.O_MIN, s.S_MIN, s.P_MIN};
    const int maxs[6] = {s.C_MAX, s.H_MAX, s.N_MAX, s.O_MAX, s.S_MAX, s.P_MAX};
    for (int i = 0; i < 6; ++i) {
        min_[i]->setValue(mins[i]);
        max_[i]->setValue(maxs[i]);
        const UserElement& u = s.user[static_cast<std::size_t>(i)];
        user_name_[i]->setText(u.name == "??" ? QString() : QString::fromStdString(u.name));
        user_mass_[i]->setValue(u.mass);
        user_min_[i]->setValue(u.min);
        user_max_[i]->setValue(u.max);
        user_valence_[i]->setValue(u.valence);
        user_isotope_[i]->setChecked(u.isotope);
    }
    pos_->setChecked(s.mode == ChargeMode::POS);
    neu_->setChecked(s.mode == ChargeMode::NEU);
    neg_->setChecked(s.mode == ChargeMode::NEG);
    accuracy_->setValue(s.MASS_ACCURACY);
    dbe_->setValue(s.DBE);
    max_iter_->setValue(static_cast<int>(std::min<long>(s.MAX_ITER, 100000000)));
    radicals_->setChecked(s.RADICALS);
    show_all_->setChecked(s.SHOW_ALL);
    multi_->setChecked(s.MULTI_USR_ELEMENTS);
    sort_->setChecked(s.SORT);
}

FormulaSettings FormulaSettingsForm::settings() const {
    FormulaSettings s = base_;
    int* mins[6] = {&s.C_MIN, &s.H_MIN, &s.N_MIN, &s.O_MIN, &s.S_MIN, &s.P_MIN};
    int* maxs[6] = {&s.C_MAX, &s.H_MAX, &s.N_MAX, &s.O_MAX, &s.S_MAX, &s.P_MAX};
    for (int i = 0; i < 6; ++i) {
        *mins[i] = min_[i]->value();
        *maxs[i] = max_[i]->value();
        UserElement& u = s.user[static_cast<std::size_t>(i)];
        const std::string name = user_name_[i]->text().trimmed().toStdString();
        u.name = name.empty() ? "??" : name;  // an empty name is never printed
        u.mass = user_mass_[i]->value();
        if (u.mass <= 0.0 && !name.empty())
            if (const auto e = find_element_or_isotope(name)) u.mass = e->mass;
        u.min = user_min_[i]->value();
        u.max = user_max_[i]->value();
        u.valence = user_valence_[i]->value();
        u.isotope = user_isotope_[i]->isChecked();
    }
    // The mode is tested positive first, then negative; neutral is what remains.
    s.mode = pos_->isChecked() ? ChargeMode::POS : neg_->isChecked() ? ChargeMode::NEG : ChargeMode::NEU;
    s.MASS_ACCURACY = accuracy_->value();
    s.DBE = dbe_->value();
    s.MAX_ITER = max_iter_->value();
    s.RADICALS = radicals_->isChecked();
    s.SHOW_ALL = show_all_->isChecked();
    s.MULTI_USR_ELEMENTS = multi_->isChecked();
    s.SORT = sort_->isChecked();
    return s;
}

}  // namespace vx
