// vantorix peaks FILE -o OUT.pks: processes a transient (or takes a spectrum as
// read), runs the traditional search or the reborn picker with the analysis
// panel's settings, and writes the peak list (.pks batch form, the table's form,
// or CSV).
#include <filesystem>
#include <iostream>

#include <fmt/format.h>

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
    bool csv = false, table_form = false;
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
    add_peak_search_options(sub, o->search);
    sub->add_flag("--csv", o->csv, "Write a CSV table instead of the .pks form");
    sub->add_flag("--table-form", o->table_form, "Write the peak table's form (Peaklist V2.0) instead of the batch form");
    sub->add_option("--precision", o->precision, "Decimals of m/z and S/N in the batch form (default 4)")
        ->check(CLI::Range(0, 10));
    sub->footer("Exit status 2 when no peak was found.");
    sub->callback([&ctx, o] { ctx.exit_code = run_peaks(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
