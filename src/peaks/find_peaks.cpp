#include "peaks/find_peaks.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include <fmt/format.h>
#include <atomic>
#include <thread>

#include "peaks/noise.hpp"
#include "peaks/reborn.hpp"
#include "peaks/walk.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

double point_of_mass(const Spectrum& s, double mass) {
    double in[1] = {mass};
    double out[1] = {0.0};
    Mass_topt(s, in, out);
    return out[0];
}

double frequency_of_point(const Spectrum& s, double point) {
    double in[1] = {point};
    double out[1] = {0.0};
    Pt_tofreq(s, in, out);
    return out[0];
}

// A converted point as an index, clamped into [lo, hi]; NaN goes to fallback.
long clamp_point(double point, long lo, long hi, long fallback) {
    if (std::isnan(point)) return fallback;
    if (point <= static_cast<double>(lo)) return lo;
    if (point >= static_cast<double>(hi)) return hi;
    return static_cast<long>(point);
}

// Everything one accepted segment contributes to the table and the list.
struct Found {
    long apex = 0;
    double height = 0.0;
    double index = 0.0;
    double mass = 0.0;
    double frequency = 0.0;
    double width = 0.0;
    double sn = -1.0;
};

struct Levels {
    double peak = 0.0;
    double noise = 0.0;
    double baseline = 0.0;
    double noise_width = 0.0;
    // Robust noise: S/N is measured above the lower of the two valleys that
    // bound the segment when that lies above the baseline, and in S/N mode a
    // peak must clear the level by that measure. A ripple of noise on the wing
    // of a strong peak then counts for what it adds, not for the wing under it.
    bool from_valley = false;
    bool sn_acceptance = false;
};

void set_sn_levels(Levels& lv, const Settings& st) {
    lv.peak = lv.baseline + st.peak_sigma_factor * lv.noise_width;
    lv.noise = lv.baseline + st.noise_sigma_factor * lv.noise_width;
}

// Acceptance, parabola and half-height walk of one segment of a magnitude
// spectrum. Returns false when the segment gives no peak.
bool accept_segment(const Spectrum& s, const WalkSegment& seg, long lower, long upper, const Levels& lv,
                    Found& f) {
    const float* y = s.data.data();
    const long n = static_cast<long>(s.data.size());
    const long apex = seg.apex;
    double reference = lv.baseline;
    if (lv.from_valley) {
        const double valley = std::min(y[seg.start], y[std::min(seg.end, n - 1)]);
        reference = std::max(reference, valley);
    }
    const double level = lv.sn_acceptance ? lv.peak + (reference - lv.baseline) : lv.peak;
    if (!(y[apex] > level) || apex == lower || apex == upper) return false;
    const Parabola p = parabola_through(y[apex - 1], y[apex], y[apex + 1]);
    if (!(p.c2 < 0.0)) return false;
    const double offset = -p.c1 / (2.0 * p.c2);
    f.apex = apex;
    f.index = static_cast<double>(apex) + offset;
    f.height = (p.c2 * offset + p.c1) * offset + p.c0;
    f.mass = SPt_tomass(s, f.index);
    const double half = y[apex] / 2.0;
    long i = std::max(seg.start - 1, 1L);
    while (i < n - 1 && y[i] < half) ++i;
    const double left = Interp_midmass(i, half, s);
    while (i < n - 1 && y[i] > half) ++i;
    const double right = Interp_midmass(i, half, s);
    f.width = std::fabs(right - left);
    f.frequency = frequency_of_point(s, f.index);
    f.sn = (f.height - reference) / lv.noise_width;
    return true;
}

PeakTableRow row_of(const Found& f, const Settings& st, double ymax) {
    PeakTableRow r;
    r.mass = f.mass;
    r.index = f.index;
    r.frequency = f.frequency;
    r.height = f.height;
    r.percent = f.height / ymax * 100.0;
    r.scaled_abundance = st.abundance_scale * f.height;
    r.width = f.width;
    r.resolvingpower = f.mass / f.width;
    r.sn = f.sn;
    return r;
}

