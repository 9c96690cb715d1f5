#include "CALIBRATE.hpp"

#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDoubleValidator>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

#include <cmath>

#include "WALKCALRECALL.hpp"
#include "calibration/calibration_commands.hpp"
#include "main_window.hpp"
#include "qt_ui.hpp"

namespace vx {

// ---------------------------------------------------------------- table model

int CalTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(panel_.rows.size());
}
int CalTableModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : CAL_COLUMNS; }

QVariant CalTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || static_cast<std::size_t>(index.row()) >= panel_.rows.size()) return {};
    if (role == Qt::TextAlignmentRole) return QVariant(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole) return {};
    const CalTableRow& r = panel_.rows[static_cast<std::size_t>(index.row())];
    // Precision as the table has always shown it: 7 decimals, 16 for the
    // walking laws and masses whose agreement is checked at 1e-15.
    switch (index.column()) {
        case 0: return r.number;
        case 1: return QString::number(r.frequency, 'f', 7);
        case 2: return QString::number(r.theoretical, 'f', 7);
        case 3: return QString::number(r.measured, 'f', 7);
        case 4: return QString::number(r.error, 'f', 7);
        case 5: return QString::number(r.abundance, 'f', 7);
        case 6: return QString::number(r.relabundance, 'f', 7);
        case 7: return QString::number(r.sn, 'f', 7);
        case 8: return QString::number(r.calmz1, 'f', 16);
        case 9: return QString::number(r.calmz2, 'f', 16);
        case 10: return QString::number(r.ppq, 'f', 7);
        case 11: return QString::number(r.recalA, 'f', 16);
        default: return QString::number(r.recalB, 'f', 16);
    }
}

QVariant CalTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (role != Qt::DisplayRole) return {};
    if (orientation == Qt::Vertical) return section + 1;
    return section >= 0 && section < CAL_COLUMNS ? QString(CAL_COLUMN_HEADINGS[section]) : QString();
}

void CalTableModel::sort(int column, Qt::SortOrder order) {
    beginResetModel();
    sort_cal_table(panel_, column, order == Qt::AscendingOrder);
    endResetModel();
}

void CalTableModel::refresh() {
    beginResetModel();
    endResetModel();
}

// ---------------------------------------------------------------- panel

namespace {

QLineEdit* number_field(QWidget* parent) {
    auto* e = new QLineEdit(parent);
    auto* v = new QDoubleValidator(e);
    v->setNotation(QDoubleValidator::ScientificNotation);
    e->setValidator(v);
    return e;
}

QString shown(double v, int decimals = 6) { return QString::number(v, 'f', decimals); }

}  // namespace

CalibrateDialog::CalibrateDialog(MainWindow* main) : QDialog(main), main_(main) {
    setWindowTitle("Calibration");
    setObjectName("CALIBRATE");
    auto* layout = new QVBoxLayout(this);

    model_ = new CalTableModel(panel_, this);
    view_ = new QTableView(this);
    view_->setObjectName("CALTABLE");
    view_->setModel(model_);
    view_->setSortingEnabled(true);
    view_->setSelectionBehavior(QAbstractItemView::SelectRows);
    view_->setSelectionMode(QAbstractItemView::SingleSelection);
    view_->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    layout->addWidget(view_, 1);

    auto* fields = new QGridLayout;
    a_ = number_field(this);
    b_ = number_field(this);
    field_ = number_field(this);
    trap_ = number_field(this);
    theoretical_ = number_field(this);
    rms_ = new QLabel(this);
    points_ = new QLabel(this);
    walking_ = new QCheckBox("Walking Calibration", this);
    terms_ = new QComboBox(this);
    terms_->addItems({"2 terms", "3 terms"});
    int row = 0;
    auto add = [&](const char* label, QWidget* w, int col) { fields->addWidget(new QLabel(label), row, col); fields->addWidget(w, row, col + 1); };
    add("A", a_, 0);
    add("Magnetic Field", field_, 2);
    ++row;
    add("B", b_, 0);
    add("Trap Plates", trap_, 2);
    ++row;
    add("RMS Error", rms_, 0);
    add("Calibration Points", points_, 2);
    ++row;
    add("Theoretical", theoretical_, 0);
    fields->addWidget(walking_, row, 2);
    fields->addWidget(terms_, row, 3);
    layout->addLayout(fields);

    auto* buttons = new QGridLayout;
    auto button = [&](const QString& text, int r, int c, auto slot) {
        auto* b = new QPushButton(text, this);
        buttons->addWidget(b, r, c);
        connect(b, &QPushButton::clicked, this, slot);
        return b;
    };
    button("&Calibrate", 0, 0, [this] { calibrate(); });
    apply_ = button("Apply", 0, 1, [this] { apply(); });
    button("Calibrate &Ref File", 0, 2, [this] { ref_file(); });
    recal_ = button("Recal file", 0, 3, [this] { recal_file(); });
    recal_multi_ = button("Recal Multi Files", 0, 4, [this] { recal_multi(); });
    button("Save Reference...", 1, 0, [this] { save_reference(); });
    button("Save CSV...", 1, 1, [this] { save_csv(); });
    button("Walking CSV", 1, 2, [this] { walking_csv(); });
    button("Walking Recall", 1, 3, [this] { walking_recall(); });
    button("Match Walking", 1, 4, [this] { walking_match(); });
    button("Delete", 2, 0, [this] { delete_row(); });
    button("Close", 2, 4, [this] { close_panel(); });
    layout->addLayout(buttons);

    for (QLineEdit* e : {a_, b_, field_, trap_, theoretical_})
        connect(e, &QLineEdit::editingFinished, this, [this, e] { fields_edited(e); });
    connect(walking_, &QCheckBox::toggled, this, [this](bool on) { panel_.WalkingOn = on; });
    connect(terms_, &QComboBox::currentIndexChanged, this, [this](int i) { panel_.WalkingTerms = i == 1 ? 3 : 2; });
    connect(view_->selectionModel(), &QItemSelectionModel::currentRowChanged, this, [this](const QModelIndex& i) {
        panel_.active_row = i.row();
        if (i.isValid() && static_cast<std::size_t>(i.row()) < panel_.rows.size())
            theoretical_->setText(shown(panel_.rows[static_cast<std::size_t>(i.row())].theoretical, 7));
    });
    resize(980, 520);
}

