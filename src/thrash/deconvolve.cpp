#include "thrash/deconvolve.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

#include <fmt/format.h>

#include "workspace/conversions.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

namespace {
constexpr double SPACING = 1.00335;
constexpr double PROTON = 1.00727647;

long size_of(const PlotData& d) { return static_cast<long>(d.intensity.size()); }

// The index whose mass is nearest (masses fall with the index).
long index_of(const PlotData& d, double mass) {
    const long n = size_of(d);
    if (n == 0) return -1;
    long lo = 0, hi = n - 1;
    while (hi - lo > 1) {
        const long mid = (lo + hi) / 2;
        if (d.mass[static_cast<std::size_t>(mid)] > mass) lo = mid;
        else hi = mid;
    }
    return std::fabs(d.mass[static_cast<std::size_t>(lo)] - mass) < std::fabs(d.mass[static_cast<std::size_t>(hi)] - mass) ? lo : hi;
}
}  // namespace

PlotData reassign_display(const Spectrum& s, double low_mz, double high_mz) {
    PlotData d;
    const long n = static_cast<long>(s.data.size());
    if (n < 2 || !(high_mz > low_mz)) return d;
    double a = One_mass_topt(s, high_mz), b = One_mass_topt(s, low_mz);
    if (!std::isfinite(a) || !std::isfinite(b)) return d;
    if (a > b) std::swap(a, b);
    const long ia = std::clamp(static_cast<long>(std::ceil(a)), 1L, n - 1), ib = std::clamp(static_cast<long>(std::floor(b)), 1L, n - 1);
    for (long i = ia; i <= ib; ++i) {
        d.mass.push_back(One_pt_tomass(s, static_cast<double>(i)));
        d.intensity.push_back(s.data[static_cast<std::size_t>(i)]);
    }
    d.mark.assign(d.intensity.size(), 0);
    return d;
}

void find_peak(const PlotData& d, long top, int width, int points, long* low_out, long* high_out, double floor) {
    const long n = size_of(d);
    auto sum = [&](long from, long to) {
        double s = 0.0;
        for (long i = std::max(0L, from); i <= std::min(n - 1, to); ++i) s += d.intensity[static_cast<std::size_t>(i)];
        return s;
    };
    // Walk outward while the window further out holds less than the one
    // inside (the data still fall), through bumps no deeper than floor.
    long hi = top;
    *high_out = n - 1;
    for (int step = 0; step < width && hi + points < n; ++step) {
        if (sum(hi + 1, hi + points) < sum(hi - points + 1, hi) + floor) ++hi;
        else {
            *high_out = hi;
            break;
        }
        *high_out = hi;
    }
    long lo = top;
    *low_out = 0;
    for (int step = 0; step < width && lo - points >= 0; ++step) {
        if (sum(lo - points, lo - 1) < sum(lo, lo + points - 1) + floor) --lo;
        else {
            *low_out = lo;
            break;
        }
        *low_out = lo;
    }
}

double auto_find_threshold(const PlotData& d, long low, long high, double* mean_out, double* sigma_out) {
    const long n = size_of(d);
    low = std::clamp(low, 0L, std::max(0L, n - 1));
    high = std::clamp(high, 0L, std::max(0L, n - 1));
    if (n == 0 || high <= low) {
        if (mean_out) *mean_out = 0.0;
        if (sigma_out) *sigma_out = 0.0;
        return 0.0;
    }
    std::vector<char> taken(static_cast<std::size_t>(high - low + 1), 0);
    auto tallest = [&]() {
        long best = -1;
        for (long i = low; i <= high; ++i)
            if (!taken[static_cast<std::size_t>(i - low)] &&
                (best < 0 || d.intensity[static_cast<std::size_t>(i)] > d.intensity[static_cast<std::size_t>(best)]))
                best = i;
        return best;
    };
    long top = tallest();
    long e1 = 0, e2 = 0;
    find_peak(d, top, 16, 2, &e1, &e2, 0.0);
    const double foot = (d.intensity[static_cast<std::size_t>(e1)] + d.intensity[static_cast<std::size_t>(e2)]) / 2.0;
    double mean = 0.0, sd = 0.0;
    for (int guard = 0; guard < 10000; ++guard) {
        for (long i = std::max(low, e1); i <= std::min(high, e2); ++i) taken[static_cast<std::size_t>(i - low)] = 1;
        top = tallest();
        if (top < 0) break;
        double s = 0.0, s2 = 0.0;
        long c = 0;
        for (long i = low; i <= high; ++i)
            if (!taken[static_cast<std::size_t>(i - low)]) {
                s += d.intensity[static_cast<std::size_t>(i)];
                s2 += double(d.intensity[static_cast<std::size_t>(i)]) * d.intensity[static_cast<std::size_t>(i)];
                ++c;
            }
        mean = s / c;
        sd = c > 1 ? std::sqrt(std::max(0.0, (s2 - c * mean * mean) / (c - 1))) : 0.0;
        if (d.intensity[static_cast<std::size_t>(top)] < mean + 3.0 * sd) break;
        find_peak(d, top, 16, 2, &e1, &e2, 0.0);
    }
    if (mean_out) *mean_out = mean;
    if (sigma_out) *sigma_out = sd;
    const double remaining = top >= 0 ? d.intensity[static_cast<std::size_t>(top)] : 0.0;
    return std::max(remaining, foot);
}

