// Test inputs made on the fly: temporary folders and hand-built data files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vx::test {

// A fresh folder under the system temp folder, removed with the object.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    // Writes bytes to the named file in the folder; returns its path.
    std::string write(const std::string& name, const std::string& bytes) const;

private:
    std::filesystem::path path_;
};

// Raw little-endian bytes of sample arrays.
std::string int16_bytes(const std::vector<std::int16_t>& v);
std::string int32_bytes(const std::vector<std::int32_t>& v);
std::string float_bytes(const std::vector<float>& v);
std::string double_bytes(const std::vector<double>& v);

// Header lines joined with LF (or CR LF), a marker line, then the binary block.
std::string tulva_text(const std::vector<std::string>& header_lines, const std::string& block,
                       const std::string& marker = "Data:", bool crlf = false);

void write_file(const std::string& path, const std::string& bytes);
std::string read_file(const std::string& path);

// Runs a command line through the shell; returns its exit status, output in out/err.
int run_command(const std::string& command, std::string* out = nullptr, std::string* err = nullptr);

}  // namespace vx::test
