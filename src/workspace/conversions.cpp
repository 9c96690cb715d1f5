// Axis conversions between data point, frequency and m/z.
//
// Each public function is a thin shell around a few shared steps (point to
// frequency by detection mode, the calibration law in either direction), but
// the shells are not interchangeable: they differ in the threshold on the third
// term for Bruker data, in what an unknown mode or type gives, and in their
// guards. Callers rely on exactly those differences (display, peak lists, noise
// and sequence code), so they are spelled out per function below and must not
// be unified.
#include "workspace/conversions.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <fmt/printf.h>

#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

namespace vx {
namespace {

// Thresholds on |Cterm| above which Bruker data use the quadratic form. They
// were tuned separately for each entry point and are kept apart on purpose.
constexpr double BRUKER_CT_PT_TOMASS = 1e-7;
constexpr double BRUKER_CT_MASS_TOPT = 1e-6;
constexpr double BRUKER_CT_SMASS_TOPT = 1e-6;
constexpr double BRUKER_CT_ONE_MASS_TOPT = 1e-5;
constexpr double BRUKER_CT_ONE_PT_TOMASS = 1e-6;
constexpr double BRUKER_CT_FREQ_TOMASS = 0.001;

// Walking edges: a point this close to a region edge takes the edge's exact
// calibrant m/z. The two tolerances differ and existing tables were made with them.
constexpr double WALK_START_TOLERANCE = 1e-7;
constexpr double WALK_END_TOLERANCE = 1e-6;

// Highest mass a display starts from.
constexpr double HIGH_MASS_LIMIT = 25000.0;

double hz_per_point(const Spectrum& s) { return s.dbandwidth / s.datacount; }

bool is_bruker_law(const Spectrum& s, int caltype) {
    return s.filetype == FILETYPE_BRUKER && (caltype == CALTYPE_TWO_TERM || caltype == CALTYPE_WALKING);
}

// Frequency of a fractional point; false (f untouched) for an unknown mode.
bool point_to_freq(const Spectrum& s, double p, double& f) {
    const double hz = hz_per_point(s);
    switch (s.detectmode) {
        case DETECT_DIRECT: f = p * hz; return true;
        case DETECT_POSITIVE_HETERODYNE: f = p * hz + s.reffreq; return true;
        case DETECT_QUADRATURE: f = p * hz - s.dbandwidth / 2.0 + s.reffreq; return true;
        case DETECT_NEGATIVE_HETERODYNE: f = s.reffreq - p * hz; return true;
        default: return false;
    }
}

// Fractional point of a frequency; false (p untouched) for an unknown mode.
bool freq_to_point(const Spectrum& s, double f, double& p) {
    const double hz = hz_per_point(s);
    switch (s.detectmode) {
        case DETECT_DIRECT: p = f / hz; return true;
        case DETECT_POSITIVE_HETERODYNE: p = (f - s.reffreq) / hz; return true;
        case DETECT_QUADRATURE: p = (f + s.dbandwidth / 2.0 - s.reffreq) / hz; return true;
        case DETECT_NEGATIVE_HETERODYNE: p = (s.reffreq - f) / hz; return true;
        default: return false;
    }
}

// Bruker quadratic m from f: root chosen by rootselect.
double bruker_quadratic_mass(const Spectrum& s, double f) {
    const double A = s.Aterm, B = s.Bterm, Ct = s.Cterm;
    const double D = std::sqrt(A * A - 4.0 * Ct * (B - f));
    return s.rootselect != 0 ? (D - A) / (2.0 * (B - f)) : (-A - D) / (2.0 * (B - f));
}

// m/z of a frequency by the law of `caltype` (walking types count as the
// two-term law here; the caller decides about the table). False (m untouched)
// for a type without a law.
bool freq_to_mass(const Spectrum& s, int caltype, double f, double bruker_threshold, double& m) {
    const double A = s.Aterm, B = s.Bterm, Ct = s.Cterm;
    const double V = std::fabs(s.Trapvoltage);
    if (is_bruker_law(s, caltype)) {
        m = std::fabs(Ct) >= bruker_threshold ? bruker_quadratic_mass(s, f) : A / (f + B);
        return true;
    }
    switch (caltype) {
        case CALTYPE_TWO_TERM:
        case CALTYPE_WALKING: {
            m = A / f + B * V / (f * f);
            if (m < 0.0) m = MASS_OUT_OF_LAW;
            return true;
        }
        case CALTYPE_INVERTED: {
            // A is subtracted outside the division by 2 (B - f): this is how
            // calibrations of this type were always evaluated, and stored
            // coefficients were fitted against it.
            const double D = std::sqrt(A * A - 4.0 * Ct * (B - f));
            const double t = D / (2.0 * (B - f));
            m = s.rootselect != 0 ? t - A : -A - t;
            return true;
        }
        case CALTYPE_THREE_TERM: {
            m = Ct * V / (f * f) + B / f + A;
            if (m < 0.0) m = MASS_OUT_OF_LAW;
            return true;
        }
        default: return false;
    }
}

// Frequency of an m/z by the law of `caltype` (walking: the spectrum's own A
// and B as the two-term law). False (f untouched) for a type without a law.
bool mass_to_freq(const Spectrum& s, int caltype, double m, double bruker_threshold, double& f) {
    const double A = s.Aterm, B = s.Bterm, Ct = s.Cterm;
    const double V = std::fabs(s.Trapvoltage);
    if (is_bruker_law(s, caltype)) {
        // The sign of B differs between the two branches; both are in use.
        f = std::fabs(Ct) >= bruker_threshold ? A / m + Ct / (m * m) + B : A / m - B;
        return true;
    }
    switch (caltype) {
        case CALTYPE_TWO_TERM:
        case CALTYPE_WALKING:
            f = (std::sqrt(std::max(0.0, A * A + 4.0 * m * V * B)) + A) / (2.0 * m);
            return true;
        case CALTYPE_INVERTED: f = Ct / (m * m) + A / m + B; return true;
        case CALTYPE_THREE_TERM:
            f = (std::sqrt(std::max(0.0, B * B + 4.0 * V * Ct * (m - A))) + B) / (2.0 * (m - A));
            return true;
        default: return false;
    }
}

// Point to mass without the walking table: the detection mode, then the law.
// An unknown mode leaves the point as the frequency; an unknown type leaves
// the frequency as the result.
double point_to_mass_plain(const Spectrum& s, double p, double bruker_threshold) {
    double v = p;
    point_to_freq(s, v, v);
    int caltype = s.caltype;
    if (caltype == CALTYPE_WALKING) caltype = CALTYPE_TWO_TERM;
    freq_to_mass(s, caltype, v, bruker_threshold, v);
    return v;
}

// Mass to point: the law reversed (an unknown type leaves the mass), then the
// detection mode (an unknown mode leaves the frequency).
double mass_to_point(const Spectrum& s, double m, double bruker_threshold) {
    double v = m;
    mass_to_freq(s, s.caltype, v, bruker_threshold, v);
    freq_to_point(s, v, v);
    return v;
}

std::size_t common_size(std::size_t a, std::size_t b) { return std::min(a, b); }

// m = ((B V) / f + A) / f, the two-term law of one walking region.
double region_law(const WalkingRegion& r, double V, double f) { return (r.B * V / f + r.A) / f; }

void walking_impl(const Spectrum& s, std::span<const double> points, std::span<double> masses,
                  double fallback_threshold, Ui* console) {
    const std::size_t n = common_size(points.size(), masses.size());
    const std::size_t R =
        s.walkingregions > 0 ? std::min<std::size_t>(static_cast<std::size_t>(s.walkingregions), s.walking.size()) : 0;
    if (R == 0) {
        for (std::size_t i = 0; i < n; ++i) masses[i] = point_to_mass_plain(s, points[i], fallback_threshold);
        return;
    }
    // The table was built on direct spectra: the detection mode is not applied.
    const double hz = hz_per_point(s);
    const double V = std::fabs(s.Trapvoltage);
    const auto& w = s.walking;

    if (s.walkingterms == 2) {
        // These tests take startfreq below endfreq within a row, the reverse of
        // how tables are built; files and peak lists depend on the results as
        // they stand, so the order is kept.
        const WalkingRegion& first = w[0];
        const WalkingRegion& last = w[R - 1];
        for (std::size_t i = 0; i < n; ++i) {
            const double f = points[i] * hz;
            if (f < first.endfreq) {
                masses[i] = region_law(first, V, f);
                continue;
            }
            // Beyond the last row its law applies, and the walk below then
            // continues on that value rather than stopping.
            double x = f;
            if (f > last.startfreq) x = region_law(last, V, f);
            for (std::size_t r = 0; r < R; ++r) {
                const WalkingRegion& row = w[r];
                if (std::fabs(row.startfreq - x) < WALK_START_TOLERANCE) {
                    x = row.startmz;
                    break;
                }
                if (std::fabs(row.endfreq - x) < WALK_END_TOLERANCE) {
                    x = row.endmz;
                    break;
                }
                if (row.startfreq < x && x < row.endfreq) {
                    x = region_law(row, V, x);
                    break;
                }
            }
            masses[i] = x;
        }
        return;
    }

    if (console) {
        const long long shown = std::clamp<long long>(static_cast<long long>(s.walkingregions) + 2 -
                                                          static_cast<long long>(s.walkingterms),
                                                      0, static_cast<long long>(w.size()));
        for (long long r = 0; r < shown; ++r) {
            const WalkingRegion& row = w[static_cast<std::size_t>(r)];
            const int k = static_cast<int>(r);
            console->Console(fmt::sprintf("A%i = %f, B%i = %f, startfreq[%i] = %f, endfreq[%i] = %f\n", k, row.A, k,
                                          row.B, k, row.startfreq, k, row.endfreq));
        }
    }
    for (std::size_t i = 0; i < n; ++i) {
        const double f = points[i] * hz;
        double x = f;  // a frequency in no row stays a frequency
        for (std::size_t r = 0; r < R; ++r) {
            if (w[r].endfreq <= f && f <= w[r].startfreq) {
                x = region_law(w[r], V, f);
                break;
            }
        }
        masses[i] = x;
    }
}

}  // namespace

void Pt_tofreq(const Spectrum& s, std::span<const double> points, std::span<double> freqs) {
    const std::size_t n = common_size(points.size(), freqs.size());
    for (std::size_t i = 0; i < n; ++i) point_to_freq(s, points[i], freqs[i]);
}

void Freq_topt(const Spectrum& s, std::span<const double> freqs, std::span<double> points) {
    const std::size_t n = common_size(freqs.size(), points.size());
    for (std::size_t i = 0; i < n; ++i) freq_to_point(s, freqs[i], points[i]);
}

void Pt_tomass(const Spectrum& s, std::span<const double> points, std::span<double> masses, Ui* console) {
    if (s.caltype == CALTYPE_WALKING) {
        walking_impl(s, points, masses, BRUKER_CT_PT_TOMASS, console);
        return;
    }
    const std::size_t n = common_size(points.size(), masses.size());
    for (std::size_t i = 0; i < n; ++i) masses[i] = point_to_mass_plain(s, points[i], BRUKER_CT_PT_TOMASS);
}

void Freq_tomass(const Spectrum& s, std::span<const double> freqs, std::span<double> masses) {
    const std::size_t n = common_size(freqs.size(), masses.size());
    const int caltype = s.caltype == CALTYPE_WALKING ? CALTYPE_TWO_TERM : s.caltype;
    for (std::size_t i = 0; i < n; ++i) {
        double v = freqs[i];
        freq_to_mass(s, caltype, v, BRUKER_CT_FREQ_TOMASS, v);
        masses[i] = v;
    }
}

void Mass_topt(const Spectrum& s, std::span<const double> masses, std::span<double> points) {
    const std::size_t n = common_size(masses.size(), points.size());
    for (std::size_t i = 0; i < n; ++i) points[i] = mass_to_point(s, masses[i], BRUKER_CT_MASS_TOPT);
}

void Pt_tomass_walking(const Spectrum& s, std::span<const double> points, std::span<double> masses, Ui* console) {
    walking_impl(s, points, masses, BRUKER_CT_PT_TOMASS, console);
}

double SPt_tofreq(const Spectrum& s, long point) {
    if (s.detectmode != DETECT_DIRECT) return -1.0;
    return static_cast<double>(point) * hz_per_point(s);
}

double SPt_tomass(const Spectrum& s, double point) {
    double f = 1.0;  // the frequency of an unknown detection mode
    point_to_freq(s, point, f);

    const double A = s.Aterm, B = s.Bterm, Ct = s.Cterm;
    const double V = std::fabs(s.Trapvoltage);
    double m = 1.0;  // the mass of an unknown calibration type
    switch (s.caltype) {
        case CALTYPE_TWO_TERM:
        case CALTYPE_WALKING:
        case CALTYPE_WALKING_SECOND:
            if (is_bruker_law(s, s.caltype)) {
                // This single form switches on the sign of the third term, not on
                // its size like the others.
                if (Ct >= 0.0) {
                    m = A / (f + B);
                } else {
                    m = bruker_quadratic_mass(s, f);
                    if (s.rootselect != 0 && m < 1.0) m = 1.0;
                }
            } else {
                m = A / f + B * V / (f * f);
            }
            break;
        case CALTYPE_INVERTED:
        case CALTYPE_THREE_TERM: freq_to_mass(s, s.caltype, f, BRUKER_CT_ONE_PT_TOMASS, m); break;
        default: break;
    }
    if (m < 0.0) m = MASS_OUT_OF_LAW;
    return m;
}

double SMass_toPt(const Spectrum& s, double mass) {
    if (std::isnan(mass)) return 1.0;
    const double A = s.Aterm, B = s.Bterm, Ct = s.Cterm;
    const double V = s.Trapvoltage == 0.0 ? 1.0 : std::fabs(s.Trapvoltage);
    double f = 1.0;  // the frequency of an unknown calibration type
    if (is_bruker_law(s, s.caltype)) {
        mass_to_freq(s, s.caltype, mass, BRUKER_CT_SMASS_TOPT, f);
    } else if (s.caltype == CALTYPE_TWO_TERM || s.caltype == CALTYPE_WALKING) {
        // The rationalised root: same value as the array form, other rounding.
        f = 2.0 * B * V / (std::sqrt(std::max(0.0, A * A + 4.0 * B * V * mass)) - A);
    } else if (s.caltype == CALTYPE_THREE_TERM) {
        f = 2.0 * Ct * V / (std::sqrt(std::max(0.0, B * B + 4.0 * Ct * V * (mass - A))) - B);
    }
    double p = 0.0;  // the point of an unknown detection mode
    freq_to_point(s, f, p);
    if (std::isnan(p) || p < 0.0) p = 0.0;
    return p;
}

double One_pt_tomass(const Spectrum& s, double point) {
    double m = point;
    if (s.caltype == CALTYPE_WALKING) {
        walking_impl(s, std::span<const double>(&point, 1), std::span<double>(&m, 1), BRUKER_CT_ONE_PT_TOMASS,
                     nullptr);
        return m;
    }
    return point_to_mass_plain(s, point, BRUKER_CT_ONE_PT_TOMASS);
}

double One_mass_topt(const Spectrum& s, double mass) {
    if (s.caltype != CALTYPE_TWO_TERM && s.caltype != CALTYPE_THREE_TERM && s.caltype != CALTYPE_WALKING) return 0.0;
    return mass_to_point(s, mass, BRUKER_CT_ONE_MASS_TOPT);
}

double Time_topt(const AnalysisPanel& panel, double seconds) {
    return std::round(std::ceil(2.0 * seconds * panel.spectrum.dbandwidth));
}

double High_Mass(const Spectrum& s) {
    // Point 0 of direct data is frequency 0, where the law divides by zero.
    const double p = s.detectmode == DETECT_DIRECT ? 1.0 : 0.0;
    double m = 0.0;
    Pt_tomass(s, std::span<const double>(&p, 1), std::span<double>(&m, 1));
    return m > HIGH_MASS_LIMIT ? HIGH_MASS_LIMIT : m;
}

double Low_Mass(const Spectrum& s) {
    const double p = static_cast<double>(s.datacount);
    double m = 0.0;
    Pt_tomass(s, std::span<const double>(&p, 1), std::span<double>(&m, 1));
    return m;
}

std::pair<float, float> Min_max(double x1, double x2, const Spectrum& s) {
    double pos[2] = {x1, x2};
    if (s.domain == DOMAIN_MASS) Mass_topt(s, pos, pos);
    if (s.data.empty()) return {0.0f, 0.0f};
    // Truncated to whole points and kept inside the data; a position that is
    // not a number counts as the first point.
    const double last = static_cast<double>(s.data.size() - 1);
    auto to_index = [last](double x) -> std::size_t {
        if (!(x >= 0.0)) return 0;
        if (x >= last) return static_cast<std::size_t>(last);
        return static_cast<std::size_t>(x);
    };
    std::size_t lo = to_index(pos[0]), hi = to_index(pos[1]);
    if (lo > hi) std::swap(lo, hi);
    const auto [mn, mx] = std::minmax_element(s.data.begin() + static_cast<std::ptrdiff_t>(lo),
                                              s.data.begin() + static_cast<std::ptrdiff_t>(hi) + 1);
    return {*mx, *mn};
}

long GetIndexFromMassXcal(double mass, const Spectrum& s) {
    // Stops at the end of the array when no value lies above the mass.
    std::size_t i = 0;
    while (i < s.xvalues.size() && s.xvalues[i] <= mass) ++i;
    return static_cast<long>(i) - 1;
}

void Array_root(std::span<float> values) {
    for (float& v : values) v = std::sqrt(v);
}

}  // namespace vx
