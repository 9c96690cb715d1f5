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
#include <type_traits>

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

// The terms of the detection step, read once per call.
struct AxisTerms {
    double hz, ref, bw;
};
AxisTerms axis_terms(const Spectrum& s) { return {hz_per_point(s), s.reffreq, s.dbandwidth}; }

// Frequency of a fractional point and back, for one detection mode.
template <int Mode>
double mode_freq(const AxisTerms& a, double p) {
    if constexpr (Mode == DETECT_DIRECT) return p * a.hz;
    else if constexpr (Mode == DETECT_POSITIVE_HETERODYNE) return p * a.hz + a.ref;
    else if constexpr (Mode == DETECT_QUADRATURE) return p * a.hz - a.bw / 2.0 + a.ref;
    else return a.ref - p * a.hz;
}
template <int Mode>
double mode_point(const AxisTerms& a, double f) {
    if constexpr (Mode == DETECT_DIRECT) return f / a.hz;
    else if constexpr (Mode == DETECT_POSITIVE_HETERODYNE) return (f - a.ref) / a.hz;
    else if constexpr (Mode == DETECT_QUADRATURE) return (f + a.bw / 2.0 - a.ref) / a.hz;
    else return (a.ref - f) / a.hz;
}

// Calls fn with the detection mode as a compile-time constant, so that array
// loops carry no switch; false for an unknown mode (fn not called).
template <class Fn>
bool with_mode(int mode, Fn&& fn) {
    switch (mode) {
        case DETECT_DIRECT: fn(std::integral_constant<int, DETECT_DIRECT>{}); return true;
        case DETECT_POSITIVE_HETERODYNE: fn(std::integral_constant<int, DETECT_POSITIVE_HETERODYNE>{}); return true;
        case DETECT_QUADRATURE: fn(std::integral_constant<int, DETECT_QUADRATURE>{}); return true;
        case DETECT_NEGATIVE_HETERODYNE: fn(std::integral_constant<int, DETECT_NEGATIVE_HETERODYNE>{}); return true;
        default: return false;
    }
}

// Frequency of a fractional point; false (f untouched) for an unknown mode.
bool point_to_freq(const Spectrum& s, double p, double& f) {
    const AxisTerms a = axis_terms(s);
    return with_mode(s.detectmode, [&](auto M) { f = mode_freq<M()>(a, p); });
}

// Fractional point of a frequency; false (p untouched) for an unknown mode.
bool freq_to_point(const Spectrum& s, double f, double& p) {
    const AxisTerms a = axis_terms(s);
    return with_mode(s.detectmode, [&](auto M) { p = mode_point<M()>(a, f); });
}

// The law that links frequency and m/z, chosen once per call.
enum class Law { TwoTerm, Inverted, ThreeTerm, BrukerShort, BrukerQuadratic, Instrument, None };

struct LawTerms {
    double A, B, Ct, V;
    bool positive_root;
};
LawTerms law_terms(const Spectrum& s) {
    return {s.Aterm, s.Bterm, s.Cterm, std::fabs(s.Trapvoltage), s.rootselect != 0};
}

// Law of `caltype` for this spectrum (walking types count as the two-term law;
// the caller decides about the table). Bruker data switch to the quadratic
// form at the caller's own threshold on |Cterm|.
Law select_law(const Spectrum& s, int caltype, double bruker_threshold) {
    // The instrument's own law carries its terms exactly and needs no threshold.
    if (caltype == CALTYPE_INSTRUMENT) return Law::Instrument;
    if (s.filetype == FILETYPE_BRUKER && (caltype == CALTYPE_TWO_TERM || caltype == CALTYPE_WALKING))
        return std::fabs(s.Cterm) >= bruker_threshold ? Law::BrukerQuadratic : Law::BrukerShort;
    switch (caltype) {
        case CALTYPE_TWO_TERM:
        case CALTYPE_WALKING: return Law::TwoTerm;
        case CALTYPE_INVERTED: return Law::Inverted;
        case CALTYPE_THREE_TERM: return Law::ThreeTerm;
        default: return Law::None;
    }
}

