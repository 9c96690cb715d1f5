#include "thrash/charge.hpp"

#include <algorithm>
#include <cmath>
#include <memory>

#include <gsl/gsl_errno.h>
#include <gsl/gsl_spline.h>

#include "platform/fft.hpp"
#include "workspace/conversions.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

namespace {

struct SplineDeleter {
    void operator()(gsl_spline* s) const { gsl_spline_free(s); }
};
struct AccelDeleter {
    void operator()(gsl_interp_accel* a) const { gsl_interp_accel_free(a); }
};

// Natural cubic spline through (x, y), x strictly rising, at least 3 points.
class Spline {
public:
    Spline(const std::vector<double>& x, const std::vector<double>& y)
        : spline_(gsl_spline_alloc(gsl_interp_cspline, x.size())), accel_(gsl_interp_accel_alloc()) {
        gsl_spline_init(spline_.get(), x.data(), y.data(), x.size());
    }
    double operator()(double v) const { return gsl_spline_eval(spline_.get(), v, accel_.get()); }

private:
    std::unique_ptr<gsl_spline, SplineDeleter> spline_;
    std::unique_ptr<gsl_interp_accel, AccelDeleter> accel_;
};

// GSL's default handler aborts; a degenerate axis is caught by the callers,
// the rest is not worth a crash.
void quiet_gsl() {
    static const bool once = [] {
        gsl_set_error_handler_off();
        return true;
    }();
    (void)once;
}

// The cluster resampled to an even m/z step, rising m/z. False for fewer than
// 4 points.
bool resample(double low_mz, double high_mz, const Spectrum& s, bool use_working, std::vector<double>& even,
              double& step) {
    quiet_gsl();
    const std::vector<float>& src = charge_source(s, use_working);
    const long n_data = static_cast<long>(src.size());
    if (n_data < 4 || !(high_mz > low_mz)) return false;
    // The highest m/z has the lowest point; the range is clipped to the data.
    double p1 = One_mass_topt(s, high_mz), p2 = One_mass_topt(s, low_mz);
    if (!std::isfinite(p1) || !std::isfinite(p2)) return false;
    if (p1 > p2) std::swap(p1, p2);
    const long a = std::clamp(static_cast<long>(std::ceil(p1)), 1L, n_data - 1);
    const long b = std::clamp(static_cast<long>(std::floor(p2)), 1L, n_data - 1);
    const long n = b - a + 1;
    if (n < 4) return false;
    std::vector<double> x, y;
    x.reserve(n);
    y.reserve(n);
    for (long i = b; i >= a; --i) {
        const double m = One_pt_tomass(s, static_cast<double>(i));
        if (!x.empty() && !(m > x.back())) continue;  // only a strictly rising axis can be splined
        x.push_back(m);
        const float v = src[static_cast<std::size_t>(i)];
        y.push_back(use_working ? std::max(0.0f, v) : v);
    }
    if (x.size() < 4) return false;
    const Spline sp(x, y);
    const std::size_t m = x.size();
    step = (x.back() - x.front()) / static_cast<double>(m - 1);
    even.resize(m);
    for (std::size_t i = 0; i < m; ++i) even[i] = sp(std::min(x.front() + step * static_cast<double>(i), x.back()));
    return step > 0.0;
}

int next_pow2_above(std::size_t v) {
    int n = 1;
    while (static_cast<std::size_t>(n) <= v) n <<= 1;
    return n;
}

// Splines (f, v) at the charge axis, 0 outside the frequencies kept; returns
// the rounded frequency of the highest kept value.
int to_charge_axis(const std::vector<double>& f, const std::vector<double>& v, std::vector<double>& out,
                   int max_charge) {
    const int len = CHARGE_STEPS_PER_UNIT * max_charge;
    out.assign(static_cast<std::size_t>(len), 0.0);
    if (f.size() < 3) return 0;
    const Spline sp(f, v);
    for (int j = 0; j < len; ++j) {
        const double c = static_cast<double>(j + 1) / CHARGE_STEPS_PER_UNIT;
        if (c >= f.front() && c <= f.back()) out[static_cast<std::size_t>(j)] = sp(c);
    }
    const auto top = std::max_element(v.begin(), v.end()) - v.begin();
    return static_cast<int>(std::lround(f[static_cast<std::size_t>(top)]));
}

}  // namespace

const std::vector<float>& charge_source(const Spectrum& s, bool use_working) {
    return use_working && s.data2.size() == s.data.size() ? s.data2 : s.data;
}

