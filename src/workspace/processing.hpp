// From transient to spectrum: truncation, offset removal, apodisation,
// zero-fill and transform of one Spectrum, the quadrature splits, and the
// headless "Process", "Zero Out" and "Process Options" commands.
//
// Every step replaces data instead of keeping copies, so that at most two full
// arrays exist at once: a 32M-point transient is already 128 MB.
#pragma once

#include <string>
#include <vector>

#include "workspace/settings.hpp"
#include "workspace/spectrum.hpp"
#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// Window list of the "Apodization" ring and transform list of "Transform".
enum Apodization : int {
    APOD_NONE = 0,  // "BoxCar" when the boxcar box is set
    APOD_QUARTER_SINE = 1,
    APOD_HAMMING = 2,
    APOD_HANN = 3,
    APOD_HALF_HANN = 4,
    APOD_HALF_HAMMING = 5,
    APOD_KAISER = 6,
};
enum Transform : int {
    TRANSFORM_NONE = 0,
    TRANSFORM_FFT_MAGNITUDE = 1,
    TRANSFORM_LOMB = 2,
    TRANSFORM_FFT_ONLY = 3,  // no ring entry: transforms without setting hzppt
};

// The chain on one record with the options of settings (truncations,
// apodization, zerofills, transform, boxcar, fftspeed). Frequency, mass and
// profile records are left as they are. Returns 0, or a negative value after a
// message (only a failed transform or periodogram fails).
int Process_Data(Spectrum& spectrum, const Settings& options, Ui& ui);

// Halves datacount count times (integer division each time), keeps the first
// points and sets storedcount to 0.
void Truncate(Spectrum& spectrum, int count);
// Doubles datacount count times and pads with zeros; count <= 0 reallocates at
// the same length. Returns 0, or -1 (with a message) when the result would be
// longer than any transient the program reads.
int Zerofill(Spectrum& spectrum, int count, Ui& ui);
// Sets the samples from the smaller position (truncated to whole) up to but not
// including the larger one to 0; positions outside the data are clipped.
void Zeroout(Spectrum& spectrum, double position1, double position2);
// Subtracts the mean over storedcount points when that is nonzero, else over
// datacount points; only those points change.
void Baseline_Correct(Spectrum& spectrum);
// The offset of each of the two interleaved channels of quadrature data,
// removed separately (the mean of each channel in single precision).
void Remove_Channel_Offsets(Spectrum& spectrum);
// Gain balance of the interleaved pairs: the odd channel is multiplied by the
// ratio of the absolute sums (even over odd), shown in a "Message" popup.
void Balance_Channels(Spectrum& spectrum, Ui& ui);

// Magnitude transform with the scale 1000000 / N (see processing.cpp). With
// timing set it prints "The FFT took %f  seconds". Returns 0 or -1.
int Fourier_Transform(Spectrum& spectrum, Ui& ui, bool timing = false);

// Number of halvings until n is 1: log2 for powers of two, the floor otherwise.
// n < 1 gives -1 (there is nothing to halve).
int Log_2_N(long long n);

// Lomb periodogram of the non-zero samples of an unevenly sampled transient.
// Returns 0, or -1 after a "USD Error" message.
int Uneven_Analysis(Spectrum& spectrum, Ui& ui);

// Splits the active transformed quadrature spectrum into the positive ion
// spectrum (kept in the active slot) and the negative ion spectrum (a new slot).
// Returns the new slot, or -1 after the warning of a full table.
int Split_Panels(Workspace& ws, Ui& ui);
// Splits the active complex transient into its real (active slot) and imaginary
// (new slot) channels. Returns the new slot or -1 after a message.
int SplitComplexData(Workspace& ws, Ui& ui);

// What the "Process" command did, for the caller that redraws.
struct ProcessCommandResult {
    bool processed = false;
    bool handed_to_phasing = false;  // two-channel SED data go to the phasing dialogue
    int split_slot = -1;             // slot of the negative ions after Split_Panels
};

// The Spectrum menu's "Process" on the active panel. Returns 0 or negative.
int process_command(Workspace& ws, Ui& ui, ProcessCommandResult* result = nullptr);

// The "Zero Out" command with the x positions of graph cursors 1 and 2 in the
// panel's present x mode (data point or time in msec).
int zero_out_command(Workspace& ws, double cursor1_x, double cursor2_x, Ui& ui);

// The "Process Options" dialogue.
struct ProcessOptionsValues {
    int truncations = 0;
    int apodization = APOD_HANN;
    int zerofills = 1;
    int transform = TRANSFORM_FFT_MAGNITUDE;
    int boxcar = 0;
    int baselinecorrect = 1;
};
ProcessOptionsValues process_options_from_settings(const Settings& settings);
// Entries of the "Apodization" ring; entry 0 reads "BoxCar" when boxcar is set.
std::vector<std::string> apodization_ring_labels(bool boxcar);
std::vector<std::string> transform_ring_labels();
// OK of the dialogue: checks and stores the values; with process_now set runs
// the "Process" command afterwards. Returns 0 or negative after a message.
int process_options_ok(Workspace& ws, const ProcessOptionsValues& values, bool process_now, Ui& ui,
                       ProcessCommandResult* result = nullptr);

}  // namespace vx
