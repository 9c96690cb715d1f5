// The experiment script of an acquisition as a tree: the experiment, its loops,
// their tables and the event blocks with their detect and excite settings, as
// a .exp file or the header of a data file states them. Read up to the "Data:"
// line only, so a 32-million-point transient costs no more than its header.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace vx {

class Ui;
struct Workspace;

inline constexpr int SCRIPT_TRIGGERS = 24;
inline constexpr int SCRIPT_VOLTAGES = 14;
inline constexpr long long WAVE_BLOCK = 65536;  // points of one block of waveform memory
inline constexpr int WAVE_BLOCKS = 16;          // blocks of the waveform memory

enum ScriptDigitizer { DIGITIZER_NONE = 0, HP_DIGITIZER = 1, TEK_DIGITIZER = 2, NI_DIGITIZER = 3 };

struct Detect {
    int dmode = 0;  // 0 direct, 1 aheterodyne, 2 dheterodyne
    double dreferencefreq = 0.0;
    float damplitude = 1.0f;
    int dhpamplitude = 9;
    double dfilter = 500000.0;
    double dbandwidth = 500000.0;
    int dhpbandwidth = 1;
    long long datacount = 4096;
    std::string datafile;
};

struct Excite {
    int emode = 0;  // 0 chirp, 1 swift, 2 single_freq, 3 msms
    double elength = 0.0;
    std::string eswiftfile_name;
    float eamplitude = 1.0f;
    double efilter = 1.0;
    double lowfreq = 0.0;
    double highfreq = 500000.0;
    float sweeprate = 1000.0f;
    double clockrate = 25000000.0;
    int loops = 1;
    long long msms_datacount = 65536;
    double msms_bandwidth = 2500000.0;
    double msms_cutoff = 0.0;
};

struct Event {
    std::string label;
    double time = 0.0;
    bool disabled = false;
    std::optional<Detect> detect;
    std::optional<Excite> excite;
    std::array<int, SCRIPT_TRIGGERS> trig{};
    std::array<double, SCRIPT_VOLTAGES> volt{};
    long long wave_samples = 0;  // Compute_Wave_Size, 0 without an excite record
};

struct Table {
    std::string name;
    int repeat = 1;
    std::vector<Event> events;
};

struct Loop {
    std::string name;
    int repeat = 1;
    std::vector<Table> tables;
};

struct Experiment {
    std::string path;
    std::string name;
    double version = 0.0;
    int digitizer = DIGITIZER_NONE;
    int card = 0;        // 160, 96 or 32 ("Number of Bits:"), 0 unknown
    int trap_dac = -1;   // voltage range control of the older form, -1 when absent
    int expcount = 0;
    std::vector<Loop> loops;
    std::vector<std::string> voltage_labels;  // 14 and the trap label, when read
    std::vector<std::string> trigger_labels;  // 24, when read
};

// Check_Total_Mem_Use: the warnings (title, text) and the block totals.
struct WaveMemory {
    int used = 0;
    int available = WAVE_BLOCKS;
    std::vector<std::pair<std::string, std::string>> warnings;
};

const char* digitizer_name(int digitizer);
const char* dmode_name(int mode);
const char* emode_name(int mode);

// Open_Experiment on the text of a script (up to its "Data:" line). The
// version and the digitizer come from the text; spectrum_bandwidth (> 0) lets
// an older file name its TEK digitizer. Returns 0, or -1 after the message.
int Open_Experiment_text(const std::string& text, Experiment& ex, bool versiononly, Ui& ui,
                         double spectrum_bandwidth = 0.0);

// LoadTulvaScript: a .exp, .dat, .new or their .Z archive. The archive is
// unpacked into an unnamed temporary of the TEMP folder. Returns 0 or -1.
int LoadTulvaScript(const Workspace& ws, const std::string& path, Experiment& ex, bool versiononly, Ui& ui);

// Samples of the excite waveform of the event (swift: the point count of the
// waveform file, looked up beside script_path; 0 when it cannot be read).
long long Compute_Wave_Size(const Event& event, const std::string& script_path = {});

// Waveform blocks of n samples: truncate((n - 1) / 65536) + 1.
int wave_blocks(long long samples);

// Walks all events of all loops and tables and reports the waveform memory. With
// ui the warnings are also shown as popups.
WaveMemory Check_Total_Mem_Use(const Experiment& ex, Ui* ui);

// Seconds of one run: each enabled event's time, times its table's and its
// loop's repeats (disabled events are shown but do not run).
double total_time(const Experiment& ex);

// The tree as JSON (the keys of the script without their colons).
nlohmann::ordered_json experiment_json(const Experiment& ex, const WaveMemory& mem);

// The timeline table: one row per event, with the totals below.
std::string experiment_timeline(const Experiment& ex, const WaveMemory& mem);

}  // namespace vx
