// vantorix peaks FILE -o OUT.pks: processes a transient (or takes a spectrum as
// read), runs the traditional search or the reborn picker with the analysis
// panel's settings, and writes the peak list (.pks batch form, the table's form,
// or CSV).
#include <filesystem>
#include <iostream>

#include <fmt/format.h>

#include "commands.hpp"
#include "formats/peak_list.hpp"
#include "formats/tulva_reader.hpp"
#include "peaks/find_peaks.hpp"
#include "peaks/macro.hpp"
#include "peaks/reborn.hpp"
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
    bool global_noise = false, percent = false;
    std::vector<std::string> notches;
    bool reborn = false, csv = false, table_form = false, macro = false;
    std::string noise_range;
    int threads = 0;
    int precision = 4;
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

    const int slot = open_data_file(ws, o.file, FILETYPE_TULVA, read_tulva_into_slot, ctx.ui);
    if (slot < 0) {
        // Some of the readers' messages do not say which file they mean.
        std::cerr << o.file << ": not opened\n";
        return 1;
    }
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    Spectrum& s = p.spectrum;
    PeakTable table;
    int n = 0;

    if (o.macro) {
        n = ProcessMacroCallback(ws, noise_range.first, noise_range.second, table, ctx.ui);
    } else {
        if (s.domain == DOMAIN_TIME) {
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
    if (n < 0) return 1;
    if (!table.status.empty()) std::cout << table.status << '\n';
    if (n == 0) return 2;

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
        b.noise_threshold = st.noise_threshold;
        b.peak_threshold = st.peak_threshold;
        b.precision = o.precision;
        b.last_column = PeakListColumn::SN;
        rc = write_batch_peak_list(out, s, b, ctx.ui);
    }
    if (rc < 0) return 1;
    std::cout << fmt::format("wrote {}: {} peaks from m/z {:.2f} to {:.2f}\n", out, s.peakcount, s.initMz, s.finalMz);
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<PeaksOptions>();
    auto* sub = app.add_subcommand("peaks", "Find the peaks of a transient or spectrum and write a peak list");
    sub->add_option("file", o->file, "Tulva data file (.dat, .new, .swf, .Z); transients are processed first")
        ->required();
    sub->add_option("-o,--output", o->out, "Peak list to write (default: the data file's name as x_dat.pks)");
    sub->add_option("--low-mass", o->low_mass, "Lower m/z limit (default: the excited range or the data)");
    sub->add_option("--high-mass", o->high_mass, "Upper m/z limit");
    auto* sn = sub->add_flag("--sn", o->sn, "Thresholds as multiples of the noise width above the baseline");
    auto* ab = sub->add_flag("--abundance", o->abundance, "Absolute thresholds (the default)");
    sn->excludes(ab);
    sub->add_option("--threshold", o->threshold, "Peak threshold (default 20)");
    sub->add_option("--noise-threshold", o->noise_threshold, "Noise threshold (default 5)");
    sub->add_option("--min-width", o->min_width, "Narrowest accepted segment in points (default 3)");
    sub->add_option("--noise-window", o->noise_window, "Width of each noise estimate in m/z (default 5)");
    sub->add_option("--peak-sigma", o->peak_sigma, "S/N mode: peak level = baseline + this x noise width (3)");
    sub->add_option("--noise-sigma", o->noise_sigma, "S/N mode: noise level = baseline + this x noise width (2)");
    sub->add_flag("--global-noise", o->global_noise, "One noise estimate for the whole range");
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
    sub->footer("Exit status 2 when no peak was found.");
    sub->callback([&ctx, o] { ctx.exit_code = run_peaks(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
