// Mass calibration: the calibration table of the CALIBRATE panel, the matching
// of reference masses to peaks, the two-term fit m/z = A/f + B|V|/f^2, applying
// it to a spectrum and its peaks, and the walking calibration (a chain of exact
// two-term laws between neighbouring calibrants).
//
// The panel's table is the working store: the table is filled from checked
// peaks, reference masses are assigned to its rows, a fit reads it and writes
// back the measured masses and errors, and apply moves the coefficients into
// the spectrum. Every function here works on plain records so that the desktop
// panel, the command line and the tests run the same code.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;
struct Workspace;

// MagneticField (tesla) = CalA * this, and CalA = MagneticField / this.
inline constexpr double FIELD_PER_ATERM = 6.512114795548e-08;

// One row of the calibration table, in the column order of the panel.
struct CalTableRow {
    int number = 0;             // 1-based peak number in the peak list
    double frequency = 0.0;     // Hz
    double theoretical = -1.0;  // known m/z; -1.0 while unassigned
    double measured = 0.0;      // m/z under the panel's coefficients
    double error = 0.0;         // ppm
    double abundance = 0.0;     // "Scaled Abun"
    double relabundance = 0.0;  // "Relative Abun"
    double sn = 0.0;
    double calmz1 = 0.0;        // walking: the pair's law at the previous calibrant
    double calmz2 = 0.0;        // walking: the pair's law at this calibrant
    double ppq = 0.0;           // walking: disagreement of neighbouring laws, parts per 10^15
    double recalA = 0.0;        // walking: the pair's A
    double recalB = 0.0;        // walking: the pair's B
};

inline constexpr int CAL_COLUMNS = 13;
extern const char* const CAL_COLUMN_HEADINGS[CAL_COLUMNS];

// The CALIBRATE panel's state: the table and the fields around it.
struct CalibrationPanel {
    std::vector<CalTableRow> rows;
    double CalA = DEFAULT_ATERM;
    double CalB = DEFAULT_BTERM;
    double MagneticField = DEFAULT_ATERM * FIELD_PER_ATERM;
    double TrapPlates = 1.0;
    double RmsError = 0.0;
    int CalPoints = 0;
    double CurrentTheoretical = 0.0;
    int active_row = 0;
    bool WalkingOn = false;
    int WalkingTerms = 2;
    bool AbundanceThreeTerm = false;
    bool apply_enabled = false;
    bool recal_enabled = true;
};

// Matching tolerance around a reference mass: the limit in m/z when ppm is
// false, else mass * limit * 1e-6 (so it grows with the mass).
double calibrant_tolerance(double mass, double limit, bool ppm);

// Settings of the automatic matching (AUTOCALMASSERRORLIMIT, AUTOCALUNITS).
struct MatchTolerance {
    double limit = 1.0;
    bool ppm = true;
};

// FillCalTableNew: the table from the checked peaks (0-based indices into
// spectrum.peaks), in peak-list order; each gets iscalibrant 1. keep_mass puts
// the peak's calmass into the theoretical column, otherwise -1.0. Fewer than 2
// checked peaks: "Operator Error" and -1, the table untouched.
int FillCalTableNew(CalibrationPanel& panel, Spectrum& spectrum, std::span<const int> checked, bool keep_mass,
                    Ui& ui);

// MatchTheo_toMeasured: for each reference mass the peak nearest to it within
// the tolerance; the peaks to check, ascending and without repeats.
std::vector<int> MatchTheo_toMeasured(const Spectrum& spectrum, std::span<const double> masses,
                                      const MatchTolerance& tol);

// AssignTheor_toCalPanel: the nearest reference within tolerance of each row's
// measured m/z becomes its theoretical mass (rows whose peak already carries a
// calibrant mass keep it; rows already holding a mass above 0.5 are left alone).
void AssignTheor_toCalPanel(CalibrationPanel& panel, Spectrum& spectrum, std::span<const double> masses,
                            const MatchTolerance& tol);

// Drops rows without a theoretical mass (at most 0); returns how many went.
int RemoveUnassignedCalPeaks(CalibrationPanel& panel);
// Drops later rows that repeat an earlier row's frequency or theoretical mass:
// two calibrants on one peak would divide by zero in the walking terms, and one
// mass on two peaks has no single frequency. Returns how many went.
int RemoveDuplicateCalibrants(CalibrationPanel& panel);

// Ordinary unweighted least-squares line y = slope x + intercept. Returns 0, or
// -1 with fewer than 2 points or all x equal (or a result that is not finite).
int LinFit(std::span<const double> x, std::span<const double> y, double& slope, double& intercept, double& mse);

// The calculate button: the two-term fit of the table (and, with WalkingOn and
// 2 terms, the pairwise walking columns). trapvoltage is the spectrum's.
// Returns 0, or -1 after a message (nothing changed).
int CalibrationCalculate(CalibrationPanel& panel, double trapvoltage, Ui& ui);

// Measured mass and error of every row under A and B, and RmsError.
void Update_Calibration(CalibrationPanel& panel, double A, double B, double trapvoltage);

// The apply button: the panel's coefficients (or the walking table) go to the
// spectrum; with update_peaks the masses of the peaks are recomputed. kind 2 is
// the three-term flow of quick calibration. Returns 0, or -1 after a message.
int ApplyCalibration(Spectrum& spectrum, CalibrationPanel& panel, int kind, bool update_peaks, Ui& ui);

