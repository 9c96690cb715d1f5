#include "platform/windows.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <gsl/gsl_sf_bessel.h>
#include <tbb/parallel_for.h>

namespace vx {

namespace {

constexpr double PI = std::numbers::pi;
// Each block starts from an exactly computed angle and steps by rotation, so a
// 32M-point window costs a multiply-add per sample instead of a cosine, and the
// rounding of the recurrence never runs over more than one block.
constexpr std::size_t BLOCK = 4096;

// data[i] = (data[i] - offset) * (a - b cos(step * i)) for 0 <= i < n. The
// window is symmetric, so each weight serves i and n - 1 - i; four interleaved
// rotations keep the recurrence from being one long chain of dependencies.
void raised_cosine(const float* src, float* data, std::size_t n, double a, double b, double step, float offset) {
    const std::size_t half = (n + 1) / 2;
    const std::size_t blocks = (half + BLOCK - 1) / BLOCK;
    const double c4 = std::cos(4.0 * step), s4 = std::sin(4.0 * step);
    tbb::parallel_for(std::size_t{0}, blocks, [&](std::size_t blk) {
        const std::size_t lo = blk * BLOCK;
        const std::size_t hi = std::min(half, lo + BLOCK);
        double c[4], s[4];
        for (int r = 0; r < 4; ++r) {
            c[r] = std::cos(step * static_cast<double>(lo + r));
            s[r] = std::sin(step * static_cast<double>(lo + r));
        }
        double w[BLOCK];
        for (std::size_t i = lo; i < hi; i += 4) {
            for (int r = 0; r < 4; ++r) {
                w[i - lo + r] = a - b * c[r];
                const double cn = c[r] * c4 - s[r] * s4;
                s[r] = s[r] * c4 + c[r] * s4;
                c[r] = cn;
            }
        }
        for (std::size_t i = lo; i < hi; ++i) {
            data[i] = static_cast<float>(static_cast<double>(src[i] - offset) * w[i - lo]);
            const std::size_t j = n - 1 - i;
            if (j != i) data[j] = static_cast<float>(static_cast<double>(src[j] - offset) * w[i - lo]);
        }
    });
}

// The symmetric raised-cosine windows a - b cos(2 pi i / (n - 1)). Fewer than
// three points have no window shape and pass through unchanged.
void symmetric_window(const float* src, float* dst, std::size_t n, double a, double b, float offset) {
    if (!src || !dst) return;
    if (n < 3) {
        if (src != dst) std::copy_n(src, n, dst);
        return;
    }
    raised_cosine(src, dst, n, a, b, 2.0 * PI / static_cast<double>(n - 1), offset);
}

}  // namespace

void WinHann(const float* src, float* dst, std::size_t n, float offset) {
    symmetric_window(src, dst, n, 0.5, 0.5, offset);
}

void WinHamming(const float* src, float* dst, std::size_t n, float offset) {
    symmetric_window(src, dst, n, 0.54, 0.46, offset);
}

void WinKaiser(const float* src, float* dst, std::size_t n, double alpha, float offset) {
    if (!src || !dst) return;
    if (n < 2) {
        if (src != dst) std::copy_n(src, n, dst);
        return;
    }
    const double half = static_cast<double>(n - 1) / 2.0;
    const double b = std::fabs(alpha) * half;
    const double norm = gsl_sf_bessel_I0_scaled(b);  // exp(-b) I0(b)
    const double m = static_cast<double>(n - 1);
    tbb::parallel_for(std::size_t{0}, (n + BLOCK - 1) / BLOCK, [&](std::size_t blk) {
        const std::size_t lo = blk * BLOCK;
        const std::size_t hi = std::min(n, lo + BLOCK);
        for (std::size_t i = lo; i < hi; ++i) {
            const double di = static_cast<double>(i);
            const double x = std::fabs(alpha) * std::sqrt(di * (m - di));
            // I0(x) / I0(b) = [exp(-x) I0(x)] / [exp(-b) I0(b)] * exp(x - b)
            const double e = x - b;
            double w = 0.0;
            if (e > -745.0) w = gsl_sf_bessel_I0_scaled(x) / norm * std::exp(e);
            dst[i] = static_cast<float>(static_cast<double>(src[i] - offset) * w);
        }
    });
}

void WinHann(float* data, std::size_t n, float offset) { WinHann(data, data, n, offset); }
void WinHamming(float* data, std::size_t n, float offset) { WinHamming(data, data, n, offset); }
void WinKaiser(float* data, std::size_t n, double alpha, float offset) { WinKaiser(data, data, n, alpha, offset); }

void QuarterSineWin(float* data, std::size_t n) {
    if (!data || n <= 3) return;
    const std::size_t q = n / 4;
    const double dn = static_cast<double>(n);
    for (std::size_t i = 0; i < q; ++i)
        data[i] = static_cast<float>(data[i] * std::sin(2.0 * PI * static_cast<double>(i) / dn));
    for (std::size_t i = n - q; i < n; ++i)
        data[i] = static_cast<float>(data[i] * std::sin(2.0 * PI * static_cast<double>(i) / dn - PI));
}

}  // namespace vx
