#include "workspace/settings.hpp"

#include "platform/safe_file.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <thread>

#include <fmt/format.h>

#include "platform/keyscan.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace fs = std::filesystem;

Settings default_settings() {
    Settings s;
    unsigned cpus = std::thread::hardware_concurrency();
    if (cpus == 0) cpus = 1;
    s.thread_count = static_cast<int>(std::min(2u * cpus, 4u));
    return s;
}

namespace {
std::string env(const char* name) {
    const char* v = std::getenv(name);
    return v ? std::string(v) : std::string();
}
std::string home() {
    std::string h = env("HOME");
    return h.empty() ? std::string("/tmp") : h;
}

bool is_off(std::string_view v) { return v == "OFF" || v == "off"; }
}  // namespace

std::string settings_dir() {
    std::string v = env("VANTORIX_HOME");
    if (!v.empty()) return v;
    std::string x = env("XDG_CONFIG_HOME");
    if (x.empty()) x = home() + "/.config";
    return x + "/vantorix-analysis";
}

std::string data_dir() {
    std::string v = env("VANTORIX_HOME");
    if (!v.empty()) return v + "/data";
    std::string x = env("XDG_DATA_HOME");
    if (x.empty()) x = home() + "/.local/share";
    return x + "/vantorix-analysis";
}

int ensure_default_ini(const std::string& dir) {
    std::error_code ec;
    fs::create_directories(dir, ec);
    const fs::path ini = fs::path(dir) / "ftmsdata.ini";
    if (fs::exists(ini, ec)) return 0;
    const std::string temp = (fs::path(data_dir()) / "temp").string();
    fs::create_directories(temp, ec);
    std::ostringstream out;
    out << "[Vantorix Analysis]\n"
        << "PLOTTOOL=\n"
        << "WINZIP=minizip\n"
        << "TEMP=" << temp << "\n"
        << "HIGHMASS=0\n"
        << "DRAGNDROPFTYPE=TULVA\n"
        << "AUTOCALMASSERRORLIMIT=1.0\n"
        << "AUTOCALUNITS=1\n"
        << "THRASHWINDOW=ON\n"
        << "QUICKZOOM=ON\n"
        << "FFTSPEED=OFF\n";
    return write_file_atomically(ini.string(), out.str());
}

namespace {
// The TEMP check: a file must be creatable in the folder. The probe gets a
// unique name: a fixed one ("test") would truncate and delete a user's file of
// that name when TEMP is a data folder.
bool temp_writable(const std::string& folder) {
    std::string probe = (fs::path(folder) / ".vantorix-probe-XXXXXX").string();
    const int fd = ::mkstemp(probe.data());
    if (fd < 0) return false;
    ::close(fd);
    ::unlink(probe.c_str());
    return true;
}
}  // namespace

int ReadINI(const std::string& dir, Settings& s, Ui& ui) {
    std::ifstream in(fs::path(dir) / "ftmsdata.ini", std::ios::binary);
    if (!in) {
        ui.MessagePopup("Ftmsdata.ini not found.", "Unable to locate ftmsdata.ini.");
        return 0;
    }
    std::string line;
    while (std::getline(in, line)) {
        while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.pop_back();
        if (line.empty() || line.front() == '[') continue;
        const auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        const std::string name = line.substr(0, eq);
        const std::string value = line.substr(eq + 1);

        if (name == "PLOTTOOL") {
            s.PLOTTOOL = value;
        } else if (name == "WINZIP") {
            s.WINZIP = value;
        } else if (name == "TEMP") {
            s.TEMP = value;
            if (!temp_writable(value)) {
                const std::string q = fmt::format(
                    "Temp Folder '{}' not found.\nPlease create the folder -OR-\nChange the folder setting by "
                    "editting ftmsdata.INI file.\n\nDo you want to create this folder ('{}')?",
                    value, value);
                if (ui.ConfirmPopup("Error in ftmsdata.INI file", q)) {
                    std::error_code ec;
                    fs::create_directories(value, ec);
                    if (ec || !temp_writable(value)) {
                        ui.MessagePopup("Error in ftmsdata.INI file", "Create Temp Folder Failed.");
                        return -1;
                    }
                } else {
                    return -1;
                }
            }
        } else if (name == "HIGHMASS") {
            if (value.empty()) {
                auto answer = ui.PromptPopup("There was no Highest Mass value found in your FTMSDATA.INI file ",
                                             "Do you want to select a highest mass to be viewed when opening the "
                                             "mass domain",
                                             32);
                s.mass_zoom_limit = (answer && !answer->empty()) ? scan_real(*answer) : 0.0;
            } else {
                s.mass_zoom_limit = scan_real(value);
            }
        } else if (name == "DRAGNDROPFTYPE") {
            if (value.empty()) s.dragdrop_type = 0;
            else if (value == "TULVA") s.dragdrop_type = 0;
            else if (value == "ODYSSEY") s.dragdrop_type = 1;
            else if (value == "BRUKER") s.dragdrop_type = 2;
        } else if (name == "AUTOCALMASSERRORLIMIT") {
            s.autocal_error_limit = scan_real(value);
        } else if (name == "AUTOCALUNITS") {
            s.autocal_ppm = static_cast<int>(scan_int(value));
        } else if (name == "THRASHWINDOW") {
            s.thrash_window = is_off(value) ? 0 : 1;
        } else if (name == "QUICKZOOM") {
            s.quick_zoom = is_off(value) ? 0 : 1;
        } else if (name == "FFTSPEED") {
            s.fftspeed = is_off(value) ? 0 : 1;
        }
    }
    return 0;
}

