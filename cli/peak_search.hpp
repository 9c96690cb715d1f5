// The peak search of the command line, shared by every command that finds peaks
// in a data file (vantorix peaks, vantorix calibrate): the options, their flags,
// and the run from opening the file to a filled peak list.
#pragma once

#include <string>
#include <vector>

#include "commands.hpp"
#include "peaks/find_peaks.hpp"

namespace vx::cli {

struct PeakSearchOptions {
    double low_mass = 0.0, high_mass = 0.0;
    bool sn = false, abundance = false;
    double threshold = -1.0, noise_threshold = -1.0, min_width = -1.0, noise_window = -1.0;
    double peak_sigma = -1.0, noise_sigma = -1.0;
    bool global_noise = false, percent = false, robust_noise = false;
    std::vector<std::string> notches;
    bool reborn = false, macro = false;
    std::string noise_range;
    int threads = 0;
    int apodization = -1, zerofills = -1;  // processing of a transient; -1: the settings'
    bool absorption = false;               // phase the transient instead of the magnitude transform

    // With --sn the two thresholds are the sigma factors the search compares
    // with; the reborn S/N button still compares absolute levels.
    bool thresholds_are_factors() const { return sn && !reborn; }
};

// Registers the search flags on a subcommand.
void add_peak_search_options(CLI::App* sub, PeakSearchOptions& o);

// "LOW:HIGH" as two numbers.
bool parse_pair(const std::string& text, std::pair<double, double>& out);

struct PeakSearchResult {
    int slot = -1;  // the slot the file was opened into
    int count = 0;  // peaks found
    PeakTable table;
};

// Opens file (processing a transient first), applies the options to the
// settings and runs the chosen search. Returns 0 (count may be 0), or -1 after
// a message.
int find_peaks_in_file(Context& ctx, const std::string& file, const PeakSearchOptions& o, PeakSearchResult& result);

}  // namespace vx::cli