double find_intensity(const PlotData& d, double m) {
    const long n = size_of(d);
    if (n < 2 || m > d.mass.front() || m < d.mass.back()) return 0.0;
    // The pair of points about m (masses fall with the index).
    long lo = 0, hi = n - 1;
    while (hi - lo > 1) {
        const long mid = (lo + hi) / 2;
        if (d.mass[static_cast<std::size_t>(mid)] >= m) lo = mid;
        else hi = mid;
    }
    const double a = d.mass[static_cast<std::size_t>(lo)], b = d.mass[static_cast<std::size_t>(hi)];
    if (!(m <= a && m >= b)) return -1.0;
    if (a == b) return d.intensity[static_cast<std::size_t>(lo)];
    const double f = (a - m) / (a - b);
    return d.intensity[static_cast<std::size_t>(lo)] * (1 - f) + d.intensity[static_cast<std::size_t>(hi)] * f;
}

long find_peaktop(const PlotData& d, long index) {
    const long n = size_of(d);
    long best = index;
    for (long i = index + 1; i < n && i <= index + 15 && d.intensity[static_cast<std::size_t>(i)] >= d.intensity[static_cast<std::size_t>(i - 1)]; ++i) best = std::max(best, i);
    long best2 = index;
    for (long i = index - 1; i >= 0 && i >= index - 15 && d.intensity[static_cast<std::size_t>(i)] >= d.intensity[static_cast<std::size_t>(i + 1)]; --i) best2 = std::min(best2, i);
    return d.intensity[static_cast<std::size_t>(best2)] > d.intensity[static_cast<std::size_t>(best)] ? best2 : best;
}

double score_low_charge(const PlotData& d, long index, int charge, double threshold, int mode) {
    if (charge < 1 || !(threshold > 0.0) || index < 0 || index >= size_of(d)) return -100.0;
    const double m0 = d.mass[static_cast<std::size_t>(index)];
    double score = 0.0;
    for (int dir : {-1, 1}) {
        for (int k = 1; k < 200; ++k) {
            const double m = m0 + dir * k * SPACING / charge;
            if (m > d.mass.front() || m < d.mass.back()) break;
            double v = find_intensity(d, m);
            const long i = index_of(d, m);
            if (mode == 0 && i >= 0 && d.mark[static_cast<std::size_t>(i)] != 0) v = threshold / 2.0;
            if (v <= threshold) break;
            score += std::log(v / threshold);
        }
    }
    return score;
}

double get_max_height(const PlotData& d, double mass) {
    const double tol = mass * d.ppm * 1e-6;
    double best = 0.0;
    const long c = index_of(d, mass);
    if (c < 0) return 0.0;
    for (long i = c; i >= 0 && d.mass[static_cast<std::size_t>(i)] <= mass + tol; --i)
        if (!d.mark[static_cast<std::size_t>(i)]) best = std::max<double>(best, d.intensity[static_cast<std::size_t>(i)]);
    for (long i = c; i < size_of(d) && d.mass[static_cast<std::size_t>(i)] >= mass - tol; ++i)
        if (!d.mark[static_cast<std::size_t>(i)]) best = std::max<double>(best, d.intensity[static_cast<std::size_t>(i)]);
    return best;
}

