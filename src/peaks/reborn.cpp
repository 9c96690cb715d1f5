#include "peaks/reborn.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <unordered_set>

#include <fmt/format.h>

#include "peaks/noise.hpp"
#include "peaks/walk.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

// Frequency of an m/z by the two-term law, for every calibration type that
// has two terms. Data that carry the instrument's own law (Bruker .d files,
// whose ML terms mean something else) go by that law: the two-term form would
// put their peaks about 90 ppm off.
double law_frequency(const Spectrum& s, double mass) {
    if (s.caltype == CALTYPE_INSTRUMENT) return instrument_freq(s.Aterm, s.Bterm, s.Cterm, mass);
    const double V = std::fabs(s.Trapvoltage);
    const double A = s.Aterm, B = s.Bterm;
    return (std::sqrt(std::max(0.0, A * A + 4.0 * mass * V * B)) + A) / (2.0 * mass);
}

// m/z of a frequency by the same rule.
double law_mass_two_term(const Spectrum& s, double f) {
    if (s.caltype == CALTYPE_INSTRUMENT) return instrument_mass(s.Aterm, s.Bterm, s.Cterm, f);
    const double V = std::fabs(s.Trapvoltage);
    return V * s.Bterm / f / f + s.Aterm / f;
}

// A point computed in double precision as an index within [lo, hi].
long bounded_index(double point, long lo, long hi) {
    if (std::isnan(point)) return lo;
    if (point <= static_cast<double>(lo)) return lo;
    if (point >= static_cast<double>(hi)) return hi;
    return static_cast<long>(point);
}

struct IndexRange {
    long first = 0, last = 0;
};

// Steps 2 to 4 of both commands: the index ranges of the search, from the
// highest m/z down. subtract_start: the S/N command's ranges are relative to
// the data of a reduced spectrum.
std::vector<IndexRange> search_ranges(Spectrum& s, const Settings& st, bool subtract_start, Ui* console) {
    const long n = static_cast<long>(s.data.size());
    long upper_limit = s.StartIndex > 0 ? static_cast<long>(s.Zoomcount) + s.StartIndex : n - 1;
    if (s.hzppt <= 0.0 && s.datacount != 0) s.hzppt = s.dbandwidth / s.datacount;
    const double hz = s.hzppt;

    auto first_of = [&](double final_mz) {
        const double f = law_frequency(s, final_mz);
        return std::min(bounded_index(std::round(std::floor(f / hz)), -1000000000L, 1000000000L), upper_limit);
    };
    auto last_of = [&](double init_mz) {
        const double f = law_frequency(s, init_mz);
        return std::max(bounded_index(std::round(std::ceil(f / hz)), -1000000000L, 1000000000L), 0L);
    };
    if (console) {
        const double f = law_frequency(s, s.finalMz);
        const long old_school = bounded_index(std::round(std::floor(f) / hz), -1000000000L, 1000000000L);
        console->Console(fmt::format("oldSchoolIndex = {}. newSchoolIndex = {}. \n", old_school, first_of(s.finalMz)));
    }

    std::vector<IndexRange> ranges;
    // Reversed limits stay reversed: first lies above last and nothing is found.
    const auto mass_ranges = s.initMz > s.finalMz
                                 ? std::vector<std::pair<double, double>>{{s.initMz, s.finalMz}}
                                 : notch_ranges(s.initMz, s.finalMz, st.notches_on != 0, st.notches);
    for (auto it = mass_ranges.rbegin(); it != mass_ranges.rend(); ++it) {
        IndexRange r{first_of(it->second), last_of(it->first)};
        if (subtract_start) {
            r.first = std::clamp(r.first - s.StartIndex, 0L, std::max(n - 1, 0L));
            r.last = std::clamp(r.last - s.StartIndex, 0L, std::max(n - 1, 0L));
        }
        // Never past the samples the record holds.
        r.first = std::clamp(r.first, 0L, std::max(n - 1, 0L));
        r.last = std::clamp(r.last, 0L, std::max(n - 1, 0L));
        ranges.push_back(r);
    }
    return ranges;
}

void read_panel_values(Spectrum& s, const Settings& st) {
    s.initMz = st.low_mass;
    s.finalMz = st.high_mass;
    s.peakabundance = st.peak_threshold;
    s.peakprofile = st.noise_threshold;
}