Spectrum* CalibrateDialog::spectrum() {
    Workspace& ws = main_->workspace();
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS) return nullptr;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(ws.active_panel)];
    return p.active ? &p.spectrum : nullptr;
}

void CalibrateDialog::show_for_active() {
    // An empty table starts from the spectrum's terms; a table in use keeps
    // the fields of its last fit.
    Spectrum* s = spectrum();
    if (s && panel_.rows.empty()) {
        panel_.CalA = s->Aterm;
        panel_.CalB = s->Bterm;
        panel_.MagneticField = s->Aterm * FIELD_PER_ATERM;
        panel_.TrapPlates = s->Trapvoltage;
    }
    refresh();
    show();
    raise();
}

void CalibrateDialog::refresh() {
    model_->refresh();
    a_->setText(shown(panel_.CalA));
    b_->setText(shown(panel_.CalB));
    field_->setText(shown(panel_.MagneticField, 9));
    trap_->setText(QString::number(panel_.TrapPlates, 'g', 10));
    rms_->setText(shown(panel_.RmsError) + " ppm");
    points_->setText(QString::number(panel_.CalPoints));
    walking_->setChecked(panel_.WalkingOn);
    terms_->setCurrentIndex(panel_.WalkingTerms == 3 ? 1 : 0);
    apply_->setEnabled(panel_.apply_enabled);
    recal_->setEnabled(panel_.recal_enabled);
    recal_multi_->setEnabled(panel_.recal_enabled);
}

void CalibrateDialog::redraw_spectrum() {
    if (GraphWindow* g = main_->active_graph()) g->redraw();
}

void CalibrateDialog::calibrate() {
    Spectrum* s = spectrum();
    if (!s) return;
    CalibrationCalculate(panel_, s->Trapvoltage, main_->ui());
    refresh();
}

void CalibrateDialog::apply() {
    Spectrum* s = spectrum();
    if (!s) return;
    if (ApplyCalibration(*s, panel_, 1, true, main_->ui()) == 0) {
        // The peak table and the plot show the new masses.
        main_->peaks_recalibrated();
        redraw_spectrum();
    }
    refresh();
}

int CalibrateDialog::take_checked(const std::vector<int>& checked) {
    Spectrum* s = spectrum();
    if (!s) return -1;
    const int rc = FillCalTableNew(panel_, *s, checked, true, main_->ui());
    show_for_active();
    return rc;
}

int CalibrateDialog::add_picks(std::span<const CalibrantPick> picks) {
    Spectrum* s = spectrum();
    if (!s) return -1;
    const int rc = add_calibrants_to_table(panel_, *s, picks, main_->ui());
    show_for_active();
    return rc;
}

