#include "ANALYZE.hpp"

#include <QDialog>
#include <QPushButton>

#include <algorithm>
#include <cmath>

#include "peaks/find_peaks.hpp"
#include "ui_ANALYZE.h"

namespace vx {

namespace {

void store_robust_noise(Settings& st, bool on) { st.robust_noise = on ? 1 : 0; }
bool load_robust_noise(const Settings& st, bool) { return st.robust_noise != 0; }

}  // namespace

void NotchTableModel::set_notches(const std::vector<std::pair<double, double>>& notches) {
    beginResetModel();
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < 2; ++c) {
            cells_[r][c].clear();
            if (r < static_cast<int>(notches.size())) {
                const auto& n = notches[static_cast<std::size_t>(r)];
                cells_[r][c] = QString::number(c == 0 ? n.first : n.second, 'f', 6);
            }
        }
    endResetModel();
}

std::vector<std::pair<double, double>> NotchTableModel::notches(int count) const {
    std::vector<std::pair<double, double>> out;
    for (int r = 0; r < count && r < rows; ++r) out.emplace_back(cells_[r][0].toDouble(), cells_[r][1].toDouble());
    return out;
}

int NotchTableModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : rows; }
int NotchTableModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : 2; }

QVariant NotchTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rows || index.column() >= 2) return {};
    if (role == Qt::DisplayRole || role == Qt::EditRole) return cells_[index.row()][index.column()];
    if (role == Qt::TextAlignmentRole) return int(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

bool NotchTableModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || role != Qt::EditRole || index.row() >= rows || index.column() >= 2) return false;
    cells_[index.row()][index.column()] = value.toString().trimmed();
    emit dataChanged(index, index, {Qt::DisplayRole, Qt::EditRole});
    return true;
}

Qt::ItemFlags NotchTableModel::flags(const QModelIndex& index) const {
    return index.isValid() ? Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable : Qt::NoItemFlags;
}

QVariant NotchTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (role != Qt::DisplayRole) return {};
    if (orientation == Qt::Horizontal) return section == 0 ? QString("Low") : QString("High");
    return section + 1;
}

AnalyzePanel::AnalyzePanel(QWidget* parent)
    : QObject(parent), dialog_(new QDialog(parent)), form_(std::make_unique<Ui_ANALYZE>()),
      notches_(new NotchTableModel(this)) {
    form_->setupUi(dialog_);
    form_->notches->setModel(notches_);
    Ui_ANALYZE& f = *form_;
    connect(f.limits, &QPushButton::clicked, this, [this] {
        if (on_limits) on_limits();
    });
    connect(f.find_sn, &QPushButton::clicked, this, [this] {
        if (on_find) on_find(true);
    });
    connect(f.find_abundance, &QPushButton::clicked, this, [this] {
        if (on_find) on_find(false);
    });
    connect(f.done, &QPushButton::clicked, dialog_, &QDialog::hide);
    connect(f.global_noise, &QCheckBox::toggled, this, [this](bool on) {
        // One estimate for the whole range: its window is the range itself.
        Ui_ANALYZE& a = *form_;
        if (on) a.noise_window->setValue(std::fabs(a.high_mass->value() - a.low_mass->value()));
        a.noise_window->setVisible(!on);
        a.label_7->setVisible(!on);
    });
}

AnalyzePanel::~AnalyzePanel() = default;

void AnalyzePanel::set_limits(double a, double b) {
    form_->low_mass->setValue(std::min(a, b));
    form_->high_mass->setValue(std::max(a, b));
}

bool AnalyzePanel::hide_on_run() const { return form_->hide_on_run->isChecked(); }
bool AnalyzePanel::robust_noise() const { return form_->robust_noise->isChecked(); }
void AnalyzePanel::set_robust_noise(bool on) { form_->robust_noise->setChecked(on); }

void AnalyzePanel::fill(const Settings& st) {
    Ui_ANALYZE& f = *form_;
    f.low_mass->setValue(st.low_mass);
    f.high_mass->setValue(st.high_mass);
    f.min_peak_width->setValue(st.min_peak_width);
    f.peak_threshold->setValue(st.peak_threshold);
    f.noise_threshold->setValue(st.noise_threshold);
    f.abundance_scale->setValue(st.abundance_scale);
    f.peak_sigma_factor->setValue(st.peak_sigma_factor);
    f.noise_window->setValue(st.noise_window);
    f.noise_sigma_factor->setValue(st.noise_sigma_factor);
    f.percent_thresholds->setChecked(st.percent_thresholds != 0);
    f.global_noise->setChecked(st.global_noise != 0);
    f.notches_on->setChecked(st.notches_on != 0);
    f.robust_noise->setChecked(load_robust_noise(st, f.robust_noise->isChecked()));
    const PeakDecimals d = peak_decimals(st);
    f.dec_mz->setValue(d.mz);
    f.dec_frequency->setValue(d.frequency);
    f.dec_abundance->setValue(d.abundance);
    f.dec_other->setValue(d.other);
    f.notch_count->setValue(static_cast<int>(st.notches.size()));
    notches_->set_notches(st.notches);
}

void AnalyzePanel::read(Settings& st) const {
    const Ui_ANALYZE& f = *form_;
    st.low_mass = f.low_mass->value();
    st.high_mass = f.high_mass->value();
    st.min_peak_width = f.min_peak_width->value();
    st.peak_threshold = f.peak_threshold->value();
    st.noise_threshold = f.noise_threshold->value();
    st.abundance_scale = f.abundance_scale->value();
    st.peak_sigma_factor = f.peak_sigma_factor->value();
    st.noise_window = f.noise_window->value();
    st.noise_sigma_factor = f.noise_sigma_factor->value();
    st.percent_thresholds = f.percent_thresholds->isChecked() ? 1 : 0;
    st.global_noise = f.global_noise->isChecked() ? 1 : 0;
    st.notches_on = f.notches_on->isChecked() ? 1 : 0;
    store_robust_noise(st, f.robust_noise->isChecked());
    st.PEAKMZ = f.dec_mz->value();
    st.peak_decimals_3 = f.dec_frequency->value();
    st.PEAKABUN = f.dec_abundance->value();
    st.peak_decimals_2 = f.dec_other->value();
    st.notches = notches_->notches(f.notch_count->value());
}

}  // namespace vx
