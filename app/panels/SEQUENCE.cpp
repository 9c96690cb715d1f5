#include "SEQUENCE.hpp"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include "THRASH.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"
#include "thrash/mass_determination.hpp"

namespace vx {

namespace {

struct TypeChoice {
    int type;
    const char* text;
};
const TypeChoice TYPES[] = {
    {1, "Fragments (a, b, c, y, z)"}, {9, "All fragments"},       {3, "Digest: after K"},
    {4, "Digest: before D"},          {5, "Digest: after F, L, W, Y"}, {6, "Digest: after K, R"},
    {7, "Digest: after E"},           {8, "Digest: every residue"},
};
const double CTERM[] = {18.0102, 16.01872};
const double NTERM[] = {0.0, 27.99492, 42.01057};

}  // namespace

SequencePanel::SequencePanel(MainWindow* main) : QDialog(main), main_(main) {
    setObjectName("SEQUENCE");
    setWindowTitle("Sequence");
    auto* v = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    auto* file = new QHBoxLayout;
    path_ = new QLineEdit;
    path_->setObjectName("path");
    auto* browse = new QPushButton("Browse...");
    file->addWidget(path_, 1);
    file->addWidget(browse);
    form->addRow("Sequence file", file);
    type_ = new QComboBox;
    type_->setObjectName("match_type");
    for (const TypeChoice& t : TYPES) type_->addItem(t.text, t.type);
    form->addRow("Type of matching", type_);
    auto* tol = new QHBoxLayout;
    tolerance_ = new QDoubleSpinBox;
    tolerance_->setObjectName("tolerance");
    tolerance_->setDecimals(7);
    tolerance_->setRange(0.0, 100.0);
    tolerance_->setValue(10.0);
    unit_ = new QComboBox;
    unit_->setObjectName("unit");
    unit_->addItems({"Da", "relative (x mass)"});
    tol->addWidget(tolerance_, 1);
    tol->addWidget(unit_);
    form->addRow("Tolerance", tol);
    auto radios = [&](QButtonGroup*& group, std::initializer_list<const char*> texts) {
        group = new QButtonGroup(this);
        auto* row = new QHBoxLayout;
        int id = 0;
        for (const char* t : texts) {
            auto* b = new QRadioButton(t);
            group->addButton(b, id++);
            row->addWidget(b);
        }
        group->button(0)->setChecked(true);
        return row;
    };
    form->addRow("C-terminal", radios(cterm_, {"OH (18.0102)", "NH2 (16.01872)"}));
    form->addRow("N-terminal", radios(nterm_, {"H (0)", "formyl (27.99492)", "acetyl (42.01057)"}));
    phospho_ = new QCheckBox("Phosphorylation on S, T, Y");
    form->addRow(phospho_);
    v->addLayout(form);
    auto* bar = new QHBoxLayout;
    auto* load = new QPushButton("Load");
    auto* assign = new QPushButton("Assign THRASH Table");
    bar->addWidget(load);
    bar->addWidget(assign);
    bar->addStretch(1);
    v->addLayout(bar);
    status_ = new QLabel("No sequence in use.");
    status_->setObjectName("status");
    v->addWidget(status_);
    connect(browse, &QPushButton::clicked, this, [this] {
        if (auto f = main_->ui().FileSelectPopup("Load Sequence File", "*.*", "")) path_->setText(QString::fromStdString(*f));
    });
    connect(load, &QPushButton::clicked, this, [this] { this->load(); });
    connect(assign, &QPushButton::clicked, this, [this] { assign_table(); });
    connect(tolerance_, &QDoubleSpinBox::valueChanged, this, [this] { sync(); });
    connect(unit_, &QComboBox::currentIndexChanged, this, [this] { sync(); });
    connect(phospho_, &QCheckBox::toggled, this, [this] { sync(); });
}

void SequencePanel::sync() {
    tables_.tolerance = tolerance_->value();
    tables_.relative = unit_->currentIndex() == 1;
    tables_.phosphorylation = phospho_->isChecked();
}

void SequencePanel::set_match_type(int type) {
    const int i = type_->findData(type);
    if (i >= 0) type_->setCurrentIndex(i);
}

void SequencePanel::set_tolerance(double value, bool relative) {
    tolerance_->setValue(value);
    unit_->setCurrentIndex(relative ? 1 : 0);
    sync();
}

int SequencePanel::load() { return load(path_->text().toStdString()); }

int SequencePanel::load(const std::string& path) {
    path_->setText(QString::fromStdString(path));
    SequenceTables t;
    t.match_type = type_->currentData().toInt();
    t.c_term = CTERM[std::max(0, cterm_->checkedId())];
    t.n_term = NTERM[std::max(0, nterm_->checkedId())];
    tables_ = t;
    sync();
    loaded_ = false;
    if (path.empty()) {
        main_->ui().MessagePopup("Load Sequence File", "Choose a sequence file first.");
        status_->setText("No sequence in use.");
        return -1;
    }
    if (load_sequence_file(path, tables_, main_->ui()) < 0) {
        status_->setText("No sequence in use.");
        return -1;
    }
    loaded_ = true;
    status_->setText(QString("%1: %2 residues, protein mass %3")
                         .arg(QString::fromStdString(tables_.name))
                         .arg(tables_.residues.size())
                         .arg(tables_.protein_mass, 0, 'f', 4));
    return 0;
}

int SequencePanel::assign_table() {
    auto* thrash = main_->findChild<ThrashPanel*>("THRASH");
    if (thrash && thrash->running()) {
        main_->ui().MessagePopup("Sequence", "THRASH is running: stop it or let it finish first.");
        return -1;
    }
    if (!loaded_ || !thrash || thrash->model().rowCount() == 0) {
        main_->ui().MessagePopup("Sequence", loaded_ ? "Run THRASH first: there is no table to assign."
                                                     : "Load a sequence first.");
        return -1;
    }
    const Spectrum* s = thrash->spectrum();
    const double aterm = s ? s->Aterm : 1.0;
    thrash->set_rows(reassign_rows(thrash->model().rows(), &tables_, aterm));
    return thrash->model().rowCount();
}

SequencePanel* open_sequence(MainWindow* main) {
    auto* p = main->findChild<SequencePanel*>("SEQUENCE");
    if (!p) p = new SequencePanel(main);
    p->show();
    p->raise();
    return p;
}

const SequenceTables* loaded_sequence(MainWindow& main) {
    auto* p = main.findChild<SequencePanel*>("SEQUENCE");
    return p && p->loaded() ? &p->tables() : nullptr;
}

}  // namespace vx
