// Reader of the Tulva data file family (.dat, .new, .swf, and .Z archives of them).
//
// A file is a text header of "key: value" lines, a marker line "Data:" and one
// binary block of little-endian samples. Four header generations exist; each has
// its own table of keys, matched by substring search on each line.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// Opens path into the record of the slot ws.active_panel (the caller reserved it;
// with no active slot the reader works on a scratch slot 0 record only if that
// slot is free). SED channels go to further slots. Returns 0 or -1 after it has
// shown its own message.
int Get_Tulva_Data(Workspace& ws, const std::string& path, Spectrum& spectrum, Ui& ui);

// The explicit SED open path ("Dual Vantorix File..."): the second channel of a
// two-channel file into spectrum.
int Get_Tulva_Data_SED(Workspace& ws, const std::string& path, Spectrum& spectrum, Ui& ui);
// The third channel ("Triple Vantorix File...").
int Get_Tulva_Data_SED2(Workspace& ws, const std::string& path, Spectrum& spectrum, Ui& ui);

// The opening road's reader for Tulva files: Get_Tulva_Data into the slot's record.
int read_tulva_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui);

// Unpacks a .Z archive into an unnamed file of the TEMP folder (nothing is
// left behind however the read ends). Returns it positioned at its start, or
// nullptr after the message.
std::FILE* unpack_tulva_Z(const Workspace& ws, const std::string& path, Ui& ui);
// The first member of a .Z archive in an anonymous file of folder (unlinked at
// once, so nothing is left behind), positioned at its start; nullptr after
// "Error" / "Cannot unzip file!", also when folder is empty.
std::FILE* unpack_archive_member(const std::string& folder, const std::string& path, Ui& ui);

// A line reader over an open binary file, as the run-time's ReadLine: reads up
// to LF, keeps at most 255 characters (the rest of the line is passed over),
// drops a CR before the LF. Returns the kept length, or -1 at the end of the file.
int read_header_line(std::FILE* f, std::string& line);

// Reads lines until one is not empty; returns its length or a negative value at
// the end of the file. skipped (when given) receives the number of empty lines.
int Get_Next_Line(std::FILE* f, std::string& line);
int Get_Next_LineExt(std::FILE* f, std::string& line, int& skipped);

// Largest sample count a header may ask for; a larger one is refused with a
// message instead of an allocation that cannot be backed by any real file.
inline constexpr long long MAX_DATACOUNT = 1LL << 28;

// The largest file a .Z archive of a data file may hold: the largest transient
// the reader accepts, stored as floats, and room for its header. A larger
// member is no data file (or an archive built to fill the disk) and is refused
// before it is unpacked.
inline constexpr std::uint64_t MAX_ARCHIVE_MEMBER =
    static_cast<std::uint64_t>(MAX_DATACOUNT) * sizeof(float) + (std::uint64_t{1} << 20);

}  // namespace vx
