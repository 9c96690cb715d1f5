// vantorix lcms LIST.pks... [--sic LO:HI] [-o CHROM.csv] [--json]: a
// chromatogram of a series of peak lists, one point per scan (its detection
// time and its summed abundance), as the "Vantorix LCMS..." entry opens it.
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "formats/instruments.hpp"
#include "platform/safe_file.hpp"
#include "workspace/display.hpp"

namespace vx::cli {
namespace {

struct LcmsOptions {
    std::vector<std::string> files;
    std::string sic;
    std::string out;
    bool json = false;
};

int run_lcms(Context& ctx, const LcmsOptions& o) {
    Workspace& ws = ctx.ws;
    const int slot = Get_New_Panel(ws);
    AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    prepare_new_slot(ws, slot, FILETYPE_PEAKLIST);
    if (Get_Tulva_Lcms_Data(o.files, p.spectrum, ctx.ui) < 0) return 1;
    p.xmode = XMODE_CHROMATOGRAM;
    std::string kind = "TIC";
    if (!o.sic.empty()) {
        double lo = 0.0, hi = 0.0;
        if (std::sscanf(o.sic.c_str(), "%lf:%lf", &lo, &hi) != 2) {
            ctx.ui.MessagePopup("Operator Error", fmt::format("--sic takes LOW:HIGH in m/z, not \"{}\".", o.sic));
            return 1;
        }
        if (Calculate_SIC(p, lo, hi, ctx.ui) < 0) return 1;
        kind = fmt::format("SIC {}:{}", std::min(lo, hi), std::max(lo, hi));
    }
    const Spectrum& s = p.spectrum;
    std::string csv = "scan,time,abundance,file\n";
    for (std::size_t i = 0; i < s.data.size(); ++i)
        csv += fmt::format("{},{},{},{}\n", i, s.xvalues[i], s.data[i], s.lcmsfiles[i]);
    if (!o.out.empty()) {
        std::string err;
        if (write_file_atomically(o.out, csv, &err) < 0) {
            ctx.ui.MessagePopup("File Error", fmt::format("Cannot write {}: {}", o.out, err));
            return 1;
        }
    }
    if (o.json) {
        nlohmann::ordered_json j;
        j["kind"] = kind;
        j["scans"] = s.data.size();
        auto pts = nlohmann::ordered_json::array();
        for (std::size_t i = 0; i < s.data.size(); ++i)
            pts.push_back({{"time", s.xvalues[i]}, {"abundance", s.data[i]}, {"file", s.lcmsfiles[i]}});
        j["points"] = pts;
        if (!o.out.empty()) j["output"] = o.out;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else if (o.out.empty()) {
        std::cout << csv;
    } else {
        std::cout << fmt::format("wrote {}: {} of {} scans\n", o.out, kind, s.data.size());
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<LcmsOptions>();
    auto* sub = app.add_subcommand("lcms", "Chromatogram of a series of peak lists (one point per scan)");
    sub->add_option("files", o->files, "Peak lists of the scans (x_Z.pks stands for the raw file x.Z)")->required();
    sub->add_option("--sic", o->sic, "Selected ion chromatogram: only masses LOW:HIGH");
    sub->add_option("-o,--output", o->out, "CSV to write: scan, time, abundance, raw file");
    sub->add_flag("--json", o->json, "Print JSON");
    sub->callback([&ctx, o] { ctx.exit_code = run_lcms(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
