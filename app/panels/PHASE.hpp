// "Phasing the Data": the expert phasing panel. Its "Process Control" ring
// runs one of the four modes on the active transient (magnitude, absorption,
// complex division by a blank, transfer function of the blank), with the
// dispersion in its own window and "Show Phase" plotting the curve; its
// switches (background subtraction, auto zero, skipped points, "Simple",
// "I", "M", "B", "T", "T2", score range, zoom to the excitation) are those of
// PhasingCallback in src/phasing, which does the work; the panel gathers the
// controls and redraws. Every control carries the name of its resource
// constant as its object name (SIMPLE, INVERSE, SCORE_LO, ...).
#pragma once

#include <QDialog>

#include <string>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QSpinBox;

namespace vx {

class MainWindow;
struct PhaseProcessOptions;
struct PhasingPanelValues;

class PhaseDialog : public QDialog {
    Q_OBJECT
public:
    explicit PhaseDialog(MainWindow& main);
    // The options as the controls stand.
    PhaseProcessOptions options(bool extra_point) const;
    PhasingPanelValues values(bool extra_point) const;
    // GO (extra point on) / GO2 (off). Returns the run's result.
    int go(bool extra_point);
    // "Open Blank File...": the transient the division modes divide by.
    int open_blank(const std::string& path);
    // "Subtract Background File" toggled on: the background (excite) transient
    // in its own window; toggled off closes that window.
    int open_background(const std::string& path);
    void close_background();
    int background_slot() const { return background_slot_; }
    void set_mode(int mode);  // 1..4
    void set_dispersion(bool on);
    void set_show_phase(bool on);
    int blank_slot() const { return blank_slot_; }
    int dispersion_slot() const { return dispersion_slot_; }
    // The "Show Phase" plot window (null until shown).
    QDialog* phase_plot() const { return plot_; }

private:
    void show_phase(int slot, double constant);
    void basefile_toggled(bool on);

    MainWindow& main_;
    QComboBox *process_, *apod_;
    QCheckBox *zero_dc_, *exclude_, *roll_, *dispersion_, *harmonic3_, *analytical_, *feng_, *feng_polarity_,
        *special_, *test_, *show_phase_, *close_;
    QCheckBox *apod_first_, *basefile_, *autozero_det_, *autozero_ex_, *zoom_excite_, *inverse_, *manual_, *batch_,
        *test2_, *simple_, *iterate_c_, *debug_;
    QDoubleSpinBox *extra_data_, *extra_excite_, *score_lo_, *score_hi_;
    QSpinBox *skip_points_;
    QSpinBox *truncations_, *zerofills_;
    QLabel *blank_label_, *score_, *cterm_, *drop_, *a_, *b_;
    int blank_slot_ = -1;
    int background_slot_ = -1;
    int dispersion_slot_ = -1;
    QDialog* plot_ = nullptr;
};

// Opens the panel (one per main window).
PhaseDialog* show_PHASE(MainWindow& window);

}  // namespace vx
