// Isotope pattern calculator: exact combinatorics of the isotopologues of a
// molecule above an abundance limit. Each element's atoms are distributed over
// its isotopes (multinomial probabilities), the elements' lists are combined,
// and the combinations are summed by nominal mass offset.
//
// Two entry points share one engine: BuildIsotopes, the small carbon /
// hydrogen / sulfur problem the isotope rules test with, and
// build_isotope_problem, any formula of the element table with its true
// isotopes, as the pattern command and panel show it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vx {

class Ui;

inline constexpr int ISO_MAX_ISOTOPES = 5;
// Largest number of element combinations (product of the elements' solution
// counts) the calculator builds; beyond it the problem is refused rather than
// allocating gigabytes.
inline constexpr std::int64_t ISO_MAX_COMBINATIONS = 4000000;
// Largest number of distributions of one element's atoms over its isotopes
// walked by FindMax.
inline constexpr std::int64_t ISO_MAX_DISTRIBUTIONS = 50000000;
// Largest distributions x atoms (the cost of the walk, about a quarter of a
// second); C 7,000 with its two isotopes is about the limit.
inline constexpr double ISO_MAX_WALK_STEPS = 5e7;

struct IsoIsotope {
    double mass = 0.0;
    double abundance = 0.0;
    int mass_offset = 0;
    std::string label;  // "13C"; empty for the rows BuildIsotopes makes up
};

struct IsoSolution {
    double abundance = 0.0;
    std::array<std::int32_t, ISO_MAX_ISOTOPES> counts{};
    std::int32_t offset = 0;
    double mass = 0.0;
};

struct IsoElement {
    std::string name;  // "Carbon", or the symbol for table elements
    std::int32_t count = 0;
    std::int32_t isotope_count = 0;
    std::int32_t element_count = 0;
    std::int32_t solution_count = 0;
    std::vector<IsoIsotope> isotopes;
    std::vector<IsoSolution> solutions;
};

struct IsoResult {
    double mass = 0.0;
    double abundance = 0.0;
    std::int32_t offset = 0;
    // Number of the combination: one digit per element (the solution index),
    // the last element's digit running fastest. isotope_parts() decodes it.
    std::int64_t combination = 0;
};

struct IsoFinal {
    double weighted_mass = 0.0;
    double abundance = 0.0;
    std::int32_t offset = 0;
    double low_mass = -1.0;
    double high_mass = -1.0;
    std::int32_t member_count = 0;
    double width = 0.0;
};

// The problem of the isotope rules, in the order Carbon, Hydrogen, Sulfur; a
// count of 0 leaves the element out. Carbon's second row holds 12C's own mass
// and abundance again at offset 1, not 13C's: the rules' thresholds were set
// against this row and it is kept so that their decisions stay as they were.
// Returns 0, or -1 when element_count is 0.
int BuildIsotopes(int element_count, int carbons, int hydrogens, int sulfurs, std::vector<IsoElement>& out);

// A formula of the element table ("C60H122N2O4S") with the true isotopes of
// each element. Returns 0, or -1 after a message: unknown symbol, a count of 0
// or less, an element with more than five isotopes, an empty formula.
int build_isotope_problem(std::string_view formula, std::vector<IsoElement>& out, Ui& ui);

// count! / (c1! c2! ...) x a1^c1 x a2^c2 ..., with the factors interleaved so
// that no partial product overflows or underflows. -1.0 when the value falls
// below threshold x 0.1 (it can only fall once every numerator factor is in).
double AbundanceCalc(int isotope_count, const std::int32_t* counts, const double* abundances, double threshold);

// The solutions of one element above the threshold, the most abundant first.
// Returns 0, or -1 when the distributions of its atoms are too many to walk.
int FindMax(IsoElement& element, double threshold);

// FindMax for every element. Returns 0 or -1 (after a message when ui is given).
int CalculateIsotope(std::vector<IsoElement>& problem, double threshold, Ui* ui = nullptr);

// Product of the solution counts, saturated at INT64_MAX.
std::int64_t combination_count(const std::vector<IsoElement>& problem);

// All combinations of one solution per element, the last element's digit
// running fastest. Returns 0, or -1 after a message when the product of the
// solution counts is past ISO_MAX_COMBINATIONS (nothing is allocated then).
int MergeMultElements(const std::vector<IsoElement>& problem, std::vector<IsoResult>& results, Ui* ui = nullptr);

// Each element's solutions in rising offset order (nothing with one element).
void SortCombinations(std::vector<IsoElement>& problem);

void SumResults(const std::vector<IsoElement>& problem, std::vector<IsoResult>& results);
// Removes results below limit, each replaced by the last one.
void CullResults(std::vector<IsoResult>& results, double limit);
// Rising offset, equal offsets in their order (a stable sort: the same order
// as the restarting bubble pass of older versions, without its square time).
void SortResults(std::vector<IsoResult>& results);
int LookupPosition(const std::vector<std::int32_t>& list, std::int32_t value);
// One summed peak per distinct offset of the sorted results.
std::vector<IsoFinal> CreateFinalList(const std::vector<IsoResult>& results);
// SumResults, CullResults, SortResults and CreateFinalList in one pass.
std::vector<IsoFinal> CalculateResults(const std::vector<IsoElement>& problem, std::vector<IsoResult>& results,
                                       double limit, bool debug, Ui* ui);

// The profile a plot of the pattern shows: x and y of the points.
struct ProfilePoints {
    std::vector<double> x, y;
    double min_mz = 0.0, max_mz = 0.0;
};
ProfilePoints PlotFinal(const std::vector<IsoFinal>& peaks, Ui* ui = nullptr);

// Everything the pattern command and panel show for one formula.
struct IsotopePattern {
    std::vector<IsoElement> problem;
    std::vector<IsoResult> isotopologues;  // fine structure, rising offset
    std::vector<IsoFinal> peaks;           // by nominal offset
};
// The whole calculation for a formula at an absolute abundance threshold
// (0 < threshold <= 1). Returns 0, or -1 after a message.
int isotope_pattern(std::string_view formula, double threshold, IsotopePattern& out, Ui& ui);

// Solution index of each element of a result.
std::vector<std::int32_t> isotope_parts(const std::vector<IsoElement>& problem, const IsoResult& r);

// Isotope counts of one isotopologue as text: "12C59 13C1 1H122 ...".
std::string isotopologue_label(const IsotopePattern& p, const IsoResult& r);

}  // namespace vx
