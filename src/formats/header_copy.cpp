#include "formats/header_copy.hpp"

#include <random>

#include <fmt/format.h>

#include "formats/tulva_reader.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"

namespace vx {
namespace fs = std::filesystem;

bool read_raw_line(std::FILE* f, std::string& line) {
    line.clear();
    int c;
    while ((c = std::fgetc(f)) != EOF) {
        line.push_back(static_cast<char>(c));
        if (c == '\n') return true;
    }
    return !line.empty();
}

std::string_view without_line_end(std::string_view line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    return line;
}

std::string_view line_end(std::string_view line) { return line.substr(without_line_end(line).size()); }

bool is_packed_path(const std::string& path) {
    return path.size() >= 2 && path[path.size() - 2] == '.' && (path.back() == 'Z' || path.back() == 'z');
}

bool refuse_same_file(const std::string& inpath, const std::string& outpath, Ui& ui) {
    if (inpath != outpath && !same_file(inpath, outpath)) return false;
    ui.MessagePopup("Input file and output file can not be the same file.",
                    "Please choose a different output file name.");
    return true;
}

ScratchDir::ScratchDir(std::string_view prefix) {
    std::random_device rd;
    std::error_code ec;
    for (int i = 0; i < 16 && path.empty(); ++i) {
        const fs::path p = fs::temp_directory_path(ec) / fmt::format("{}-{:08x}", prefix, rd());
        if (fs::create_directory(p, ec)) path = p;
    }
}

ScratchDir::~ScratchDir() {
    std::error_code ec;
    if (!path.empty()) fs::remove_all(path, ec);
}

std::FILE* open_source_file(const std::string& path, Ui& ui) {
    if (!regular_file_size(path)) {
        std::error_code ec;
        ui.MessagePopup("File Input Error", fs::is_directory(path, ec)
                                                ? fmt::format("{} is a folder, not a data file.", path)
                                                : fmt::format("Cannot open the file {}.", path));
        return nullptr;
    }
    if (!is_packed_path(path)) {
        std::FILE* f = std::fopen(path.c_str(), "rb");
        if (!f) ui.MessagePopup("File Input Error", fmt::format("Cannot open the file {}.", path));
        return f;
    }
    std::FILE* out = std::tmpfile();  // unlinked at creation: removed when closed
    const int rc = out ? unzip1_into(path, out, MAX_ARCHIVE_MEMBER) : UNZIP_CANNOT_CREATE;
    if (rc != UNZIP_OK) {
        if (out) std::fclose(out);
        ui.MessagePopup("Error", "Cannot unzip file!");
        ui.Console(fmt::format("{}: {}\n", path, unzip_error_text(rc)));
        return nullptr;
    }
    std::rewind(out);
    return out;
}

}  // namespace vx
