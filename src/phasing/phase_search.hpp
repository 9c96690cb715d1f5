// Scoring of trial zero-order constants and the ladder that searches them,
// with the baseline removal that follows a phasing run.
//
// The score of a trial c over a band is the sum of y^2 for y > testfit, with
// y = re cos(phi + c) - im sin(phi + c); the same sum below -testfit is the
// "drop". Because only a constant changes between trials, the band is rotated
// by its curve once (P = re cos phi - im sin phi, Q = re sin phi + im cos phi)
// and every trial is y = P cos c - Q sin c: one multiply-add per point instead
// of a sine and a cosine. The workers take fixed blocks of the band and the
// block sums are added in block order, so the result does not depend on the
// number of workers.
#pragma once

#include <cstddef>
#include <vector>

namespace vx {

struct ScoreResult {
    double score = 0.0;
    double drop = 0.0;
};

// One score job as the dispatcher hands it out; ScorePhase0 scores it directly
// with a sine and a cosine per point (the reference the fast scorer is held to).
struct ScoreJob {
    const float* real = nullptr;
    const float* imag = nullptr;
    const double* phase = nullptr;  // without Cterm
    std::size_t count = 0;
    double testfit = 0.0;
    double cterm = 0.0;
};
ScoreResult ScorePhase0(const ScoreJob& job);

// The band turned by its curve once: P = re cos phi - im sin phi and
// Q = re sin phi + im cos phi (phi in double precision, P and Q stored as
// single precision like the spectrum itself), for points [0, n).
void turn_by_curve(const float* re, const float* im, const double* curve, std::size_t n, std::vector<float>& P,
                   std::vector<float>& Q);

// The score workers over one band. Built once per run (or per file of a batch)
// and asked for any number of trial constants.
class PhaseScoreWorkers {
public:
    // re, im, curve: the band (count points); the workers keep the turned band.
    PhaseScoreWorkers(const float* re, const float* im, const double* curve, std::size_t count, double testfit,
                      int workers);
    // Over a band already turned by its curve (P, Q as turn_by_curve gives
    // them), read in place: the workers only read, so they need no copies.
    static PhaseScoreWorkers over(const float* P, const float* Q, std::size_t count, double testfit, int workers);
    // Scores of the trial constants (radians), in the order given.
    std::vector<ScoreResult> score(const std::vector<double>& angles) const;
    std::size_t count() const { return n_; }
    double testfit() const { return testfit_; }

    // Points that can score at all: |y| never exceeds the magnitude, so a point
    // whose magnitude is not above the threshold adds nothing to any trial.
    std::size_t kept() const { return P_.size(); }
    // The constant (rad) that turns the magnitude-squared weighted sum of the
    // significant points onto the positive real axis: -arg sum (P + iQ) |z|^2.
    // The dispersion part of a line is odd about its top and cancels in the
    // sum, so this is the constant at the tops themselves; unlike the ladder's
    // score, whose maximum is flat, it does not drift with few lines or short
    // transients. 0 when no point is significant.
    double vector_constant() const;

private:
    PhaseScoreWorkers() = default;
    void keep_significant(const float* P, const float* Q, std::size_t count);
    std::vector<float> P_, Q_;  // the points above the threshold, in band order
    std::size_t n_ = 0;
    double testfit_ = 0.0;
    int workers_ = 1;
};

// The ladder in whole degrees: -180..144 step 36; best +- 32 step 4; best +- 4
// step 1, the best of the rung before never scored again, and a trial replaces
// the best only with a strictly larger score (ties to the earlier trial). The
// answer is not wrapped into [-180, 180].
struct LadderResult {
    int best_degrees = 0;
    double score = 0.0;
    double drop = 0.0;
    int evaluations = 0;
};
LadderResult phase_ladder(const PhaseScoreWorkers& workers);

// The analytical constant of NewPhasing2 in degrees: +-45 * harmonic, positive
// when the rate is positive and polarity 0 or the rate negative and polarity 1;
// method 2 (the 90-degree cell) negates it once more.
int analytical_degrees(int method, double signed_rate, int polarity, double harmonic);

// Baseline of a phased spectrum from its negative dips (points 1..N-2 that are
// strict local minima below limit with |y[i+1] / y[i-1]| < 2), joined by
// straight lines when join is set, smoothed in place over 2 * half + 1 points
// and subtracted with the floor given.
void remove_phase_baseline(std::vector<float>& y, double limit, bool join, int half, double floor);

// The baseline above sits on the lower envelope of the noise, so that the noise
// between the peaks ends up about a noise sigma above zero. This one takes the
// median of successive windows of the given width (peaks are a small part of
// any window, so the median is the level of the noise), joins the medians by
// straight lines and subtracts them: the noise then averages to zero.
void remove_median_baseline(std::vector<float>& y, std::size_t window);

// The pieces, for tests and the section baseline.
std::vector<double> baseline_minima(const std::vector<float>& y, double limit);
void join_baseline(std::vector<double>& b);
void smooth_baseline_in_place(std::vector<double>& b, int half);

}  // namespace vx
