#include "phasing/phasing_callback.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <optional>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "experiment/excite_script.hpp"
#include "phasing/phase_function.hpp"
#include "phasing/phase_run.hpp"
#include "phasing/phase_search.hpp"
#include "platform/ui.hpp"
#include "workspace/display.hpp"
#include "workspace/processing.hpp"
#include "workspace/workspace.hpp"

namespace vx {
namespace {

constexpr double PI = std::numbers::pi;
constexpr const char* PANEL_TITLE = "Phasing the Data";

bool real_transient(const Spectrum& s) { return s.domain == DOMAIN_TIME && s.detectmode != DETECT_QUADRATURE; }

std::optional<double> parse_number(const std::optional<std::string>& answer) {
    if (!answer) return std::nullopt;
    const char* b = answer->c_str();
    char* e = nullptr;
    const double v = std::strtod(b, &e);
    if (e == b || !std::isfinite(v)) return std::nullopt;
    while (*e == ' ' || *e == '\t') ++e;
    if (*e != '\0') return std::nullopt;
    return v;
}

}  // namespace

int SkipDataPoints(Spectrum& s, long long skip, Ui& ui) {
    if (skip <= 0) return 0;
    const long long n = std::min<long long>(s.datacount, static_cast<long long>(s.data.size()));
    long long keep = 0;
    if (skip <= n / 2)
        keep = n / 2;
    else if (skip <= n / 4)  // never reached after the test above; the panel has always had it
        keep = n / 4;
    else {
        ui.MessagePopup(PANEL_TITLE,
                        fmt::format("Skip Data Points {} is more than half of the {} samples.", skip, n));
        return -4;
    }
    s.data.erase(s.data.begin(), s.data.begin() + skip);
    s.data.resize(static_cast<std::size_t>(keep));
    s.data.shrink_to_fit();
    s.datacount = static_cast<std::int32_t>(keep);
    s.storedcount = 0;
    return 0;
}

int SubtractFile(Spectrum& data, const Spectrum& background, long long excite_points) {
    if (data.datacount != background.datacount || data.data.size() != background.data.size()) return -1;
    if (excite_points < 0 || excite_points > static_cast<long long>(data.data.size())) return -2;
    for (long long i = 0; i < excite_points; ++i)
        data.data[static_cast<std::size_t>(i)] -= background.data[static_cast<std::size_t>(i)];
    return 0;
}

void AutoZero(Spectrum* data, Spectrum* excite, double e0, double extra_data, double extra_excite) {
    if (data && data->dbandwidth > 0.0)
        Zeroout(*data, 0.0, std::ceil(2.0 * (e0 + extra_data) * data->dbandwidth));
    if (excite && excite->dbandwidth > 0.0)
        Zeroout(*excite, std::max(0.0, std::ceil(2.0 * (e0 - extra_excite) * excite->dbandwidth)),
                static_cast<double>(excite->data.size()));
}

bool prompt_phase_parameters(Ui& ui, PhaseRunOptions::Excitation& out, bool& extra_point) {
    constexpr const char* title = "Please provide the necessary phasing parameters";
    const auto start = parse_number(ui.PromptPopup(title, "Start frequency (KHz)", 32));
    if (!start) return false;
    const auto end = parse_number(ui.PromptPopup(title, "End frequency (KHz)", 32));
    if (!end) return false;
    const auto rate = parse_number(ui.PromptPopup(title, "Chrip rate (Hz/us)", 32));
    if (!rate) return false;
    const auto delay = parse_number(ui.PromptPopup(title, "Delay (ms)", 32));
    if (!delay) return false;
    const auto extra = ui.PromptPopup(title, "Extra Point (T/F)", 8);
    if (!extra) return false;
    out.lowfreq = *start * 1000.0;
    out.highfreq = *end * 1000.0;
    out.sweeprate = *rate;  // stays in Hz per microsecond
    out.delay = *delay / 1000.0;
    extra_point = !extra->empty() && (extra->front() == 'T' || extra->front() == 't');
    return true;
}

bool excite_band_points(const Spectrum& s, double harmonic, long long& start, long long& end) {
    start = end = 0;
    if (!phase_value_usable(s.lowfreq) || !phase_value_usable(s.highfreq) || !(s.hzppt > 0.0) || s.datacount <= 0) return false;
    phase_band(s.lowfreq, s.highfreq, harmonic, s.hzppt, s.datacount, start, end);
    return end > start;
}

int simple_phase(Spectrum& s, bool roll, bool feng, bool iterate, int truncations, int fills, Ui& ui,
                 SimplePhaseResult* result) {
    SimplePhaseResult local;
    SimplePhaseResult& r = result ? *result : local;
    r = SimplePhaseResult{};
    if (const int rc = excitation_ready(s, ui); rc < 0) return rc;
    if (s.datacount < 2048 || static_cast<std::size_t>(s.datacount) > s.data.size()) {
        ui.MessagePopup("Phasing Error", fmt::format("{} samples are too few to phase.", s.datacount));
        return -1;
    }
    // The preparation of its own: halvings, mean, a cosine falling from the
    // first sample to zero at the last, zero-fills.
    if (truncations > 0) Truncate(s, truncations);
    Baseline_Correct(s);
    const std::size_t n = static_cast<std::size_t>(s.datacount);
    for (std::size_t i = 0; i < n; ++i)
        s.data[i] = static_cast<float>(s.data[i] * (std::cos(PI * static_cast<double>(i) / static_cast<double>(n - 1)) + 1.0) * 0.5);
    if (fills > 0 && Zerofill(s, fills, ui) < 0) return -1;
    if (Fourier_Transform_Phased(s, 0, ui) < 0) return -1;
    const long long N = s.datacount;

    PhaseInputs in;
    in.lowfreq = s.lowfreq;
    in.highfreq = s.highfreq;
    in.sweeprate = s.sweeprate;
    in.delay = s.delay;
    in.excitestart = std::max(0.0, s.exciteduration);
    in.bandwidth = s.dbandwidth;
    PhaseModel m = phase_model_for(feng ? PhaseEntry::SimplePhaseFeng : PhaseEntry::SimplePhase, in);
    const double R = signed_sweep_rate(s.sweeprate, s.lowfreq, s.highfreq);
    r.sweeprate = R;
    r.total_delay = m.bracket;

    long long start = 0, end = 0;
    phase_band(s.lowfreq, s.highfreq, 1.0, s.hzppt, N, start, end);
    r.band_start = start;
    r.band_end = end;
    const double testfit = phase_threshold(s.realdata, s.imagdata, start, end - 1);
    build_phase_curve(m, s.hzppt, static_cast<std::size_t>(N), 0, static_cast<std::size_t>(N), s.phase);
    std::vector<float> P, Q;
    turn_by_model(s.realdata, s.imagdata, m, s.hzppt, P, Q);

    // The score of simple_phase sums the values themselves, not their squares.
    auto score = [&](double c, double& drop) {
        const double cc = std::cos(c), sc = std::sin(c);
        double sum = 0.0;
        drop = 0.0;
        for (long long k = start; k < end; ++k) {
            const double y = P[static_cast<std::size_t>(k)] * cc - Q[static_cast<std::size_t>(k)] * sc;
            if (y > testfit)
                sum += y;
            else if (y < -testfit)
                drop += y;
        }
        return sum;
    };
    double C = 0.0;
    if (iterate) {
        double best_score = 0.0, best_drop = 0.0;
        for (int d = -180; d < 180; ++d) {
            ui.Console(fmt::sprintf("m = %i\n", d));
            if (d == 0 || d == 100 || d == -100) ui.ProcessSystemEvents();
            double drop = 0.0;
            const double sc = score(d * PI / 180.0, drop);
            if (sc > best_score) {
                best_score = sc;
                best_drop = drop;
                r.best_degrees = d;
            }
        }
        C = r.best_degrees == 361 ? 0.0 : r.best_degrees * PI / 180.0;
        r.score = best_score;
        r.drop = best_drop;
    } else {
        C = R > 0.0 ? -PI / 4.0 : PI / 4.0;
        r.score = score(C, r.drop);
    }
    r.constant = C;
    rotate_turned(P, Q, C, s.data, nullptr);
    P = std::vector<float>();
    Q = std::vector<float>();
    if (roll) {
        std::vector<double> b = baseline_minima(s.data, 1.0);
        join_baseline(b);
        for (std::size_t i = 1; i + 1 < s.data.size(); ++i) s.data[i] = static_cast<float>(s.data[i] - b[i]);
    }
    // Iterated against theoretical phase at nine points across the band.
    const double theory = R > 0.0 ? PI / 4.0 : -PI / 4.0;
    for (int i = 1; i <= 9 && end > start; ++i) {
        const long long k = start + (end - 1 - start) * i / 10;
        const double f = static_cast<double>(k) * s.hzppt;
        const double c = s.phase[static_cast<std::size_t>(k)];
        ui.Console(fmt::sprintf(
            "Frequency %.6f and is located at datapoint %i. Iterated Phase is %.6f. Theoretical Phase is %.6f.\n", f,
            static_cast<int>(k), c + C, c + theory));
    }
    s.Zeroorder = C;
    s.ZeroDegrees = static_cast<std::int32_t>(std::lround(C * 180.0 / PI));
    s.OptimizedSecondorder = m.Aterm;
    s.OptimizedFirstorder = m.Bterm;
    s.phasescale = r.score;
    s.Phased_Datacount = static_cast<std::int32_t>(N);
    return 0;
}

int PhasingCallback(Workspace& ws, int data_slot, int background_slot, int blank_slot, const PhasingPanelValues& v,
                    Ui& ui, PhasingOutcome* outcome) {
    PhasingOutcome local;
    PhasingOutcome& out = outcome ? *outcome : local;
    out = PhasingOutcome{};
    auto open = [&](int slot) {
        return slot >= 0 && slot < MAX_PANELS && ws.panels[static_cast<std::size_t>(slot)].active != 0;
    };
    if (!open(data_slot)) {
        ui.MessagePopup("Operator Error", "No Spectrum Chosen");
        return -1;
    }
    if (background_slot == data_slot || !open(background_slot)) background_slot = -1;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(data_slot)];
    Spectrum& s = p.spectrum;
    // The steps on the transient need one; the modes check their own inputs.
    const bool transient_steps = v.skip_points != 0 || v.subtract_background || v.autozero_data;
    if (transient_steps && !real_transient(s)) {
        ui.MessagePopup("Phasing Error", "Only a real (direct or heterodyne) transient can be phased.");
        return -1;
    }
    PhaseProcessOptions po = v.process;
    PhaseRunOptions& run = po.run;
    if (run.workers <= 0) run.workers = std::clamp(ws.settings.thread_count, 1, 8);
    if (v.debug) ui.Console(fmt::format("PhasingCallback: mode {}, extra point {}\n", po.mode, run.extra_point ? 1 : 0));

