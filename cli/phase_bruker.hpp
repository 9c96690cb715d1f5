// The Bruker part of `vantorix phase`: its options, and the report of how the
// curve of an apex/solariX acquisition was found with the width table of its
// tallest lines (magnitude against absorption, same transform).
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "phasing/chirp_seek.hpp"
#include "phasing/phase_run.hpp"

namespace vx::cli {

struct BrukerWidths {
    std::vector<WidthRow> rows;
    double median = 0.0;
};

void add_bruker_phase_options(CLI::App* sub, std::string& chirp_seek, long long& leading_points, int& widths);
// The width table of the count tallest lines of the band (none for count 0).
BrukerWidths bruker_widths_of(const Spectrum& s, const PhaseRunResult& r, int count);
void add_bruker_json(nlohmann::json& j, const PhaseRunResult& r, const BrukerWidths& w);
void print_bruker_text(std::ostream& out, const PhaseRunResult& r, const BrukerWidths& w);

}  // namespace vx::cli
