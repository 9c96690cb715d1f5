#include "experiment/script.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>

#include <fmt/format.h>

#include "experiment/excite_script.hpp"
#include "formats/tulva_reader.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

constexpr const char* FILE_INPUT = "File Input Error";
constexpr const char* EXP_INPUT = "Experiment Input Error";
constexpr const char* NOT_VALID = "Not Valid Experiment File";

// The script as lines, walked once from the top.
class Lines {
public:
    explicit Lines(std::string_view text) {
        std::size_t pos = 0;
        while (pos < text.size()) {
            std::size_t end = text.find('\n', pos);
            if (end == std::string_view::npos) end = text.size();
            std::string_view line = text.substr(pos, end - pos);
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            lines_.push_back(line);
            pos = end + 1;
        }
    }
    // The next line, or nullopt at the end.
    std::optional<std::string_view> next() {
        if (at_ >= lines_.size()) return std::nullopt;
        return lines_[at_++];
    }
    // The next line that is not blank (Get_Next_Line).
    std::optional<std::string_view> next_nonblank() {
        while (auto l = next()) {
            if (l->find_first_not_of(" \t") != std::string_view::npos) return l;
        }
        return std::nullopt;
    }
    void rewind() { at_ = 0; }
    const std::vector<std::string_view>& all() const { return lines_; }

private:
    std::vector<std::string_view> lines_;
    std::size_t at_ = 0;
};

bool has(std::string_view line, std::string_view key) { return line.find(key) != std::string_view::npos; }

// Key at the start of the line, in any case.
bool starts_with_nocase(std::string_view line, std::string_view key) {
    if (line.size() < key.size()) return false;
    for (std::size_t i = 0; i < key.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(line[i])) != std::tolower(static_cast<unsigned char>(key[i])))
            return false;
    return true;
}

std::string trim(std::string_view s) {
    const auto b = s.find_first_not_of(" \t");
    if (b == std::string_view::npos) return {};
    const auto e = s.find_last_not_of(" \t");
    return std::string(s.substr(b, e - b + 1));
}

std::string_view from_column(std::string_view line, std::size_t col) {
    return col < line.size() ? line.substr(col) : std::string_view{};
}

// The run-time's string scan: as far as the text goes, 0 when nothing is a
// number; never a non-finite value.
double scan_real(std::string_view s) {
    const std::string t(s);
    char* end = nullptr;
    const double v = std::strtod(t.c_str(), &end);
    return (end == t.c_str() || !std::isfinite(v)) ? 0.0 : v;
}

long long scan_integer(std::string_view s) {
    const std::string t(s);
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(t.c_str(), &end, 10);
    return end == t.c_str() ? 0 : v;
}

