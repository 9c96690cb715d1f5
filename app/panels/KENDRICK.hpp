// The Kendrick views: nominal Kendrick mass against Kendrick mass defect for
// the odd and even arrays (points clickable to the peak and its formula), the
// table of every peak with its series, rank and formula, the search box and
// the export.
#pragma once

#include <QAbstractTableModel>
#include <QDialog>

#include "composition/commands.hpp"

class QCustomPlot;
class QLabel;
class QLineEdit;
class QTableView;
class QMouseEvent;

namespace vx {

class MainWindow;

class KendrickRowModel : public QAbstractTableModel {
    Q_OBJECT
public:
    using QAbstractTableModel::QAbstractTableModel;
    void set(std::vector<KendrickRow> rows);
    const std::vector<KendrickRow>& rows() const { return rows_; }
    int rowCount(const QModelIndex& = {}) const override { return static_cast<int>(rows_.size()); }
    int columnCount(const QModelIndex& = {}) const override { return 11; }
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation o, int role) const override;

private:
    std::vector<KendrickRow> rows_;
};

class KendrickPanel : public QDialog {
    Q_OBJECT
public:
    explicit KendrickPanel(MainWindow* main);
    // Kendrick series of the active data set; 0 or -1.
    int calculate();
    // The multi-peak calculator's assignment over the same arrays; 0 or -1.
    int assign(const FormulaSettings& settings, int repair_minimum, AssignSummary* summary);
    // Selects a row of the table and marks its point.
    void select_row(int row);
    // Writes the assignment table (CSV); 0 or -1 after a message.
    int save(const std::string& path);
    const KendrickRowModel& model() const { return *model_; }

private:
    void refresh();
    void on_click(QMouseEvent* e);
    void find_next();
    MainWindow* main_;
    QCustomPlot* plot_;
    KendrickRowModel* model_;
    QTableView* table_;
    QLabel* info_;
    QLineEdit* search_;
    QLineEdit* base_;
    int last_hit_ = -1;
    KendrickTables tables_;
    FormulaSettings settings_;
    int slot_ = -1;  // slot the arrays belong to
};

KendrickPanel* open_kendrick(MainWindow* main);

}  // namespace vx
