#include "platform/zip.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <vector>

#include <unzip.h>
#include <zip.h>

#include "platform/safe_file.hpp"

namespace vx {

namespace fs = std::filesystem;

namespace {

// A uniquely named empty file beside target ("<folder>/.<name>.XXXXXX") for
// writers that need a path rather than a FILE* (minizip opens by name).
std::string temp_beside(const std::string& target) {
    const fs::path t(target);
    fs::path folder = t.parent_path();
    if (folder.empty()) folder = ".";
    std::string leaf = ".";
    leaf += t.filename().string();
    leaf += ".XXXXXX";
    std::string pattern = (folder / leaf).string();
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) return {};
    ::close(fd);
    return pattern;
}

}  // namespace

int zip1(const std::string& path, const std::string& folder) {
    const std::string name = fs::path(path).filename().string();
    const std::string archive = (fs::path(folder) / (name + ".Z")).string();

    std::FILE* src = std::fopen(path.c_str(), "rb");
    if (!src) return -1;
    const std::string temp = temp_beside(archive);
    zipFile zf = temp.empty() ? nullptr : zipOpen64(temp.c_str(), APPEND_STATUS_CREATE);
    if (!zf) {
        std::fclose(src);
        if (!temp.empty()) ::unlink(temp.c_str());
        return -2;
    }
    zip_fileinfo info{};
    std::time_t now = std::time(nullptr);
    if (std::tm* t = std::localtime(&now)) {
        info.tmz_date.tm_sec = static_cast<uInt>(t->tm_sec);
        info.tmz_date.tm_min = static_cast<uInt>(t->tm_min);
        info.tmz_date.tm_hour = static_cast<uInt>(t->tm_hour);
        info.tmz_date.tm_mday = static_cast<uInt>(t->tm_mday);
        info.tmz_date.tm_mon = static_cast<uInt>(t->tm_mon);
        info.tmz_date.tm_year = static_cast<uInt>(t->tm_year + 1900);
    }
    std::error_code ec;
    const auto size = fs::file_size(path, ec);
    const int zip64 = (!ec && size >= 0xffffffffULL) ? 1 : 0;
    int rc = zipOpenNewFileInZip64(zf, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                                   Z_DEFAULT_COMPRESSION, zip64);
    int result = 0;
    if (rc != ZIP_OK) {
        result = -2;
    } else {
        std::vector<char> buf(1 << 16);
        std::size_t got;
        while ((got = std::fread(buf.data(), 1, buf.size(), src)) > 0) {
            if (zipWriteInFileInZip(zf, buf.data(), static_cast<unsigned>(got)) != ZIP_OK) {
                result = -2;
                break;
            }
        }
        if (std::ferror(src)) result = -1;
        if (zipCloseFileInZip(zf) != ZIP_OK && result == 0) result = -2;
    }
    if (zipClose(zf, nullptr) != ZIP_OK && result == 0) result = -2;
    std::fclose(src);
    if (result == 0 && std::rename(temp.c_str(), archive.c_str()) != 0) result = -2;
    if (result != 0) ::unlink(temp.c_str());
    return result;
}

int unzip1_into(const std::string& archive, std::FILE* out, std::uint64_t max_size) {
    // A directory, a device or a pipe is no archive (and /dev/zero has no end).
    if (!regular_file_size(archive)) return UNZIP_CANNOT_OPEN;
    unzFile uf = unzOpen64(archive.c_str());
    if (!uf) return UNZIP_CANNOT_OPEN;
    if (unzGoToFirstFile(uf) != UNZ_OK) {
        unzClose(uf);
        return UNZIP_NO_MEMBER;
    }
    unz_file_info64 info{};
    if (unzGetCurrentFileInfo64(uf, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) {
        unzClose(uf);
        return UNZIP_NO_MEMBER;
    }
    // The announced size is refused first; the count below catches a member
    // that lies about it.
    if (info.uncompressed_size > max_size) {
        unzClose(uf);
        return UNZIP_TOO_LARGE;
    }
    if (unzOpenCurrentFile(uf) != UNZ_OK) {
        unzClose(uf);
        return UNZIP_CANNOT_OPEN;
    }
    char buf[2048];
    int result = UNZIP_OK;
    std::uint64_t written = 0;
    for (;;) {
        int n = unzReadCurrentFile(uf, buf, sizeof buf);
        if (n < 0) {
            result = n == UNZ_CRCERROR ? UNZIP_CLOSE_ERROR : UNZIP_READ_ERROR;
            break;
        }
        if (n == 0) break;
        written += static_cast<std::uint64_t>(n);
        if (written > max_size) {
            result = UNZIP_TOO_LARGE;
            break;
        }
        if (std::fwrite(buf, 1, static_cast<std::size_t>(n), out) != static_cast<std::size_t>(n)) {
            result = UNZIP_CANNOT_CREATE;
            break;
        }
    }
    // The CRC is compared by this close, and only after the whole member was read.
    if (unzCloseCurrentFile(uf) != UNZ_OK && result == UNZIP_OK) result = UNZIP_CLOSE_ERROR;
    unzClose(uf);
    // minizip compares the CRC only when the announced size was reached; a
    // member that ends early (or a size field that lies) is a damaged archive.
    if (result == UNZIP_OK && written != info.uncompressed_size) result = UNZIP_READ_ERROR;
    if (result == UNZIP_OK && std::fflush(out) != 0) result = UNZIP_CANNOT_CREATE;
    return result;
}

int unzip1(const std::string& archive, const std::string& folder, const std::string& name, std::uint64_t max_size) {
    const std::string out_path = (fs::path(folder) / name).string();
    // Unpacking over the archive itself would destroy it while it is read.
    if (same_file(archive, out_path)) return UNZIP_CANNOT_CREATE;
    AtomicFile out(out_path);
    if (!out.ok()) return UNZIP_CANNOT_CREATE;
    const int result = unzip1_into(archive, out.file(), max_size);
    if (result != UNZIP_OK) return result;  // the temporary file goes with `out`
    return out.commit() == 0 ? UNZIP_OK : UNZIP_CANNOT_CREATE;
}

const char* unzip_error_text(int code) {
    switch (code) {
        case UNZIP_OK: return "no error";
        case UNZIP_CANNOT_OPEN: return "the archive cannot be opened";
        case UNZIP_CANNOT_CREATE: return "the unpacked file cannot be written";
        case UNZIP_READ_ERROR: return "the archive is damaged";
        case UNZIP_CLOSE_ERROR: return "the archive fails its CRC check";
        case UNZIP_NO_MEMBER: return "the archive holds no file";
        case UNZIP_TOO_LARGE: return "the archived file is larger than any data file this program reads";
        default: return "unknown error";
    }
}

}  // namespace vx
