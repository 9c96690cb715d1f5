// The commands of the CALIBRATE panel that go beyond one table operation:
// calibrating against a reference file, recalibrating data files with the
// panel's coefficients, and saving the table's masses. The desktop panel and
// the command line call these; the panel only gathers paths and redraws.
#pragma once

#include <span>
#include <string>

#include "calibration/calibration.hpp"

namespace vx {

class Ui;
struct Settings;

// The matching tolerance of the settings (AUTOCALMASSERRORLIMIT, AUTOCALUNITS).
MatchTolerance tolerance_from_settings(const Settings& settings);

struct ReferenceMatch {
    int checked = 0;     // peaks nearest to a reference within the tolerance
    int unassigned = 0;  // rows that got no mass and were dropped
    int duplicates = 0;  // rows repeating a frequency or a mass, dropped
};

// The table from the peaks nearest to the reference masses: the peaks are
// checked, the table filled from them, the masses assigned, rows without a
// mass and repeats removed. Returns 0, or -1 after "Operator Error" when fewer
// than 2 calibrants remain (the spectrum's peak flags may then be set, the
// table is left as it was).
int calibrate_from_reference(Spectrum& spectrum, CalibrationPanel& panel, std::span<const double> masses,
                             const MatchTolerance& tol, Ui& ui, ReferenceMatch* report = nullptr);

// "Calibrate Ref File": asks for a reference file and assigns its masses to
// the rows of the table; an empty table is first filled from the peaks nearest
// to the masses. Returns 0, or -1 (no file, or after a message).
int calibrate_ref_file_command(Spectrum& spectrum, CalibrationPanel& panel, const MatchTolerance& tol, Ui& ui);

// "Recal file": asks "Do you want to recalibrate the current file?" and writes
// FILE.new with CalA and CalB. Returns 0, 1 when declined, -1 after a message.
int recal_file_command(const Spectrum& current, const CalibrationPanel& panel, Ui& ui);

// "Recal Multi Files": asks whether the current file is to be included, then
// for a list of files; each is written as FILE.new. current may be null.
// Returns the number of files written, or -1 when any failed.
int recal_multi_files_command(const Spectrum* current, const CalibrationPanel& panel, Ui& ui);

// The theoretical masses of the table into a reference file (the overwrite
// question for an existing file). Returns 0, 1 when declined, -1 after a message.
int save_reference_from_table(const std::string& path, const CalibrationPanel& panel, Ui& ui);

}  // namespace vx
