// Magnitude spectra with known ions for the peak-picking tests: Lorentzian
// lines on Rayleigh-distributed noise (the magnitude of complex Gaussian noise),
// on the direct-mode axis with the default two-term calibration.
#pragma once

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "workspace/conversions.hpp"
#include "workspace/spectrum.hpp"

namespace vx::test {

struct Ion {
    double mz = 0.0;
    double height = 0.0;  // above the noise, in spectrum units
    double rp = 0.0;      // resolving power m / FWHM
};

inline Spectrum blank_spectrum(int n) {
    Spectrum s;
    Set_Default_Parameters(s);
    s.domain = DOMAIN_FREQUENCY;
    s.datacount = n;
    s.dbandwidth = 1000000.0;
    s.hzppt = s.dbandwidth / n;
    s.data.assign(static_cast<std::size_t>(n), 0.0f);
    return s;
}

// A blank spectrum holding the given samples (a hand-made profile).
inline Spectrum spectrum_of(std::vector<float> y) {
    Spectrum s = blank_spectrum(static_cast<int>(y.size()));
    s.data = std::move(y);
    return s;
}

// Point of an m/z on the spectrum's axis.
inline double point_of(const Spectrum& s, double mz) { return SMass_toPt(s, mz); }

inline void add_rayleigh_noise(Spectrum& s, double sigma, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> g(0.0, sigma);
    for (float& v : s.data) {
        const double re = g(rng), im = g(rng);
        v += static_cast<float>(std::sqrt(re * re + im * im));
    }
}

inline void add_exponential_noise(Spectrum& s, double mean, unsigned seed) {
    std::mt19937 rng(seed);
    std::exponential_distribution<double> e(1.0 / mean);
    for (float& v : s.data) v += static_cast<float>(e(rng));
}

// FWHM in points of an ion: f / RP in Hz over the point spacing.
inline double fwhm_points(const Spectrum& s, const Ion& ion) {
    const double p = point_of(s, ion.mz);
    return p / ion.rp;
}

inline void add_ions(Spectrum& s, const std::vector<Ion>& ions) {
    const long n = static_cast<long>(s.data.size());
    for (const Ion& ion : ions) {
        const double centre = point_of(s, ion.mz);
        const double hw = fwhm_points(s, ion) / 2.0;
        const long reach = static_cast<long>(hw * 60.0) + 3;
        const long c = static_cast<long>(std::lround(centre));
        for (long i = std::max(0L, c - reach); i <= std::min(n - 1, c + reach); ++i) {
            const double x = (static_cast<double>(i) - centre) / hw;
            s.data[static_cast<std::size_t>(i)] += static_cast<float>(ion.height / (1.0 + x * x));
        }
    }
}

// The peak of a list nearest to an m/z; null for an empty list.
inline const Peak* nearest_peak(const std::vector<Peak>& peaks, double mz) {
    const Peak* best = nullptr;
    for (const Peak& pk : peaks)
        if (!best || std::fabs(pk.mass - mz) < std::fabs(best->mass - mz)) best = &pk;
    return best;
}

// A petroleum-like list: count ions spread over [low, high] m/z, heights falling
// over two decades, at a resolving power that keeps lines a few points wide.
inline std::vector<Ion> petroleum_ions(int count, double low, double high, double rp, double noise_sigma,
                                       unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<Ion> ions;
    ions.reserve(static_cast<std::size_t>(count));
    const double step = (high - low) / count;
    for (int k = 0; k < count; ++k) {
        Ion ion;
        ion.mz = low + step * (k + 0.2 + 0.6 * u(rng));
        ion.height = noise_sigma * (30.0 + 500.0 * std::pow(u(rng), 3.0));
        ion.rp = rp;
        ions.push_back(ion);
    }
    return ions;
}

}  // namespace vx::test
