#include "phasing/chirp_seek.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include <tbb/blocked_range.h>
#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;

// The significant points of a band: frequency and unit direction.
struct Points {
    std::vector<double> f;
    std::vector<double> c, s;  // cos and sin of the point's own angle
};

Points significant(const float* re, const float* im, double hzppt, std::size_t start, std::size_t end,
                   double significance, std::size_t max_points) {
    Points p;
    if (end <= start) return p;
    std::vector<float> mag(end - start);
    for (std::size_t k = start; k < end; ++k) mag[k - start] = std::hypot(re[k], im[k]);
    std::vector<float> sorted = mag;
    auto mid = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), mid, sorted.end());
    double limit = static_cast<double>(*mid) * significance;
    // Keep at most max_points: raise the limit to the height of the last one kept.
    std::size_t above = 0;
    for (float m : mag) above += m > limit ? 1 : 0;
    if (above > max_points && max_points > 0) {
        sorted = mag;
        auto nth = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() - max_points);
        std::nth_element(sorted.begin(), nth, sorted.end());
        limit = std::max(limit, static_cast<double>(*nth));
    }
    if (!(limit > 0.0)) return p;
    for (std::size_t k = start; k < end; ++k) {
        const double m = mag[k - start];
        if (!(m > limit)) continue;
        p.f.push_back(static_cast<double>(k) * hzppt);
        p.c.push_back(re[k] / m);
        p.s.push_back(im[k] / m);
    }
    return p;
}

// Sum of the turned unit vectors for one trial.
std::complex<double> turned_sum(const Points& p, double reference, double rate, double delay) {
    const double A = PI / (rate * 1e6);
    const double B = 2.0 * PI * delay;
    double sr = 0.0, si = 0.0;
    for (std::size_t i = 0; i < p.f.size(); ++i) {
        const double d = p.f[i] - reference;
        const double phi = A * d * d - B * p.f[i];
        const double cp = std::cos(phi), sp = std::sin(phi);
        sr += p.c[i] * cp - p.s[i] * sp;
        si += p.c[i] * sp + p.s[i] * cp;
    }
    return {sr, si};
}

}  // namespace

double chirp_coherence(const float* re, const float* im, double hzppt, std::size_t start, std::size_t end,
                       double reference, double rate, double delay, double significance, double* constant) {
    const Points p = significant(re, im, hzppt, start, end, significance, 0);
    if (p.f.empty() || rate == 0.0) {
        if (constant) *constant = 0.0;
        return 0.0;
    }
    const std::complex<double> z = turned_sum(p, reference, rate, delay);
    if (constant) *constant = -std::arg(z);
    return std::abs(z) / static_cast<double>(p.f.size());
}

ChirpSeekResult chirp_seek(const float* re, const float* im, double hzppt, std::size_t start, std::size_t end,
                           const ChirpSeekOptions& o) {
    ChirpSeekResult r;
    r.rate = o.rate;
    r.delay = o.delay;
    const Points p = significant(re, im, hzppt, start, end, o.significance, o.max_points);
    r.points = p.f.size();
    if (p.f.empty() || o.rate == 0.0 || !std::isfinite(o.rate)) return r;
    const double n = static_cast<double>(p.f.size());
    {
        const std::complex<double> z = turned_sum(p, o.reference, o.rate, o.delay);
        r.start_score = r.score = std::abs(z) / n;
        r.constant = -std::arg(z);
    }
    const int g = std::max(3, o.grid | 1);
    const int half = g / 2;
    double rate_span = std::fabs(o.rate) * o.rate_span;
    double delay_span = o.delay_span;
    tbb::task_arena arena(std::clamp(o.workers, 1, std::max(1, tbb::info::default_concurrency())));
    for (int level = 0; level < std::max(1, o.levels); ++level) {
        const int nr = o.search_rate ? g : 1;
        std::vector<double> scores(static_cast<std::size_t>(nr * g), -1.0);
        std::vector<double> angles(scores.size(), 0.0);
        const double r0 = r.rate, d0 = r.delay;
        arena.execute([&] {
            tbb::parallel_for(tbb::blocked_range<std::size_t>(0, scores.size()), [&](const auto& range) {
                for (std::size_t t = range.begin(); t != range.end(); ++t) {
                    const int i = static_cast<int>(t) / g, j = static_cast<int>(t) % g;
                    const double rate = o.search_rate ? r0 + rate_span * (i - half) / half : r0;
                    const double delay = d0 + delay_span * (j - half) / half;
                    // A trial that would turn the sweep round is not a sweep.
                    if (rate == 0.0 || (rate > 0.0) != (o.rate > 0.0)) continue;
                    const std::complex<double> z = turned_sum(p, o.reference, rate, delay);
                    scores[t] = std::abs(z) / n;
                    angles[t] = -std::arg(z);
                }
            });
        });
        r.evaluations += static_cast<int>(scores.size());
        // Strictly better only, in grid order: the result does not depend on the workers.
        for (std::size_t t = 0; t < scores.size(); ++t) {
            if (scores[t] > r.score) {
                const int i = static_cast<int>(t) / g, j = static_cast<int>(t) % g;
                r.score = scores[t];
                r.constant = angles[t];
                r.rate = o.search_rate ? r0 + rate_span * (i - half) / half : r0;
                r.delay = d0 + delay_span * (j - half) / half;
            }
        }
        rate_span *= 2.0 / (g - 1);
        delay_span *= 2.0 / (g - 1);
    }
    return r;
}

