// Pieces shared by every writer that makes a new data file from an existing one
// by copying its header line by line: raw line reading that keeps each line's
// own end, the refusal to write over the source, and the private unpacking of
// a .Z source.
#pragma once

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

namespace vx {

class Ui;

// One line with its end exactly as stored (LF, CR LF, or none at the end of
// the file), so that lines a writer does not replace are copied byte for byte.
// False at the end of the file.
bool read_raw_line(std::FILE* f, std::string& line);

std::string_view without_line_end(std::string_view line);
std::string_view line_end(std::string_view line);

// True for "x.Z" and "x.z": a zip archive holding one data file.
bool is_packed_path(const std::string& path);

// Refuses to write outpath when it is inpath, whatever the spelling: shows
// "Input file and output file can not be the same file." /
// "Please choose a different output file name." and returns true.
bool refuse_same_file(const std::string& inpath, const std::string& outpath, Ui& ui);

// A private folder under the system temp folder, removed with the object.
struct ScratchDir {
    std::filesystem::path path;
    explicit ScratchDir(std::string_view prefix = "vantorix");
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
};

// Opens a data file for reading; a .Z archive is unpacked into an unnamed
// temporary file (nothing left behind however the read ends). Shows
// "Error" / "Cannot unzip file!" for a bad archive, and a "File Input Error"
// for a missing or non-regular file. Returns nullptr after the message.
std::FILE* open_source_file(const std::string& path, Ui& ui);

}  // namespace vx
