// The isotope pattern panel: a formula and a threshold, the pattern drawn as
// PlotFinal's profile, the peaks in a table, and the plot saved as PNG or SVG.
#pragma once

#include <QAbstractTableModel>
#include <QDialog>

#include "composition/isotopes.hpp"

class QCustomPlot;
class QLineEdit;
class QTableView;

namespace vx {

class MainWindow;

class IsoPeakModel : public QAbstractTableModel {
    Q_OBJECT
public:
    using QAbstractTableModel::QAbstractTableModel;
    void set(std::vector<IsoFinal> peaks);
    int rowCount(const QModelIndex& = {}) const override { return static_cast<int>(peaks_.size()); }
    int columnCount(const QModelIndex& = {}) const override { return 6; }
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation o, int role) const override;

private:
    std::vector<IsoFinal> peaks_;
    double top_ = 0.0;
};

class IsoPatternPanel : public QDialog {
    Q_OBJECT
public:
    explicit IsoPatternPanel(MainWindow* main);
    // Calculates and draws the pattern of the formula; 0 or -1 after a message.
    int calculate(const QString& formula, double threshold);
    // Saves the plot: PNG by its extension, otherwise SVG. 0 or -1.
    int save_plot(const QString& path);
    const IsotopePattern& pattern() const { return pattern_; }

private:
    MainWindow* main_;
    IsotopePattern pattern_;
    QLineEdit* formula_;
    QLineEdit* threshold_;
    QCustomPlot* plot_;
    IsoPeakModel* model_;
    QTableView* table_;
};

IsoPatternPanel* open_isopattern(MainWindow* main);

}  // namespace vx
