// Changing the calibration of stored Tulva data files: the header is copied line
// by line with the two coefficient lines replaced, and the sample block is
// copied raw behind it. The input is never opened for writing.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vx {

class Ui;

struct CalibrationChangeOptions {
    // The coefficients have always been written as single-precision values,
    // which rounds A to a few units in 10^8. full_precision writes the double
    // as it is, for files that are to carry a sub-ppm calibration.
    bool full_precision = false;
};

// Change_Tulva_Calibration_Go: writes outpath as a copy of inpath with
// "Source Coeff0:" = a and "Source Coeff1:" = b. A .Z input is unpacked into a
// private temporary folder, written as inpath without ".Z" plus ".new", packed
// to that name plus ".Z" in its folder, and the unpacked output removed.
// Returns 0, or -1 after a message (no output left behind).
int Change_Tulva_Calibration_Go(const std::string& inpath, const std::string& outpath, double a, double b, Ui& ui,
                                const CalibrationChangeOptions& options = {});

// ChangeCalCallback's work: with both coefficients below 1e-05 the popup
// "Wrong Parameters" / "Please specify the paremeters before picking files";
// otherwise the files are asked for ("Files to Change Calibration") when none
// are given, and each file f is written as f + ".new". progress(done, total)
// is called before the first file and after each. Returns the number of files
// written, or -1 when nothing was done (after the message, or no file chosen).
int change_calibration_of_files(std::vector<std::string> files, double a, double b, Ui& ui,
                                const std::function<void(int done, int total)>& progress = {},
                                const CalibrationChangeOptions& options = {});

}  // namespace vx