// Step 10 and 11 of the search: numbered rows, the peak records (ascending
// m/z), relative abundance. found is in ascending m/z already.
int finish_list(Spectrum& s, const std::vector<Found>& found, const Settings& st, double ymax, PeakTable& table,
                bool mass_from_index, bool run_rp) {
    table.rows.clear();
    table.rows.reserve(found.size());
    std::vector<Peak> peaks(found.size());
    double largest = 0.0;
    for (std::size_t k = 0; k < found.size(); ++k) {
        const Found& f = found[k];
        PeakTableRow r = row_of(f, st, ymax);
        r.number = static_cast<int>(k + 1);
        table.rows.push_back(r);
        Peak& p = peaks[k];
        p.calmass = -1.0;
        p.iscalibrant = 0;
        p.calibrantrow = -1;
        p.abundance = f.height;
        p.index = f.index;
        p.mass = mass_from_index ? SPt_tomass(s, f.index) : f.mass;
        p.frequency = f.frequency;
        p.width = f.width;
        p.resolvingpower = f.width > 0.0 ? p.mass / f.width : -1.0;
        p.sn = f.sn;
        largest = std::max(largest, f.height);
    }
    if (found.empty()) return 0;  // the earlier list stays in place
    for (Peak& p : peaks) p.relabundance = p.abundance / largest * 100.0;
    s.peaks = std::move(peaks);
    s.peakcount = static_cast<std::int32_t>(s.peaks.size());
    if (run_rp) CalculateRP(s, s.peakcount);
    return s.peakcount;
}

// Limits, largest sample and levels of one range (steps 1 to 5). Returns 1 to
// walk, 0 after "Incorrect Mass Range", -44 when the peak level is below the
// global baseline.
struct RangeSetup {
    long lower = 0, upper = 0;
    double range_max = 0.0;
    bool global = false;
    Levels lv;
};

int setup_range(const Spectrum& s, const Settings& st, double low, double high, RangeSetup& rs, PeakTable& table,
                Ui& ui) {
    if (low > high) std::swap(low, high);
    const long n = static_cast<long>(s.data.size());
    rs.lower = clamp_point(point_of_mass(s, high), 0, std::numeric_limits<long>::max() / 4, 0);
    rs.upper = clamp_point(point_of_mass(s, low), std::numeric_limits<long>::min() / 4, n - 3, -1);

    // The largest sample as a whole number.
    double biggest = 0.0;
    for (long i = rs.lower; i <= rs.upper && i < n; ++i)
        if (s.data[static_cast<std::size_t>(i)] > biggest) biggest = std::floor(s.data[static_cast<std::size_t>(i)]);
    rs.range_max = biggest;
    table.ymax = biggest;

    if (st.sn_mode == 0) {
        rs.lv.peak = st.peak_threshold;
        rs.lv.noise = st.noise_threshold;
        if (st.percent_thresholds) {
            rs.lv.peak = st.peak_threshold / 100.0 * biggest;
            rs.lv.noise = st.noise_threshold / 100.0 * biggest;
        }
    }

    rs.lv.from_valley = st.robust_noise != 0;
    rs.lv.sn_acceptance = st.robust_noise != 0 && st.sn_mode != 0;
    rs.global = st.global_noise != 0;
    if (s.overRideThrashNoiseCalculation) {
        rs.global = true;
        rs.lv.baseline = s.noisemean;
        rs.lv.noise_width = s.noisesigma;
        if (st.sn_mode) set_sn_levels(rs.lv, st);
    } else if (rs.global && n > 0 && st.robust_noise) {
        // One estimate from the samples of the whole range, peaks left out.
        const long from = std::clamp(rs.lower, 0L, n - 1), to = std::clamp(rs.upper, 0L, n - 1);
        rs.lv.baseline = robust_noise(std::span<const float>(s.data.data() + from, static_cast<std::size_t>(std::max(0L, to - from + 1))),
                                      &rs.lv.noise_width);
        if (st.sn_mode) set_sn_levels(rs.lv, st);
    } else if (rs.global && n > 0) {
        // The centre is half the span of the range, not its midpoint; kept as
        // it is, since stored settings and results were made this way.
        const double m_lower = SPt_tomass(s, static_cast<double>(rs.lower));
        const double m_upper = SPt_tomass(s, static_cast<double>(rs.upper));
        const double centre = std::fabs(m_lower - m_upper) / 2.0;
        rs.lv.baseline = CalculateNoise(s, centre, st.noise_window, &rs.lv.noise_width);
        if (st.sn_mode) set_sn_levels(rs.lv, st);
        if (rs.lv.peak < rs.lv.baseline) {
            ui.Console(fmt::format("Peak level {:f} is below the noise baseline {:f}; search stopped.\n", rs.lv.peak,
                                   rs.lv.baseline));
            return -44;
        }
    }

    if (n < rs.lower || rs.upper - rs.lower < 3) {
        ui.MessagePopup("Operator Error", "Incorrect Mass Range");
        return 0;
    }
    return 1;
}

