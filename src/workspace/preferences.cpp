#include "workspace/preferences.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "workspace/settings.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

// The default file's own warning line differs from that of saved files; both
// stay as they are, since files of either kind are in users' hands.
constexpr const char* DEFAULT_WARNING =
    "[DO NOT attempt to change this file manually. Changes made here could result error(s) in Vantorix Analysis.]";
constexpr const char* INI_HEADER = "[Vantorix Preference File]";

std::string strip_cr(std::string line) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

// The run-time's scans: as far as the text goes, 0 when nothing is a number.
double scan_real(const std::string& s) {
    char* end = nullptr;
    const double v = std::strtod(s.c_str(), &end);
    return (end == s.c_str() || !std::isfinite(v)) ? 0.0 : v;
}

int scan_int(const std::string& s) {
    char* end = nullptr;
    const long v = std::strtol(s.c_str(), &end, 10);
    if (end == s.c_str()) return 0;
    return static_cast<int>(std::clamp<long>(v, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

int write_text(const std::string& path, const std::string& text, Ui& ui) {
    std::string error;
    if (write_file_atomically(path, text, &error) != 0) {
        ui.MessagePopup("ERROR!", fmt::format("Cannot write {}: {}", path, error));
        return -1;
    }
    return 0;
}

std::string ini_text(const Preferences& p) {
    std::string s = std::string(INI_HEADER) + "\n" + PREFERENCE_WARNING + "\n";
    s += fmt::format("AUTOLOAD={}\nAUTOSAVE={}\nDRAGNDROPTYPE={}\nFILE={}\nTOOL={}\n", p.AUTOLOAD, p.AUTOSAVE,
                     p.DRAGNDROPTYPE, p.FILE, p.TOOL);
    return s;
}

std::string program_folder() {
    std::error_code ec;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    return ec ? std::string(".") : exe.parent_path().string();
}

}  // namespace

const std::array<PrefKey, PREF_COUNT>& preference_keys() {
    static const std::array<PrefKey, PREF_COUNT> keys = {{
        {"COLOR", false, 16711680}, {"LINESTYLE", false, 0}, {"LINETHICK", false, 1}, {"BGCOLOR", false, 16777215},
        {"ZOOMPAN", false, 1}, {"PREVIEW", false, 1}, {"GRID", false, 0}, {"ADDCURSOR", false, 0},
        {"CHECKFFT", false, 0}, {"DISABLERIGHTZOOM", false, 0}, {"PROCESSTULVA", false, 0},
        {"THRASHWINDOW", false, 0}, {"DOMASSRANGE", false, 0}, {"LEFTRANGE", true, 0.0}, {"RIGHTRANGE", true, 0.0},
        {"TEXTFONT", false, 0}, {"TEXTSIZE", false, 3}, {"PEAKMZ", false, 5}, {"PEAKABUN", false, 1},
        {"CARBONMAX1", false, -1}, {"CARBONMAX2", false, -1}, {"HYDROGENMAX1", false, -1},
        {"HYDROGENMAX2", false, -1}, {"NITROGENMAX1", false, 1}, {"NITROGENMAX2", false, 1},
        {"OXYGENMAX1", false, 30}, {"OXYGENMAX2", false, 30}, {"SULFURMAX1", false, 1}, {"SULFURMAX2", false, 1},
        {"PHOSPHOROUSMAX1", false, 0}, {"PHOSPHOROUSMAX2", false, 0},
        {"USER1MAX1", false, 1}, {"USER1MAX2", false, 1}, {"USER2MAX1", false, 1}, {"USER2MAX2", false, 1},
        {"USER3MAX1", false, 0}, {"USER3MAX2", false, 0}, {"USER4MAX1", false, 0}, {"USER4MAX2", false, 0},
        {"USER5MAX1", false, 0}, {"USER5MAX2", false, 0}, {"USER6MAX1", false, 0}, {"USER6MAX2", false, 0},
        {"ALLOWRADS1", false, 1}, {"ALLOWRADS2", false, 1}, {"MASSACCURACY1", false, 10},
        {"MASSACCURACY2", false, 10}, {"POSMODE1", false, 0}, {"POSMODE2", false, 0}, {"NEGMODE1", false, 1},
        {"NEGMODE2", false, 1}, {"NEUMODE1", false, 0}, {"NEUMODE2", false, 0},
        {"DECIMALSMZ", false, 7}, {"DECIMALSFREQ", false, 6}, {"DECIMALSERR", false, 4}, {"DECIMALSABUN", false, 3},
    }};
    return keys;
}

const std::array<Pref, PREF_COUNT>& preference_save_order() {
    static const std::array<Pref, PREF_COUNT> order = [] {
        std::array<Pref, PREF_COUNT> o{};
        int n = 0;
        const int first_preset = static_cast<int>(Pref::CARBONMAX1);
        const int first_decimal = static_cast<int>(Pref::DECIMALSMZ);
        for (int i = 0; i < first_preset; ++i) o[static_cast<std::size_t>(n++)] = static_cast<Pref>(i);
        // The preset keys stand in pairs (…1, …2): first every …1, then every …2.
        for (int i = first_preset; i < first_decimal; i += 2) o[static_cast<std::size_t>(n++)] = static_cast<Pref>(i);
        for (int i = first_preset + 1; i < first_decimal; i += 2)
            o[static_cast<std::size_t>(n++)] = static_cast<Pref>(i);
        for (int i = first_decimal; i < PREF_COUNT; ++i) o[static_cast<std::size_t>(n++)] = static_cast<Pref>(i);
        return o;
    }();
    return order;
}

Preferences::Preferences() {
    for (int i = 0; i < PREF_COUNT; ++i) value[static_cast<std::size_t>(i)] = preference_keys()[static_cast<std::size_t>(i)].initial;
}

std::string default_preference_text() {
    std::string s = std::string(PREFERENCE_HEADER) + "\n" + DEFAULT_WARNING + "\n";
    for (const auto& k : preference_keys()) {
        if (std::string_view(k.name) == "SULFURMAX2") {
            // The default file has always carried this one blank; loads read
            // past it and saves write the key without it.
            s += "SULFURMAX2= 1\n";
        } else if (k.real) {
            s += fmt::format("{}={:.1f}\n", k.name, k.initial);
        } else {
            s += fmt::format("{}={}\n", k.name, static_cast<int>(k.initial));
        }
    }
    return s;
}

int OpenPreferenceINI(const std::string& folder, Preferences& prefs, Ui& ui) {
    const std::string path = (fs::path(folder) / "preference.ini").string();
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        prefs.AUTOLOAD = 1;
        prefs.AUTOSAVE = 1;
        prefs.DRAGNDROPTYPE = 0;
        prefs.FILE = (fs::path(folder) / "default.txt").string();
        if (prefs.TOOL.empty()) prefs.TOOL = (fs::path(program_folder()) / "PLOTTOOL").string();
        std::error_code ec;
        fs::create_directories(folder, ec);
        CreatePreferenceINI(folder, prefs, ui);
        return 1;
    }
    std::string line;
    while (std::getline(in, line)) {
        line = strip_cr(line);
        if (line.empty() || line[0] == '[') continue;
        const auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        const std::string key = line.substr(0, eq);
        const std::string v = line.substr(eq + 1);
        if (key == "AUTOLOAD") prefs.AUTOLOAD = scan_int(v);
        else if (key == "AUTOSAVE") prefs.AUTOSAVE = scan_int(v);
        else if (key == "DRAGNDROPTYPE") prefs.DRAGNDROPTYPE = scan_int(v);
        else if (key == "FILE") prefs.FILE = v;
        else if (key == "TOOL") prefs.TOOL = v;
    }
    return 1;
}

int CreatePreferenceINI(const std::string& folder, const Preferences& prefs, Ui& ui) {
    return write_text((fs::path(folder) / "preference.ini").string(), ini_text(prefs), ui);
}

int CreatePreferenceFileTXT(const std::string& folder, Ui& ui) {
    std::error_code ec;
    fs::create_directories(folder, ec);
    return write_text((fs::path(folder) / "default.txt").string(), default_preference_text(), ui);
}

int LoadPreferenceFileTXT(const std::string& path, Preferences& prefs, Ui& ui) {
    const auto size = regular_file_size(path);
    std::ifstream in;
    if (size) in.open(path, std::ios::binary);
    if (!size || !in) {
        ui.MessagePopup("ERROR!", "Sorry! Vantorix preference file not found.");
        return 0;
    }
    std::string line;
    if (!std::getline(in, line) || strip_cr(line) != PREFERENCE_HEADER) {
        ui.MessagePopup("Invalid File", "Sorry! Invalid preference file.");
        return 0;
    }
    const auto& keys = preference_keys();
    while (std::getline(in, line)) {
        line = strip_cr(line);
        if (line.empty() || line[0] == '[') continue;
        const auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        const std::string_view key(line.data(), eq);
        const std::string v = line.substr(eq + 1);
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (key != keys[i].name) continue;
            prefs.value[i] = keys[i].real ? scan_real(v) : static_cast<double>(scan_int(v));
            break;
        }
        // A key of no panel of ours is passed over and not written again.
    }
    prefs.loaded = path;
    return 1;
}

