// One cluster between the two graph cursors ("Mass Determination", Mass) or
// with a charge chosen by the user (the new-match panel, newmatch): the fit of
// the THRASH machinery on that cluster alone, and the lines the panel shows.
// Also the re-assignment of a THRASH table with a newly loaded sequence.
#pragma once

#include <string>
#include <vector>

#include "thrash/thrash.hpp"

namespace vx {

class Ui;
struct Spectrum;
struct SequenceTables;
struct SequenceAssignment;

// The noise of a cursor span as Mass takes it: the count of points below
// i x 0.05 for i = 1..500, five passes of a five-point mean, the first
// difference; the bins whose difference exceeds half its maximum give a width
// and sigma = width / 2 x 0.05. The 0.05 bins are absolute intensity units, so
// a spectrum whose points all stand above 25 gives sigma 0; the fit itself
// takes the noise of the whole spectrum and is not affected.
double mass_span_sigma(const Spectrum& s, double low_mz, double high_mz);

// Mass's own wording of an assignment ("Assignment: b - 12",
// "Assignment: Molecular Ion - H20" with its zero, ...).
std::string mass_assignment_text(const SequenceTables& t, const SequenceAssignment& a);

struct MassDetermination {
    bool found = false;
    ThrashPeak peak;                 // the first row of the fit
    std::vector<ThrashPeak> rows;    // one per assignment
    int most_abundant_index = 0;     // of the model
    double mostabundant_mass = 0.0;  // mono mass + index x 1.00254
    double span_sigma = 0.0;         // mass_span_sigma of the range
    std::vector<std::string> lines;  // "Charge: ", "Monoisotopic M/Z: ", ..., "Mass error: "
};

// Mass(low, high): charge from combo_cd. With a sequence in params, its
// assignments in Mass's wording. Returns 0 (found or not; the lines then say
// "Isotope clusters found = 0"), -1 after a message for a bad range.
int Mass(Spectrum& s, double low_mz, double high_mz, const ThrashParams& p, const AveragineTable& table,
         MassDetermination& out, Ui& ui);

// newmatch: the same with the charge given (1 to the setup's maximum charge).
int newmatch(Spectrum& s, double low_mz, double high_mz, int charge, const ThrashParams& p,
             const AveragineTable& table, MassDetermination& out, Ui& ui);

// The assignments of a sequence put into THRASH table rows found before it was
// loaded: continuation rows are dropped and made again, one row for each
// assignment, the number shared; without a sequence every row reads N/A.
std::vector<ThrashPeak> reassign_rows(const std::vector<ThrashPeak>& rows, const SequenceTables* t, double aterm);

}  // namespace vx
