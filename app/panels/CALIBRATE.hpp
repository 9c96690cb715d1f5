// The CALIBRATE panel: the calibration table (13 columns, sortable, rows
// deletable) with the fields around it and the buttons that fit, apply,
// calibrate from a reference file, recalibrate files, save the reference
// masses and export CSV. The slots gather the controls, call the core
// functions of src/calibration and redraw; the table is a Qt model over the
// core's CalibrationPanel record.
#pragma once

#include <QAbstractTableModel>
#include <QDialog>

#include "calibration/calibration.hpp"
#include "calibration/quick_cal.hpp"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableView;

namespace vx {

class MainWindow;

class CalTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    explicit CalTableModel(CalibrationPanel& panel, QObject* parent = nullptr) : QAbstractTableModel(parent), panel_(panel) {}
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    void sort(int column, Qt::SortOrder order) override;
    // The record changed underneath: show it again.
    void refresh();

private:
    CalibrationPanel& panel_;
};

class CalibrateDialog : public QDialog {
    Q_OBJECT
public:
    explicit CalibrateDialog(MainWindow* main);
    // Shows the panel for the active data set, the fields from its spectrum.
    void show_for_active();
    CalibrationPanel& panel() { return panel_; }
    // The checked peaks of the peak table become the table (their calibrant
    // masses kept). Returns FillCalTableNew's result.
    int take_checked(const std::vector<int>& checked);
    // Peaks picked elsewhere (formula lists, series) join the table.
    int add_picks(std::span<const CalibrantPick> picks);
    // Quick calibration from a homologous series (FinishQuickCalNew).
    int quick_calibrate(const QuickCalRequest& request);
    // The buttons, for the panel's slots and for tests driving it.
    void calibrate();
    void apply();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    Spectrum* spectrum();  // the active slot's record, or null
    void refresh();        // fields and table from panel_
    void ref_file();
    void recal_file();
    void recal_multi();
    void save_reference();
    void save_csv();
    void walking_csv();
    void walking_recall();
    void walking_match();
    void delete_row();
    void fields_edited(QLineEdit* which);
    void close_panel();
    void redraw_spectrum();

    MainWindow* main_;
    CalibrationPanel panel_;
    CalTableModel* model_;
    QTableView* view_;
    QLineEdit *a_, *b_, *field_, *trap_, *theoretical_;
    QLabel *rms_, *points_;
    QCheckBox* walking_;
    QComboBox* terms_;
    QPushButton *apply_, *recal_, *recal_multi_;
};

// The panel of the main window (made on first use) shown for the active data set.
void show_calibrate_panel(MainWindow* main);
CalibrateDialog* calibrate_panel(MainWindow* main);
// The peak table's "Calibrate Checked": the checked peaks into the table.
void calibrate_checked_peaks(MainWindow* main, const std::vector<int>& checked);
// For other panels' "add to calibration": the picks join the table, which is shown.
int add_to_calibration(MainWindow* main, std::span<const CalibrantPick> picks);
// For the Kendrick panel's quick calibration: FinishQuickCalNew on the active
// spectrum, the peak table and the plot redrawn, the panel shown.
int quick_calibrate_from_series(MainWindow* main, const QuickCalRequest& request);

}  // namespace vx