int CalibrateDialog::quick_calibrate(const QuickCalRequest& request) {
    Spectrum* s = spectrum();
    if (!s) return -1;
    const int rc = FinishQuickCalNew(panel_, *s, request, tolerance_from_settings(main_->workspace().settings),
                                     main_->ui());
    if (rc == 0 && request.run_fit) {
        main_->peaks_recalibrated();
        redraw_spectrum();
    }
    show_for_active();
    return rc;
}

void CalibrateDialog::ref_file() {
    Spectrum* s = spectrum();
    if (!s) return;
    calibrate_ref_file_command(*s, panel_, tolerance_from_settings(main_->workspace().settings), main_->ui());
    refresh();
}

void CalibrateDialog::recal_file() {
    if (Spectrum* s = spectrum()) recal_file_command(*s, panel_, main_->ui());
}

void CalibrateDialog::recal_multi() { recal_multi_files_command(spectrum(), panel_, main_->ui()); }

void CalibrateDialog::save_reference() {
    // Our own overwrite question is asked by the writer, in the program's words.
    const QString path = QFileDialog::getSaveFileName(this, "Select a file to save the theoretical masses", {},
                                                      "*.ref", nullptr, QFileDialog::DontConfirmOverwrite);
    if (!path.isEmpty()) save_reference_from_table(path.toStdString(), panel_, main_->ui());
}

void CalibrateDialog::save_csv() {
    Spectrum* s = spectrum();
    const QString path = QFileDialog::getSaveFileName(this, "Select a file to save the calibration table", {},
                                                      "*.csv", nullptr, QFileDialog::DontConfirmOverwrite);
    if (!path.isEmpty()) SaveCalibrationCsv(path.toStdString(), panel_, s ? *s : Spectrum{}, main_->ui());
}

void CalibrateDialog::walking_csv() {
    if (Spectrum* s = spectrum()) SaveWalkingCalasCSV(*s, "", main_->ui());
}

void CalibrateDialog::walking_recall() {
    if (Spectrum* s = spectrum()) show_walking_recall_panel(this, *s, false);
}

void CalibrateDialog::walking_match() {
    Spectrum* s = spectrum();
    if (!s) return;
    std::vector<int> checked;
    WalkingCalMatch(*s, panel_, 100.0, checked, main_->ui());
    refresh();
}

void CalibrateDialog::delete_row() {
    const QModelIndex i = view_->currentIndex();
    if (i.isValid() && delete_cal_row(panel_, i.row(), main_->ui())) refresh();
}

void CalibrateDialog::fields_edited(QLineEdit* which) {
    bool ok = false;
    const double v = which->text().toDouble(&ok);
    if (!ok) return refresh();
    if (which == a_ && v != panel_.CalA) {
        set_cal_a(panel_, v);
    } else if (which == b_ && v != panel_.CalB) {
        panel_.CalB = v;
        panel_.apply_enabled = panel_.recal_enabled = true;
    } else if (which == field_ && v != panel_.MagneticField) {
        set_magnetic_field(panel_, v);
    } else if (which == trap_ && v != panel_.TrapPlates) {
        if (Spectrum* s = spectrum()) set_trap_plates(panel_, *s, v, main_->ui());
    } else if (which == theoretical_) {
        set_current_theoretical(panel_, v);
    } else {
        return;
    }
    refresh();
}

void CalibrateDialog::close_panel() {
    panel_.rows.clear();
    panel_.CalPoints = 0;
    panel_.recal_enabled = true;
    refresh();
    hide();
}

void CalibrateDialog::closeEvent(QCloseEvent* event) {
    close_panel();
    event->accept();
}

CalibrateDialog* calibrate_panel(MainWindow* main) {
    // One panel for the main window, made on first use.
    auto* panel = main->findChild<CalibrateDialog*>("CALIBRATE", Qt::FindDirectChildrenOnly);
    return panel ? panel : new CalibrateDialog(main);
}

void show_calibrate_panel(MainWindow* main) { calibrate_panel(main)->show_for_active(); }

void calibrate_checked_peaks(MainWindow* main, const std::vector<int>& checked) {
    calibrate_panel(main)->take_checked(checked);
}

int add_to_calibration(MainWindow* main, std::span<const CalibrantPick> picks) {
    return calibrate_panel(main)->add_picks(picks);
}

int quick_calibrate_from_series(MainWindow* main, const QuickCalRequest& request) {
    return calibrate_panel(main)->quick_calibrate(request);
}

}  // namespace vx
