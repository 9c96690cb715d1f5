// Ways into the calibration table from elsewhere in the program: peaks picked
// in another panel (a formula list, a Kendrick series), the quick calibration
// from a homologous series, and the masses of the old peak panel's rows after
// a calibration has been applied.
#pragma once

#include <span>
#include <vector>

#include "calibration/calibration.hpp"

namespace vx {

class Ui;
struct PeakTableRow;

// One peak to calibrate on: its 0-based index in the spectrum's peak list and
// its known m/z (-1.0 to leave the row unassigned for a reference file).
struct CalibrantPick {
    int peak = -1;
    double theoretical = -1.0;
};

// Adds picked peaks to the calibration table, keeping the table in peak-list
// order. A peak already in the table keeps its row and takes the new mass
// (when one is given). Each picked peak is marked as a calibrant carrying its
// mass. Measured masses and errors of the table are recomputed under the
// panel's coefficients; an empty table first takes the spectrum's A, B and
// trap voltage. Returns the number of rows added, or -1 after a message when a
// peak index is outside the peak list (nothing changed then).
int add_calibrants_to_table(CalibrationPanel& panel, Spectrum& spectrum, std::span<const CalibrantPick> picks,
                            Ui& ui);

// What the quick calibration takes from the Kendrick panel.
struct QuickCalRequest {
    std::vector<int> checked;     // checked series members: 0-based peak indices
    double start_mz = -1.0;       // first m/z of the series; negative stops the run
    double upper_limit = 1e300;   // the panel's limit (the spectrum's highest m/z bounds it too)
    double unit_first = 1.00782503223;  // 2 x first + second mass = the repeat unit (CH2)
    double unit_second = 12.0;
    int mode_a = -1;              // -1 keeps the panel's walking switch, else its new value
    int kind = 1;                 // 1, 3: two walking terms; 2, 4: three (2 is the three-term flow)
    bool run_fit = true;          // fit and apply at once
    bool clear = true;            // unmark every peak first (FinishQuickCalNew)
};

// The theoretical masses of the series: start, start + unit, ... up to limit,
// at most ceil((limit - start) / unit) + 1 values.
std::vector<double> quick_cal_series(double start, double unit, double limit);

// FinishQuickCalNew: the checked members fill the table, the series masses
// are assigned within the tolerance, rows without a mass dropped; with
// run_fit the table is fitted and applied. checked_out receives the peaks
// marked in the peak list. Returns 0, or -1 (fewer than 2 checked after the
// "Operator Error" message, a negative start, or a failed fit).
int FinishQuickCalNew(CalibrationPanel& panel, Spectrum& spectrum, const QuickCalRequest& request,
                      const MatchTolerance& tol, Ui& ui);

// FinishQuickCal: as FinishQuickCalNew without clearing the peak marks; with
// keep off the theoretical masses already in the table are merged into the
// series first and every mass of the merged list is printed
// ("theoMassFinalArray[%i].mass = %f.\n").
int FinishQuickCal(CalibrationPanel& panel, Spectrum& spectrum, const QuickCalRequest& request, bool keep,
                   const MatchTolerance& tol, Ui& ui);
// FinishQuickCal44: FinishQuickCal without the merging and the prints.
int FinishQuickCal44(CalibrationPanel& panel, Spectrum& spectrum, const QuickCalRequest& request,
                     const MatchTolerance& tol, Ui& ui);

// Update_Peaklist: the old peak panel's rows after a calibration. Each row's
// frequency is carried through the law (terms 0) or the spectrum's walking
// regions; the m/z is kept as the panel showed it ("%f", six decimals) and the
// point recomputed from it. The edge tolerances of the old panel stay: 1e-4
// at a region's start frequency and 1e-6 at its end (kind 2).
void Update_Peaklist(const Spectrum& spectrum, std::vector<PeakTableRow>& rows, int terms, int kind, double A,
                     double B);
// Update_Peaklist2: each row takes the mass of the peak record it numbers;
// rows whose frequency is not that peak's (a list of another search) are left.
void Update_Peaklist2(const Spectrum& spectrum, std::vector<PeakTableRow>& rows);

}  // namespace vx
