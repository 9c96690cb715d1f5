#include "workspace/processing.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>

#include <fmt/format.h>
#include <fmt/printf.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include "formats/tulva_reader.hpp"
#include "phasing/halfapod.hpp"
#include "platform/fft.hpp"
#include "platform/memory.hpp"
#include "platform/ui.hpp"
#include "platform/windows.hpp"
#include "workspace/conversions.hpp"
#include "workspace/display.hpp"

namespace vx {

namespace {

constexpr const char* OPERATOR_ERROR = "Operator Error";
constexpr std::size_t GRAIN = 1 << 16;

// Sum of a float range in double, the same whatever the number of threads.
double sum_of(const float* d, std::size_t n) {
    return tbb::parallel_deterministic_reduce(
        tbb::blocked_range<std::size_t>(0, n, GRAIN), 0.0,
        [d](const tbb::blocked_range<std::size_t>& r, double acc) {
            for (std::size_t i = r.begin(); i != r.end(); ++i) acc += d[i];
            return acc;
        },
        [](double a, double b) { return a + b; });
}

void release(std::vector<float>& v) { std::vector<float>().swap(v); }

// Number of samples a step may touch: the count field, never beyond the array.
std::size_t span_of(const Spectrum& s, long long count) {
    if (count < 0) return 0;
    return std::min<std::size_t>(static_cast<std::size_t>(count), s.data.size());
}

// The plot commands "full view" (and the x mode) on one slot.
// The plot commands that follow a transform: the full view of the new data,
// then the x mode. The m/z and frequency commands go through the plot menu so
// that the domain follows the mode and the first jump to m/z applies.
void show_full_view(Workspace& ws, int slot, int xmode, Ui& ui) {
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    const double prevmin = p.xmin, prevmax = p.xmax;
    Initialize_Display(ws, slot);
    p.prevmin = prevmin;
    p.prevmax = prevmax;
    p.moveoffset = 0.0;
    if (xmode == XMODE_MZ) PlotMenuCommand(p, PLOT_MZ, 0.0, 0.0, ws.settings, ui);
    else if (xmode == XMODE_FREQUENCY) PlotMenuCommand(p, PLOT_FREQUENCY, 0.0, 0.0, ws.settings, ui);
    else p.xmode = xmode;
}

bool has_active_panel(const Workspace& ws) {
    return ws.active_panel >= 0 && ws.active_panel < MAX_PANELS &&
           ws.panels[static_cast<std::size_t>(ws.active_panel)].active != 0;
}

std::string fit_name(std::string name) {
    if (name.size() > FILENAME_WIDTH - 1) name.resize(FILENAME_WIDTH - 1);
    return name;
}

void copy_calibration(const Spectrum& from, Spectrum& to) {
    to.caltype = from.caltype;
    to.Aterm = from.Aterm;
    to.Bterm = from.Bterm;
    to.Cterm = from.Cterm;
    to.calcoeff3 = from.calcoeff3;
    to.calcoeff4 = from.calcoeff4;
    to.Trapvoltage = from.Trapvoltage;
}

}  // namespace

// ---------------------------------------------------------------------------
// Steps

void Truncate(Spectrum& s, int count) {
    long long n = s.datacount;
    for (int i = 0; i < count && n > 0; ++i) n /= 2;
    const std::size_t points = static_cast<std::size_t>(std::max<long long>(n, 0));
    std::vector<float> shorter = new_sample_array(points, points + 2);  // room for the in-place transform
    const std::size_t keep = std::min(shorter.size(), s.data.size());
    std::copy_n(s.data.begin(), keep, shorter.begin());
    release(s.data);
    s.data = std::move(shorter);
    s.datacount = static_cast<std::int32_t>(n);
    s.storedcount = 0;
}

namespace {
// Length after count doublings, or -1 after the message when it is beyond
// anything a transform can take.
long long zerofilled_count(const Spectrum& s, int count, Ui& ui) {
    long long n = std::max(s.datacount, 0);
    for (int i = 0; i < count; ++i) {
        n *= 2;
        if (n > MAX_DATACOUNT) {
            ui.MessagePopup(OPERATOR_ERROR,
                            fmt::format("Zero filling {} points {} times gives more points than a transform can take.",
                                        s.datacount, count));
            return -1;
        }
    }
    return n;
}
}  // namespace

int Zerofill(Spectrum& s, int count, Ui& ui) {
    const long long n = zerofilled_count(s, count, ui);
    if (n < 0) return -1;
    // Room for the in-place transform that follows.
    std::vector<float> longer = new_sample_array(static_cast<std::size_t>(n), static_cast<std::size_t>(n) + 2);
    const std::size_t keep = std::min(longer.size(), s.data.size());
    std::copy_n(s.data.begin(), keep, longer.begin());
    release(s.data);
    s.data = std::move(longer);
    s.datacount = static_cast<std::int32_t>(n);
    return 0;
}

void Zeroout(Spectrum& s, double position1, double position2) {
    double lo = std::min(position1, position2);
    double hi = std::max(position1, position2);
    if (std::isnan(lo) || std::isnan(hi)) return;
    const double size = static_cast<double>(s.data.size());
    lo = std::clamp(std::trunc(lo), 0.0, size);
    hi = std::clamp(hi, 0.0, size);
    // Up to but not including the larger position: a fractional one still
    // covers the whole sample it falls in.
    const std::size_t first = static_cast<std::size_t>(lo);
    const std::size_t end = static_cast<std::size_t>(std::ceil(hi));
    for (std::size_t i = first; i < end && i < s.data.size(); ++i) s.data[i] = 0.0f;
}

namespace {
// Mean over storedcount points when that is nonzero, else over datacount points.
float baseline_mean(const Spectrum& s) {
    const std::size_t n = span_of(s, s.storedcount != 0 ? s.storedcount : s.datacount);
    if (n == 0) return 0.0f;
    return static_cast<float>(sum_of(s.data.data(), n) / static_cast<double>(n));
}
}  // namespace

void Baseline_Correct(Spectrum& s) {
    const std::size_t n = span_of(s, s.storedcount != 0 ? s.storedcount : s.datacount);
    if (n == 0) return;
    const float mean = baseline_mean(s);
    float* d = s.data.data();
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, n, GRAIN), [d, mean](const tbb::blocked_range<std::size_t>& r) {
        for (std::size_t i = r.begin(); i != r.end(); ++i) d[i] -= mean;
    });
}