int SavePreferenceTXT(const std::string& path, Preferences& prefs, Ui& ui) {
    std::string s = std::string(PREFERENCE_HEADER) + "\n" + PREFERENCE_WARNING + "\n";
    const auto& keys = preference_keys();
    for (const Pref p : preference_save_order()) {
        const auto& k = keys[static_cast<std::size_t>(p)];
        if (k.real)
            s += fmt::sprintf("%s=%f\n", k.name, prefs[p]);
        else
            s += fmt::sprintf("%s=%d\n", k.name, prefs.integer(p));
    }
    if (write_text(path, s, ui) < 0) return -1;
    prefs.loaded = path;
    return 0;
}

int SetupPreferences(const std::string& folder, Preferences& prefs, Ui& ui) {
    OpenPreferenceINI(folder, prefs, ui);
    std::error_code ec;
    if (prefs.FILE.empty() || !fs::exists(prefs.FILE, ec)) {
        CreatePreferenceFileTXT(folder, ui);
        prefs.FILE = (fs::path(folder) / "default.txt").string();
        if (prefs.TOOL.empty()) prefs.TOOL = (fs::path(program_folder()) / "PLOTTOOL").string();
        prefs.AUTOLOAD = 1;
        prefs.AUTOSAVE = 1;
        prefs.DRAGNDROPTYPE = 0;
        CreatePreferenceINI(folder, prefs, ui);
    }
    if (!prefs.AUTOLOAD) return 0;
    return LoadPreferenceFileTXT(prefs.FILE, prefs, ui) == 1 ? 0 : -1;
}

void ApplyPreferences(const Preferences& p, Settings& s) {
    s.grid_x = s.grid_y = p.integer(Pref::GRID) != 0;
    s.dragdrop_type = p.DRAGNDROPTYPE;
}

void checkMassRange(double low, double high, double& left, double& right) {
    if (left < low) left = low;
    if (right > high || right < low) right = high;
}

int save_current_preferences(Preferences& prefs, Ui& ui) {
    if (prefs.loaded.empty()) {
        ui.MessagePopup("ERROR!", "Please load or save preference first.");
        return -1;
    }
    return SavePreferenceTXT(prefs.loaded, prefs, ui);
}

}  // namespace vx
