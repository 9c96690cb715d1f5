#include "thrash/thrash.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <limits>
#include <span>
#include <sstream>

#include <fmt/format.h>
#include <tbb/parallel_for.h>

#include "peaks/noise.hpp"
#include "platform/ui.hpp"
#include "thrash/sequence.hpp"
#include "workspace/conversions.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

namespace {

// The three isotope spacings stand where they are used: 1.00235 in the scan of
// a cluster, 1.0029 where a window of the spectrum is located, 1.00254 for the
// distance to the most abundant isotope.
constexpr double SPACING_SCAN = 1.00235;
constexpr double SPACING_WINDOW = 1.0029;
constexpr double PROTON_EXACT = 1.00727647;

// Point access on the spectrum's axis (the highest m/z has the lowest point).
struct Axis {
    const Spectrum& s;
    long n;
    explicit Axis(const Spectrum& sp) : s(sp), n(static_cast<long>(sp.data.size())) {}
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

double s2n_of(double value, double noise, double sigma) {
    return sigma > 0.0 ? (value - noise) / (2.0 * sigma) : 0.0;
}

// num / den >= 20 as the division gives it: over a zero den the ratio is
// infinite when num is above zero (a place subtracted down to the noise is
// skipped), no number when num is zero too (fitted).
bool twenty_times(double num, double den) {
    if (den == 0.0) return num > 0.0;
    return num / den >= 20.0;
}

std::array<double, AVERAGINE_WIDTH> pattern_of(double mz, int charge, const AveragineTable& table, const Spectrum& s,
                                               const ModelSettings& model, int* length, int* top) {
    std::array<double, AVERAGINE_WIDTH> p{};
    const int len = static_cast<int>(distrib_calculation(mz, charge, p.data(), nullptr, 1, table, s, model));
    if (length) *length = len;
    if (top) {
        int t = 0;
        for (int k = 0; k < len; ++k)
            if (p[k] > p[t]) t = k;
        *top = t;
    }
    return p;
}

}  // namespace

void ProfileThrashData(double threshold, double factor, float* data, long n) {
    const double cut = threshold * factor;
    for (long i = 0; i < n; ++i)
        if (data[i] < cut) data[i] = 0.0f;
}

double thrash_first_noise(const Spectrum& s) {
    const Axis ax(s);
    if (ax.n == 0) return 0.0;
    double a = ax.pt(1000000.0), b = ax.pt(20.0);
    if (!std::isfinite(a)) a = 0;
    if (!std::isfinite(b)) b = static_cast<double>(ax.n - 1);
    const long ia = ax.clamp(static_cast<long>(std::min(a, b))), ib = ax.clamp(static_cast<long>(std::max(a, b)));
    std::vector<double> v(s.data.begin() + ia, s.data.begin() + ib + 1);
    if (v.empty()) return 0.0;
    double mean = 0.0;
    for (double x : v) mean += x;
    mean /= static_cast<double>(v.size());
    double var = 0.0;
    for (double x : v) var += (x - mean) * (x - mean);
    const double sd = v.size() > 1 ? std::sqrt(var / static_cast<double>(v.size() - 1)) : 0.0;
    std::vector<double> sorted = v;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<long>(sorted.size() / 2), sorted.end());
    const double median = sorted[sorted.size() / 2];
    std::vector<double> squares;
    for (double x : v)
        if (x < median + sd) squares.push_back(x * x);
    if (squares.empty()) return 0.0;
    std::nth_element(squares.begin(), squares.begin() + static_cast<long>(squares.size() / 2), squares.end());
    return squares[squares.size() / 2];
}

namespace {

// The points of many m/z at once; each is the value One_mass_topt gives alone.
struct PointBatch {
    std::vector<double> mz, pt;
    void clear() { mz.clear(); }
    std::size_t add(double m) {
        mz.push_back(m);
        return mz.size() - 1;
    }
    void convert(const Spectrum& s) {
        pt.resize(mz.size());
        One_mass_topt(s, std::span<const double>(mz), std::span<double>(pt));
    }
};

// Axis reads on points already converted; the same rules as Axis::at,
// Axis::interp_at and Axis::max_in.
double at_point(const std::vector<float>& v, long n, double p) {
    if (!std::isfinite(p)) return 0.0;
    const long i = std::lround(p);
    return i < 0 || i >= n ? 0.0 : v[static_cast<std::size_t>(i)];
}

double interp_point(const std::vector<float>& v, long n, double p) {
    if (!std::isfinite(p) || p < 0 || p > n - 1) return 0.0;
    const long i = static_cast<long>(std::floor(p));
    if (i >= n - 1) return v[static_cast<std::size_t>(n - 1)];
    const double f = p - i;
    return v[static_cast<std::size_t>(i)] * (1.0 - f) + v[static_cast<std::size_t>(i + 1)] * f;
}

// a: the point of the upper m/z, b: of the lower.
double max_between_points(const std::vector<float>& v, long n, double a, double b) {
    if (!std::isfinite(a) || !std::isfinite(b) || n == 0) return 0.0;
    if (a > b) std::swap(a, b);
    long ia = static_cast<long>(std::ceil(a)), ib = static_cast<long>(std::floor(b));
    if (ib < 0 || ia > n - 1) return 0.0;
    const long hi = std::max(0L, n - 1);
    ia = std::clamp(ia, 0L, hi);
    ib = std::clamp(ib, 0L, hi);
    if (ia > ib) return v[static_cast<std::size_t>(std::clamp(std::lround((a + b) / 2), 0L, hi))];
    float best = v[static_cast<std::size_t>(ia)];
    for (long i = ia + 1; i <= ib; ++i) best = std::max(best, v[static_cast<std::size_t>(i)]);
    return best;
}

}  // namespace

