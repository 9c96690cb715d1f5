// The peak table of the last search: a model over the rows the core filled,
// and the panel that shows it with the largest sample and "Print Peaks To File".
#pragma once

#include <QAbstractTableModel>
#include <QObject>

#include <functional>
#include <memory>

#include "peaks/find_peaks.hpp"

class QDialog;
class QWidget;
class Ui_PEAKLIST2;

namespace vx {

// The seven visible columns of the peak table, formatted by the core's
// peak_table_fields with the decimals of the settings.
class PeakTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    using QAbstractTableModel::QAbstractTableModel;

    // Takes a copy of the rows, so the model never points into a table the
    // next search is rewriting.
    void set_rows(const std::vector<PeakTableRow>& rows, const PeakDecimals& decimals);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    // The first column carries a check box: the peaks to calibrate on.
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    // 0-based indices into the spectrum's peaks of the checked rows.
    std::vector<int> checked_peaks() const;
    const std::vector<PeakTableRow>& rows() const { return rows_; }

private:
    std::vector<PeakTableRow> rows_;
    std::vector<char> checked_;
    PeakDecimals decimals_;
};

class PeakListPanel : public QObject {
    Q_OBJECT
public:
    explicit PeakListPanel(QWidget* parent);
    ~PeakListPanel() override;

    // Shows the table (or hides the panel when no search has filled it).
    void show_table(const PeakTable& table, const PeakDecimals& decimals);
    QDialog* dialog() const { return dialog_; }
    const PeakTableModel& model() const { return *model_; }
    PeakTableModel& model() { return *model_; }

    // "Print Peaks To File" pressed.
    std::function<void()> on_print;
    // "Calibrate Checked" pressed, with the checked peaks (0-based).
    std::function<void(const std::vector<int>&)> on_calibrate;

private:
    QDialog* dialog_;
    std::unique_ptr<Ui_PEAKLIST2> form_;
    PeakTableModel* model_;
};

}  // namespace vx