    // The transient as it was when a step before the transform changes it, so
    // that a failed run leaves the panel's data alone.
    std::optional<Spectrum> before;
    if (transient_steps) before = s;
    auto fail = [&](int rc) {
        if (before) s = std::move(*before);
        return rc;
    };
    auto show = [&](int item) {
        ws.phased_data = data_slot;
        Initialize_Display(ws, data_slot);
        p.moveoffset = 0.0;
        PlotMenuCommand(p, item, 0.0, 0.0, ws.settings, ui);
    };

    // 1. "Simple": simple_phase on the transient as it stands, then stop.
    if (v.simple) {
        const int rc = simple_phase(s, run.roll, run.initial_form, v.iterate_c, run.truncations, run.zerofills, ui,
                                    &out.simple);
        if (rc < 0) return fail(rc);
        show(PLOT_MZ);
        long long a = 0, b = 0;
        if (excite_band_points(s, 1.0, a, b)) {
            p.prevmin = p.xmin;
            p.prevmax = p.xmax;
            p.xmin = static_cast<double>(a);
            p.xmax = static_cast<double>(b);
            out.zoomed = true;
            out.zoom_start = a;
            out.zoom_end = b;
        }
        return 0;
    }

    // 2. Skipped points.
    if (v.skip_points != 0) {
        const int rc = SkipDataPoints(s, v.skip_points, ui);
        if (rc < 0) return fail(rc);
    }
    // 3, 4. The background up to the end of the excitation, and auto zero. The
    // excite file is worked on as a copy: its panel keeps what was read.
    const bool want_excite = v.subtract_background || v.autozero_excite;
    if (want_excite && background_slot < 0) {
        ui.MessagePopup(PANEL_TITLE, "Open a background file with \"Subtract Background File\" first.");
        return fail(-1);
    }
    if (v.subtract_background || v.autozero_data || v.autozero_excite) {
        std::optional<Spectrum> excite;
        if (background_slot >= 0) excite = ws.panels[static_cast<std::size_t>(background_slot)].spectrum;
        const double e0 = GetExciteTime2(s.filename, nullptr, nullptr, nullptr, nullptr, nullptr, ui);
        if (e0 < 0.0) return fail(-1);
        AutoZero(v.autozero_data ? &s : nullptr, (v.autozero_excite && excite) ? &*excite : nullptr, e0,
                 v.extra_data_ms * 0.001, v.extra_excite_ms * 0.001);
        if (v.subtract_background) {
            // An excitation longer than the data is refused below; the count is
            // limited first so that an absurd script cannot overflow it.
            const double span = std::ceil(2.0 * e0 * s.dbandwidth);
            const double size = static_cast<double>(s.data.size());
            const long long points = span > size ? static_cast<long long>(size) + 1
                                                 : static_cast<long long>(std::max(0.0, span));
            const int rc = SubtractFile(s, *excite, points);
            if (rc == -1) {
                ui.MessagePopup(PANEL_TITLE,
                                fmt::format("The background file has {} points and the data file {}: they must be "
                                            "the same length.",
                                            excite->datacount, s.datacount));
                return fail(-1);
            }
            if (rc == -2) {
                ui.MessagePopup(PANEL_TITLE, fmt::format("The excitation ({} points) is longer than the data ({} points).",
                                                         points, s.datacount));
                return fail(-2);
            }
            out.background_used = true;
        }
    }

