// Axis conversions: data point, time, frequency and m/z of a spectrum, through
// its detection mode and calibration law. Every function reads the calibration
// state from the record passed to it and keeps no state of its own.
//
// The array forms and the single-point forms differ in small ways (thresholds
// on the third term for Bruker data, guards, fallbacks); those differences are
// relied on by callers and stay as they are.
#pragma once

#include <span>
#include <utility>

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;
struct AnalysisPanel;

// Arrays: in and out have the same length (out may alias in).
void Pt_tofreq(const Spectrum& s, std::span<const double> points, std::span<double> freqs);
void Freq_topt(const Spectrum& s, std::span<const double> freqs, std::span<double> points);
// console (optional) receives the region lines that a walking table of other
// than two terms prints before it converts.
void Pt_tomass(const Spectrum& s, std::span<const double> points, std::span<double> masses, Ui* console = nullptr);
void Freq_tomass(const Spectrum& s, std::span<const double> freqs, std::span<double> masses);
void Mass_topt(const Spectrum& s, std::span<const double> masses, std::span<double> points);
void Pt_tomass_walking(const Spectrum& s, std::span<const double> points, std::span<double> masses,
                       Ui* console = nullptr);

// Single points.
double SPt_tofreq(const Spectrum& s, long point);
double SPt_tomass(const Spectrum& s, double point);
double SMass_toPt(const Spectrum& s, double mass);
double One_pt_tomass(const Spectrum& s, double point);
double One_mass_topt(const Spectrum& s, double mass);
// The same for many masses at once, value for value identical to the single form
// (the law is chosen once for the array).
void One_mass_topt(const Spectrum& s, std::span<const double> masses, std::span<double> points);

// Point of a time in seconds on a panel's spectrum: round(ceil(2 t bw)).
double Time_topt(const AnalysisPanel& panel, double seconds);
// Named by frequency order: the lowest point has the highest mass.
double High_Mass(const Spectrum& s);
double Low_Mass(const Spectrum& s);
// Largest and smallest sample between two x positions (masses for domain 2).
std::pair<float, float> Min_max(double x1, double x2, const Spectrum& s);
// Index of the last xvalue at or below mass; -1 when the first is already above.
long GetIndexFromMassXcal(double mass, const Spectrum& s);
void Array_root(std::span<float> values);

// The instrument law of apex/solariX data (CALTYPE_INSTRUMENT), f in Hz, m in
// m/z. With ML3 = 0 the files store ML2 with the other sign: m = ML1 / (f + ML2).
// Otherwise f = ML1/m + ML2 + ML3/m^2, solved for m with the root that gives a
// positive m/z. The two are exact inverses of each other; a frequency outside
// the law (no positive root) gives MASS_OUT_OF_LAW.
double instrument_mass(double ML1, double ML2, double ML3, double f);
double instrument_freq(double ML1, double ML2, double ML3, double m);

// Marks a frequency outside the law; readers of masses treat it as beyond any range.
inline constexpr double MASS_OUT_OF_LAW = 100000.0;

}  // namespace vx