int fcharge(double low_mz, double high_mz, std::vector<double>& out, const Spectrum& s, int max_charge,
            bool use_working) {
    out.assign(static_cast<std::size_t>(CHARGE_STEPS_PER_UNIT * std::max(max_charge, 1)), 0.0);
    std::vector<double> even;
    double step = 0.0;
    if (max_charge < 1 || !resample(low_mz, high_mz, s, use_working, even, step)) return 0;
    double mean = 0.0;
    for (double v : even) mean += v;
    mean /= static_cast<double>(even.size());
    const int N = next_pow2_above(2 * even.size());
    std::vector<float> buf(static_cast<std::size_t>(N) + 2, 0.0f);
    for (std::size_t i = 0; i < even.size(); ++i) buf[i] = static_cast<float>(even[i] - mean);
    if (fft_forward_real_inplace(buf.data(), N) < 0) return 0;
    // Bin k of the padded transform lies at k / (N step) cycles per m/z: about
    // the charge, since isotopes stand one dalton apart.
    const double range = high_mz - low_mz;
    const double low_f = std::trunc(1.0034 / range) + 1.0;
    std::vector<double> f, v;
    for (int k = 1; k <= N / 2; ++k) {
        const double fk = static_cast<double>(k) / (N * step);
        if (fk <= low_f || fk >= max_charge) continue;
        const double re = buf[2 * k], im = buf[2 * k + 1];
        f.push_back(fk);
        v.push_back(std::sqrt(re * re + im * im));
    }
    return to_charge_axis(f, v, out, max_charge);
}

int acharge(double low_mz, double high_mz, std::vector<double>& out, const Spectrum& s, int max_charge,
            bool use_working) {
    out.assign(static_cast<std::size_t>(CHARGE_STEPS_PER_UNIT * std::max(max_charge, 1)), 0.0);
    std::vector<double> even;
    double step = 0.0;
    if (max_charge < 1 || !resample(low_mz, high_mz, s, use_working, even, step)) return 0;
    const int N = next_pow2_above(2 * even.size());
    std::vector<float> buf(static_cast<std::size_t>(N) + 2, 0.0f);
    for (std::size_t i = 0; i < even.size(); ++i) buf[i] = static_cast<float>(even[i]);
    if (fft_forward_real_inplace(buf.data(), N) < 0) return 0;
    // Times its conjugate, back again: the autocorrelation (zero padding to
    // twice the length keeps it linear).
    for (int k = 0; k <= N / 2; ++k) {
        const float re = buf[2 * k], im = buf[2 * k + 1];
        buf[2 * k] = re * re + im * im;
        buf[2 * k + 1] = 0.0f;
    }
    if (fft_inverse_real_inplace(buf.data(), N) < 0) return 0;
    // Lag i + 1 is a period of (i + 1) step m/z, a frequency of 1 / that; the
    // lags are walked from the longest so that the frequencies rise.
    const double range = high_mz - low_mz;
    const double low_f = std::trunc(1.0 / range) + 1.0;
    std::vector<double> f, v;
    for (long i = static_cast<long>(even.size()) - 2; i >= 0; --i) {
        const double fi = 1.0 / ((i + 1) * step);
        if (fi < low_f || fi > max_charge) continue;
        f.push_back(fi);
        v.push_back(std::fabs(buf[static_cast<std::size_t>(i + 1)]));
    }
    return to_charge_axis(f, v, out, max_charge);
}

int combo_cd(double low_mz, double high_mz, ChargeScores& scores, const Spectrum& s, int max_charge,
             bool use_working) {
    max_charge = std::max(max_charge, 1);
    const int len = CHARGE_STEPS_PER_UNIT * max_charge;
    scores.charge.resize(static_cast<std::size_t>(len));
    for (int j = 0; j < len; ++j) scores.charge[static_cast<std::size_t>(j)] = static_cast<double>(j + 1) / CHARGE_STEPS_PER_UNIT;
    fcharge(low_mz, high_mz, scores.fourier, s, max_charge, use_working);
    acharge(low_mz, high_mz, scores.autocorr, s, max_charge, use_working);
    scores.product.resize(static_cast<std::size_t>(len));
    int best = -1;
    double top = 0.0;
    for (int j = 0; j < len; ++j) {
        const double p = scores.fourier[static_cast<std::size_t>(j)] * scores.autocorr[static_cast<std::size_t>(j)];
        scores.product[static_cast<std::size_t>(j)] = p;
        if (p > top) {
            top = p;
            best = j;
        }
    }
    if (best < 0) return 0;
    return static_cast<int>(std::lround(scores.charge[static_cast<std::size_t>(best)]));
}

}  // namespace vx
