#include "phasing/phase_run.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <numbers>
#include <thread>

#include <fmt/format.h>
#include <tbb/info.h>
#include <tbb/task_arena.h>

#include "experiment/excite_script.hpp"
#include "formats/tulva_reader.hpp"
#include "peaks/noise.hpp"
#include "phasing/bruker_phase.hpp"
#include "phasing/halfapod.hpp"
#include "phasing/phase_search.hpp"
#include "phasing/rephase.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"
#include "workspace/processing.hpp"

namespace vx {
namespace {
constexpr double PI = std::numbers::pi;

}  // namespace

bool phase_value_usable(double v) { return std::isfinite(v) && v != 0.0; }

void insufficient_information(Ui& ui) {
    ui.MessagePopup("Insufficient information to phase data.",
                    "Phasing can not continue with current information. Exiting.");
}

int excitation_ready(Spectrum& s, Ui& ui) {
    if (s.domain != DOMAIN_TIME || s.detectmode == DETECT_QUADRATURE) {
        ui.MessagePopup("Phasing Error", "Only a real (direct or heterodyne) transient can be phased.");
        return -1;
    }
    if (GetExciteTime3(s, ui) < 0.0) return -1;
    if (!phase_value_usable(s.highfreq) || !phase_value_usable(s.lowfreq) || !phase_value_usable(s.sweeprate) ||
        !phase_value_usable(s.delay) || !(s.dbandwidth > 0.0)) {
        insufficient_information(ui);
        return -15;
    }
    return 0;
}

int phase_thread_count() {
    const unsigned p = std::max(1u, std::thread::hardware_concurrency());
    return static_cast<int>(std::min(2u * p, 4u));
}

void apply_zero_order(Spectrum& s, const PhaseRunOptions& o, bool no_search, bool keep_terms, double signed_rate,
                      double harmonic, const PhaseScoreWorkers& scorer, std::vector<float>& P, std::vector<float>& Q,
                      PhaseModel& m, PhaseRunResult& res) {
    double C = m.Cterm;
    int degrees = static_cast<int>(std::lround(C * 180.0 / PI));
    if (no_search) {
        // the terms as given or stored
    } else if (o.constant_degrees) {
        degrees = static_cast<int>(std::lround(*o.constant_degrees));
        C = *o.constant_degrees * PI / 180.0;
    } else if (o.method == PHASE_VECTOR) {
        C = scorer.vector_constant();
        degrees = static_cast<int>(std::lround(C * 180.0 / PI));
        res.searched = true;
    } else if (o.method != PHASE_ITERATE) {
        degrees = analytical_degrees(o.method, signed_rate, o.polarity, harmonic);
        C = degrees * PI / 180.0;
    } else {
        const LadderResult lr = phase_ladder(scorer);
        degrees = lr.best_degrees;
        C = degrees * PI / 180.0;
        res.searched = true;
        res.evaluations = lr.evaluations;
    }
    const ScoreResult sr = scorer.score({C}).front();
    res.score = sr.score;
    res.drop = sr.drop;
    m.Cterm = C;
    res.model = m;
    res.applied_degrees = degrees;

    rotate_turned(P, Q, C, s.data, o.dispersion ? &res.dispersion : nullptr);
    P = std::vector<float>();
    Q = std::vector<float>();

    s.OptimizedSecondorder = m.Aterm;
    s.OptimizedFirstorder = m.Bterm;
    s.phasescale = sr.score;
    if (keep_terms) return;
    if (res.searched && o.method == PHASE_VECTOR) {
        s.Zeroorder = C + PI / 4.0;
        s.ZeroDegrees = degrees + 45;
    } else if (res.searched) {
        s.Zeroorder = PI * (degrees + 45) / 180.0;
        s.ZeroDegrees = degrees + 45;
    } else {
        s.Zeroorder = C;
        s.ZeroDegrees = degrees;
    }
}

int phase_spectrum(Spectrum& s, const PhaseRunOptions& o, Ui& ui, PhaseRunResult* result) {
    if (is_bruker_method_record(s)) return phase_bruker_spectrum(s, o, ui, result);  // excitation from the method
    PhaseRunResult local;
    PhaseRunResult& res = result ? *result : local;
    res = PhaseRunResult{};
    if (s.domain != DOMAIN_TIME || s.detectmode == DETECT_QUADRATURE) {
        ui.MessagePopup("Phasing Error", "Only a real (direct or heterodyne) transient can be phased.");
        return -1;
    }
    const bool given = o.terms.has_value();
    const bool stored = s.phaseparams == 1 && !o.test && !given && !o.constant_degrees && !o.excitation;
    const bool corrected = s.storagemode == 1;  // a phase-corrected transient: no quadratic phase

    // The excitation from the script. Without a chirp the values are unknown:
    // phasing then stops with the insufficient-information message.
    std::string text;
    const int rc = read_script_text(s.filename, text);
    const ExciteScript sc = scan_excite_script(text, false, &ui);
    if (rc != 0 || !sc.data_marker) {
        ui.MessagePopup("File Input Error", "No Data Marker Found");
        return -1;
    }
    if (o.excitation) {
        s.lowfreq = o.excitation->lowfreq;
        s.highfreq = o.excitation->highfreq;
        s.sweeprate = o.excitation->sweeprate;
        s.delay = o.excitation->delay;
        s.exciteduration = s.sweeprate != 0.0 ? std::fabs(s.highfreq - s.lowfreq) / std::fabs(s.sweeprate) / 1e6 : 0.0;
    } else if (!stored) {
        if (sc.chirp()) {
            s.lowfreq = sc.low;
            s.highfreq = sc.high;
            s.sweeprate = sc.rate;
            s.delay = sc.delay;
            s.exciteduration = sc.chirp_time();
        } else {
            s.lowfreq = s.highfreq = s.sweeprate = s.delay = 0.0;
        }
    } else if (sc.chirp()) {
        s.exciteduration = sc.chirp_time();
    }
    const bool sentinel = stored && s.phaseconstant == 360.0;  // "no chirp information" in the file
    if (!given && !corrected && !sentinel &&
        (!phase_value_usable(s.highfreq) || !phase_value_usable(s.lowfreq) || !phase_value_usable(s.sweeprate) ||
         !phase_value_usable(s.delay) || !(s.dbandwidth > 0.0) || !std::isfinite(s.dbandwidth))) {
        insufficient_information(ui);
        return -15;
    }
    if (s.datacount < 2048) {
        ui.MessagePopup("Phasing Error", fmt::format("{} samples are too few to phase.", s.datacount));
        return -1;
    }

    // The chain before the transform: truncation, mean, half window, zero-fill.
    if (o.truncations > 0) Truncate(s, o.truncations);
    if (o.zero_dc) Baseline_Correct(s);
    if (o.apodize_first && o.apodization != 0 && HalfApod(s, o.apodization, o.exclude_excite ? 1 : 0, ui) < 0)
        return -1;
    if (o.apodize_first && o.zerofills > 0 && Zerofill(s, o.zerofills, ui) < 0) return -1;
    if (Fourier_Transform_Phased(s, 0, ui) < 0) return -1;
    if (o.transform_only) return 0;
    const long long N = s.datacount;
    const double harmonic = o.harmonic3 ? 3.0 : 1.0;

    PhaseInputs in;
    in.lowfreq = s.lowfreq;
    in.highfreq = s.highfreq;
    in.sweeprate = s.sweeprate;
    in.delay = s.delay;
    in.excitestart = std::max(0.0, s.exciteduration);
    in.bandwidth = s.dbandwidth;
    in.relativex = s.relativex;
    in.special = o.special;
    in.extra_point = o.extra_point;
    in.harmonic = harmonic;

    PhaseModel m;
    bool zero_curve = corrected || sentinel;
    if (given) {
        const auto& t = *o.terms;
        m.Aterm = t.size() > 0 ? t[0] : 0.0;
        m.Bterm = t.size() > 1 ? t[1] : 0.0;
        m.Cterm = t.size() > 2 ? t[2] : 0.0;
        m.reference = o.initial_form ? s.lowfreq : s.highfreq;
        if (!std::isfinite(m.reference)) m.reference = 0.0;
        res.form = "terms";
    } else if (stored) {
        m = phase_model_for(PhaseEntry::PhasingStored, in);
        m.Cterm = s.initialconstant + s.phaseconstant;
        res.form = "stored";
    } else if (o.method == PHASE_ANALYTIC_120 || o.method == PHASE_ANALYTIC_90) {
        m = phase_model_for(o.initial_form ? PhaseEntry::PhasingFeng : PhaseEntry::PhasingAnalytical, in);
        res.form = o.initial_form ? "initial" : "final";
    } else {
        m = phase_model_for(o.initial_form ? PhaseEntry::PhasingFeng : PhaseEntry::PhasingStandard, in);
        res.form = o.initial_form ? "initial" : "final";
    }
    if (zero_curve) res.form = corrected ? "corrected" : "none";

    // The band to be scored.
    long long start = 0, end = 0;
    if (corrected) {
        end = N;
    } else if (sentinel) {
        end = 1;
    } else {
        phase_band(s.lowfreq, s.highfreq, harmonic, s.hzppt, N, start, end);
        // The panel's own score range, in the spectrum's frequencies.
        if (o.score_lo > 0.0 && o.score_hi > o.score_lo) phase_band(o.score_lo, o.score_hi, 1.0, s.hzppt, N, start, end);
    }
    res.band_start = start;
    res.band_end = end;
    res.testfit = sentinel ? 0.0 : phase_threshold(s.realdata, s.imagdata, start, end - 1);

    // The curve once for the whole spectrum; the search only adds constants.
    if (zero_curve)
        s.phase.assign(static_cast<std::size_t>(N), 0.0);
    else
        build_phase_curve(m, s.hzppt, static_cast<std::size_t>(N), 0, static_cast<std::size_t>(N), s.phase);

    const int workers = o.workers > 0 ? o.workers : phase_thread_count();
    const std::size_t band = static_cast<std::size_t>(std::max(0LL, end - start));
    // The spectrum turned by the curve once; every trial and the final
    // rotation are then a multiply-add per point.
    std::vector<float> P, Q;
    {
        tbb::task_arena arena(std::clamp(workers, 1, std::max(1, tbb::info::default_concurrency())));
        arena.execute([&] {
            if (zero_curve)
                turn_by_curve(s.realdata.data(), s.imagdata.data(), s.phase.data(), s.phase.size(), P, Q);
            else
                turn_by_model(s.realdata, s.imagdata, m, s.hzppt, P, Q);
        });
    }
    const PhaseScoreWorkers scorer =
        PhaseScoreWorkers::over(P.data() + start, Q.data() + start, band, res.testfit, workers);
    apply_zero_order(s, o, given || stored, stored || corrected, signed_sweep_rate(s.sweeprate, s.lowfreq, s.highfreq),
                     harmonic, scorer, P, Q, m, res);
    if (stored) {
        s.Zeroorder = m.Cterm;
        s.ZeroDegrees = static_cast<std::int32_t>(std::lround(s.phaseconstant * 180.0 / PI));
    } else if (corrected) {
        s.Zeroorder = m.Cterm;
        s.ZeroDegrees = static_cast<std::int32_t>(std::lround(64800.0 / PI));
    }
    s.Phased_Datacount = static_cast<std::int32_t>(N);

    if (o.baseline && o.median_baseline)
        remove_median_baseline(s.data, 1024);
    else if (o.baseline)
        remove_phase_baseline(s.data, 1.0, o.roll, 10, -150000.0);

    if (o.rephase_sections > 0 && band > 0) {
        RephaseRecord r;
        r.rephase_sections = o.rephase_sections;
        r.rephase_sn = o.rephase_sn;
        r.baseline_scaler = o.baseline_scaler;
        r.realdata = s.realdata.data();
        r.imagdata = s.imagdata.data();
        r.phase = s.phase.data();
        r.N = N;
        r.zoom_start = static_cast<std::int32_t>(start);
        r.zoom_count = static_cast<std::int64_t>(band);
        r.base_constant = m.Cterm;
        double width = 0.0;
        r.noise_mean = CalculateThrashNoiseForRePhaseCalcs(s.data.data() + start, static_cast<long>(band), &width);
        r.noise_sigma = width;
        TransformAbsZoom(r);
        if (RephaseData64f(r) == 0) {
            BaseLineRemoveZoomRephaseThreaded(r);
            s.data = std::move(r.full_rephased);
            s.rephase_sections = r.rephase_sections;
            s.rephase_initial = r.section_initial;
            s.rephase_final = r.section_final;
            s.rephase_dterms = r.section_constant;
            s.Rephased = 1;
            res.section_initial = r.section_initial;
            res.section_final = r.section_final;
            res.section_constant = r.section_constant;
        }
    }
    s.domain = DOMAIN_FREQUENCY;
    return 0;
}

void rephase_record(Spectrum& s, double constant) {
    if (s.phase.size() != s.realdata.size()) s.phase.assign(s.realdata.size(), 0.0);
    rotate_spectrum(s.realdata, s.imagdata, s.phase, constant, s.data, nullptr);
}

int phase_inverse(Spectrum& s, bool extra_point, Ui& ui) {
    if (const int rc = excitation_ready(s, ui); rc < 0) return rc;
    // relativex at its default of -1.0 passes through as the correction and so
    // adds a second to the delay; kept as the inverse path always did it.
    double d3 = s.relativex;
    if (s.relativex >= -0.99) d3 = extra_point ? 0.75 / s.dbandwidth : 0.0;
    ui.Console(fmt::format("use_delayf3 = {:f}\n", d3));
    if (Fourier_Transform_Phased(s, 1, ui) < 0) return -1;
    PhaseModel m;
    const double R = signed_sweep_rate(s.sweeprate, s.lowfreq, s.highfreq);
    m.Aterm = PI / R / 1000000.0;
    m.reference = s.highfreq;
    m.bracket = s.delay - d3;
    m.Bterm = 2.0 * PI * m.bracket;
    m.Cterm = PI / 4.0;
    for (double frac : {0.3, 0.5, 0.7}) {
        const double f = s.lowfreq + frac * (s.highfreq - s.lowfreq);
        const double total = (s.highfreq - f) / (R * 1000000.0) + m.bracket;
        ui.Console(fmt::format("Total delay at {:f} = {:f}.\n", f, total));
    }
    const std::size_t N = s.realdata.size();
    build_phase_curve(m, s.hzppt, N, 0, N, s.phase);
    std::vector<float> re, im;
    re.resize(N);
    im.resize(N);
    for (std::size_t k = 0; k < N; ++k) {
        const double p = s.phase[k] + m.Cterm;
        const double c = std::cos(p), sn = std::sin(p);
        re[k] = static_cast<float>(s.realdata[k] * c - s.imagdata[k] * sn);
        im[k] = static_cast<float>(s.imagdata[k] * c + s.realdata[k] * sn);
    }
    // Point 0 packs the zero-frequency and Nyquist values, which are real and
    // are not rotated as a pair.
    re[0] = s.realdata[0];
    im[0] = s.imagdata[0];
    s.realdata = std::move(re);
    s.imagdata = std::move(im);
    if (InvFourier_Transform_Phased(s, ui) < 0) return -1;
    s.storagemode = 1;
    s.realdata.clear();
    s.imagdata.clear();
    s.phase.clear();
    return 0;
}

StoredTerms stored_terms_of(const PhaseModel& a, double lowfreq, double highfreq, double correction) {
    // A (f - ref)^2 - B f + C == A (f - high)^2 - B' f + C' with
    // B' = B - 2 A (high - ref) and C' = C - A (high^2 - ref^2).
    StoredTerms t;
    const double d = highfreq - a.reference;
    const double Bp = a.Bterm - 2.0 * a.Aterm * d;
    t.constant = a.Cterm - a.Aterm * (highfreq * highfreq - a.reference * a.reference);
    t.delay = Bp / (2.0 * PI) + correction;
    t.sweep = a.Aterm != 0.0 ? std::fabs(PI / a.Aterm / 1000000.0) : 0.0;
    t.final_freq = highfreq;
    t.initial_freq = lowfreq;
    return t;
}

int Save_Tulva_Phase_Coeff(const std::string& in, const std::string& out, double sweep, double delay,
                           double optimized, double final_freq, double initial_freq, double init_constant,
                           int use_delay, double detect_bw, int halvings, Ui& ui) {
    namespace fs = std::filesystem;
    if (same_file(in, out) || fs::weakly_canonical(fs::path(in)) == fs::weakly_canonical(fs::path(out))) {
        ui.MessagePopup("File Output Error", "The phase parameters cannot be written over the file they come from.");
        return -1;
    }
    std::string source = in;
    std::string unzipped;
    const bool zipped = in.size() > 2 && in.compare(in.size() - 2, 2, ".Z") == 0;
    // A zipped source is written back packed, as OUT.Z when OUT does not end in
    // ".Z": that archive must not be the source either.
    if (zipped) {
        const bool out_z = out.size() > 2 && out.compare(out.size() - 2, 2, ".Z") == 0;
        const std::string archive = out_z ? out : out + ".Z";
        if (same_file(in, archive) || fs::weakly_canonical(fs::path(in)) == fs::weakly_canonical(fs::path(archive))) {
            ui.MessagePopup("File Output Error", "The phase parameters cannot be written over the file they come from.");
            return -1;
        }
    }
    if (zipped) {
        const fs::path p(in);
        const std::string name = p.stem().string();
        const std::string folder = fs::path(out).parent_path().empty() ? "." : fs::path(out).parent_path().string();
        unzipped = (fs::path(folder) / (".unz_" + name)).string();
        if (unzip1(in, folder, ".unz_" + name) != 0) {
            ui.MessagePopup("File Input Error", "Not Valid TULVA Data File Format");
            return -1;
        }
        source = unzipped;
    }
    struct Cleanup {
        std::string path;
        ~Cleanup() {
            if (!path.empty()) std::remove(path.c_str());
        }
    } cleanup{unzipped};

    const auto size = regular_file_size(source);
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(size ? std::fopen(source.c_str(), "rb") : nullptr, &std::fclose);
    if (!f) {
        ui.MessagePopup("File Input Error", "Not Valid TULVA Data File Format");
        return -1;
    }
    // The output of a zipped source is written unzipped first, then packed.
    const std::string target = zipped ? out.substr(0, out.size() - (out.size() > 2 && out.compare(out.size() - 2, 2, ".Z") == 0 ? 2 : 0)) : out;
    AtomicFile af(target);
    if (!af.ok()) {
        ui.MessagePopup("File Output Error", fmt::format("{} cannot be written: {}", target, af.error()));
        return -1;
    }
    std::string line;
    bool signature = false, inserted = false, marker = false, skipping_old = false;
    long long count = -1;
    int lines = 0;
    auto block = [&] {
        std::string b = "Phase Parameters:\n";
        b += fmt::format("Optimized Sweep Rate:{:.4f}\n", sweep);
        b += fmt::format("Optimized Delay:{:.12f}\n", delay);
        b += fmt::format("Optimized Constant:{:.12f}\n", optimized);
        b += fmt::format("Final Frequency:{:.4f}\n", final_freq);
        b += fmt::format("Initial Frequency:{:.4f}\n", initial_freq);
        b += fmt::format("Initial Constant:{:.12f}\n", init_constant);
        b += fmt::format("Detection BW:{:.4f}\n", detect_bw);
        b += fmt::format("Use Phase Delay F:{}\n\n", use_delay);
        return b;
    };
    while (read_header_line(f.get(), line) >= 0) {
        ++lines;
        if (lines <= 3 && (line.find("TULVA Data File") != std::string::npos ||
                           line.find("Vantorix Data File") != std::string::npos ||
                           line.find("TULVA SWIFT File") != std::string::npos))
            signature = true;
        if (lines == 3 && !signature) break;
        // An earlier block is replaced, not repeated.
        if (line.find("Phase Parameters:") != std::string::npos) {
            skipping_old = true;
            continue;
        }
        if (skipping_old) {
            if (line.empty()) skipping_old = false;
            continue;
        }
        const bool is_marker = line.find("Data:") != std::string::npos;
        // Before "Data Parameters:", or before the marker when a header has no
        // such line, so that every written file carries the block.
        if (!inserted && (line.find("Data Parameters:") != std::string::npos || is_marker)) {
            af.write(block());
            inserted = true;
        }
        if (line.find("Data Points:") != std::string::npos) {
            count = std::atoll(line.substr(line.find("Data Points:") + 12).c_str());
            if (count > 0) line = fmt::format("Data Points: {}", count >> std::max(0, halvings));
        }
        af.write(line);
        af.write("\n", 1);
        if (is_marker) {
            marker = true;
            break;
        }
    }
    if (!signature) {
        ui.MessagePopup("File Input Error", "Not Valid TULVA Data File Format");
        return -1;
    }
    if (count <= 0) {
        ui.MessagePopup("File Input Error", "No Data Count Specified");
        return -1;
    }
    if (!marker) {
        ui.MessagePopup("File Input Error", "No Data Marker Found");
        return -1;
    }
    // The samples as they stand (whatever their storage type); with halvings
    // only the first count >> halvings of them.
    const long long here = std::ftell(f.get());
    const long long rest = static_cast<long long>(*size) - here;
    long long bytes = rest;
    if (halvings > 0 && rest > 0) {
        const long long elem = std::max(1LL, rest / count);
        bytes = std::min(rest, (count >> halvings) * elem);
    }
    std::vector<char> buf(1 << 20);
    while (bytes > 0) {
        const std::size_t want = static_cast<std::size_t>(std::min<long long>(bytes, static_cast<long long>(buf.size())));
        const std::size_t got = std::fread(buf.data(), 1, want, f.get());
        if (got == 0) break;
        af.write(buf.data(), got);
        bytes -= static_cast<long long>(got);
    }
    if (af.commit() != 0) {
        ui.MessagePopup("File Output Error", fmt::format("{} cannot be written: {}", target, af.error()));
        return -1;
    }
    if (zipped) {
        const fs::path t(target);
        const int zr = zip1(target, t.parent_path().empty() ? "." : t.parent_path().string());
        std::remove(target.c_str());
        if (zr != 0) {
            ui.MessagePopup("File Output Error", fmt::format("{}.Z cannot be written.", target));
            return -1;
        }
    }
    return 0;
}

int write_phase_corrected_file(const std::string& in, const std::string& out, const Spectrum& s, Ui& ui) {
    if (same_file(in, out)) {
        ui.MessagePopup("File Output Error", "The corrected transient cannot be written over the file it comes from.");
        return -1;
    }
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(regular_file_size(in) ? std::fopen(in.c_str(), "rb") : nullptr,
                                                       &std::fclose);
    if (!f) {
        ui.MessagePopup("File Input Error", "Not Valid TULVA Data File Format");
        return -1;
    }
    AtomicFile af(out);
    if (!af.ok()) {
        ui.MessagePopup("File Output Error", fmt::format("{} cannot be written: {}", out, af.error()));
        return -1;
    }
    std::string line;
    bool marker = false, mode_written = false;
    while (read_header_line(f.get(), line) >= 0) {
        const bool is_marker = line.find("Data:") != std::string::npos;
        if (is_marker && !mode_written) {
            af.write("Data Storage Mode: 1\n");
            mode_written = true;
        }
        if (line.find("Data Storage Mode:") != std::string::npos) {
            line = "Data Storage Mode: 1";
            mode_written = true;
        } else if (line.find("Data Points:") != std::string::npos) {
            line = fmt::format("Data Points: {}", s.datacount);
        } else if (line.find("Storage Type:") != std::string::npos) {
            line = "Storage Type: float";
        } else if (line.find("Voltage Scale:") != std::string::npos) {
            continue;  // the samples are volts now
        }
        af.write(line);
        af.write("\n", 1);
        if (is_marker) {
            marker = true;
            break;
        }
    }
    if (!marker) {
        ui.MessagePopup("File Input Error", "No Data Marker Found");
        return -1;
    }
    af.write(s.data.data(), s.data.size() * sizeof(float));
    if (af.commit() != 0) {
        ui.MessagePopup("File Output Error", fmt::format("{} cannot be written: {}", out, af.error()));
        return -1;
    }
    return 0;
}

}  // namespace vx
