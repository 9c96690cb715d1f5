// ".Z" archives: a Tulva file x.dat is stored as the zip archive x.dat.Z
// holding that one file. Reading and writing go through zlib's minizip.
#pragma once

#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

namespace vx {

// Result codes of unzip1.
inline constexpr int UNZIP_OK = 0;
inline constexpr int UNZIP_CANNOT_OPEN = -3;    // archive or its member cannot be opened
inline constexpr int UNZIP_CANNOT_CREATE = -4;  // output file cannot be created (or written)
inline constexpr int UNZIP_READ_ERROR = -5;
inline constexpr int UNZIP_CLOSE_ERROR = -6;    // member cannot be closed (also a bad CRC)
inline constexpr int UNZIP_NO_MEMBER = -7;
inline constexpr int UNZIP_TOO_LARGE = -8;      // the member inflates beyond the bound given

inline constexpr std::uint64_t UNZIP_NO_LIMIT = std::numeric_limits<std::uint64_t>::max();

// Packs path into folder/<name>.Z with one member called <name>. The archive is
// written beside its target and renamed over it when complete. Returns 0, or
// -1 when the source cannot be read, -2 when the archive cannot be written.
int zip1(const std::string& path, const std::string& folder);

// Writes the first member of archive as folder/name, in pieces of 2048 bytes.
// The member goes to a temporary file first and replaces folder/name only when
// it inflated completely, within max_size bytes, with a correct CRC.
int unzip1(const std::string& archive, const std::string& folder, const std::string& name,
           std::uint64_t max_size = UNZIP_NO_LIMIT);

// Inflates the first member of archive into out (open for writing), refusing a
// member larger than max_size, whether announced or found while inflating. On
// UNZIP_OK the CRC was checked; on failure out holds an incomplete member.
int unzip1_into(const std::string& archive, std::FILE* out, std::uint64_t max_size);

// A name for messages: what a result code of unzip1 means.
const char* unzip_error_text(int code);

}  // namespace vx
