// Isotope rules: once a Kendrick series has a formula its 13C, 2 x 13C, 34S and
// 34S + 13C relatives lie at known masses in known arrays, at heights the
// noise must allow. The rules find those peaks, give them formulas (user slot
// 1 counts 13C, slot 2 counts 34S) and take them out of later searches.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "composition/formula.hpp"
#include "composition/kendrick.hpp"

namespace vx {

class Ui;

// The four isotopologues, in the order of the flags of a peak.
enum IsotopeKind { ISO_C13 = 0, ISO_2C13 = 1, ISO_S34 = 2, ISO_S34_C13 = 3 };

// Values of a flag.
inline constexpr int ISOFLAG_UNTESTED = 0;
inline constexpr int ISOFLAG_EXPECTED = 1;
inline constexpr int ISOFLAG_MISSING = -1;
inline constexpr int ISOFLAG_FOUND = 99;
inline constexpr int ISOFLAG_IS_ISOTOPE = -99;

inline constexpr double ISOTOPE_SN_LIMIT = 3.0;
inline constexpr double ISOTOPE_NOISE_WINDOW = 5.0;
inline constexpr int ISOTOPE_CARBON_LIMIT = 250;
inline constexpr double ISOTOPE_SCORE = 101.0;

// Above 0 when the isotopologue should stand above limit at this S/N (the
// count of the element's isotopologues above limit / sn, less 1 for 13C and
// 34S, less 2 for 2 x 13C, not below 0). Carbon is tested with the calculator's
// rules row (12C twice), as the thresholds were set.
int check_c13_isotope(int carbons, double sn, double limit, double mz);
int check_2c13_isotope(int carbons, double sn, double limit, double mz);
int check_s34_isotope(int sulfurs, double sn, double limit, double mz);
int check_s34_c13_isotope(int sulfurs, int carbons, double sn, double limit, double mz);

// Target mass of an isotopologue of a parent at mass m; user masses 1 and 2
// are those of 13C and 34S.
double isotope_target(IsotopeKind kind, double m, double user1, double user2);

// Candidates of an isotopologue of parent in peaks: without a hit, within
// target x ppm, strictly weaker than max_abundance. Returns their number; the
// closest goes to *best and its mass to *target_out.
int find_isotope(IsotopeKind kind, const HitRecord& parent, const std::vector<HitRecord>& peaks, double ppm,
                 double user1, double user2, int* best, double* target_out, double max_abundance);

// S/N of a peak from the spectrum's noise at its mass (window 5.0).
double CalculateSN(const HitRecord& peak, const Spectrum& spectrum);

// Gives the located peak (index found of the array `oddeven`) the parent's
// formula with the isotope counts of kind, and carries it along its series
// with score 101.0 and hit code 200 (400 when hits > 1). The parent's flag
// becomes 99, the located peak's flags -99.
void assign_xxx_isotope(int oddeven, HitRecord& parent, int found, int hits, IsotopeKind kind, double ppm,
                        Spectrum& spectrum, const FormulaSettings& settings, Ui& ui);
void assign_c13_isotope(int oddeven, HitRecord& parent, int found, int hits, double ppm, Spectrum& spectrum,
                        const FormulaSettings& settings, Ui& ui);

// What the rules did, per kind: tests that expected the isotopologue, and
// isotopologues found (assigned in the guided form).
struct IsotopeRulesSummary {
    int peaks = 0;
    std::array<int, 4> expected{};
    std::array<int, 4> found{};
};

// The rules for one Kendrick group (rank of the rank table), run by calcform3
// with TOPDOWN after the group got its formula. The series of each assigned
// isotope peak is marked assigned in the rank table, so that no later rank
// searches it as an unknown compound. Returns 0.
int isotope_rules_single(int oddeven, int series, double ppm, KendrickTables& tables, Spectrum& spectrum,
                         const FormulaSettings& settings, Ui& ui, IsotopeRulesSummary* summary = nullptr);

// The unguided form: the four tests and searches for every peak with a formula,
// odd array then even, with its own S/N and limit 3.0; nothing is assigned,
// only the flags are set. Returns 0.
int isotope_rules(double ppm, Spectrum& spectrum, const FormulaSettings& settings, Ui& ui,
                  IsotopeRulesSummary* summary = nullptr);

// A peak list: assignment with the default elements, then isotope_rules.
// Returns 0 or -1 after a message.
int isotope_rules_list(Spectrum& spectrum, double series_ppm, double ppm, Ui& ui, IsotopeRulesSummary* summary);

// One row a peak of both arrays, odd first: mz, abundance, S/N, array, index,
// formula and the four flags.
std::string isotope_flags_csv(const Spectrum& spectrum, const FormulaSettings* settings = nullptr);

}  // namespace vx
