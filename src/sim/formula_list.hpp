// Simulated peak lists of known formulas: homologous CH2 series of natural
// organic matter classes (CHO, CHON, CHOS) as de-protonated, even-electron
// ions, with masses perturbed by a few tenths of a ppm. The truth travels with
// each peak, so formula assignment can be measured against it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "workspace/spectrum.hpp"

namespace vx {

struct FormulaListParameters {
    int count = 5000;          // peaks
    std::uint64_t seed = 1;
    double max_error_ppm = 0.3;  // uniform perturbation of each mass
    double low_mz = 150.0, high_mz = 900.0;
    int c_min = 10, c_max = 70;
    int dbe_max = 25;
    bool cho = true;   // O1-O20
    bool chon = true;  // N1O1-N2O10
    bool chos = true;  // S1O1-S1O10
    int series_min = 3, series_max = 12;  // CH2 members of one series
    int charge_sign = -1;  // -1 de-protonated ([M-H]-), +1 protonated ([M+H]+)
};

struct SimulatedFormulaPeak {
    double mz = 0.0;          // perturbed ion m/z
    double exact_mz = 0.0;    // ion m/z of the true formula
    double abundance = 0.0;
    ElementCounts ion{};      // C, H, N, O, S of the ion (the neutral has one H more in negative mode)
};

// Peaks in ascending m/z, no two of the same formula.
std::vector<SimulatedFormulaPeak> simulate_formula_list(const FormulaListParameters& p);

// As a CSV table readable by the peak-list CSV reader: mz,intensity,formula.
std::string formula_list_csv(const std::vector<SimulatedFormulaPeak>& peaks);

// The peaks as a spectrum's peak list (mass, index, abundance, relabundance).
void formula_list_to_spectrum(const std::vector<SimulatedFormulaPeak>& peaks, Spectrum& spectrum);

}  // namespace vx
