// vantorix save FILE -o OUT.dat [--version 4|3|2] [--storage-line] [--json]:
// a new Tulva data file made from FILE's own header and samples.
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "formats/open_file.hpp"
#include "formats/tulva_writer.hpp"

namespace vx::cli {
namespace {

struct SaveOptions {
    std::string file;
    std::string out;
    int version = 0;
    bool storage_line = false;
    bool json = false;
};

int run_save(Context& ctx, const SaveOptions& o) {
    ctx.ui.quiet_console = o.json;
    if (ctx.load_settings() < 0) return 1;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();
    const int slot = open_any_file(ws, o.file, ctx.ui);
    if (slot < 0) {
        std::cerr << o.file << ": not opened\n";
        return 1;
    }
    TulvaWriteOptions w;
    w.version = o.version;
    w.storage_line = o.storage_line;
    HeaderCopyResult found;
    if (SaveasTULVA(ws, true, o.out, slot, 0, ctx.ui, w, &found) < 0) return 1;
    if (!o.storage_line && !found.storage_type_seen)
        ctx.ui.MessagePopup("Warning", fmt::format("The header of {} has no \"Storage Type:\" line: {} reads back "
                                                   "as 16-bit samples. --storage-line adds the line.",
                                                   o.file, o.out));
    const Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    if (o.json) {
        nlohmann::ordered_json j;
        j["source"] = o.file;
        j["output"] = o.out;
        j["version"] = o.version;
        j["datacount"] = s.datacount;
        std::cout << j.dump(2, ' ', false, vx::cli::INVALID_UTF8) << '\n';
    } else {
        std::cout << o.out << '\n';
    }
    return 0;
}

CommandRegistration reg([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<SaveOptions>();
    auto* sub = app.add_subcommand("save", "Write a time-domain data file as a new Tulva data file (header copied from it)");
    sub->add_option("file", o->file, "Tulva data file (.dat, .new, .Z)")->required();
    sub->add_option("-o,--output", o->out, "The new data file")->required();
    sub->add_option("--version", o->version, "Writer generation: 4, 3 or 2 (default: the source's own)")
        ->check(CLI::IsMember({2, 3, 4}));
    sub->add_flag("--storage-line", o->storage_line,
                  "Add \"Storage Type: float\" to a header that has no storage line");
    sub->add_flag("--json", o->json, "Print JSON instead of text");
    sub->callback([&ctx, o] { ctx.exit_code = run_save(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
