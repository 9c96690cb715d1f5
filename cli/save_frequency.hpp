// Storing a spectrum of the command line as a frequency data file (.vfd/.wcd).
#pragma once

#include <string>

#include "commands.hpp"

namespace vx::cli {

// StoreVFDFile of s made from source's header; a warning when the stored
// counts make the file read back at another length (see --exact-count).
// Returns 0 or -1 after the message.
int save_frequency_file(Context& ctx, Spectrum& s, const std::string& out, const std::string& source, bool walking,
                        bool exact_count);

}  // namespace vx::cli
