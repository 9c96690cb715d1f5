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

// data[i] *= a - b cos(step * i) for 0 <= i < n.
void raised_cosine(float* data, std::size_t n, double a, double b, double step) {
    const std::size_t blocks = (n + BLOCK - 1) / BLOCK;
    const double cd = std::cos(step), sd = std::sin(step);
    tbb::parallel_for(std::size_t{0}, blocks, [&](std::size_t blk) {
        const std::size_t lo = blk * BLOCK;
        const std::size_t hi = std::min(n, lo + BLOCK);
        double c = std::cos(step * static_cast<double>(lo));
        double s = std::sin(step * static_cast<double>(lo));
        for (std::size_t i = lo; i < hi; ++i) {
            data[i] = static_cast<float>(static_cast<double>(data[i]) * (a - b * c));
            const double cn = c * cd - s * sd;
            s = s * cd + c * sd;
            c = cn;
        }
    });
}

}  // namespace

void WinHann(float* data, std::size_t n) {
    if (!data || n < 3) return;
    raised_cosine(data, n, 0.5, 0.5, 2.0 * PI / static_cast<double>(n - 1));
}

void WinHamming(float* data, std::size_t n) {
    if (!data || n < 3) return;
    raised_cosine(data, n, 0.54, 0.46, 2.0 * PI / static_cast<double>(n - 1));
}

void WinKaiser(float* data, std::size_t n, double alpha) {
    if (!data || n < 2) return;
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
            data[i] = static_cast<float>(static_cast<double>(data[i]) * w);
        }
    });
}

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
