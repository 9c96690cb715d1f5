// "Find Peak Options": the analysis panel. It shows the search settings, reads
// them back before a search and hands its buttons to the main window, which
// runs the core's search on the active slot.
#pragma once

#include <QAbstractTableModel>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "workspace/settings.hpp"

class QDialog;
class QWidget;
class Ui_ANALYZE;

namespace vx {

// The notch table: eight rows of low and high m/z the search leaves out,
// edited in place. Cells keep the text typed; a cell that is not a number
// counts as 0, as the search has always read it.
class NotchTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    static constexpr int rows = 8;
    using QAbstractTableModel::QAbstractTableModel;

    void set_notches(const std::vector<std::pair<double, double>>& notches);
    // The first count rows as (low, high).
    std::vector<std::pair<double, double>> notches(int count) const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    QString cells_[rows][2];
};

class AnalyzePanel : public QObject {
    Q_OBJECT
public:
    explicit AnalyzePanel(QWidget* parent);
    ~AnalyzePanel() override;

    // Controls from the settings, and the settings from the controls.
    void fill(const Settings& settings);
    void read(Settings& settings) const;
    // The m/z limits, lower first.
    void set_limits(double a, double b);
    bool hide_on_run() const;
    // The "Robust noise" box (also settable by tests and the screenshot run).
    bool robust_noise() const;
    void set_robust_noise(bool on);

    QDialog* dialog() const { return dialog_; }
    Ui_ANALYZE& form() { return *form_; }
    NotchTableModel& notch_model() { return *notches_; }

    // "Limits from Cursors" pressed.
    std::function<void()> on_limits;
    // One of the two find buttons pressed (by_sn: the S/N one).
    std::function<void(bool by_sn)> on_find;

private:
    QDialog* dialog_;
    std::unique_ptr<Ui_ANALYZE> form_;
    NotchTableModel* notches_;
};

}  // namespace vx
