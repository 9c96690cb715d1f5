#include "phasing/chirp_seek.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include <tbb/blocked_range.h>
#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include "platform/fft.hpp"

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;

// The points of the lines that stand out of a band: the tops of the lines
// above the significance limit, each with the points around it down to 80 %
// of its height, each point reduced to its direction and weighted so that every
// line weighs 1 whatever its height and width. A top that is not four times
// the median magnitude within eight of its widths is a side lobe (of a line
// that lives through the acquisition: they alternate in sign, fall slowly and
// would only blur the score) or a shoulder, not a line.
struct Points {
    std::vector<std::size_t> k;
    std::vector<double> f;
    std::vector<double> c, s;  // weight times cos and sin of the point's own angle
    double weight = 0.0;       // sum of the weights: the number of lines
};

Points significant(const float* re, const float* im, double hzppt, std::size_t start, std::size_t end,
                   double significance, std::size_t max_points) {
    Points p;
    if (end <= start + 2) return p;
    const std::size_t n = end - start;
    std::vector<float> mag(n);
    for (std::size_t k = start; k < end; ++k) mag[k - start] = std::hypot(re[k], im[k]);
    std::vector<float> sorted = mag;
    auto mid = sorted.begin() + static_cast<std::ptrdiff_t>(n / 2);
    std::nth_element(sorted.begin(), mid, sorted.end());
    const double limit = static_cast<double>(*mid) * significance;
    if (!(limit > 0.0)) return p;
    struct Line {
        std::size_t top, lo, hi;
    };
    std::vector<Line> lines;
    std::vector<float> around;
    for (std::size_t i = 1; i + 1 < n; ++i) {
        if (!(mag[i] > limit) || !(mag[i] > mag[i - 1]) || !(mag[i] >= mag[i + 1])) continue;
        const float half = 0.5f * mag[i];
        const float core = 0.8f * mag[i];
        std::size_t lo = i, hi = i;
        while (lo > 0 && mag[lo - 1] >= half && mag[lo - 1] <= mag[lo]) --lo;
        while (hi + 1 < n && mag[hi + 1] >= half && mag[hi + 1] <= mag[hi]) ++hi;
        const std::size_t w = hi - lo + 1;
        const std::size_t a = i > 8 * w ? i - 8 * w : 0, b = std::min(n - 1, i + 8 * w);
        around.assign(mag.begin() + static_cast<std::ptrdiff_t>(a), mag.begin() + static_cast<std::ptrdiff_t>(b + 1));
        auto m = around.begin() + static_cast<std::ptrdiff_t>(around.size() / 2);
        std::nth_element(around.begin(), m, around.end());
        if (!(mag[i] > 4.0f * *m)) continue;
        // The line's core: the points within 80 % of its top, where the
        // phase of a line turns least.
        std::size_t clo = i, chi = i;
        while (clo > lo && mag[clo - 1] >= core) --clo;
        while (chi < hi && mag[chi + 1] >= core) ++chi;
        lines.push_back({i, clo, chi});
    }
    // The tallest lines when there are more points than wanted.
    if (max_points > 0) {
        std::sort(lines.begin(), lines.end(), [&](const Line& x, const Line& y) { return mag[x.top] > mag[y.top]; });
        std::size_t total = 0, keep = 0;
        while (keep < lines.size() && total + (lines[keep].hi - lines[keep].lo + 1) <= max_points) {
            total += lines[keep].hi - lines[keep].lo + 1;
            ++keep;
        }
        lines.resize(keep);
        std::sort(lines.begin(), lines.end(), [](const Line& x, const Line& y) { return x.top < y.top; });
    }
    for (const Line& l : lines) {
        const double w = 1.0 / static_cast<double>(l.hi - l.lo + 1);
        for (std::size_t i = l.lo; i <= l.hi; ++i) {
            const std::size_t k = start + i;
            const double m = mag[i];
            if (!(m > 0.0)) continue;
            p.k.push_back(k);
            p.f.push_back(static_cast<double>(k) * hzppt);
            p.c.push_back(w * re[k] / m);
            p.s.push_back(w * im[k] / m);
        }
        p.weight += 1.0;
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

ChirpSeekResult chirp_seek(const float* re, const float* im, double hzppt, std::size_t start, std::size_t end,
                           const ChirpSeekOptions& o) {
    ChirpSeekResult r;
    r.rate = o.rate;
    r.delay = o.delay;
    const Points p = significant(re, im, hzppt, start, end, o.significance, o.max_points);
    r.points = p.f.size();
    if (p.f.empty() || o.rate == 0.0 || !std::isfinite(o.rate) || !(hzppt > 0.0)) return r;
    const double n = p.weight;
    {
        const std::complex<double> z = turned_sum(p, o.reference, o.rate, o.delay);
        r.start_score = r.score = std::abs(z) / n;
        r.constant = -std::arg(z);
    }
    tbb::task_arena arena(std::clamp(o.workers, 1, std::max(1, tbb::info::default_concurrency())));
    auto consider = [&](double score, double rate, double delay) {
        if (!(score > r.score)) return;
        r.score = score;
        r.rate = rate;
        r.delay = delay;
    };

    // Stage one: for every trial rate, every delay at once. With the quadratic
    // term applied, the sum over the points of u_k exp(-2 pi i f_k T) is a
    // Fourier transform of the band at the lag T = m / (M h): one transform
    // scores all delays. The points are gathered into bins of h Hz, narrow
    // enough that no delay of the range turns a point by more than 1/16 turn
    // within its bin; the lag step is then one over the band's width.
    const double reach = std::fabs(o.delay) + std::fabs(o.delay_span);
    const double bins = std::floor(1.0 / (8.0 * std::max(reach, 1e-9) * hzppt));
    const std::size_t bin = std::isfinite(bins) && bins >= 1.0
                                ? static_cast<std::size_t>(std::min(bins, static_cast<double>(end - start)))
                                : 1;
    const double h = static_cast<double>(bin) * hzppt;
    std::size_t M = 1;
    while (M * bin < end - start) M <<= 1;
    const double dT = 1.0 / (static_cast<double>(M) * h);
    const double width = *std::max_element(p.f.begin(), p.f.end()) - *std::min_element(p.f.begin(), p.f.end());
    // Trial rates one radian of quadratic phase apart across the points.
    const double step = width > 0.0 ? std::fabs(o.rate) * 1e6 / (PI * width * width) : 1.0;
    int per_side = 0;
    if (o.search_rate && o.rate_span > 0.0)
        per_side = static_cast<int>(std::min<double>(o.max_rate_trials / 2, std::ceil(o.rate_span / step)));
    const double rel = per_side > 0 ? o.rate_span / per_side : 0.0;
    const double lo_lag = std::floor((o.delay - std::fabs(o.delay_span)) / dT);
    const double hi_lag = std::ceil((o.delay + std::fabs(o.delay_span)) / dT);
    const bool lags_ok = std::isfinite(lo_lag) && std::isfinite(hi_lag) && std::fabs(lo_lag) < 1e15 &&
                         std::fabs(hi_lag) < 1e15 && hi_lag - lo_lag < static_cast<double>(M);
    const long long lag_lo = lags_ok ? static_cast<long long>(lo_lag) : 0;
    const long long lag_hi = lags_ok ? static_cast<long long>(hi_lag) : -1;
    if (lags_ok && M >= 2 && M <= (std::size_t{1} << 26)) {
        const int trials = 2 * per_side + 1;
        std::vector<double> best_score(static_cast<std::size_t>(trials), -1.0), best_delay(best_score.size(), 0.0);
        arena.execute([&] {
            tbb::parallel_for(0, trials, [&](int t) {
                const double rate = o.rate * (1.0 + rel * (t - per_side));
                if (rate == 0.0 || (rate > 0.0) != (o.rate > 0.0)) return;
                const double A = PI / (rate * 1e6);
                std::vector<std::complex<float>> v(M);
                for (std::size_t i = 0; i < p.f.size(); ++i) {
                    const double d = p.f[i] - o.reference;
                    const double q = A * d * d;
                    const double c = std::cos(q), s = std::sin(q);
                    const std::size_t j = (p.k[i] - start) / bin;
                    v[j] += std::complex<float>(static_cast<float>(p.c[i] * c - p.s[i] * s),
                                                static_cast<float>(p.c[i] * s + p.s[i] * c));
                }
                if (fft_forward_complex_inplace(reinterpret_cast<fftwf_complex*>(v.data()), static_cast<int>(M)) != 0)
                    return;
                const long long Ml = static_cast<long long>(M);
                for (long long lag = lag_lo; lag <= lag_hi; ++lag) {
                    const std::size_t m = static_cast<std::size_t>(((lag % Ml) + Ml) % Ml);
                    const double a = std::abs(v[m]) / n;
                    if (a > best_score[static_cast<std::size_t>(t)]) {
                        best_score[static_cast<std::size_t>(t)] = a;
                        best_delay[static_cast<std::size_t>(t)] = static_cast<double>(lag) * dT;
                    }
                }
            });
        });
        r.evaluations += trials;
        // The stage's best is rescored exactly (the transform ran in single precision).
        int bt = -1;
        for (int t = 0; t < trials; ++t)
            if (bt < 0 || best_score[static_cast<std::size_t>(t)] > best_score[static_cast<std::size_t>(bt)]) bt = t;
        if (bt >= 0 && best_score[static_cast<std::size_t>(bt)] > 0.0) {
            const double rate = o.rate * (1.0 + rel * (bt - per_side));
            const double delay = best_delay[static_cast<std::size_t>(bt)];
            consider(std::abs(turned_sum(p, o.reference, rate, delay)) / n, rate, delay);
        }
    }

    // Stage two: a grid around the best, narrowed level by level, for the
    // fractions of a step and of a sample.
    const int g = std::max(3, o.grid | 1);
    const int half = g / 2;
    double rate_span = per_side > 0 ? std::fabs(o.rate) * rel : 0.0;
    double delay_span = dT * hzppt * static_cast<double>(bin) / h;  // one lag step
    for (int level = 0; level < std::max(0, o.levels); ++level) {
        const int nr = rate_span > 0.0 ? g : 1;
        std::vector<double> scores(static_cast<std::size_t>(nr * g), -1.0);
        const double r0 = r.rate, d0 = r.delay;
        arena.execute([&] {
            tbb::parallel_for(tbb::blocked_range<std::size_t>(0, scores.size()), [&](const auto& range) {
                for (std::size_t t = range.begin(); t != range.end(); ++t) {
                    const int i = static_cast<int>(t) / g, j = static_cast<int>(t) % g;
                    const double rate = nr > 1 ? r0 + rate_span * (i - half) / half : r0;
                    const double delay = d0 + delay_span * (j - half) / half;
                    if (rate == 0.0 || (rate > 0.0) != (o.rate > 0.0)) continue;
                    scores[t] = std::abs(turned_sum(p, o.reference, rate, delay)) / n;
                }
            });
        });
        r.evaluations += static_cast<int>(scores.size());
        // Strictly better only, in grid order: the result does not depend on the workers.
        for (std::size_t t = 0; t < scores.size(); ++t) {
            const int i = static_cast<int>(t) / g, j = static_cast<int>(t) % g;
            consider(scores[t], nr > 1 ? r0 + rate_span * (i - half) / half : r0, d0 + delay_span * (j - half) / half);
        }
        rate_span *= 2.0 / (g - 1);
        delay_span *= 2.0 / (g - 1);
    }
    r.constant = -std::arg(turned_sum(p, o.reference, r.rate, r.delay));
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