double score_high_charge(const PlotData& d, long index, int charge, double threshold) {
    if (charge < 1 || !(threshold > 0.0) || index < 0 || index >= size_of(d)) return -100.0;
    const double mass = d.mass[static_cast<std::size_t>(index)];
    double score = 0.0;
    for (int dir : {-1, 1}) {
        // One weak member is forgiven: the previous term starts positive.
        double previous = 0.1;
        for (int k = 1;; ++k) {
            const int other = charge + dir * k;
            if (other < 1) break;
            const double m = ((charge - other) * -PROTON + mass * charge) / other;
            if (m > d.mass.front() || m < d.mass.back()) break;
            const double h = get_max_height(d, m);
            const double term = h > 0.0 ? std::log(h / threshold) : -10.0;
            if (h < threshold && previous < 0.0) {
                score -= previous;
                break;
            }
            score += term;
            previous = term;
        }
    }
    return score;
}

int determine_high_charge(const PlotData& d, long index, double threshold, double limit_kda) {
    if (index < 0 || index >= size_of(d)) return -1;
    if (d.intensity[static_cast<std::size_t>(index)] < threshold) return -1;
    const double mass = d.mass[static_cast<std::size_t>(index)];
    const int maxc = static_cast<int>(std::min(2000.0, std::trunc(limit_kda * 1000.0 / mass + 1.0)));
    double best = -100.0;
    int z = 0;
    for (int c = 1; c <= maxc; ++c) {
        const double s = score_high_charge(d, index, c, threshold);
        if (s > best) {
            best = s;
            z = c;
        }
    }
    return best > 0.0 ? z : 0;
}

int determine_low_charge(const PlotData& d, long index, double threshold) {
    const long n = size_of(d);
    if (index < 0 || index >= n) return -1;
    const double m0 = d.mass[static_cast<std::size_t>(index)];
    int estimate = 1;
    for (int dir : {-1, 1}) {
        // The next peak above threshold within 1.1 m/z.
        for (long i = index + dir * 2; i >= 0 && i < n && std::fabs(d.mass[static_cast<std::size_t>(i)] - m0) <= 1.1; i += dir) {
            if (d.intensity[static_cast<std::size_t>(i)] > threshold &&
                d.intensity[static_cast<std::size_t>(i)] >= d.intensity[static_cast<std::size_t>(i - dir)]) {
                const long top = find_peaktop(d, i);
                const double spacing = std::fabs(d.mass[static_cast<std::size_t>(top)] - m0);
                if (spacing > 0.0) estimate = std::max(estimate, static_cast<int>(std::trunc(1.0 / spacing + 2.0)));
                break;
            }
        }
    }
    estimate = std::min(estimate, 32);
    double best = -100.0;
    int z = 0;
    for (int c = 1; c <= estimate; ++c) {
        const double s = score_low_charge(d, index, c, threshold, 0);
        if (s > best) {
            best = s;
            z = c;
        }
    }
    return best > 0.0 ? z : 0;
}

int determine_mixed_charge(const PlotData& d, long index, double threshold, double limit_kda) {
    if (index < 0 || index >= size_of(d)) return -1;
    const double mass = d.mass[static_cast<std::size_t>(index)];
    const int maxc = static_cast<int>(std::min(2000.0, std::trunc(limit_kda * 1000.0 / mass + 1.0)));
    double best = -100.0;
    int z = 0;
    for (int c = 1; c <= maxc; ++c) {
        const double s = score_low_charge(d, index, c, threshold, 0) + score_high_charge(d, index, c, threshold);
        if (s > best) {
            best = s;
            z = c;
        }
    }
    return best > 0.0 ? z : 0;
}

