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
#include "peak_search.hpp"
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
    PeakSearchOptions search;
    bool csv = false, table_form = false, json = false;
    int precision = 4;
};

int run_peaks(Context& ctx, const PeaksOptions& o) {
    PeakSearchResult found;
    if (find_peaks_in_file(ctx, o.file, o.search, found) < 0) return 1;
    Workspace& ws = ctx.ws;
    const Settings& st = ws.settings;
    const Spectrum& s = ws.panels[static_cast<std::size_t>(found.slot)].spectrum;
    const PeakTable& table = found.table;
    const int n = found.count;
    const bool factors = o.search.thresholds_are_factors();
    if (!table.status.empty() && !o.json) std::cout << table.status << '\n';
    if (n == 0) {
        if (o.json) std::cout << nlohmann::ordered_json{{"file", o.file}, {"peakcount", 0}, {"peaks", nlohmann::ordered_json::array()}}.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
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
        j["search"] = o.search.reborn ? "reborn" : "traditional";
        j["sn_mode"] = o.search.sn;
        j["robust_noise"] = o.search.robust_noise;
        j["low_mass"] = s.initMz;
        j["high_mass"] = s.finalMz;
        j["peak_level"] = factors ? st.peak_sigma_factor : st.peak_threshold;
        j["noise_level"] = factors ? st.noise_sigma_factor : st.noise_threshold;
        j["noise_window"] = st.noise_window;
        j["peakcount"] = s.peakcount;
        auto list = nlohmann::ordered_json::array();
        auto finite = [](double v) { return std::isfinite(v) ? nlohmann::ordered_json(v) : nlohmann::ordered_json(nullptr); };
        for (const Peak& pk : s.peaks) {
            list.push_back({{"mz", finite(pk.mass)},
                            {"abundance", finite(pk.abundance)},
                            {"relabundance", finite(pk.relabundance)},
                            {"frequency", finite(pk.frequency)},
                            {"resolvingpower", finite(pk.resolvingpower)},
                            {"sn", finite(pk.sn)}});
        }
        j["peaks"] = list;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
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
    add_peak_search_options(sub, o->search);
    sub->add_flag("--json", o->json, "Print the peak list as JSON (the file is written as well)");
    sub->add_flag("--csv", o->csv, "Write a CSV table instead of the .pks form");
    sub->add_flag("--table-form", o->table_form, "Write the peak table's form (Peaklist V2.0) instead of the batch form");
    sub->add_option("--precision", o->precision, "Decimals of m/z and S/N in the batch form (default 4)")
        ->check(CLI::Range(0, 10));
    sub->footer("Exit status 2 when no peak was found.");
    sub->callback([&ctx, o] { ctx.exit_code = run_peaks(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
