// The Kendrick views: nominal Kendrick mass against Kendrick mass defect for
// the odd and even arrays (points clickable to the peak and its formula), the
// table of every peak with its series, rank and formula, the search box and
// the export.
#pragma once

#include <QAbstractTableModel>
#include <QDialog>

#include "composition/commands.hpp"

class QCustomPlot;
class QSpinBox;
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
    // SaveKendrick, "Print Peaks To File": the text export; 0 or -1.
    int save_text(const std::string& path, KendrickSaveKind kind);
    const KendrickRowModel& model() const { return *model_; }
    // The record the arrays belong to, or null when its slot has closed.
    Spectrum* spectrum();
    // Rows and plot again from the arrays.
    void refresh();
    // CheckFormulaCallback: the single-mass calculator on the row's peak.
    void check_formula(int row);
    // FixNoHitManualCallback: the next series of at least the minimum members
    // without a formula, after the selected row, selected and opened in the
    // calculator; false when none is left (the loop ends).
    bool fix_next_no_hit();
    // FixNoHitAutoCallback: every such series searched again and given the
    // lowest-score candidate. The number repaired, or -1.
    int fix_no_hits_auto();
    // A pick of the calculator was applied: redraw and, inside the manual
    // loop, go on to the next series.
    void picked();
    // AddKendrickSeries_callback / RecalKendrick_callback on the selected row.
    int add_series_to_calibration(bool recal);
    int selected_row() const;

private:
    void on_click(QMouseEvent* e);
    void find_next();
    MainWindow* main_;
    QCustomPlot* plot_;
    KendrickRowModel* model_;
    QTableView* table_;
    QLabel* info_;
    QLineEdit* search_;
    QLineEdit* base_;
    QSpinBox* min_members_;
    int last_hit_ = -1;
    bool fixing_ = false;   // inside the manual no-hit loop
    bool assigned_ = false; // settings_ are those of an assignment
    KendrickTables tables_;
    FormulaSettings settings_;
    int slot_ = -1;  // slot the arrays belong to
};

KendrickPanel* open_kendrick(MainWindow* main);

}  // namespace vx
