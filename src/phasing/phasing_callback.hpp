// The run of the expert panel "Phasing the Data" (PhasingCallback) with all
// its switches, headless: the transient steps before the transform (skipped
// points, background subtraction, auto zero), "Simple" (simple_phase), the
// "T" / "T2" prompts for missing excitation values, "I" (back to a
// phase-corrected transient), "M" and "B" (stop after the transform, for the
// manual panel or a batch), the process modes, and the zoom to the excited
// band.
#pragma once

#include <string>
#include <vector>

#include "phasing/phase_modes.hpp"
#include "phasing/phase_run.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

class Ui;
struct Workspace;

// "Skip Data Points": drops the first skip samples of a transient of n
// samples and keeps n / 2 of them (n / 4 when skip <= n / 4, a branch that
// can never be taken after the first; kept as the panel always had it).
// A skip above n / 2 returns -4 after a message; 0 leaves the record alone.
int SkipDataPoints(Spectrum& s, long long skip, Ui& ui);

// SubtractFile: subtracts the background transient from the data up to the
// end of the excitation (excite_points samples). -1 when the two lengths
// differ, -2 when the excitation is longer than the data; no message (the
// caller reports), the data unchanged then.
int SubtractFile(Spectrum& data, const Spectrum& background, long long excite_points);

// Auto zero with the excite time e0 (s) and the extra times (s): the data file
// is zeroed over points 0 .. ceil(2 (e0 + extra_data) BW), the excite file from
// ceil(2 (e0 - extra_excite) BW) to its end (either may be null).
void AutoZero(Spectrum* data, Spectrum* excite, double e0, double extra_data, double extra_excite);

// The five questions of "T" / "T2" under "Please provide the necessary phasing
// parameters": start and end frequency (kHz, times 1000), chirp rate (Hz/us),
// delay (ms, divided by 1000), extra point (T/F). Returns false when a question
// is cancelled or an answer is not a number.
bool prompt_phase_parameters(Ui& ui, PhaseRunOptions::Excitation& out, bool& extra_point);

// simple_phase: its own preparation of the transient (halvings, mean, the
// falling cosine window, zero-fills), the phased transform, the curve of
// opposite sign (final frequency, or the start frequency with feng), and with
// iterate the 360 one-degree trials scored by the sums of y (not squares) above
// 5 % of the tallest magnitude of the band; without it -pi/4 for a rising sweep
// and +pi/4 for a falling one. With roll the dips baseline is joined and
// subtracted directly (no smoothing). Returns 0 or negative after a message.
struct SimplePhaseResult {
    int best_degrees = 361;  // 361: no trial was made or none scored
    double constant = 0.0;   // rad, as applied
    double score = 0.0, drop = 0.0;
    double sweeprate = 0.0, total_delay = 0.0;
    long long band_start = 0, band_end = 0;
};
int simple_phase(Spectrum& s, bool roll, bool feng, bool iterate, int truncations, int fills, Ui& ui,
                 SimplePhaseResult* result = nullptr);

// Everything the panel gathers besides the run options.
struct PhasingPanelValues {
    PhaseProcessOptions process;    // mode and the run options (extra point from GO / GO2)
    bool dispersion = false;        // "Display Dispersion Data"
    bool simple = false;            // "Simple"
    bool iterate_c = false;         // "Iterate C "
    long long skip_points = 0;      // "Skip Data Points"
    bool subtract_background = false;  // "Subtract Background File"
    bool autozero_data = false;     // "Auto Zero Data File"
    bool autozero_excite = false;   // "Auto Zero Excite File"
    double extra_data_ms = 0.0;     // "Extra Time (ms)" of the data file
    double extra_excite_ms = 0.0;   // "Extra Time (ms)" of the excite file
    bool inverse = false;           // "I"
    bool manual = false;            // "M"
    bool batch = false;             // "B"
    bool test2 = false;             // "T2" (run.test is "T")
    bool zoom_excite = false;       // "Zoom to Excite Conditions"
    bool debug = false;             // "Debug"
};

struct PhasingOutcome {
    PhaseRunResult run;
    SimplePhaseResult simple;
    int dispersion_slot = -1;
    bool background_used = false;   // the flag the panel resets after a subtraction
    bool stopped_after_transform = false;  // "M" or "B"
    bool inverse_done = false;      // "I": the slot holds a phase-corrected transient
    bool zoomed = false;
    long long zoom_start = 0, zoom_end = 0;  // points shown after the zoom
};

// PhasingCallback on the workspace: the transient of data_slot, background_slot
// (the excite file, -1 none) and blank_slot (the division modes, -1 none).
// Returns 0 or negative after a message; on failure the data slot keeps the
// transient it had.
int PhasingCallback(Workspace& ws, int data_slot, int background_slot, int blank_slot, const PhasingPanelValues& v,
                    Ui& ui, PhasingOutcome* outcome = nullptr);

// The points of the excited band of a phased spectrum (from its lowfreq and
// highfreq, times harmonic); false when the record has no usable band.
bool excite_band_points(const Spectrum& s, double harmonic, long long& start, long long& end);

}  // namespace vx
