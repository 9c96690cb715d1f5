// Kendrick analysis: the peak list split by the parity of the nominal Kendrick
// mass into the odd and even arrays, each grouped into series of peaks one
// base unit (CH2) apart, and the rank table of the series by abundance.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

inline constexpr double KENDRICK_FACTOR_CH2 = 1.0011177;
inline constexpr double KMD_SERIES_CH2 = 14.015650064;

// One series of the rank table.
struct KendrickRank {
    std::int32_t first = 0;          // first index in its array
    std::int32_t most_abundant = 0;  // index of the most abundant member
    std::int32_t last = 0;
    std::int32_t series = 0;         // series number within its array
    double highest = 0.0;            // abundance of the most abundant member
    std::int32_t assigned = 0;       // number of hits, 0 while not assigned
    std::int32_t odd = 0;            // 1 odd array, 0 even
    double sum = 0.0;                // summed abundance of the series
};

// What a Kendrick calculation leaves beside the two arrays of the spectrum.
struct KendrickTables {
    std::vector<std::int32_t> odd_first, even_first;  // first index of each series, then count - 1
    std::int32_t odd_series = 0, even_series = 0;
    std::vector<KendrickRank> ranks;
    double factor = KENDRICK_FACTOR_CH2;  // Kendrick mass = m/z / factor
    double step = 0.0;                    // exact mass of the base unit
    std::string base = "CH2";
};

struct KendrickOptions {
    double ppm = 1.0;   // window of the series walk
    double up = 0.5;    // abundance band above the last member, fraction
    double down = 0.5;  // and below it
    std::string base = "CH2";  // repeat unit; CH2 uses the customary factor 1.0011177
};

// The base unit's exact mass and Kendrick factor ("CH2", "H2", "CO2", "O",
// "C2H4O" ...). Returns false for a text that is not a formula of known elements.
bool kendrick_base(const std::string& base, double& step, double& factor);

// Nominal Kendrick mass, KMD (thousandths) and z* of one m/z.
struct KendrickValues {
    double km = 0.0;
    std::int32_t nominal = 0;
    std::int32_t kmd = 0;
    std::int32_t z_star = 0;
    bool odd = false;  // parity of floor(km), which decides the array
};
KendrickValues kendrick_values(double mz, double factor);

// Builds the two arrays of spectrum (odd: unassigned, even: assigned) from
// its peaks, their series and the rank table. Peaks with no mass are left
// out. Returns 0, or -1 after a message (empty list, bad base, bad window).
int KendrickCalculate(Spectrum& spectrum, const KendrickOptions& options, KendrickTables& tables, Ui& ui);

// The series walk from one anchor through one array (sorted by mass): peaks
// one step apart within ppm and, among several, the one in the abundance band
// and closest to the target. A missing member does not end the walk. Returns
// the number of members, the anchor included.
int AssignKendrickSeries(std::vector<HitRecord>& array, std::vector<double>& working, int anchor, int series,
                         double ppm, double up, double down, double step);

// Series numbers from 0 without gaps after sorting by series then mass; the
// first index of each series, with count - 1 as the last entry.
void Set_KMD_series_by_flag(std::vector<HitRecord>& array, std::vector<std::int32_t>& first_index);

// Rank table over both arrays, odd first, by highest member abundance
// descending (the earliest of equals first).
std::vector<KendrickRank> RankKendrickGroups(const std::vector<HitRecord>& odd, const std::vector<HitRecord>& even);

// Peaks without a hit within +-tolerance of *mass and below max_abundance:
// their indices into matches, the count returned, the closest in *best and its
// mass in place of the target. 0 when none.
int LocateKendrickMass(double* mass, const std::vector<HitRecord>& peaks, double tolerance, std::vector<int>& matches,
                       int* best, double max_abundance);

// In the odd array only: -1 when taking CH2 away from hit for an earlier
// member of the peak's series would make C or H negative, else 0.
int CheckForIncompatibleKendrickMembers(const ElementCounts& hit, int peak, double mass, int oddeven,
                                        const Spectrum& spectrum);

// Position of each series in the rank table: rank_of[odd][series].
std::vector<std::vector<std::int32_t>> rank_index(const KendrickTables& tables);

// The series as a CSV table: one row a peak, odd array first.
std::string kendrick_csv_text(const Spectrum& spectrum, const KendrickTables& tables);

// SaveKendrick: the text export of the Kendrick views, in the layout older
// result files and the tools that read them expect. Three forms: relative
// abundance (1), with calibrants, frequency, S/N, theoretical mass and error
// (2), absolute abundance (3).
enum class KendrickSaveKind { RelativeAbundance = 1, Calibrants = 2, AbsoluteAbundance = 3 };
struct KendrickSaveOptions {
    KendrickSaveKind kind = KendrickSaveKind::RelativeAbundance;
    int decimals = 7;  // of the m/z column (the peak table's decimals)
    // The ion-mode line. Unset: the sign of the trap voltage decides, as in
    // the .pks peak lists; set: the charge mode the formulas were searched in.
    std::optional<bool> negative;
};
// The whole file as it is written (CR LF line ends).
std::string SaveKendrick_text(const Spectrum& spectrum, const KendrickTables& tables, const KendrickSaveOptions& options);
// Writes it to path (atomically; never over the data file of the spectrum).
// Returns 0, or -1 after a message.
int SaveKendrick(const std::string& path, const Spectrum& spectrum, const KendrickTables& tables,
                 const KendrickSaveOptions& options, Ui& ui);
// The batch names: the data file without its extension plus "_save3.csv"
// (which 0), "_processed.csv" (1) or "_preprocessed.csv" (2); the last two
// note the names on the console.
std::string kendrick_batch_path(const std::string& datafile, int which, Ui& ui);

}  // namespace vx