void run_sn_step(Spectrum& s, Ui& ui) {
    if (s.overRideThrashNoiseCalculation == 0) CalculateSignalToNoiseThrashStyle(s);
    else CalculateSignalToNoiseBasedOnUserDefines(s);
    ui.Console(fmt::format("NewVantorixPeakPick:1817 overRideThrashNoiseCalculation = {}.\n",
                           s.overRideThrashNoiseCalculation));
}

template <class Scan>
int collect_and_assign(Spectrum& s, const std::vector<IndexRange>& ranges, Scan&& scan, Ui& ui) {
    std::vector<long> indexes;
    for (const IndexRange& r : ranges) {
        const auto part = scan(r);
        indexes.insert(indexes.end(), part.begin(), part.end());
    }
    long count = static_cast<long>(indexes.size());
    if (ranges.size() > 1) count = std::max(CheckForAndRemoveDuplicates(indexes, count), 0L);
    AssignAllPeaks(s, count, indexes, ui);
    return static_cast<int>(count);
}

void show_table(Spectrum& s, const Settings& st, PeakTable& table, double seconds) {
    FillPeaklist2Table(s, s.peakcount, st, table);
    table.shown = true;
    table.status = fmt::format("New Peaklist Analysis revealed {} peaks in {:f} seconds.", s.peakcount, seconds);
}

}  // namespace

double InterpMidMass(double point, const Spectrum& s) {
    const double f = s.hzppt * point;
    return law_mass_two_term(s, f);
}

std::vector<long> FindVantorixPeakIndexesOldAndNew(const Spectrum& s, long first, long last, double peak_level,
                                                   double noise_level, double min_width) {
    std::vector<long> out;
    const long n = static_cast<long>(s.data.size());
    if (n < 4) return out;
    first = std::max(first, 0L);
    const long to = std::min(last, n - 3);
    const float* y = s.data.data();
    long pos = first;
    while (pos < to) {
        const WalkSegment seg = climb_descend(y, pos, to);
        if (seg.end < to - 3 &&
            (static_cast<double>(seg.end - seg.start + 1) < min_width || seg.h < noise_level)) {
            pos = seg.end;
            continue;
        }
        long apex = seg.start;
        for (long i = seg.start + 1; i <= seg.end; ++i)
            if (y[i] > y[apex]) apex = i;
        // The earlier of two equal top samples stands for the pair: its right
        // neighbour may equal it, the left one must lie below.
        if (y[apex] > peak_level && apex != first && apex != last && y[apex] > y[apex - 1] && y[apex] >= y[apex + 1])
            out.push_back(apex);
        pos = apex + 1;
    }
    return out;
}

std::vector<long> FindVantorixPeakIndexes(const Spectrum& s, long first, long last, double peak_level,
                                          double noise_level) {
    std::vector<long> out;
    out.reserve(50000);
    const long n = static_cast<long>(s.data.size());
    const float* y = s.data.data();
    const long from = std::max(first + 1, 1L);
    const long to = std::min(last - 2, n - 2);
    for (long i = from; i <= to; ++i) {
        if (y[i] > peak_level && y[i - 1] > noise_level && y[i + 1] > noise_level && y[i] > y[i - 1] &&
            y[i] > y[i + 1])
            out.push_back(i);
    }
    return out;
}

void AssignAllPeaks(Spectrum& s, long n, const std::vector<long>& indexes, Ui& ui) {
    n = std::clamp(n, 0L, static_cast<long>(indexes.size()));
    s.peaks.assign(static_cast<std::size_t>(n), Peak{});
    s.peakcount = static_cast<std::int32_t>(n);
    const long count = static_cast<long>(s.data.size());
    const float* y = s.data.data();
    double largest = 0.0;
    for (long k = 0; k < n; ++k) {
        const long i = indexes[static_cast<std::size_t>(n - 1 - k)];
        if (i < 1 || i > count - 2) continue;
        const Parabola p = parabola_through(y[i - 1], y[i], y[i + 1]);
        if (!(p.c2 < 0.0)) continue;
        const double offset = -p.c1 / (2.0 * p.c2);
        const double f = s.hzppt * (static_cast<double>(i) + offset);
        const double height = (p.c2 * offset + p.c1) * offset + p.c0;
        const double mass = law_mass_two_term(s, f);
        if (k < 10) ui.Console(fmt::format("peak {} freq = {:f}, abund = {:f}, and mz = {:f}.\n", k, f, height, mass));
        Peak& pk = s.peaks[static_cast<std::size_t>(k)];
        const double half = height / 2.0;
        bool left = false, right = false;
        for (long j = i - 1; j >= 0 && !left; --j) left = y[j] < half;
        for (long j = i + 1; j < count && !right; ++j) right = y[j] < half;
        if (left && right) {
            pk.width = 1000.0;
        } else {
            pk.width = 0.0;
            pk.resolvingpower = -1.0;
        }
        pk.abundance = height;
        pk.index = static_cast<double>(i) + offset;
        pk.frequency = f;
        pk.mass = mass;
        pk.sn = -1.0;
        pk.relabundance = 0.0;
        pk.iscalibrant = 0;
        pk.calibrantrow = -1;
        pk.calmass = -1.0;
        largest = std::max(largest, height);
    }
    if (largest > 0.0)
        for (Peak& pk : s.peaks) pk.relabundance = pk.abundance / (largest / 100.0);
}

