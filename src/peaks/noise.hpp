// Noise level and width of a magnitude spectrum.
//
// Most of any window of an FT-ICR magnitude spectrum is noise, with the peaks as
// a long tail, so neither the mean nor the plain deviation describes it. Every
// estimator here builds the cumulative histogram of the samples around their
// median, smooths and differentiates it, and reports the mode of the resulting
// distribution (the baseline, returned) and half its full width at half maximum
// (the width, "sigma" on panels and in peak-list headers). The variants differ
// only in which samples they take and in the step of the histogram.
#pragma once

#include <array>
#include <span>

#include "workspace/spectrum.hpp"

namespace vx {

// Centred moving average in place that narrows at both ends: the value at i
// becomes the mean of i - w .. i + w of the values before the call, with
// w = min(width / 2, i, count - 1 - i).
void TGR_smooth(double* array, int count, int width);

// Ascending comparisons of float64 values for qsort.
int mycompar(const void* a, const void* b);
int mycompar2(const void* a, const void* b);

// The shared method. stats holds the samples the median and the deviation come
// from (it is reordered); counted holds the samples whose counts below each
// level make the histogram. step = deviation / step_divisor.
double histogram_noise(std::span<double> stats, std::span<const float> counted, double step_divisor,
                       double* width);
double histogram_noise(std::span<double> stats, std::span<const double> counted, double step_divisor,
                       double* width);

// Noise of the window centre +- window / 2 (m/z) of spectrum.data; the histogram
// step is deviation / (window / 2).
double CalculateNoise(const Spectrum& spectrum, double centre, double window, double* width);

// THRASH noise: renewed only when the centre has reached *nextmass (otherwise
// `previous` comes back and *width is left alone). The window runs from
// centre - 10 to centre + 40 m/z; step = deviation / 25. With use_data2 the
// median and deviation come from data2, the counts always from data. After a
// run *calculated = 1 and *nextmass = centre + 20.
double CalculateThrashNoise(const Spectrum& spectrum, double centre, double* nextmass, int use_data2,
                            int* calculated, double* width, double previous);

// The whole array is the window; step = deviation / 25.
double CalculateThrashNoise_RP(const float* samples, long count, double* width);
double CalculateThrashNoiseForRePhaseCalcs(const float* samples, long count, double* width);

// Median and deviation from |a + 1 - b| samples beginning at index a, the counts
// from index b up to index a; step = deviation / (|b - a| / 2). The caller gives
// a as the upper index.
double CalculateNoiseIndex(std::span<const float> array, double* width, long a, long b);
// The same on float64 values, with the run of counts extended by the sample
// count: from b up to a + n.
double CalculateNoiseIndexed(std::span<const double> array, double* width, long a, long b);
double CalculateNoiseIndexed_RP(std::span<const double> array, double* width, long a, long b);

// One job of the threaded noise table: a pre-cut sample array and the width of
// its region in m/z; the row receives baseline, width and the tag.
struct NoiseCalJob {
    std::span<const float> samples;
    double region_width = 0.0;
    float tag = 0.0f;
};
void NoiseCalThread(const NoiseCalJob& job, std::array<float, 3>& row);

// Robust noise: the same histogram method on the samples of a window that are
// not part of a peak. A sample above median + ROBUST_NOISE_CUT x MAD of the
// samples kept so far is a peak's; so are, on either side of each run of
// such samples, as many samples again as the run holds and then the
// neighbours for as long as they keep falling away from it (the wings). The cut is re-derived from the
// samples kept until they no longer change, so that a window crowded with
// peaks does not set its own cut. The step of the histogram is deviation / 25
// of the kept samples, fine enough to resolve the noise distribution itself.
// With the peaks out, a strong ion no longer widens the width it is judged
// against. Returns the baseline; *width the half width; 0 and 0 without samples.
inline constexpr double ROBUST_NOISE_CUT = 5.0;
double robust_noise(std::span<const float> samples, double* width);

// The smallest window robust_noise is given by the searches: 5 m/z hold only a
// few dozen points of a short transient, too few for the histogram's mode.
inline constexpr long ROBUST_NOISE_MIN_POINTS = 4096;

// robust_noise over the window centre +- window / 2 (m/z), widened about its
// centre to at least ROBUST_NOISE_MIN_POINTS points where the data allow.
double CalculateNoiseRobust(const Spectrum& spectrum, double centre, double window, double* width);

}  // namespace vx
