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

PhaseScoreWorkers::PhaseScoreWorkers(const float* re, const float* im, const double* curve, std::size_t count,
                                     double testfit, int workers)
    : P_(count), Q_(count), testfit_(testfit),
      // More threads than the machine runs would only queue: the result is the
      // same for any number of workers.
      workers_(std::clamp(workers, 1, std::max(1, tbb::info::default_concurrency()))) {
    double* P = P_.data();
    double* Q = Q_.data();
    tbb::task_arena arena(workers_);
    arena.execute([&] {
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, BLOCK), [&](const auto& r) {
            for (std::size_t k = r.begin(); k != r.end(); ++k) {
                const double cs = std::cos(curve[k]), sn = std::sin(curve[k]);
                const double a = re[k], b = im[k];
                P[k] = a * cs - b * sn;
                Q[k] = a * sn + b * cs;
            }
        });
    });
}

std::vector<ScoreResult> PhaseScoreWorkers::score(const std::vector<double>& angles) const {
    const std::size_t T = angles.size();
    std::vector<ScoreResult> out(T);
    const std::size_t n = P_.size();
    if (T == 0 || n == 0) return out;
    const std::size_t blocks = (n + BLOCK - 1) / BLOCK;
    std::vector<double> cs(T), sn(T);
    for (std::size_t t = 0; t < T; ++t) {
        cs[t] = std::cos(angles[t]);
        sn[t] = std::sin(angles[t]);
    }
    // Sums per block and trial; every block reads the band once for all trials.
    std::vector<ScoreResult> partial(blocks * T);
    const double* P = P_.data();
    const double* Q = Q_.data();
    const double tf = testfit_;
    tbb::task_arena arena(workers_);
    arena.execute([&] {
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, blocks, 1), [&](const auto& r) {
            for (std::size_t blk = r.begin(); blk != r.end(); ++blk) {
                const std::size_t lo = blk * BLOCK, hi = std::min(n, lo + BLOCK);
                for (std::size_t t = 0; t < T; ++t) {
                    const double c = cs[t], s = sn[t];
                    double score = 0.0, drop = 0.0;
                    for (std::size_t k = lo; k < hi; ++k) {
                        const double y = P[k] * c - Q[k] * s;
                        const double y2 = y * y;
                        score += y > tf ? y2 : 0.0;
                        drop += y < -tf ? y2 : 0.0;
                    }
                    partial[blk * T + t] = {score, drop};
                }
            }
        });
    });
    for (std::size_t blk = 0; blk < blocks; ++blk)
        for (std::size_t t = 0; t < T; ++t) {
            out[t].score += partial[blk * T + t].score;
            out[t].drop += partial[blk * T + t].drop;
        }
    return out;
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
    for (std::size_t i = 1; i + 1 < N; ++i) {
        const double a = y[i - 1], c = y[i], d = y[i + 1];
        if (a > c && d > c && c < limit && std::fabs(d / a) < 2.0) b[i] = c;
    }
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
    for (std::size_t i = 1; i + 1 < y.size(); ++i) y[i] = static_cast<float>(std::max(y[i] - b[i], floor));
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
