// Peak lists written by other programs as CSV: a header row naming an m/z
// column and an intensity, height or abundance column (names matched without
// regard to case), then one row a peak. Comma, semicolon and tab separate.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

// Parses the text into peaks in ascending m/z (mass and index both hold the
// m/z; relabundance is the percent of the largest). Returns 0, or -1 with
// *error set to a message naming the line.
int parse_peak_csv(std::string_view text, std::vector<Peak>& peaks, std::string* error);

// Reads a CSV peak list into spectrum as a peak list (domain 3). Returns 0, or
// -1 after a message.
int read_peak_csv(const std::string& path, Spectrum& spectrum, Ui& ui);

}  // namespace vx
