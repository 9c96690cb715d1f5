// Petroleum class summaries: the assigned peaks of both Kendrick arrays rolled
// up by heteroatom class, by DBE within a class and by carbon number within a
// class, with isotopologue classes folded into their parent class; the two
// mass-error tables and the class filter.
#pragma once

#include <string>
#include <vector>

#include "composition/formula.hpp"

namespace vx {

class Ui;

inline constexpr std::size_t CLASS_TEXT_MAX = 70;

struct ProcessedRow {
    int index = 0;  // in its array
    double mass = 0.0;
    double abundance = 0.0;
    double relabundance = 0.0;
    double resolvingpower = 0.0;
    double kendrick_mass = 0.0;
    int nominal = 0;
    int odd = 0;
    int z_star = 0, kmd = 0, series = 0;
    double dbe = 0.0;
    double group_share = 0.0;  // % of the total held by the row's own class
    std::string class_text;    // with its leading ","
    ElementCounts counts{};
    double error = 0.0;
    double group_sum = 0.0;  // summed abundance of the class, isotopologue classes merged
    // Not shown in the table: S/N and theoretical mass for the exports.
    double sn = 0.0;
    double theoretical_mass = 0.0;
    int hit_code = 0;
};

struct ClassSum {
    std::string class_text;  // as in the rows, with the leading ","
    double sum = 0.0;
};

// One row per peak, odd array first. Returns 0, or -1 after a message when a
// class text is longer than 70 characters.
int CopytoProcessed2(std::vector<ProcessedRow>& rows, const Spectrum& spectrum, Ui& ui);

// Classes in order of first meeting (odd array, then even), "No Hit" and empty
// classes left out.
std::vector<ClassSum> GetElementList(const std::vector<ProcessedRow>& rows);

// Class sums and the total into the rows (group_sum, group_share).
std::vector<ClassSum> AddUpProcessed(std::vector<ProcessedRow>& rows, double* total);

// The parent class of an isotopologue class: the first row of the class with
// user 1 added back to C and user 2 to S, its class text rebuilt.
std::string DeisotopeGroupName2(const std::string& class_text, const std::vector<ProcessedRow>& rows,
                                const FormulaSettings& settings);

// Folds isotopologue classes into their parents: a class naming "13C" (or,
// as the desktop wrote it, "S34") adds its sum to the parent's and both carry
// the merged sum. The 34S class texts read "34S1", which "S34" never matches;
// fold_34s also folds them (see docs/petroleum.md).
void MergeSumstoProcessed(std::vector<ClassSum>& sums, std::vector<ProcessedRow>& rows, const FormulaSettings& settings,
                          bool fold_34s);

// Group sum descending, group share descending, DBE ascending, mass ascending.
bool ProcessedCompare(const ProcessedRow& a, const ProcessedRow& b);

struct ClassRow {
    std::string class_text;  // without "," and trailing blanks: "N1 O2", "HC"
    double sum = 0.0;
    double percent = 0.0;
    int peaks = 0;
};
struct DbeRow {
    std::string class_text;
    double dbe = 0.0;
    double abundance = 0.0;
    double percent = 0.0;  // of the class
};
struct CarbonRow {
    std::string class_text;
    int carbons = 0;
    double dbe = 0.0;
    double abundance = 0.0;
    double percent = 0.0;  // of the class
};

struct PetroSummary {
    std::vector<ProcessedRow> rows;  // sorted
    std::vector<ClassRow> classes;
    std::vector<DbeRow> dbe;
    std::vector<CarbonRow> carbon;
    double total = 0.0;
};


// The texts of the five tables and the two error tables.
std::string classes_csv(const PetroSummary& s);
std::string dbe_csv(const PetroSummary& s);
std::string carbon_csv(const PetroSummary& s);
std::string processed_csv(const PetroSummary& s, const FormulaSettings& settings);
std::string peaks_csv(const PetroSummary& s, const FormulaSettings& settings);
// "Mass to charge, ppm error" / "Signal to noise, ppm error" and "%f, %f"
// lines for the peaks with a hit, odd array first.
std::string mass_error_csv(const Spectrum& spectrum);
std::string sn_error_csv(const Spectrum& spectrum);

// N, O, S, V and "Ni" counts of a class text. 0 for an element not named;
// returns 0, or -1 when a letter has no number behind it.
int ParseClass(const std::string& text, int* nitrogen, int* oxygen, int* sulfur, int* vanadium, int* nickel);

// The filter panel: a maximum and a minimum for each of N, O and S, and
// whether vanadium and nickel are allowed (each switched on dims the other).
struct BodyFilter {
    int n_min = 0, n_max = 2;
    int o_min = 0, o_max = 6;
    int s_min = 0, s_max = 0;
    bool vanadium = false;
    bool nickel = false;
};
// Raises each minimum to the class's count where larger; returns the minima
// of the limits with a maximum above 0 packed 7 bits each (N, O << 7, S << 14).
int BodyFilterSetup(const std::string& text, BodyFilter& filter);
// 1 when the class passes; a negative reason otherwise (-8 no text, -16, -17,
// -10, -11, -12, -14, -15, -2, -3; a ParseClass failure returns its code).
int UseBodyFilter(const char* text, const BodyFilter& filter);
// ProcessPetrolData2, ProcessClassData, ProcessDBENumData and
// ProcessCarbonNumData in that order; with a filter, peaks whose parent class
// fails UseBodyFilter are left out. Returns 0 or -1 after a message.
int ProcessPetro(const Spectrum& spectrum, const FormulaSettings& settings, bool fold_34s, PetroSummary& out, Ui& ui,
                 const BodyFilter* filter = nullptr);

// Parses "N0-2,O0-6,S0-1" into the filter. Returns 0 or -1 after a message.
int parse_body_filter(const std::string& text, BodyFilter& filter, Ui& ui);

}  // namespace vx
