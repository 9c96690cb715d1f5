// The reborn peak picker: absolute thresholds, candidate indexes first and the
// peak records afterwards, S/N by windows of 3 m/z once the list is complete.
#pragma once

#include <vector>

#include "peaks/find_peaks.hpp"
#include "workspace/settings.hpp"
#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

// One S/N window of the 3 m/z method.
struct SnWindow {
    std::int64_t firstindex = 0;
    std::int64_t lastindex = 0;
    double lowmz = 0.0;
    double highmz = 0.0;
    std::int64_t count = 0;
    std::vector<float> samples;
    double baseline = 0.0;
    double sigma = -1.0;
};

// The search by abundance ("New PeakPick By Abun") over settings.low_mass ..
// settings.high_mass with peak_threshold and noise_threshold as absolute levels;
// the notch table leaves its ranges out. Fills spectrum.peaks and table;
// returns peakcount.
int NewVantorixPeakPick2(Spectrum& spectrum, const Settings& settings, PeakTable& table, Ui& ui);

// "New PeakPick by S/N": the S/N step runs first, on the list already there;
// the new peaks then carry sn = -1. That order is how the button has always
// worked and results depend on it.
int NewVantorixPeakPickSN(Spectrum& spectrum, const Settings& settings, PeakTable& table, Ui& ui);

// Candidate indexes of the walk between first and last: apex above peak_level,
// not at first or last, strictly above both neighbours; ties to the earlier
// index; the walk goes on after each apex. Ascending.
std::vector<long> FindVantorixPeakIndexesOldAndNew(const Spectrum& spectrum, long first, long last,
                                                   double peak_level, double noise_level, double min_width);
// The simple scan from first + 1 to last - 2: y(i) above peak_level, both
// neighbours above noise_level, y(i) above both. Ascending.
std::vector<long> FindVantorixPeakIndexes(const Spectrum& spectrum, long first, long last, double peak_level,
                                          double noise_level);

// Turns n indexes into spectrum.peaks (read from the last index to the first).
void AssignAllPeaks(Spectrum& spectrum, long n, const std::vector<long>& indexes, Ui& ui);
// Width at half height (interpolated, in m/z) and resolving power of the first
// n peaks.
void CalculateRP(Spectrum& spectrum, long n);
// Percent of the largest peak; -1 for an empty list, else 0.
int CalculateRelativeAbundance(Spectrum& spectrum, long n);

void CalculateSignalToNoiseThrashStyle(Spectrum& spectrum);
void CalculateSignalToNoiseBasedOnUserDefines(Spectrum& spectrum);
// S/N of every peak against CalculateNoiseRobust over `window` m/z about it;
// an estimate serves every peak within a quarter window of its centre.
void assign_robust_sn(Spectrum& spectrum, double window);
void FillInEachSnRange(const Spectrum& spectrum, SnWindow& window);
void CalculateNoiseInEachRange(std::vector<SnWindow>& windows);
void AssignSnToPeaksInList(Spectrum& spectrum, const std::vector<SnWindow>& windows);

// Removes later copies of any index among the first count entries (shifting
// the rest up); returns the new count, -10 when the count would turn negative.
long CheckForAndRemoveDuplicates(std::vector<long>& indexes, long count);
void RemoveIndexAndShiftReaminingIndexesUp(std::vector<long>& indexes, long count, long position);

// m/z at a fractional point by the two-term law, without the detection mode.
double InterpMidMass(double point, const Spectrum& spectrum);

// Both table panels filled from the first n peaks.
void FillPeaklist2Table(const Spectrum& spectrum, long n, const Settings& settings, PeakTable& table);

}  // namespace vx
