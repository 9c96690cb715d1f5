// Spectra of isotope clusters with known truth for the THRASH tests: each
// level of the averagine (or given) composition is a Lorentzian line at the
// m/z of the level's abundance-weighted mean mass.
#pragma once

#include <string>
#include <vector>

#include "peaks/synthetic.hpp"
#include "platform/ui.hpp"
#include "thrash/averagine.hpp"
#include "thrash/isotopes.hpp"

namespace vx::test {

inline constexpr double PROTON_EXACT = 1.00727647;

inline const Composition UBIQUITIN{378, 629, 105, 118, 1};

// The bundled averagine table, read once for the whole test program.
inline const AveragineTable& bundled_averagine() {
    static const AveragineTable t = [] {
        AveragineTable t;
        RecordingUi ui;
        ReadAveragineTable(t, ui, nullptr, std::string(VANTORIX_SOURCE_DIR) + "/data/averagine_lookup2.txt");
        return t;
    }();
    return t;
}

// A 1M-point magnitude spectrum of 250 kHz bandwidth: 0.0025 m/z per point at
// m/z 700, so the isotopes of charge 40 stand ten points apart.
inline Spectrum protein_spectrum(int n = 1 << 20, double bandwidth = 250000.0) {
    Spectrum s = blank_spectrum(n);
    s.dbandwidth = bandwidth;
    s.hzppt = bandwidth / n;
    return s;
}

struct TrueCluster {
    Composition atoms{};
    int charge = 1;
    double height = 1.0;  // of the most abundant level, above the noise
};

// Lines of a transient's Fourier limit: every line is fwhm_pts points wide
// whatever its m/z (rp = point / width).
inline std::vector<Ion> cluster_ions(const TrueCluster& c, const Spectrum& s, double fwhm_pts = 3.0) {
    const IsotopeLevels lv = isotope_levels(c.atoms, 100);
    double top = 0.0;
    for (double p : lv.probability) top = std::max(top, p);
    std::vector<Ion> ions;
    for (std::size_t k = 0; k < lv.probability.size(); ++k) {
        if (lv.probability[k] < 0.001 * top) continue;
        const double mz = (lv.mean_mass[k] + c.charge * PROTON_EXACT) / c.charge;
        ions.push_back({mz, c.height * lv.probability[k] / top, point_of(s, mz) / fwhm_pts});
    }
    return ions;
}

// Equally spaced lines 1.00335 / z apart under a smooth envelope centred on mz.
inline std::vector<Ion> comb_ions(double mz, int z, double height, double rp) {
    std::vector<Ion> ions;
    for (int k = -12; k <= 12; ++k) {
        const double env = std::exp(-0.5 * (k / 4.0) * (k / 4.0));
        ions.push_back({mz + k * 1.00335 / z, height * env, rp});
    }
    return ions;
}

}  // namespace vx::test
