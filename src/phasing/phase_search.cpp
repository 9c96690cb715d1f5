#include "phasing/phase_search.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/info.h>
#include <tbb/task_arena.h>

namespace vx {
namespace {
constexpr double PI = std::numbers::pi;
constexpr std::size_t BLOCK = 1 << 15;

double rad(int degrees) { return degrees * PI / 180.0; }
}  // namespace

ScoreResult ScorePhase0(const ScoreJob& job) {
    ScoreResult r;
    for (std::size_t k = 0; k < job.count; ++k) {
        const double p = job.phase[k] + job.cterm;
        const double y = job.real[k] * std::cos(p) - job.imag[k] * std::sin(p);
        if (y > job.testfit)
            r.score += y * y;
        else if (y < -job.testfit)
            r.drop += y * y;
    }
    return r;
}

namespace {
int usable_workers(int workers) {
    // More threads than the machine runs would only queue: the result is the
    // same for any number of workers.
    return std::clamp(workers, 1, std::max(1, tbb::info::default_concurrency()));
}
}  // namespace

void turn_by_curve(const float* re, const float* im, const double* curve, std::size_t n, std::vector<float>& P,
                   std::vector<float>& Q) {
    P.resize(n);
    Q.resize(n);
    float* p = P.data();
    float* q = Q.data();
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, n, BLOCK), [&](const auto& r) {
        for (std::size_t k = r.begin(); k != r.end(); ++k) {
            const double cs = std::cos(curve[k]), sn = std::sin(curve[k]);
            const double a = re[k], b = im[k];
            p[k] = static_cast<float>(a * cs - b * sn);
            q[k] = static_cast<float>(a * sn + b * cs);
        }
    });
}

void PhaseScoreWorkers::keep_significant(const float* P, const float* Q, std::size_t count) {
    // Kept with a hair of margin so that rounding can never drop a point that
    // would score; a kept point below the threshold still adds nothing.
    const double limit = testfit_ * testfit_ * (1.0 - 1e-9);
    const std::size_t blocks = (count + BLOCK - 1) / BLOCK;
    std::vector<std::vector<std::size_t>> picked(blocks);
    tbb::task_arena arena(workers_);
    arena.execute([&] {
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, blocks, 1), [&](const auto& r) {
            for (std::size_t blk = r.begin(); blk != r.end(); ++blk) {
                const std::size_t lo = blk * BLOCK, hi = std::min(count, lo + BLOCK);
                for (std::size_t k = lo; k < hi; ++k) {
                    const double p = P[k], q = Q[k];
                    if (p * p + q * q > limit) picked[blk].push_back(k);
                }
            }
        });
    });
    std::size_t total = 0;
    for (const auto& v : picked) total += v.size();
    P_.reserve(total);
    Q_.reserve(total);
    for (const auto& v : picked)
        for (std::size_t k : v) {
            P_.push_back(P[k]);
            Q_.push_back(Q[k]);
        }
}

PhaseScoreWorkers::PhaseScoreWorkers(const float* re, const float* im, const double* curve, std::size_t count,
                                     double testfit, int workers)
    : n_(count), testfit_(testfit), workers_(usable_workers(workers)) {
    std::vector<float> P, Q;
    tbb::task_arena arena(workers_);
    arena.execute([&] { turn_by_curve(re, im, curve, count, P, Q); });
    keep_significant(P.data(), Q.data(), count);
}

PhaseScoreWorkers PhaseScoreWorkers::over(const float* P, const float* Q, std::size_t count, double testfit,
                                          int workers) {
    PhaseScoreWorkers w;
    w.n_ = count;
    w.testfit_ = testfit;
    w.workers_ = usable_workers(workers);
    w.keep_significant(P, Q, count);
    return w;
}

