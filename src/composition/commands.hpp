// The composition commands of the desktop program as plain functions over the
// workspace, so that the panels only gather their controls and redraw: the
// Kendrick calculation of the active slot, the multi-peak calculator's
// "Calculate" (calc_form), the single-mass calculator (calc_form_single), and
// the views' search and export.
#pragma once

#include <string>
#include <vector>

#include "composition/assign.hpp"
#include "workspace/workspace.hpp"

namespace vx {

class Ui;
struct CalibrationPanel;

// Peaks of a peak-list slot keep their m/z in the stick position; the
// composition code reads mass. Fills mass from index where mass is 0.
void peak_masses_from_index(Spectrum& spectrum);

// KendrickCalculate on the active slot. Returns 0, or -1 after a message (no
// active data set, no peaks, bad options).
int KendrickCommand(Workspace& ws, const KendrickOptions& options, KendrickTables& tables, Ui& ui);

// The multi-peak calculator's "Calculate": the Kendrick arrays of the active
// slot (calculated first when missing or stale), then the assign pass and,
// when repair_minimum > 0, the repair of "No Hit" series. Returns 0 or -1.
int calc_form(Workspace& ws, KendrickTables& tables, const KendrickOptions& kendrick, const FormulaSettings& settings,
              int repair_minimum, Ui& ui, AssignSummary* summary);

// The single-mass calculator on one m/z: every accepted candidate, sorted by
// error when settings.SORT. Returns the number of hits, or -1 after a message.
int calc_form_single(double mz, const FormulaSettings& settings, SingleSearchResult& result, Ui& ui);

// One row of the Kendrick views: the peak, its Kendrick values and its hit.
struct KendrickRow {
    int odd = 0;
    int index = 0;  // in its array
    double mz = 0.0, abundance = 0.0;
    double kendrick_mass = 0.0;
    int nominal = 0;
    double defect = 0.0;  // nominal - Kendrick mass
    int series = 0;
    int rank = 0;         // 1-based place of the series in the rank table
    std::string formula;  // Hill order, empty without a hit
    std::string type;     // "Single", "Multiple", "Isotope", "No Hit"
    double error_ppm = 0.0;
    double dbe = 0.0;
};
// Rows of both arrays, odd first, in array order.
std::vector<KendrickRow> kendrick_rows(const Spectrum& spectrum, const KendrickTables& tables,
                                       const FormulaSettings& settings);

// The search box of the views: the first row after `after` whose text (m/z,
// formula, class, type) holds needle, without regard to case; -1 if none.
int k_search(const std::vector<KendrickRow>& rows, const std::string& needle, int after);

// CheckFormulaCallback: what the single-mass calculator is opened on from a
// row of the views: the peak's m/z, its array (1 odd) and index there, and
// the pick number the panel starts with (OP_INDEX, 4).
struct SingleCalcTarget {
    double mz = 0.0;
    int oddeven = 0;
    int index = -1;
    int op_index = 4;
};
// Returns 0, or -1 when the row is not a peak of the views.
int CheckFormula(const std::vector<KendrickRow>& rows, int row, SingleCalcTarget& target);

// update_kendrick_callback: the candidate the user picked in the calculator
// (its running number among the accepted candidates, whatever order the list
// shows) is assigned to the target peak and carried along its series, by the
// calculator's search in pick mode. Returns the number of candidates, or -1
// after a message (the arrays changed since the calculator was opened, or the
// search was refused).
int update_kendrick(Spectrum& spectrum, const SingleCalcTarget& target, int running, const FormulaSettings& settings,
                    Ui& ui);

// nohit_kendrick_callback: the target's whole series is marked "No Hit" and
// loses its formulas. Returns 0, or -1 when the target is no peak of the arrays.
int nohit_kendrick(Spectrum& spectrum, const SingleCalcTarget& target, const FormulaSettings& settings, Ui& ui);

// FindNoHitSeries: from row on, the first row of a series with at least
// minimum members whose peak has no formula; -1 when none is left.
int FindNoHitSeries(const std::vector<KendrickRow>& rows, int row, int minimum);

// AddKendrickSeries_callback (recal false) and RecalKendrick_callback (recal
// true): the assigned members of the series of the selected row go to the
// calibration table with the theoretical masses of their formulas. The second
// asks first and empties the table. Returns the number of rows added, or -1
// after a message or a no.
int AddKendrickSeries(Spectrum& spectrum, const std::vector<KendrickRow>& rows, int row, CalibrationPanel& panel,
                      bool recal, Ui& ui);

}  // namespace vx
