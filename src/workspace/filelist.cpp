#include "workspace/filelist.hpp"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/keyscan.hpp"
#include "platform/safe_file.hpp"

namespace vx {

namespace fs = std::filesystem;

RecentFiles read_file_list(const std::string& dir) {
    RecentFiles list;
    list.names.assign(RECENT_FILES, "");
    std::ifstream in(fs::path(dir) / "tulva.ini", std::ios::binary);
    if (!in) return list;
    std::string line;
    while (std::getline(in, line)) {
        while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.pop_back();
        if (line.rfind("NUMFILE=", 0) == 0) {
            list.count = static_cast<int>(scan_int(std::string_view(line).substr(8)));
            if (list.count < 0) list.count = 0;
            if (list.count > RECENT_FILES) list.count = RECENT_FILES;
            continue;
        }
        for (int i = 0; i < RECENT_FILES; ++i) {
            const std::string key = "FILE" + std::to_string(i + 1) + "=";
            if (line.rfind(key, 0) == 0) list.names[static_cast<std::size_t>(i)] = line.substr(key.size());
        }
    }
    return list;
}

int write_file_list(const std::string& dir, const RecentFiles& list) {
    std::error_code ec;
    fs::create_directories(dir, ec);
    // Replaced whole, never rewritten in place: a full disk keeps the old list.
    std::ostringstream out;
    out << "NUMFILE=" << list.count << "\n";
    for (int i = 0; i < RECENT_FILES; ++i) {
        const std::string& name = static_cast<std::size_t>(i) < list.names.size() ? list.names[static_cast<std::size_t>(i)]
                                                                                : std::string();
        out << "FILE" << (i + 1) << "=" << name << "\n";
    }
    return write_file_atomically((fs::path(dir) / "tulva.ini").string(), out.str());
}

RecentFiles FileList(const std::string& dir) {
    std::error_code ec;
    if (!fs::exists(fs::path(dir) / "tulva.ini", ec)) {
        RecentFiles empty;
        empty.names.assign(RECENT_FILES, "");
        write_file_list(dir, empty);
        return empty;
    }
    return read_file_list(dir);
}

void update_recent(RecentFiles& list, const std::string& path) {
    list.names.resize(RECENT_FILES);
    int found = -1;
    for (int i = 0; i < RECENT_FILES; ++i) {
        if (list.names[static_cast<std::size_t>(i)] == path) {
            found = i;
            break;
        }
    }
    const int start = found >= 0 ? found : RECENT_FILES - 1;
    for (int i = start; i > 0; --i)
        list.names[static_cast<std::size_t>(i)] = list.names[static_cast<std::size_t>(i - 1)];
    list.names[0] = path;
    if (found < 0 && list.count < RECENT_FILES) ++list.count;
}

RecentFiles updateFileList(const std::string& dir, const std::string& path) {
    RecentFiles list = read_file_list(dir);
    update_recent(list, path);
    write_file_list(dir, list);
    return list;
}

std::vector<std::string> loadFileList(const RecentFiles& list) {
    std::vector<std::string> items;
    for (int i = 0; i < list.count && i < static_cast<int>(list.names.size()); ++i) {
        if (list.names[static_cast<std::size_t>(i)].empty()) continue;
        items.push_back(recent_menu_text(i + 1, list.names[static_cast<std::size_t>(i)]));
    }
    return items;
}

std::string recent_menu_text(int number, const std::string& path) {
    std::string shown = path;
    if (path.size() > 30) {
        // Split into the drive (a "C:" prefix, or nothing for a rooted Unix path),
        // the folders, and the file name, keeping the path's own separator.
        const char sep = path.find('\\') != std::string::npos ? '\\' : '/';
        std::string rest = path;
        std::string drive;
        if (rest.size() >= 2 && rest[1] == ':') {
            drive = rest.substr(0, 2);
            rest = rest.substr(2);
        }
        std::vector<std::string> parts;
        std::string cur;
        for (char c : rest) {
            if (c == '\\' || c == '/') {
                if (!cur.empty()) parts.push_back(cur);
                cur.clear();
            } else {
                cur += c;
            }
        }
        if (!cur.empty()) parts.push_back(cur);
        if (parts.size() >= 3) {  // at least two folders and a file name
            const std::string& file = parts.back();
            const std::string ell = std::string(1, sep) + "...";
            if (file.size() >= 31) {
                shown = drive + ell + sep + file;
            } else {
                const std::size_t n = parts.size();
                shown = drive + ell + sep + parts[n - 3] + sep + parts[n - 2] + sep + file;
            }
        }
    }
    return "__" + std::to_string(number) + " " + shown;
}

}  // namespace vx
