// The averagine isotope model of THRASH: the lookup table of averagine
// patterns (averagine_lookup2.txt), its generator, the interpolated pattern of
// one mass, the binomial model of the two other sample types and the
// conversion of a figure of merit to the reliability RL.
#pragma once

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "thrash/isotopes.hpp"

namespace vx {

class Ui;
struct Spectrum;

inline constexpr int AVERAGINE_ROWS = 150;
inline constexpr int AVERAGINE_WIDTH = 100;
inline constexpr double AVERAGINE_ROW_STEP = 500.0;  // row r: monoisotopic mass (r + 1) x 500 Da
inline constexpr const char* AVERAGINE_FILE = "averagine_lookup2.txt";

// Proton mass of every m/z to mass step of THRASH.
inline constexpr double THRASH_PROTON = 1.00727;

struct AveragineTable {
    std::array<std::array<double, AVERAGINE_WIDTH>, AVERAGINE_ROWS> rows{};  // fractions of the highest
};

// The model controls of the THRASH SETUP panel.
struct ModelSettings {
    int sample_type = 0;  // 0 the table; 1 and 2 the binomial model
    bool adduct_on = false;
    int adduct_offset = 0;  // isotope steps
    double adduct_ratio = 1.0;
};

// --- the generator -------------------------------------------------------

// Averagine, the mean amino acid residue: C4.9384 H7.7583 N1.3577 O1.4773 S0.0417.
inline constexpr std::array<double, ISO_ELEMENT_COUNT> AVERAGINE_UNIT = {4.9384, 7.7583, 1.3577, 1.4773, 0.0417};

// Whole atoms of an averagine molecule of the given monoisotopic mass: C, N, O
// and S are the unit counts scaled and rounded, H makes up the rest of the mass.
Composition averagine_composition(double monoisotopic_mass);

// Row r of the table: the first 100 isotope levels of the averagine molecule of
// (r + 1) x 500 Da, in percent of the highest.
std::array<double, AVERAGINE_WIDTH> averagine_row_percent(int r);

// The text of averagine_lookup2.txt: one record a line, "n v1 ... vn" with n the
// levels up to the last one that prints as non-zero at six decimals.
std::string averagine_table_text();

// --- reading --------------------------------------------------------------

// Where the table is looked for: the working directory, then the folder of
// bundled data of this build.
std::string averagine_table_path();

// Reads the table from path (averagine_table_path() when empty). A missing file
// shows "Can't find file"; a malformed one (a record short of its count, a
// count above 100 or below 0) the same message with the record named on the
// console. Both set *abort_flag when given and return -1; the table is then
// left all zero.
int ReadAveragineTable(AveragineTable& table, Ui& ui, bool* abort_flag = nullptr, const std::string& path = {});
// The same on text in memory (the fuzz target's road); no message for a
// missing file, since there is none.
int parse_averagine_table(const std::string& text, AveragineTable& table, Ui& ui);

// --- the model ------------------------------------------------------------

// Pattern of an ion of m/z mz at charge: pattern[0..99] ends with -1.0 (values
// behind it are 0). Returns by mode: 1 the pattern length (index of the end
// mark), 2 the index of the most abundant isotope, otherwise 0. The spectrum
// gives the polarity (its A term). scratch may be null.
double distrib_calculation(double mz, int charge, double* pattern, double* scratch, int mode,
                           const AveragineTable& table, const Spectrum& spectrum, const ModelSettings& model);

// The binomial pattern used by match for sample types other than 0: (height,
// isotope index) pairs in order.
std::vector<std::pair<double, int>> cdistrib(double mz, int charge, int sample_type, bool adduct_on,
                                             double adduct_ratio, int adduct_offset);

// RL in [0, 1] of a figure of merit at a charge (one fitted rule per charge).
double convert_FOM_to_RL(double fom, int charge);

// "99%+" above 99 %, else the percentage with two decimals (the RL text of the
// table and the files).
std::string rl_text(double rl);

// Small helpers of the model.
double interp(double x, double x0, double y0, double x1, double y1);
long round_to_long(double v);
double get_max(long low, long high, const float* data);
double get_min(long low, long high, const float* data);

}  // namespace vx
