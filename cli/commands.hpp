// Subcommands of the vantorix command line. Each cli/cmd_*.cpp file registers
// its own subcommand through a static CommandRegistration, so a new command is
// a new file and nothing else.
#pragma once

#include <functional>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

namespace vx::cli {

// Header texts and file names are whatever bytes the instrument wrote, not
// always UTF-8: JSON output replaces an invalid sequence instead of throwing.
inline constexpr auto INVALID_UTF8 = nlohmann::json::error_handler_t::replace;

struct Context {
    ConsoleUi ui;
    Workspace ws;
    int exit_code = 0;
    // Reads the start-up settings once, before the first command that needs them.
    // Returns 0, or -1 when the settings demand that the program ends.
    int load_settings();
    bool settings_loaded = false;
};

using Registrar = std::function<void(CLI::App& app, Context& ctx)>;

struct CommandRegistration {
    explicit CommandRegistration(Registrar r);
};

std::vector<Registrar>& registrars();

}  // namespace vx::cli
