// vantorix peaks FILE -o OUT.pks: processes a transient (or takes a spectrum as
// read), runs the traditional search or the reborn picker with the analysis
// panel's settings, and writes the peak list (.pks batch form, the table's form,
// or CSV).
#include <cmath>
#include <filesystem>
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "formats/peak_list.hpp"
#include "formats/open_file.hpp"
#include "formats/tulva_reader.hpp"
#include "peaks/find_peaks.hpp"
#include "peaks/macro.hpp"
#include "peaks/reborn.hpp"
#include "phasing/phase_command.hpp"
#include "workspace/conversions.hpp"
#include "workspace/processing.hpp"

namespace vx::cli {
namespace {

struct PeaksOptions {
    std::string file;
    std::string out;
    double low_mass = 0.0, high_mass = 0.0;
    bool sn = false, abundance = false;
    double threshold = -1.0, noise_threshold = -1.0, min_width = -1.0, noise_window = -1.0;
    double peak_sigma = -1.0, noise_sigma = -1.0;
    bool global_noise = false, percent = false, robust_noise = false, json = false;
    std::vector<std::string> notches;
    bool reborn = false, csv = false, table_form = false, macro = false;
    std::string noise_range;
    int threads = 0;
    int precision = 4;
    bool absorption = false;
};

// "LOW:HIGH" as two numbers.
bool parse_pair(const std::string& text, std::pair<double, double>& out) {
    const auto colon = text.find(':');
    if (colon == std::string::npos) return false;
    try {
        std::size_t used = 0;
        out.first = std::stod(text.substr(0, colon), &used);
        if (used != colon) return false;
        const std::string rest = text.substr(colon + 1);
        out.second = std::stod(rest, &used);
        return used == rest.size();
    } catch (...) {
        return false;
    }
}

int run_peaks(Context& ctx, const PeaksOptions& o) {
    if (ctx.load_settings() < 0) return 1;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();
    Settings& st = ws.settings;
    // --threshold and --noise-threshold are what the chosen search compares
    // with: absolute (or percent) levels by abundance, multiples of the noise
    // width with --sn, where they are the two sigma factors. The reborn S/N
    // button still compares absolute levels, so there they stay levels.
    const bool factors = o.sn && !o.reborn;
    if ((factors && o.threshold >= 0 && o.peak_sigma >= 0) || (factors && o.noise_threshold >= 0 && o.noise_sigma >= 0)) {
        ctx.ui.MessagePopup("Operator Error",
                            "With --sn, --threshold is the peak sigma factor and --noise-threshold the noise sigma "
                            "factor: give each once.");
        return 1;
    }
    if (o.threshold >= 0) (factors ? st.peak_sigma_factor : st.peak_threshold) = o.threshold;
    if (o.noise_threshold >= 0) (factors ? st.noise_sigma_factor : st.noise_threshold) = o.noise_threshold;
    if (o.min_width >= 0) st.min_peak_width = o.min_width;
    if (o.noise_window > 0) st.noise_window = o.noise_window;
    if (o.peak_sigma >= 0) st.peak_sigma_factor = o.peak_sigma;
    if (o.noise_sigma >= 0) st.noise_sigma_factor = o.noise_sigma;
    st.global_noise = o.global_noise ? 1 : 0;
    st.robust_noise = o.robust_noise ? 1 : 0;
    st.percent_thresholds = o.percent ? 1 : 0;
    if (o.threads > 0) st.thread_count = std::min(o.threads, 16);
    for (const std::string& n : o.notches) {
        std::pair<double, double> range;
        if (!parse_pair(n, range)) {
            ctx.ui.MessagePopup("Operator Error", fmt::format("A notch is given as LOW:HIGH in m/z, not \"{}\".", n));
            return 1;
        }
        st.notches.push_back(range);
    }
    st.notches_on = st.notches.empty() ? 0 : 1;
    std::pair<double, double> noise_range{0.0, 0.0};
    if (o.macro && !parse_pair(o.noise_range, noise_range)) {
        ctx.ui.MessagePopup("Operator Error", "The macro needs --noise-range LOW:HIGH, an m/z stretch without peaks.");
        return 1;
    }

    const int slot = open_any_file(ws, o.file, ctx.ui);
    if (slot < 0) return 1;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    Spectrum& s = p.spectrum;
    PeakTable table;
    int n = 0;

    if (o.macro) {
        n = ProcessMacroCallback(ws, noise_range.first, noise_range.second, table, ctx.ui);
    } else {
        if (s.domain == DOMAIN_TIME && o.absorption) {
            // Absorption mode: the phasing run with its defaults replaces "Process".
            ws.active_panel = slot;
            if (phase_command(ws, PhaseRunOptions{}, ctx.ui) < 0) return 1;
        } else if (s.domain == DOMAIN_TIME) {
            ProcessCommandResult r;
            if (process_command(ws, ctx.ui, &r) < 0) return 1;
            if (r.handed_to_phasing) {
                ctx.ui.MessagePopup("Operator Error",
                                    "Two-channel (SED) data are transformed by the phasing commands, not here.");
                return 1;
            }
        }
        if (s.domain == DOMAIN_FREQUENCY || s.domain == DOMAIN_MASS)
            p.xmode = XMODE_MZ;
        else if (s.domain == DOMAIN_PROFILE)
            p.xmode = XMODE_MZ_XVALUES;

        // The command line starts from no limits at all: the excited range,
        // else the data's, unless given.
        st.low_mass = std::max(o.low_mass, 0.0);
        st.high_mass = std::max(o.high_mass, 0.0);
        ensure_search_limits(ws, slot);
        // As the panel does: a global estimate takes the whole range as its window.
        if (st.global_noise) st.noise_window = std::fabs(st.high_mass - st.low_mass);

        if (o.reborn) {
            n = o.sn ? NewVantorixPeakPickSN(s, st, table, ctx.ui) : NewVantorixPeakPick2(s, st, table, ctx.ui);
            // The S/N button assigns S/N before its search, so its new peaks
            // carry none; a written list always gets one.
            if (n > 0 && (o.sn || o.robust_noise)) {
                if (o.robust_noise) assign_robust_sn(s, st.noise_window);
                else CalculateSignalToNoiseThrashStyle(s);
                FillPeaklist2Table(s, s.peakcount, st, table);
            }
        } else if (o.threads > 0 && p.xmode == XMODE_MZ) {
            st.sn_mode = o.sn ? 1 : 0;
            ws.active_panel = slot;
            s.initMz = st.low_mass;
            s.finalMz = st.high_mass;
            s.peakabundance = st.peak_threshold;
            s.peakprofile = st.noise_threshold;
            n = FindPeaksThread(s, st, p.ymax, table, ctx.ui);
            if (n == 0) ctx.ui.MessagePopup("Peak Find Results", "No Peaks Found in Search Region");
        } else {
            ws.active_panel = slot;
            n = AnalyzeFindPeaks(ws, o.sn, table, ctx.ui);
        }
    }
    if (n < 0) return 1;
    if (!table.status.empty() && !o.json) std::cout << table.status << '\n';
    if (n == 0) {
        if (o.json) std::cout << nlohmann::ordered_json{{"file", o.file}, {"peakcount", 0}, {"peaks", nlohmann::ordered_json::array()}}.dump(2) << '\n';
        return 2;
    }

    std::string out = o.out;
    if (out.empty()) out = o.csv ? peak_list_path(o.file, s.filetype, 0) + ".csv" : peak_list_path(o.file, s.filetype, 0);
    int rc = 0;
    if (o.csv) {
        rc = SavePeakListCsv(s, out, ctx.ui);
    } else if (o.table_form) {
        const PeakDecimals d = peak_decimals(st);
        rc = SavePeakList2(s, out, {d.mz, d.other, d.abundance, d.frequency}, true, st.abundance_scale, ctx.ui);
    } else {
        BatchPeakListOptions b;
        b.low_mass = s.initMz;
        b.high_mass = s.finalMz;
        // The header names the levels the search compared with: the two
        // sigma factors in S/N mode.
        b.noise_threshold = factors ? st.noise_sigma_factor : st.noise_threshold;
        b.peak_threshold = factors ? st.peak_sigma_factor : st.peak_threshold;
        b.precision = o.precision;
        b.last_column = PeakListColumn::SN;
        rc = write_batch_peak_list(out, s, b, ctx.ui);
    }
    if (rc < 0) return 1;
    if (o.json) {
        nlohmann::ordered_json j;
        j["file"] = o.file;
        j["output"] = out;
        j["search"] = o.reborn ? "reborn" : "traditional";
        j["sn_mode"] = o.sn;
        j["robust_noise"] = o.robust_noise;
        j["low_mass"] = s.initMz;
        j["high_mass"] = s.finalMz;
        j["peak_level"] = factors ? st.peak_sigma_factor : st.peak_threshold;
        j["noise_level"] = factors ? st.noise_sigma_factor : st.noise_threshold;
        j["noise_window"] = st.noise_window;
        j["peakcount"] = s.peakcount;
        auto list = nlohmann::ordered_json::array();
        for (const Peak& pk : s.peaks) {
            auto finite = [](double v) { return std::isfinite(v) ? nlohmann::ordered_json(v) : nlohmann::ordered_json(nullptr); };
            list.push_back({{"mz", finite(pk.mass)},
                            {"abundance", finite(pk.abundance)},
                            {"relabundance", finite(pk.relabundance)},
                            {"frequency", finite(pk.frequency)},
                            {"resolvingpower", finite(pk.resolvingpower)},
                            {"sn", finite(pk.sn)}});
        }
        j["peaks"] = list;
        std::cout << j.dump(2) << '\n';
        return 0;
    }
    std::cout << fmt::format("wrote {}: {} peaks from m/z {:.2f} to {:.2f}\n", out, s.peakcount, s.initMz, s.finalMz);
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<PeaksOptions>();
    auto* sub = app.add_subcommand("peaks", "Find the peaks of a transient or spectrum and write a peak list");
    sub->add_option("file", o->file, "Data file (Tulva .dat, .new, .swf, .Z, or a Bruker directory); transients are processed first")
        ->required();
    sub->add_option("-o,--output", o->out, "Peak list to write (default: the data file's name as x_dat.pks)");
    sub->add_option("--low-mass", o->low_mass, "Lower m/z limit (default: the excited range or the data)");
    sub->add_option("--high-mass", o->high_mass, "Upper m/z limit");
    auto* sn = sub->add_flag("--sn", o->sn, "Thresholds as multiples of the noise width above the baseline");
    auto* ab = sub->add_flag("--abundance", o->abundance, "Absolute thresholds (the default)");
    sn->excludes(ab);
    sub->add_option("--threshold", o->threshold,
                    "Peak threshold (default 20); with --sn the peak S/N factor (default 3, as --peak-sigma)");
    sub->add_option("--noise-threshold", o->noise_threshold,
                    "Noise threshold (default 5); with --sn the noise S/N factor (default 2, as --noise-sigma)");
    sub->add_option("--min-width", o->min_width, "Narrowest accepted segment in points (default 3)");
    sub->add_option("--noise-window", o->noise_window, "Width of each noise estimate in m/z (default 5)");
    sub->add_option("--peak-sigma", o->peak_sigma, "S/N mode: peak level = baseline + this x noise width (3)");
    sub->add_option("--noise-sigma", o->noise_sigma, "S/N mode: noise level = baseline + this x noise width (2)");
    sub->add_flag("--global-noise", o->global_noise, "One noise estimate for the whole range (the window becomes the range)");
    sub->add_flag("--robust-noise", o->robust_noise,
                  "S/N against a noise estimate that leaves the peaks out (docs/peak-picking.md)");
    sub->add_flag("--json", o->json, "Print the peak list as JSON (the file is written as well)");
    sub->add_flag("--percent", o->percent, "Thresholds are percent of the largest sample in the range");
    sub->add_option("--notch", o->notches, "Leave out the m/z range LOW:HIGH (repeatable)");
    sub->add_flag("--reborn", o->reborn, "The reborn picker (New PeakPick) instead of the traditional search");
    sub->add_option("--threads", o->threads, "Traditional search on this many workers (parallel form)")
        ->check(CLI::Range(1, 16));
    sub->add_flag("--csv", o->csv, "Write a CSV table instead of the .pks form");
    sub->add_flag("--table-form", o->table_form, "Write the peak table's form (Peaklist V2.0) instead of the batch form");
    sub->add_option("--precision", o->precision, "Decimals of m/z and S/N in the batch form (default 4)")
        ->check(CLI::Range(0, 10));
    sub->add_flag("--macro", o->macro, "Process Macro: process, noise from --noise-range, search by abundance");
    sub->add_option("--noise-range", o->noise_range, "m/z range LOW:HIGH without peaks, for --macro");
    sub->add_flag("--absorption", o->absorption,
                  "Phase the transient (absorption mode, excitation from its script) instead of the magnitude transform");
    sub->footer("Exit status 2 when no peak was found.");
    sub->callback([&ctx, o] { ctx.exit_code = run_peaks(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