namespace {

// Moves the points of [lo, hi] at charge z onto the geometric mass grid.
void incorporate(PlotData& d, long lo, long hi, int z, double background, double resolution,
                 std::map<long, double>& grid, std::size_t room) {
    const double lstep = std::log1p(1.0 / resolution);
    for (long i = lo; i <= hi; ++i) {
        d.mark[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(std::min(z, 32767));
        if (i == hi) break;
        const double m1 = (d.mass[static_cast<std::size_t>(i)] - PROTON) * z;
        const double m2 = (d.mass[static_cast<std::size_t>(i + 1)] - PROTON) * z;
        const double y1 = std::max(0.0, d.intensity[static_cast<std::size_t>(i)] - background);
        const double y2 = std::max(0.0, d.intensity[static_cast<std::size_t>(i + 1)] - background);
        if (!(m1 > 0.0) || !(m2 > 0.0)) continue;
        const long g1 = static_cast<long>(std::ceil(std::log(std::min(m1, m2)) / lstep));
        const long g2 = static_cast<long>(std::floor(std::log(std::max(m1, m2)) / lstep));
        for (long g = g1; g <= g2; ++g) {
            if (grid.size() >= room && !grid.count(g)) return;
            const double m = std::exp(g * lstep);
            const double f = m1 == m2 ? 0.0 : (m - m1) / (m2 - m1);
            grid[g] += y1 + (y2 - y1) * f;
        }
    }
    d.mark[static_cast<std::size_t>(hi)] = static_cast<std::int16_t>(std::min(z, 32767));
}

}  // namespace

int deconvolve(PlotData& d, const DeconvOptions& o, MassSpectrum& out) {
    out = MassSpectrum{};
    const long n = size_of(d);
    if (n < 8) return 0;
    // Local maxima, tallest first.
    std::vector<long> tops;
    for (long i = 1; i + 1 < n; ++i)
        if (d.intensity[static_cast<std::size_t>(i)] > d.intensity[static_cast<std::size_t>(i - 1)] &&
            d.intensity[static_cast<std::size_t>(i)] >= d.intensity[static_cast<std::size_t>(i + 1)])
            tops.push_back(i);
    std::stable_sort(tops.begin(), tops.end(), [&](long a, long b) {
        return d.intensity[static_cast<std::size_t>(a)] > d.intensity[static_cast<std::size_t>(b)];
    });
    const std::size_t room = static_cast<std::size_t>(n) + 4096;
    std::map<long, double> grid;
    int groups = 0;
    for (long top : tops) {
        if (d.mark[static_cast<std::size_t>(top)]) continue;
        const double m0 = d.mass[static_cast<std::size_t>(top)];
        const long lo = index_of(d, m0 + 4.0), hi = index_of(d, m0 - 4.0);
        const double threshold = auto_find_threshold(d, lo, hi, nullptr, nullptr);
        if (!(d.intensity[static_cast<std::size_t>(top)] > threshold)) continue;
        int z = 0;
        if (o.mode == DECONV_HIGHZ) z = determine_high_charge(d, top, threshold, o.limit_kda);
        else if (o.mode == DECONV_MIXED) z = determine_mixed_charge(d, top, threshold, o.limit_kda);
        else z = determine_low_charge(d, top, threshold);
        if (z <= 0) {
            d.mark[static_cast<std::size_t>(top)] = -1;
            continue;
        }
        // The group: every isotope of the cluster (LOWZ) above the threshold,
        // each as far as its peak reaches; for HIGHZ the top's own peak.
        std::vector<long> members{top};
        if (o.mode != DECONV_HIGHZ) {
            for (int dir : {-1, 1})
                for (int k = 1; k < 200; ++k) {
                    const double m = m0 + dir * k * SPACING / z;
                    if (m > d.mass.front() || m < d.mass.back()) break;
                    if (find_intensity(d, m) <= threshold) break;
                    members.push_back(find_peaktop(d, index_of(d, m)));
                }
        }
        for (long mtop : members) {
            long e1 = 0, e2 = 0;
            find_peak(d, mtop, 16, 2, &e1, &e2, 0.0);
            incorporate(d, e1, e2, z, threshold, o.resolution, grid, room);
        }
        ++groups;
        if (grid.size() >= room) break;
    }
    // Merge neighbours of the grid closer than 0.02 x mass / resolution.
    const double lstep = std::log1p(1.0 / o.resolution);
    for (const auto& [g, v] : grid) {
        const double m = std::exp(g * lstep);
        if (!out.mass.empty() && m - out.mass.back() < 0.02 * m / o.resolution) {
            out.intensity.back() += v;
            continue;
        }
        out.mass.push_back(m);
        out.intensity.push_back(v);
    }
    return groups;
}

std::string mass_spectrum_text(const MassSpectrum& m) {
    std::string s;
    for (std::size_t i = 0; i < m.mass.size(); ++i) s += fmt::format("  {:f}        {:f}\n", m.mass[i], m.intensity[i]);
    return s;
}

}  // namespace vx
