#include "peak_search.hpp"

#include <algorithm>
#include <cmath>
#include <iostream>

#include <fmt/format.h>

#include "formats/open_file.hpp"
#include "formats/tulva_reader.hpp"
#include "peaks/macro.hpp"
#include "peaks/noise.hpp"
#include "peaks/reborn.hpp"
#include "phasing/phase_command.hpp"
#include "workspace/conversions.hpp"
#include "workspace/processing.hpp"

namespace vx::cli {

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

void add_peak_search_options(CLI::App* sub, PeakSearchOptions& o) {
    sub->add_option("--low-mass", o.low_mass, "Lower m/z limit (default: the excited range or the data)");
    sub->add_option("--high-mass", o.high_mass, "Upper m/z limit");
    auto* sn = sub->add_flag("--sn", o.sn, "Thresholds as multiples of the noise width above the baseline");
    auto* ab = sub->add_flag("--abundance", o.abundance, "Absolute thresholds (the default)");
    sn->excludes(ab);
    sub->add_option("--threshold", o.threshold,
                    "Peak threshold (default 20); with --sn the peak S/N factor (default 3, as --peak-sigma)");
    sub->add_option("--noise-threshold", o.noise_threshold,
                    "Noise threshold (default 5); with --sn the noise S/N factor (default 2, as --noise-sigma)");
    sub->add_option("--min-width", o.min_width, "Narrowest accepted segment in points (default 3)");
    sub->add_option("--noise-window", o.noise_window, "Width of each noise estimate in m/z (default 5)");
    sub->add_option("--peak-sigma", o.peak_sigma, "S/N mode: peak level = baseline + this x noise width (3)");
    sub->add_option("--noise-sigma", o.noise_sigma, "S/N mode: noise level = baseline + this x noise width (2)");
    sub->add_flag("--global-noise", o.global_noise, "One noise estimate for the whole range (the window becomes the range)");
    sub->add_flag("--robust-noise", o.robust_noise,
                  "S/N against a noise estimate that leaves the peaks out (docs/peak-picking.md)");
    sub->add_flag("--percent", o.percent, "Thresholds are percent of the largest sample in the range");
    sub->add_option("--notch", o.notches, "Leave out the m/z range LOW:HIGH (repeatable)");
    sub->add_flag("--reborn", o.reborn, "The reborn picker (New PeakPick) instead of the traditional search");
    sub->add_option("--threads", o.threads, "Traditional search on this many workers (parallel form)")
        ->check(CLI::Range(1, 16));
    sub->add_option("--apodization", o.apodization, "Window of the transform of a transient, 0 to 6 (default 3, Hann)")
        ->check(CLI::Range(0, 6));
    sub->add_option("--zerofills", o.zerofills, "Doublings of a transient's length before the transform (default 1)")
        ->check(CLI::Range(0, 30));
    sub->add_flag("--macro", o.macro, "Process Macro: process, noise from --noise-range, search by abundance");
    sub->add_option("--noise-range", o.noise_range, "m/z range LOW:HIGH without peaks, for --macro");
    sub->add_flag("--absorption", o.absorption,
                  "Phase the transient (absorption mode, excitation from its script) instead of the magnitude transform");
}

int find_peaks_in_file(Context& ctx, const std::string& file, const PeakSearchOptions& o, PeakSearchResult& result) {
    if (ctx.load_settings() < 0) return -1;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();
    Settings& st = ws.settings;
    // --threshold and --noise-threshold are what the chosen search compares
    // with: absolute (or percent) levels by abundance, multiples of the noise
    // width with --sn, where they are the two sigma factors.
    const bool factors = o.thresholds_are_factors();
    if ((factors && o.threshold >= 0 && o.peak_sigma >= 0) || (factors && o.noise_threshold >= 0 && o.noise_sigma >= 0)) {
        ctx.ui.MessagePopup("Operator Error",
                            "With --sn, --threshold is the peak sigma factor and --noise-threshold the noise sigma "
                            "factor: give each once.");
        return -1;
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
            return -1;
        }
        st.notches.push_back(range);
    }
    st.notches_on = st.notches.empty() ? 0 : 1;
    if (o.apodization >= 0 || o.zerofills >= 0) {
        ProcessOptionsValues v = process_options_from_settings(st);
        if (o.apodization >= 0) v.apodization = o.apodization;
        if (o.zerofills >= 0) v.zerofills = o.zerofills;
        if (process_options_ok(ws, v, false, ctx.ui) < 0) return -1;
    }
    std::pair<double, double> noise_range{0.0, 0.0};
    if (o.macro && !parse_pair(o.noise_range, noise_range)) {
        ctx.ui.MessagePopup("Operator Error", "The macro needs --noise-range LOW:HIGH, an m/z stretch without peaks.");
        return -1;
    }

    const int slot = open_any_file(ws, file, ctx.ui);
    if (slot < 0) {
        // Some of the readers' messages do not say which file they mean.
        std::cerr << file << ": not opened\n";
        return -1;
    }
    result.slot = slot;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    Spectrum& s = p.spectrum;
    PeakTable& table = result.table;
    int n = 0;

    if (o.macro) {
        n = ProcessMacroCallback(ws, noise_range.first, noise_range.second, table, ctx.ui);
    } else {
        if (s.domain == DOMAIN_TIME && o.absorption) {
            // Absorption mode: the phasing run with its defaults replaces "Process".
            ws.active_panel = slot;
            if (phase_command(ws, PhaseRunOptions{}, ctx.ui) < 0) return -1;
        } else if (s.domain == DOMAIN_TIME) {
            ProcessCommandResult r;
            if (process_command(ws, ctx.ui, &r) < 0) return -1;
            if (r.handed_to_phasing) {
                ctx.ui.MessagePopup("Operator Error",
                                    "Two-channel (SED) data are transformed by the phasing commands, not here.");
                return -1;
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
    if (n < 0) return -1;
    ws.active_panel = slot;
    result.count = n;
    return 0;
}

}  // namespace vx::cli