template <class Fn>
void with_law(Law law, Fn&& fn) {
    switch (law) {
        case Law::TwoTerm: fn(std::integral_constant<Law, Law::TwoTerm>{}); break;
        case Law::Inverted: fn(std::integral_constant<Law, Law::Inverted>{}); break;
        case Law::ThreeTerm: fn(std::integral_constant<Law, Law::ThreeTerm>{}); break;
        case Law::BrukerShort: fn(std::integral_constant<Law, Law::BrukerShort>{}); break;
        case Law::BrukerQuadratic: fn(std::integral_constant<Law, Law::BrukerQuadratic>{}); break;
        case Law::Instrument: fn(std::integral_constant<Law, Law::Instrument>{}); break;
        case Law::None: fn(std::integral_constant<Law, Law::None>{}); break;
    }
}

// Bruker quadratic m from f: root chosen by rootselect.
double bruker_quadratic_mass(const LawTerms& t, double f) {
    const double D = std::sqrt(t.A * t.A - 4.0 * t.Ct * (t.B - f));
    return t.positive_root ? (D - t.A) / (2.0 * (t.B - f)) : (-t.A - D) / (2.0 * (t.B - f));
}

// m/z of a frequency. Law::None leaves the frequency.
template <Law L>
double law_mass(const LawTerms& t, double f) {
    if constexpr (L == Law::TwoTerm) {
        const double m = t.A / f + t.B * t.V / (f * f);
        return m < 0.0 ? MASS_OUT_OF_LAW : m;
    } else if constexpr (L == Law::Inverted) {
        // A is subtracted outside the division by 2 (B - f): this is how
        // calibrations of this type were always evaluated, and stored
        // coefficients were fitted against it.
        const double D = std::sqrt(t.A * t.A - 4.0 * t.Ct * (t.B - f));
        const double q = D / (2.0 * (t.B - f));
        return t.positive_root ? q - t.A : -t.A - q;
    } else if constexpr (L == Law::ThreeTerm) {
        const double m = t.Ct * t.V / (f * f) + t.B / f + t.A;
        return m < 0.0 ? MASS_OUT_OF_LAW : m;
    } else if constexpr (L == Law::BrukerShort) {
        return t.A / (f + t.B);
    } else if constexpr (L == Law::BrukerQuadratic) {
        return bruker_quadratic_mass(t, f);
    } else if constexpr (L == Law::Instrument) {
        return instrument_mass(t.A, t.B, t.Ct, f);
    } else {
        return f;
    }
}

// Frequency of an m/z. Law::None leaves the mass.
template <Law L>
double law_freq(const LawTerms& t, double m) {
    if constexpr (L == Law::TwoTerm) {
        return (std::sqrt(std::max(0.0, t.A * t.A + 4.0 * m * t.V * t.B)) + t.A) / (2.0 * m);
    } else if constexpr (L == Law::Inverted) {
        return t.Ct / (m * m) + t.A / m + t.B;
    } else if constexpr (L == Law::ThreeTerm) {
        return (std::sqrt(std::max(0.0, t.B * t.B + 4.0 * t.V * t.Ct * (m - t.A))) + t.B) / (2.0 * (m - t.A));
    } else if constexpr (L == Law::BrukerShort) {
        // The sign of B differs from the quadratic branch; both are in use.
        return t.A / m - t.B;
    } else if constexpr (L == Law::BrukerQuadratic) {
        return t.A / m + t.Ct / (m * m) + t.B;
    } else if constexpr (L == Law::Instrument) {
        return instrument_freq(t.A, t.B, t.Ct, m);
    } else {
        return m;
    }
}

