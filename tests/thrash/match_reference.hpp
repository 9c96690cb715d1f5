// The fit of one cluster (match) written point by point, as it stood before
// the fit converted its m/z in batches: the scan's fit must give the same
// numbers, value for value.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "thrash/thrash.hpp"
#include "workspace/conversions.hpp"
#include "workspace/spectrum.hpp"

namespace vx::test {

constexpr double REF_SPACING_SCAN = 1.00235;

struct RefAxis {
    const Spectrum& s;
    long n;
    explicit RefAxis(const Spectrum& sp) : s(sp), n(static_cast<long>(sp.data.size())) {}
    double pt(double mz) const { return One_mass_topt(s, mz); }
    double mz(double point) const { return One_pt_tomass(s, point); }
    long clamp(long i) const { return std::clamp(i, 0L, std::max(0L, n - 1)); }
    long nearest(double mz_) const {
        const double p = pt(mz_);
        if (!std::isfinite(p)) return -1;
        const long i = std::lround(p);
        return i < 0 || i >= n ? -1 : i;
    }
    double at(const std::vector<float>& v, double mz_) const {
        const long i = nearest(mz_);
        return i < 0 ? 0.0 : v[static_cast<std::size_t>(i)];
    }
    double interp_at(const std::vector<float>& v, double mz_) const {
        const double p = pt(mz_);
        if (!std::isfinite(p) || p < 0 || p > n - 1) return 0.0;
        const long i = static_cast<long>(std::floor(p));
        if (i >= n - 1) return v[static_cast<std::size_t>(n - 1)];
        const double f = p - i;
        return v[static_cast<std::size_t>(i)] * (1.0 - f) + v[static_cast<std::size_t>(i + 1)] * f;
    }
    // Largest value with its point between two m/z; the nearest point when the
    // window falls between two points; (0, -1) outside the data.
    std::pair<double, long> max_in(const std::vector<float>& v, double lo_mz, double hi_mz) const {
        double a = pt(hi_mz), b = pt(lo_mz);
        if (!std::isfinite(a) || !std::isfinite(b) || n == 0) return {0.0, -1};
        if (a > b) std::swap(a, b);
        long ia = static_cast<long>(std::ceil(a)), ib = static_cast<long>(std::floor(b));
        if (ib < 0 || ia > n - 1) return {0.0, -1};
        ia = clamp(ia);
        ib = clamp(ib);
        if (ia > ib) {
            const long i = clamp(std::lround((a + b) / 2));
            return {v[static_cast<std::size_t>(i)], i};
        }
        long best = ia;
        for (long i = ia + 1; i <= ib; ++i)
            if (v[static_cast<std::size_t>(i)] > v[static_cast<std::size_t>(best)]) best = i;
        return {v[static_cast<std::size_t>(best)], best};
    }
};

inline double ref_s2n_of(double value, double noise, double sigma) {
    return sigma > 0.0 ? (value - noise) / (2.0 * sigma) : 0.0;
}

inline MatchResult match_reference(const Spectrum& s, const std::vector<float>& work, double noise, double /*floor*/, double sigma,
                  double min_s2n, int charge, int quick, double start_mz, double end_mz, const double* pattern_in,
                  const ModelSettings& model) {
    MatchResult r;
    const RefAxis ax(s);
    if (ax.n < 4 || charge < 1 || !(end_mz > start_mz) || !(sigma > 0.0)) return r;
    // The pattern: the table's, or the binomial chain of the other sample types.
    std::array<double, AVERAGINE_WIDTH> pattern{};
    int last = -1;
    if (model.sample_type == 0) {
        for (int k = 0; k < AVERAGINE_WIDTH && pattern_in[k] >= 0.0; ++k) {
            pattern[k] = pattern_in[k];
            last = k;
        }
    } else {
        for (const auto& [h, k] : cdistrib(start_mz, charge, model.sample_type, model.adduct_on, model.adduct_ratio,
                                            model.adduct_offset)) {
            if (k >= AVERAGINE_WIDTH) break;
            pattern[k] = h;
            last = std::max(last, k);
        }
    }
    if (last < 0) return r;
    int top = 0;
    for (int k = 0; k <= last; ++k)
        if (pattern[k] > pattern[top]) top = k;
    const double pmax = pattern[top];
    if (!(pmax > 0.0)) return r;

    // A quarter of the point spacing at the start, within 0.002 to 0.01.
    const double p0 = ax.pt(start_mz);
    double step = std::fabs(ax.mz(p0) - ax.mz(p0 + 1.0)) / 4.0;
    if (!std::isfinite(step)) step = 0.01;
    step = std::clamp(step, 0.002, 0.01);
    const double d = REF_SPACING_SCAN / charge;

    // Out, by the point of the most abundant position.
    const double pa = ax.pt(end_mz + top * d + d), pb = ax.pt(start_mz + top * d - d);
    if (!std::isfinite(pa) || !std::isfinite(pb)) return r;
    r.first_point = ax.clamp(static_cast<long>(std::floor(std::min(pa, pb))));
    const long last_point = ax.clamp(static_cast<long>(std::ceil(std::max(pa, pb))));
    r.fom.assign(static_cast<std::size_t>(last_point - r.first_point + 1), 0.0);
    std::vector<double> scales(r.fom.size(), 0.0);

    constexpr int TRIALS = 11;
    const long steps = static_cast<long>(std::ceil((end_mz - start_mz) / step));
    for (long si = 0; si < steps; ++si) {
        const double pos = start_mz + si * step;
        if (!(pos < end_mz)) break;
        const double neutral = charge * pos - charge * THRASH_PROTON;
        double best_s2n = -1e300;
        for (int k = 0; k <= last; ++k) best_s2n = std::max(best_s2n, ref_s2n_of(ax.at(work, pos + k * d), noise, sigma));
        if (!(best_s2n > min_s2n)) continue;
        const double ma_pos = pos + top * d;
        double peak = ax.max_in(work, ma_pos - d / 2, ma_pos + d / 2).first;
        if (top > 0)
            peak = (peak + ax.max_in(work, ma_pos - d - d / 2, ma_pos - d / 2).first +
                    ax.max_in(work, ma_pos + d / 2, ma_pos + d + d / 2).first) / 3.0;
        double harmonic = 0.0;
        for (long j = 1; j <= static_cast<long>(neutral / 1000.0); ++j) harmonic += 0.1 / static_cast<double>(j);
        const double scale = (peak - noise) / pmax;
        if (!(scale > 0.0)) continue;
        std::array<double, TRIALS> first{}, between{}, diff{}, biggest{};
        const double v_before = ax.at(work, pos - d) - noise;
        for (int j = 0; j < TRIALS; ++j) {
            const double t = v_before / (scale * (0.75 + 0.05 * j));
            first[j] = t * t;
        }
        bool skip = false;
        double count = 0.0, sum_sq = 0.0;
        for (int k = 0; k <= last; ++k) {
            const double pk = pattern[k];
            if (pk < harmonic * pmax) continue;
            const double v = ax.interp_at(work, pos + k * d) - noise;
            const double mid = pos + (k + 0.5) * d;
            const double bv = ax.max_in(work, mid - d / 6, mid + d / 6).first;
            if ((k == 1 || k == 2) && neutral < 1500.0 && ref_s2n_of(v + noise, noise, sigma) < 1.5) {
                skip = true;
                continue;
            }
            for (int j = 0; j < TRIALS; ++j) {
                const double sc = scale * (0.75 + 0.05 * j);
                const double b = (bv - noise) / sc;
                between[j] += b * b;
                const double e = pk - v / sc;
                diff[j] += e * e;
                biggest[j] = std::max(biggest[j], sc * pk);
            }
            sum_sq += pk * pk;
            count += 1.0;
        }
        if (count == 0.0 || sum_sq == 0.0) continue;
        if (quick == 0) count = 2.0 * count + 1.0;
        double best = -1.0, best_scale = 0.0;
        for (int j = 0; j < TRIALS; ++j) {
            if (!(biggest[j] / (2.0 * sigma) > min_s2n)) continue;
            double terms = quick == 0 ? first[j] + between[j] + diff[j] : diff[j];
            // A perfect fit would divide by zero; the merit is then large, not infinite.
            terms = std::max(terms, 1e-9);
            const double merit = count / terms;
            if (merit > best) {
                best = merit;
                best_scale = scale * (0.75 + 0.05 * j);
            }
        }
        if (best < 0.0) continue;
        double fom = best - count / sum_sq;
        if (fom < 0.0 || skip) fom = 0.0;
        const long pt = std::lround(ax.pt(ma_pos));
        if (pt < r.first_point || pt > last_point) continue;
        const std::size_t at = static_cast<std::size_t>(pt - r.first_point);
        if (fom > r.fom[at]) {
            r.fom[at] = fom;
            scales[at] = best_scale;
        }
    }
    for (std::size_t i = 0; i < r.fom.size(); ++i) {
        if (r.fom[i] > r.best_fom) {
            r.best_fom = r.fom[i];
            r.best_point = r.first_point + static_cast<long>(i);
            r.best_scale = scales[i];
        }
    }
    if (r.best_point >= 0) r.best_mz = ax.mz(static_cast<double>(r.best_point));
    return r;
}

}  // namespace vx::test
