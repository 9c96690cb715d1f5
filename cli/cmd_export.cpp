// vantorix export FILE -o OUT.mzML [--peaks] [peak search flags] [--json]:
// the spectrum (profile) or its peak list (centroid) as mzML 1.1.
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "formats/mzml_writer.hpp"
#include "formats/open_file.hpp"
#include "peak_search.hpp"
#include "workspace/processing.hpp"

namespace vx::cli {
namespace {

struct ExportOptions {
    std::string file;
    std::string out;
    bool peaks = false;
    bool json = false;
    PeakSearchOptions search;
};

int run_export(Context& ctx, const ExportOptions& o) {
    ctx.ui.quiet_console = o.json;
    if (ctx.load_settings() < 0) return 1;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();
    int slot = -1;
    if (o.peaks && filetype_of_path(o.file) != FILETYPE_PEAKLIST) {
        PeakSearchResult found;
        if (find_peaks_in_file(ctx, o.file, o.search, found) < 0) return 1;
        slot = found.slot;
    } else {
        slot = open_any_file(ws, o.file, ctx.ui);
        if (slot < 0) {
            std::cerr << o.file << ": not opened\n";
            return 1;
        }
        ws.active_panel = slot;
        Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
        // A transient goes through the processing chain of the settings first.
        if (s.domain == DOMAIN_TIME && process_command(ws, ctx.ui) < 0) return 1;
    }
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    MzmlOptions m;
    m.peaks = o.peaks;
    m.source = o.file;
    if (write_mzml(s, o.out, m, ctx.ui) < 0) return 1;
    std::size_t points = 0;
    if (o.peaks) {
        points = s.peaks.size();
    } else {
        std::vector<double> mz;
        std::vector<float> in;
        profile_arrays(s, mz, in);
        points = mz.size();
    }
    if (o.json) {
        nlohmann::ordered_json j;
        j["source"] = o.file;
        j["output"] = o.out;
        j["kind"] = o.peaks ? "centroid" : "profile";
        j["points"] = points;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else {
        std::cout << fmt::format("wrote {} ({} {})\n", o.out, points, o.peaks ? "peaks" : "points");
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<ExportOptions>();
    auto* sub = app.add_subcommand("export", "Export a spectrum (profile) or its peak list (centroid) as mzML 1.1");
    sub->add_option("file", o->file, "Data file (.dat, .new, .Z, .vfd, .wcd, Bruker), or a .pks peak list with --peaks")
        ->required();
    sub->add_option("-o,--output", o->out, "The mzML file")->required();
    sub->add_flag("--peaks", o->peaks, "Export the peak list as a centroid spectrum (peaks are found first)");
    add_peak_search_options(sub, o->search);
    sub->add_flag("--json", o->json, "Print JSON instead of text");
    sub->callback([&ctx, o] { ctx.exit_code = run_export(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
