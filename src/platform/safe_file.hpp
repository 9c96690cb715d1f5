// Writing files without ever losing the old one, and reading with bounds.
//
// A writer never opens its target directly: it writes a uniquely named
// temporary file in the target's folder and renames it over the target only
// when everything was written and flushed. A full disk, a crash or a refused
// write leaves the old target as it was and no temporary file behind.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace vx {

class AtomicFile {
public:
    // Creates the temporary file "<folder>/.<name>.XXXXXX" beside target.
    explicit AtomicFile(std::string target);
    ~AtomicFile();  // removes the temporary file unless commit() succeeded
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    bool ok() const { return file_ != nullptr; }
    std::FILE* file() const { return file_; }
    const std::string& target() const { return target_; }
    const std::string& temp_path() const { return temp_; }
    // Why the last step failed (empty while all is well).
    const std::string& error() const { return error_; }

    bool write(std::string_view bytes);
    bool write(const void* data, std::size_t size);
    // Flushes, syncs, closes and renames over the target. Returns 0, or -1 with
    // error() set (the temporary file is then removed, the target untouched).
    int commit();

private:
    void fail(const std::string& what);
    std::string target_, temp_, error_;
    std::FILE* file_ = nullptr;
    bool committed_ = false;
};

// Writes bytes to path through an AtomicFile. Returns 0, or -1 with *error set.
int write_file_atomically(const std::string& path, std::string_view bytes, std::string* error = nullptr);

// True when both paths name the same existing file (same device and inode), so
// that a writer can refuse to replace its own source whatever the spelling.
bool same_file(const std::string& a, const std::string& b);

// Size of a regular file; nullopt for a missing file, a directory, a device or
// a pipe (which a reader must refuse rather than read without end).
std::optional<std::uint64_t> regular_file_size(const std::string& path);

}  // namespace vx
