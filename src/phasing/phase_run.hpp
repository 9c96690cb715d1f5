// One absorption-mode phasing run on a transient: excitation from the script
// (or the stored "Phase Parameters:"), the phased transform, the curve, the
// search of the zero-order constant on the score workers, the rotation, the
// baseline, optional section rephasing; and the inverse path back to a
// phase-corrected transient.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "phasing/phase_function.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

enum PhaseMethod : int {
    PHASE_ITERATE = 0,       // "Constant Term Iteration"
    PHASE_ANALYTIC_120 = 1,  // "Analytical Soution ( 120 Degree Cell)"
    PHASE_ANALYTIC_90 = 2,   // "Analytical Soution (90 Degree Cell)"
    PHASE_VECTOR = 3,        // the weighted vector sum of the significant points (not a degree ladder)
};

struct PhaseRunOptions {
    int method = PHASE_ITERATE;
    bool initial_form = false;  // "Feng's Algorithm": reference at the start frequency
    int polarity = 0;           // "Feng's Polarity" / Phase 3 Omega polarity
    int apodization = 0;        // half window: 0 none, 1 Hanning, 2 Hamming, 3 Blackman-Harris
    bool exclude_excite = false;
    int truncations = 0;
    int zerofills = 0;
    bool zero_dc = false;
    bool roll = false;          // "Correct Baseline Roll"
    bool harmonic3 = false;     // "Phase 3 Omega"
    bool extra_point = false;   // GO (on) / GO2 (off)
    bool special = false;       // delay correction from "RelativeX:"
    bool test = false;          // "T": ignore stored parameters
    bool baseline = true;       // the baseline step after the rotation
    bool median_baseline = false;  // the window-median baseline instead of the dips
    bool dispersion = false;    // keep the imaginary part
    int rephase_sections = 0;   // > 0: section rephasing over the band
    double rephase_sn = 3.0;
    double baseline_scaler = 3.0;
    // Bruker acquisitions: search the curve's rate and delay around the
    // method's values (-1), or take them as they stand (0); leading samples
    // taken out of the transient (their time joins the delay), -1 the
    // digitiser's zeros and rise.
    int chirp_seek = -1;
    long long leading_points = -1;
    // Given terms, no search: second order (rad/Hz^2), first order (rad/Hz, subtracted), constant (rad).
    std::optional<std::vector<double>> terms;
    std::optional<double> constant_degrees;  // the curve from the script, this constant, no search
    int workers = 0;            // 0: thread_count of this machine
    // "Apodize Before Phasing": off leaves the half window and the zero-fill out.
    bool apodize_first = true;
    // "B": stop after the transform (realdata / imagdata kept, data the real part).
    bool transform_only = false;
    // "Score Freq Range" (Hz): both above 0 and in order, the constant is scored
    // over these frequencies instead of the excited band. -1.0 (the panel's
    // default) leaves the excited band.
    double score_lo = -1.0, score_hi = -1.0;
    // Excitation given by the user (the "T2" prompts): used instead of the
    // script, and stored parameters are ignored.
    struct Excitation {
        double lowfreq = 0.0, highfreq = 0.0, sweeprate = 0.0, delay = 0.0;  // Hz, Hz, Hz/us, s
    };
    std::optional<Excitation> excitation;
};

struct PhaseRunResult {
    PhaseModel model;           // the curve applied, Cterm included
    std::string form;           // "final" or "initial" (or "terms", "stored", "none")
    bool searched = false;
    int applied_degrees = 0;    // the constant rotated with, whole degrees
    double score = 0.0, drop = 0.0, testfit = 0.0;
    long long band_start = 0, band_end = 0;
    int evaluations = 0;
    std::vector<float> dispersion;
    // Section rephasing results (section bounds relative to the band).
    std::vector<std::int32_t> section_initial, section_final;
    std::vector<double> section_constant;
    // Bruker acquisitions: "method" or "searched" (how the rate and delay were
    // found), the signed rate (Hz/us) and the leading samples taken out.
    std::string excitation;
    double sweep_rate = 0.0;
    long long skipped_points = 0;
    double seek_score = 0.0, method_score = 0.0;
};

// A value of the excitation the curve can be built from: finite and not 0.
bool phase_value_usable(double v);
// "Insufficient information to phase data." with its text.
void insufficient_information(Ui& ui);
// A real transient whose excitation (read from its script) is complete:
// 0; otherwise -1 after a message, or -15 after the insufficient-information
// message.
int excitation_ready(Spectrum& s, Ui& ui);

class PhaseScoreWorkers;

// The zero-order step every phasing road shares, over the spectrum already
// turned by the curve (P, Q; freed here): the constant (none when no_search,
// else the given one, the vector sum, the analytical cell of the signed sweep
// rate, or the degree ladder), the rotation into s.data, the result's score,
// drop, model and degrees, and the record's terms. A searched constant is
// stored 45 degrees above the one applied (the rotation uses C, Zeroorder says
// C + 45): kept, since files and batch tables written by earlier versions
// carry it. keep_terms leaves Zeroorder and ZeroDegrees to the caller.
void apply_zero_order(Spectrum& s, const PhaseRunOptions& o, bool no_search, bool keep_terms, double signed_rate,
                      double harmonic, const PhaseScoreWorkers& scorer, std::vector<float>& P, std::vector<float>& Q,
                      PhaseModel& m, PhaseRunResult& res);

// Threads the score workers may use: twice the processors, at most 4.
int phase_thread_count();

// The run on a time-domain record read from a file (filename set). Returns 0,
// or a negative value after a message ("Insufficient information to phase
// data." is -15). The record ends as the rotated frequency spectrum in data
// with realdata / imagdata kept unrotated and the curve in phase.
int phase_spectrum(Spectrum& s, const PhaseRunOptions& o, Ui& ui, PhaseRunResult* result = nullptr);

// Applies a new constant (and optionally a new curve) to a phased record
// without a new transform: data = rotation of realdata / imagdata.
void rephase_record(Spectrum& s, double constant);

// The inverse path ("I"): phased transform without scaling, rotation by the
// final-frequency curve with Cterm pi / 4 and the delay correction d3, back to
// the time domain; storagemode becomes 1. Returns 0 or negative after a message.
int phase_inverse(Spectrum& s, bool extra_point, Ui& ui);

// Writes the data file in with a "Phase Parameters:" block into out
// (Save_Tulva_Phase_Coeff); out may not be in itself. Returns 0 or -1 after a message.
int Save_Tulva_Phase_Coeff(const std::string& in, const std::string& out, double sweep, double delay,
                           double optimized, double final_freq, double initial_freq, double init_constant,
                           int use_delay, double detect_bw, int halvings, Ui& ui);

// Writes the phase-corrected transient of s (after phase_inverse) as a copy of
// the header of in with "Data Points:", "Storage Type: float" and
// "Data Storage Mode: 1", and the samples as float32. Returns 0 or -1.
int write_phase_corrected_file(const std::string& in, const std::string& out, const Spectrum& s, Ui& ui);

// The terms of a run in the form the stored-parameter path rebuilds exactly:
// sweep (Hz/us, unsigned), delay (s) and constant (rad) of the final-frequency
// form with (delay - u - e).
struct StoredTerms {
    double sweep = 0.0, delay = 0.0, constant = 0.0, final_freq = 0.0, initial_freq = 0.0;
};
StoredTerms stored_terms_of(const PhaseModel& applied, double lowfreq, double highfreq, double correction);

}  // namespace vx
