// ".Z" archives: a Tulva file x.dat is stored as the zip archive x.dat.Z
// holding that one file. Reading and writing go through zlib's minizip.
#pragma once

#include <string>

namespace vx {

// Result codes of unzip1.
inline constexpr int UNZIP_OK = 0;
inline constexpr int UNZIP_CANNOT_OPEN = -3;    // archive or its member cannot be opened
inline constexpr int UNZIP_CANNOT_CREATE = -4;  // output file cannot be created (or written)
inline constexpr int UNZIP_READ_ERROR = -5;
inline constexpr int UNZIP_CLOSE_ERROR = -6;    // member cannot be closed (also a bad CRC)
inline constexpr int UNZIP_NO_MEMBER = -7;

// Packs path into folder/<name>.Z with one member called <name>. Returns 0, or
// -1 when the source cannot be read, -2 when the archive cannot be written.
int zip1(const std::string& path, const std::string& folder);

// Writes the first member of archive as folder/name, in pieces of 2048 bytes.
int unzip1(const std::string& archive, const std::string& folder, const std::string& name);

}  // namespace vx
