// The phasing commands on a slot of the workspace: the run, the redraw that
// follows it (full view in m/z, absorption display), and manual re-rotation.
#pragma once

#include "phasing/phase_run.hpp"
#include "workspace/workspace.hpp"

namespace vx {

// Phases the transient of the active panel and shows it as an absorption
// spectrum in m/z. Returns 0 or negative after a message.
int phase_command(Workspace& ws, const PhaseRunOptions& options, Ui& ui, PhaseRunResult* result = nullptr);

// The "Manual Phasing Control" values.
struct ManualPhaseValues {
    double second = 0.0;   // second-order term (mantissa)
    int second_exponent = 0;
    double first = 0.0;    // first-order term (mantissa)
    int first_exponent = 0;
    double zero = 0.0;     // rad
    double shift = 0.0;    // points: the first-order term changes sign here
    int mode = 1;          // 1..4, other
    bool delayf = false;   // "Use Delayf"
    bool limit = false;
    double limit_lo = 0.0, limit_hi = 0.0;  // points
    double final_khz = 0.0;                 // FINALFREQ
    bool flip = false;                      // "Force Data Flip"
};

// ManualPhase_Callback without the panel: the record's terms from the values,
// the curve over [lo, hi), the rotation of realdata / imagdata into data (no new
// transform), points outside the limits zero, and, when slope is given, the
// phase step phi(k) - phi(k + 1) for the dispersion panel. Returns 0 or -1
// when the record holds no complex spectrum.
int ManualPhase(Spectrum& s, const ManualPhaseValues& v, std::vector<float>* slope);

// The digit fields of a term: units, tenths, hundredths, thousandths of
// |value| by floor (the last rounded), each with the value's sign.
struct PhaseDigits {
    int units = 0, tenths = 0, hundredths = 0, thousandths = 0;
};
PhaseDigits split_phase_digits(double value);
double join_phase_digits(const PhaseDigits& d);

}  // namespace vx
