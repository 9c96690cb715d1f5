#include "formats/open_file.hpp"

#include <cctype>
#include <filesystem>
#include <system_error>

#include "formats/bruker.hpp"
#include "formats/peak_list.hpp"
#include "formats/tulva_reader.hpp"

namespace vx {

namespace {

bool has_extension(const std::string& path, std::string_view ext) {
    if (path.size() < ext.size()) return false;
    for (std::size_t i = 0; i < ext.size(); ++i) {
        const char c = path[path.size() - ext.size() + i];
        if (std::tolower(static_cast<unsigned char>(c)) != ext[i]) return false;
    }
    return true;
}

int read_peak_list_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui) {
    return Get_Tulva_Peak_List(path, ws.panels[static_cast<std::size_t>(slot)].spectrum, ui);
}

}  // namespace

int filetype_of_path(const std::string& path) {
    if (has_extension(path, ".pks")) return FILETYPE_PEAKLIST;
    // A directory can only be an acquisition: the Bruker reader says what is missing.
    std::error_code ec;
    if (is_bruker_path(path) || std::filesystem::is_directory(path, ec)) return FILETYPE_BRUKER;
    return FILETYPE_TULVA;
}

int open_any_file(Workspace& ws, const std::string& path, Ui& ui) {
    switch (filetype_of_path(path)) {
        case FILETYPE_PEAKLIST: return open_data_file(ws, path, FILETYPE_PEAKLIST, read_peak_list_into_slot, ui);
        case FILETYPE_BRUKER: return open_data_file(ws, path, FILETYPE_BRUKER, read_bruker_into_slot, ui);
        default: return open_data_file(ws, path, FILETYPE_TULVA, read_tulva_into_slot, ui);
    }
}

}  // namespace vx
