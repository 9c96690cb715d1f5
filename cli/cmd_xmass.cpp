// vantorix xmass FILE [-o DIR] [--scans N] [--trap-delay S] [--json]: writes a
// Tulva transient as an XMASS directory (1/acqu, 1/acqus, 1/fid, 1/SPTYPE,
// 1/pdata/1/proc, 1/pdata/1/procs) that Bruker's tools of that generation open.
#include <iostream>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "formats/bruker.hpp"
#include "formats/open_file.hpp"

namespace vx::cli {
namespace {

struct XmassOptions {
    std::string file;
    std::string out;  // base directory; default: the file's path without its extension
    XmassRun run;
    bool json = false;
};

int run_xmass(Context& ctx, const XmassOptions& o) {
    if (ctx.load_settings() < 0) return 1;
    ctx.ui.quiet_console = o.json;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();  // converting does not touch the recent-file list
    const int slot = open_any_file(ws, o.file, ctx.ui);
    if (slot < 0) return 1;
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    if (s.domain != DOMAIN_TIME) {
        ctx.ui.MessagePopup("Operator Error",
                            fmt::format("{} holds a spectrum; an XMASS directory holds a transient.", o.file));
        return 1;
    }
    const std::string base = o.out.empty() ? xmass_base_of(o.file) : o.out;
    if (Store_Data_XMASS(base, s, o.run, ctx.ui) < 0) return 1;
    if (o.json) {
        nlohmann::ordered_json j;
        j["source"] = o.file;
        j["directory"] = base;
        j["acquisition"] = base + "/1";
        j["TD"] = s.datacount;
        j["SW_h"] = s.dbandwidth;
        j["ML1"] = static_cast<double>(static_cast<float>(s.Aterm));
        j["ML2"] = static_cast<double>(static_cast<float>(-s.Bterm / s.Aterm));
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else {
        std::cout << fmt::format("wrote {}/1 ({} samples, SW_h {:.6f} Hz) from {}\n", base, s.datacount,
                                 s.dbandwidth, o.file);
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<XmassOptions>();
    auto* sub = app.add_subcommand("xmass", "Write a Tulva transient as a Bruker XMASS directory");
    sub->add_option("file", o->file, "Tulva data file (.dat, .new, .Z)")->required();
    sub->add_option("-o,--output", o->out, "Directory to write (default: the file's path without its extension)");
    sub->add_option("--scans", o->run.scans, "Number of scans written as NS (default 0)")->check(CLI::NonNegativeNumber);
    sub->add_option("--trap-delay", o->run.trapdelay, "Trap delay written as VD of acqu (default 0)");
    sub->add_flag("--json", o->json, "Print JSON instead of text");
    sub->callback([&ctx, o] { ctx.exit_code = run_xmass(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
