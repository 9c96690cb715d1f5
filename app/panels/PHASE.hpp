// "Phasing the Data": the expert phasing panel. Its "Process Control" ring
// runs one of the four modes on the active transient (magnitude, absorption,
// complex division by a blank, transfer function of the blank), with the
// dispersion in its own window and "Show Phase" plotting the curve. The run
// itself is phasing_process_command of src/phasing; the panel gathers the
// controls and redraws.
#pragma once

#include <QDialog>

#include <string>

class QCheckBox;
class QComboBox;
class QLabel;
class QSpinBox;

namespace vx {

class MainWindow;
struct PhaseProcessOptions;

class PhaseDialog : public QDialog {
    Q_OBJECT
public:
    explicit PhaseDialog(MainWindow& main);
    // The options as the controls stand.
    PhaseProcessOptions options(bool extra_point) const;
    // GO (extra point on) / GO2 (off). Returns the run's result.
    int go(bool extra_point);
    // "Open Blank File...": the transient the division modes divide by.
    int open_blank(const std::string& path);
    void set_mode(int mode);  // 1..4
    void set_dispersion(bool on);
    void set_show_phase(bool on);
    int blank_slot() const { return blank_slot_; }
    int dispersion_slot() const { return dispersion_slot_; }
    // The "Show Phase" plot window (null until shown).
    QDialog* phase_plot() const { return plot_; }

private:
    void show_phase(int slot, double constant);

    MainWindow& main_;
    QComboBox *process_, *apod_;
    QCheckBox *zero_dc_, *exclude_, *roll_, *dispersion_, *harmonic3_, *analytical_, *feng_, *feng_polarity_,
        *special_, *test_, *show_phase_, *close_;
    QSpinBox *truncations_, *zerofills_;
    QLabel *blank_label_, *score_, *cterm_;
    int blank_slot_ = -1;
    int dispersion_slot_ = -1;
    QDialog* plot_ = nullptr;
};

// Opens the panel (one per main window).
PhaseDialog* show_PHASE(MainWindow& window);

}  // namespace vx