void CalculateRP(Spectrum& s, long n) {
    const long count = static_cast<long>(s.data.size());
    if (count < 2) return;
    n = std::clamp(n, 0L, static_cast<long>(s.peaks.size()));
    const float* y = s.data.data();
    for (long k = 0; k < n; ++k) {
        Peak& pk = s.peaks[static_cast<std::size_t>(k)];
        const double half = pk.abundance / 2.0;
        const long centre = bounded_index(std::round(pk.index), 1, count - 1);
        long i = centre;
        while (i > 1 && y[i - 1] > half) --i;
        const double left = Interp_midmass(i, half, s);
        i = centre;
        while (i < count - 1 && y[i] > half) ++i;
        const double right = Interp_midmass(i, half, s);
        pk.width = left - right;
        pk.resolvingpower = pk.mass / pk.width;
    }
}

int CalculateRelativeAbundance(Spectrum& s, long n) {
    n = std::clamp(n, 0L, static_cast<long>(s.peaks.size()));
    if (n == 0) return -1;
    double largest = 0.0;
    for (long k = 0; k < n; ++k) largest = std::max(largest, s.peaks[static_cast<std::size_t>(k)].abundance);
    if (largest <= 0.0) return 0;
    for (long k = 0; k < n; ++k) {
        Peak& pk = s.peaks[static_cast<std::size_t>(k)];
        pk.relabundance = pk.abundance / largest * 100.0;
    }
    return 0;
}

void FillInEachSnRange(const Spectrum& s, SnWindow& w) {
    const long count = static_cast<long>(s.data.size());
    const double V = std::fabs(s.Trapvoltage);
    const double A = s.Aterm, B = s.Bterm;
    auto point = [&](double m) {
        if (s.caltype == CALTYPE_INSTRUMENT) return instrument_freq(A, B, s.Cterm, m) / s.hzppt;
        return (2.0 * B * V / (std::sqrt(std::max(0.0, A * A + 4.0 * B * V * m)) - A)) / s.hzppt;
    };
    const long hi = std::max(count - 1, 0L);
    w.firstindex = bounded_index(std::round(point(w.highmz)), 0, hi);
    w.lastindex = bounded_index(std::round(point(w.lowmz)), 0, hi);
    w.count = w.lastindex - w.firstindex + 1;
    if (w.count > 0 && count > 0)
        w.samples.assign(s.data.begin() + w.firstindex, s.data.begin() + w.lastindex + 1);
    else
        w.samples.clear();
}

void CalculateNoiseInEachRange(std::vector<SnWindow>& windows) {
    for (SnWindow& w : windows) {
        w.sigma = -1.0;
        w.baseline = CalculateThrashNoise_RP(w.samples.data(), static_cast<long>(w.samples.size()), &w.sigma);
    }
}

void AssignSnToPeaksInList(Spectrum& s, const std::vector<SnWindow>& windows) {
    for (Peak& pk : s.peaks) {
        for (const SnWindow& w : windows) {
            if (w.lowmz <= pk.mass && pk.mass <= w.highmz) {
                // A window without spread gives no ratio; the peak keeps its -1.
                if (w.sigma > 0.0) pk.sn = (pk.abundance - w.baseline) / w.sigma;
                break;
            }
        }
    }
}

void CalculateSignalToNoiseThrashStyle(Spectrum& s) {
    const double span = (s.finalMz - s.initMz) / 3.0;
    if (!(span > 0.0) || s.hzppt <= 0.0) return;
    const long n = static_cast<long>(std::round(std::ceil(std::min(span, 1.0e6))));
    std::vector<SnWindow> windows(static_cast<std::size_t>(n));
    for (long k = 0; k < n; ++k) {
        SnWindow& w = windows[static_cast<std::size_t>(k)];
        if (k < n - 1) {
            w.lowmz = s.initMz + 3.0 * k;
            w.highmz = s.initMz + 3.0 * (k + 1);
        } else {
            // The last window ends at finalMz and may overlap the one before.
            w.lowmz = s.finalMz - 3.0;
            w.highmz = s.finalMz;
        }
        FillInEachSnRange(s, w);
    }
    CalculateNoiseInEachRange(windows);
    AssignSnToPeaksInList(s, windows);
}

