#include "platform/safe_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

namespace vx {
namespace fs = std::filesystem;

AtomicFile::AtomicFile(std::string target) : target_(std::move(target)) {
    const fs::path t(target_);
    fs::path folder = t.parent_path();
    if (folder.empty()) folder = ".";
    std::string leaf = ".";
    leaf += t.filename().string();
    leaf += ".XXXXXX";
    const std::string pattern = (folder / leaf).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = ::mkstemp(name.data());
    if (fd < 0) {
        error_ = std::string("cannot create a temporary file in ") + folder.string() + ": " + std::strerror(errno);
        return;
    }
    temp_ = name.data();
    // mkstemp gives 0600; a finished file gets the permissions any new file would.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
    file_ = ::fdopen(fd, "wb");
    if (!file_) {
        ::close(fd);
        fail("cannot open the temporary file");
    }
}

AtomicFile::~AtomicFile() {
    if (file_) std::fclose(file_);
    if (!committed_ && !temp_.empty()) ::unlink(temp_.c_str());
}

void AtomicFile::fail(const std::string& what) {
    if (error_.empty()) error_ = what + (errno ? std::string(": ") + std::strerror(errno) : std::string());
}

bool AtomicFile::write(const void* data, std::size_t size) {
    if (!file_) return false;
    if (size && std::fwrite(data, 1, size, file_) != size) {
        fail("cannot write " + target_);
        return false;
    }
    return true;
}

bool AtomicFile::write(std::string_view bytes) { return write(bytes.data(), bytes.size()); }

int AtomicFile::commit() {
    if (!file_) {
        if (error_.empty()) error_ = "cannot write " + target_;
        return -1;
    }
    errno = 0;
    const bool flushed = std::fflush(file_) == 0 && !std::ferror(file_) && ::fsync(::fileno(file_)) == 0;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    if (!flushed || !closed) {
        fail("cannot write " + target_);
        ::unlink(temp_.c_str());
        return -1;
    }
    if (std::rename(temp_.c_str(), target_.c_str()) != 0) {
        fail("cannot replace " + target_);
        ::unlink(temp_.c_str());
        return -1;
    }
    committed_ = true;
    return 0;
}

int write_file_atomically(const std::string& path, std::string_view bytes, std::string* error) {
    AtomicFile f(path);
    if (f.write(bytes) && f.commit() == 0) return 0;
    if (error) *error = f.error();
    return -1;
}

bool same_file(const std::string& a, const std::string& b) {
    struct stat sa {}, sb {};
    if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

std::optional<std::uint64_t> regular_file_size(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    return static_cast<std::uint64_t>(st.st_size);
}

}  // namespace vx