// Point to mass without the walking table, over arrays: the detection mode,
// then the law. An unknown mode leaves the point as the frequency; a type
// without a law leaves the frequency as the result. The mode and the law are
// resolved once, outside the loop.
void points_to_masses(const Spectrum& s, std::span<const double> in, std::span<double> out, double bruker_threshold) {
    const std::size_t n = std::min(in.size(), out.size());
    const AxisTerms a = axis_terms(s);
    const LawTerms t = law_terms(s);
    const int caltype = s.caltype == CALTYPE_WALKING ? int{CALTYPE_TWO_TERM} : s.caltype;
    with_law(select_law(s, caltype, bruker_threshold), [&](auto L) {
        const bool known = with_mode(s.detectmode, [&](auto M) {
            for (std::size_t i = 0; i < n; ++i) out[i] = law_mass<L()>(t, mode_freq<M()>(a, in[i]));
        });
        if (!known)
            for (std::size_t i = 0; i < n; ++i) out[i] = law_mass<L()>(t, in[i]);
    });
}

// Mass to point over arrays: the law reversed (a type without a law leaves the
// mass), then the detection mode (an unknown mode leaves the frequency).
void masses_to_points(const Spectrum& s, std::span<const double> in, std::span<double> out, double bruker_threshold) {
    const std::size_t n = std::min(in.size(), out.size());
    const AxisTerms a = axis_terms(s);
    const LawTerms t = law_terms(s);
    with_law(select_law(s, s.caltype, bruker_threshold), [&](auto L) {
        const bool known = with_mode(s.detectmode, [&](auto M) {
            for (std::size_t i = 0; i < n; ++i) out[i] = mode_point<M()>(a, law_freq<L()>(t, in[i]));
        });
        if (!known)
            for (std::size_t i = 0; i < n; ++i) out[i] = law_freq<L()>(t, in[i]);
    });
}

double point_to_mass_plain(const Spectrum& s, double p, double bruker_threshold) {
    double m = p;
    points_to_masses(s, std::span<const double>(&p, 1), std::span<double>(&m, 1), bruker_threshold);
    return m;
}

