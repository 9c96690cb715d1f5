// The single-mass Formula Calculator: every composition of one m/z within the
// tolerance, in a table sorted by error.
#pragma once

#include <QAbstractTableModel>
#include <QDialog>

#include "composition/formula.hpp"

class QDoubleSpinBox;
class QLabel;
class QTableView;

namespace vx {

class MainWindow;
class FormulaSettingsForm;

class FormulaHitModel : public QAbstractTableModel {
    Q_OBJECT
public:
    using QAbstractTableModel::QAbstractTableModel;
    void set(std::vector<FormulaHit> hits, const FormulaSettings& settings);
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

private:
    MainWindow* main_;
    FormulaSettingsForm* form_;
    QDoubleSpinBox* mz_;
    QLabel* status_;
    FormulaHitModel* model_;
    QTableView* table_;
};

// Opens (or raises) the panel of the main window.
MolecalunoPanel* open_molecaluno(MainWindow* main);

}  // namespace vx