void Remove_Channel_Offsets(Spectrum& s) {
    if (s.datacount < 1) return;
    const std::size_t n = span_of(s, s.datacount);
    double even = 0.0, odd = 0.0;
    for (std::size_t i = 0; i + 1 < n; i += 2) {
        even += s.data[i];
        odd += s.data[i + 1];
    }
    if (n % 2) even += s.data[n - 1];
    const float half = static_cast<float>(s.datacount) * 0.5f;
    const float me = static_cast<float>(even) / half;
    const float mo = static_cast<float>(odd) / half;
    for (std::size_t i = 0; i < n; ++i) s.data[i] -= (i % 2 == 0) ? me : mo;
}

void Balance_Channels(Spectrum& s, Ui& ui) {
    if (s.datacount < 1) return;
    const std::size_t n = span_of(s, s.datacount);
    double even = 0.0, odd = 0.0;
    for (std::size_t i = 0; i < n; ++i) (i % 2 == 0 ? even : odd) += std::fabs(s.data[i]);
    const float ratio = static_cast<float>(even / odd);
    ui.MessagePopup("Message", fmt::sprintf("the gain ratio between the two channels (0/1) is: %f\n", ratio));
    if (!std::isfinite(ratio)) return;  // a silent odd channel has no gain to match
    for (std::size_t i = 1; i < n; i += 2) s.data[i] *= ratio;
}

int Log_2_N(long long n) {
    if (n < 1) return -1;
    int k = 0;
    while (n > 1) {
        n /= 2;
        ++k;
    }
    return k;
}

// ---------------------------------------------------------------------------
// Transform

