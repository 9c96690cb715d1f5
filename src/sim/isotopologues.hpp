// Isotopologue peaks for a simulated list of known formulas: the 13C, 2 x 13C,
// 34S and 34S + 13C relatives of each peak at their true abundance ratios, as
// a spectrum shows them, so that isotope rules and class tables can be
// measured against the truth.
#pragma once

#include <vector>

#include "sim/formula_list.hpp"

namespace vx {

// Adds the isotopologues of every peak whose abundance would reach
// min_abundance, with the parent's relative mass error; the truth (ion counts,
// user slot 1 = 13C, slot 2 = 34S) travels with each. Peaks stay in ascending
// m/z. Returns the number added.
int add_isotopologue_peaks(std::vector<SimulatedFormulaPeak>& peaks, double min_abundance);

}  // namespace vx