int clamp_int(long long v) {
    return static_cast<int>(std::clamp<long long>(v, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// "name: count" of the experiment and loop sections.
void split_entry(std::string_view line, std::string& name, int& count) {
    const auto colon = line.rfind(':');
    if (colon == std::string_view::npos) {
        name = trim(line);
        count = 1;
        return;
    }
    name = trim(line.substr(0, colon));
    count = clamp_int(scan_integer(line.substr(colon + 1)));
}

int word_index(std::string_view value, std::initializer_list<const char*> words) {
    const std::string v = trim(value);
    int i = 0;
    for (const char* w : words) {
        if (v.size() == std::strlen(w) && starts_with_nocase(v, w)) return i;
        ++i;
    }
    return 0;
}

bool is_data_marker(std::string_view line) { return has(line, "Data:"); }

// One line of an event block. Returns 0 for another line, 1 at "endevent:",
// -1 for a line the event cannot take (a D or E key without its record).
int Evaluate_Event_Line(std::string_view line, Event& ev, int digitizer, std::string& why) {
    auto key = [&](std::string_view k) { return starts_with_nocase(line, k); };
    auto val = [&](std::string_view k) { return from_column(line, k.size()); };
    auto need_detect = [&](std::string_view k) {
        if (ev.detect) return true;
        why = fmt::format("\"{}\" stands before \"detect:\"", k);
        return false;
    };
    auto need_excite = [&](std::string_view k) {
        if (ev.excite) return true;
        why = fmt::format("\"{}\" stands before \"excite:\"", k);
        return false;
    };

    if (key("endevent:")) return 1;
    if (key("label:")) {
        ev.label = trim(val("label:"));
    } else if (key("time:")) {
        ev.time = scan_real(val("time:"));
    } else if (key("disabled event")) {
        ev.disabled = true;
    } else if (key("detect:")) {
        // New_Detect: the defaults, and the event lasts as long as its data.
        ev.detect = Detect{};
        ev.time = static_cast<double>(ev.detect->datacount) / (2.0 * ev.detect->dbandwidth);
    } else if (key("excite:")) {
        ev.excite = Excite{};
    } else if (key("dmode:")) {
        if (!need_detect("dmode:")) return -1;
        ev.detect->dmode = word_index(val("dmode:"), {"direct", "aheterodyne", "dheterodyne"});
    } else if (key("dreferencefreq:")) {
        if (!need_detect("dreferencefreq:")) return -1;
        ev.detect->dreferencefreq = scan_real(val("dreferencefreq:"));
    } else if (key("damplitude:")) {
        if (!need_detect("damplitude:")) return -1;
        ev.detect->damplitude = static_cast<float>(scan_real(val("damplitude:")));
    } else if (key("dhpamplitude:")) {
        if (!need_detect("dhpamplitude:")) return -1;
        ev.detect->dhpamplitude = clamp_int(scan_integer(val("dhpamplitude:")));
    } else if (key("dfilter:")) {
        if (!need_detect("dfilter:")) return -1;
        ev.detect->dfilter = static_cast<double>(scan_integer(val("dfilter:")));
    } else if (key("dbandwidth:")) {
        if (!need_detect("dbandwidth:")) return -1;
        ev.detect->dbandwidth = scan_real(val("dbandwidth:"));
    } else if (key("dhpbandwidth:")) {
        if (!need_detect("dhpbandwidth:")) return -1;
        ev.detect->dhpbandwidth = clamp_int(scan_integer(val("dhpbandwidth:")));
        if (digitizer == HP_DIGITIZER) {
            // The HP digitizer has a ladder of rates; the index names the step.
            const int i = std::clamp(ev.detect->dhpbandwidth, -1, 60);
            ev.detect->dbandwidth = 20480000.0 / std::ldexp(1.0, i + 1);
            if (ev.detect->dmode == 2) ev.detect->dbandwidth *= 2.0;
        }
    } else if (key("datacount:")) {
        if (!need_detect("datacount:")) return -1;
        ev.detect->datacount = scan_integer(val("datacount:"));
        const double t = static_cast<double>(ev.detect->datacount) / (2.0 * ev.detect->dbandwidth);
        ev.time = std::isfinite(t) ? t : 0.0;
    } else if (key("datafile:")) {
        if (!need_detect("datafile:")) return -1;
        ev.detect->datafile = trim(val("datafile:"));
    } else if (key("emode:")) {
        if (!need_excite("emode:")) return -1;
        ev.excite->emode = word_index(val("emode:"), {"chirp", "swift", "single_freq", "msms"});
    } else if (key("elength:")) {
        if (!need_excite("elength:")) return -1;
        ev.excite->elength = scan_real(val("elength:"));
    } else if (key("eswiftfile_name:")) {
        if (!need_excite("eswiftfile_name:")) return -1;
        ev.excite->eswiftfile_name = trim(val("eswiftfile_name:"));
    } else if (key("eamplitude:")) {
        if (!need_excite("eamplitude:")) return -1;
        ev.excite->eamplitude = static_cast<float>(scan_real(val("eamplitude:")));
    } else if (key("efilter:")) {
        if (!need_excite("efilter:")) return -1;
        ev.excite->efilter = scan_real(val("efilter:"));
    } else if (key("lowfreq:")) {
        if (!need_excite("lowfreq:")) return -1;
        ev.excite->lowfreq = scan_real(val("lowfreq:"));
    } else if (key("highfreq:")) {
        if (!need_excite("highfreq:")) return -1;
        ev.excite->highfreq = scan_real(val("highfreq:"));
    } else if (key("hifreq:")) {
        if (!need_excite("hifreq:")) return -1;
        ev.excite->highfreq = scan_real(val("hifreq:"));
    } else if (key("sweeprate:")) {
        if (!need_excite("sweeprate:")) return -1;
        ev.excite->sweeprate = static_cast<float>(scan_real(val("sweeprate:")));
    } else if (key("clockrate:")) {
        if (!need_excite("clockrate:")) return -1;
        ev.excite->clockrate = scan_real(val("clockrate:"));
    } else if (key("loops:")) {
        if (!need_excite("loops:")) return -1;
        const long long n = scan_integer(val("loops:"));
        ev.excite->loops = (n >= 1 && n <= 255) ? static_cast<int>(n) : 1;
    } else if (key("msms_datacount:")) {
        if (!need_excite("msms_datacount:")) return -1;
        ev.excite->msms_datacount = scan_integer(val("msms_datacount:"));
    } else if (key("msms_bandwidth:")) {
        if (!need_excite("msms_bandwidth:")) return -1;
        ev.excite->msms_bandwidth = scan_real(val("msms_bandwidth:"));
    } else if (key("msms_cutoff:")) {
        if (!need_excite("msms_cutoff:")) return -1;
        ev.excite->msms_cutoff = scan_real(val("msms_cutoff:"));
    } else if (key("trig:")) {
        const std::string v(val("trig:"));
        int line_no = 0, value = 0;
        if (std::sscanf(v.c_str(), "%d %d", &line_no, &value) == 2 && line_no >= 1 && line_no <= SCRIPT_TRIGGERS)
            ev.trig[static_cast<std::size_t>(line_no - 1)] = value & 0xff;
    } else if (key("volt:")) {
        const std::string v(val("volt:"));
        int line_no = 0;
        double value = 0.0;
        if (std::sscanf(v.c_str(), "%d %lf", &line_no, &value) == 2 && line_no >= 1 && line_no <= SCRIPT_VOLTAGES &&
            std::isfinite(value))
            ev.volt[static_cast<std::size_t>(line_no - 1)] = value;
    }
    return 0;
}

// The text between the first pair of double quotes (the rest of the line
// after its colon when it has none).
std::string quoted(std::string_view line) {
    const auto a = line.find('"');
    if (a != std::string_view::npos) {
        const auto b = line.find('"', a + 1);
        if (b != std::string_view::npos) return std::string(line.substr(a + 1, b - a - 1));
    }
    const auto colon = line.find(':');
    return trim(colon == std::string_view::npos ? line : line.substr(colon + 1));
}

// Read_Ini_Data: the label sections. Returns 0 or -1 after "Bad INI".
int Read_Ini_Data(Lines& lines, Experiment& ex, Ui& ui) {
    auto seek = [&](std::string_view section) {
        lines.rewind();
        while (auto l = lines.next()) {
            if (is_data_marker(*l)) return false;
            if (has(*l, section)) return true;
        }
        return false;
    };
    if (!seek("[Voltage Labels]")) {
        ui.MessagePopup("Bad INI", "Read failed: voltage labels.");
        return -1;
    }
    ex.voltage_labels.clear();
    std::optional<std::string_view> l;
    for (int i = 0; i < 8; ++i) {
        l = lines.next();
        if (!l || is_data_marker(*l)) {
            ui.MessagePopup("Bad INI", "Read failed: voltage labels.");
            return -1;
        }
        ex.voltage_labels.push_back(quoted(*l));
    }
    l = lines.next();
    if (l && has(*l, "Voltage 9:")) {
        ex.voltage_labels.push_back(quoted(*l));
        for (int i = 0; i < 5; ++i) {
            l = lines.next();
            ex.voltage_labels.push_back(l ? quoted(*l) : fmt::format("Voltage {}", 10 + i));
        }
        l = lines.next();
    } else {
        for (int i = 9; i <= 14; ++i) ex.voltage_labels.push_back(fmt::format("Voltage {}", i));
    }
    ex.voltage_labels.push_back(l && has(*l, "Trap DAC:") ? quoted(*l) : std::string("Trap DAC"));

    if (!seek("[Trigger Labels]")) {
        ui.MessagePopup("Bad INI", "Read failed: trigger labels.");
        return -1;
    }
    ex.trigger_labels.clear();
    for (int i = 0; i < 16; ++i) {
        l = lines.next();
        if (!l || is_data_marker(*l)) {
            ui.MessagePopup("Bad INI", "Read failed: trigger labels.");
            return -1;
        }
        ex.trigger_labels.push_back(quoted(*l));
    }
    l = lines.next();
    if (l && has(*l, "Trigger 17:")) {
        ex.trigger_labels.push_back(quoted(*l));
        for (int i = 0; i < 7; ++i) {
            l = lines.next();
            ex.trigger_labels.push_back(l && !is_data_marker(*l) ? quoted(*l) : fmt::format("Trigger {}", 18 + i));
        }
    } else {
        for (int i = 17; i <= 24; ++i) ex.trigger_labels.push_back(fmt::format("Trigger {}", i));
    }
    return 0;
}

void find_digitizer_and_card(Lines& lines, Experiment& ex) {
    lines.rewind();
    while (auto l = lines.next()) {
        if (is_data_marker(*l)) break;
        if (has(*l, "Digitizer:")) {
            if (has(*l, "HP_DIGITIZER")) ex.digitizer = HP_DIGITIZER;
            else if (has(*l, "TEK_DIGITIZER")) ex.digitizer = TEK_DIGITIZER;
            else if (has(*l, "NI_DIGITIZER")) ex.digitizer = NI_DIGITIZER;
            break;
        }
    }
    lines.rewind();
    while (auto l = lines.next()) {
        if (is_data_marker(*l)) break;
        const auto at = l->find("Number of Bits:");
        if (at != std::string_view::npos) {
            const long long bits = scan_integer(l->substr(l->find(':', at) + 1));
            if (bits == 160 || bits == 96 || bits == 32) ex.card = static_cast<int>(bits);
            break;
        }
    }
    lines.rewind();
}

// The version behind the first lowercase "v" of the signature. With no "v" the
// search result of -1 plus one reads from the start of the line: kept, so
// a signature without a version reads as the number it starts with (0).
double version_of(std::string_view sig) {
    const auto at = sig.find('v');
    const std::size_t from = at == std::string_view::npos ? 0 : at + 1;
    return scan_real(from_column(sig, from));
}

int fail(Ui& ui, const char* title, const char* text) {
    ui.MessagePopup(title, text);
    return -1;
}

}  // namespace

const char* digitizer_name(int d) {
    switch (d) {
        case HP_DIGITIZER: return "HP";
        case TEK_DIGITIZER: return "TEK";
        case NI_DIGITIZER: return "NI";
        default: return "none";
    }
}

const char* dmode_name(int m) {
    static const char* names[] = {"direct", "aheterodyne", "dheterodyne"};
    return (m >= 0 && m < 3) ? names[m] : "direct";
}

const char* emode_name(int m) {
    static const char* names[] = {"chirp", "swift", "single_freq", "msms"};
    return (m >= 0 && m < 4) ? names[m] : "chirp";
}

int Open_Experiment_text(const std::string& text, Experiment& ex, bool versiononly, Ui& ui,
                         double spectrum_bandwidth) {
    const std::string path = ex.path;
    ex = Experiment{};
    ex.path = path;
    Lines lines(text);
    const auto sig = lines.next_nonblank();
    if (!sig) return fail(ui, FILE_INPUT, NOT_VALID);
    const bool exp_file = has(*sig, "TULVA Experiment Sequence") || has(*sig, "Vantorix Experiment Sequence");
    const bool data_file = has(*sig, "TULVA Data File") || has(*sig, "Vantorix Data File") ||
                           has(*sig, "Vantorix Frequency Datafile");
    if (!exp_file && !data_file) {
        ex.version = -1.0;
        return fail(ui, FILE_INPUT, NOT_VALID);
    }
    if (data_file) {
        ex.version = version_of(*sig);
        if (ex.version > 3.0) {
            find_digitizer_and_card(lines, ex);
            lines.next_nonblank();  // past the signature again
        }
        if (versiononly) return 0;
        const auto l = lines.next_nonblank();
        if (!l || !(has(*l, "Begin Experiment Sequence") || has(*l, "Global Parameters")))
            return fail(ui, FILE_INPUT, NOT_VALID);
    } else if (versiononly) {
        return 0;
    }

    // expcount, or the older form with the trap DAC first.
    auto l = lines.next_nonblank();
    if (l && starts_with_nocase(*l, "Trap DAC =")) {
        ex.trap_dac = clamp_int(scan_integer(from_column(*l, 10)) - 1);
        while ((l = lines.next_nonblank()) && !starts_with_nocase(*l, "expcount:")) {
            if (is_data_marker(*l)) break;
        }
    }
    if (!l || !starts_with_nocase(*l, "expcount:")) return fail(ui, FILE_INPUT, "Invalid TRAP DAC");
    ex.expcount = clamp_int(scan_integer(from_column(*l, 9)));

    // Read_Sequence
    l = lines.next_nonblank();
    bool ok = l && starts_with_nocase(*l, "experiment:");
    if (ok) {
        ex.name = trim(from_column(*l, 11));
        ok = false;
        while ((l = lines.next_nonblank())) {
            if (starts_with_nocase(*l, "endexperiment:")) {
                ok = true;
                break;
            }
            if (is_data_marker(*l)) break;
            Loop loop;
            split_entry(*l, loop.name, loop.repeat);
            ex.loops.push_back(std::move(loop));
        }
    }
    if (!ok) {
        ui.MessagePopup(FILE_INPUT, "Invalid Experiment Loops");
        return fail(ui, EXP_INPUT, "Error reading sequence");
    }

    // Read_Loops: one "loop:" section for each loop, in order.
    for (auto& loop : ex.loops) {
        l = lines.next_nonblank();
        ok = l && starts_with_nocase(*l, "loop:");
        if (ok) {
            ok = false;
            while ((l = lines.next_nonblank())) {
                if (starts_with_nocase(*l, "endloop:")) {
                    ok = true;
                    break;
                }
                if (is_data_marker(*l)) break;
                Table t;
                split_entry(*l, t.name, t.repeat);
                loop.tables.push_back(std::move(t));
            }
        }
        if (!ok) return fail(ui, EXP_INPUT, "Error reading loops");
    }

    // Read_Tables: one "table:" section for each table of each loop.
    for (auto& loop : ex.loops) {
        for (auto& table : loop.tables) {
            l = lines.next_nonblank();
            ok = l && starts_with_nocase(*l, "table:");
            if (ok) {
                ok = false;
                while ((l = lines.next_nonblank())) {
                    if (starts_with_nocase(*l, "endtable:")) {
                        ok = true;
                        break;
                    }
                    if (is_data_marker(*l)) break;
                    Event ev;
                    ev.label = trim(*l);
                    table.events.push_back(std::move(ev));
                }
            }
            if (!ok) return fail(ui, EXP_INPUT, "Error reading tables");
        }
    }

    // Read_Events: one block for each event of each table; the row's label wins.
    for (auto& loop : ex.loops) {
        for (auto& table : loop.tables) {
            for (auto& row : table.events) {
                Event ev;
                int rc = 0;
                std::string why;
                while (true) {
                    l = lines.next();
                    if (!l || is_data_marker(*l)) {
                        ui.MessagePopup(EXP_INPUT, "Found end of file");
                        return fail(ui, EXP_INPUT, "Error reading events");
                    }
                    rc = Evaluate_Event_Line(*l, ev, ex.digitizer, why);
                    if (rc != 0) break;
                }
                if (rc < 0) {
                    ui.Console(fmt::format("Event \"{}\": {}\n", row.label, why));
                    return fail(ui, EXP_INPUT, "Error reading events");
                }
                ev.label = row.label;
                // Only a SWIFT excitation plays a waveform file.
                if (ev.excite && ev.excite->emode != 1) ev.excite->eswiftfile_name.clear();
                if (ev.detect && ex.digitizer == DIGITIZER_NONE && spectrum_bandwidth > 0.0 &&
                    std::fabs(ev.detect->dbandwidth - spectrum_bandwidth) < 0.0002)
                    ex.digitizer = TEK_DIGITIZER;
                row = std::move(ev);
            }
        }
    }
    for (auto& loop : ex.loops)
        for (auto& table : loop.tables)
            for (auto& ev : table.events) ev.wave_samples = Compute_Wave_Size(ev, ex.path);

    if (ex.version > 3.0 && data_file) {
        if (Read_Ini_Data(lines, ex, ui) < 0) return -1;
    }
    return 0;
}

int LoadTulvaScript(const Workspace& ws, const std::string& path, Experiment& ex, bool versiononly, Ui& ui) {
    if (!regular_file_size(path)) {
        // A missing script may have moved: offer to look for it.
        if (!ui.ConfirmPopup("Can't find old experiment!", "Would you like to browse for an existing file?"))
            return -1;
        const auto other = ui.FileSelectPopup("Select Experiment File", "*.exp;*.dat", "");
        if (!other || *other == path) return -1;
        return LoadTulvaScript(ws, *other, ex, versiononly, ui);
    }
    std::FILE* f = nullptr;
    const bool archive = path.size() >= 2 && path[path.size() - 2] == '.' && (path.back() == 'Z' || path.back() == 'z');
    if (archive && !ws.settings.WINZIP.empty()) {
        f = unpack_tulva_Z(ws, path, ui);
        if (!f) return -1;
    } else {
        f = std::fopen(path.c_str(), "rb");
    }
    if (!f) {
        ui.MessagePopup("Can't find old experiment!", fmt::format("{} cannot be read.", path));
        return -1;
    }
    std::string text;
    read_script_text(f, text);
    std::fclose(f);
    ex.path = path;
    return Open_Experiment_text(text, ex, versiononly, ui);
}

long long Compute_Wave_Size(const Event& ev, const std::string& script_path) {
    if (!ev.excite) return 0;
    const Excite& e = *ev.excite;
    switch (e.emode) {
        case 0: {
            const double sweep = static_cast<double>(e.sweeprate);
            const double v = std::fabs(e.highfreq * 6.2834 - e.lowfreq * 6.2834) * e.clockrate /
                             (sweep * 6.2834 * 1000000.0);
            if (!std::isfinite(v) || v < 0.0) return 0;
            return static_cast<long long>(std::llround(std::min(v, 9.0e18)));
        }
        case 1: {
            if (e.eswiftfile_name.empty()) return 0;
            fs::path p(e.eswiftfile_name);
            std::error_code ec;
            if (!fs::exists(p, ec) && !script_path.empty()) p = fs::path(script_path).parent_path() / p.filename();
            if (!regular_file_size(p.string())) return 0;
            Workspace ws;
            Spectrum s;
            RecordingUi quiet;
            if (Get_Tulva_Data(ws, p.string(), s, quiet) < 0) return 0;
            return s.datacount;
        }
        case 2: {
            const double v = e.clockrate * e.elength;
            if (!std::isfinite(v) || v < 0.0) return 0;
            return static_cast<long long>(std::min(v, 9.0e18));
        }
        case 3: return e.msms_datacount;
        default: return 0;
    }
}

int wave_blocks(long long samples) { return static_cast<int>(std::min<long long>((samples - 1) / WAVE_BLOCK + 1, 1 << 30)); }

WaveMemory Check_Total_Mem_Use(const Experiment& ex, Ui* ui) {
    WaveMemory m;
    auto warn = [&](const char* title, const char* text) {
        m.warnings.emplace_back(title, text);
        if (ui) ui->MessagePopup(title, text);
    };
    bool previous_excite = false;
    bool big_seen = false;
    bool overrun = false;
    for (const auto& loop : ex.loops)
        for (const auto& table : loop.tables)
            for (const auto& ev : table.events) {
                if (!ev.excite) {
                    previous_excite = false;
                    continue;
                }
                if (previous_excite)
                    warn("Warning!",
                         "You have two adjacent excite events. Unless there is a delay of at least 50 ms between them, "
                         "the second will not transmit.");
                previous_excite = true;
                const int n = wave_blocks(ev.wave_samples);
                if (n > WAVE_BLOCKS) {
                    warn("Arb Memory Error!", "Current waveform exceeds the 1MB limit of the arb and can not be created.");
                    continue;
                }
                if (n > 1) {
                    if (big_seen) {
                        warn("Arb Memory Error!",
                             "Sequence can not contain two or more waveforms with greater than 64K data points each.");
                        continue;
                    }
                    big_seen = true;
                }
                if (m.used + n > WAVE_BLOCKS) {
                    if (!overrun)
                        warn("Arb Memory Error!",
                             "Current waveform config overruns waveform memory. Some waveforms not created.");
                    overrun = true;
                    continue;
                }
                m.used += n;
            }
    m.available = WAVE_BLOCKS - m.used;
    return m;
}

double total_time(const Experiment& ex) {
    double total = 0.0;
    for (const auto& loop : ex.loops) {
        double per_loop = 0.0;
        for (const auto& table : loop.tables) {
            double per_table = 0.0;
            for (const auto& ev : table.events)
                if (!ev.disabled) per_table += ev.time;
            per_loop += per_table * std::max(table.repeat, 0);
        }
        total += per_loop * std::max(loop.repeat, 0);
    }
    return total;
}

nlohmann::ordered_json experiment_json(const Experiment& ex, const WaveMemory& mem) {
    nlohmann::ordered_json j;
    j["path"] = ex.path;
    j["name"] = ex.name;
    j["version"] = ex.version;
    j["digitizer"] = digitizer_name(ex.digitizer);
    j["card"] = ex.card;
    j["expcount"] = ex.expcount;
    if (ex.trap_dac >= 0) j["trap_dac"] = ex.trap_dac;
    auto loops = nlohmann::ordered_json::array();
    for (const auto& loop : ex.loops) {
        nlohmann::ordered_json jl{{"name", loop.name}, {"repeat", loop.repeat}};
        auto tables = nlohmann::ordered_json::array();
        for (const auto& table : loop.tables) {
            nlohmann::ordered_json jt{{"name", table.name}, {"repeat", table.repeat}};
            auto events = nlohmann::ordered_json::array();
            for (const auto& ev : table.events) {
                nlohmann::ordered_json je;
                je["label"] = ev.label;
                je["time"] = ev.time;
                je["disabled"] = ev.disabled;
                if (ev.detect) {
                    const Detect& d = *ev.detect;
                    je["detect"] = {{"dmode", dmode_name(d.dmode)},
                                    {"dreferencefreq", d.dreferencefreq},
                                    {"damplitude", d.damplitude},
                                    {"dhpamplitude", d.dhpamplitude},
                                    {"dfilter", d.dfilter},
                                    {"dbandwidth", d.dbandwidth},
                                    {"dhpbandwidth", d.dhpbandwidth},
                                    {"datacount", d.datacount},
                                    {"datafile", d.datafile}};
                } else {
                    je["detect"] = nullptr;
                }
                if (ev.excite) {
                    const Excite& e = *ev.excite;
                    je["excite"] = {{"emode", emode_name(e.emode)},
                                    {"elength", e.elength},
                                    {"eswiftfile_name", e.eswiftfile_name},
                                    {"eamplitude", e.eamplitude},
                                    {"efilter", e.efilter},
                                    {"lowfreq", e.lowfreq},
                                    {"highfreq", e.highfreq},
                                    {"sweeprate", e.sweeprate},
                                    {"clockrate", e.clockrate},
                                    {"loops", e.loops},
                                    {"msms_datacount", e.msms_datacount},
                                    {"msms_bandwidth", e.msms_bandwidth},
                                    {"msms_cutoff", e.msms_cutoff}};
                } else {
                    je["excite"] = nullptr;
                }
                je["wave_samples"] = ev.wave_samples;
                je["trig"] = ev.trig;
                je["volt"] = ev.volt;
                events.push_back(std::move(je));
            }
            jt["events"] = std::move(events);
            tables.push_back(std::move(jt));
        }
        jl["tables"] = std::move(tables);
        loops.push_back(std::move(jl));
    }
    j["loops"] = std::move(loops);
    j["voltage_labels"] = ex.voltage_labels;
    j["trigger_labels"] = ex.trigger_labels;
    j["total_time"] = total_time(ex);
    j["wave_blocks_used"] = mem.used;
    j["wave_blocks_available"] = mem.available;
    auto warnings = nlohmann::ordered_json::array();
    for (const auto& [title, text] : mem.warnings) warnings.push_back({{"title", title}, {"text", text}});
    j["warnings"] = std::move(warnings);
    return j;
}

std::string experiment_timeline(const Experiment& ex, const WaveMemory& mem) {
    std::string out = fmt::format("Experiment {}  (version {:g}, digitizer {}, card {})\n", ex.name, ex.version,
                                  digitizer_name(ex.digitizer), ex.card);
    out += fmt::format("{:<16} {:>6} {:<16} {:>6}  {:<20} {:>14} {:>14} {:<3} {}\n", "Loop", "x", "Table", "x",
                       "Event", "Start (s)", "Length (s)", "Off", "Action");
    double start = 0.0;
    for (const auto& loop : ex.loops)
        for (const auto& table : loop.tables)
            for (const auto& ev : table.events) {
                std::string action;
                if (ev.excite) {
                    const Excite& e = *ev.excite;
                    action = fmt::format("excite {} {:.1f}-{:.1f} Hz, {} samples", emode_name(e.emode), e.lowfreq,
                                         e.highfreq, ev.wave_samples);
                }
                if (ev.detect) {
                    const Detect& d = *ev.detect;
                    if (!action.empty()) action += "; ";
                    action += fmt::format("detect {} {:.1f} Hz, {} points", dmode_name(d.dmode), d.dbandwidth,
                                          d.datacount);
                }
                out += fmt::format("{:<16} {:>6} {:<16} {:>6}  {:<20} {:>14.9f} {:>14.9f} {:<3} {}\n", loop.name,
                                   loop.repeat, table.name, table.repeat, ev.label, start, ev.time,
                                   ev.disabled ? "yes" : "", action);
                if (!ev.disabled) start += ev.time;
            }
    out += fmt::format("Total time (s): {:.9f}\n", total_time(ex));
    out += fmt::format("Waveform blocks used: {} of {} ({} available)\n", mem.used, WAVE_BLOCKS, mem.available);
    for (const auto& [title, text] : mem.warnings) out += fmt::format("{}: {}\n", title, text);
    return out;
}

}  // namespace vx
