// Export of a spectrum or its peak list as mzML 1.1, the exchange format every
// mass spectrometry tool reads: one MS1 spectrum, m/z as 64-bit floats and
// intensities as 32-bit floats, each array zlib-compressed and base64-coded,
// with the controlled-vocabulary terms of an FT-ICR instrument, the
// calibration law and terms of the spectrum, and the source file with its
// SHA-1.
#pragma once

#include <string>
#include <vector>

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

struct MzmlOptions {
    // The peak list as a centroid spectrum (peak m/z and abundance) instead
    // of the profile.
    bool peaks = false;
    // The file the spectrum was read from (named in sourceFile; hashed when a
    // regular file). Empty: the record's filename.
    std::string source;
};

// The profile of a frequency or mass spectrum in ascending m/z: the points of
// the stored range (the whole array when not reduced) whose m/z under the
// record's calibration is finite, positive and inside the law.
void profile_arrays(const Spectrum& s, std::vector<double>& mz, std::vector<float>& intensity);

// Writes path (through a temporary file). Returns 0, or -1 after a message:
// a time-domain record, an empty peak list with peaks set, a failed write.
int write_mzml(const Spectrum& s, const std::string& path, const MzmlOptions& options, Ui& ui);

}  // namespace vx
