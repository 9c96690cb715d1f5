// vantorix info FILE [--json]: opens a data file into a slot and prints the
// filled record, with further SED channels when the file holds them.
#include <cctype>
#include <iostream>

#include <fmt/format.h>

#include "commands.hpp"
#include "formats/bruker.hpp"
#include "formats/open_file.hpp"
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

// The parameters of an apex/solariX acquisition as its files give them (null
// for any other file).
nlohmann::ordered_json bruker_acquisition_json(const std::string& path, Ui& ui) {
    const std::string dir = bruker_directory_of(path);
    const BrukerLayout layout = bruker_layout(dir);
    if (layout != BrukerLayout::Method && layout != BrukerLayout::Acqus) return nullptr;
    BrukerParameters bp;
    if (read_bruker_parameters(dir, bp, ui) < 0) return nullptr;
    nlohmann::ordered_json j;
    j["directory"] = bp.directory;
    j["parameter_file"] = bp.parameter_file;
    j["data_file"] = bp.data_file;
    j["TD"] = bp.TD;
    j["SW_h"] = bp.SW_h;
    j["BYTORDA"] = bp.BYTORDA;
    j["ML1"] = bp.ML1;
    j["ML2"] = bp.ML2;
    j["ML3"] = bp.ML3;
    j["EXC_low"] = bp.EXC_low;
    j["EXC_hi"] = bp.EXC_hi;
    j["NS"] = bp.NS;
    j["transients"] = bp.transients;
    j["date"] = bp.date;
    j["method"] = bp.method;
    j["user"] = bp.user;
    j["sample"] = bp.sample;
    return j;
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
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();  // info does not touch the recent-file list
    const bool peak_list = is_peak_list(o.file);
    const int slot = open_any_file(ws, o.file, ctx.ui);
    if (slot < 0) {
        // Some of the readers' messages do not say which file they mean.
        std::cerr << o.file << ": not opened\n";
        return 1;
    }

    nlohmann::ordered_json out = spectrum_json(ws.panels[static_cast<std::size_t>(slot)].spectrum);
    out["format"] = open_format_of(ws, o.file);
    out["filetype"] = ws.panels[static_cast<std::size_t>(slot)].spectrum.filetype;
    out["domain"] = ws.panels[static_cast<std::size_t>(slot)].spectrum.domain;
    out["scans"] = ws.open_options.scans;
    out["scan"] = ws.open_options.scan_opened;
    if (peak_list) out["peaks"] = peaks_json(ws.panels[static_cast<std::size_t>(slot)].spectrum);
    const auto acquisition = bruker_acquisition_json(o.file, ctx.ui);
    if (!acquisition.is_null()) out["acquisition"] = acquisition;
    if (!ws.comment_text.empty()) out["comment"] = ws.comment_text;
    auto channels = nlohmann::ordered_json::array();
    for (int extra : {ws.sed_second_panel, ws.sed_third_panel}) {
        if (extra >= 0 && extra != slot && ws.panels[static_cast<std::size_t>(extra)].active)
            channels.push_back(spectrum_json(ws.panels[static_cast<std::size_t>(extra)].spectrum));
    }
    if (!channels.empty()) out["sed_channels"] = channels;

    if (o.json) {
        std::cout << out.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
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
        if (out.contains("acquisition")) {
            const auto& a = out["acquisition"];
            std::cout << "-- acquisition\n";
            for (auto it = a.begin(); it != a.end(); ++it) {
                if (it->is_string()) std::cout << it.key() << ": " << it->get<std::string>() << '\n';
                else if (it->is_number_float()) std::cout << fmt::format("{}: {:.10g}\n", it.key(), it->get<double>());
                else std::cout << it.key() << ": " << it->dump() << '\n';
            }
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
    sub->add_option("file", o->file, "Tulva data file (.dat, .new, .swf, .Z), peak list (.pks) or Bruker directory (or a file in it)")->required();
    sub->add_flag("--json", o->json, "Print JSON instead of text");
    sub->add_option("--heterodyne", o->heterodyne,
                    "Answer for old files without a version: +REF or -REF (reference in Hz); default direct mode");
    sub->callback([&ctx, o] { ctx.exit_code = run_info(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
