#include "workspace/display.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>

#include <fmt/format.h>

#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

#if defined(__SSE2__)
#include <immintrin.h>
#endif

namespace vx {

namespace {

std::size_t idx(long i) { return static_cast<std::size_t>(i); }

long sample_count(const Spectrum& s) { return static_cast<long>(s.data.size()); }

// A NaN range end takes the given replacement; everything else is kept.
bool is_nan(double v) { return std::isnan(v); }

}  // namespace

MinMax minmax_kernel(const float* v, std::size_t n) {
    float lo = std::numeric_limits<float>::infinity();
    float hi = -std::numeric_limits<float>::infinity();
    std::size_t i = 0;
#if defined(__SSE2__)
    // Four independent accumulators of four lanes: the loop runs at the speed
    // of the loads. minps/maxps return their second operand when either is
    // NaN, so with the sample first a NaN sample leaves the accumulator as it was.
    if (n >= 16) {
        __m128 mn0 = _mm_set1_ps(lo), mn1 = mn0, mn2 = mn0, mn3 = mn0;
        __m128 mx0 = _mm_set1_ps(hi), mx1 = mx0, mx2 = mx0, mx3 = mx0;
        for (; i + 16 <= n; i += 16) {
            const __m128 a = _mm_loadu_ps(v + i), b = _mm_loadu_ps(v + i + 4);
            const __m128 c = _mm_loadu_ps(v + i + 8), d = _mm_loadu_ps(v + i + 12);
            mn0 = _mm_min_ps(a, mn0); mx0 = _mm_max_ps(a, mx0);
            mn1 = _mm_min_ps(b, mn1); mx1 = _mm_max_ps(b, mx1);
            mn2 = _mm_min_ps(c, mn2); mx2 = _mm_max_ps(c, mx2);
            mn3 = _mm_min_ps(d, mn3); mx3 = _mm_max_ps(d, mx3);
        }
        alignas(16) float t[4];
        _mm_store_ps(t, _mm_min_ps(_mm_min_ps(mn0, mn1), _mm_min_ps(mn2, mn3)));
        lo = std::min(std::min(t[0], t[1]), std::min(t[2], t[3]));
        _mm_store_ps(t, _mm_max_ps(_mm_max_ps(mx0, mx1), _mm_max_ps(mx2, mx3)));
        hi = std::max(std::max(t[0], t[1]), std::max(t[2], t[3]));
    }
#endif
    for (; i < n; ++i) {
        const float x = v[i];
        if (x < lo) lo = x;
        if (x > hi) hi = x;
    }
    if (lo > hi) return {0.0f, 0.0f};  // nothing but NaN
    return {lo, hi};
}

MinMax Set_MinMax(const Spectrum& s, long start, long end) {
    const long n = sample_count(s);
    if (n == 0) return {};
    start = std::clamp(start, 0L, n - 1);
    end = std::clamp(end, start, n - 1);
    return minmax_kernel(s.data.data() + start, idx(end - start + 1));
}

namespace {

// Samples from trunc(from), round(to - from + 1) long, as the ranges are read.
MinMax range_minmax(const Spectrum& s, double from, double to) {
    if (is_nan(from) || is_nan(to)) return Set_MinMax(s, 0, sample_count(s) - 1);
    const long start = static_cast<long>(std::trunc(from));
    const long count = std::max(1L, std::lround(to - from + 1.0));
    return Set_MinMax(s, start, start + count - 1);
}

}  // namespace

void Set_Global_MinMax(AnalysisPanel& p) {
    const double dc = p.spectrum.datacount;
    if (p.fullmax > dc - 2.0) p.fullmax = dc - 2.0;
    if (p.fullmax <= 1.0) {
        p.fullmin = p.fullmax - 2.0;
        if (p.fullmin <= 0.0) p.fullmin = 1.0;
    }
    if (p.fullmin >= p.fullmax) p.fullmin = p.fullmax - 2.0;
    const MinMax m = range_minmax(p.spectrum, p.fullmin, p.fullmax);
    p.ymax = m.max;
    p.ymin = m.min;
}

namespace {

void clamp_visible_range(AnalysisPanel& p) {
    const double dc = p.spectrum.datacount;
    if (p.xmin > p.xmax) std::swap(p.xmin, p.xmax);
    if (p.xmin >= dc || is_nan(p.xmin)) p.xmin = dc - 1.0;
    if (p.xmax >= dc - 1.0 || is_nan(p.xmax)) p.xmax = dc - 2.0;
}

}  // namespace

void Set_Local_MinMax(AnalysisPanel& p) {
    clamp_visible_range(p);
    const MinMax m = range_minmax(p.spectrum, p.xmin, p.xmax);
    p.localymax = m.max;
    p.localymin = m.min;
}

long visible_count(const AnalysisPanel& p) { return std::max(1L, std::lround(p.xmax - p.xmin + 1.0)); }

void Initialize_Display(Workspace& ws, int slot) {
    AnalysisPanel& p = ws.panels[idx(slot)];
    const double dc = p.spectrum.datacount;
    p.plot = -1;
    p.xmin = p.fullmin = p.prevmin = 1.0;
    p.xmax = p.fullmax = p.prevmax = dc - 1.0;
    p.xmode = XMODE_TIME;
    p.relativescale = 0;
    p.globalscale = 0;
    if (p.fullmax > dc - 2.0) p.fullmax = dc - 2.0;
    if (p.fullmax <= 1.0) {
        p.fullmin = p.fullmax - 2.0;
        if (p.fullmin <= 0.0) p.fullmin = 1.0;
    }
    const MinMax m = range_minmax(p.spectrum, p.fullmin, p.fullmax);
    p.ymax = p.localymax = m.max;
    p.ymin = p.localymin = m.min;
    p.panel = slot;
    p.active = 1;
}

namespace {

void ensure(PlotArrays& out, std::size_t n, bool mirrored) {
    if (out.x.size() < n) out.x.resize(n);
    if (out.y.size() < n) out.y.resize(n);
    if (mirrored && out.y2.size() < n) out.y2.resize(n);
    out.count = n;
}

float sample_at(const Spectrum& s, long i) {
    const long n = sample_count(s);
    if (n == 0) return 0.0f;
    return s.data[idx(std::clamp(i, 0L, n - 1))];
}

// Min/max envelope of the point and time modes: 2 values per pixel column, both
// at the column's first x, min first.
void point_envelope(const AnalysisPanel& p, long N, long start, long W, PlotArrays& out) {
    const Spectrum& s = p.spectrum;
    ensure(out, idx(2 * W), false);
    for (long i = 0; i < W; ++i) {
        const long a = start + static_cast<long>((static_cast<long long>(i) * N) / W);
        const long b = start + static_cast<long>((static_cast<long long>(i + 1) * N) / W) - 1;
        const MinMax m = Set_MinMax(s, a, std::max(a, b));
        const double x = std::round(p.xmin + static_cast<double>(i) * (static_cast<double>(N) / (2.0 * W)) * 2.0);
        out.x[idx(2 * i)] = x;
        out.x[idx(2 * i + 1)] = x;
        out.y[idx(2 * i)] = m.min;
        out.y[idx(2 * i + 1)] = m.max;
    }
}

void frequency_columns(const AnalysisPanel& p, long N, long start, PlotArrays& out) {
    const Spectrum& s = p.spectrum;
    const long columns = display_point_limit / 2;
    ensure(out, display_point_limit, false);
    for (long j = 0; j < columns; ++j) {
        const long a = start + static_cast<long>((static_cast<long long>(j) * N) / columns);
        const long b = std::max(a, start + static_cast<long>((static_cast<long long>(j + 1) * N) / columns) - 1);
        const MinMax m = Set_MinMax(s, a, b);
        out.x[idx(2 * j)] = static_cast<double>(a);
        out.x[idx(2 * j + 1)] = static_cast<double>(b);
        out.y[idx(2 * j)] = m.min;
        out.y[idx(2 * j + 1)] = m.max;
    }
    std::span<double> xs(out.x.data(), display_point_limit);
    Pt_tofreq(s, xs, xs);
    for (double& x : xs) x /= 1000.0;
}

}  // namespace

namespace {

// The m/z columns of Selective_Mass_Display. Reads stay inside the visible
// points first..last; covered receives the points the columns read (a
// contiguous run), so that the caller can take the local extremes from the
// columns and only the few points at the edges.
std::size_t mass_columns(const AnalysisPanel& p, double* x, float* y, float* y2, int count, bool mirrored,
                         long first, long last, std::pair<long, long>* covered) {
    const Spectrum& s = p.spectrum;
    const int columns = count / 2;
    if (columns <= 0) return 0;
    const double mhigh = SPt_tomass(s, p.xmin);
    const double mlow = SPt_tomass(s, p.xmax);
    const double step = 2.0 * (mhigh - mlow) / count;

    // Column edges from the low-mass end; one conversion per edge.
    std::vector<double> edges(idx(columns + 1));
    for (int j = 0; j <= columns; ++j) edges[idx(j)] = mlow + j * step;
    std::vector<double> pts(edges.size()), pts2;
    Mass_topt(s, edges, pts);
    if (mirrored) {
        pts2.resize(edges.size());
        Mass_topt(p.spectrum2, edges, pts2);
    }
    for (double& v : pts) v = std::floor(v);
    for (double& v : pts2) v = std::floor(v);

    std::vector<double> edge_mass(edges.size());
    for (std::size_t j = 0; j < pts.size(); ++j) edge_mass[j] = SPt_tomass(s, pts[j]);

    long cov_lo = std::numeric_limits<long>::max(), cov_hi = std::numeric_limits<long>::min();
    auto column = [&](const Spectrum& sp, double e1, double e2, bool track) {
        // Half-open between the two edge points, so that neighbouring columns
        // never read their shared edge twice; a column narrower than one point
        // shows the sample at its edge.
        const double lo = std::min(e1, e2), hi = std::max(e1, e2);
        long a = std::isfinite(lo) ? static_cast<long>(std::clamp(lo, -1e18, 1e18)) : first;
        long b = std::isfinite(hi) ? static_cast<long>(std::clamp(hi, -1e18, 1e18)) - 1 : a;
        a = std::clamp(a, first, last);
        b = std::clamp(b, a, last);
        if (track) {
            cov_lo = std::min(cov_lo, a);
            cov_hi = std::max(cov_hi, b);
        }
        return Set_MinMax(sp, a, b);
    };
    for (int j = 0; j < columns; ++j) {
        const MinMax m = column(s, pts[idx(j)], pts[idx(j + 1)], true);
        x[2 * j] = edge_mass[idx(j)];
        x[2 * j + 1] = edge_mass[idx(j + 1)];
        y[2 * j] = m.min;
        y[2 * j + 1] = m.max;
        if (mirrored && y2) {
            const MinMax m2 = column(p.spectrum2, pts2[idx(j)], pts2[idx(j + 1)], false);
            y2[2 * j] = -m2.min;
            y2[2 * j + 1] = -m2.max;
        }
    }
    if (covered) *covered = {cov_lo, cov_hi};
    return idx(2 * columns);
}

// Extremes of the entries of a decimated trace.
MinMax trace_minmax(const PlotArrays& out) { return minmax_kernel(out.y.data(), out.count); }

MinMax merge(MinMax a, MinMax b) { return {std::min(a.min, b.min), std::max(a.max, b.max)}; }

}  // namespace

std::size_t Selective_Mass_Display(const AnalysisPanel& p, double* x, float* y, float* y2, int count,
                                   bool mirrored) {
    const long first = static_cast<long>(std::trunc(p.xmin));
    const long last = first + visible_count(p) - 1;
    return mass_columns(p, x, y, y2, count, mirrored, first, last, nullptr);
}

double Set_Plot_Attributes(const AnalysisPanel& p, float* y, std::size_t count) {
    if (p.relativescale != 1) return 1.0;
    const Spectrum& s = p.spectrum;
    const bool magnitude = s.domain == DOMAIN_FREQUENCY || (s.domain == DOMAIN_MASS && s.sed == 0);
    // Absorption spectra have both signs: their 100 % is the larger extreme.
    const double divisor = magnitude ? static_cast<double>(p.ymax)
                                     : std::max(std::fabs(static_cast<double>(p.ymax)),
                                                std::fabs(static_cast<double>(p.ymin)));
    if (divisor == 0.0 || !std::isfinite(divisor)) return 1.0;
    const float f = static_cast<float>(100.0 / divisor);
    for (std::size_t i = 0; i < count; ++i) y[i] *= f;
    return divisor;
}

void Update_Display(AnalysisPanel& p, int width_px, PlotArrays& out) {
    if (p.mirrored) p.xmode = XMODE_MZ;
    // The local extremes come from the decimated columns where they cover the
    // range, so that a redraw reads each sample once.
    clamp_visible_range(p);
    bool local_from_trace = false;
    std::pair<long, long> covered{0, -1};
    const Spectrum& s = p.spectrum;
    const long N = visible_count(p);
    const long start = static_cast<long>(std::trunc(p.xmin));
    const long W = std::max(1, width_px);
    const bool mirrored = p.mirrored != 0;
    out.count = 0;
    out.xlabel = xmode_label(p.xmode);
    out.ylabel = p.relativescale ? "Relative Signal" : "Absolute Signal";

    if (sample_count(s) > 0) {
        switch (p.xmode) {
            case XMODE_POINT:
            case XMODE_TIME:
                if (2 * W < N) {
                    point_envelope(p, N, start, W, out);
                    local_from_trace = true;
                } else {
                    ensure(out, idx(N), false);
                    for (long k = 0; k < N; ++k) {
                        out.x[idx(k)] = static_cast<double>(start + k);
                        out.y[idx(k)] = sample_at(s, start + k);
                    }
                }
                if (p.xmode == XMODE_TIME) {
                    const double f = 1000.0 / (2.0 * s.dbandwidth);
                    for (std::size_t k = 0; k < out.count; ++k) out.x[k] *= f;
                }
                break;
            case XMODE_FREQUENCY:
                if (N < display_point_limit + 1) {
                    ensure(out, idx(N), false);
                    for (long k = 0; k < N; ++k) {
                        out.x[idx(k)] = static_cast<double>(start + k);
                        out.y[idx(k)] = sample_at(s, start + k);
                    }
                    std::span<double> xs(out.x.data(), out.count);
                    Pt_tofreq(s, xs, xs);
                    for (double& x : xs) x /= 1000.0;
                } else {
                    frequency_columns(p, N, start, out);
                    local_from_trace = true;
                }
                break;
            case XMODE_MZ:
                if (N < display_point_limit + 1) {
                    ensure(out, idx(N), mirrored);
                    for (long k = 0; k < N; ++k) {
                        out.x[idx(k)] = SPt_tomass(s, static_cast<double>(start + k));
                        out.y[idx(k)] = sample_at(s, start + k);
                        if (mirrored) out.y2[idx(k)] = -sample_at(p.spectrum2, start + k);
                    }
                } else {
                    ensure(out, display_point_limit, mirrored);
                    out.count = mass_columns(p, out.x.data(), out.y.data(), mirrored ? out.y2.data() : nullptr,
                                             display_point_limit, mirrored, start, start + N - 1, &covered);
                }
                break;
            default: {  // chromatogram, peak sticks, m/z on xvalues
                const long n = std::min(sample_count(s), static_cast<long>(s.xvalues.size()));
                const long a = std::clamp(start, 0L, std::max(0L, n - 1));
                const long b = std::min(n, a + N);
                ensure(out, idx(std::max(0L, b - a)), false);
                for (long k = a; k < b; ++k) {
                    out.x[idx(k - a)] = s.xvalues[idx(k)];
                    out.y[idx(k - a)] = s.data[idx(k)];
                }
                break;
            }
        }
    }

    if (local_from_trace && out.count > 0) {
        const MinMax m = trace_minmax(out);
        p.localymin = m.min;
        p.localymax = m.max;
    } else if (covered.first <= covered.second && out.count > 0) {
        MinMax m = trace_minmax(out);
        if (covered.first > start) m = merge(m, Set_MinMax(s, start, covered.first - 1));
        if (covered.second < start + N - 1) m = merge(m, Set_MinMax(s, covered.second + 1, start + N - 1));
        p.localymin = m.min;
        p.localymax = m.max;
    } else {
        const MinMax m = range_minmax(s, p.xmin, p.xmax);
        p.localymin = m.min;
        p.localymax = m.max;
    }

    const double divisor = Set_Plot_Attributes(p, out.y.data(), out.count);
    if (mirrored) Set_Plot_Attributes(p, out.y2.data(), out.count);
    const double scale = p.relativescale == 1 ? 100.0 / divisor : 1.0;
    if (p.globalscale == 0) {
        out.ylow = p.localymin * scale;
        out.yhigh = p.localymax * scale;
    } else {
        out.ylow = p.ymin * scale;
        out.yhigh = p.ymax * scale;
    }
    if (mirrored) out.ylow = std::min(out.ylow, -out.yhigh);
    if (!(out.yhigh > out.ylow)) {  // a flat range still needs an axis
        const double pad = out.yhigh == 0.0 ? 1.0 : std::fabs(out.yhigh) * 0.05;
        out.ylow -= pad;
        out.yhigh += pad;
    }
}

double x_to_point(const AnalysisPanel& p, double x) {
    const Spectrum& s = p.spectrum;
    switch (p.xmode) {
        case XMODE_POINT: return x;
        case XMODE_TIME: return x * 2.0 * s.dbandwidth / 1000.0;
        case XMODE_MZ: return SMass_toPt(s, x);
        case XMODE_FREQUENCY: {
            double f = x * 1000.0, pt = 0.0;
            Freq_topt(s, std::span<const double>(&f, 1), std::span<double>(&pt, 1));
            return pt;
        }
        default: {
            if (s.xvalues.empty()) return 0.0;
            const auto it = std::lower_bound(s.xvalues.begin(), s.xvalues.end(), x);
            return static_cast<double>(std::min<std::ptrdiff_t>(it - s.xvalues.begin(),
                                                                static_cast<std::ptrdiff_t>(s.xvalues.size()) - 1));
        }
    }
}

double point_to_x(const AnalysisPanel& p, double point) {
    const Spectrum& s = p.spectrum;
    switch (p.xmode) {
        case XMODE_POINT: return point;
        case XMODE_TIME: return point * 1000.0 / (2.0 * s.dbandwidth);
        case XMODE_MZ: return SPt_tomass(s, point);
        case XMODE_FREQUENCY: {
            double f = 0.0;
            Pt_tofreq(s, std::span<const double>(&point, 1), std::span<double>(&f, 1));
            return f / 1000.0;
        }
        default: {
            if (s.xvalues.empty()) return 0.0;
            const long i = std::clamp(std::lround(point), 0L, static_cast<long>(s.xvalues.size()) - 1);
            return s.xvalues[idx(i)];
        }
    }
}

namespace {

int refuse(Ui& ui, const char* title, const char* text) {
    ui.MessagePopup(title, text);
    return PLOT_REFUSED;
}

// The first change to m/z cuts everything above the settings' highest mass
// off the full view, so that a spectrum opens on its useful range.
void first_mass_jump(AnalysisPanel& p, const Settings& settings) {
    if (!p.firstmasszoom) return;
    p.firstmasszoom = 0;
    if (settings.mass_zoom_limit <= 0.0) return;
    const double pt = SMass_toPt(p.spectrum, settings.mass_zoom_limit);
    if (pt < p.fullmax) {
        p.fullmin = p.prevmin = p.xmin = pt;
        Set_Global_MinMax(p);
    }
}

}  // namespace

int PlotMenuCommand(AnalysisPanel& p, int item, double cursor1, double cursor2, const Settings& settings,
                    Ui& ui) {
    Spectrum& s = p.spectrum;
    switch (item) {
        case PLOT_ZOOM_IN: {
            const double a = x_to_point(p, cursor1), b = x_to_point(p, cursor2);
            p.prevmin = p.xmin;
            p.prevmax = p.xmax;
            p.xmin = std::min(a, b);
            p.xmax = std::max(a, b);
            p.moveoffset = 0.0;
            return PLOT_DONE;
        }
        case PLOT_ZOOM_LAST:
            std::swap(p.xmin, p.prevmin);
            std::swap(p.xmax, p.prevmax);
            p.moveoffset = 0.0;
            return PLOT_DONE;
        case PLOT_ZOOM_FULL:
            p.prevmin = p.xmin;
            p.prevmax = p.xmax;
            p.xmin = p.fullmin;
            p.xmax = p.fullmax;
            p.moveoffset = 0.0;
            return PLOT_DONE;
        case PLOT_SET_TO_CURRENT: {
            p.fullmin = p.xmin;
            p.fullmax = p.xmax;
            const MinMax m = range_minmax(s, p.fullmin, p.fullmax);
            p.ymax = m.max;
            p.ymin = m.min;
            return PLOT_NO_REDRAW;
        }
        case PLOT_RESET:
            p.fullmin = (s.detectmode == DETECT_DIRECT && s.domain != DOMAIN_PEAKLIST &&
                         s.domain != DOMAIN_CHROMATOGRAM)
                            ? 1.0
                            : 0.0;
            p.fullmax = s.datacount - 1.0;
            p.xmin = p.prevmin = p.fullmin;
            p.xmax = p.prevmax = p.fullmax;
            Set_Global_MinMax(p);
            p.moveoffset = 0.0;
            return PLOT_DONE;
        case PLOT_TIME:
            if (s.domain == DOMAIN_CHROMATOGRAM) return PLOT_OPEN_SCAN;
            if (s.domain != DOMAIN_TIME)
                return refuse(ui, "Plotting Error", "TIME not allowed for Frequency Domain Data");
            p.xmode = XMODE_TIME;
            p.moveoffset = 0.0;
            return PLOT_DONE;
        case PLOT_DATA_POINT:
            p.xmode = XMODE_POINT;
            p.moveoffset = 0.0;
            return PLOT_DONE;
        case PLOT_MZ:
            if (s.domain != DOMAIN_FREQUENCY && s.domain != DOMAIN_MASS && s.domain != DOMAIN_PEAKLIST &&
                s.domain != DOMAIN_PROFILE)
                return refuse(ui, "Analyzer Error", "M/Z not allowed for Current Data");
            if (s.domain == DOMAIN_PROFILE) {
                p.xmode = XMODE_MZ_XVALUES;
            } else {
                p.xmode = XMODE_MZ;
                s.domain = DOMAIN_MASS;
                first_mass_jump(p, settings);
            }
            p.moveoffset = 0.0;
            return PLOT_DONE;
        case PLOT_FREQUENCY:
            if (s.domain != DOMAIN_FREQUENCY && s.domain != DOMAIN_MASS)
                return refuse(ui, "Analyzer Error", "FREQUENCY not allowed for Current Data");
            p.xmode = XMODE_FREQUENCY;
            s.domain = DOMAIN_FREQUENCY;
            p.moveoffset = 0.0;
            return PLOT_DONE;
        case PLOT_PEAKS:
            if (s.filetype != FILETYPE_PEAKLIST)
                return refuse(ui, "Analyzer Error", "PEAKS not allowed for TIME DOMAIN Data");
            p.xmode = XMODE_PEAKS;
            p.moveoffset = 0.0;
            return PLOT_DONE;
        case PLOT_CHROMATOGRAPH:
            if (s.domain != DOMAIN_CHROMATOGRAM)
                return refuse(ui, "Analyzer Error", "CHROMATOGRAPH not allowed for Current Data");
            p.xmode = XMODE_CHROMATOGRAM;
            p.moveoffset = 0.0;
            return PLOT_DONE;
        case PLOT_ABSOLUTE: p.relativescale = 0; return PLOT_DONE;
        case PLOT_RELATIVE: p.relativescale = 1; return PLOT_DONE;
        case PLOT_LOCAL: p.globalscale = 0; return PLOT_DONE;
        case PLOT_GLOBAL: p.globalscale = 1; return PLOT_DONE;
        default: return PLOT_NO_REDRAW;  // items the window handles itself (4, 11)
    }
}

int MoveGraph(AnalysisPanel& p, int button, double lo, double hi, Ui& ui) {
    if (p.xmode < XMODE_MZ) {
        ui.MessagePopup("Zoom Error", "Panning function only for Mass and Frequency at this time");
        return -1;
    }
    if (lo > hi) std::swap(lo, hi);
    const double step = p.moveoffset != 0.0 ? p.moveoffset : hi - lo;
    p.moveoffset = step;
    const bool left = button == 3;
    const double nlo = left ? lo - step : hi;
    const double nhi = left ? lo : hi + step;
    double a = x_to_point(p, nlo), b = x_to_point(p, nhi);
    if (a > b) std::swap(a, b);
    const double first = std::min(p.fullmin, p.fullmax), last = std::max(p.fullmin, p.fullmax);
    if (std::isnan(a) || std::isnan(b) || a < first || b > last) {
        // Which end was reached decides the words: the high-mass end may have
        // been cut by the first jump to m/z, and only a Reset brings it back.
        const char* text = "Can Not Zoom Any Further - Reached End of Data.";
        if (!left) {
            text = p.xmode == XMODE_MZ ? "Can Not Zoom Any Further - Reached End of Data Try Zoom Full>Reset"
                                       : "Can Not Zoom Any Further - Reached End of Data";
        }
        ui.MessagePopup("Zoom Error", text);
        return -1;
    }
    p.xmin = a;
    p.xmax = b;
    return 0;
}

int ManualZoomRange(AnalysisPanel& p, double low, double high, double axis_lo, double axis_hi,
                    const Settings& settings, Ui& ui) {
    if (low > high) std::swap(low, high);
    if (axis_lo > axis_hi) std::swap(axis_lo, axis_hi);
    low = std::clamp(low, axis_lo, axis_hi);
    high = std::clamp(high, axis_lo, axis_hi);
    if (high - low < 1.0) {
        high = low + 1.0;
        if (high > axis_hi) {
            high = axis_hi;
            low = high - 1.0;
        }
    }
    return PlotMenuCommand(p, PLOT_ZOOM_IN, low, high, settings, ui);
}

CursorReadouts cursor_readouts(double a, double b) {
    if (a > b) std::swap(a, b);
    CursorReadouts r;
    r.range = fmt::format("{:f} - {:f}", a, b);
    r.width = fmt::format("{:f}", b - a);
    const double resolution = (a + b) / 2.0 / (b - a);
    // Both cursors in one place (as after every open) have no resolution.
    r.resolution = std::isfinite(resolution) ? fmt::format("{:.0f}", resolution) : "-";
    return r;
}

namespace {

std::string replace_once(std::string s, const std::string& what, const std::string& with) {
    const auto at = s.find(what);
    if (at != std::string::npos) s.replace(at, what.size(), with);
    return s;
}

double number_at(const std::string& line, std::size_t column) {
    if (column >= line.size()) return 0.0;
    return std::atof(line.c_str() + column);
}

// One scan's peak list: the abundance summed over its rows (all of them, or
// only masses low..high) and its detection time (or the scan index).
void sum_scan(const std::string& scan, std::size_t index, bool selected, double low, double high, float& sum,
              double& time) {
    sum = 0.0f;
    time = static_cast<double>(index);
    // A device or a pipe named in a scan list would be read without end.
    const std::string list = replace_once(scan, ".Z", "_Z.pks");
    if (!regular_file_size(list)) return;
    std::ifstream in(list);
    if (!in) return;
    std::string line;
    if (!std::getline(in, line)) return;
    // The count is a number of the text: "inf", "1e300" or "nan" must not reach
    // the conversion to an integer (undefined beyond its range). The rows
    // themselves bound the loop below.
    const double announced = number_at(line, 11);
    const long count = announced >= 1.0 ? static_cast<long>(std::min(announced, 1.0e15)) : 0L;
    std::getline(in, line);
    std::getline(in, line);
    if (std::getline(in, line)) {
        float t = 0.0f;
        if (std::sscanf(line.c_str(), "Data Detected at (seconds): %f", &t) == 1) time = t;
    }
    std::size_t column = 15;
    if (std::getline(in, line) && line.find(" Center of Mass for the Assigned Window is") != std::string::npos) {
        for (int i = 0; i < 3; ++i) std::getline(in, line);
        column = 33;
    }
    for (long r = 0; r < count && std::getline(in, line); ++r) {
        const double mass = std::atof(line.c_str());
        if (selected && (mass < low || mass > high)) continue;
        sum += static_cast<float>(number_at(line, column));
    }
}

int chromatogram(AnalysisPanel& p, bool selected, double low, double high, Ui& ui) {
    Spectrum& s = p.spectrum;
    if (s.domain != DOMAIN_CHROMATOGRAM || s.lcmsfiles.empty()) {
        ui.MessagePopup("Warning", selected ? "SIC not allowed for current data type"
                                            : "TIC not allowed for current data type");
        return -1;
    }
    const std::size_t n = s.lcmsfiles.size();
    s.data.assign(n, 0.0f);
    s.xvalues.assign(n, 0.0);
    for (std::size_t i = 0; i < n; ++i) sum_scan(s.lcmsfiles[i], i, selected, low, high, s.data[i], s.xvalues[i]);
    s.datacount = static_cast<std::int32_t>(n);
    p.xmode = XMODE_CHROMATOGRAM;
    return 0;
}

}  // namespace

int Calculate_TIC(AnalysisPanel& p, Ui& ui) { return chromatogram(p, false, 0.0, 0.0, ui); }

int Calculate_SIC(AnalysisPanel& p, double low, double high, Ui& ui) {
    if (low > high) std::swap(low, high);
    return chromatogram(p, true, low, high, ui);
}

// ---------------------------------------------------------------------------
// Viewing habits

namespace {

// The points lo..hi (any order) as a view: widened by 5 % of its width in m/z
// on each side (in points the same margin would be far wider at the
// low-frequency end) and clamped into the full range; false when less than 3
// points remain.
bool padded_into_full(const AnalysisPanel& p, double a, double b, double& lo, double& hi) {
    if (!std::isfinite(a) || !std::isfinite(b)) return false;
    if (a > b) std::swap(a, b);
    const Spectrum& s = p.spectrum;
    double m1 = SPt_tomass(s, a), m2 = SPt_tomass(s, b);
    if (m1 > m2) std::swap(m1, m2);
    if (std::isfinite(m1) && std::isfinite(m2) && m1 > 0.0 && m2 > m1) {
        const double margin = 0.05 * (m2 - m1);
        double pa = SMass_toPt(s, std::max(m1 - margin, 0.5 * m1)), pb = SMass_toPt(s, m2 + margin);
        if (pa > pb) std::swap(pa, pb);
        if (std::isfinite(pa) && std::isfinite(pb) && pa <= a && pb >= b) {
            a = pa;
            b = pb;
        }
    }
    const double full_lo = std::min(p.fullmin, p.fullmax), full_hi = std::max(p.fullmin, p.fullmax);
    const double l = std::clamp(a, full_lo, full_hi), h = std::clamp(b, full_lo, full_hi);
    if (h - l < 2.0) return false;
    lo = l;
    hi = h;
    return true;
}

// First and last point of the full range whose sample stands above the noise
// floor by `fraction` of the distance from the floor to the largest sample.
// The floor is the median of an even subsample (at most 65,536 values), so
// this stays cheap on 32 million points; the largest sample is exact.
bool signal_span(const AnalysisPanel& p, double fraction, long& a, long& b) {
    const Spectrum& s = p.spectrum;
    const long n = static_cast<long>(s.data.size());
    const long first = std::clamp(static_cast<long>(std::min(p.fullmin, p.fullmax)), 0L, n - 1);
    const long last = std::clamp(static_cast<long>(std::max(p.fullmin, p.fullmax)), first, n - 1);
    const long count = last - first + 1;
    if (count < 3) return false;
    const MinMax mm = minmax_kernel(s.data.data() + first, static_cast<std::size_t>(count));
    const long step = std::max(1L, count / 65536);
    std::vector<float> sub;
    sub.reserve(static_cast<std::size_t>(count / step + 1));
    for (long i = first; i <= last; i += step)
        if (!std::isnan(s.data[static_cast<std::size_t>(i)])) sub.push_back(s.data[static_cast<std::size_t>(i)]);
    if (sub.empty()) return false;
    const auto mid = sub.begin() + static_cast<long>(sub.size() / 2);
    std::nth_element(sub.begin(), mid, sub.end());
    const double floor = *mid;
    if (!(mm.max > floor)) return false;
    const double level = floor + fraction * (static_cast<double>(mm.max) - floor);
    a = b = -1;
    for (long i = first; i <= last && a < 0; ++i)
        if (s.data[static_cast<std::size_t>(i)] > level) a = i;
    for (long i = last; i >= first && b < 0; --i)
        if (s.data[static_cast<std::size_t>(i)] > level) b = i;
    return a >= 0 && b > a;
}

}  // namespace

bool signal_view_points(const AnalysisPanel& p, double& lo, double& hi) {
    const Spectrum& s = p.spectrum;
    const long n = static_cast<long>(s.data.size());
    if (n < 3 || s.datacount < 3) return false;
    // The excited range: what the experiment put ions into.
    bool excited = false;
    double a = 0.0, b = 0.0;
    if (s.origlowfreq > 0.0 && s.orighighfreq > 0.0 && s.hzppt > 0.0) {
        const double f[2] = {s.origlowfreq, s.orighighfreq};
        double pt[2] = {0.0, 0.0};
        Freq_topt(s, f, pt);
        a = std::max(std::min(pt[0], pt[1]), 0.0);
        b = std::min(std::max(pt[0], pt[1]), static_cast<double>(n - 1));
        // Only when it overlaps the data; a range wholly outside says nothing.
        excited = std::isfinite(a) && std::isfinite(b) && b - a >= 2.0;
    }
    long sa = -1, sb = -1;
    if (excited) {
        // Strong peaks outside it are still shown: ions can lie beyond the
        // sweep (harmonics, a second population, a header that is wrong).
        if (signal_span(p, 0.05, sa, sb)) {
            a = std::min(a, static_cast<double>(sa));
            b = std::max(b, static_cast<double>(sb));
        }
        if (padded_into_full(p, a, b, lo, hi)) return true;
    }
    // Else the samples that stand clearly above the noise floor.
    if (!signal_span(p, 0.02, sa, sb)) return false;
    return padded_into_full(p, static_cast<double>(sa), static_cast<double>(sb), lo, hi);
}

bool first_signal_view(AnalysisPanel& p) {
    double lo = 0.0, hi = 0.0;
    if (!signal_view_points(p, lo, hi)) return false;
    if (lo == p.xmin && hi == p.xmax) return false;
    p.prevmin = p.xmin;
    p.prevmax = p.xmax;
    p.xmin = lo;
    p.xmax = hi;
    p.moveoffset = 0.0;
    Set_Local_MinMax(p);
    return true;
}

bool wheel_zoom_points(const AnalysisPanel& p, double axis_lo, double axis_hi, double at, double factor,
                       double& xmin, double& xmax) {
    if (!(factor > 0.0) || !std::isfinite(factor) || !std::isfinite(at) || !(axis_hi > axis_lo)) return false;
    at = std::clamp(at, axis_lo, axis_hi);
    const double lo = at - (at - axis_lo) * factor, hi = at + (axis_hi - at) * factor;
    double a = x_to_point(p, lo), b = x_to_point(p, hi);
    if (!std::isfinite(a) || !std::isfinite(b)) return false;
    if (a > b) std::swap(a, b);
    const double full_lo = std::min(p.fullmin, p.fullmax), full_hi = std::max(p.fullmin, p.fullmax);
    a = std::clamp(a, full_lo, full_hi);
    b = std::clamp(b, full_lo, full_hi);
    if (b - a < 2.0) {
        // Deep in: keep 2 points around the one under the mouse.
        const double c = std::clamp(x_to_point(p, at), full_lo, full_hi);
        a = std::max(full_lo, c - 1.0);
        b = std::min(full_hi, a + 2.0);
        a = std::max(full_lo, b - 2.0);
    }
    const double now_lo = std::min(p.xmin, p.xmax), now_hi = std::max(p.xmin, p.xmax);
    if (std::fabs(a - now_lo) < 0.5 && std::fabs(b - now_hi) < 0.5) return false;
    xmin = a;
    xmax = b;
    return true;
}

void ZoomHistory::record(double xmin, double xmax) {
    const Range r{xmin, xmax};
    if (!ranges_.empty() && ranges_[at_] == r) return;
    if (!ranges_.empty()) ranges_.resize(at_ + 1);
    ranges_.push_back(r);
    if (ranges_.size() > limit_) ranges_.erase(ranges_.begin(), ranges_.begin() + static_cast<long>(ranges_.size() - limit_));
    at_ = ranges_.size() - 1;
}

bool ZoomHistory::back(Range& out) {
    if (!can_back()) return false;
    out = ranges_[--at_];
    return true;
}

bool ZoomHistory::forward(Range& out) {
    if (!can_forward()) return false;
    out = ranges_[++at_];
    return true;
}

void ZoomHistory::clear() {
    ranges_.clear();
    at_ = 0;
}

std::vector<std::size_t> choose_peak_labels(const std::vector<LabelBox>& boxes, double area_w, double area_h,
                                            std::size_t limit, double gap) {
    std::vector<std::size_t> order;
    order.reserve(boxes.size());
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        const LabelBox& b = boxes[i];
        if (!(b.width >= 0.0 && b.height >= 0.0) || !std::isfinite(b.left) || !std::isfinite(b.top)) continue;
        if (b.left < 0.0 || b.top < 0.0 || b.left + b.width > area_w || b.top + b.height > area_h) continue;
        order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        // A NaN weight would break the ordering: it counts as the lowest.
        auto weight = [&](std::size_t i) {
            return std::isnan(boxes[i].weight) ? -std::numeric_limits<double>::infinity() : boxes[i].weight;
        };
        const double wa = weight(a), wb = weight(b);
        if (wa != wb) return wa > wb;
        return boxes[a].left < boxes[b].left;
    });
    std::vector<std::size_t> taken;
    for (std::size_t i : order) {
        if (taken.size() >= limit) break;
        const LabelBox& b = boxes[i];
        const bool clear = std::none_of(taken.begin(), taken.end(), [&](std::size_t j) {
            const LabelBox& o = boxes[j];
            return b.left < o.left + o.width + gap && o.left < b.left + b.width + gap &&
                   b.top < o.top + o.height + gap && o.top < b.top + b.height + gap;
        });
        if (clear) taken.push_back(i);
    }
    std::sort(taken.begin(), taken.end());
    return taken;
}

}  // namespace vx
