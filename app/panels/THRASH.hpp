// THRASH SETUP with its live progress (THRASHWINDOW: the scan's place and the
// clusters so far, and a stop button) and the "THRASH Table" of the clusters
// found, one row per assignment; a row opens its cluster with the model.
#pragma once

#include <QAbstractTableModel>
#include <QDialog>

#include <atomic>
#include <string>
#include <vector>

#include "thrash/thrash.hpp"

class QDoubleSpinBox;
class QSpinBox;
class QComboBox;
class QLabel;
class QPushButton;
class QTableView;
class QCustomPlot;

namespace vx {

class MainWindow;

// The ten columns of the table; continuation rows leave 2 to 6 empty and keep
// the number of their cluster.
class ThrashTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    using QAbstractTableModel::QAbstractTableModel;
    void set(std::vector<ThrashPeak> rows);
    const std::vector<ThrashPeak>& rows() const { return rows_; }
    int rowCount(const QModelIndex& = {}) const override { return static_cast<int>(rows_.size()); }
    int columnCount(const QModelIndex& = {}) const override { return 10; }
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation o, int role) const override;
    // The row that heads the cluster of a row (continuation rows step back).
    int head_row(int row) const;

private:
    std::vector<ThrashPeak> rows_;
    std::vector<int> numbers_;
};

class ThrashPanel : public QDialog {
    Q_OBJECT
public:
    explicit ThrashPanel(MainWindow* main);
    // Runs the scan on the active data set; 0, or -1 after a message.
    int run();
    void stop() { stop_ = true; }
    const ThrashTableModel& model() const { return *model_; }
    // plot_peak: the cluster of a row with its model.
    void plot_peak(int row);
    // A scan is under way (on the worker): the spectrum's working copy is in use.
    bool running() const { return running_; }
    // The setup's controls as scan parameters (the loaded sequence included).
    ThrashParams params() const;
    // The table replaced (a sequence assigned afterwards).
    void set_rows(std::vector<ThrashPeak> rows) { model_->set(std::move(rows)); }
    // The spectrum the table was found in, or nullptr.
    const Spectrum* spectrum() const;
    // "Save Peaklist": the .pkl (asked for when empty), then printed.
    int save_peaklist(const std::string& path = {}, const std::string& pdf = {});

private:
    MainWindow* main_;
    QDoubleSpinBox *low_, *high_, *min_rl_, *min_sn_;
    QSpinBox* max_charge_;
    QComboBox* sample_type_;
    QPushButton *run_, *stop_button_, *sequence_, *save_;
    QLabel *progress_, *info_;
    ThrashTableModel* model_;
    QTableView* table_;
    QCustomPlot* plot_;
    std::atomic<bool> stop_{false};
    int slot_ = -1;
    bool running_ = false;
};

ThrashPanel* open_thrash(MainWindow* main);

}  // namespace vx
