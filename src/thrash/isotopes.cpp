#include "thrash/isotopes.hpp"

#include <algorithm>

namespace vx {

namespace {

// IUPAC representative isotopic compositions (Rosman and Taylor, Pure Appl.
// Chem. 70, 217, 1998) and isotope masses of the 2003 atomic mass evaluation.
const std::array<std::vector<IsotopeOfElement>, ISO_ELEMENT_COUNT> kIsotopes = {{
    {{0, 12.0, 0.9893}, {1, 13.0033548378, 0.0107}},
    {{0, 1.00782503207, 0.999885}, {1, 2.0141017778, 0.000115}},
    {{0, 14.0030740048, 0.99636}, {1, 15.0001088982, 0.00364}},
    {{0, 15.99491461956, 0.99757}, {1, 16.99913170, 0.00038}, {2, 17.9991610, 0.00205}},
    {{0, 31.97207100, 0.9499}, {1, 32.97145876, 0.0075}, {2, 33.96786690, 0.0425}, {4, 35.96708076, 0.0001}},
}};

// Level probabilities and mass-weighted probabilities of a distribution.
struct Levels {
    std::vector<double> p, pm;
};

Levels multiply(const Levels& a, const Levels& b, int max_levels) {
    Levels r;
    const std::size_t n = std::min<std::size_t>(max_levels, a.p.size() + b.p.size() - 1);
    r.p.assign(n, 0.0);
    r.pm.assign(n, 0.0);
    for (std::size_t i = 0; i < a.p.size() && i < n; ++i) {
        if (a.p[i] == 0.0) continue;
        for (std::size_t j = 0; j < b.p.size() && i + j < n; ++j) {
            // Masses add, probabilities multiply: the mass-weighted sum of the
            // product is pa pmb + pma pb.
            r.p[i + j] += a.p[i] * b.p[j];
            r.pm[i + j] += a.p[i] * b.pm[j] + a.pm[i] * b.p[j];
        }
    }
    return r;
}

Levels power(Levels base, long n, int max_levels) {
    Levels result{{1.0}, {0.0}};
    while (n > 0) {
        if (n & 1) result = multiply(result, base, max_levels);
        n >>= 1;
        if (n > 0) base = multiply(base, base, max_levels);
    }
    return result;
}

}  // namespace

const std::vector<IsotopeOfElement>& isotopes_of(IsotopeElement e) { return kIsotopes[e]; }

double monoisotopic_atom_mass(IsotopeElement e) { return kIsotopes[e].front().mass; }

double monoisotopic_mass(const Composition& atoms) {
    double m = 0.0;
    for (int e = 0; e < ISO_ELEMENT_COUNT; ++e) m += static_cast<double>(atoms[e]) * monoisotopic_atom_mass(IsotopeElement(e));
    return m;
}

IsotopeLevels isotope_levels(const Composition& atoms, int max_levels) {
    max_levels = std::max(1, max_levels);
    Levels total{{1.0}, {0.0}};
    for (int e = 0; e < ISO_ELEMENT_COUNT; ++e) {
        if (atoms[e] <= 0) continue;
        Levels atom;
        for (const auto& iso : kIsotopes[e]) {
            if (static_cast<std::size_t>(iso.shift) >= atom.p.size()) {
                atom.p.resize(iso.shift + 1, 0.0);
                atom.pm.resize(iso.shift + 1, 0.0);
            }
            atom.p[iso.shift] += iso.abundance;
            atom.pm[iso.shift] += iso.abundance * iso.mass;
        }
        total = multiply(total, power(atom, atoms[e], max_levels), max_levels);
    }
    IsotopeLevels out;
    out.probability = total.p;
    out.mean_mass.resize(total.p.size());
    for (std::size_t k = 0; k < total.p.size(); ++k)
        out.mean_mass[k] = total.p[k] > 0.0 ? total.pm[k] / total.p[k] : 0.0;
    return out;
}

double analytic_shift_mean(const Composition& atoms) {
    double mean = 0.0;
    for (int e = 0; e < ISO_ELEMENT_COUNT; ++e) {
        double m = 0.0;
        for (const auto& iso : kIsotopes[e]) m += iso.abundance * iso.shift;
        mean += static_cast<double>(atoms[e]) * m;
    }
    return mean;
}

double analytic_shift_variance(const Composition& atoms) {
    double var = 0.0;
    for (int e = 0; e < ISO_ELEMENT_COUNT; ++e) {
        double m = 0.0, m2 = 0.0, total = 0.0;
        for (const auto& iso : kIsotopes[e]) {
            m += iso.abundance * iso.shift;
            m2 += iso.abundance * iso.shift * iso.shift;
            total += iso.abundance;
        }
        // The abundances of a composition sum to one within rounding; the
        // moments are of the normalised distribution.
        m /= total;
        m2 /= total;
        var += static_cast<double>(atoms[e]) * (m2 - m * m);
    }
    return var;
}

}  // namespace vx
