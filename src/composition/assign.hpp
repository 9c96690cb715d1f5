// Whole-table assignment: one formula search per Kendrick series (the test
// peak of each ranked series), the second pass over series left without a
// hit, the repair of "No Hit" series, the statistics and the result table.
#pragma once

#include <string>

#include "composition/formula.hpp"
#include "composition/kendrick.hpp"

namespace vx {

class Ui;

// The assign pass over the rank table. Returns 0, or -1 when a search was
// refused (bad settings, or the user quit at the error-limit question).
int calcform3(Spectrum& spectrum, KendrickTables& tables, const FormulaSettings& settings, Ui& ui);

// The no-hits pass: the same over the rank table that calcform3 left, series
// shorter than settings.min_series_length skipped, and the assigned field set
// whenever a search finds hits.
int calcform4(Spectrum& spectrum, KendrickTables& tables, const FormulaSettings& settings, Ui& ui);

// The automatic "No Hit" repair: every series of at least minimum members
// still without a formula is searched again from its first member by the
// single-mass calculator, and the candidate of lowest score (the first found
// among equals) is carried along the series. Returns the number of series
// repaired, or -1 after a message.
int fix_no_hit_series(Spectrum& spectrum, const KendrickTables& tables, const FormulaSettings& settings, int minimum,
                      Ui& ui);

// RMS and largest absolute error (ppm) over peaks with a hit.
struct ErrorSummary {
    double rms = 0.0;
    double largest = 0.0;
    int assigned = 0;
};
ErrorSummary Calculate_RMS_Error(const Spectrum& spectrum);

// 100 x assigned / total abundance; in_series receives the percent assigned
// among peaks of series with at least two members.
double Calculate_Percent_Assigned(const Spectrum& spectrum, double* in_series);

// Formula of the neutral molecule for an ion composition: in NEG a
// de-protonated ion gains one H, in POS a protonated ion loses one.
ElementCounts neutral_counts(const ElementCounts& ion, ChargeMode mode);

// The assignment table, one row a peak of the Kendrick arrays in m/z order.
std::string assignment_csv_text(const Spectrum& spectrum, const FormulaSettings& settings);

// Kendrick calculation, assign pass, no-hits pass and repair in one call, as
// the command line and the demo run it. Returns 0 or -1 after a message.
struct AssignSummary {
    int peaks = 0;
    int assigned = 0;
    int series = 0;
    int repaired = 0;
    double percent_assigned = 0.0;
    double percent_in_series = 0.0;
    ErrorSummary errors;
};
int assign_peak_list(Spectrum& spectrum, const KendrickOptions& kendrick, const FormulaSettings& settings,
                     int repair_minimum, Ui& ui, AssignSummary* summary, KendrickTables* tables_out = nullptr);

}  // namespace vx
