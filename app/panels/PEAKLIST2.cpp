#include "PEAKLIST2.hpp"

#include <QDialog>
#include <QHeaderView>
#include <QPushButton>

#include "ui_PEAKLIST2.h"

namespace vx {

namespace {
const char* const column_titles[7] = {"#", "m/z", "Frequency", "Percent", "Abundance", "Resolving Power", "S/N"};
}

void PeakTableModel::set_rows(const std::vector<PeakTableRow>& rows, const PeakDecimals& decimals) {
    beginResetModel();
    // The checks stay with their rows while the list is the same one (the
    // table redrawn after a calibration); a new search starts unchecked.
    bool same = rows.size() == rows_.size();
    for (std::size_t i = 0; same && i < rows.size(); ++i)
        same = rows[i].number == rows_[i].number && rows[i].frequency == rows_[i].frequency;
    if (!same) checked_.assign(rows.size(), 0);
    rows_ = rows;
    decimals_ = decimals;
    endResetModel();
}

Qt::ItemFlags PeakTableModel::flags(const QModelIndex& index) const {
    Qt::ItemFlags f = QAbstractTableModel::flags(index);
    if (index.isValid() && index.column() == 0) f |= Qt::ItemIsUserCheckable;
    return f;
}

bool PeakTableModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || index.column() != 0 || role != Qt::CheckStateRole ||
        static_cast<std::size_t>(index.row()) >= checked_.size())
        return false;
    checked_[static_cast<std::size_t>(index.row())] = value.toInt() == Qt::Checked;
    emit dataChanged(index, index, {Qt::CheckStateRole});
    return true;
}

std::vector<int> PeakTableModel::checked_peaks() const {
    std::vector<int> v;
    for (std::size_t i = 0; i < rows_.size(); ++i)
        if (checked_[i]) v.push_back(rows_[i].number - 1);
    return v;
}

int PeakTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int PeakTableModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : 7; }

QVariant PeakTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= static_cast<int>(rows_.size()) || index.column() >= 7) return {};
    if (role == Qt::TextAlignmentRole) return int(Qt::AlignRight | Qt::AlignVCenter);
    if (role == Qt::CheckStateRole && index.column() == 0)
        return checked_[static_cast<std::size_t>(index.row())] ? Qt::Checked : Qt::Unchecked;
    if (role != Qt::DisplayRole) return {};
    // Formatting a row is cheap next to drawing it; only visible rows are asked for.
    const auto fields = peak_table_fields(rows_[static_cast<std::size_t>(index.row())], decimals_);
    return QString::fromStdString(fields[static_cast<std::size_t>(index.column())]);
}

QVariant PeakTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (role != Qt::DisplayRole) return {};
    if (orientation == Qt::Horizontal) return section >= 0 && section < 7 ? QString(column_titles[section]) : QVariant();
    return section + 1;
}

PeakListPanel::PeakListPanel(QWidget* parent)
    : QObject(parent), dialog_(new QDialog(parent)), form_(std::make_unique<Ui_PEAKLIST2>()),
      model_(new PeakTableModel(this)) {
    form_->setupUi(dialog_);
    dialog_->resize(760, 420);
    form_->rows->setModel(model_);
    form_->rows->verticalHeader()->setVisible(false);
    connect(form_->done, &QPushButton::clicked, dialog_, &QDialog::hide);
    connect(form_->print, &QPushButton::clicked, this, [this] {
        if (on_print) on_print();
    });
    connect(form_->calibrate, &QPushButton::clicked, this, [this] {
        if (on_calibrate) on_calibrate(model_->checked_peaks());
    });
}

PeakListPanel::~PeakListPanel() = default;

void PeakListPanel::show_table(const PeakTable& table, const PeakDecimals& decimals) {
    if (!table.loaded) {
        dialog_->hide();
        return;
    }
    model_->set_rows(table.rows, decimals);
    form_->rows->resizeColumnsToContents();
    form_->status->setText(QString::fromStdString(table.status));
    form_->ymax->setText(QString::number(table.ymax, 'f', 2));
    dialog_->show();
    dialog_->raise();
}

}  // namespace vx
