#include "phasing/phase_function.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <fmt/format.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/blocked_range.h>

#include "platform/fft.hpp"
#include "platform/memory.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace {
constexpr double PI = std::numbers::pi;
constexpr std::size_t GRAIN = 1 << 14;
}  // namespace

double phase_at(const PhaseModel& m, double f) {
    const double x = f / m.harmonic;
    const double q = x - m.reference;
    return m.sign * (m.quad_scale * m.Aterm * q * q - m.Bterm * x) + m.extra_linear * f + m.Cterm;
}

void build_phase_curve(const PhaseModel& m, double hzppt, std::size_t N, std::size_t first, std::size_t last,
                       std::vector<double>& out) {
    out.assign(N, 0.0);
    last = std::min(last, N);
    if (first >= last) return;
    PhaseModel noc = m;
    noc.Cterm = 0.0;
    double* o = out.data();
    tbb::parallel_for(tbb::blocked_range<std::size_t>(first, last, GRAIN), [&](const auto& r) {
        for (std::size_t k = r.begin(); k != r.end(); ++k) o[k] = phase_at(noc, static_cast<double>(k) * hzppt);
    });
}

double signed_sweep_rate(double rate, double lowfreq, double highfreq, bool single_precision_compare) {
    const double r = std::fabs(rate);
    if (single_precision_compare)
        return static_cast<float>(highfreq) < static_cast<float>(lowfreq) ? -r : r;
    return highfreq <= lowfreq ? -r : r;
}

PhaseModel phase_model_for(PhaseEntry entry, const PhaseInputs& in) {
    PhaseModel m;
    const double bw = in.bandwidth;
    const double u = in.special ? in.relativex : 0.0;
    const double e = (in.extra_point && bw > 0.0) ? 1.0 / bw : 0.0;
    const bool intel = entry == PhaseEntry::IntelPhaseCreate;
    const double R = signed_sweep_rate(in.sweeprate, in.lowfreq, in.highfreq, intel);
    m.Aterm = R != 0.0 ? PI / R / 1000000.0 : 0.0;
    m.harmonic = in.harmonic > 0.0 ? in.harmonic : 1.0;
    double bracket = 0.0;
    switch (entry) {
        case PhaseEntry::PhasingStandard:
            // The extra point and "Special" are divided by the bandwidth once
            // more on this path, so the extra point weighs 1 / BW^2 seconds.
            // Kept: stored terms of old files were found with it.
            m.reference = in.highfreq;
            bracket = in.delay - (bw > 0.0 ? (u + e) / bw : 0.0);
            break;
        case PhaseEntry::PhasingStored:
            m.reference = in.highfreq;
            bracket = in.delay - u - e;
            break;
        case PhaseEntry::PhasingFeng:
            m.reference = in.lowfreq;
            bracket = in.delay + in.excitestart - (u + e);
            break;
        case PhaseEntry::PhasingAnalytical:
            // The delay correction enters with a plus sign here; kept as found.
            m.reference = in.highfreq;
            bracket = in.delay + u + e;
            break;
        case PhaseEntry::NewPhasing2:
            m.reference = in.lowfreq;
            bracket = in.delay + in.excitestart + (in.use_d ? in.d_term : u);
            m.quad_scale = m.harmonic;
            break;
        case PhaseEntry::StandardPhaseSingle:
            // Final-frequency reference with the excite time in the delay: the
            // one-button phase was always built so.
            m.reference = in.highfreq;
            bracket = in.delay + in.excitestart - e;
            m.extra_linear = in.linear_d;
            break;
        case PhaseEntry::SimplePhase:
            m.reference = in.highfreq;
            bracket = in.delay;
            m.sign = -1.0;
            break;
        case PhaseEntry::SimplePhaseFeng:
            m.reference = in.lowfreq;
            bracket = in.delay + in.excitestart;
            m.sign = -1.0;
            break;
        case PhaseEntry::SimplePhase2Threaded:
            m.reference = in.lowfreq;
            bracket = in.delay + in.excitestart - (bw > 0.0 ? 1.0 / bw : 0.0);
            break;
        case PhaseEntry::IntelPhaseCreate:
            // The start frequency is rounded through single precision here.
            m.reference = static_cast<double>(static_cast<float>(in.lowfreq));
            bracket = in.delay + in.excitestart - (bw > 0.0 ? 1.0 / bw : 0.0);
            if (in.use_record_delayf) bracket -= in.record_delayf;
            if (in.use_d) bracket -= in.d_term;
            break;
        case PhaseEntry::PhaseManual: {
            double d = 0.0;
            if (std::fabs(in.relativex - 1.0) < 0.1) d = e;
            m.reference = in.highfreq;
            bracket = in.delay - d;
            break;
        }
    }
    m.bracket = bracket;
    m.Bterm = 2.0 * PI * bracket;
    return m;
}