int Fourier_Transform(Spectrum& s, Ui& ui, bool timing) {
    const long long N = s.datacount;
    const bool quadrature = s.detectmode == DETECT_QUADRATURE;
    if (N < (quadrature ? 4 : 2) || static_cast<std::size_t>(N) != s.data.size()) {
        ui.MessagePopup("Transform Error",
                        fmt::format("Cannot transform {} points (the record holds {} samples).", N, s.data.size()));
        return -1;
    }
    const auto t0 = std::chrono::steady_clock::now();

    if (!quadrature) {
        // Real transform in place: the array gets room for the N/2 + 1 complex
        // values (the chain's own arrays are allocated with it), so no second
        // array exists during the transform and none has to be faulted in.
        const std::size_t half = static_cast<std::size_t>(N / 2);
        if (s.data.capacity() < static_cast<std::size_t>(N) + 2) {
            std::vector<float> room = new_sample_array(0, static_cast<std::size_t>(N) + 2);
            room.assign(s.data.begin(), s.data.end());
            release(s.data);
            s.data = std::move(room);
        }
        s.data.resize(static_cast<std::size_t>(N) + 2);
        auto* z = reinterpret_cast<fftwf_complex*>(s.data.data());
        if (fft_forward_real_inplace(s.data.data(), static_cast<int>(N)) < 0) {
            s.data.resize(static_cast<std::size_t>(N));
            ui.MessagePopup("Transform Error", fmt::format("No transform of {} points could be planned.", N));
            return -1;
        }
        // The scale is formed in single precision from the float of N, and the
        // first point (kept signed) is multiplied by it twice: every stored
        // spectrum and threshold carries exactly these values.
        const float scale = 1000000.0f / static_cast<float>(N);
        float* out = s.data.data();
        const float first = (z[0][0] * scale) * scale;
        // Packed R0, (R1, I1), ...: point k is written at k while its pair is
        // read from 2k and 2k + 1. Taken in rounds k in [2^r, 2^(r+1)), a round
        // writes only below 2^(r+1) and reads only from 2^(r+1) on, so each
        // round runs in parallel and no value is overwritten before it is read.
        // The Nyquist term is dropped.
        for (std::size_t lo = 1; lo < half; lo *= 2) {
            const std::size_t hi = std::min(half, 2 * lo);
            tbb::parallel_for(tbb::blocked_range<std::size_t>(lo, hi, GRAIN), [out, scale](const tbb::blocked_range<std::size_t>& r) {
                const float* __restrict in = out;
                float* __restrict dst = out;
                for (std::size_t k = r.begin(); k != r.end(); ++k) {
                    const float re = in[2 * k], im = in[2 * k + 1];
                    dst[k] = std::sqrt(re * re + im * im) * scale;
                }
            });
        }
        out[0] = first;
        s.data.resize(half);
        release_unused_capacity(s.data);
        s.datacount = static_cast<std::int32_t>(half);
    } else {
        // N floats are N/2 complex points, transformed in place.
        const std::size_t points = static_cast<std::size_t>(N / 2);
        auto* z = reinterpret_cast<fftwf_complex*>(s.data.data());
        if (fft_forward_complex_inplace(z, static_cast<int>(points)) < 0) {
            ui.MessagePopup("Transform Error", fmt::format("No transform of {} points could be planned.", points));
            return -1;
        }
        const std::size_t h = static_cast<std::size_t>(N / 4);
        const float scale = 1000000.0f / static_cast<float>(points);
        std::vector<float> out(points, 0.0f);
        // Half swap: the negative frequencies to the left, zero at the middle.
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, h, GRAIN), [&](const tbb::blocked_range<std::size_t>& r) {
            for (std::size_t k = r.begin(); k != r.end(); ++k) {
                out[h + k] = std::sqrt(z[k][0] * z[k][0] + z[k][1] * z[k][1]) * scale;
                const std::size_t j = h + k;
                out[k] = std::sqrt(z[j][0] * z[j][0] + z[j][1] * z[j][1]) * scale;
            }
        });
        release(s.data);
        s.data = std::move(out);
        s.datacount = static_cast<std::int32_t>(points);
    }

    if (timing) {
        const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        ui.Console(fmt::sprintf("The FFT took %f  seconds\n", secs));
    }
    return 0;
}

// ---------------------------------------------------------------------------
// Lomb periodogram (the normalised periodogram with trigonometric recurrences,
// as published with the routines period and avevar).

