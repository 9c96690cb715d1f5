// The phase curve of a chirp-excited spectrum, the real transform that keeps
// the complex spectrum, the rotation into absorption mode and its inverse.
//
// phi(k) = sign * harmonic * Aterm * (f/h - reference)^2 - Bterm * f/h + Cterm
// with f = k * hzppt, h the detected harmonic, Aterm = pi / (rate * 1e6) and
// Bterm = 2 pi * (delay in brackets). Every entry point of the program builds
// its own bracket; phase_model_for() holds them all in one table.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

struct PhaseModel {
    double Aterm = 0.0;       // rad / Hz^2, pi / signed rate / 1e6
    double Bterm = 0.0;       // rad / Hz, 2 pi * the delay in brackets (subtracted)
    double reference = 0.0;   // Hz: highfreq (final-frequency form) or lowfreq (initial)
    double Cterm = 0.0;       // rad
    double harmonic = 1.0;    // frequency divided by it in both terms
    double quad_scale = 1.0;  // multiplies the quadratic term (3 in NewPhasing2's third harmonic)
    double sign = 1.0;        // -1: the whole curve negated but Cterm (simple_phase)
    double extra_linear = 0.0;  // D * f added (StandardPhaseSingle's "Rephase Dterm")
    double bracket = 0.0;     // the delay in brackets, s, for reports
};

// phi at frequency f (Hz), Cterm included.
double phase_at(const PhaseModel& m, double f);
// The curve over points [first, last) of a spectrum with hzppt Hz per point,
// Cterm left out (the search adds constants). out gets N values, zero outside.
void build_phase_curve(const PhaseModel& m, double hzppt, std::size_t N, std::size_t first, std::size_t last,
                       std::vector<double>& out);

// The entry points whose brackets differ.
enum class PhaseEntry {
    PhasingStandard,     // PhasingCallback, final-frequency form, search path
    PhasingStored,       // PhasingCallback with "Phase Parameters:" in the file
    PhasingFeng,         // PhasingCallback, initial-frequency form
    PhasingAnalytical,   // PhasingCallback, "Analytical Solution Only", standard form
    NewPhasing2,         // the "Absorption Mode Controls" run
    StandardPhaseSingle, // the one-button standard phase
    SimplePhase,         // simple_phase (curve of opposite sign)
    SimplePhaseFeng,     // simple_phase with feng on
    SimplePhase2Threaded,
    IntelPhaseCreate,    // the batch record's curve
    PhaseManual,         // PhaseManual_callback
};

struct PhaseInputs {
    double lowfreq = 0.0, highfreq = 0.0;
    double sweeprate = 0.0;   // Hz per microsecond as the script or file gives it
    double delay = 0.0;       // s
    double excitestart = 0.0; // chirp duration, s
    double bandwidth = 0.0;   // BW, Hz
    double relativex = -1.0;
    bool special = false;     // "Special": u = relativex
    bool extra_point = false; // e = 1 / BW
    double harmonic = 1.0;    // 3 with "Phase 3 Omega"
    bool use_d = false;       // a Dterm replaces or adds to the delay
    double d_term = 0.0;      // s
    bool use_record_delayf = false;  // IntelPhaseCreate64f: the record's usedelayf flag
    double record_delayf = 0.0;
    double linear_d = 0.0;    // StandardPhaseSingle's D (rad/Hz)
};

// The sweep rate with its sign: negated when highfreq <= lowfreq (double), or,
// for IntelPhaseCreate64f alone, when (float) highfreq < (float) lowfreq.
double signed_sweep_rate(double rate, double lowfreq, double highfreq, bool single_precision_compare = false);

// The model of one entry point; Cterm is left 0.
PhaseModel phase_model_for(PhaseEntry entry, const PhaseInputs& in);

// Band of points [start, end] to be scored: floor(min * h / hzppt) to
// ceil(max * h / hzppt), the end limited to limit.
void phase_band(double lowfreq, double highfreq, double harmonic, double hzppt, long long limit, long long& start,
                long long& end);

// Real forward transform of the transient of s (datacount real samples) into
// realdata / imagdata of N = datacount / 2 points each, scaled by
// s = 500000 / N (single precision), or 1 with no_scale. The packed layout is
// kept: point 0 holds the zero-frequency value as real and the Nyquist value as
// imaginary part. data is left as the real part; datacount becomes N,
// hzppt BW / N, the domain frequency. Returns 0 or -1 after a message.
int Fourier_Transform_Phased(Spectrum& s, int no_scale, Ui& ui);
// The inverse: realdata / imagdata back to 2N real samples, not normalised.
int InvFourier_Transform_Phased(Spectrum& s, Ui& ui);

// data[k] = re cos(phi) - im sin(phi) in double precision for every point,
// phi = curve[k] + c; dispersion (when given) gets im cos(phi) + re sin(phi).
void rotate_spectrum(const std::vector<float>& re, const std::vector<float>& im, const std::vector<double>& curve,
                     double c, std::vector<float>& out, std::vector<float>* dispersion);

// The same rotation of a spectrum already turned by its curve (P, Q as
// turn_by_curve gives them): out = P cos c - Q sin c, dispersion P sin c + Q cos c.
void rotate_turned(const std::vector<float>& P, const std::vector<float>& Q, double c, std::vector<float>& out,
                   std::vector<float>* dispersion);

// turn_by_curve for a curve of this model (Cterm left out), by recurrence
// instead of a sine and a cosine per point; agrees with it to 1e-9 rad.
void turn_by_model(const std::vector<float>& re, const std::vector<float>& im, const PhaseModel& m, double hzppt,
                   std::vector<float>& P, std::vector<float>& Q);

// 5 % of the tallest magnitude in [start, end] (0 for an empty band).
double phase_threshold(const std::vector<float>& re, const std::vector<float>& im, long long start, long long end);

// Changes the sign of every value (sign bit: 0.0 becomes -0.0).
void FlipPhasedData(std::vector<float>& a, std::vector<float>* b);

}  // namespace vx
