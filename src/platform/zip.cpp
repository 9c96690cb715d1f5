#include "platform/zip.hpp"

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <vector>

#include <unzip.h>
#include <zip.h>

namespace vx {

namespace fs = std::filesystem;

int zip1(const std::string& path, const std::string& folder) {
    const std::string name = fs::path(path).filename().string();
    const std::string archive = (fs::path(folder) / (name + ".Z")).string();

    std::FILE* src = std::fopen(path.c_str(), "rb");
    if (!src) return -1;
    zipFile zf = zipOpen64(archive.c_str(), APPEND_STATUS_CREATE);
    if (!zf) {
        std::fclose(src);
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
    if (result != 0) fs::remove(archive, ec);
    return result;
}

int unzip1(const std::string& archive, const std::string& folder, const std::string& name) {
    unzFile uf = unzOpen64(archive.c_str());
    if (!uf) return UNZIP_CANNOT_OPEN;
    if (unzGoToFirstFile(uf) != UNZ_OK) {
        unzClose(uf);
        return UNZIP_NO_MEMBER;
    }
    if (unzOpenCurrentFile(uf) != UNZ_OK) {
        unzClose(uf);
        return UNZIP_CANNOT_OPEN;
    }
    const std::string out_path = (fs::path(folder) / name).string();
    std::FILE* out = std::fopen(out_path.c_str(), "wb");
    if (!out) {
        unzCloseCurrentFile(uf);
        unzClose(uf);
        return UNZIP_CANNOT_CREATE;
    }
    char buf[2048];
    int result = UNZIP_OK;
    for (;;) {
        int n = unzReadCurrentFile(uf, buf, sizeof buf);
        if (n < 0) {
            result = UNZIP_READ_ERROR;
            break;
        }
        if (n == 0) break;
        if (std::fwrite(buf, 1, static_cast<std::size_t>(n), out) != static_cast<std::size_t>(n)) {
            result = UNZIP_CANNOT_CREATE;
            break;
        }
    }
    if (std::fclose(out) != 0 && result == UNZIP_OK) result = UNZIP_CANNOT_CREATE;
    if (unzCloseCurrentFile(uf) != UNZ_OK && result == UNZIP_OK) result = UNZIP_CLOSE_ERROR;
    unzClose(uf);
    return result;
}

}  // namespace vx