namespace {

struct Periodogram {
    std::vector<double> freq, power;
    int nout = 0;
};

// Mean and variance with the corrected two-pass formula.
void average_variance(const std::vector<double>& y, double& ave, double& var) {
    const double n = static_cast<double>(y.size());
    ave = 0.0;
    for (double v : y) ave += v;
    ave /= n;
    double ep = 0.0;
    var = 0.0;
    for (double v : y) {
        const double s = v - ave;
        ep += s;
        var += s * s;
    }
    var = (var - ep * ep / n) / (n - 1.0);
}

// Returns 0, -1 for zero variance, -2 when nout would exceed np.
int lomb_period(const std::vector<double>& x, const std::vector<double>& y, double ofac, double hifac, int np,
                Periodogram& out) {
    const std::size_t n = x.size();
    const int nout = static_cast<int>(0.5 * ofac * hifac * static_cast<double>(n));
    if (nout > np) return -2;
    double ave = 0.0, var = 0.0;
    average_variance(y, ave, var);
    if (!(var > 0.0)) return -1;
    const auto [mn, mx] = std::minmax_element(x.begin(), x.end());
    const double xdif = *mx - *mn;
    const double xave = 0.5 * (*mx + *mn);
    double pnow = 1.0 / (xdif * ofac);
    std::vector<double> wpr(n), wpi(n), wr(n), wi(n);
    constexpr double TWOPI = 2.0 * std::numbers::pi;
    for (std::size_t j = 0; j < n; ++j) {
        const double arg = TWOPI * ((x[j] - xave) * pnow);
        const double sh = std::sin(0.5 * arg);
        wpr[j] = -2.0 * sh * sh;
        wpi[j] = std::sin(arg);
        wr[j] = std::cos(arg);
        wi[j] = wpi[j];
    }
    out.freq.assign(static_cast<std::size_t>(np), 0.0);
    out.power.assign(static_cast<std::size_t>(np), 0.0);
    out.nout = nout;
    for (int i = 0; i < nout; ++i) {
        out.freq[static_cast<std::size_t>(i)] = pnow;
        double sumsh = 0.0, sumc = 0.0;
        for (std::size_t j = 0; j < n; ++j) {
            sumsh += wi[j] * wr[j];
            sumc += (wr[j] - wi[j]) * (wr[j] + wi[j]);
        }
        const double wtau = 0.5 * std::atan2(2.0 * sumsh, sumc);
        const double swtau = std::sin(wtau), cwtau = std::cos(wtau);
        double sums = 0.0, sumsy = 0.0, sumcy = 0.0;
        sumc = 0.0;
        for (std::size_t j = 0; j < n; ++j) {
            const double ss = wi[j] * cwtau - wr[j] * swtau;
            const double cc = wr[j] * cwtau + wi[j] * swtau;
            sums += ss * ss;
            sumc += cc * cc;
            const double yy = y[j] - ave;
            sumsy += yy * ss;
            sumcy += yy * cc;
            const double wtemp = wr[j];
            wr[j] = (wr[j] * wpr[j] - wi[j] * wpi[j]) + wr[j];
            wi[j] = (wi[j] * wpr[j] + wtemp * wpi[j]) + wi[j];
        }
        const double a = sumc > 0.0 ? sumcy * sumcy / sumc : 0.0;
        const double b = sums > 0.0 ? sumsy * sumsy / sums : 0.0;
        out.power[static_cast<std::size_t>(i)] = 0.5 * (a + b) / var;
        pnow += 1.0 / (ofac * xdif);
    }
    return 0;
}

}  // namespace