void assign_robust_sn(Spectrum& s, double window) {
    if (!(window > 0.0)) window = 5.0;
    bool have = false;
    double centre = 0.0, baseline = 0.0, width = 0.0;
    for (Peak& pk : s.peaks) {
        if (!have || std::fabs(pk.mass - centre) > window / 4.0) {
            centre = pk.mass;
            baseline = CalculateNoiseRobust(s, centre, window, &width);
            have = true;
        }
        pk.sn = width > 0.0 ? (pk.abundance - baseline) / width : 0.0;
    }
}

void CalculateSignalToNoiseBasedOnUserDefines(Spectrum& s) {
    for (Peak& pk : s.peaks) pk.sn = (pk.abundance - s.noisemean) / s.noisesigma;
}

void RemoveIndexAndShiftReaminingIndexesUp(std::vector<long>& indexes, long count, long position) {
    count = std::min(count, static_cast<long>(indexes.size()));
    if (position < 0 || position >= count) return;
    std::copy(indexes.begin() + position + 1, indexes.begin() + count, indexes.begin() + position);
}

long CheckForAndRemoveDuplicates(std::vector<long>& indexes, long count) {
    count = std::min(count, static_cast<long>(indexes.size()));
    if (count < 0) return -10;
    std::unordered_set<long> seen;
    long kept = 0;
    for (long k = 0; k < count; ++k) {
        const long v = indexes[static_cast<std::size_t>(k)];
        if (seen.insert(v).second) indexes[static_cast<std::size_t>(kept++)] = v;
    }
    return kept;
}

void FillPeaklist2Table(const Spectrum& s, long n, const Settings& st, PeakTable& table) {
    table.loaded = true;
    table.rows.clear();
    n = std::clamp(n, 0L, static_cast<long>(s.peaks.size()));
    for (long k = 0; k < n; ++k) {
        const Peak& pk = s.peaks[static_cast<std::size_t>(k)];
        PeakTableRow r;
        r.number = static_cast<int>(k + 1);
        r.mass = pk.mass;
        r.index = pk.index;
        r.frequency = pk.frequency;
        r.height = pk.abundance;
        r.percent = pk.relabundance;
        r.scaled_abundance = st.abundance_scale * pk.abundance;
        r.width = pk.width;
        r.resolvingpower = pk.resolvingpower;
        r.sn = pk.sn;
        table.rows.push_back(r);
    }
}

int NewVantorixPeakPick2(Spectrum& s, const Settings& st, PeakTable& table, Ui& ui) {
    const auto started = std::chrono::steady_clock::now();
    table = PeakTable{};
    read_panel_values(s, st);
    ui.Console(fmt::format("initMz = {:f}. finalMz = {:f}.\n", s.initMz, s.finalMz));
    const auto ranges = search_ranges(s, st, false, &ui);
    if (!ranges.empty()) {
        s.peakstart = ranges.front().first;
        s.peakend = ranges.back().last;
    }
    collect_and_assign(s, ranges, [&](const IndexRange& r) {
        return FindVantorixPeakIndexesOldAndNew(s, r.first, r.last, st.peak_threshold, st.noise_threshold,
                                                st.min_peak_width);
    }, ui);
    run_sn_step(s, ui);
    CalculateRP(s, s.peakcount);
    show_table(s, st, table, std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
    return s.peakcount;
}

int NewVantorixPeakPickSN(Spectrum& s, const Settings& st, PeakTable& table, Ui& ui) {
    const auto started = std::chrono::steady_clock::now();
    table = PeakTable{};
    read_panel_values(s, st);
    const auto ranges = search_ranges(s, st, true, nullptr);
    if (!ranges.empty()) {
        s.peakstart = ranges.front().first;
        s.peakend = ranges.back().last;
    }
    run_sn_step(s, ui);
    collect_and_assign(s, ranges, [&](const IndexRange& r) {
        return FindVantorixPeakIndexes(s, r.first, r.last, st.peak_threshold, st.noise_threshold);
    }, ui);
    CalculateRP(s, s.peakcount);
    show_table(s, st, table, std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
    return s.peakcount;
}

}  // namespace vx
