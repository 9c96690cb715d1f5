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

}  // namespace vx
