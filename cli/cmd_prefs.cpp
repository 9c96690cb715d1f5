// vantorix prefs [--file F.txt] [--save OUT.txt] [--json]: the user
// preferences as a session starts with them (preference.ini and default.txt
// are made on the first run), or those of a given file.
#include <iostream>

#include <fmt/format.h>
#include <fmt/printf.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "workspace/preferences.hpp"
#include "workspace/settings.hpp"

namespace vx::cli {
namespace {

struct PrefsOptions {
    std::string file;
    std::string save;
    bool json = false;
};

int run_prefs(Context& ctx, const PrefsOptions& o) {
    Preferences prefs;
    const std::string folder = data_dir();
    if (SetupPreferences(folder, prefs, ctx.ui) < 0 && o.file.empty()) return 1;
    if (!o.file.empty() && LoadPreferenceFileTXT(o.file, prefs, ctx.ui) != 1) return 1;
    if (!o.save.empty() && SavePreferenceTXT(o.save, prefs, ctx.ui) < 0) return 1;
    const auto& keys = preference_keys();
    if (o.json) {
        nlohmann::ordered_json j;
        j["folder"] = folder;
        j["AUTOLOAD"] = prefs.AUTOLOAD;
        j["AUTOSAVE"] = prefs.AUTOSAVE;
        j["DRAGNDROPTYPE"] = prefs.DRAGNDROPTYPE;
        j["FILE"] = prefs.FILE;
        j["TOOL"] = prefs.TOOL;
        j["loaded"] = prefs.loaded;
        nlohmann::ordered_json values;
        for (const Pref p : preference_save_order()) {
            const auto& k = keys[static_cast<std::size_t>(p)];
            if (k.real)
                values[k.name] = prefs[p];
            else
                values[k.name] = prefs.integer(p);
        }
        j["values"] = std::move(values);
        std::cout << j.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
        return 0;
    }
    std::cout << fmt::format("FILE={}\nAUTOLOAD={}\nAUTOSAVE={}\nDRAGNDROPTYPE={}\nTOOL={}\n", prefs.FILE,
                             prefs.AUTOLOAD, prefs.AUTOSAVE, prefs.DRAGNDROPTYPE, prefs.TOOL);
    for (const Pref p : preference_save_order()) {
        const auto& k = keys[static_cast<std::size_t>(p)];
        std::cout << (k.real ? fmt::sprintf("%s=%f\n", k.name, prefs[p]) : fmt::sprintf("%s=%d\n", k.name, prefs.integer(p)));
    }
    return 0;
}

CommandRegistration reg_prefs([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<PrefsOptions>();
    auto* sub = app.add_subcommand("prefs", "Show the user preferences (made on the first run), load or save a file");
    sub->add_option("--file", o->file, "Load this preference file (.txt) instead of the one preference.ini names");
    sub->add_option("--save", o->save, "Save the preferences to this file (.txt)");
    sub->add_flag("--json", o->json, "Print the preferences as JSON");
    sub->callback([&ctx, o] { ctx.exit_code = run_prefs(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
