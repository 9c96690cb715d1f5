#include "platform/zip_tree.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <deque>
#include <filesystem>

#include <fmt/format.h>
#include <unzip.h>

#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

bool is_dat(const fs::path& p) {
    std::string ext = p.extension().string();
    for (auto& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".dat";
}

}  // namespace

std::vector<std::string> folders_breadth_first(const std::string& dir) {
    std::vector<std::string> chain;
    std::deque<fs::path> todo{fs::path(dir)};
    while (!todo.empty()) {
        const fs::path folder = todo.front();
        todo.pop_front();
        chain.push_back(folder.string());
        std::vector<fs::path> subs;
        std::error_code ec;
        for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
            std::error_code e2;
            if (it->is_symlink(e2)) continue;
            if (it->is_directory(e2)) subs.push_back(it->path());
        }
        std::sort(subs.begin(), subs.end());
        for (auto& s : subs) todo.push_back(std::move(s));
    }
    return chain;
}

std::vector<std::string> dat_files_in(const std::string& folder) {
    std::vector<std::string> files;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        std::error_code e2;
        if (it->is_symlink(e2) || !it->is_regular_file(e2)) continue;
        if (is_dat(it->path())) files.push_back(it->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

int verify_archive(const std::string& archive, std::uint64_t expected_size) {
    // The member must announce the source's length...
    unzFile uf = unzOpen64(archive.c_str());
    if (!uf) return UNZIP_CANNOT_OPEN;
    unz_file_info64 info{};
    const bool first = unzGoToFirstFile(uf) == UNZ_OK &&
                       unzGetCurrentFileInfo64(uf, &info, nullptr, 0, nullptr, 0, nullptr, 0) == UNZ_OK;
    const bool second = first && unzGoToNextFile(uf) == UNZ_OK;
    unzClose(uf);
    if (!first) return UNZIP_NO_MEMBER;
    if (second || info.uncompressed_size != expected_size) return UNZIP_TOO_LARGE;
    // ...and inflate to no more than that with a correct CRC.
    std::FILE* sink = std::fopen("/dev/null", "wb");
    if (!sink) return UNZIP_CANNOT_CREATE;
    const int rc = unzip1_into(archive, sink, expected_size);
    std::fclose(sink);
    if (rc != UNZIP_OK) return rc;
    return 0;
}

int zip_tree(const std::string& dir, bool keep, const std::atomic<bool>* stop, const ZipProgress& progress,
             ZipTreeResult& result, Ui& ui) {
    result = ZipTreeResult{};
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) {
        ui.MessagePopup("Error", "Cannot zip file!");
        ui.Console(fmt::format("  ({} is not a folder)\n", dir));
        return -1;
    }
    // The whole list first, so the progress knows its end and the archives
    // written on the way are never listed.
    std::vector<std::string> files;
    for (const auto& folder : folders_breadth_first(dir))
        for (auto& f : dat_files_in(folder)) files.push_back(std::move(f));
    auto fail = [&](const std::string& why) {
        ui.MessagePopup("Error", "Cannot zip file!");
        ui.Console("  (" + why + ")\n");
        return -1;
    };
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (stop && stop->load()) {
            result.stopped = true;
            if (progress) progress(i, files.size(), {});
            return 1;
        }
        const std::string& file = files[i];
        if (progress) progress(i, files.size(), file);
        const auto size = regular_file_size(file);
        if (!size) return fail(file + " cannot be read");
        const std::string archive = file + ".Z";
        if (fs::exists(archive, ec) &&
            !ui.ConfirmPopup("File exists", fmt::format("The file {} exists. Overwrite this file?", archive)))
            return fail(archive + " exists");
        const fs::path folder = fs::path(file).parent_path();
        // zip1 writes under a temporary name and renames when complete; a
        // full disk leaves the old archive (or none) and the source.
        if (zip1(file, folder.empty() ? "." : folder.string()) != 0) return fail(file + " could not be packed");
        const int check = verify_archive(archive, *size);
        if (check != 0) {
            fs::remove(archive, ec);
            return fail(fmt::format("{}: the archive does not read back ({})", archive, unzip_error_text(check)));
        }
        result.archives.push_back(archive);
        if (!keep) fs::remove(file, ec);
    }
    if (progress) progress(files.size(), files.size(), {});
    return 0;
}

}  // namespace vx
