// vantorix script FILE [--json]: the experiment that made a transient, as a
// timeline of its events with the waveform memory it needs.
#include <iostream>

#include "commands.hpp"
#include "experiment/script.hpp"

namespace vx::cli {
namespace {

struct ScriptOptions {
    std::string file;
    bool json = false;
};

int run_script(Context& ctx, const ScriptOptions& o) {
    if (ctx.load_settings() < 0) return 1;
    Experiment ex;
    if (LoadTulvaScript(ctx.ws, o.file, ex, false, ctx.ui) < 0) return 1;
    // The warnings are part of the result here, not popups to dismiss.
    const WaveMemory mem = Check_Total_Mem_Use(ex, nullptr);
    if (o.json)
        // Labels are the bytes of the file: what is not UTF-8 is shown as U+FFFD.
        std::cout << experiment_json(ex, mem).dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                  << '\n';
    else
        std::cout << experiment_timeline(ex, mem);
    return 0;
}

CommandRegistration reg_script([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<ScriptOptions>();
    auto* sub = app.add_subcommand("script", "Show the experiment script of a .exp, .dat, .new or .Z file");
    sub->add_option("file", o->file, "The script or data file")->required();
    sub->add_flag("--json", o->json, "Print the experiment tree as JSON");
    sub->callback([&ctx, o] { ctx.exit_code = run_script(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
