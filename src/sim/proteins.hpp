// Proteins for the simulator: each row of a list becomes the isotope clusters
// of its charge states, every isotope level a line at the m/z of its
// abundance-weighted mean mass (not k x 1.00335 over the monoisotopic one).
#pragma once

#include <string>
#include <vector>

#include "sim/simulator.hpp"
#include "thrash/isotopes.hpp"

namespace vx {

class Ui;

struct SimProtein {
    std::string name;
    Composition atoms{};     // from the formula, or the averagine of the mass
    double mono_mass = 0.0;
    int zmin = 1, zmax = 1;
    double abundance = 0.0;  // volts of the most abundant isotope of every charge state
    double decay = 0.0;
};

// "name, formula or monoisotopic mass, zmin, zmax, abundance[, decay]"; '#'
// comments and a first line of column names are skipped. -1 after a
// "Protein list error" message.
int read_protein_list(const std::string& path, std::vector<SimProtein>& proteins, Ui& ui);

// Parses C, H, N, O, S counts ("C378H629N105O118S1"); false for anything else.
bool parse_protein_formula(const std::string& text, Composition& atoms);

// The ions of every charge state; truth gets one CSV row per cluster.
std::vector<SimIon> protein_ions(const std::vector<SimProtein>& proteins, std::string* truth_csv);

}  // namespace vx