    // "T2" always, "T" when the script leaves a value out: the five questions.
    if (po.mode == PROCESS_ABSORPTION && (v.test2 || run.test)) {
        bool ask = v.test2;
        if (!ask) {
            double hi = 0.0, lo = 0.0, rate = 0.0, delay = 0.0, bw = 0.0;
            if (GetExciteTime4(s.filename, &hi, &lo, &rate, &delay, &bw, 1, ui) < 0.0) return fail(-1);
            ask = hi == 0.0 || lo == 0.0 || rate == 0.0 || delay == 0.0;
        }
        if (ask) {
            PhaseRunOptions::Excitation e;
            bool extra = run.extra_point;
            if (!prompt_phase_parameters(ui, e, extra)) {
                insufficient_information(ui);
                return fail(-15);
            }
            run.excitation = e;
            run.extra_point = extra;
            run.test = true;
        }
    }

    // "I": back to a phase-corrected transient; no truncation, window or fill.
    if (v.inverse) {
        const int rc = phase_inverse(s, run.extra_point, ui);
        if (rc < 0) return fail(rc);
        out.inverse_done = true;
        Initialize_Display(ws, data_slot);
        PlotMenuCommand(p, PLOT_TIME, 0.0, 0.0, ws.settings, ui);
        return 0;
    }

