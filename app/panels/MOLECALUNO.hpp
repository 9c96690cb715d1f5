// The single-mass Formula Calculator: every composition of one m/z within the
// tolerance, in a table sorted by error.
#pragma once

#include <QAbstractTableModel>
#include <QDialog>

#include "composition/commands.hpp"
#include "composition/formula.hpp"

class QCheckBox;
class QDoubleSpinBox;
class QLabel;
class QPushButton;
class QTableView;

namespace vx {

class MainWindow;
class FormulaSettingsForm;

class FormulaHitModel : public QAbstractTableModel {
    Q_OBJECT
public:
    using QAbstractTableModel::QAbstractTableModel;
    void set(std::vector<FormulaHit> hits, const FormulaSettings& settings);
    const std::vector<FormulaHit>& hits() const { return hits_; }
    int rowCount(const QModelIndex& = {}) const override { return static_cast<int>(hits_.size()); }
    int columnCount(const QModelIndex& = {}) const override { return 6; }
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation o, int role) const override;

private:
    std::vector<FormulaHit> hits_;
    FormulaSettings settings_;
};

class MolecalunoPanel : public QDialog {
    Q_OBJECT
public:
    explicit MolecalunoPanel(MainWindow* main);
    // Searches the m/z of the MZ control; the number of hits or -1.
    int calculate();
    void set_mz(double mz);
    // CheckFormulaCallback: opened on a peak of the Kendrick views; the pick
    // buttons assign to that peak's series.
    void open_on_peak(const SingleCalcTarget& target);
    // "Update Kendrick": the selected row's formula to the target's series;
    // the number of candidates or -1.
    int update_kendrick(int row);
    // "Assign No Hit": the target's series marked "No Hit"; 0 or -1.
    int assign_no_hit();
    const FormulaSettings settings() const;
    const FormulaHitModel& model() const { return *model_; }
    // The charge-mode click (set_charge2): 1 when the data set's polarity was flipped.
    int mode_clicked(ChargeMode mode);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    Spectrum* active_spectrum() const;
    void save_preferences();
    MainWindow* main_;
    FormulaSettingsForm* form_;
    QDoubleSpinBox* mz_;
    QCheckBox* save_elements_;
    QLabel* status_;
    FormulaHitModel* model_;
    QTableView* table_;
    QPushButton *update_, *no_hit_;
    SingleCalcTarget target_;
    bool on_peak_ = false;
};

// Opens (or raises) the panel of the main window; a new panel takes its page
// of the preferences and the polarity of the active data set.
MolecalunoPanel* open_molecaluno(MainWindow* main);

}  // namespace vx
