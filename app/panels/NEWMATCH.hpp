// The new-match panel ("Newmatch..."): a cluster fitted with the charge the
// user chooses (newmatch) between two m/z, for a cluster THRASH gave the wrong
// charge or left out; the lines and the model as in "Mass Determination".
#pragma once

#include <QDialog>

#include "thrash/mass_determination.hpp"

class QCustomPlot;
class QDoubleSpinBox;
class QPlainTextEdit;
class QPushButton;
class QSpinBox;

namespace vx {

class MainWindow;

class NewmatchPanel : public QDialog {
    Q_OBJECT
public:
    explicit NewmatchPanel(MainWindow* main);
    // The fit with the panel's charge and masses: 0, or -1 after a message.
    int match();
    // Fills the masses from cursors 1 and 2 of the active graph.
    void take_cursors();
    void set_range(double low_mz, double high_mz, int charge);
    const MassDetermination& result() const { return result_; }
    QString text() const;

private:
    MainWindow* main_;
    QSpinBox* charge_;
    QDoubleSpinBox *low_, *high_;
    QPushButton* match_;
    QPlainTextEdit* lines_;
    QCustomPlot* plot_;
    MassDetermination result_;
};

NewmatchPanel* open_newmatch(MainWindow* main);

}  // namespace vx
