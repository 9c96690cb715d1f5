// vantorix: the command line of Vantorix Analysis.
#include <cstdio>
#include <iostream>

#include "commands.hpp"
#include "workspace/filelist.hpp"

namespace vx::cli {

std::vector<Registrar>& registrars() {
    static std::vector<Registrar> r;
    return r;
}

CommandRegistration::CommandRegistration(Registrar r) { registrars().push_back(std::move(r)); }

int Context::load_settings() {
    if (settings_loaded) return 0;
    settings_loaded = true;
    const std::string dir = settings_dir();
    ensure_default_ini(dir);
    ws.settings_folder = dir;
    if (ReadINI(dir, ws.settings, ui) < 0) return -1;
    FileList(dir);
    return 0;
}

}  // namespace vx::cli

int main(int argc, char** argv) {
    CLI::App app{"Vantorix Analysis: FT-ICR mass spectrometry from the command line"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "vantorix 0.1.0");
    vx::cli::Context ctx;
    app.add_flag("-v,--verbose", ctx.ui.verbose, "Print the diagnostics of the working functions on stderr");
    // The global flags are also taken after the subcommand's own options.
    app.fallthrough();
    for (auto& reg : vx::cli::registrars()) reg(app, ctx);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    }
    return ctx.exit_code;
}
