// vantorix vosk FILE --start P --points N --step S [--scans K] [--process]
// [--cof X] [--zoom LO:HI] [--save NAME] [--json]: the special analysis of a
// record of scans end to end, one row per scan (COF, largest ion) and the
// sweep rate between scans.
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "batch/vosk_scans.hpp"
#include "commands.hpp"
#include "formats/open_file.hpp"

namespace vx::cli {
namespace {

struct VoskOptions {
    std::string file;
    VoskSpecialParams p;
    std::string zoom;
    double cof = -1.0;
    int apodization = -1, zerofills = -1;
    bool processed_save = false;
    bool json = false;
};

int run_vosk(Context& ctx, VoskOptions& o) {
    if (ctx.load_settings() < 0) return 1;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();
    if (o.cof >= 0.0) {
        o.p.cof = true;
        o.p.cofthresh = o.cof;
    }
    if (!o.zoom.empty()) {
        if (std::sscanf(o.zoom.c_str(), "%lf:%lf", &o.p.zmin, &o.p.zmax) != 2) {
            ctx.ui.MessagePopup("Operator Error", fmt::format("--zoom takes LOW:HIGH in m/z, not \"{}\".", o.zoom));
            return 1;
        }
        o.p.zoom = true;
    }
    if (!o.p.name.empty()) (o.processed_save ? o.p.save_processed : o.p.save_raw) = true;
    if (o.apodization >= 0) ws.settings.apodization = o.apodization;
    if (o.zerofills >= 0) ws.settings.zerofills = o.zerofills;
    const int slot = open_any_file(ws, o.file, ctx.ui);
    if (slot < 0) {
        std::cerr << o.file << ": not opened\n";
        return 1;
    }
    VoskSpecialResult r;
    if (ProcessVoskSpecial(ws, slot, o.p, r, ctx.ui) < 0) return 1;
    if (o.json) {
        nlohmann::ordered_json j;
        j["file"] = o.file;
        j["scans"] = r.scans.size();
        j["displayed"] = r.displayed;
        auto rows = nlohmann::ordered_json::array();
        for (std::size_t k = 0; k < r.scans.size(); ++k) {
            nlohmann::ordered_json row{{"scan", r.scans[k].scan}, {"cof", r.scans[k].cof}, {"maxmz", r.scans[k].maxmz}};
            row["sweep_rate"] = k > 0 ? nlohmann::ordered_json(r.sweep_rate[k - 1]) : nlohmann::ordered_json(nullptr);
            rows.push_back(row);
        }
        j["results"] = rows;
        j["saved"] = r.saved;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else {
        std::cout << "scan,cof,maxmz,sweep_rate\n";
        for (std::size_t k = 0; k < r.scans.size(); ++k)
            std::cout << fmt::format("{},{:.6f},{:.6f},{}\n", r.scans[k].scan, r.scans[k].cof, r.scans[k].maxmz,
                                     k > 0 ? fmt::format("{:.6f}", r.sweep_rate[k - 1]) : "");
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<VoskOptions>();
    auto* sub = app.add_subcommand("vosk", "Special analysis: cut a record into scans; COF, largest ion, sweep rate");
    sub->add_option("file", o->file, "Record of scans end to end (any data file; Vosk files with --format vosk)")
        ->required();
    sub->add_option("--start", o->p.start, "First point of the first scan")->required()->check(CLI::NonNegativeNumber);
    sub->add_option("--points", o->p.points, "Points per scan")->required()->check(CLI::PositiveNumber);
    sub->add_option("--step", o->p.step, "Points from one scan's start to the next")->required()->check(CLI::PositiveNumber);
    sub->add_option("--scans", o->p.scans, "Scans to cut (default: as many as fit)")->check(CLI::NonNegativeNumber);
    sub->add_flag("--process", o->p.process, "Process each scan (truncation, apodization, zero-fill, transform)");
    sub->add_option("--apodization", o->apodization, "Window of the processing, 0 to 6");
    sub->add_option("--zerofills", o->zerofills, "Zero-fills of the processing");
    sub->add_option("--cof", o->cof, "Centre of frequency of each scan, over heights at or above this threshold");
    sub->add_option("--zoom", o->zoom, "m/z range LOW:HIGH; the largest ion in it is reported (maxmz)");
    sub->add_option("--save", o->p.name, "Save each scan as NAME_000k.dat");
    sub->add_flag("--save-processed", o->processed_save, "With --save: save the processed scans instead of the raw");
    sub->add_flag("--json", o->json, "Print JSON: per scan cof, maxmz and sweep_rate");
    sub->callback([&ctx, o] { ctx.exit_code = run_vosk(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
