// Search of the sweep rate and the delay of a chirp's phase curve (and its
// constant) from the spectrum itself, for acquisitions whose excitation is
// known only roughly; and the width comparison of magnitude and absorption
// peaks that tells how well a curve works.
//
// The curve is phi(f) = pi (f - ref)^2 / (R 1e6) - 2 pi f T + C (R in Hz/us,
// signed; T in s; ref the frequency at which the sweep ends). A trial (R, T)
// is scored on the significant points of the band (magnitude above a multiple
// of the band's median magnitude, which is the noise level): each point's
// turned value is reduced to its direction, weighted by its magnitude up to 5 %
// of the band's tallest and by 1 above, and the score is the length of their
// sum as a fraction of the sum of the weights. A correct curve turns every
// line's top onto one direction (its flanks differ by the odd dispersion part,
// which cancels), so the score is highest there, and every line counts by its
// width, not its height: weak lines far from the strong ones pin down the
// quadratic term. The constant is then the direction of that sum.
//
// The score's peak is as narrow in delay as one over the frequency span of
// the lines (microseconds for a broadband spectrum), far too narrow for a grid
// over milliseconds; but for one rate the score of every delay is the
// magnitude of one Fourier transform of the turned points, so the first stage
// takes, for each trial rate (trials one radian of quadratic phase apart
// across the lines), the best delay of the whole range from one transform. A
// grid around the best then refines both to fractions of a step. Trials run on
// worker threads.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vx {

struct ChirpSeekOptions {
    double reference = 0.0;     // Hz, where the sweep ends
    double rate = 0.0;          // starting sweep rate, Hz/us, signed
    double delay = 0.0;         // starting delay, s
    double rate_span = 0.01;    // trial rates rate * (1 +- rate_span)
    double delay_span = 200e-6; // and delays delay +- delay_span
    bool search_rate = true;    // false: the rate stays as given
    int max_rate_trials = 128;  // trial rates of the first stage, at most
    int grid = 9;               // trials per axis and level of the refinement (odd)
    int levels = 4;             // each level narrows the spans to 2 / (grid - 1) of the last
    double significance = 20.0; // points above this multiple of the band's median magnitude
    std::size_t max_points = 200000;  // at most so many strongest points are scored
    int workers = 1;
};

struct ChirpSeekResult {
    double rate = 0.0;       // Hz/us, signed
    double delay = 0.0;      // s
    double constant = 0.0;   // rad
    double score = 0.0;      // 0..1, the coherence of the significant points
    double start_score = 0.0;  // the same for the starting rate and delay
    std::size_t points = 0;  // significant points scored
    int evaluations = 0;
};

// re, im: the unrotated spectrum (N points of hzppt Hz from 0); the band
// [start, end) is searched. Returns the best trial (the start when the band
// holds no significant point).
ChirpSeekResult chirp_seek(const float* re, const float* im, double hzppt, std::size_t start, std::size_t end,
                           const ChirpSeekOptions& o);

// One line's full width at half maximum in magnitude and in absorption.
struct WidthRow {
    std::size_t point = 0;    // top of the magnitude line
    double frequency = 0.0;   // Hz
    double height = 0.0;      // magnitude at the top
    double magnitude_fwhm = 0.0, absorption_fwhm = 0.0;  // points
    double ratio = 0.0;       // magnitude / absorption width (0 when either is not measurable)
    double height_ratio = 0.0;  // absorption / magnitude height at the top
};

// Full width at half maximum (points, linear interpolation on both sides) of
// the line whose top is at or next to k; 0 when the line has no half-height
// point on a side (it runs off the array or into a taller neighbour).
double line_fwhm(const std::vector<float>& y, std::size_t k);

// The count tallest magnitude lines of [start, end) (local maxima, each at
// least its own width from a taller one) with their widths in both spectra.
std::vector<WidthRow> width_table(const std::vector<float>& magnitude, const std::vector<float>& absorption,
                                  double hzppt, std::size_t start, std::size_t end, std::size_t count);
// The median of the measurable ratios (0 when there is none).
double median_ratio(const std::vector<WidthRow>& rows);

}  // namespace vx