void phase_band(double lowfreq, double highfreq, double harmonic, double hzppt, long long limit, long long& start,
                long long& end) {
    start = end = 0;
    if (!(hzppt > 0.0) || limit <= 0) return;
    const double lo = std::min(lowfreq, highfreq) * harmonic / hzppt;
    const double hi = std::max(lowfreq, highfreq) * harmonic / hzppt;
    if (!std::isfinite(lo) || !std::isfinite(hi)) return;
    start = static_cast<long long>(std::clamp(std::floor(lo), 0.0, static_cast<double>(limit)));
    end = static_cast<long long>(std::clamp(std::ceil(hi), 0.0, static_cast<double>(limit)));
}

int Fourier_Transform_Phased(Spectrum& s, int no_scale, Ui& ui) {
    const long long n = s.datacount;
    if (n < 4 || n % 2 != 0 || static_cast<std::size_t>(n) != s.data.size() || n > (1LL << 30)) {
        ui.MessagePopup("Transform Error",
                        fmt::format("Cannot transform {} points (the record holds {} samples).", n, s.data.size()));
        return -1;
    }
    const std::size_t N = static_cast<std::size_t>(n / 2);
    if (s.data.capacity() < static_cast<std::size_t>(n) + 2) {
        std::vector<float> room = new_sample_array(0, static_cast<std::size_t>(n) + 2);
        room.assign(s.data.begin(), s.data.end());
        s.data = std::move(room);
    }
    s.data.resize(static_cast<std::size_t>(n) + 2);
    if (fft_forward_real_inplace(s.data.data(), static_cast<int>(n)) < 0) {
        s.data.resize(static_cast<std::size_t>(n));
        ui.MessagePopup("Transform Error", fmt::format("No transform of {} points could be planned.", n));
        return -1;
    }
    const float scale = no_scale ? 1.0f : static_cast<float>(500000.0 / static_cast<double>(N));
    s.realdata.resize(N);
    s.imagdata.resize(N);
    const float* z = s.data.data();
    float* re = s.realdata.data();
    float* im = s.imagdata.data();
    tbb::parallel_for(tbb::blocked_range<std::size_t>(1, N, GRAIN), [&](const auto& r) {
        for (std::size_t k = r.begin(); k != r.end(); ++k) {
            re[k] = z[2 * k] * scale;
            im[k] = z[2 * k + 1] * scale;
        }
    });
    // Packed as the vendor transform leaves it: the zero-frequency value and the
    // Nyquist value share point 0.
    re[0] = z[0] * scale;
    im[0] = z[2 * N] * scale;
    // data holds the real part until a rotation replaces it.
    s.data.resize(N);
    std::copy(s.realdata.begin(), s.realdata.end(), s.data.begin());
    release_unused_capacity(s.data);
    s.datacount = static_cast<std::int32_t>(N);
    s.storedcount = 0;
    s.hzppt = s.dbandwidth / static_cast<double>(N);
    s.domain = DOMAIN_FREQUENCY;
    return 0;
}

int InvFourier_Transform_Phased(Spectrum& s, Ui& ui) {
    const std::size_t N = s.realdata.size();
    if (N < 2 || s.imagdata.size() != N || N > (1u << 29)) {
        ui.MessagePopup("Transform Error", "There is no complex spectrum to transform back.");
        return -1;
    }
    ui.Console(fmt::format("Performing Intel Real InvFFT with data count = {}\n", 2 * N));
    std::vector<float> buf = new_sample_array(2 * N + 2, 2 * N + 2);
    for (std::size_t k = 1; k < N; ++k) {
        buf[2 * k] = s.realdata[k];
        buf[2 * k + 1] = s.imagdata[k];
    }
    buf[0] = s.realdata[0];
    buf[2 * N] = s.imagdata[0];
    if (fft_inverse_real_inplace(buf.data(), static_cast<int>(2 * N)) < 0) {
        ui.MessagePopup("Transform Error", fmt::format("No transform of {} points could be planned.", 2 * N));
        return -1;
    }
    buf.resize(2 * N);
    s.data = std::move(buf);
    s.datacount = static_cast<std::int32_t>(2 * N);
    s.storedcount = 0;
    s.domain = DOMAIN_TIME;
    ui.Console("Finished ReFFT\n");
    return 0;
}