MatchResult match(const Spectrum& s, const std::vector<float>& work, double noise, double /*floor*/, double sigma,
                  double min_s2n, int charge, int quick, double start_mz, double end_mz, const double* pattern_in,
                  const ModelSettings& model) {
    MatchResult r;
    const Axis ax(s);
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
    const double d = SPACING_SCAN / charge;

    // Out, by the point of the most abundant position.
    const double pa = ax.pt(end_mz + top * d + d), pb = ax.pt(start_mz + top * d - d);
    if (!std::isfinite(pa) || !std::isfinite(pb)) return r;
    r.first_point = ax.clamp(static_cast<long>(std::floor(std::min(pa, pb))));
    const long last_point = ax.clamp(static_cast<long>(std::ceil(std::max(pa, pb))));
    r.fom.assign(static_cast<std::size_t>(last_point - r.first_point + 1), 0.0);
    std::vector<double> scales(r.fom.size(), 0.0);

    // The isotopes that take part at a mass: those the harmonic limit lets
    // through (the limit only rises with the mass; it is kept per count of
    // thousands, summed the same way as for one position).
    long harmonic_n = -1;
    double harmonic = 0.0;

    constexpr int TRIALS = 11;
    std::array<double, TRIALS> trial{};
    for (int j = 0; j < TRIALS; ++j) trial[j] = 0.75 + 0.05 * j;
    const long n = ax.n;
    PointBatch iso, rest;
    std::vector<int> counted;
    counted.reserve(static_cast<std::size_t>(last + 1));
    const long steps = static_cast<long>(std::ceil((end_mz - start_mz) / step));
    for (long si = 0; si < steps; ++si) {
        const double pos = start_mz + si * step;
        if (!(pos < end_mz)) break;
        const double neutral = charge * pos - charge * THRASH_PROTON;
        // Each m/z below is converted to its point once, all of a position at once.
        iso.clear();
        for (int k = 0; k <= last; ++k) iso.add(pos + k * d);
        iso.convert(s);
        double best_s2n = -1e300;
        for (int k = 0; k <= last; ++k) best_s2n = std::max(best_s2n, s2n_of(at_point(work, n, iso.pt[k]), noise, sigma));
        if (!(best_s2n > min_s2n)) continue;
        const double ma_pos = pos + top * d;
        rest.clear();
        const std::size_t w0 = rest.add(ma_pos + d / 2), w1 = rest.add(ma_pos - d / 2);
        std::size_t w2 = 0, w3 = 0, w4 = 0, w5 = 0;
        if (top > 0) {
            w2 = rest.add(ma_pos - d / 2);
            w3 = rest.add(ma_pos - d - d / 2);
            w4 = rest.add(ma_pos + d + d / 2);
            w5 = rest.add(ma_pos + d / 2);
        }
        const std::size_t before = rest.add(pos - d);
        const std::size_t at_ma = rest.add(ma_pos);
        if (static_cast<long>(neutral / 1000.0) != harmonic_n) {
            harmonic_n = static_cast<long>(neutral / 1000.0);
            harmonic = 0.0;
            for (long j = 1; j <= harmonic_n; ++j) harmonic += 0.1 / static_cast<double>(j);
        }
        counted.clear();
        for (int k = 0; k <= last; ++k)
            if (!(pattern[k] < harmonic * pmax)) counted.push_back(k);
        const std::size_t mids = rest.mz.size();
        for (int k : counted) {
            const double mid = pos + (k + 0.5) * d;
            rest.add(mid + d / 6);
            rest.add(mid - d / 6);
        }
        rest.convert(s);
        double peak = max_between_points(work, n, rest.pt[w0], rest.pt[w1]);
        if (top > 0)
            peak = (peak + max_between_points(work, n, rest.pt[w2], rest.pt[w3]) +
                    max_between_points(work, n, rest.pt[w4], rest.pt[w5])) / 3.0;
        const double scale = (peak - noise) / pmax;
        if (!(scale > 0.0)) continue;
        // No trial whose largest model height stands above min_s2n: no merit here.
        // (The largest height of a trial is at most its scale times pmax.)
        bool any = false;
        for (int j = 0; j < TRIALS; ++j) any = any || (scale * trial[j]) * pmax / (2.0 * sigma) > min_s2n;
        if (!any) continue;
        std::array<double, TRIALS> first{}, between{}, diff{}, biggest{};
        const double v_before = at_point(work, n, rest.pt[before]) - noise;
        for (int j = 0; j < TRIALS; ++j) {
            const double t = v_before / (scale * trial[j]);
            first[j] = t * t;
        }
        bool skip = false;
        double count = 0.0, sum_sq = 0.0;
        for (std::size_t ci = 0; ci < counted.size(); ++ci) {
            const int k = counted[ci];
            const double pk = pattern[k];
            const double v = interp_point(work, n, iso.pt[static_cast<std::size_t>(k)]) - noise;
            const double bv = max_between_points(work, n, rest.pt[mids + 2 * ci], rest.pt[mids + 2 * ci + 1]);
            if ((k == 1 || k == 2) && neutral < 1500.0 && s2n_of(v + noise, noise, sigma) < 1.5) {
                skip = true;
                continue;
            }
            for (int j = 0; j < TRIALS; ++j) {
                const double sc = scale * trial[j];
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
                best_scale = scale * trial[j];
            }
        }
        if (best < 0.0) continue;
        double fom = best - count / sum_sq;
        if (fom < 0.0 || skip) fom = 0.0;
        const double pma = rest.pt[at_ma];
        if (!std::isfinite(pma)) continue;
        const long pt = std::lround(pma);
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

namespace {

class Scan {
public:
    Scan(Spectrum& s, const ThrashParams& p, const AveragineTable& t, ThrashResult& r, Ui& ui)
        : s_(s), p_(p), table_(t), r_(r), ui_(ui), ax_(s) {}

    double noise = 0.0, sigma = 0.0;
    // Point spans the subtraction has written since the last whole-array pass.
    std::vector<std::pair<long, long>> touched;

    // Returns the mass the walk goes on from.
    double peak_find(double s2n, double mass, double peak_mz, double peak_height);
    // Fit and report one cluster at a known place; charge 0: combo_cd.
    bool fit_at(double peak_mz, int forced_charge, double low_mz, double high_mz);

private:
    struct Winner {
        int charge = 0;
        double fom = 0.0;
        double mz = 0.0;
        long point = -1;
        bool all = false;
        double second = 0.0;
    };
    std::pair<double, double> span_of(double mz, int charge, int* idx) const;
    MatchResult fit(double mz, int charge, double lo, double hi) const;
    void report(const Winner& w);
    void calc_distrib(double mono_mz, int charge, ThrashPeak& tp) const;
    void subtract(const ThrashPeak& tp);

    Spectrum& s_;
    const ThrashParams& p_;
    const AveragineTable& table_;
    ThrashResult& r_;
    Ui& ui_;
    Axis ax_;
};

std::pair<double, double> Scan::span_of(double mz, int charge, int* idx_out) const {
    std::array<double, AVERAGINE_WIDTH> pat{};
    const int idx = static_cast<int>(distrib_calculation(mz, charge, pat.data(), nullptr, 2, table_, s_, p_.model));
    if (idx_out) *idx_out = idx;
    const double step = SPACING_SCAN / charge;
    if (idx == 0) return {mz - step, mz + step};
    return {mz - 2.0 * idx * step, mz};
}

MatchResult Scan::fit(double mz, int charge, double lo, double hi) const {
    int len = 0;
    const auto pat = pattern_of(mz, charge, table_, s_, p_.model, &len, nullptr);
    return match(s_, s_.data2, noise, p_.floor, sigma, p_.min_s2n, charge, 0, lo, hi, pat.data(), p_.model);
}

double Scan::peak_find(double s2n, double mass, double peak_mz, double peak_height) {
    if (s2n < p_.min_s2n) return mass + 1.0;
    // A peak in the upper half of the window is taken from the next half window.
    if (1.0 - (peak_mz - mass) < 0.5) {
        const auto [v, i] = ax_.max_in(s_.data2, mass + 0.5, mass + 1.5);
        if (i < 0) return mass + 1.0;
        peak_height = v;
        peak_mz = ax_.mz(static_cast<double>(i));
    }
    // A place already subtracted leaves a residue twenty times below the data.
    const double raw = ax_.max_in(s_.data, mass, mass + 1.0).first;
    if (twenty_times(raw - noise, peak_height - noise)) return mass + 1.0;
    if (!fit_at(peak_mz, 0, 0.0, 0.0)) return mass + 1.0;
    return std::max(p_.low_mass, mass - 3.0);
}

bool Scan::fit_at(double peak_mz, int forced_charge, double low_mz, double high_mz) {
    Winner w;
    int z0 = forced_charge;
    double second = 0.0;
    if (z0 <= 0) {
        ChargeScores sc;
        z0 = combo_cd(peak_mz - 0.6, peak_mz + 0.6, sc, s_, p_.bins, true);
        if (!sc.product.empty()) {
            // The second-best score: the product with its maximum (and the
            // maximum's double, a harmonic) zeroed two steps about.
            std::vector<double> rest = sc.product;
            const long n = static_cast<long>(rest.size());
            const long top = std::max_element(rest.begin(), rest.end()) - rest.begin();
            auto zero = [&](long a, long b) {
                for (long i = std::max(0L, a); i <= std::min(n - 1, b); ++i) rest[static_cast<std::size_t>(i)] = 0.0;
            };
            if (z0 == p_.bins) zero(top - 2, top);
            else zero(top - 2, top + 2);
            if (z0 < p_.bins / 2) zero(2 * top - 2, 2 * top + 2);
            second = *std::max_element(rest.begin(), rest.end());
        }
        if (z0 == 0) z0 = 1;
    }
    // The span of start positions.
    double lo = 0.0, hi = 0.0;
    if (low_mz > 0.0 && high_mz > low_mz) {
        int idx = 0;
        span_of(peak_mz, z0, &idx);
        lo = low_mz - idx * SPACING_SCAN / z0;
        hi = high_mz - idx * SPACING_SCAN / z0;
    } else {
        std::tie(lo, hi) = span_of(peak_mz, z0, nullptr);
    }
    const MatchResult m0 = fit(peak_mz, z0, lo, hi);
    ++r_.fits;
    w.charge = z0;
    w.fom = m0.best_fom;
    w.mz = m0.best_mz;
    w.point = m0.best_point;
    w.second = second;
    const double rl0 = convert_FOM_to_RL(m0.best_fom, z0);
    if (rl0 < 0.9 && forced_charge <= 0) {
        ++r_.all_charge_passes;
        const auto pass_start = std::chrono::steady_clock::now();
        int max_charge = p_.max_charge;
        if (p_.max_mass > 0.0 && p_.max_mass < max_charge * peak_mz - max_charge * THRASH_PROTON)
            max_charge = static_cast<int>(std::floor(p_.max_mass / peak_mz));
        Winner best;
        best.fom = -1.0;
        const int first_charge = std::max(1, p_.min_charge);
        std::vector<Winner> by_charge(static_cast<std::size_t>(std::max(0, max_charge - first_charge + 1)));
        // Every charge is fitted on its own (the working copy is only read), so
        // the fits run in parallel; the choice below walks them in order, and
        // the result is that of one thread.
        tbb::parallel_for(std::size_t{0}, by_charge.size(), [&](std::size_t i) {
            const int c = first_charge + static_cast<int>(i);
            const auto [clo, chi] = span_of(peak_mz, c, nullptr);
            Winner wc;
            wc.charge = c;
            wc.all = true;
            const double centre = (clo + chi) / 2.0;
            const double work_s2n = s2n_of(ax_.at(s_.data2, centre), noise, sigma);
            const double raw_s2n = s2n_of(ax_.at(s_.data, centre), noise, sigma);
            if (twenty_times(raw_s2n, work_s2n)) {
                wc.fom = 0.0;
            } else {
                const MatchResult mc = fit(peak_mz, c, clo, chi);
                wc.fom = mc.best_fom;
                wc.mz = mc.best_mz;
                wc.point = mc.best_point;
            }
            by_charge[i] = wc;
        });
        r_.fits += static_cast<int>(by_charge.size());
        r_.all_charge_seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - pass_start).count();
        for (const Winner& wc : by_charge)
            if (wc.fom > best.fom) best = wc;  // the first one in a tie
        if (best.charge == 1 && p_.min_charge == 1) {
            Winner other;
            other.fom = -1.0;
            for (const Winner& wc : by_charge)
                if (wc.charge != 1 && wc.fom > other.fom) other = wc;
            if (other.fom >= 0.0 && convert_FOM_to_RL(other.fom, other.charge) > p_.min_rl) best = other;
        }
        // A charge from combo_cd outside the limits comes back when it fitted better.
        const bool z0_outside = z0 < p_.min_charge || z0 > max_charge;
        if (!(z0_outside && m0.best_fom > best.fom) && best.fom >= 0.0) {
            best.second = second;
            w = best;
        }
    }
    if (w.point < 0) return false;
    const double rl = convert_FOM_to_RL(w.fom, w.charge);
    if (rl <= p_.min_rl) return false;
    report(w);
    return true;
}

void Scan::calc_distrib(double mono_mz, int charge, ThrashPeak& tp) const {
    // The adduct offset is reset at the start of the model of a found cluster.
    ModelSettings model = p_.model;
    model.adduct_offset = 0;
    std::array<double, AVERAGINE_WIDTH> pat{};
    const int idx = static_cast<int>(distrib_calculation(mono_mz, charge, pat.data(), nullptr, 2, table_, s_, model));
    const double d = SPACING_SCAN / charge;
    const double pos = mono_mz + idx * d;
    const double half = 1.0 / (2.0 * charge);
    double peak = ax_.max_in(s_.data2, pos - half, pos + half).first;
    if (idx >= 1) {
        peak = (peak + ax_.max_in(s_.data2, pos - d - half, pos - d + half).first +
                ax_.max_in(s_.data2, pos + d - half, pos + d + half).first) / 3.0;
    }
    const int len = static_cast<int>(distrib_calculation(mono_mz, charge, pat.data(), nullptr, 1, table_, s_, model));
    double pmax = 0.0;
    for (int k = 0; k < len; ++k) pmax = std::max(pmax, pat[k]);
    double scale = pmax > 0.0 ? (peak - noise) / pmax : 0.0;
    std::array<double, 11> diff{};
    for (int k = 0; k < len; ++k) {
        if (!(s2n_of(pat[k] * scale + noise, noise, sigma) > 1.0)) continue;
        const double measured = ax_.interp_at(s_.data2, mono_mz + k * SPACING_WINDOW / charge);
        for (int j = 0; j < 11; ++j) {
            const double e = measured - (0.75 + 0.05 * j) * scale * pat[k];
            diff[j] += e * e;
        }
    }
    const int j = static_cast<int>(std::min_element(diff.begin(), diff.end()) - diff.begin());
    scale = scale * 0.75 + scale * j * 0.05;
    tp.pairs = {};
    tp.distrib_size = std::min(len, THRASH_PAIRS);
    for (int k = 0; k < tp.distrib_size; ++k) tp.pairs[k] = {mono_mz + k * d, pat[k] * scale + noise};
}

void Scan::subtract(const ThrashPeak& tp) {
    std::vector<float>& w = s_.data2;
    const double t = std::min(1.5, p_.min_s2n);
    const long n = ax_.n;
    for (int k = 0; k < tp.distrib_size; ++k) {
        const auto [mz, h] = tp.pairs[k];
        if (!(mz > 0.0)) continue;
        const long p = ax_.nearest(mz);
        if (p <= 0 || !(s2n_of(h, noise, sigma) > t)) continue;
        long im = ax_.clamp(p - 3);
        for (long i = im; i <= ax_.clamp(p + 3); ++i)
            if (w[static_cast<std::size_t>(i)] > w[static_cast<std::size_t>(im)]) im = i;
        const double mx = w[static_cast<std::size_t>(im)];
        if (!(mx > 0.0)) continue;
        const double half = noise + (mx - noise) / 2.0;
        auto sum3 = [&](long i) {
            double v = 0.0;
            for (long j = i - 1; j <= i + 1; ++j) v += w[static_cast<std::size_t>(ax_.clamp(j))];
            return v;
        };
        long l = im, r = im;
        while (l > 0 && w[static_cast<std::size_t>(l - 1)] > half) --l;
        while (l > 1 && sum3(l - 1) < sum3(l)) --l;
        while (r < n - 1 && w[static_cast<std::size_t>(r + 1)] > half) ++r;
        while (r < n - 2 && sum3(r + 1) < sum3(r)) ++r;
        touched.emplace_back(l, r);
        const bool whole = p_.clean_residues && h - noise >= 0.5 * (mx - noise);
        for (long i = l; i <= r; ++i) {
            float& v = w[static_cast<std::size_t>(i)];
            const double shape = whole ? v : v / mx * (h - noise);
            v = v - shape < 0.0 ? static_cast<float>(noise) : static_cast<float>(v - shape);
            if (v < noise) v = static_cast<float>(noise);
        }
    }
}

void Scan::report(const Winner& w) {
    const int c = w.charge;
    std::array<double, AVERAGINE_WIDTH> pat{};
    const int idx2 = static_cast<int>(distrib_calculation(w.mz, c, pat.data(), nullptr, 2, table_, s_, p_.model));
    const double sign = p_.positive == 1 ? -1.0 : 1.0;
    ThrashPeak tp;
    tp.charge = c;
    // The proton mass stands for the isotope spacing here, as it always has:
    // the mono mass comes out idx2 x 0.00492 Da low. The refined mass below
    // is the one to compare with theory.
    tp.monoisotopic_mz = w.mz - idx2 * (THRASH_PROTON / c);
    tp.monoisotopic_mass = c * tp.monoisotopic_mz + sign * c * THRASH_PROTON;
    tp.mostabundant_mz = w.mz;
    tp.mostabundant_mass = c * w.mz + sign * c * THRASH_PROTON;
    tp.fom = w.fom;
    tp.rl = convert_FOM_to_RL(w.fom, c);
    tp.rl_text = rl_text(tp.rl);
    tp.all_charges = w.all;
    tp.second_charge_score = w.second;
    // Refined: the top interpolated by a parabola through the three points
    // about the data's own maximum (the best fit may sit a point beside it).
    const std::vector<float>& d = s_.data;
    long p = w.point;
    for (int climb = 0; climb < 3 && p > 0 && p < ax_.n - 1; ++climb) {
        const float here = d[static_cast<std::size_t>(p)];
        if (d[static_cast<std::size_t>(p - 1)] > here && d[static_cast<std::size_t>(p - 1)] >= d[static_cast<std::size_t>(p + 1)])
            --p;
        else if (d[static_cast<std::size_t>(p + 1)] > here)
            ++p;
        else
            break;
    }
    double top_mz = ax_.mz(static_cast<double>(p));
    if (p > 0 && p < ax_.n - 1) {
        const double y0 = d[static_cast<std::size_t>(p - 1)], y1 = d[static_cast<std::size_t>(p)],
                     y2 = d[static_cast<std::size_t>(p + 1)];
        const double den = y0 - 2.0 * y1 + y2;
        if (den < 0.0) {
            const double off = std::clamp(0.5 * (y0 - y2) / den, -0.5, 0.5);
            top_mz = ax_.mz(static_cast<double>(p) + off);
        }
        tp.abundance = y1;
        // Full width at half height of that peak.
        const double half = noise + (y1 - noise) / 2.0;
        long l = p, r = p;
        while (l > 0 && d[static_cast<std::size_t>(l)] > half) --l;
        while (r < ax_.n - 1 && d[static_cast<std::size_t>(r)] > half) ++r;
        tp.fwhm = std::fabs(ax_.mz(static_cast<double>(l)) - ax_.mz(static_cast<double>(r)));
    }
    tp.monoisotopic_mw_refined = c * top_mz + sign * c * PROTON_EXACT - idx2 * SPACING_SCAN;
    tp.signal_noise = s2n_of(tp.abundance, noise, sigma);
    calc_distrib(tp.monoisotopic_mz, c, tp);
    double hsum = 0.0, msum = 0.0;
    for (int k = 0; k < tp.distrib_size; ++k) {
        const double h = tp.pairs[k].second - noise;
        hsum += h;
        msum += h * (c * tp.pairs[k].first + sign * c * THRASH_PROTON);
    }
    tp.average_mw = hsum > 0.0 ? msum / hsum : tp.monoisotopic_mass;
    tp.mono_abundance = tp.distrib_size > 0 ? tp.pairs[0].second - noise : 0.0;
    tp.mono_plus2_abundance = tp.distrib_size > 2 ? tp.pairs[2].second - noise : 0.0;
    tp.count_of_table_row = r_.clusters;
    std::vector<SequenceAssignment> found;
    if (p_.sequence) assign_thrash(*p_.sequence, tp.monoisotopic_mz, c, s_.Aterm, found);
    if (!p_.sequence) {
        r_.peaks.push_back(tp);
    } else if (found.empty()) {
        tp.assignment_text = "None";
        r_.peaks.push_back(tp);
    } else {
        for (std::size_t i = 0; i < found.size(); ++i) {
            ThrashPeak row = tp;
            row.assignment_text = assignment_text(*p_.sequence, found[i], i > 0);
            row.theoretical_mass = found[i].theoretical;
            row.mass_error_ppm = found[i].error / found[i].theoretical * 1000000.0;
            row.mass_error_text = fmt::format("{:.4f} ppm", row.mass_error_ppm);
            row.continuation = i > 0;
            r_.peaks.push_back(row);
        }
    }
    ++r_.clusters;
    ui_.Console(fmt::format("Isotope cluster {}: charge {} monoisotopic mass {:.4f} RL {}\n", r_.clusters, c,
                            tp.monoisotopic_mass, tp.rl_text));
    subtract(tp);
}

}  // namespace

int thrash_with_table(Spectrum& s, const ThrashParams& p, const AveragineTable& table, ThrashResult& result, Ui& ui,
                      const ThrashControl& control) {
    result = ThrashResult{};
    s.data2 = s.data;
    Scan scan(s, p, table, result, ui);
    const Axis ax(s);
    scan.noise = thrash_first_noise(s);
    double next_update = 0.0;
    double zeroed_at = -std::numeric_limits<double>::infinity();
    double mass = p.low_mass;
    // The walk covers the data only: windows beyond them hold nothing.
    const double data_low = s.data.empty() ? 0.0 : Low_Mass(s);
    const double data_high = s.data.empty() ? 0.0 : High_Mass(s);
    const double end = std::min(p.high_mass, 1000000.0);
    while (result.clusters <= p.limit - 1 && mass <= end) {
        ui.ProcessSystemEvents();
        if (control.stop && control.stop->load()) {
            result.aborted = true;
            break;
        }
        if (s.data.empty() || mass > data_high) break;
        if (mass + 1.0 < data_low) {
            mass += 1.0;
            continue;
        }
        if (control.progress) control.progress(mass, result.clusters);
        int updated = 0;
        double width = scan.sigma;
        const double nz = CalculateThrashNoise(s, mass, &next_update, 1, &updated, &width, scan.noise);
        if (updated) {
            scan.noise = std::isfinite(nz) ? nz : 0.0;
            scan.sigma = std::isfinite(width) ? width : 0.0;
            // Every working value below the new noise becomes 0. A noise no
            // higher than one already applied finds only the values that
            // subtraction wrote since then below it, so only those spans are
            // walked; the whole array only when the noise is a new highest.
            if (scan.noise > zeroed_at) {
                for (float& v : s.data2)
                    if (v < scan.noise) v = 0.0f;
                zeroed_at = scan.noise;
                scan.touched.clear();
            } else {
                for (const auto& [a, b] : scan.touched)
                    for (long i = a; i <= b; ++i)
                        if (s.data2[static_cast<std::size_t>(i)] < scan.noise) s.data2[static_cast<std::size_t>(i)] = 0.0f;
            }
        }
        const auto [value, point] = ax.max_in(s.data2, mass, mass + 1.0);
        const double s2n = s2n_of(value, scan.noise, scan.sigma);
        if (point >= 0 && s2n >= 3.0)
            mass = scan.peak_find(s2n, mass, ax.mz(static_cast<double>(point)), value);
        else
            mass += 1.0;
    }
    result.limit_reached = result.clusters >= p.limit;
    result.final_noise = scan.noise;
    result.final_sigma = scan.sigma;
    // WrapUpThrash
    if (result.limit_reached)
        ui.MessagePopup("THRASH Unable to finish the assigned window due to a memory limitations",
                        fmt::format("This version of THRASH was designed to find a maximum of {} peaks which have been "
                                    "found.\nPlease describe new THRASH parameters and rerun or contact support to "
                                    "discuss programmable options.",
                                    p.limit));
    s.data2.clear();
    s.data2.shrink_to_fit();
    return 0;
}

int thrash(Spectrum& s, const ThrashParams& p, ThrashResult& result, Ui& ui, const ThrashControl& control,
           const std::string& table_path) {
    AveragineTable table;
    bool abort = false;
    if (ReadAveragineTable(table, ui, &abort, table_path) < 0 || abort) {
        result = ThrashResult{};
        result.aborted = true;
        return -1;
    }
    return thrash_with_table(s, p, table, result, ui, control);
}

int thrash_cluster(Spectrum& s, double low_mz, double high_mz, int charge, const ThrashParams& p,
                   const AveragineTable& table, ThrashResult& result, Ui& ui) {
    result = ThrashResult{};
    if (!(high_mz > low_mz) || s.data.empty()) {
        ui.MessagePopup("THRASH", "Choose a range of m/z with the cluster in it.");
        return -1;
    }
    s.data2 = s.data;
    Scan scan(s, p, table, result, ui);
    double width = 0.0;
    const Axis ax(s);
    // Noise of the whole spectrum: the span alone may be all cluster.
    scan.noise = CalculateThrashNoise_RP(s.data.data(), static_cast<long>(s.data.size()), &width);
    scan.sigma = width;
    const auto [v, pt] = ax.max_in(s.data, low_mz, high_mz);
    bool ok = false;
    if (pt >= 0) ok = scan.fit_at(ax.mz(static_cast<double>(pt)), charge, charge > 0 ? low_mz : 0.0, charge > 0 ? high_mz : 0.0);
    s.data2.clear();
    if (!ok) ui.MessagePopup("THRASH", "Isotope clusters found = 0");
    return 0;
}

// ---- files ------------------------------------------------------------------

namespace {

std::string row_lines(const ThrashPeak& r) {
    return fmt::format("{}\t{:f}\t{:f}\t{:f}\t{:f}\t{:f}\t{}\n{}\t{}\n", r.charge, r.monoisotopic_mass,
                       r.mostabundant_mass, r.monoisotopic_mz, r.mostabundant_mz, r.theoretical_mass, r.distrib_size,
                       r.assignment_text, r.mass_error_text);
}

}  // namespace

std::string tpk_text(const Spectrum& s, const std::vector<ThrashPeak>& rows) {
    std::string out = fmt::format("Isotope clusters found = {} \n", rows.size());
    out += "Processing parameters \n";
    out += fmt::format("{}\t{}\t{}\t{}\t \n", s.Truncations, s.apodization, s.Zerofills, s.baselinecorrected);
    for (const ThrashPeak& r : rows) {
        out += row_lines(r);
        for (int k = 0; k < THRASH_PAIRS; ++k) {
            out += fmt::format("{:f}\t{:f}\n", r.pairs[k].first, r.pairs[k].second);
            if (r.pairs[k].first == 0.0) break;
        }
        out += "\n";
    }
    return out;
}

std::string pkl_text(const Spectrum& s, const std::vector<ThrashPeak>& rows) {
    std::string out = fmt::format("TULVA data file: {}\n", s.filename);
    out += "Thrash Peaks :\n";
    out += fmt::format("{}\n", rows.size());
    for (const ThrashPeak& r : rows) out += row_lines(r);
    return out;
}

int parse_thrash_peaklist(const std::string& text, std::vector<ThrashPeak>& rows, Ui& ui) {
    rows.clear();
    std::istringstream in(text);
    std::string line;
    auto bad = [&](const std::string& why) {
        ui.MessagePopup("Load Peaklist", fmt::format("This is not a THRASH peak list: {}.", why));
        rows.clear();
        return -1;
    };
    if (!std::getline(in, line)) return bad("it is empty");
    const auto eq = line.find('=');
    long count = -1;
    try {
        count = eq == std::string::npos ? -1 : std::stol(line.substr(eq + 1));
    } catch (const std::exception&) {
        count = -1;
    }
    // Each row takes at least three lines; a count the text cannot hold is refused.
    if (count < 0 || count > static_cast<long>(text.size() / 6 + 1)) return bad("no cluster count");
    std::getline(in, line);
    std::getline(in, line);
    for (long i = 0; i < count; ++i) {
        ThrashPeak r;
        if (!std::getline(in, line)) return bad("it ends early");
        std::istringstream ls(line);
        if (!(ls >> r.charge >> r.monoisotopic_mass >> r.mostabundant_mass >> r.monoisotopic_mz >> r.mostabundant_mz >>
              r.theoretical_mass >> r.distrib_size))
            return bad(fmt::format("row {} has not its seven numbers", i + 1));
        if (r.distrib_size < 0 || r.distrib_size > THRASH_PAIRS) return bad("a model longer than 100 pairs");
        if (!std::getline(in, line)) return bad("it ends early");
        const auto tab = line.find('\t');
        r.assignment_text = line.substr(0, tab);
        r.mass_error_text = tab == std::string::npos ? "" : line.substr(tab + 1);
        for (int k = 0; k < THRASH_PAIRS; ++k) {
            if (!std::getline(in, line)) return bad("it ends early");
            std::istringstream ps(line);
            double a = 0.0, b = 0.0;
            if (!(ps >> a >> b)) return bad("a model pair is not two numbers");
            r.pairs[k] = {a, b};
            if (a == 0.0) break;
        }
        std::getline(in, line);  // the line of its own after each row
        r.count_of_table_row = static_cast<std::int32_t>(i);
        rows.push_back(r);
    }
    return 0;
}

int load_thrash_peaklist(const std::string& path, std::vector<ThrashPeak>& rows, Ui& ui) {
    std::ifstream f(path, std::ios::binary);
    if (!f) {
        ui.MessagePopup("Load Peaklist", fmt::format("Could not open {}", path));
        return -1;
    }
    std::ostringstream ss;
    ss << f.rdbuf();
    return parse_thrash_peaklist(ss.str(), rows, ui);
}

std::string isos_csv_text(const std::vector<ThrashPeak>& rows, int scan_num) {
    std::string out =
        "scan_num,charge,abundance,mz,fit,average_mw,monoisotopic_mw,mostabundant_mw,fwhm,signal_noise,"
        "mono_abundance,mono_plus2_abundance,flag,rl,monoisotopic_mz,monoisotopic_mw_refined,assignment,"
        "theoretical_mass,mass_error_ppm\n";
    for (const ThrashPeak& r : rows) {
        std::string a = r.assignment_text;
        if (a.find_first_of(",\"") != std::string::npos) {
            std::string q = "\"";
            for (char ch : a) q += ch == '"' ? std::string("\"\"") : std::string(1, ch);
            a = q + "\"";
        }
        out += fmt::format("{},{},{:.4f},{:.5f},{:.4f},{:.5f},{:.5f},{:.5f},{:.5f},{:.2f},{:.4f},{:.4f},{},{:.6f},{:.5f},{:.5f},{},{:.5f},{:.4f}\n",
                           scan_num, r.charge, r.abundance, r.mostabundant_mz, 1.0 - r.rl, r.average_mw,
                           r.monoisotopic_mass, r.mostabundant_mass, r.fwhm, r.signal_noise, r.mono_abundance,
                           r.mono_plus2_abundance, 0, r.rl, r.monoisotopic_mz, r.monoisotopic_mw_refined, a,
                           r.theoretical_mass, r.mass_error_ppm);
    }
    return out;
}

}  // namespace vx
