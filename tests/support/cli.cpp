#include "support/cli.hpp"

#include "formats/tulva_reader.hpp"
#include "support/files.hpp"

namespace vx::test {

namespace {

std::string quoted(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

}  // namespace

CliRun run_cli(const std::string& home, const std::string& args, bool merge_stderr) {
    CliRun r;
    std::string command = "VANTORIX_HOME=" + quoted(home) + " " + quoted(VANTORIX_CLI_PATH) + " " + args;
    // The subshell takes the outer redirections first, so its own 2>&1 lands
    // in the captured output instead of being overridden by them.
    if (merge_stderr) command = "(" + command + " 2>&1)";
    r.status = run_command(command, &r.out, &r.err);
    return r;
}

int open_tulva_file(Workspace& ws, const std::string& path, Ui& ui) {
    ws.settings_folder.clear();
    return open_data_file(ws, path, FILETYPE_TULVA, read_tulva_into_slot, ui);
}

}  // namespace vx::test
