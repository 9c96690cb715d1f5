// The petroleum table window: processed data, class, DBE number, carbon number
// and Kendrick tabs over the assigned arrays of the active data set, the class
// filter, and the three error plots with their saves.
#pragma once

#include <QAbstractTableModel>
#include <QDialog>
#include <QStringList>

#include "composition/petro_classes.hpp"

class QCheckBox;
class QComboBox;
class QCustomPlot;
class QLabel;
class QSpinBox;
class QTabWidget;
class QTableView;

namespace vx {

class MainWindow;

// Rows of one tab, with the dividers the tables put between classes.
class PetroTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum RowKind { Plain, Divider, ClassDivider };
    struct Row {
        QStringList cells;
        RowKind kind = Plain;
        int bold_column = -1;  // share cells in bold
    };
    using QAbstractTableModel::QAbstractTableModel;
    void set(QStringList heads, std::vector<Row> rows);
    const std::vector<Row>& rows() const { return rows_; }
    int rowCount(const QModelIndex& = {}) const override { return static_cast<int>(rows_.size()); }
    int columnCount(const QModelIndex& = {}) const override { return static_cast<int>(heads_.size()); }
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation o, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    QStringList heads_;
    std::vector<Row> rows_;
};

// Row heights of the dividers: 12 between DBE steps, 25 between classes.
inline constexpr int DIVIDER_HEIGHT = 12;
inline constexpr int CLASS_DIVIDER_HEIGHT = 25;

// The tab contents of a summary, dividers inserted where the class (or, in the
// processed tab, the DBE within a class) changes.
std::vector<PetroTableModel::Row> processed_tab_rows(const PetroSummary& s);
std::vector<PetroTableModel::Row> class_tab_rows(const PetroSummary& s);

class PetroPanel : public QDialog {
    Q_OBJECT
public:
    explicit PetroPanel(MainWindow* main);
    // ProcessPetro_Callback: the four summaries of the active data set; 0 or -1.
    int process();
    // The error tables through "Pick a file to save results"; 0 or -1.
    int save_mass_error();
    int save_sn_error();
    // All plots of the summary into a folder, PNG and SVG (as `classes
    // --plots png,svg` writes them); 0 or -1.
    int save_plots(const std::string& folder);
    // The class bars, DBE vs carbon number, van Krevelen and Kendrick plots.
    QCustomPlot* summary_plot(int i) const { return summary_plots_[i]; }
    QCustomPlot* error_plot(int i) const { return plots_[i]; }
    const PetroSummary& summary() const { return summary_; }
    QTabWidget* tabs() const { return tabs_; }

private:
    void fill();
    void plot_errors();
    void plot_summary();
    MainWindow* main_;
    PetroSummary summary_;
    QTabWidget* tabs_;
    PetroTableModel* models_[5];
    QTableView* views_[5];
    QCustomPlot* plots_[3];
    QCustomPlot* summary_plots_[4];
    QComboBox* dbe_class_;
    QSpinBox* limits_[6];
    QCheckBox* vanadium_;
    QCheckBox* nickel_;
    QLabel* info_;
};

PetroPanel* open_petro(MainWindow* main);

}  // namespace vx
