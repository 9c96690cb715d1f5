// vantorix info FILE [--json]: opens a data file into a slot and prints the
// filled record, with further SED channels when the file holds them.
#include <cctype>
#include <iostream>

#include <fmt/format.h>

#include "commands.hpp"
#include "formats/peak_list.hpp"
#include "formats/tulva_reader.hpp"
#include "workspace/spectrum_json.hpp"

namespace vx::cli {
namespace {

struct InfoOptions {
    std::string file;
    bool json = false;
    std::string heterodyne;  // answer to the legacy files' console question
};

bool is_peak_list(const std::string& path) {
    if (path.size() < 4) return false;
    std::string ext = path.substr(path.size() - 4);
    for (auto& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".pks";
}

int read_peak_list_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui) {
    return Get_Tulva_Peak_List(path, ws.panels[static_cast<std::size_t>(slot)].spectrum, ui);
}

nlohmann::ordered_json peaks_json(const Spectrum& s) {
    auto peaks = nlohmann::ordered_json::array();
    for (const Peak& p : s.peaks) {
        peaks.push_back({{"index", p.index},
                         {"abundance", p.abundance},
                         {"relabundance", p.relabundance},
                         {"resolvingpower", p.resolvingpower},
                         {"frequency", p.frequency},
                         {"width", p.width},
                         {"mass", p.mass}});
    }
    return peaks;
}

int run_info(Context& ctx, const InfoOptions& o) {
    if (ctx.load_settings() < 0) return 1;
    if (!o.heterodyne.empty()) {
        // "+REF" or "-REF": the sign, then the reference frequency.
        ctx.ui.preset_console.push_back(o.heterodyne.substr(0, 1));
        ctx.ui.preset_console.push_back(o.heterodyne.size() > 1 ? o.heterodyne.substr(1) : "0");
    }
    ctx.ui.quiet_console = o.json;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();  // info does not touch the recent-file list
    const bool peak_list = is_peak_list(o.file);
    const int slot = peak_list ? open_data_file(ws, o.file, FILETYPE_PEAKLIST, read_peak_list_into_slot, ctx.ui)
                               : open_data_file(ws, o.file, FILETYPE_TULVA, read_tulva_into_slot, ctx.ui);
    if (slot < 0) {
        // Some of the readers' messages do not say which file they mean.
        std::cerr << o.file << ": not opened\n";
        return 1;
    }

    nlohmann::ordered_json out = spectrum_json(ws.panels[static_cast<std::size_t>(slot)].spectrum);
    if (peak_list) out["peaks"] = peaks_json(ws.panels[static_cast<std::size_t>(slot)].spectrum);
    if (!ws.comment_text.empty()) out["comment"] = ws.comment_text;
    auto channels = nlohmann::ordered_json::array();
    for (int extra : {ws.sed_second_panel, ws.sed_third_panel}) {
        if (extra >= 0 && extra != slot && ws.panels[static_cast<std::size_t>(extra)].active)
            channels.push_back(spectrum_json(ws.panels[static_cast<std::size_t>(extra)].spectrum));
    }
    if (!channels.empty()) out["sed_channels"] = channels;

    if (o.json) {
        std::cout << out.dump(2) << '\n';
    } else {
        const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
        std::cout << spectrum_text(s);
        if (peak_list) {
            // The reader keeps each peak's m/z in index (the stick position).
            std::cout << fmt::format("{:>14} {:>14} {:>14} {:>12} {:>16}\n", "m/z", "Peak Height", "Abundance",
                                     "RP", "Frequency");
            for (const Peak& p : s.peaks)
                std::cout << fmt::format("{:14.5f} {:14.4f} {:14.4f} {:12.0f} {:16.6f}\n", p.index, p.abundance,
                                         p.relabundance, p.resolvingpower, p.frequency);
        }
        if (out.contains("comment")) std::cout << "comment: " << ws.comment_text << '\n';
        int n = 2;
        for (int extra : {ws.sed_second_panel, ws.sed_third_panel}) {
            if (extra >= 0 && extra != slot && ws.panels[static_cast<std::size_t>(extra)].active) {
                std::cout << "\n-- SED channel " << n++ << "\n"
                          << spectrum_text(ws.panels[static_cast<std::size_t>(extra)].spectrum);
            }
        }
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<InfoOptions>();
    auto* sub = app.add_subcommand("info", "Open a data file and print its header fields and sample statistics");
    sub->add_option("file", o->file, "Tulva data file (.dat, .new, .swf, .Z) or peak list (.pks)")->required();
    sub->add_flag("--json", o->json, "Print JSON instead of text");
    sub->add_option("--heterodyne", o->heterodyne,
                    "Answer for old files without a version: +REF or -REF (reference in Hz); default direct mode");
    sub->callback([&ctx, o] { ctx.exit_code = run_info(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