int Uneven_Analysis(Spectrum& s, Ui& ui) {
    const auto t0 = std::chrono::steady_clock::now();
    const std::size_t n = span_of(s, s.datacount);
    long long count = 0, last = 0;
    for (std::size_t i = 0; i < n; ++i) {
        if (std::fabs(s.data[i]) > 1e-9f) {
            ++count;
            last = static_cast<long long>(i);
        }
    }
    if (count < 2) {
        ui.MessagePopup("USD Error", "Fewer than two non-zero samples: there is nothing to analyse.");
        return -1;
    }
    const long long hifac = last / count;  // whole numbers, as the sampling density was counted
    const double npd = std::round(static_cast<double>(hifac) * 8.0 * static_cast<double>(count) * 0.5);
    if (hifac < 1) {
        // Nearly every point holds data (a removed mean fills the gaps too):
        // there is no sampling density to analyse, and the periodogram would be empty.
        ui.MessagePopup("USD Error", "Nearly every point holds data: these samples are not unevenly spaced.");
        return -1;
    }
    if (npd > static_cast<double>(MAX_DATACOUNT)) {
        ui.MessagePopup("USD Error", "Period array too small");
        return -1;
    }
    const int np = static_cast<int>(npd);
    // A finer threshold than the count above; the two are kept apart as they are.
    std::vector<double> x, y;
    for (std::size_t i = 0; i < n; ++i) {
        if (std::fabs(s.data[i]) > 1e-10f) {
            x.push_back(static_cast<double>(i));
            y.push_back(s.data[i]);
        }
    }
    ui.Console(fmt::sprintf("Total points:  %f\n", static_cast<double>(x.size())));
    Periodogram pg;
    const int rc = lomb_period(x, y, 8.0, static_cast<double>(hifac), np, pg);
    if (rc == -2) {
        ui.MessagePopup("USD Error", "Period array too small");
        return -1;
    }
    if (rc < 0) {
        ui.MessagePopup("USD Error", "zero variance in period");
        return -1;
    }
    // Only the first count entries become amplitudes; the rest stay powers.
    const std::size_t roots = std::min<std::size_t>(static_cast<std::size_t>(count), pg.power.size());
    for (std::size_t i = 0; i < roots; ++i) pg.power[i] = std::sqrt(pg.power[i]);
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    ui.MessagePopup("USD Complete", fmt::sprintf("Total Time:  %f", secs));

    std::vector<float> out(static_cast<std::size_t>(np));
    for (int i = 0; i < np; ++i) out[static_cast<std::size_t>(i)] = static_cast<float>(pg.power[static_cast<std::size_t>(np - 1 - i)]);
    release(s.data);
    s.data = std::move(out);
    s.datacount = np;
    std::vector<double> points(static_cast<std::size_t>(np));
    for (int i = 0; i < np; ++i) points[static_cast<std::size_t>(i)] = i;
    s.xvalues.assign(static_cast<std::size_t>(np), 0.0);
    Pt_tomass(s, points, s.xvalues);
    s.domain = DOMAIN_MASS;
    return 0;
}

// ---------------------------------------------------------------------------
// The chain

