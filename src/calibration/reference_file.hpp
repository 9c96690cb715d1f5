// Reference files (.ref): exact m/z values of calibrants, one a line.
//
// The writer puts a comment line first and then one mass a line; the reader
// skips comments, short lines, lines whose number does not scan and masses not
// above zero, so a hand-edited file with notes in it still reads.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vx {

class Ui;

inline constexpr const char* REF_FILE_FIRST_LINE = "; Calibration file for TULVA analysis";
// The panel's array of reference masses holds this many.
inline constexpr std::size_t MAX_REFERENCE_MASSES = 100;

// The masses of the text of a reference file, in file order (no limit on the count).
std::vector<double> parse_reference_text(std::string_view text);

// The text the writer produces for the masses (LF line ends).
std::string reference_file_text(const std::vector<double>& masses);

// Reads a reference file. Returns 0, or -1 after "Calibration error" when the
// file cannot be opened (or is no regular file).
int read_reference_file(const std::string& path, std::vector<double>& masses, Ui& ui);

// OpenCalFile: asks for the file and reads at most MAX_REFERENCE_MASSES masses.
// Returns 1, or -1 when none was chosen or it cannot be opened.
int OpenCalFile(std::vector<double>& masses, Ui& ui);

// Writes a reference file. An existing target needs the answer to the overwrite
// question. Returns 0, 1 when the user declined, or -1 after a message.
int write_reference_file(const std::string& path, const std::vector<double>& masses, Ui& ui);

}  // namespace vx