void sort_ascending(std::vector<Found>& found) {
    std::stable_sort(found.begin(), found.end(), [](const Found& a, const Found& b) { return a.mass < b.mass; });
}

}  // namespace

PeakDecimals peak_decimals(const Settings& st) {
    PeakDecimals d;
    d.mz = st.PEAKMZ;
    d.frequency = st.peak_decimals_3;
    d.abundance = st.PEAKABUN;
    d.other = st.peak_decimals_2;
    return d;
}

std::array<std::string, 7> peak_table_fields(const PeakTableRow& row, const PeakDecimals& d) {
    auto fixed = [](double v, int decimals) { return fmt::format("{:.{}f}", v, std::clamp(decimals, 0, 15)); };
    return {fmt::format("{}", row.number), fixed(row.mass, d.mz),           fixed(row.frequency, d.frequency),
            fixed(row.percent, d.other),   fixed(row.scaled_abundance, d.abundance),
            fixed(row.resolvingpower, 0),  fixed(row.sn, 4)};
}

std::string peak_table_line(const PeakTableRow& row, const PeakDecimals& d) {
    static constexpr int stops[7] = {30, 100, 200, 300, 410, 520, 600};
    const auto fields = peak_table_fields(row, d);
    std::string line;
    for (int k = 0; k < 7; ++k) {
        const std::size_t column = static_cast<std::size_t>(stops[k] / 5);
        if (line.size() < column) line.append(column - line.size(), ' ');
        else if (!line.empty()) line += ' ';
        line += fields[static_cast<std::size_t>(k)];
    }
    return line;
}

double Interp_midpoint_thread(long i, double level, const Spectrum& s) {
    const long n = static_cast<long>(s.data.size());
    if (n < 2) return 0.0;
    i = std::clamp(i, 1L, n - 1);
    const double before = s.data[static_cast<std::size_t>(i - 1)];
    const double d = before - s.data[static_cast<std::size_t>(i)];
    // Two equal samples have no crossing; the point itself stands for it.
    if (d == 0.0) return static_cast<double>(i);
    return (level - ((i - 1) * d + before)) / -d;
}

double Interp_midmass(long i, double level, const Spectrum& s) {
    return SPt_tomass(s, Interp_midpoint_thread(i, level, s));
}

std::vector<std::pair<double, double>> notch_ranges(double low, double high, bool notches_on,
                                                    const std::vector<std::pair<double, double>>& notches) {
    if (low > high) std::swap(low, high);
    if (!notches_on || notches.empty()) return {{low, high}};
    auto sorted = notches;
    for (auto& nt : sorted)
        if (nt.first > nt.second) std::swap(nt.first, nt.second);
    std::sort(sorted.begin(), sorted.end());
    std::vector<std::pair<double, double>> ranges;
    double from = low;
    for (const auto& [nlow, nhigh] : sorted) {
        if (nlow > from) ranges.emplace_back(from, std::min(nlow, high));
        from = std::max(from, nhigh);
        if (from >= high) break;
    }
    if (from < high) ranges.emplace_back(from, high);
    // Drop what a notch left empty.
    std::erase_if(ranges, [](const auto& r) { return !(r.second > r.first); });
    return ranges;
}

namespace {

// The frame both walks share: every range between the notches, from the highest
// down, set up and searched into one list, then the list finished. A range that
// cannot be set up ends the search with its result and an empty table.
template <typename Search>
int search_ranges(Spectrum& s, const Settings& st, double ymax, PeakTable& table, Ui& ui, Search&& search) {
    table.rows.clear();
    std::vector<Found> found;
    const auto ranges = notch_ranges(st.low_mass, st.high_mass, st.notches_on != 0, st.notches);
    for (auto it = ranges.rbegin(); it != ranges.rend(); ++it) {
        RangeSetup rs;
        const int ok = setup_range(s, st, it->first, it->second, rs, table, ui);
        if (ok <= 0) {
            table.rows.clear();
            return ok;
        }
        search(rs, it->first, it->second, found);
    }
    sort_ascending(found);
    return finish_list(s, found, st, ymax, table, true, true);
}

}  // namespace

