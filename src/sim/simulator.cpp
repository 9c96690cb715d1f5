#include "sim/simulator.hpp"

#include "platform/safe_file.hpp"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <numbers>

#include <fmt/format.h>
#include <fmt/printf.h>
#include <gsl/gsl_randist.h>
#include <gsl/gsl_rng.h>
#include <tbb/parallel_for.h>

#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {

static_assert(std::endian::native == std::endian::little, "sample blocks are written little-endian");

namespace {

constexpr double PI = std::numbers::pi;
constexpr const char* ION_LIST_ERROR = "Ion list error";
constexpr const char* SIM_ERROR = "Simulator error";
constexpr std::size_t BLOCK = 4096;

std::string trim(std::string_view s) {
    std::size_t a = 0, b = s.size();
    while (a < b && std::isspace(static_cast<unsigned char>(s[a]))) ++a;
    while (b > a && std::isspace(static_cast<unsigned char>(s[b - 1]))) --b;
    return std::string(s.substr(a, b - a));
}

// A whole field as a finite number, or nothing.
bool parse_number(const std::string& field, double& out) {
    if (field.empty()) return false;
    errno = 0;
    char* end = nullptr;
    out = std::strtod(field.c_str(), &end);
    return errno == 0 && end == field.c_str() + field.size() && std::isfinite(out);
}

std::vector<std::string> split_fields(const std::string& line) {
    std::vector<std::string> fields;
    std::size_t start = 0;
    for (;;) {
        const std::size_t comma = line.find(',', start);
        fields.push_back(trim(std::string_view(line).substr(start, comma == std::string::npos ? std::string::npos
                                                                                             : comma - start)));
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return fields;
}

bool is_power_of_two(long long n) { return n > 0 && (n & (n - 1)) == 0; }

// Points the reader will hold: the padded sizes become the next power of two.
long long array_points(const SimParameters& p) {
    if (p.points == 32000000) return 33554432;
    if (p.points == 16000000) return 16777216;
    return p.points;
}

// The record of the transformed spectrum of the simulated file, for the conversions.
Spectrum spectrum_of(const SimParameters& p) {
    Spectrum s;
    s.domain = DOMAIN_FREQUENCY;
    s.datacount = static_cast<std::int32_t>(array_points(p) / 2);
    s.dbandwidth = p.dbandwidth;
    s.detectmode = p.detectmode;
    s.reffreq = p.reffreq;
    s.caltype = CALTYPE_TWO_TERM;
    s.Aterm = p.Aterm;
    s.Bterm = p.Bterm;
    s.Trapvoltage = p.Trapvoltage;
    s.hzppt = s.dbandwidth / s.datacount;
    return s;
}

std::string today_utc() {
    const std::time_t t = std::time(nullptr);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%d", &tm);
    return buf;
}

// Detected frequency (Hz, signed for quadrature) and the sign of the Q channel.
struct Detected {
    double freq;
    double q_sign;
};

Detected detected_of(const SimParameters& p, const SimIon& ion, double f) {
    switch (p.detectmode) {
        case DETECT_POSITIVE_HETERODYNE: return {f - p.reffreq, 1.0};
        case DETECT_QUADRATURE:
            // Without a reference, positive ions turn the other way round and
            // land in the lower half of the spectrum, negative ions in the upper.
            if (p.reffreq == 0.0) return {f, ion.polarity >= 0 ? -1.0 : 1.0};
            return {f - p.reffreq, 1.0};
        default: return {f, 1.0};
    }
}

}  // namespace

int read_ion_list(const std::string& path, std::vector<SimIon>& ions, Ui& ui) {
    ions.clear();
    // A device or a pipe (/dev/zero) would be read without end.
    std::ifstream in;
    if (regular_file_size(path)) in.open(path, std::ios::binary);
    if (!in.is_open() || !in) {
        ui.MessagePopup(ION_LIST_ERROR, fmt::format("Cannot open the ion list {}.", path));
        return -1;
    }
    std::string line;
    int number = 0;
    bool first_data_line = true;
    while (std::getline(in, line)) {
        ++number;
        if (const auto hash = line.find('#'); hash != std::string::npos) line.resize(hash);
        if (trim(line).empty()) continue;
        auto fields = split_fields(line);
        double v[5] = {0.0, 0.0, 0.0, 0.0, 1.0};
        double first = 0.0;
        if (first_data_line && !parse_number(fields[0], first)) {
            first_data_line = false;  // column names
            continue;
        }
        first_data_line = false;
        auto fail = [&](const std::string& why) {
            ui.MessagePopup(ION_LIST_ERROR, fmt::format("Line {} of {}: {}", number, path, why));
            return -1;
        };
        if (fields.size() < 2 || fields.size() > 5)
            return fail("expected m/z, abundance and optionally decay time, phase and polarity.");
        static const char* names[5] = {"m/z", "abundance", "decay time", "phase", "polarity"};
        for (std::size_t i = 0; i < fields.size(); ++i) {
            if (fields[i].empty() && i >= 2) continue;  // an empty optional column keeps its default
            if (!parse_number(fields[i], v[i])) return fail(fmt::format("the {} \"{}\" is not a number.", names[i], fields[i]));
        }
        if (!(v[0] > 0.0)) return fail("the m/z must be above 0.");
        if (v[1] < 0.0) return fail("the abundance must not be negative.");
        if (v[2] < 0.0) return fail("the decay time must not be negative (0 means no decay).");
        if (v[4] != 1.0 && v[4] != -1.0) return fail("the polarity must be 1 or -1.");
        ions.push_back(SimIon{v[0], v[1], v[2], v[3], static_cast<int>(v[4])});
    }
    if (ions.empty()) {
        ui.MessagePopup(ION_LIST_ERROR, fmt::format("The ion list {} holds no ions.", path));
        return -1;
    }
    return 0;
}

int check_parameters(const SimParameters& p, Ui& ui) {
    std::string why;
    if (!(is_power_of_two(p.points) && p.points >= 16) && p.points != 16000000 && p.points != 32000000)
        why = fmt::format("The number of points {} must be a power of two of at least 16, or 16000000 or 32000000.", p.points);
    else if (array_points(p) > (1LL << 27))
        why = "The number of points must not exceed 134217728.";
    else if (!(p.dbandwidth > 1.0) || !std::isfinite(p.dbandwidth))
        why = "The bandwidth must be above 1 Hz.";
    else if (p.detectmode < DETECT_DIRECT || p.detectmode > DETECT_QUADRATURE)
        why = "The detection mode must be direct, heterodyne or quadrature.";
    else if (p.detectmode == DETECT_POSITIVE_HETERODYNE && !(p.reffreq > 0.0))
        why = "Heterodyne detection needs a reference frequency above 0.";
    else if (!(p.reffreq >= 0.0) || !std::isfinite(p.reffreq))
        why = "The reference frequency must not be negative.";
    else if (!(p.lowfreq > 0.0) || !(p.highfreq > 0.0) || p.lowfreq == p.highfreq || !std::isfinite(p.lowfreq) ||
             !std::isfinite(p.highfreq))
        why = "The chirp needs two different frequencies above 0.";
    else if (!(p.sweeprate > 0.0) || !std::isfinite(p.sweeprate))
        why = "The sweep rate must be above 0 Hz per microsecond.";
    else if (!(p.delay >= 0.0) || !(p.quench_time >= 0.0) || !std::isfinite(p.delay))
        why = "The delay must not be negative.";
    else if (!(p.noise >= 0.0) || !std::isfinite(p.noise))
        why = "The noise level must not be negative.";
    else if (!(p.voltage_scale >= 0.0) || !std::isfinite(p.voltage_scale))
        why = "The voltage scale must not be negative (0 chooses one).";
    else if (!std::isfinite(p.Aterm) || !std::isfinite(p.Bterm) || !std::isfinite(p.Trapvoltage))
        why = "The calibration terms must be numbers.";
    if (why.empty()) return 0;
    ui.MessagePopup(SIM_ERROR, why);
    return -1;
}

double ion_frequency(const SimParameters& p, double mz) {
    const Spectrum s = spectrum_of(p);
    const double m[1] = {mz};
    double pt[1] = {0.0}, f[1] = {0.0};
    Mass_topt(s, m, pt);
    Pt_tofreq(s, pt, f);
    return f[0];
}

double excite_time(const SimParameters& p) { return std::fabs(p.highfreq - p.lowfreq) / (p.sweeprate * 1e6); }

double excitation_phase(const SimParameters& p, double f) {
    // The sweep runs from lowfreq to highfreq; a downward one has a negative rate.
    const double rate = (p.highfreq <= p.lowfreq ? -1.0 : 1.0) * p.sweeprate * 1e6;
    const double d = f - p.lowfreq;
    return -PI * d * d / rate + 2.0 * PI * f * (excite_time(p) + p.delay);
}

int simulate_samples(const SimParameters& p, const std::vector<SimIon>& ions, std::vector<float>& volts, Ui& ui) {
    if (check_parameters(p, ui) < 0) return -1;
    const bool quad = p.detectmode == DETECT_QUADRATURE;
    const double dt = quad ? 1.0 / p.dbandwidth : 0.5 / p.dbandwidth;
    const double band_lo = quad ? -p.dbandwidth / 2.0 : 0.0;
    const double band_hi = quad ? p.dbandwidth / 2.0 : p.dbandwidth;

    struct Wave {
        double amp, omega, phase, tau, q_sign;
    };
    std::vector<Wave> waves;
    for (const SimIon& ion : ions) {
        const double f = ion_frequency(p, ion.mz);
        const Detected d = detected_of(p, ion, f);
        const double signed_f = quad && p.reffreq == 0.0 ? d.q_sign * d.freq : d.freq;
        if (!std::isfinite(f) || !(signed_f > band_lo && signed_f < band_hi)) {
            ui.MessagePopup(SIM_ERROR, fmt::format("The ion at m/z {} has the frequency {:.3f} Hz, outside the detected "
                                                   "band of this file.", ion.mz, f));
            return -1;
        }
        if (f < std::min(p.lowfreq, p.highfreq) || f > std::max(p.lowfreq, p.highfreq))
            ui.Console(fmt::format("note: the ion at m/z {} ({:.1f} Hz) lies outside the chirp of the excitation\n",
                                   ion.mz, f));
        waves.push_back({ion.abundance, 2.0 * PI * d.freq * dt, excitation_phase(p, f) + ion.phase,
                         ion.decay, d.q_sign});
    }

    const std::size_t total = static_cast<std::size_t>(p.points);
    const std::size_t steps = quad ? total / 2 : total;  // time steps (complex points in quadrature)
    volts.assign(total, 0.0f);
    float* out = volts.data();
    const std::size_t blocks = (steps + BLOCK - 1) / BLOCK;
    tbb::parallel_for(std::size_t{0}, blocks, [&](std::size_t blk) {
        const std::size_t lo = blk * BLOCK;
        const std::size_t hi = std::min(steps, lo + BLOCK);
        const std::size_t len = hi - lo;
        std::vector<double> re(len, 0.0), im(len, 0.0);
        for (const Wave& w : waves) {
            // Exact value at the block start, then a rotation per step: the
            // rounding of the recurrence never runs longer than one block.
            const double t0 = static_cast<double>(lo) * dt;
            const double decay0 = w.tau > 0.0 ? std::exp(-t0 / w.tau) : 1.0;
            const double step_decay = w.tau > 0.0 ? std::exp(-dt / w.tau) : 1.0;
            std::complex<double> z = std::polar(w.amp * decay0, w.omega * static_cast<double>(lo) + w.phase);
            const std::complex<double> r = std::polar(step_decay, w.omega);
            for (std::size_t i = 0; i < len; ++i) {
                re[i] += z.real();
                im[i] += w.q_sign * z.imag();
                z *= r;
            }
        }
        // Noise from a generator of its own for every block: the same file
        // whatever the number of threads.
        std::unique_ptr<gsl_rng, void (*)(gsl_rng*)> rng(gsl_rng_alloc(gsl_rng_mt19937), gsl_rng_free);
        gsl_rng_set(rng.get(), static_cast<unsigned long>(p.seed * 1000003ULL + blk));
        for (std::size_t i = 0; i < len; ++i) {
            if (quad) {
                double I = re[i], Q = im[i];
                if (p.noise > 0.0) {
                    I += gsl_ran_gaussian_ziggurat(rng.get(), p.noise);
                    Q += gsl_ran_gaussian_ziggurat(rng.get(), p.noise);
                }
                out[2 * (lo + i)] = static_cast<float>(I);
                out[2 * (lo + i) + 1] = static_cast<float>(Q);
            } else {
                double v = re[i];
                if (p.noise > 0.0) v += gsl_ran_gaussian_ziggurat(rng.get(), p.noise);
                out[lo + i] = static_cast<float>(v);
            }
        }
    });
    return 0;
}

std::string simulated_header(const SimParameters& p, const std::vector<SimIon>& ions, double voltage_scale) {
    const double texc = excite_time(p);
    const double tdet = static_cast<double>(p.points) / (2.0 * p.dbandwidth);
    static const char* dmodes[3] = {"direct", "aheterodyne", "dheterodyne"};
    std::string h;
    auto line = [&h](const std::string& s) {
        h += s;
        h += '\n';
    };
    line("Vantorix Data File v4.00");
    // The experiment script that made the transient.
    line("Begin Experiment Sequence");
    line(fmt::format("expcount: {}", p.expcount));
    line("experiment: Simulated");
    line("Main: 1");
    line("endexperiment:");
    line("loop: Main");
    line("Sequence: 1");
    line("endloop:");
    line("table: Sequence");
    for (const char* e : {"Quench", "Excitation", "Delay", "Detection"}) line(e);
    line("endtable:");
    line("label: Quench");
    line(fmt::sprintf("time: %.9f", p.quench_time));
    line("endevent:");
    line("label: Excitation");
    line(fmt::sprintf("time: %.9f", texc));
    line("excite:");
    line("emode: chirp");
    line(fmt::sprintf("elength: %.9f", texc));
    line("eamplitude: 1.0");
    line("efilter: 1.0");
    line(fmt::sprintf("lowfreq: %.6f", p.lowfreq));
    line(fmt::sprintf("highfreq: %.6f", p.highfreq));
    line(fmt::sprintf("sweeprate: %.6f", p.sweeprate));
    line("clockrate: 25000000.0");
    line("loops: 1");
    line("endevent:");
    line("label: Delay");
    line(fmt::sprintf("time: %.9f", p.delay));
    line("endevent:");
    line("label: Detection");
    line(fmt::sprintf("time: %.9f", tdet));
    line("detect:");
    line(fmt::sprintf("dmode: %s", dmodes[std::clamp(p.detectmode, 0, 2)]));
    line(fmt::sprintf("dreferencefreq: %.6f", p.reffreq));
    line("damplitude: 1.0");
    line(fmt::sprintf("dfilter: %.6f", p.dbandwidth));
    line(fmt::sprintf("dbandwidth: %.6f", p.dbandwidth));
    line(fmt::sprintf("datacount: %d", p.points));
    line("datafile: simulated.dat");
    line("endevent:");
    line("[Voltage Labels]");
    static const char* volts[14] = {"Front Plate", "Back Plate", "Excite Top", "Excite Bottom", "Detect Left",
                                    "Detect Right", "Source Lens", "Gate", "Voltage 9", "Voltage 10",
                                    "Voltage 11", "Voltage 12", "Voltage 13", "Voltage 14"};
    for (int i = 0; i < 14; ++i) line(fmt::sprintf("Voltage %d: \"%s\"", i + 1, volts[i]));
    line("Trap DAC: \"Trap Plates\"");
    line("[Trigger Labels]");
    for (int i = 0; i < 24; ++i) line(fmt::sprintf("Trigger %d: \"Trigger %d\"", i + 1, i + 1));
    // Global parameters of the acquisition.
    line("Digitizer: NI_DIGITIZER");
    line("Data Collected on " + (p.collected_on.empty() ? today_utc() : p.collected_on));
    line("Data Collected by Vantorix simulator");
    line("Project Code = SIM");
    // The reader resets expcount to 1 on this line, so a sum of experiments
    // goes without it, as the writers leave it out.
    if (p.expcount < 2) line(fmt::sprintf("Data Detected at (seconds): %.9f", p.quench_time + texc + p.delay));
    line(fmt::sprintf("Detect Mode: %d", p.detectmode));
    line(fmt::sprintf("Reference Frequency: %.6f", p.reffreq));
    line(fmt::sprintf("Trap Voltage: %.6f", p.Trapvoltage));
    line("Calibration Type: 0");
    line(fmt::sprintf("Source Coeff0: %.6f", p.Aterm));
    line(fmt::sprintf("Source Coeff1: %.6f", p.Bterm));
    if (p.sed) line("Collection Mode: SED");
    line(fmt::sprintf("Data Points: %d", p.points));
    line(p.int_storage ? "Storage Type: int" : "Storage Type: float");
    if (p.int_storage) line(fmt::sprintf("Voltage Scale: %.12g", voltage_scale));
    line("Comment :");
    std::string c = fmt::format("Simulated transient of {} ions{}", ions.size(),
                                p.source_name.empty() ? std::string() : " from " + p.source_name);
    c += fmt::format(", noise {} V rms, seed {}.", p.noise, p.seed);
    line(c);
    std::size_t used = c.size();
    for (const SimIon& ion : ions) {
        std::string l = fmt::format(" m/z {} abundance {} decay {} s phase {} rad polarity {}.", ion.mz, ion.abundance,
                                    ion.decay, ion.phase, ion.polarity);
        if (used + l.size() > 1000) break;  // the comment control holds 1024 characters
        used += l.size();
        line(l);
    }
    line("End of Comment");
    line("Data:");
    return h;
}

int write_simulated_file(const std::string& path, const SimParameters& p, const std::vector<SimIon>& ions, Ui& ui) {
    std::vector<float> v, v2;
    if (simulate_samples(p, ions, v, ui) < 0) return -1;
    if (p.sed) {
        SimParameters q = p;
        q.seed = p.seed + SED_SEED_STEP;
        std::vector<SimIon> turned = ions;
        for (SimIon& ion : turned) ion.phase -= PI / 2.0;
        if (simulate_samples(q, turned, v2, ui) < 0) return -1;
    }
    double scale = p.voltage_scale;
    if (p.int_storage && scale == 0.0) {
        float peak = 0.0f;
        for (float x : v) peak = std::max(peak, std::fabs(x));
        for (float x : v2) peak = std::max(peak, std::fabs(x));
        scale = peak > 0.0f ? static_cast<double>(peak) / 32000.0 : 1.0;
    }
    const std::string header = simulated_header(p, ions, scale);
    // Written beside the target and renamed over it when complete.
    AtomicFile f(path);
    if (!f.ok()) {
        ui.MessagePopup(SIM_ERROR, fmt::format("Cannot write the file {}: {}", path, f.error()));
        return -1;
    }
    std::size_t clipped = 0;
    auto block = [&](const std::vector<float>& x) {
        if (!p.int_storage) return f.write(x.data(), x.size() * sizeof(float));
        std::vector<std::int16_t> counts(x.size());
        for (std::size_t i = 0; i < x.size(); ++i) {
            const double c = std::nearbyint(static_cast<double>(x[i]) / scale);
            if (c > 32767.0 || c < -32768.0) ++clipped;
            counts[i] = static_cast<std::int16_t>(std::clamp(c, -32768.0, 32767.0));
        }
        return f.write(counts.data(), counts.size() * sizeof(std::int16_t));
    };
    bool ok = f.write(header) && block(v);
    if (p.sed) ok = ok && f.write(std::string("\nSED Data:\n")) && block(v2);
    if (clipped)
        ui.Console(fmt::format("note: {} samples were clipped to the int16 range at {} V per count\n", clipped, scale));
    if (!ok || f.commit() != 0) {
        ui.MessagePopup(SIM_ERROR, fmt::format("Writing the file {} failed: {}", path, f.error()));
        return -1;
    }
    return 0;
}

}  // namespace vx
