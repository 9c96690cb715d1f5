#include "formats/open_file.hpp"

#include <cctype>
#include <filesystem>
#include <system_error>

#include <unzip.h>

#include <fmt/format.h>

#include "formats/bruker.hpp"
#include "formats/instruments.hpp"
#include "formats/mzml_reader.hpp"
#include "formats/peak_list.hpp"
#include "formats/tulva_reader.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"

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

// The first bytes of a file, or of the first member of a .Z archive; empty
// when they cannot be read (the reader then gives its own message).
std::string file_head(const Workspace& ws, const std::string& path, std::size_t n) {
    std::string head(n, '\0');
    if (!regular_file_size(path)) return {};
    const bool archive = path.size() >= 2 && path[path.size() - 2] == '.' && (path.back() == 'Z' || path.back() == 'z');
    if (archive && !ws.settings.WINZIP.empty()) {
        unzFile z = unzOpen(path.c_str());
        if (!z) return {};
        int got = -1;
        if (unzGoToFirstFile(z) == UNZ_OK && unzOpenCurrentFile(z) == UNZ_OK) {
            got = unzReadCurrentFile(z, head.data(), static_cast<unsigned>(n));
            unzCloseCurrentFile(z);
        }
        unzClose(z);
        head.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return head;
    }
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return {};
    head.resize(std::fread(head.data(), 1, n, f));
    std::fclose(f);
    return head;
}

}  // namespace

const char* const THERMO_RAW_TEXT =
    "Thermo .raw files are read through their mzML export. Convert it with ThermoRawFileParser -f 2 -N -p (mzML "
    "with the noise arrays, without peak picking) and open the .mzML file.";

bool is_thermo_raw(const std::string& path) { return has_extension(path, ".raw"); }

std::string open_format_of(const Workspace& ws, const std::string& path) {
    if (!ws.open_options.format.empty()) return ws.open_options.format;
    if (has_extension(path, ".mzml")) return "mzml";
    if (is_thermo_raw(path)) return "raw";
    switch (filetype_of_path(path)) {
        case FILETYPE_PEAKLIST: return "pks";
        case FILETYPE_BRUKER: return "bruker";
        default: break;
    }
    return looks_like_odyssey(file_head(ws, path, 320)) ? "odyssey" : "tulva";
}

int filetype_of_path(const std::string& path) {
    if (has_extension(path, ".pks")) return FILETYPE_PEAKLIST;
    // A directory can only be an acquisition: the Bruker reader says what is missing.
    std::error_code ec;
    if (is_bruker_path(path) || std::filesystem::is_directory(path, ec)) return FILETYPE_BRUKER;
    return FILETYPE_TULVA;
}

int read_any_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui) {
    const std::string format = open_format_of(ws, path);
    if (format == "raw") {
        ui.MessagePopup("Thermo Raw File", THERMO_RAW_TEXT);
        return -1;
    }
    if (format == "odyssey") return read_odyssey_into_slot(ws, path, slot, ui);
    if (format == "mzml") return read_mzml_into_slot(ws, path, slot, ui);
    if (format == "melbar") return read_melbar_into_slot(ws, path, slot, ui);
    if (format == "vosk") return read_vosk_into_slot(ws, path, slot, ui);
    if (format == "tof") return read_tof_into_slot(ws, path, slot, ui);
    if (format == "pks") return read_peak_list_into_slot(ws, path, slot, ui);
    if (format == "bruker") return read_bruker_into_slot(ws, path, slot, ui);
    return read_tulva_into_slot(ws, path, slot, ui);
}

int open_any_file(Workspace& ws, const std::string& path, Ui& ui) {
    ws.open_options.scans = 0;
    ws.open_options.scan_opened = 0;
    const std::string format = open_format_of(ws, path);
    if (format == "raw") {
        ui.MessagePopup("Thermo Raw File", THERMO_RAW_TEXT);
        return -1;
    }
    if (format == "odyssey") return open_data_file(ws, path, FILETYPE_ODYSSEY, read_odyssey_into_slot, ui);
    if (format == "melbar") return open_data_file(ws, path, FILETYPE_TULVA, read_melbar_into_slot, ui);
    if (format == "vosk") return open_data_file(ws, path, FILETYPE_TULVA, read_vosk_into_slot, ui);
    if (format == "tof") return open_data_file(ws, path, FILETYPE_PROFILE, read_tof_into_slot, ui);
    if (format == "tulva") return open_data_file(ws, path, FILETYPE_TULVA, read_tulva_into_slot, ui);
    if (format == "mzml") return open_data_file(ws, path, FILETYPE_PROFILE, read_mzml_into_slot, ui);
    if (format != "pks" && format != "bruker") {
        ui.MessagePopup("Operator Error",
                        fmt::format("Unknown file format \"{}\": use melbar, vosk, tof, odyssey, mzml or tulva.", format));
        return -1;
    }
    switch (filetype_of_path(path)) {
        case FILETYPE_PEAKLIST: return open_data_file(ws, path, FILETYPE_PEAKLIST, read_peak_list_into_slot, ui);
        case FILETYPE_BRUKER: return open_data_file(ws, path, FILETYPE_BRUKER, read_bruker_into_slot, ui);
        default: return open_data_file(ws, path, FILETYPE_TULVA, read_tulva_into_slot, ui);
    }
}

}  // namespace vx
