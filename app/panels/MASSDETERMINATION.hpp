// "Mass Determination": Mass on the cluster between graph cursors 1 and 2 of
// the active spectrum; the panel shows the lines of the fit (charge, m/z,
// masses, RL, assignment) and the data with the fitted model.
#pragma once

#include <QDialog>

#include "thrash/mass_determination.hpp"

class QCustomPlot;
class QLabel;
class QPlainTextEdit;

namespace vx {

class MainWindow;
struct Spectrum;

// The lines into text, the data about the cluster and the model into plot
// (shared with the new-match panel).
void show_cluster_fit(QCustomPlot* plot, QPlainTextEdit* text, const Spectrum* s, const MassDetermination& m);

// The THRASH parameters the single-cluster panels use: those of THRASH SETUP
// when it is open, the loaded sequence when there is one.
ThrashParams thrash_panel_params(MainWindow& main);

// The spectrum of the active slot in m/z, or nullptr after a message.
Spectrum* thrash_active_spectrum(MainWindow& main, const char* title);

class MassDeterminationPanel : public QDialog {
    Q_OBJECT
public:
    explicit MassDeterminationPanel(MainWindow* main);
    // Mass between two m/z of the active spectrum: 0, or -1 after a message.
    int determine(double low_mz, double high_mz);
    const MassDetermination& result() const { return result_; }
    QString text() const;

private:
    MainWindow* main_;
    QPlainTextEdit* lines_;
    QCustomPlot* plot_;
    MassDetermination result_;
};

// The menu command: the panel, run on cursors 1 and 2 of the active graph.
MassDeterminationPanel* open_mass_determination(MainWindow* main);

}  // namespace vx
