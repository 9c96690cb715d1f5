// Single-precision transforms through FFTW, with plans kept for reuse.
//
// Planning a 32M-point transform is far more expensive than running it, and the
// processing chain transforms the same sizes again and again. Plans are made
// once per (kind, length, alignment of the arrays) with FFTW_ESTIMATE (or from
// the system wisdom) and kept in a small cache; the FFTW planner is not
// thread-safe, so planning runs under a mutex, while running a plan is safe
// from any thread.
#pragma once

#include <cstddef>

#include <fftw3.h>

namespace vx {

// Forward real transform of n floats into n/2 + 1 complex values, no scaling.
// in and out must not overlap. Returns 0, or -1 when no plan could be made.
int fft_forward_real(const float* in, fftwf_complex* out, int n);

// The same in place: data holds n floats and room for n + 2; afterwards it
// holds the n/2 + 1 complex values.
int fft_forward_real_inplace(float* data, int n);

// Forward complex transform of n complex values in place, no scaling.
int fft_forward_complex_inplace(fftwf_complex* data, int n);

// Inverse real transform in place: data holds the n/2 + 1 complex values
// (n + 2 floats) and afterwards the n real samples, not normalised.
int fft_inverse_real_inplace(float* data, int n);

// Number of plans the cache holds (for tests and diagnostics).
std::size_t fft_cached_plan_count();

}  // namespace vx
