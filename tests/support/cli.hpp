// The vantorix program run as a child process from the tests.
#pragma once

#include <string>

#include "workspace/workspace.hpp"

namespace vx::test {

struct CliRun {
    int status = -1;
    std::string out;  // standard output, or both streams in the order written when merged
    std::string err;  // standard error when not merged
};

// Runs the vantorix program with args (quoted by the caller). VANTORIX_HOME
// points at home, so a test never reads or writes the user's own settings.
CliRun run_cli(const std::string& home, const std::string& args, bool merge_stderr = false);

// Opens a transient through the program's own opening road with no settings
// folder, so nothing saved at home changes what the test sees; the slot or -1.
int open_tulva_file(Workspace& ws, const std::string& path, Ui& ui);

}  // namespace vx::test