int FindPeaksReborn(Spectrum& s, const Settings& st, double ymax, PeakTable& table, Ui& ui) {
    bool renewed = false;
    double last_renewal = 0.0;
    return search_ranges(s, st, ymax, table, ui, [&](RangeSetup& rs, double, double, std::vector<Found>& found) {
        Levels& lv = rs.lv;
        const double quarter = st.noise_window / 4.0;
        auto renew = [&](long point) {
            if (rs.global) return;
            const double m = SPt_tomass(s, static_cast<double>(point));
            if (renewed && !(m + quarter < last_renewal)) return;
            lv.baseline = st.robust_noise ? CalculateNoiseRobust(s, m, st.noise_window, &lv.noise_width)
                                          : CalculateNoise(s, m, st.noise_window, &lv.noise_width);
            last_renewal = m - quarter;
            renewed = true;
            ui.ProcessSystemEvents();
            if (st.sn_mode) set_sn_levels(lv, st);
        };
        // The walk's first segments need levels too.
        renew(rs.lower);
        walk_segments(s.data.data(), rs.lower, rs.upper, st.min_peak_width, lv.noise, [&](const WalkSegment& seg) {
            renew(seg.end + 1);
            Found f;
            if (accept_segment(s, seg, rs.lower, rs.upper, lv, f)) found.push_back(f);
        });
    });
}

int FindPeaksThread(Spectrum& s, const Settings& st, double ymax, PeakTable& table, Ui& ui) {
    const int workers = std::clamp(st.thread_count, 1, 16);
    return search_ranges(s, st, ymax, table, ui, [&](RangeSetup& rs, double from_mass, double to_mass,
                                                       std::vector<Found>& found) {
        // Regions of equal m/z, about half a noise window each; the span ends
        // at the mass of point 1.
        const double high = std::min(std::max(from_mass, to_mass), SPt_tomass(s, 1.0));
        const double low = std::min(from_mass, to_mass);
        const double span = high - low > 0.0 ? high - low : 0.0;  // also NaN
        // At most one region per 8 points of the range.
        const double most = static_cast<double>(std::max(1L, (rs.upper - rs.lower + 1) / 8));
        double wanted = st.noise_window > 0.0 ? std::ceil(2.0 * span / st.noise_window) : 1.0;
        if (!(wanted >= 1.0)) wanted = 1.0;
        const long regions = static_cast<long>(std::min(wanted, most));
        std::vector<long> edge(static_cast<std::size_t>(regions + 1));
        edge[0] = rs.lower;
        for (long k = 1; k < regions; ++k) {
            const long p = clamp_point(std::round(point_of_mass(s, high - span * k / regions)), rs.lower, rs.upper + 1,
                                       rs.upper + 1);
            edge[static_cast<std::size_t>(k)] = std::max(p, edge[static_cast<std::size_t>(k - 1)]);
        }
        edge[static_cast<std::size_t>(regions)] = rs.upper + 1;

        // A region's walk starts and ends this far outside it, so that its
        // segments fall into step with those of one walk over the whole range.
        constexpr long margin = 1024;
        std::vector<std::vector<Found>> lists(static_cast<std::size_t>(regions));
        const double region_width = span / regions;
        auto run_region = [&](long k) {
            const long first = edge[static_cast<std::size_t>(k)];
            const long last = edge[static_cast<std::size_t>(k + 1)] - 1;
            if (last < first) return;
            Levels lv = rs.lv;
            if (!rs.global && st.robust_noise) {
                lv.baseline = robust_noise(
                    std::span<const float>(s.data.data() + first, static_cast<std::size_t>(last - first + 1)),
                    &lv.noise_width);
                if (st.sn_mode) set_sn_levels(lv, st);
            } else if (!rs.global) {
                std::array<float, 3> row{};
                NoiseCalThread({std::span<const float>(s.data.data() + first, static_cast<std::size_t>(last - first + 1)),
                                region_width, static_cast<float>(k)},
                               row);
                lv.baseline = row[0];
                lv.noise_width = row[1];
                if (st.sn_mode) set_sn_levels(lv, st);
            }
            auto& out = lists[static_cast<std::size_t>(k)];
            const long from = std::max(rs.lower, first - margin);
            const long to = std::min(rs.upper, last + margin);
            walk_segments(s.data.data(), from, to, st.min_peak_width, lv.noise, [&](const WalkSegment& seg) {
                if (seg.apex < first || seg.apex > last) return;
                Found f;
                if (accept_segment(s, seg, rs.lower, rs.upper, lv, f)) out.push_back(f);
            });
        };
        // Each worker takes the next region until none is left; every region
        // writes only its own list, so the joined list is the same for any
        // number of workers.
        std::atomic<long> next{0};
        auto worker = [&] {
            for (long k = next++; k < regions; k = next++) run_region(k);
        };
        {
            std::vector<std::jthread> pool;
            for (int w = 1; w < std::min<long>(workers, regions); ++w) pool.emplace_back(worker);
            worker();
        }
        for (auto& list : lists)
            for (const Found& f : list)
                if (found.empty() || found.back().apex != f.apex) found.push_back(f);
    });
}

