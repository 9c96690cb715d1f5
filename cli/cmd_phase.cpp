// vantorix phase FILE: absorption-mode phasing of a transient. Reads the
// excitation from the experiment script (or the stored "Phase Parameters:"),
// searches the zero-order constant, rotates, removes the baseline, optionally
// rephases section by section, and writes the absorption spectrum, the
// dispersion spectrum and/or a data file carrying the terms found.
#include <cmath>
#include <iostream>
#include <numbers>
#include <sstream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "phase_bruker.hpp"
#include "save_frequency.hpp"
#include "formats/open_file.hpp"
#include "formats/spectrum_export.hpp"
#include "formats/tulva_reader.hpp"
#include "phasing/phase_command.hpp"
#include "phasing/phase_modes.hpp"
#include "phasing/phasing_callback.hpp"
#include "workspace/processing.hpp"

namespace vx::cli {
namespace {

struct PhaseCliOptions {
    std::string file, out, dispersion, write_terms, inverse_out, divide, save_vfd;
    bool exact_count = false;
    std::string chirp_seek = "auto";  // Bruker: auto (searched around the method) or none
    long long leading_points = -1;    // Bruker: leading samples left out
    int widths = 0;                   // lines in the magnitude / absorption width table
    std::string method = "iterate", form = "final", apodization = "none", terms, baseline = "dips";
    bool exclude_excite = false, zero_dc = false, roll = false, harmonic3 = false, extra_point = false;
    bool special = false, test = false, json = false, overwrite = false, transfer = false;
    int truncations = 0, zerofills = 1, rephase = 0, threads = 0, polarity = 0;
    double rephase_sn = 3.0, baseline_scaler = 3.0;
    double constant = NAN;
    // The switches of the expert panel.
    long long skip_points = 0;
    std::string background, ask, score_range;
    bool autozero_data = false, autozero_excite = false, simple = false, iterate_c = false;
    bool transform_only = false, true_axis = false;
    double extra_data_ms = 0.0, extra_excite_ms = 0.0;
};

// "A,B" -> two finite numbers.
bool parse_pair(const std::string& text, double& a, double& b) {
    const auto comma = text.find(',');
    if (comma == std::string::npos) return false;
    try {
        std::size_t u1 = 0, u2 = 0;
        const std::string x = text.substr(0, comma), y = text.substr(comma + 1);
        a = std::stod(x, &u1);
        b = std::stod(y, &u2);
        return u1 == x.size() && u2 == y.size() && std::isfinite(a) && std::isfinite(b);
    } catch (...) {
        return false;
    }
}

int write_export(Context& ctx, int slot, const std::string& path) {
    Workspace& ws = ctx.ws;
    const int saved = ws.active_panel;
    ws.active_panel = slot;
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    const int domain = s.domain;
    if (s.domain == DOMAIN_MASS) s.domain = DOMAIN_FREQUENCY;
    int rc = -1;
    switch (export_kind_of(path)) {
        case RAW_TEXT: rc = write_spectrum_text(s, path, ctx.ui); break;
        case RAW_BINARY: rc = write_spectrum_binary(s, path, ctx.ui); break;
        case RAW_BLOCK: rc = SaveRawSpectrum(ws, RAW_BLOCK, path, ctx.ui); break;
        default:
            ctx.ui.MessagePopup("Operator Error", fmt::format("The output name {} must end in .csv, .bin or .xy.bin.", path));
            break;
    }
    s.domain = domain;
    ws.active_panel = saved;
    return rc;
}

int run_phase(Context& ctx, const PhaseCliOptions& o) {
    for (const std::string* p : {&o.out, &o.dispersion})
        if (!p->empty() && (export_kind_of(*p) < 0 || export_kind_of(*p) == EXPORT_WAVE)) {
            ctx.ui.MessagePopup("Operator Error", fmt::format("The output name {} must end in .csv, .bin or .xy.bin.", *p));
            return 1;
        }
    if (ctx.load_settings() < 0) return 1;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();
    ctx.ui.default_confirm = o.overwrite;
    if (o.json) ctx.ui.quiet_console = true;

    PhaseRunOptions r;
    r.method = o.method == "analytic120" ? PHASE_ANALYTIC_120
               : o.method == "analytic90" ? PHASE_ANALYTIC_90
               : o.method == "vector"     ? PHASE_VECTOR
                                          : PHASE_ITERATE;
    r.initial_form = o.form == "initial";
    r.polarity = o.polarity;
    r.apodization = o.apodization == "hanning" ? 1 : o.apodization == "hamming" ? 2 : o.apodization == "blackman-harris" ? 3 : 0;
    r.exclude_excite = o.exclude_excite;
    r.truncations = o.truncations;
    r.zerofills = o.zerofills;
    r.zero_dc = o.zero_dc;
    r.roll = o.roll;
    r.harmonic3 = o.harmonic3;
    r.extra_point = o.extra_point;
    r.special = o.special;
    r.test = o.test;
    r.baseline = o.baseline != "none";
    r.median_baseline = o.baseline == "median";
    r.dispersion = !o.dispersion.empty();
    r.rephase_sections = o.rephase;
    r.rephase_sn = o.rephase_sn;
    r.baseline_scaler = o.baseline_scaler;
    r.workers = o.threads;
    r.chirp_seek = o.chirp_seek == "none" ? 0 : -1;
    r.leading_points = o.leading_points;
    if (!o.terms.empty()) {
        std::vector<double> t;
        std::stringstream ss(o.terms);
        std::string item;
        while (std::getline(ss, item, ',')) {
            try {
                std::size_t used = 0;
                t.push_back(std::stod(item, &used));
                if (used != item.size() || !std::isfinite(t.back())) throw std::invalid_argument(item);
            } catch (...) {
                ctx.ui.MessagePopup("Operator Error", fmt::format("--terms takes three numbers A,B,C, not \"{}\".", o.terms));
                return 1;
            }
        }
        if (t.size() != 3) {
            ctx.ui.MessagePopup("Operator Error", fmt::format("--terms takes three numbers A,B,C, not \"{}\".", o.terms));
            return 1;
        }
        r.terms = t;
    }
    if (std::isfinite(o.constant)) r.constant_degrees = o.constant;
    if (!o.score_range.empty() && !parse_pair(o.score_range, r.score_lo, r.score_hi)) {
        ctx.ui.MessagePopup("Operator Error",
                            fmt::format("--score-range takes two frequencies LO,HI in Hz, not \"{}\".", o.score_range));
        return 1;
    }
    PhasingPanelValues pv;
    pv.process.mode = PROCESS_ABSORPTION;
    pv.skip_points = o.skip_points;
    pv.subtract_background = !o.background.empty();
    pv.autozero_data = o.autozero_data;
    pv.autozero_excite = o.autozero_excite;
    pv.extra_data_ms = o.extra_data_ms;
    pv.extra_excite_ms = o.extra_excite_ms;
    pv.simple = o.simple;
    pv.iterate_c = o.iterate_c;
    pv.batch = o.transform_only;
    pv.debug = ctx.ui.verbose;
    if (!o.ask.empty()) {
        // The five answers of the "T2" questions, in their order.
        pv.test2 = true;
        std::stringstream ss(o.ask);
        std::string item;
        while (std::getline(ss, item, ',')) ctx.ui.preset_prompts.push_back(item);
        if (ctx.ui.preset_prompts.size() != 5) {
            ctx.ui.MessagePopup("Operator Error",
                                fmt::format("--ask takes five answers START_KHZ,END_KHZ,RATE,DELAY_MS,T|F, not \"{}\".",
                                            o.ask));
            return 1;
        }
    }

    const int slot = open_any_file(ws, o.file, ctx.ui);
    if (slot < 0) return 1;
    ws.active_panel = slot;
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    const double relativex = s.relativex;

    if (o.autozero_excite && o.background.empty()) {
        ctx.ui.MessagePopup("Operator Error", "--autozero-excite works on the --background file.");
        return 1;
    }
    int background = -1;
    if (!o.background.empty()) {
        background = open_any_file(ws, o.background, ctx.ui);
        if (background < 0) return 1;
        ws.active_panel = slot;
    }

    if (!o.divide.empty()) {
        // Complex division (or the transfer function) by a blank transient.
        const int blank = open_any_file(ws, o.divide, ctx.ui);
        if (blank < 0) return 1;
        PhaseProcessOptions po;
        po.mode = o.transfer ? PROCESS_TRANSFER : PROCESS_COMPLEX_DIVISION;
        po.true_axis = o.true_axis;
        int second = -1;
        if (phasing_process_command(ws, slot, blank, po, true, ctx.ui, nullptr, &second) < 0) return 1;
        if (!o.out.empty() && write_export(ctx, slot, o.out) < 0) return 1;
        if (!o.dispersion.empty() && second >= 0 && write_export(ctx, second, o.dispersion) < 0) return 1;
        const Spectrum& q = ws.panels[static_cast<std::size_t>(slot)].spectrum;
        const char* mode = o.transfer ? "transfer" : "division";
        if (o.json) {
            nlohmann::json j{{"file", o.file}, {"blank", o.divide}, {"mode", mode}, {"datacount", q.datacount},
                             {"hzppt", q.hzppt}};
            if (!o.out.empty()) j["output"] = o.out;
            if (!o.dispersion.empty()) j["second"] = o.dispersion;
            std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
        } else {
            std::cout << fmt::format("{} of {} by {}: {} points, {} Hz per point\n", mode, o.file, o.divide,
                                     q.datacount, q.hzppt);
            if (!o.out.empty()) std::cout << fmt::format("wrote {}\n", o.out);
            if (!o.dispersion.empty()) std::cout << fmt::format("wrote {}\n", o.dispersion);
        }
        return 0;
    }

    if (!o.inverse_out.empty()) {
        if (phase_inverse(s, o.extra_point, ctx.ui) < 0) return 1;
        if (o.inverse_out.size() > 4 && o.inverse_out.ends_with(".dat")) {
            if (write_phase_corrected_file(o.file, o.inverse_out, s, ctx.ui) < 0) return 1;
        } else if (write_export(ctx, slot, o.inverse_out) < 0) {
            return 1;
        }
        if (!o.json) std::cout << fmt::format("wrote {} (phase-corrected transient, {} samples)\n", o.inverse_out, s.datacount);
        else std::cout << nlohmann::json{{"inverse", o.inverse_out}, {"datacount", s.datacount}, {"storagemode", s.storagemode}}.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
        return 0;
    }

    pv.process.run = r;
    PhasingOutcome outcome;
    const int rc = PhasingCallback(ws, slot, background, -1, pv, ctx.ui, &outcome);
    if (rc < 0) return 1;
    const PhaseRunResult& res = outcome.run;
    if (o.simple || o.transform_only) {
        // simple_phase and the transform alone ("B") report their own way.
        if (!o.out.empty() && write_export(ctx, slot, o.out) < 0) return 1;
        const SimplePhaseResult& sp = outcome.simple;
        if (o.json) {
            nlohmann::json j{{"file", o.file}, {"datacount", s.datacount}, {"hzppt", s.hzppt}};
            if (o.simple) {
                j.update({{"form", "simple"},
                          {"zeroorder", s.Zeroorder},
                          {"zerodegrees", s.ZeroDegrees},
                          {"firstorder", s.OptimizedFirstorder},
                          {"secondorder", s.OptimizedSecondorder},
                          {"score", sp.score},
                          {"drop", sp.drop},
                          {"best_degrees", sp.best_degrees},
                          {"sweeprate", sp.sweeprate},
                          {"total_delay", sp.total_delay},
                          {"band_start", sp.band_start},
                          {"band_end", sp.band_end}});
            } else {
                j["form"] = "transform";
            }
            if (!o.out.empty()) j["output"] = o.out;
            std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
        } else if (o.simple) {
            std::cout << fmt::format("Form simple\nZeroorder {:.6f}\nZeroDegrees {}\n", s.Zeroorder, s.ZeroDegrees);
            std::cout << fmt::format("PhaseScore {:f}\nDrop {:f}\n", sp.score, sp.score != 0.0 ? sp.drop / sp.score : 0.0);
            std::cout << fmt::format("Sweeprate {:f}\nTotal_delay {:f}\n", sp.sweeprate, sp.total_delay);
            std::cout << fmt::format("Band {} to {}\n", sp.band_start, sp.band_end);
            if (!o.out.empty()) std::cout << fmt::format("wrote {}\n", o.out);
        } else {
            std::cout << fmt::format("Transform only: {} points, {} Hz per point\n", s.datacount, s.hzppt);
            if (!o.out.empty()) std::cout << fmt::format("wrote {}\n", o.out);
        }
        return 0;
    }

    if (!o.out.empty() && write_export(ctx, slot, o.out) < 0) return 1;
    if (!o.save_vfd.empty() && save_frequency_file(ctx, s, o.save_vfd, o.file, false, o.exact_count) < 0) return 1;
    if (!o.dispersion.empty()) {
        std::vector<float> keep = s.data;
        s.data = res.dispersion;
        const int drc = write_export(ctx, slot, o.dispersion);
        s.data = std::move(keep);
        if (drc < 0) return 1;
    }
    const BrukerWidths widths = bruker_widths_of(s, res, o.widths);
    if (!o.write_terms.empty()) {
        const double u = o.special ? relativex : 0.0;
        const double e = o.extra_point ? 1.0 / s.dbandwidth : 0.0;
        const StoredTerms t = stored_terms_of(res.model, s.lowfreq, s.highfreq, u + e);
        if (res.model.harmonic != 1.0) {
            ctx.ui.MessagePopup("Operator Error", "Terms of a third-harmonic run cannot be stored in a data file.");
            return 1;
        }
        if (Save_Tulva_Phase_Coeff(o.file, o.write_terms, t.sweep, t.delay, t.constant, t.final_freq, t.initial_freq,
                                   0.0, o.extra_point ? 1 : 0, s.dbandwidth, 0, ctx.ui) < 0)
            return 1;
    }

    const double drop_ratio = res.score != 0.0 ? res.drop / res.score : 0.0;
    if (o.json) {
        nlohmann::json j{{"file", o.file},
                         {"form", res.form},
                         {"zeroorder", s.Zeroorder},
                         {"zerodegrees", s.ZeroDegrees},
                         {"firstorder", s.OptimizedFirstorder},
                         {"secondorder", s.OptimizedSecondorder},
                         {"applied_constant", res.model.Cterm},
                         {"applied_degrees", res.applied_degrees},
                         {"score", res.score},
                         {"drop", res.drop},
                         {"testfit", res.testfit},
                         {"band_start", res.band_start},
                         {"band_end", res.band_end},
                         {"searched", res.searched},
                         {"evaluations", res.evaluations},
                         {"reference_hz", res.model.reference},
                         {"delay_s", res.model.bracket},
                         {"datacount", s.datacount},
                         {"hzppt", s.hzppt}};
        if (!res.section_constant.empty()) {
            j["sections"] = nlohmann::json::array();
            for (std::size_t i = 0; i < res.section_constant.size(); ++i)
                j["sections"].push_back({{"initial", res.section_initial[i]},
                                         {"final", res.section_final[i]},
                                         {"constant", res.section_constant[i]}});
        }
        add_bruker_json(j, res, widths);
        if (!o.out.empty()) j["output"] = o.out;
        if (!o.write_terms.empty()) j["terms_file"] = o.write_terms;
        if (!o.save_vfd.empty()) j["vfd"] = o.save_vfd;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else {
        std::cout << fmt::format("Form {}\n", res.form);
        std::cout << fmt::format("Zeroorder {:.6f}\nZeroDegrees {}\n", s.Zeroorder, s.ZeroDegrees);
        std::cout << fmt::format("C Term {}\n", res.applied_degrees);
        std::cout << fmt::format("OptimizedFirstorder {:.9e}\nOptimizedSecondorder {:.9e}\n", s.OptimizedFirstorder,
                                 s.OptimizedSecondorder);
        std::cout << fmt::format("PhaseScore {:.8e}\nDrop {:f}\n", res.score, drop_ratio);
        std::cout << fmt::format("Band {} to {}\n", res.band_start, res.band_end);
        for (std::size_t i = 0; i < res.section_constant.size(); ++i)
            std::cout << fmt::format("Section {} ({} to {}): {:.4f} rad\n", i, res.section_initial[i],
                                     res.section_final[i], res.section_constant[i]);
        print_bruker_text(std::cout, res, widths);
        if (!o.out.empty()) std::cout << fmt::format("wrote {} ({} points, {} Hz per point)\n", o.out, s.datacount, s.hzppt);
        if (!o.write_terms.empty()) std::cout << fmt::format("wrote {}\n", o.write_terms);
        if (!o.save_vfd.empty()) std::cout << fmt::format("wrote {}\n", o.save_vfd);
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<PhaseCliOptions>();
    auto* sub = app.add_subcommand("phase", "Absorption-mode phasing of a transient from its excitation");
    sub->add_option("file", o->file, "Tulva data file (.dat, .new, .Z)")->required();
    sub->add_option("-o,--output", o->out, "Absorption spectrum: .csv, .bin (raw float32) or .xy.bin");
    sub->add_option("--method", o->method,
                    "iterate (the degree ladder, default), vector (weighted vector sum of the peaks: not fooled by "
                    "few ions or short transients), analytic120 or analytic90 (+-45 degrees)")
        ->check(CLI::IsMember({"iterate", "vector", "analytic120", "analytic90"}));
    sub->add_option("--form", o->form, "final: phase referred to the final frequency; initial: to the start frequency")
        ->check(CLI::IsMember({"final", "initial"}));
    sub->add_option("--polarity", o->polarity, "Polarity of the analytical constant (0 or 1)")->check(CLI::Range(0, 1));
    sub->add_option("--apodization", o->apodization, "Half window: none, hanning, hamming, blackman-harris")
        ->check(CLI::IsMember({"none", "hanning", "hamming", "blackman-harris"}));
    sub->add_flag("--exclude-excite", o->exclude_excite, "Leave the excitation period out of the half window");
    sub->add_option("--truncations", o->truncations, "Halvings of the transient")->check(CLI::Range(0, 20));
    sub->add_option("--zerofills", o->zerofills, "Doublings of the length (default 1)")->check(CLI::Range(0, 4));
    sub->add_flag("--zero-dc", o->zero_dc, "Subtract the mean of the transient first");
    sub->add_flag("--roll", o->roll, "Correct baseline roll (join the baseline dips by lines)");
    sub->add_option("--baseline", o->baseline,
                    "dips: the baseline through the dips between the peaks (the classic step, default); "
                    "median: window medians, which keep the noise centred on zero; none")
        ->check(CLI::IsMember({"dips", "median", "none"}));
    sub->add_flag("--harmonic3", o->harmonic3, "Detection at the third harmonic");
    sub->add_flag("--extra-point", o->extra_point, "One extra sampling interval belongs to the delay");
    sub->add_flag("--special", o->special, "Take the delay correction from the header's RelativeX");
    sub->add_flag("--test", o->test, "Ignore stored Phase Parameters and search again");
    sub->add_option("--rephase", o->rephase, "Rephase the band in this many sections")->check(CLI::Range(0, 1000));
    sub->add_option("--rephase-sn", o->rephase_sn, "S/N threshold of the section search (default 3)");
    sub->add_option("--baseline-scaler", o->baseline_scaler, "Noise multiple of the section baseline (default 3)");
    auto* terms = sub->add_option("--terms", o->terms, "Apply A,B,C (rad/Hz^2, rad/Hz, rad) with no search");
    auto* cons = sub->add_option("--constant", o->constant, "Apply this zero-order constant in degrees, no search");
    terms->excludes(cons);
    add_bruker_phase_options(sub, o->chirp_seek, o->leading_points, o->widths);
    sub->add_option("--dispersion", o->dispersion, "Also write the dispersion (imaginary) spectrum");
    sub->add_option("--save", o->save_vfd, "Store the phased spectrum as a frequency data file (.vfd)");
    sub->add_flag("--exact-count", o->exact_count,
                  "With --save: store the spectrum's own length (no zero-fill/truncation counts)");
    sub->add_option("--write-terms", o->write_terms, "Write a copy of FILE with the Phase Parameters found");
    sub->add_option("--inverse", o->inverse_out,
                    "Rotate and go back to a phase-corrected transient (.dat copy of FILE, or an export)");
    sub->add_option("--divide", o->divide,
                    "Complex division by a blank transient of the same length: the real quotient to -o, the "
                    "imaginary one to --dispersion; no phase model needed");
    sub->add_flag("--transfer", o->transfer, "With --divide: the transfer function, magnitude to -o, phase (rad) to --dispersion");
    sub->add_option("--threads", o->threads, "Score workers (default: twice the processors, at most 4)")
        ->check(CLI::Range(1, 8));
    sub->add_option("--skip-points", o->skip_points, "Skip Data Points: drop this many leading samples (keeps half)")
        ->check(CLI::Range(0LL, 1LL << 31));
    sub->add_option("--background", o->background,
                    "Subtract Background File: this transient (same length) up to the end of the excitation");
    sub->add_flag("--autozero-data", o->autozero_data, "Auto Zero Data File: blank the excitation period");
    sub->add_flag("--autozero-excite", o->autozero_excite,
                  "Auto Zero Excite File: keep only the excitation period of the --background file");
    sub->add_option("--extra-data", o->extra_data_ms, "Extra Time (ms) of --autozero-data");
    sub->add_option("--extra-excite", o->extra_excite_ms, "Extra Time (ms) of --autozero-excite");
    sub->add_flag("--simple", o->simple, "Simple: simple_phase (its own window; C = -+45 degrees)");
    sub->add_flag("--iterate-c", o->iterate_c, "With --simple: search C in 360 one-degree steps");
    sub->add_flag("--transform-only", o->transform_only, "B: stop after the phased transform (the real part)");
    sub->add_option("--ask", o->ask,
                    "T2: the excitation given instead of the script, as the answers "
                    "START_KHZ,END_KHZ,RATE_HZ_PER_US,DELAY_MS,T|F (extra point)");
    sub->add_option("--score-range", o->score_range, "Score Freq Range: LO,HI in Hz instead of the excited band");
    sub->add_flag("--true-axis", o->true_axis,
                  "With --transfer: frequency step 2 BW / count (the samples') instead of TransferFunction's BW / count");
    sub->add_flag("--overwrite", o->overwrite, "Answer yes when asked to overwrite an existing .xy.bin file");
    sub->add_flag("--json", o->json, "Print the terms found as one JSON object");
    sub->callback([&ctx, o] { ctx.exit_code = run_phase(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