// Mass of every peak from its frequency: terms 0 is the plain law with A and B;
// otherwise the walking regions of the spectrum (kind 2: exact m/z at the edges).
void Update_PeaklistNew(Spectrum& spectrum, int terms, int kind, double A, double B, Ui& ui);

// Sorts calibrants ascending by theoretical m/z.
void SortCalibrants(Spectrum& spectrum);
// The table's rows into the spectrum's calibrant list.
void FillCalibrantsIntoSpectrum(Spectrum& spectrum, const CalibrationPanel& panel);

// BuildWalkingCalibrationTable: regions from the sorted calibrants. Returns 0,
// or -1 when there are fewer calibrants than regions + 1 or two share a frequency.
int BuildWalkingCalibrationTable(Spectrum& spectrum, int regions);

// The calibration table rebuilt from the walking regions (rows = calibrants shown).
void PushCalibrationArrayToCalTable(const Spectrum& spectrum, CalibrationPanel& panel, int regions, int rows);

// One row of the walking recall table: number, frequency, m/z of a calibrant.
struct RecallRow {
    int number = 0;
    double frequency = 0.0;
    double mz = 0.0;
};
// FillInWalkingCalibrationArray: regions from a recall table of calibrants.
int FillInWalkingCalibrationArray(Spectrum& spectrum, std::span<const RecallRow> rows);

// The "Walking Calibration Recall" panel's content.
struct WalkingRecall {
    int regions = 0;
    int points = 0;
    struct Row {
        double startfreq, endfreq, A, B;
        int startpeak;
        double startmz;
    };
    std::vector<Row> rows;
    int last_peak = 0;
    double last_mz = 0.0;
};
WalkingRecall FillWalkingCalibrationRecallPanel(const Spectrum& spectrum);

// WalkingCalMatchCallback: the stored calibrants matched to the present peak
// list (0.1 ppm of frequency); the table is rebuilt from the peaks found and
// checked receives their indices. base_percent scales the relative abundance.
// Returns the number found, or -1 after a message when no table is loaded.
int WalkingCalMatch(Spectrum& spectrum, CalibrationPanel& panel, double base_percent, std::vector<int>& checked,
                    Ui& ui);

// Marks the peaks of the table as calibrants with their table row and m/z.
void IdentifyAllCalibrantsInPeaklist(Spectrum& spectrum, const CalibrationPanel& panel);

// The calibration table as CSV (CR LF lines), with walking columns when
// WalkingOn, and the region lines of a spectrum's walking table.
std::string calibration_csv_text(const CalibrationPanel& panel, const Spectrum& spectrum);
// Writes it; an existing file needs the overwrite answer. 0, 1 declined, -1 after a message.
int SaveCalibrationCsv(const std::string& path, const CalibrationPanel& panel, const Spectrum& spectrum, Ui& ui);

// The walking table as CSV and its default path beside the data file.
std::string walking_csv_text(const Spectrum& spectrum);
std::string walking_csv_path(const std::string& datafile);
// Writes it (overwriting); path empty: walking_csv_path of the file name.
// Returns 0, -1 after a message, or 1 when there is no walking table.
int SaveWalkingCalasCSV(const Spectrum& spectrum, const std::string& path, Ui& ui);

// ABRecalculate_callback: the stored A and B checked against the law of each
// adjacent pair of peaks, printed on the console. Returns the number of pairs.
int ABRecalculate(const Spectrum& spectrum, Ui& ui);

// AddToCalTable: appends one row for the peak at peak_index (0-based) with the
// mass of the given walking region's law at its frequency; sets CalPoints.
void AddToCalTable(CalibrationPanel& panel, const Spectrum& spectrum, int peak_index, const WalkingRegion& region,
                   double base);

// Calibrants of known mass into the table (a Kendrick series whose formulas
// give each member's theoretical mass): with clear, the table is emptied and
// every peak unmarked first. Each peak (0-based index) gets a row with its
// mass as the theoretical value and its measured error, and is marked as a
// calibrant; a peak already in the table, an index outside the list or a mass
// of 0 or less is passed over. Returns the number of rows added.
int add_calibrants_to_table(CalibrationPanel& panel, Spectrum& spectrum, std::span<const int> peaks,
                            std::span<const double> masses, bool clear);

// Panel controls that act on their own.
void set_magnetic_field(CalibrationPanel& panel, double tesla);
void set_cal_a(CalibrationPanel& panel, double A);
// TrapPlates: refused below 1e-7 in size, else the spectrum's Trapvoltage.
int set_trap_plates(CalibrationPanel& panel, Spectrum& spectrum, double volts, Ui& ui);
// Asks "Delete Peak Number %i ?"; on yes removes the row. Returns 1 when deleted.
int delete_cal_row(CalibrationPanel& panel, int row, Ui& ui);
// Sorts the rows by a column (0-based), ascending or descending.
void sort_cal_table(CalibrationPanel& panel, int column, bool ascending);
// Writes the active row's theoretical mass and recomputes its error.
void set_current_theoretical(CalibrationPanel& panel, double mass);

// RecalSpecial_callback: copies the calibration of panel src to panel dst
// (1-based panel numbers). Returns 0, 1 when both are the same, -1 after a message.
int RecalSpecial(Workspace& ws, int src, int dst, Ui& ui);

}  // namespace vx