int Process_Data(Spectrum& s, const Settings& o, Ui& ui) {
    if (s.domain == DOMAIN_FREQUENCY || s.domain == DOMAIN_MASS || s.domain == DOMAIN_PROFILE) return 0;

    if (o.truncations > 0 && o.boxcar == 0) Truncate(s, o.truncations);
    s.Truncations = o.truncations;

    // The window covers the samples the file held, never the padded tail.
    const std::size_t n = span_of(s, s.storedcount != 0 ? s.storedcount : s.datacount);

    const bool symmetric_window =
        (o.apodization == APOD_HAMMING || o.apodization == APOD_HANN || o.apodization == APOD_KAISER) && n >= 3;
    float offset = 0.0f;
    if (!(s.detectmode == DETECT_QUADRATURE && s.reffreq == 0.0)) {
        // The mean is removed whatever the "Baseline Correct" box says. With a
        // symmetric window it is subtracted in the window's own pass: the same
        // float operations in the same order, one pass over the data fewer.
        if (symmetric_window) offset = baseline_mean(s);
        else Baseline_Correct(s);
        s.baselinecorrected = 1;
    } else {
        Remove_Channel_Offsets(s);
        Balance_Channels(s, ui);
    }

    // When the samples have to move anyway — into the longer array of a
    // zero-fill, or into an array with room for the in-place transform — a
    // symmetric window is applied while they are copied: the same values, one
    // pass over the data fewer.
    const bool needs_room = o.zerofills > 0 || ((o.transform == TRANSFORM_FFT_MAGNITUDE || o.transform == TRANSFORM_FFT_ONLY) &&
                                                s.data.capacity() < s.data.size() + 2);
    const bool fused = symmetric_window && needs_room;
    if (fused) {
        const long long total = zerofilled_count(s, std::max(o.zerofills, 0), ui);
        if (total < 0) {
            // Left as the unfused steps leave it: windowed, not zero-filled.
            if (o.apodization == APOD_HAMMING) WinHamming(s.data.data(), n, offset);
            else if (o.apodization == APOD_HANN) WinHann(s.data.data(), n, offset);
            else WinKaiser(s.data.data(), n, 6.0, offset);
            return -1;
        }
        std::vector<float> longer = new_sample_array(static_cast<std::size_t>(total), static_cast<std::size_t>(total) + 2);
        const float* src = s.data.data();
        switch (o.apodization) {
            case APOD_HAMMING: WinHamming(src, longer.data(), n, offset); break;
            case APOD_HANN: WinHann(src, longer.data(), n, offset); break;
            default: WinKaiser(src, longer.data(), n, 6.0, offset); break;
        }
        // The padded tail beyond the window is copied as it stands.
        const std::size_t keep = std::min(longer.size(), s.data.size());
        if (keep > n) std::copy(s.data.begin() + static_cast<std::ptrdiff_t>(n), s.data.begin() + static_cast<std::ptrdiff_t>(keep),
                                longer.begin() + static_cast<std::ptrdiff_t>(n));
        release(s.data);
        s.data = std::move(longer);
        s.datacount = static_cast<std::int32_t>(total);
    } else {
        switch (o.apodization) {
            case APOD_QUARTER_SINE: QuarterSineWin(s.data.data(), n); break;
            case APOD_HAMMING: WinHamming(s.data.data(), n, offset); break;
            case APOD_HANN: WinHann(s.data.data(), n, offset); break;
            case APOD_HALF_HANN: HalfApod(s, 1, 0, ui); break;
            case APOD_HALF_HAMMING: HalfApod(s, 2, 0, ui); break;
            case APOD_KAISER: WinKaiser(s.data.data(), n, 6.0, offset); break;
            default: break;
        }
    }
    s.apodization = o.apodization;

    if (!fused && o.zerofills > 0 && Zerofill(s, o.zerofills, ui) < 0) return -1;
    s.Zerofills = o.zerofills;

    switch (o.transform) {
        case TRANSFORM_LOMB: return Uneven_Analysis(s, ui);
        case TRANSFORM_FFT_MAGNITUDE:
            if (Fourier_Transform(s, ui, o.fftspeed != 0) < 0) return -1;
            s.hzppt = s.dbandwidth / s.datacount;
            s.StartIndex = 0;
            s.domain = DOMAIN_FREQUENCY;
            return 0;
        case TRANSFORM_FFT_ONLY:
            if (Fourier_Transform(s, ui, o.fftspeed != 0) < 0) return -1;
            s.domain = DOMAIN_FREQUENCY;
            return 0;
        default: return 0;
    }
}

// ---------------------------------------------------------------------------
// Splits

// The panel that takes the second part of a split, set up for the file type of
// the panel being split; -1 after the warning when every panel is in use.
static int new_split_panel(Workspace& ws, int old_slot, Ui& ui) {
    const int slot = Get_New_Panel(ws);
    if (slot >= 0) prepare_new_slot(ws, slot, ws.panels[static_cast<std::size_t>(old_slot)].spectrum.filetype);
    else ui.MessagePopup("Warning", TOO_MANY_FILES);
    return slot;
}