int FindPeaksProfile(Spectrum& s, const Settings& st, double ymax, PeakTable& table, Ui& ui) {
    table.rows.clear();
    const long n = static_cast<long>(s.data.size());
    if (s.xvalues.size() != s.data.size() || n < 3) {
        ui.MessagePopup("Operator Error", "Incorrect Mass Range");
        return 0;
    }
    const float* y = s.data.data();
    const double* x = s.xvalues.data();
    // Fractional position of an m/z on the ascending xvalues.
    auto position = [&](double mz) {
        const auto it = std::lower_bound(x, x + n, mz);
        const long i = static_cast<long>(it - x);
        if (i <= 0) return 0.0;
        if (i >= n) return static_cast<double>(n - 1);
        const double dx = x[i] - x[i - 1];
        const double pos = dx > 0.0 ? (i - 1) + (mz - x[i - 1]) / dx : static_cast<double>(i);
        return std::isfinite(pos) ? pos : 0.0;
    };
    double low = st.low_mass, high = st.high_mass;
    if (low > high) std::swap(low, high);
    const long lower = std::max(0L, static_cast<long>(std::lround(position(low))));
    const long upper = std::min(n - 3, static_cast<long>(std::trunc(position(high))));

    Levels lv;
    lv.peak = st.peak_threshold;
    lv.noise = st.noise_threshold;
    if (st.percent_thresholds) {
        lv.peak = st.peak_threshold / 100.0 * ymax;
        lv.noise = st.noise_threshold / 100.0 * ymax;
    }
    table.ymax = ymax;
    if (upper - lower < 3) {
        ui.MessagePopup("Operator Error", "Incorrect Mass Range");
        return 0;
    }

    std::vector<Found> found;
    walk_segments(y, lower, upper, st.min_peak_width, lv.noise, [&](const WalkSegment& seg) {
        const long apex = seg.apex;
        if (!(y[apex] > lv.peak) || apex == lower || apex == upper) return;
        const Parabola p = parabola_through(y[apex - 1], y[apex], y[apex + 1]);
        if (!(p.c2 < 0.0)) return;
        const double offset = -p.c1 / (2.0 * p.c2);
        Found f;
        f.apex = apex;
        f.height = (p.c2 * offset + p.c1) * offset + p.c0;
        f.index = x[apex] + offset * (x[apex + 1] - x[apex - 1]) / 2.0;
        f.mass = f.index;
        const double half = y[apex] / 2.0;
        long i = std::max(seg.start - 1, 0L);
        while (i < n - 1 && y[i] < half) ++i;
        const long left = i;
        while (i < n - 1 && y[i] > half) ++i;
        f.width = std::fabs(x[left] - x[i]);
        f.frequency = 0.0;
        if (s.xcalnoise.size() == s.data.size()) f.sn = s.xcalnoise[static_cast<std::size_t>(apex)] * f.height / y[apex];
        found.push_back(f);
    });
    sort_ascending(found);
    // The index of a profile peak is an m/z, so the width of the sample points
    // stands; the point walk of CalculateRP does not apply to it.
    return finish_list(s, found, st, ymax, table, false, false);
}