    // "M" and "B": the phased transform and no search; the manual panel
    // rotates realdata / imagdata from here.
    if (po.mode == PROCESS_ABSORPTION && (v.manual || v.batch)) {
        run.transform_only = true;
        const int rc = phase_spectrum(s, run, ui, &out.run);
        if (rc < 0) return fail(rc);
        out.stopped_after_transform = true;
        show(PLOT_MZ);
        return 0;
    }

    int second = -1;
    const int rc = phasing_process_command(ws, data_slot, blank_slot, po, v.dispersion, ui, &out.run, &second);
    if (rc < 0) return fail(rc);
    out.dispersion_slot = second;

    // "Zoom to Excite Conditions": the excited band (the whole of a Bruker
    // spectrum); "T" with entered values zooms to them the same way.
    if (po.mode == PROCESS_ABSORPTION && (v.zoom_excite || run.excitation)) {
        long long a = out.run.band_start, b = out.run.band_end;
        if (s.filetype == FILETYPE_BRUKER) {
            a = 0;
            b = s.datacount;
        } else if (!excite_band_points(s, run.harmonic3 ? 3.0 : 1.0, a, b)) {
            a = out.run.band_start;
            b = out.run.band_end;
        }
        if (b > a) {
            p.prevmin = p.xmin;
            p.prevmax = p.xmax;
            p.xmin = static_cast<double>(a);
            p.xmax = static_cast<double>(b);
            out.zoomed = true;
            out.zoom_start = a;
            out.zoom_end = b;
        }
    }
    return 0;
}

}  // namespace vx