int Split_Panels(Workspace& ws, Ui& ui) {
    if (!has_active_panel(ws)) {
        ui.MessagePopup(OPERATOR_ERROR, "No Spectrum Chosen");
        return -1;
    }
    const int old_slot = ws.active_panel;
    const int slot = new_split_panel(ws, old_slot, ui);
    if (slot < 0) return -1;
    Spectrum& a = ws.panels[static_cast<std::size_t>(old_slot)].spectrum;
    Spectrum& b = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    const std::size_t c = static_cast<std::size_t>(std::max(a.datacount, 0) / 2);
    for (Spectrum* r : {&a, &b}) {
        r->domain = DOMAIN_FREQUENCY;
        r->datacount = static_cast<std::int32_t>(c);
        r->detectmode = DETECT_DIRECT;
    }
    a.dbandwidth /= 2.0;
    b.dbandwidth = a.dbandwidth;
    b.hzppt = a.hzppt;
    copy_calibration(a, b);
    b.filename = fit_name(a.filename + "--Negative Ions");
    a.filename = fit_name(a.filename + "--Positive Ions");

    // Lower half reversed for the positive ions; the upper half from one point
    // early (the common middle point) for the negative ions, one point short at
    // its end. Both stay so: the panels and their peak lists are made this way.
    std::vector<float> pos(c, 0.0f), neg(c, 0.0f);
    const std::size_t have = a.data.size();
    for (std::size_t i = 0; i < c; ++i) {
        if (c - 1 - i < have) pos[i] = a.data[c - 1 - i];
        if (c >= 1 && c - 1 + i < have) neg[i] = a.data[c - 1 + i];
    }
    release(a.data);
    a.data = std::move(pos);
    b.data = std::move(neg);
    show_full_view(ws, slot, XMODE_MZ, ui);
    show_full_view(ws, old_slot, XMODE_MZ, ui);
    ws.active_panel = old_slot;
    return slot;
}

int SplitComplexData(Workspace& ws, Ui& ui) {
    if (!has_active_panel(ws)) {
        ui.MessagePopup(OPERATOR_ERROR, "No Spectrum Chosen");
        return -1;
    }
    const int old_slot = ws.active_panel;
    {
        const Spectrum& a = ws.panels[static_cast<std::size_t>(old_slot)].spectrum;
        if (a.domain != DOMAIN_TIME || a.detectmode != DETECT_QUADRATURE) {
            ui.MessagePopup("Error", "You can only split time domain complex data.");
            return -1;
        }
    }
    const int slot = new_split_panel(ws, old_slot, ui);
    if (slot < 0) return -1;
    Spectrum& a = ws.panels[static_cast<std::size_t>(old_slot)].spectrum;
    Spectrum& b = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    const std::size_t half = static_cast<std::size_t>(std::max(a.datacount, 0) / 2);
    a.datacount = static_cast<std::int32_t>(half);
    a.dbandwidth /= 2.0;
    a.storedcount /= 2;  // the zero tail of a padded transient is split with the samples
    a.detectmode = a.reffreq != 0.0 ? DETECT_POSITIVE_HETERODYNE : DETECT_DIRECT;
    b.domain = DOMAIN_TIME;
    b.datacount = a.datacount;
    b.storedcount = a.storedcount;
    b.dbandwidth = a.dbandwidth;
    b.reffreq = a.reffreq;
    b.detectmode = a.detectmode;
    copy_calibration(a, b);
    b.filename = fit_name(a.filename + "--imaginary part");
    a.filename = fit_name(a.filename + "--real part");

    std::vector<float> re(half, 0.0f), im(half, 0.0f);
    for (std::size_t i = 0; i < half; ++i) {
        if (2 * i < a.data.size()) re[i] = a.data[2 * i];
        if (2 * i + 1 < a.data.size()) im[i] = a.data[2 * i + 1];
    }
    release(a.data);
    a.data = std::move(re);
    b.data = std::move(im);
    const int xmode = ws.panels[static_cast<std::size_t>(old_slot)].xmode;
    show_full_view(ws, slot, xmode, ui);
    show_full_view(ws, old_slot, xmode, ui);
    ws.active_panel = old_slot;
    return slot;
}

// ---------------------------------------------------------------------------
// Commands

