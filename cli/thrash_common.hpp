// Shared by the THRASH commands: a data file opened into a slot and brought to
// a magnitude spectrum (a transient goes through "Process" first).
#pragma once

#include <string>

#include "commands.hpp"

namespace vx::cli {

// Returns the slot, or -1 after a message.
int open_spectrum_file(Context& ctx, const std::string& file);

}  // namespace vx::cli