std::vector<ScoreResult> PhaseScoreWorkers::score(const std::vector<double>& angles) const {
    const std::size_t T = angles.size();
    std::vector<ScoreResult> out(T);
    const std::size_t n = P_.size();
    if (T == 0 || n == 0) return out;
    const std::size_t blocks = (n + BLOCK - 1) / BLOCK;
    // Trials padded to groups of four, scored together so that each point is
    // loaded once per group and the four sums run side by side.
    const std::size_t G = (T + 3) / 4;
    std::vector<double> cs(4 * G, 1.0), sn(4 * G, 0.0);
    for (std::size_t t = 0; t < T; ++t) {
        cs[t] = std::cos(angles[t]);
        sn[t] = std::sin(angles[t]);
    }
    std::vector<ScoreResult> partial(blocks * 4 * G);
    const float* P = P_.data();
    const float* Q = Q_.data();
    const double tf = testfit_;
    tbb::task_arena arena(workers_);
    arena.execute([&] {
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, blocks, 1), [&](const auto& r) {
            for (std::size_t blk = r.begin(); blk != r.end(); ++blk) {
                const std::size_t lo = blk * BLOCK, hi = std::min(n, lo + BLOCK);
                for (std::size_t g = 0; g < G; ++g) {
                    const double c0 = cs[4 * g], c1 = cs[4 * g + 1], c2 = cs[4 * g + 2], c3 = cs[4 * g + 3];
                    const double s0 = sn[4 * g], s1 = sn[4 * g + 1], s2 = sn[4 * g + 2], s3 = sn[4 * g + 3];
                    double a0 = 0, a1 = 0, a2 = 0, a3 = 0, d0 = 0, d1 = 0, d2 = 0, d3 = 0;
                    for (std::size_t k = lo; k < hi; ++k) {
                        const double p = P[k], q = Q[k];
                        const double y0 = p * c0 - q * s0, y1 = p * c1 - q * s1;
                        const double y2 = p * c2 - q * s2, y3 = p * c3 - q * s3;
                        a0 += y0 > tf ? y0 * y0 : 0.0;
                        d0 += y0 < -tf ? y0 * y0 : 0.0;
                        a1 += y1 > tf ? y1 * y1 : 0.0;
                        d1 += y1 < -tf ? y1 * y1 : 0.0;
                        a2 += y2 > tf ? y2 * y2 : 0.0;
                        d2 += y2 < -tf ? y2 * y2 : 0.0;
                        a3 += y3 > tf ? y3 * y3 : 0.0;
                        d3 += y3 < -tf ? y3 * y3 : 0.0;
                    }
                    ScoreResult* out4 = &partial[(blk * G + g) * 4];
                    out4[0] = {a0, d0};
                    out4[1] = {a1, d1};
                    out4[2] = {a2, d2};
                    out4[3] = {a3, d3};
                }
            }
        });
    });
    for (std::size_t blk = 0; blk < blocks; ++blk)
        for (std::size_t t = 0; t < T; ++t) {
            const ScoreResult& r = partial[blk * G * 4 + t];
            out[t].score += r.score;
            out[t].drop += r.drop;
        }
    return out;
}

double PhaseScoreWorkers::vector_constant() const {
    double sr = 0.0, si = 0.0;
    for (std::size_t k = 0; k < P_.size(); ++k) {
        const double p = P_[k], q = Q_[k];
        const double w = p * p + q * q;
        sr += p * w;
        si += q * w;
    }
    return (sr == 0.0 && si == 0.0) ? 0.0 : -std::atan2(si, sr);
}

LadderResult phase_ladder(const PhaseScoreWorkers& w) {
    LadderResult best;
    auto rung = [&](const std::vector<int>& degrees) {
        std::vector<double> angles;
        for (int d : degrees) angles.push_back(rad(d));
        const std::vector<ScoreResult> r = w.score(angles);
        best.evaluations += static_cast<int>(degrees.size());
        // Slots in order; only a strictly larger score wins, so ties keep the
        // earlier trial (or the best of the rung before).
        for (std::size_t i = 0; i < degrees.size(); ++i)
            if (r[i].score > best.score) {
                best.score = r[i].score;
                best.drop = r[i].drop;
                best.best_degrees = degrees[i];
            }
    };
    std::vector<int> one;
    for (int d = -180; d <= 144; d += 36) one.push_back(d);
    rung(one);
    const int b1 = best.best_degrees;
    std::vector<int> two;
    for (int d = b1 - 32; d <= b1 + 32; d += 4)
        if (d != b1) two.push_back(d);
    rung(two);
    const int b2 = best.best_degrees;
    std::vector<int> three;
    for (int d = b2 - 4; d <= b2 + 4; ++d)
        if (d != b2) three.push_back(d);
    rung(three);
    return best;
}

int analytical_degrees(int method, double signed_rate, int polarity, double harmonic) {
    const bool positive = (signed_rate > 0.0 && polarity == 0) || (signed_rate < 0.0 && polarity == 1);
    int d = static_cast<int>(std::lround(45.0 * harmonic));
    if (!positive) d = -d;
    if (method == 2) d = -d;
    return d;
}