int process_command(Workspace& ws, Ui& ui, ProcessCommandResult* result) {
    ProcessCommandResult local;
    ProcessCommandResult& r = result ? *result : local;
    r = ProcessCommandResult{};
    if (!has_active_panel(ws)) {
        ui.MessagePopup(OPERATOR_ERROR, "No Spectrum Chosen");
        return -1;
    }
    const int slot = ws.active_panel;
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    if (s.domain != DOMAIN_TIME) {
        ui.MessagePopup(OPERATOR_ERROR, "Transform of Frequency Domain\n Spectrum Not Allowed");
        return -1;
    }
    if (ws.sed_mode != 0 || s.sed != 0) {
        // Two-channel data are transformed by the phasing dialogue, not here.
        r.handed_to_phasing = true;
        return 0;
    }
    if (Process_Data(s, ws.settings, ui) < 0) return -1;
    r.processed = true;
    if (ws.settings.transform == TRANSFORM_FFT_MAGNITUDE) {
        if (s.detectmode == DETECT_QUADRATURE && s.reffreq == 0.0) {
            r.split_slot = Split_Panels(ws, ui);
        } else {
            show_full_view(ws, slot, s.filetype == FILETYPE_BRUKER ? XMODE_FREQUENCY : XMODE_MZ, ui);
        }
    } else {
        show_full_view(ws, slot, ws.panels[static_cast<std::size_t>(slot)].xmode, ui);
    }
    return 0;
}

int zero_out_command(Workspace& ws, double cursor1_x, double cursor2_x, Ui& ui) {
    if (!has_active_panel(ws)) {
        ui.MessagePopup(OPERATOR_ERROR, "No Spectrum Chosen");
        return -1;
    }
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(ws.active_panel)];
    Spectrum& s = p.spectrum;
    if (s.domain != DOMAIN_TIME) {
        ui.MessagePopup(OPERATOR_ERROR, "Zero Out Only Allowed\n for Time Domain Data");
        return -1;
    }
    if (p.xmode != XMODE_POINT && p.xmode != XMODE_TIME) {
        ui.MessagePopup(OPERATOR_ERROR,
                        fmt::sprintf("Zero Out Only Allowed\n for Data Point / Time Display Data. Current mode = %i",
                                     p.xmode));
        return -1;
    }
    if (p.xmode == XMODE_TIME) {
        // Milliseconds of the time axis to samples taken at twice the bandwidth.
        cursor1_x = 2.0 * cursor1_x * s.dbandwidth / 1000.0;
        cursor2_x = 2.0 * cursor2_x * s.dbandwidth / 1000.0;
    }
    Zeroout(s, cursor1_x, cursor2_x);
    const double xmin = p.xmin, xmax = p.xmax;
    Initialize_Display(ws, ws.active_panel);
    p.xmin = xmin;
    p.xmax = xmax;
    return 0;
}

ProcessOptionsValues process_options_from_settings(const Settings& st) {
    ProcessOptionsValues v;
    v.truncations = st.truncations;
    v.apodization = st.apodization;
    v.zerofills = st.zerofills;
    v.transform = st.transform;
    v.boxcar = st.boxcar;
    v.baselinecorrect = st.baselinecorrect;
    return v;
}

std::vector<std::string> apodization_ring_labels(bool boxcar) {
    return {boxcar ? "BoxCar" : "None", "Quarter Sine", "Hamming", "Hann", "Half Hann", "Half Hamming", "Kaiser"};
}

std::vector<std::string> transform_ring_labels() { return {"None", "FFT/Magnitude", "Non-linear/Lomb"}; }

int process_options_ok(Workspace& ws, const ProcessOptionsValues& v, bool process_now, Ui& ui,
                       ProcessCommandResult* result) {
    std::string problem;
    if (v.apodization < 0 || v.apodization > APOD_KAISER) problem = "Apodization must be 0 to 6.";
    else if (v.transform < 0 || v.transform > TRANSFORM_FFT_ONLY) problem = "Transform must be 0 to 3.";
    else if (v.truncations < 0 || v.truncations > 30) problem = "Truncations must be 0 to 30.";
    else if (v.zerofills < 0 || v.zerofills > 30) problem = "Zerofills must be 0 to 30.";
    if (!problem.empty()) {
        ui.MessagePopup("Process Options", problem);
        return -1;
    }
    Settings& st = ws.settings;
    st.truncations = v.truncations;
    st.apodization = v.apodization;
    st.zerofills = v.zerofills;
    st.transform = v.transform;
    st.boxcar = v.boxcar != 0 ? 1 : 0;
    st.baselinecorrect = v.baselinecorrect;  // remembered; the chain removes the mean whatever it says
    if (process_now) return process_command(ws, ui, result);
    return 0;
}

}  // namespace vx