namespace {

// The integer fields of a calculator page with their key stems, in the order
// of the preference file; MASSACCURACY stands after ALLOWRADS.
struct FormulaIntKey {
    const char* stem;
    int FormulaPreferences::*field;
};
constexpr FormulaIntKey kFormulaHead[] = {
    {"CARBONMAX", &FormulaPreferences::CARBONMAX},   {"HYDROGENMAX", &FormulaPreferences::HYDROGENMAX},
    {"NITROGENMAX", &FormulaPreferences::NITROGENMAX}, {"OXYGENMAX", &FormulaPreferences::OXYGENMAX},
    {"SULFURMAX", &FormulaPreferences::SULFURMAX},   {"PHOSPHOROUSMAX", &FormulaPreferences::PHOSPHOROUSMAX},
};
constexpr FormulaIntKey kFormulaTail[] = {
    {"POSMODE", &FormulaPreferences::POSMODE},
    {"NEGMODE", &FormulaPreferences::NEGMODE},
    {"NEUMODE", &FormulaPreferences::NEUMODE},
};

// The run-time's string scan: leading blanks, then as much of a number as
// there is; nothing readable gives 0.
double scan_number(std::string_view v) {
    const std::string text(v);
    return std::strtod(text.c_str(), nullptr);
}
int scan_integer(std::string_view v) {
    const std::string text(v);
    const long n = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(n, -1000000000L, 1000000000L));
}

}  // namespace

std::vector<std::pair<std::string, std::string>> formula_preference_entries(const Settings& st) {
    std::vector<std::pair<std::string, std::string>> out;
    for (int page = 0; page < 2; ++page) {
        const FormulaPreferences& p = st.formula_prefs[static_cast<std::size_t>(page)];
        const std::string n = std::to_string(page + 1);
        for (const FormulaIntKey& k : kFormulaHead) out.emplace_back(k.stem + n, std::to_string(p.*k.field));
        for (std::size_t u = 0; u < 6; ++u)
            out.emplace_back("USER" + std::to_string(u + 1) + "MAX" + n, std::to_string(p.USERMAX[u]));
        out.emplace_back("ALLOWRADS" + n, std::to_string(p.ALLOWRADS));
        out.emplace_back("MASSACCURACY" + n, fmt::format("{:f}", p.MASSACCURACY));
        for (const FormulaIntKey& k : kFormulaTail) out.emplace_back(k.stem + n, std::to_string(p.*k.field));
    }
    return out;
}

bool set_formula_preference(Settings& st, std::string_view key, std::string_view value) {
    if (key.empty()) return false;
    const char last = key.back();
    if (last != '1' && last != '2') return false;
    FormulaPreferences& p = st.formula_prefs[last == '1' ? 0 : 1];
    const std::string_view stem = key.substr(0, key.size() - 1);
    for (const FormulaIntKey& k : kFormulaHead)
        if (stem == k.stem) return p.*k.field = scan_integer(value), true;
    for (const FormulaIntKey& k : kFormulaTail)
        if (stem == k.stem) return p.*k.field = scan_integer(value), true;
    if (stem == "ALLOWRADS") return p.ALLOWRADS = scan_integer(value), true;
    if (stem == "MASSACCURACY") return p.MASSACCURACY = scan_number(value), true;
    if (stem.size() == 8 && stem.substr(0, 4) == "USER" && stem.substr(5) == "MAX" && stem[4] >= '1' && stem[4] <= '6') {
        p.USERMAX[static_cast<std::size_t>(stem[4] - '1')] = scan_integer(value);
        return true;
    }
    return false;
}

}  // namespace vx
