// Charge of an isotope cluster from the regularity of its envelope: the
// Fourier transform of the resampled cluster (fcharge) and its autocorrelation
// (acharge) each score every charge on a 1/6 grid; combo_cd multiplies them.
#pragma once

#include <vector>

namespace vx {

struct Spectrum;

// Scores on the charge axis (1/6, 2/6, ... up to max_charge).
struct ChargeScores {
    std::vector<double> charge;  // the axis
    std::vector<double> fourier, autocorr, product;
};

inline constexpr int CHARGE_STEPS_PER_UNIT = 6;

// The samples a charge search reads: the THRASH working copy (negative values
// taken as 0) while the scan runs, else the data.
const std::vector<float>& charge_source(const Spectrum& s, bool use_working);

// Each returns its own best charge (0 when the range holds too few points) and
// fills out on the charge axis of max_charge.
int fcharge(double low_mz, double high_mz, std::vector<double>& out, const Spectrum& s, int max_charge,
            bool use_working);
int acharge(double low_mz, double high_mz, std::vector<double>& out, const Spectrum& s, int max_charge,
            bool use_working);

// Both, their product, and the charge of its maximum: the index's charge value
// rounded to the whole charge (entries around 6n give n). 0 for a range of too
// few points, which the scan takes as 1.
int combo_cd(double low_mz, double high_mz, ChargeScores& scores, const Spectrum& s, int max_charge,
             bool use_working);

}  // namespace vx
