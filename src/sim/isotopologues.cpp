#include "sim/isotopologues.hpp"

#include <algorithm>
#include <cmath>

#include "composition/elements.hpp"

namespace vx {

int add_isotopologue_peaks(std::vector<SimulatedFormulaPeak>& peaks, double min_abundance) {
    const auto& t = element_table();
    const IsotopeEntry& c12 = t[SLOT_C].isotopes[0];
    const IsotopeEntry& c13 = t[SLOT_C].isotopes[1];
    const IsotopeEntry& s32 = t[SLOT_S].isotopes[0];
    const IsotopeEntry& s34 = t[SLOT_S].isotopes[2];
    const double q13 = c13.abundance / c12.abundance;
    const double q34 = s34.abundance / s32.abundance;
    std::vector<SimulatedFormulaPeak> added;
    for (const SimulatedFormulaPeak& p : peaks) {
        const int c = p.ion[0], s = p.ion[4];
        const double rel = p.exact_mz > 0.0 ? p.mz / p.exact_mz : 1.0;
        struct Kind {
            int n13, n34;
            double ratio;
        };
        // Binomial ratios to the all-light isotopologue.
        const Kind kinds[] = {
            {1, 0, c * q13},
            {2, 0, c * (c - 1) / 2.0 * q13 * q13},
            {0, 1, s * q34},
            {1, 1, c * q13 * s * q34},
        };
        for (const Kind& k : kinds) {
            if (k.ratio <= 0.0 || p.abundance * k.ratio < min_abundance) continue;
            SimulatedFormulaPeak q = p;
            q.ion[0] -= k.n13;
            q.ion[6] += k.n13;
            q.ion[4] -= k.n34;
            q.ion[7] += k.n34;
            q.exact_mz = p.exact_mz + k.n13 * (c13.mass - c12.mass) + k.n34 * (s34.mass - s32.mass);
            q.mz = q.exact_mz * rel;
            q.abundance = p.abundance * k.ratio;
            added.push_back(q);
        }
    }
    const int n = static_cast<int>(added.size());
    peaks.insert(peaks.end(), added.begin(), added.end());
    std::stable_sort(peaks.begin(), peaks.end(),
                     [](const SimulatedFormulaPeak& a, const SimulatedFormulaPeak& b) { return a.mz < b.mz; });
    return n;
}

}  // namespace vx