std::vector<double> baseline_minima(const std::vector<float>& y, double limit) {
    const std::size_t N = y.size();
    std::vector<double> b(N, 0.0);
    if (N < 3) return b;
    tbb::parallel_for(tbb::blocked_range<std::size_t>(1, N - 1, BLOCK), [&](const auto& r) {
        for (std::size_t i = r.begin(); i != r.end(); ++i) {
            const double a = y[i - 1], c = y[i], d = y[i + 1];
            // |d / a| < 2 written without the division (the same test for
            // single-precision values, a zero a failing both ways).
            if (a > c && d > c && c < limit && std::fabs(d) < 2.0 * std::fabs(a)) b[i] = c;
        }
    });
    return b;
}

void join_baseline(std::vector<double>& b) {
    const std::size_t N = b.size();
    std::size_t i = 0;
    while (i < N && b[i] == 0.0) ++i;
    if (i >= N) return;
    for (std::size_t j = i + 1; j < N; ++j) {
        if (b[j] == 0.0) continue;
        const double bi = b[i], bj = b[j];
        const double span = static_cast<double>(j - i);
        for (std::size_t m = 0; m <= j - i; ++m) b[i + m] = static_cast<double>(m) * (bj - bi) / span + bi;
        i = j;
    }
}

void smooth_baseline_in_place(std::vector<double>& b, int half) {
    const long long N = static_cast<long long>(b.size());
    const long long h = half;
    if (N < 2 * h + 1) return;
    // In place, as the averaging was always done: the left half of each window
    // already holds smoothed values, so the filter is recursive on that side.
    const double width = static_cast<double>(2 * h + 1);
    double S = 0.0;
    for (long long k = 0; k <= 2 * h; ++k) S += b[k];
    for (long long i = h; i <= N - h - 1; ++i) {
        // The recursion lets a lone dip decay geometrically towards subnormal
        // numbers, where every addition is slow; values this small do not
        // change a single-precision spectrum, so they end at zero.
        if (std::fabs(S) < 1e-30) S = 0.0;
        const double v = S / width;
        S += v - b[i];
        b[i] = v;
        if (i + h + 1 < N) S += b[i + h + 1] - b[i - h];
    }
}

void remove_phase_baseline(std::vector<float>& y, double limit, bool join, int half, double floor) {
    std::vector<double> b = baseline_minima(y, limit);
    if (join) join_baseline(b);
    smooth_baseline_in_place(b, half);
    if (y.size() < 3) return;
    tbb::parallel_for(tbb::blocked_range<std::size_t>(1, y.size() - 1, BLOCK), [&](const auto& r) {
        for (std::size_t i = r.begin(); i != r.end(); ++i) y[i] = static_cast<float>(std::max(y[i] - b[i], floor));
    });
}

void remove_median_baseline(std::vector<float>& y, std::size_t window) {
    const std::size_t N = y.size();
    if (window < 8 || N < 2 * window) return;
    const std::size_t windows = N / window;
    std::vector<double> centre(windows), level(windows);
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, windows, 16), [&](const auto& r) {
        std::vector<float> local(window);
        for (std::size_t w = r.begin(); w != r.end(); ++w) {
            const std::size_t a = w * window;
            // The last window takes the rest of the spectrum.
            const std::size_t b = w + 1 == windows ? N : a + window;
            local.assign(y.begin() + static_cast<std::ptrdiff_t>(a), y.begin() + static_cast<std::ptrdiff_t>(b));
            auto mid = local.begin() + static_cast<std::ptrdiff_t>(local.size() / 2);
            std::nth_element(local.begin(), mid, local.end());
            level[w] = *mid;
            centre[w] = 0.5 * static_cast<double>(a + b - 1);
        }
    });
    std::size_t w = 0;
    for (std::size_t i = 0; i < N; ++i) {
        while (w + 1 < windows && static_cast<double>(i) > centre[w + 1]) ++w;
        double b = level[w];
        if (w + 1 < windows && static_cast<double>(i) > centre[w]) {
            const double t = (static_cast<double>(i) - centre[w]) / (centre[w + 1] - centre[w]);
            b = level[w] + t * (level[w + 1] - level[w]);
        }
        y[i] = static_cast<float>(y[i] - b);
    }
}

}  // namespace vx