double line_fwhm(const std::vector<float>& y, std::size_t k) {
    if (y.size() < 3 || k >= y.size()) return 0.0;
    while (k + 1 < y.size() && y[k + 1] > y[k]) ++k;
    while (k > 0 && y[k - 1] > y[k]) --k;
    const double half = y[k] / 2.0;
    if (!(half > 0.0)) return 0.0;
    std::size_t l = k, r = k;
    while (l > 0 && y[l] > half) {
        if (y[l - 1] > y[l] && y[l - 1] > half) return 0.0;  // runs into a neighbour first
        --l;
    }
    while (r + 1 < y.size() && y[r] > half) {
        if (y[r + 1] > y[r] && y[r + 1] > half) return 0.0;
        ++r;
    }
    if (y[l] > half || y[r] > half) return 0.0;
    const double left = static_cast<double>(l) + (half - y[l]) / (y[l + 1] - y[l]);
    const double right = static_cast<double>(r) - 1.0 + (y[r - 1] - half) / (y[r - 1] - y[r]);
    return right - left;
}

std::vector<WidthRow> width_table(const std::vector<float>& mag, const std::vector<float>& absorption, double hzppt,
                                  std::size_t start, std::size_t end, std::size_t count) {
    std::vector<WidthRow> rows;
    end = std::min({end, mag.size(), absorption.size()});
    if (end < start + 3) return rows;
    std::vector<std::size_t> tops;
    for (std::size_t k = std::max<std::size_t>(start, 1); k + 1 < end; ++k)
        if (mag[k] > mag[k - 1] && mag[k] >= mag[k + 1]) tops.push_back(k);
    std::sort(tops.begin(), tops.end(), [&](std::size_t a, std::size_t b) { return mag[a] > mag[b]; });
    for (std::size_t k : tops) {
        if (rows.size() >= count) break;
        const double wm = line_fwhm(mag, k);
        // A shoulder of a taller line already taken is not a line of its own.
        bool near = false;
        for (const WidthRow& w : rows) {
            const double reach = std::max(w.magnitude_fwhm, 2.0);
            if (std::fabs(static_cast<double>(k) - static_cast<double>(w.point)) < reach) near = true;
        }
        if (near) continue;
        WidthRow w;
        w.point = k;
        w.frequency = static_cast<double>(k) * hzppt;
        w.height = mag[k];
        w.magnitude_fwhm = wm;
        w.absorption_fwhm = line_fwhm(absorption, k);
        w.ratio = (wm > 0.0 && w.absorption_fwhm > 0.0) ? wm / w.absorption_fwhm : 0.0;
        w.height_ratio = mag[k] > 0.0 ? absorption[k] / mag[k] : 0.0;
        rows.push_back(w);
    }
    return rows;
}

double median_ratio(const std::vector<WidthRow>& rows) {
    std::vector<double> v;
    for (const WidthRow& w : rows)
        if (w.ratio > 0.0) v.push_back(w.ratio);
    if (v.empty()) return 0.0;
    std::sort(v.begin(), v.end());
    const std::size_t m = v.size() / 2;
    return v.size() % 2 ? v[m] : 0.5 * (v[m - 1] + v[m]);
}

}  // namespace vx