void FindPeakOptions(Workspace& ws, int slot) {
    if (slot < 0 || slot >= MAX_PANELS) return;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    Spectrum& s = p.spectrum;
    Settings& st = ws.settings;
    if (s.domain == DOMAIN_PROFILE) {
        if (!s.xvalues.empty()) {
            const long first = std::clamp(static_cast<long>(p.xmin), 0L, static_cast<long>(s.xvalues.size()) - 1);
            st.low_mass = std::max({st.low_mass, s.xvalues[static_cast<std::size_t>(first)], s.xvalues.front()});
        }
        return;
    }
    if (s.domain == DOMAIN_MASS || s.domain == DOMAIN_FREQUENCY) {
        if (s.origlowfreq > 0.0 && s.orighighfreq > 0.0) {
            const double V = std::fabs(s.Trapvoltage);
            auto law = [&](double f) { return s.Aterm / f + s.Bterm * V / (f * f); };
            const double m1 = law(s.origlowfreq), m2 = law(s.orighighfreq);
            st.low_mass = std::min(m1, m2);
            st.high_mass = std::max(m1, m2);
            s.lowfreq = std::min(s.origlowfreq, s.orighighfreq);
            s.highfreq = std::max(s.origlowfreq, s.orighighfreq);
        }
        const double floor_mass = SPt_tomass(s, p.fullmax);
        if (st.low_mass < floor_mass) st.low_mass = floor_mass;
    }
}

void ensure_search_limits(Workspace& ws, int slot) {
    if (slot < 0 || slot >= MAX_PANELS) return;
    Settings& st = ws.settings;
    if (st.low_mass > 0.0 && st.high_mass > 0.0) return;
    const double low = st.low_mass, high = st.high_mass;
    st.low_mass = 0.0;
    st.high_mass = 0.0;
    FindPeakOptions(ws, slot);
    if (low > 0.0) st.low_mass = low;
    if (high > 0.0) st.high_mass = high;
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    if (s.domain == DOMAIN_PROFILE) {
        if (!s.xvalues.empty()) {
            if (st.low_mass <= 0.0) st.low_mass = s.xvalues.front();
            if (st.high_mass <= 0.0) st.high_mass = s.xvalues.back();
        }
        return;
    }
    // An excited range the header gave only as frequencies (Bruker acquisitions
    // carry EXC_low/EXC_hi) is taken through the record's own law.
    if ((st.high_mass <= 0.0 || st.low_mass <= 0.0) && s.lowfreq > 0.0 && s.highfreq > s.lowfreq) {
        const double freqs[2] = {s.lowfreq, s.highfreq};
        double masses[2] = {0.0, 0.0};
        Freq_tomass(s, freqs, masses);
        const double lo = std::min(masses[0], masses[1]), hi = std::max(masses[0], masses[1]);
        if (lo > 0.0 && hi < MASS_OUT_OF_LAW && std::isfinite(lo) && std::isfinite(hi)) {
            if (st.high_mass <= 0.0) st.high_mass = hi;
            if (st.low_mass <= 0.0) st.low_mass = lo;
        }
    }
    if (st.high_mass <= 0.0) st.high_mass = High_Mass(s);
    if (st.low_mass <= 0.0) st.low_mass = Low_Mass(s);
}

