// Isotope levels of an elemental composition: the probability of each nominal
// shift (0, +1, +2 ... neutrons over the all-lightest isotopologue) and the
// abundance-weighted mean mass of the isotopologues that make up that level.
//
// The levels are the exact polynomial product of every atom's isotope
// distribution, without pruning: only levels past max_levels are dropped, and
// since every shift is non-negative the levels kept are exact.
#pragma once

#include <array>
#include <vector>

namespace vx {

// The elements of peptides and proteins.
enum IsotopeElement { ISO_C = 0, ISO_H, ISO_N, ISO_O, ISO_S, ISO_ELEMENT_COUNT };

struct IsotopeOfElement {
    int shift = 0;         // neutrons over the lightest isotope
    double mass = 0.0;     // u
    double abundance = 0.0;  // mole fraction in the representative isotopic composition
};

// Representative isotopic compositions and isotope masses of C, H, N, O, S
// (docs/averagine.md names the sources).
const std::vector<IsotopeOfElement>& isotopes_of(IsotopeElement e);

// Monoisotopic (all-lightest) mass of one atom.
double monoisotopic_atom_mass(IsotopeElement e);

using Composition = std::array<long, ISO_ELEMENT_COUNT>;  // C, H, N, O, S

struct IsotopeLevels {
    std::vector<double> probability;  // level k: probability of a shift of k
    std::vector<double> mean_mass;    // level k: abundance-weighted mean neutral mass, u
};

IsotopeLevels isotope_levels(const Composition& atoms, int max_levels);

double monoisotopic_mass(const Composition& atoms);

// Mean and variance of the shift, from the per-atom moments alone (a sum of
// independent atoms): what a truncated table is checked against.
double analytic_shift_mean(const Composition& atoms);
double analytic_shift_variance(const Composition& atoms);

}  // namespace vx
