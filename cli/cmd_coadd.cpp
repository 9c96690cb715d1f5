// vantorix coadd FILE... [--odyssey|--vosk|--sed|--sed-ftd] [-o SUM.dat] [--json]:
// transients summed in the time domain, weighted by their experiments, into
// "Sum of %i Files"; the sum is written as a data file made from the first
// file used. Two-channel (SED) files sum each channel apart, and are written
// as a two-channel file.
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "batch/coadd.hpp"
#include "commands.hpp"
#include "formats/tulva_writer.hpp"
#include "platform/safe_file.hpp"
#include "workspace/spectrum_json.hpp"

namespace vx::cli {
namespace {

struct CoaddOptions {
    std::vector<std::string> files;
    std::string out;
    bool odyssey = false, vosk = false, sed = false, sed_ftd = false;
    bool json = false;
};

int run_coadd(Context& ctx, const CoaddOptions& o) {
    if (ctx.load_settings() < 0) return 1;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();
    for (const std::string& f : o.files) {
        if (!o.out.empty() && same_file(f, o.out)) {
            ctx.ui.MessagePopup("Operator Error", fmt::format("The output {} is one of the files to add.", f));
            return 1;
        }
    }
    CoaddResult r;
    Spectrum vosk_sum;
    const Spectrum* sum = nullptr;
    if (o.vosk) {
        const PointsChannel d{ws.open_options.points,
                              ws.open_options.channel >= 0 ? ws.open_options.channel : VOSK_WORKING_CHANNEL};
        if (Coadd_Vosk_Data(o.files, vosk_sum, d, ctx.ui) < 0) return 1;
        r.used = o.files;
        r.total_weight = static_cast<double>(o.files.size());
        r.expcount = vosk_sum.expcount;
        sum = &vosk_sum;
    } else {
        CoaddProgress progress;
        progress.update = [&](int done, int total, const CoaddResult&) {
            ctx.ui.Console(fmt::format("co-add {}/{}\n", done, total));
        };
        int rc;
        if (o.sed) rc = CoAddTulvaSED(ws, o.files, r, ctx.ui, progress);
        else if (o.sed_ftd) rc = CoAddTulvaSEDFTD(ws, o.files, r, ctx.ui, progress);
        else rc = CoAddTulva(ws, o.files, o.odyssey ? CoaddKind::Odyssey : CoaddKind::Tulva, r, ctx.ui, progress);
        if (rc < 0) return 1;
        sum = &ws.panels[static_cast<std::size_t>(r.slot)].spectrum;
    }
    for (const std::string& f : r.failed) std::cerr << f << ": not added\n";
    if (!o.out.empty()) {
        if (o.vosk || o.odyssey) {
            ctx.ui.MessagePopup("Operator Error",
                                "A sum of Odyssey or Vosk files has no Tulva header to copy; leave out -o.");
            return 1;
        }
        if (r.second_slot >= 0) {
            if (save_sed_channels(ws, o.out, r.slot, r.second_slot, ctx.ui) < 0) return 1;
        } else if (SaveasTULVA(ws, true, o.out, r.slot, 0, ctx.ui) < 0) {
            return 1;
        }
    }
    if (o.json) {
        nlohmann::ordered_json j;
        j["used"] = r.used;
        j["failed"] = r.failed;
        j["total_weight"] = r.total_weight;
        j["expcount"] = r.expcount;
        j["title2"] = sum->title2;
        j["stopped"] = r.stopped;
        if (!o.out.empty()) j["output"] = o.out;
        j["spectrum"] = spectrum_json(*sum);
        if (r.second_slot >= 0) j["channel2"] = spectrum_json(ws.panels[static_cast<std::size_t>(r.second_slot)].spectrum);
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else {
        std::cout << fmt::format("{}: {} used, {} failed, total weight {}{}\n", sum->title2, r.used.size(),
                                 r.failed.size(), r.total_weight, o.out.empty() ? "" : ", wrote " + o.out);
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<CoaddOptions>();
    auto* sub = app.add_subcommand("coadd", "Sum transients in the time domain, weighted by their experiments");
    sub->add_option("files", o->files, "Data files to add (Tulva by default)")->required();
    sub->add_option("-o,--output", o->out, "Data file to write the sum to (made from the first file used)");
    auto* ody = sub->add_flag("--odyssey", o->odyssey, "Odyssey files, each of weight 1");
    auto* vos = sub->add_flag("--vosk", o->vosk, "Vosk files (--points/--channel as when opening)");
    auto* sed = sub->add_flag("--sed", o->sed, "Two-channel (SED) files: each channel summed apart, weight 1");
    auto* ftd = sub->add_flag("--sed-ftd", o->sed_ftd, "Two-channel files whose channels are transformed (process options) before they are added");
    ody->excludes(vos)->excludes(sed)->excludes(ftd);
    vos->excludes(sed)->excludes(ftd);
    sed->excludes(ftd);
    sub->add_flag("--json", o->json, "Print JSON: used, failed, total_weight, expcount");
    sub->callback([&ctx, o] { ctx.exit_code = run_coadd(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