void rotate_spectrum(const std::vector<float>& re, const std::vector<float>& im, const std::vector<double>& curve,
                     double c, std::vector<float>& out, std::vector<float>* dispersion) {
    const std::size_t N = std::min({re.size(), im.size(), curve.size()});
    out.resize(N);
    if (dispersion) dispersion->resize(N);
    float* o = out.data();
    float* di = dispersion ? dispersion->data() : nullptr;
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, N, GRAIN), [&](const auto& r) {
        for (std::size_t k = r.begin(); k != r.end(); ++k) {
            const double p = curve[k] + c;
            const double cs = std::cos(p), sn = std::sin(p);
            const double a = re[k], b = im[k];
            o[k] = static_cast<float>(a * cs - b * sn);
            if (di) di[k] = static_cast<float>(b * cs + a * sn);
        }
    });
}

void rotate_turned(const std::vector<float>& P, const std::vector<float>& Q, double c, std::vector<float>& out,
                   std::vector<float>* dispersion) {
    const std::size_t N = std::min(P.size(), Q.size());
    out.resize(N);
    if (dispersion) dispersion->resize(N);
    const double cs = std::cos(c), sn = std::sin(c);
    float* o = out.data();
    float* di = dispersion ? dispersion->data() : nullptr;
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, N, GRAIN), [&](const auto& r) {
        for (std::size_t k = r.begin(); k != r.end(); ++k) {
            const double p = P[k], q = Q[k];
            o[k] = static_cast<float>(p * cs - q * sn);
            if (di) di[k] = static_cast<float>(p * sn + q * cs);
        }
    });
}

double phase_threshold(const std::vector<float>& re, const std::vector<float>& im, long long start, long long end) {
    const long long n = static_cast<long long>(std::min(re.size(), im.size()));
    start = std::max(0LL, start);
    end = std::min(end, n - 1);
    if (end < start) return 0.0;
    const double best = tbb::parallel_reduce(
        tbb::blocked_range<long long>(start, end + 1, GRAIN), 0.0,
        [&](const tbb::blocked_range<long long>& r, double m) {
            for (long long k = r.begin(); k != r.end(); ++k)
                m = std::max(m, static_cast<double>(re[k]) * re[k] + static_cast<double>(im[k]) * im[k]);
            return m;
        },
        [](double a, double b) { return std::max(a, b); });
    return 0.05 * std::sqrt(best);
}

void turn_by_model(const std::vector<float>& re, const std::vector<float>& im, const PhaseModel& m, double hzppt,
                   std::vector<float>& P, std::vector<float>& Q) {
    const std::size_t N = std::min(re.size(), im.size());
    P.resize(N);
    Q.resize(N);
    // phi(k) is a quadratic in k: phi(k + 1) - phi(k) = d1(k), and d1 grows by
    // the constant second difference. Each block starts from an exact sine and
    // cosine and advances by complex multiplication, so the error stays at the
    // rounding of a few thousand products (1e-12 rad) instead of a sine and a
    // cosine per point.
    PhaseModel noc = m;
    noc.Cterm = 0.0;
    const double h = hzppt / m.harmonic;  // x per point
    const double a2 = m.sign * m.quad_scale * m.Aterm * h * h;  // phi = a2 k^2 + ... in k
    constexpr std::size_t STEP = 4096;
    const std::size_t blocks = (N + STEP - 1) / STEP;
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, blocks, 1), [&](const auto& r) {
        for (std::size_t blk = r.begin(); blk != r.end(); ++blk) {
            const std::size_t lo = blk * STEP, hi = std::min(N, lo + STEP);
            const double k0 = static_cast<double>(lo);
            const double phi0 = phase_at(noc, k0 * hzppt);
            // first difference at k0, from the derivative of each term (no cancellation of large values)
            const double x0 = k0 * h - m.reference;
            const double d1 = m.sign * (m.quad_scale * m.Aterm * (2.0 * x0 * h + h * h) - m.Bterm * h) +
                              m.extra_linear * hzppt;
            double c = std::cos(phi0), s = std::sin(phi0);
            double dc = std::cos(d1), ds = std::sin(d1);
            const double ec = std::cos(2.0 * a2), es = std::sin(2.0 * a2);
            for (std::size_t k = lo; k < hi; ++k) {
                const double a = re[k], b = im[k];
                P[k] = static_cast<float>(a * c - b * s);
                Q[k] = static_cast<float>(a * s + b * c);
                const double nc = c * dc - s * ds, ns = s * dc + c * ds;
                c = nc;
                s = ns;
                const double ndc = dc * ec - ds * es, nds = ds * ec + dc * es;
                dc = ndc;
                ds = nds;
            }
        }
    });
}

void FlipPhasedData(std::vector<float>& a, std::vector<float>* b) {
    for (float& v : a) v = -v;
    if (b)
        for (float& v : *b) v = -v;
}

}  // namespace vx
