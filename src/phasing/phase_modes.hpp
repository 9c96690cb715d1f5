// The four process modes of the expert phasing panel, on a data transient and
// (for the two division modes) a blank transient recorded under the same
// conditions: 1 magnitude, 2 absorption (the phasing run), 3 complex division
// of the two spectra, 4 the transfer function of the blank to the data.
// Division by a blank taken with the same excitation cancels the phase the
// excitation left, without a phase model. Also the "Show Phase" read-out.
#pragma once

#include <string>
#include <vector>

#include "phasing/phase_run.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

class Ui;
struct Settings;
struct Workspace;

enum PhaseProcessMode : int {
    PROCESS_MAGNITUDE = 1,         // "FFT (magnitude)"
    PROCESS_ABSORPTION = 2,        // "FFT (absorption)"
    PROCESS_COMPLEX_DIVISION = 3,  // "FFT - Complex Division"
    PROCESS_TRANSFER = 4,          // "FFT - Complex Division Alternate"
};

// DoDivision: a / b into a, point by point, in double precision. A point
// where b is zero gives zero (not an infinity in the display).
void DoDivision(std::vector<double>& a_re, std::vector<double>& a_im, const std::vector<double>& b_re,
                const std::vector<double>& b_im);

// Mode 3: both transients transformed (phased transform, scaled alike), the
// data's spectrum divided by the blank's; the real quotient becomes data's
// spectrum with the dip baseline removed (limit 0.45 when 2 BW / N >= 0.25,
// else 0.06; no smoothing; floor -0.1), the imaginary quotient goes to
// dispersion when given. Both must hold time data of the same length.
// Returns 0 or -1 after a message (data unchanged then).
int complex_division(Spectrum& data, const Spectrum& blank, std::vector<float>* dispersion, Ui& ui);

// Mode 4 (TryNIAA): the transfer function H = FFT(data) / FFT(blank) of the two
// transients; |H| becomes data's spectrum (count / 2 points) and arg H
// (radians) goes to phase_out when given. The axis is that of TransferFunction
// with the sample interval 1 / BW: BW / count Hz per point (hzppt, and
// dbandwidth = that step times the points), half the step of the transient's
// own spectrum; true_axis gives 2 BW / count instead. Returns 0 or -1 after a
// message.
int transfer_function(Spectrum& data, const Spectrum& blank, std::vector<float>* phase_out, Ui& ui,
                      bool true_axis = false);

struct PhaseProcessOptions {
    int mode = PROCESS_ABSORPTION;
    PhaseRunOptions run;   // mode 2 (and the transform options of mode 1)
    bool true_axis = false;  // mode 4: the frequency step of the samples, not of TransferFunction's 1 / BW
};

// The dispatch of the "Process Control" ring on one data transient: mode 1
// the magnitude chain with the settings, mode 2 the phasing run, modes 3 and 4
// need blank. second receives the dispersion (mode 2 with run.dispersion, mode
// 3) or the phase of the transfer function (mode 4) when given. Returns 0 or
// negative after a message.
int phase_process(Spectrum& data, const Spectrum* blank, const PhaseProcessOptions& o, const Settings& settings,
                  std::vector<float>* second, Ui& ui, PhaseRunResult* result = nullptr);

// A frequency spectrum built beside a phased one from its second channel
// (dispersion or phase): same axis and calibration, title "Dispersion Data".
Spectrum second_channel_spectrum(const Spectrum& phased, const std::vector<float>& values);

// PhasingCallback on the workspace: the mode on the transient of data_slot
// (blank_slot for modes 3 and 4, -1 none), the result shown in m/z; with
// dispersion (and always in modes 3 and 4) the second channel goes to a new
// slot titled "Dispersion Data", whose number lands in dispersion_slot (-1
// when none was made). Returns 0 or negative after a message.
int phasing_process_command(Workspace& ws, int data_slot, int blank_slot, const PhaseProcessOptions& o,
                            bool dispersion, Ui& ui, PhaseRunResult* result = nullptr,
                            int* dispersion_slot = nullptr);

// "Show Phase": the first and last phase of the curve with the constant
// applied, as printed beside the plot ("First phase = %f, last phase = %f\n");
// empty when there is no curve.
std::string show_phase_text(const Spectrum& s, double constant);
// The curve with the constant for a plot: at most max_points (frequency, phase)
// pairs, every k-th point of the curve.
void phase_plot_points(const Spectrum& s, double constant, std::size_t max_points, std::vector<double>& hz,
                       std::vector<double>& rad);

}  // namespace vx
