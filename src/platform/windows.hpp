// Apodisation windows multiplied into a sample array in place.
//
// Hann, Hamming and Kaiser give the results of the vendor signal library the
// processing chain was first built on: symmetric windows over the whole
// length (both end points on the curve), Hann and Hamming leaving arrays of
// fewer than 3 samples untouched, and the Kaiser shape parameter alpha scaled
// by the half length, w(i) = I0(alpha sqrt(i (n-1-i))) / I0(alpha (n-1)/2).
//
// offset, when given, is subtracted from every sample before the weighting: the
// chain folds its mean removal into the same pass over the data. Samples that
// the window leaves alone (short arrays) keep their offset.
#pragma once

#include <cstddef>

namespace vx {

// w(i) = 0.5 (1 - cos(2 pi i / (n-1))), 0 <= i < n. n < 3: unchanged.
void WinHann(float* data, std::size_t n, float offset = 0.0f);
// w(i) = 0.54 - 0.46 cos(2 pi i / (n-1)), 0 <= i < n. n < 3: unchanged.
void WinHamming(float* data, std::size_t n, float offset = 0.0f);
// w(i) = I0(alpha sqrt(i (n-1-i))) / I0(alpha (n-1) / 2); n = 1 leaves the sample.
// The ratio is formed from scaled Bessel functions, so a long window with a large
// alpha underflows to 0 away from its centre instead of overflowing.
void WinKaiser(float* data, std::size_t n, double alpha, float offset = 0.0f);
// The quarter-sine taper: the first n/4 samples times sin(2 pi i / n), the last
// n/4 times sin(2 pi i / n - pi), the centre untouched. n <= 3: unchanged.
void QuarterSineWin(float* data, std::size_t n);

}  // namespace vx
