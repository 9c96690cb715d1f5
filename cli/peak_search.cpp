#include "peak_search.hpp"

#include <fmt/format.h>

#include "formats/tulva_reader.hpp"
#include "peaks/macro.hpp"
#include "peaks/reborn.hpp"
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
    sub->add_option("--threshold", o.threshold, "Peak threshold (default 20)");
    sub->add_option("--noise-threshold", o.noise_threshold, "Noise threshold (default 5)");
    sub->add_option("--min-width", o.min_width, "Narrowest accepted segment in points (default 3)");
    sub->add_option("--noise-window", o.noise_window, "Width of each noise estimate in m/z (default 5)");
    sub->add_option("--peak-sigma", o.peak_sigma, "S/N mode: peak level = baseline + this x noise width (3)");
    sub->add_option("--noise-sigma", o.noise_sigma, "S/N mode: noise level = baseline + this x noise width (2)");
    sub->add_flag("--global-noise", o.global_noise, "One noise estimate for the whole range");
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
}

int find_peaks_in_file(Context& ctx, const std::string& file, const PeakSearchOptions& o, PeakSearchResult& result) {
    if (ctx.load_settings() < 0) return -1;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();
    Settings& st = ws.settings;
    if (o.threshold >= 0) st.peak_threshold = o.threshold;
    if (o.noise_threshold >= 0) st.noise_threshold = o.noise_threshold;
    if (o.min_width >= 0) st.min_peak_width = o.min_width;
    if (o.noise_window > 0) st.noise_window = o.noise_window;
    if (o.peak_sigma >= 0) st.peak_sigma_factor = o.peak_sigma;
    if (o.noise_sigma >= 0) st.noise_sigma_factor = o.noise_sigma;
    st.global_noise = o.global_noise ? 1 : 0;
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

    const int slot = open_data_file(ws, file, FILETYPE_TULVA, read_tulva_into_slot, ctx.ui);
    if (slot < 0) return -1;
    result.slot = slot;
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    Spectrum& s = p.spectrum;
    PeakTable& table = result.table;
    int n = 0;

    if (o.macro) {
        n = ProcessMacroCallback(ws, noise_range.first, noise_range.second, table, ctx.ui);
    } else {
        if (s.domain == DOMAIN_TIME) {
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

        st.low_mass = 0.0;
        st.high_mass = 0.0;
        FindPeakOptions(ws, slot);
        if (o.low_mass > 0) st.low_mass = o.low_mass;
        if (o.high_mass > 0) st.high_mass = o.high_mass;
        if (st.high_mass <= 0.0 && s.domain != DOMAIN_PROFILE) st.high_mass = High_Mass(s);
        if (st.low_mass <= 0.0 && s.domain != DOMAIN_PROFILE) st.low_mass = Low_Mass(s);
        if (s.domain == DOMAIN_PROFILE && !s.xvalues.empty()) {
            if (st.low_mass <= 0.0) st.low_mass = s.xvalues.front();
            if (st.high_mass <= 0.0) st.high_mass = s.xvalues.back();
        }

        if (o.reborn) {
            n = o.sn ? NewVantorixPeakPickSN(s, st, table, ctx.ui) : NewVantorixPeakPick2(s, st, table, ctx.ui);
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