int FindPeaksCommand(Workspace& ws, PeakTable& table, Ui& ui) {
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS ||
        !ws.panels[static_cast<std::size_t>(ws.active_panel)].active) {
        ui.MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(ws.active_panel)];
    Spectrum& s = p.spectrum;
    Settings& st = ws.settings;
    if (p.xmode == XMODE_PEAKS) {
        // A list that came with the file is shown as it stands.
        table = PeakTable{};
        table.loaded = table.shown = !s.peaks.empty();
        for (std::size_t k = 0; k < s.peaks.size(); ++k) {
            const Peak& pk = s.peaks[k];
            PeakTableRow r;
            r.number = static_cast<int>(k + 1);
            // A list read from a .pks file keeps its m/z in index.
            r.mass = s.domain == DOMAIN_PEAKLIST ? pk.index : pk.mass;
            r.index = pk.index;
            r.frequency = pk.frequency;
            r.height = pk.abundance;
            r.percent = pk.relabundance;
            r.scaled_abundance = pk.abundance;
            r.width = pk.width;
            r.resolvingpower = pk.resolvingpower;
            r.sn = 12.0;
            table.rows.push_back(r);
        }
        if (s.peaks.empty()) ui.MessagePopup("Peak Find Results", "No Peaks Found in Search Region");
        return static_cast<int>(s.peaks.size());
    }
    if (s.domain != DOMAIN_FREQUENCY && s.domain != DOMAIN_MASS && s.domain != DOMAIN_PROFILE) {
        ui.MessagePopup("Operator Error", "Not in Mass/Frequency Domain\n Peak Finding Not Allowed");
        return -1;
    }
    if (p.xmode == XMODE_FREQUENCY) {
        ui.MessagePopup("Error Message", "Frequency domain peak finding not available now.");
        return -1;
    }
    if (p.xmode != XMODE_MZ && p.xmode != XMODE_MZ_XVALUES) return 0;

    table = PeakTable{};
    const auto started = std::chrono::steady_clock::now();
    if (st.low_mass <= 1e-8 && p.xmode == XMODE_MZ) {
        // Limits never set: the lowest mass of the full view, and the reborn
        // search runs first, as the panel always did on its first use.
        st.low_mass = SPt_tomass(s, p.fullmax);
        PeakTable first;
        NewVantorixPeakPick2(s, st, first, ui);
    }
    s.initMz = st.low_mass;
    s.finalMz = st.high_mass;
    s.peakabundance = st.peak_threshold;
    s.peakprofile = st.noise_threshold;
    table.loaded = true;
    const int n = p.xmode == XMODE_MZ ? FindPeaksReborn(s, st, p.ymax, table, ui)
                                      : FindPeaksProfile(s, st, p.ymax, table, ui);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    if (n > 0) {
        table.shown = true;
        table.status = fmt::format("Traditional Peaklist Analysis revealed {} peaks in {:f} seconds.", n, seconds);
    } else {
        table = PeakTable{};
        if (n == 0) ui.MessagePopup("Peak Find Results", "No Peaks Found in Search Region");
    }
    return n;
}

int AnalyzeFindPeaks(Workspace& ws, bool by_sn, PeakTable& table, Ui& ui) {
    Settings& st = ws.settings;
    st.sn_mode = by_sn ? 1 : 0;
    if (st.notches_on && !st.notches.empty()) {
        if (st.notches.size() >= 2) std::sort(st.notches.begin(), st.notches.end());
        if (st.notches.front().first < std::min(st.low_mass, st.high_mass)) {
            ui.MessagePopup("Exclude Notch Value Out of Range",
                            "Exclude Notch must be within the primary search range. Aborting.");
            return -1;
        }
    }
    return FindPeaksCommand(ws, table, ui);
}

std::string LabelPeakText(double mass, double abundance, int mz_decimals, int abundance_decimals) {
    const std::string mz = (mz_decimals >= 1 && mz_decimals <= 8) ? fmt::format("{:.{}f}", mass, mz_decimals)
                                                                  : fmt::format("{:.0f}", std::round(mass));
    return mz + "\n" + fmt::format("{:.{}f}", abundance, std::clamp(abundance_decimals, 0, 15));
}

int LabelPeaks(const PeakTable& table, const std::vector<bool>& ticked, const Settings& st,
               std::vector<PeakLabel>& labels) {
    int added = 0;
    for (std::size_t k = 0; k < table.rows.size() && k < ticked.size(); ++k) {
        if (!ticked[k]) continue;
        const PeakTableRow& r = table.rows[k];
        const bool present = std::any_of(labels.begin(), labels.end(), [&](const PeakLabel& l) {
            return std::fabs(l.x - r.mass) < 1e-6 && std::fabs(l.y - r.height) < 1e-6;
        });
        if (present) continue;
        labels.push_back({r.mass, r.height, LabelPeakText(r.mass, r.height, st.PEAKMZ, st.PEAKABUN)});
        ++added;
    }
    return added;
}

}  // namespace vx