double mass_to_point(const Spectrum& s, double m, double bruker_threshold) {
    double p = m;
    masses_to_points(s, std::span<const double>(&m, 1), std::span<double>(&p, 1), bruker_threshold);
    return p;
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
        points_to_masses(s, points, masses, fallback_threshold);
        return;
    }
    // The table was built on direct spectra: the detection mode is not applied.
    const double hz = hz_per_point(s);
    const double V = std::fabs(s.Trapvoltage);
    const auto& w = s.walking;

    if (s.walkingterms == 2) {
        // The tests take the rows as ascending in frequency, each from its start
        // to its end frequency, although a built table falls in frequency. Above
        // the last row's start, that row's law replaces the value and the walk
        // then goes on with the result; only below the first row's end does the
        // first row's law end the lookup. Both orders are kept as they always
        // were: stored tables and their masses depend on them.
        const WalkingRegion& first = w[0];
        const WalkingRegion& last = w[R - 1];
        for (std::size_t i = 0; i < n; ++i) {
            const double f = points[i] * hz;
            if (f < first.endfreq) {
                masses[i] = region_law(first, V, f);
                continue;
            }
            double x = f;  // a value that no row takes stays as it is
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

double instrument_mass(double ML1, double ML2, double ML3, double f) {
    if (ML3 == 0.0) {
        const double m = ML1 / (f + ML2);
        return m > 0.0 ? m : MASS_OUT_OF_LAW;
    }
    // ML3 u^2 + ML1 u + (ML2 - f) = 0 with u = 1/m, written for m so that it
    // does not lose digits when ML3 is small against ML1^2 / f.
    const double d = f - ML2;
    const double disc = ML1 * ML1 + 4.0 * ML3 * d;
    if (!(disc >= 0.0) || !(d > 0.0)) return MASS_OUT_OF_LAW;
    const double m = (ML1 + std::sqrt(disc)) / (2.0 * d);
    return m > 0.0 ? m : MASS_OUT_OF_LAW;
}

double instrument_freq(double ML1, double ML2, double ML3, double m) {
    if (ML3 == 0.0) return ML1 / m - ML2;
    return ML1 / m + ML2 + ML3 / (m * m);
}

void Pt_tofreq(const Spectrum& s, std::span<const double> points, std::span<double> freqs) {
    const std::size_t n = common_size(points.size(), freqs.size());
    const AxisTerms a = axis_terms(s);
    with_mode(s.detectmode, [&](auto M) {
        for (std::size_t i = 0; i < n; ++i) freqs[i] = mode_freq<M()>(a, points[i]);
    });
}

void Freq_topt(const Spectrum& s, std::span<const double> freqs, std::span<double> points) {
    const std::size_t n = common_size(freqs.size(), points.size());
    const AxisTerms a = axis_terms(s);
    with_mode(s.detectmode, [&](auto M) {
        for (std::size_t i = 0; i < n; ++i) points[i] = mode_point<M()>(a, freqs[i]);
    });
}

void Pt_tomass(const Spectrum& s, std::span<const double> points, std::span<double> masses, Ui* console) {
    if (s.caltype == CALTYPE_WALKING) {
        walking_impl(s, points, masses, BRUKER_CT_PT_TOMASS, console);
        return;
    }
    points_to_masses(s, points, masses, BRUKER_CT_PT_TOMASS);
}

void Freq_tomass(const Spectrum& s, std::span<const double> freqs, std::span<double> masses) {
    const std::size_t n = common_size(freqs.size(), masses.size());
    const int caltype = s.caltype == CALTYPE_WALKING ? int{CALTYPE_TWO_TERM} : s.caltype;
    const LawTerms t = law_terms(s);
    with_law(select_law(s, caltype, BRUKER_CT_FREQ_TOMASS), [&](auto L) {
        for (std::size_t i = 0; i < n; ++i) masses[i] = law_mass<L()>(t, freqs[i]);
    });
}

void Mass_topt(const Spectrum& s, std::span<const double> masses, std::span<double> points) {
    masses_to_points(s, masses, points, BRUKER_CT_MASS_TOPT);
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

    const LawTerms t = law_terms(s);
    double m = 1.0;  // the mass of an unknown calibration type
    switch (s.caltype) {
        case CALTYPE_TWO_TERM:
        case CALTYPE_WALKING:
        case CALTYPE_WALKING_SECOND:
            if (s.filetype == FILETYPE_BRUKER && s.caltype != CALTYPE_WALKING_SECOND) {
                // This single form switches on the sign of the third term, not on
                // its size like the others.
                if (t.Ct >= 0.0) {
                    m = law_mass<Law::BrukerShort>(t, f);
                } else {
                    m = law_mass<Law::BrukerQuadratic>(t, f);
                    if (t.positive_root && m < 1.0) m = 1.0;
                }
            } else {
                m = t.A / f + t.B * t.V / (f * f);
            }
            break;
        case CALTYPE_INVERTED: m = law_mass<Law::Inverted>(t, f); break;
        case CALTYPE_THREE_TERM: m = law_mass<Law::ThreeTerm>(t, f); break;
        case CALTYPE_INSTRUMENT: m = law_mass<Law::Instrument>(t, f); break;
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
    const Law law = select_law(s, s.caltype, BRUKER_CT_SMASS_TOPT);
    if (law == Law::BrukerShort || law == Law::BrukerQuadratic || law == Law::Instrument) {
        with_law(law, [&](auto L) { f = law_freq<L()>(law_terms(s), mass); });
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
    if (s.caltype != CALTYPE_TWO_TERM && s.caltype != CALTYPE_THREE_TERM && s.caltype != CALTYPE_WALKING &&
        s.caltype != CALTYPE_INSTRUMENT)
        return 0.0;
    return mass_to_point(s, mass, BRUKER_CT_ONE_MASS_TOPT);
}

void One_mass_topt(const Spectrum& s, std::span<const double> masses, std::span<double> points) {
    if (s.caltype != CALTYPE_TWO_TERM && s.caltype != CALTYPE_THREE_TERM && s.caltype != CALTYPE_WALKING &&
        s.caltype != CALTYPE_INSTRUMENT) {
        std::fill(points.begin(), points.begin() + static_cast<long>(std::min(masses.size(), points.size())), 0.0);
        return;
    }
    masses_to_points(s, masses, points, BRUKER_CT_ONE_MASS_TOPT);
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
