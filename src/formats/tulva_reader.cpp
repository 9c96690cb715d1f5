#include "formats/tulva_reader.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <filesystem>
#include <numbers>
#include <vector>

#include <fmt/format.h>

#include "formats/frequency_file.hpp"
#include "platform/keyscan.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"

namespace vx {

static_assert(std::endian::native == std::endian::little,
              "Tulva sample blocks are little-endian and are read without swapping");

namespace fs = std::filesystem;

namespace {

constexpr const char* FILE_INPUT_ERROR = "File Input Error";
constexpr const char* NO_MARKER = "No Data Marker Found";
constexpr const char* NO_COUNT = "No Data Count Specified";
constexpr const char* NOT_VALID = "Not Valid TULVA Data File Format";
constexpr std::size_t COMMENT_BUFFER = 1024;

enum class Storage { Int, Float, Double };

// Owns the FILE* so that every path out of a reader leaves the file closed.
struct FileCloser {
    std::FILE* f;
    ~FileCloser() {
        if (f) std::fclose(f);
    }
};

bool has(std::string_view line, std::string_view key, bool cs = false) { return FindPattern(line, key, cs) >= 0; }

std::string_view behind(std::string_view line, std::string_view key, bool cs = false) {
    auto v = value_behind(line, key, cs);
    return v ? *v : std::string_view();
}

std::int32_t to_i32(std::int64_t v) {
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<std::int32_t>(v);
}

int degrees_of(double radians) { return round_to_int(radians * 180.0 / std::numbers::pi); }

// "Storage Type:": the text from 13 characters behind the start of the key is
// searched, case-sensitive: "int" selects int, else "double", else float.
Storage storage_type(std::string_view line, int key_at) {
    const std::size_t from = static_cast<std::size_t>(key_at) + 13;
    if (FindPattern(line, "int", true, from) > 0) return Storage::Int;
    if (FindPattern(line, "double", true, from) >= 0) return Storage::Double;
    return Storage::Float;
}

// "Data Points:" with the rule for the two padded transient sizes.
void set_datacount(Spectrum& s, std::int64_t value, bool padded_rule) {
    if (padded_rule && value == 32000000) {
        s.datacount = 33554432;
        s.storedcount = 32000000;
    } else if (padded_rule && value == 16000000) {
        s.datacount = 16777216;
        s.storedcount = 16000000;
    } else {
        s.datacount = to_i32(value);
    }
}

std::uint64_t bytes_per_sample(Storage st) {
    return st == Storage::Int ? 2 : st == Storage::Float ? 4 : 8;
}

// Bytes from the current position to the end of the file.
std::uint64_t bytes_left(std::FILE* f) {
    struct stat st {};
    const long here = std::ftell(f);
    if (here < 0 || ::fstat(::fileno(f), &st) != 0 || st.st_size <= here) return 0;
    return static_cast<std::uint64_t>(st.st_size - here);
}

// The announced block must be in the file before its array is allocated: a
// header that claims more samples than the file holds is damage (a cut-off
// transfer or a wrong count), refused with the file's name instead of read
// into a zero tail or an allocation no file backs.
bool block_fits(std::FILE* f, const Spectrum& s, Storage st, std::size_t count, Ui& ui) {
    const std::uint64_t need = static_cast<std::uint64_t>(count) * bytes_per_sample(st);
    const std::uint64_t left = bytes_left(f);
    if (need <= left) return true;
    ui.MessagePopup(FILE_INPUT_ERROR,
                    fmt::format("The file {} ends before its data: {} samples need {} bytes, the file holds {}.",
                                s.filename, count, need, left));
    return false;
}

// Reads `count` samples of the block into out[0..count) (out already sized and
// zeroed). The callers checked that the file holds the stored samples
// (block_fits); whatever lies beyond them (the padding of the two padded
// sizes) stays zero.
void read_block(std::FILE* f, Storage st, std::size_t count, float scale, std::vector<float>& out,
                std::vector<double>* doubles) {
    if (count > out.size()) count = out.size();
    switch (st) {
        case Storage::Int: {
            // Converted in pieces straight into the float array: no second full-size
            // buffer, and the int-to-float-and-scale pass runs on data still in cache.
            constexpr std::size_t CHUNK = 1 << 15;
            std::vector<std::int16_t> buf(std::min(count, CHUNK));
            std::size_t done = 0;
            while (done < count) {
                const std::size_t want = std::min(CHUNK, count - done);
                const std::size_t got = std::fread(buf.data(), sizeof(std::int16_t), want, f);
                float* dst = out.data() + done;
                if (scale == 1.0f) {
                    for (std::size_t i = 0; i < got; ++i) dst[i] = static_cast<float>(buf[i]);
                } else {
                    for (std::size_t i = 0; i < got; ++i) dst[i] = static_cast<float>(buf[i]) * scale;
                }
                done += got;
                if (got < want) break;
            }
            break;
        }
        case Storage::Float:
            (void)std::fread(out.data(), sizeof(float), count, f);
            break;
        case Storage::Double: {
            std::vector<double> d(count, 0.0);
            (void)std::fread(d.data(), sizeof(double), count, f);
            for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<float>(d[i]);
            if (doubles) *doubles = std::move(d);
            break;
        }
    }
}

// Sample arrays get two floats of spare room: the real transform runs in place
// on N + 2 floats, so a transient goes from the reader through the chain
// without one more full-size copy.
void alloc_samples(std::vector<float>& v, std::size_t n) {
    v = {};
    v.reserve(n + 2);
    v.assign(n, 0.0f);
}

// "dbandwidth:" / "Bandwidth:": only a value above 1.0 replaces the bandwidth.
void take_bandwidth(std::string_view line, std::string_view key, bool cs, Spectrum& s) {
    const double bw = scan_real(behind(line, key, cs));
    if (bw > 1.0) s.dbandwidth = bw;
}

bool valid_count(const Spectrum& s, Ui& ui) {
    if (s.datacount == 0) {
        ui.MessagePopup(FILE_INPUT_ERROR, NO_COUNT);
        return false;
    }
    if (s.datacount < 0 || s.datacount > MAX_DATACOUNT) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Data Count {} is not a valid number of samples.", s.datacount));
        return false;
    }
    return true;
}

// The comment block: lines behind "Comment :" up to one containing "End of
// Comment", joined without separators into a 1024-byte buffer.
void read_comment(std::FILE* f, Workspace& ws) {
    std::string text, line;
    while (read_header_line(f, line) >= 0) {
        if (has(line, "End of Comment")) break;
        if (text.size() < COMMENT_BUFFER - 1) text.append(line.substr(0, COMMENT_BUFFER - 1 - text.size()));
    }
    ws.comment_text = text;
}

// Walking table: n regions of four raw doubles, file order A, start, B, end.
void read_walking_table(std::FILE* f, Spectrum& s, std::int64_t n) {
    s.walking.clear();
    if (n <= 0) {
        s.walkingregions = s.walkingrows = 0;
        return;
    }
    // A count beyond what the rest of the file can hold is garbage; never
    // allocate for more regions than there are bytes to fill them.
    const long here = std::ftell(f);
    std::fseek(f, 0, SEEK_END);
    const long end = std::ftell(f);
    std::fseek(f, here, SEEK_SET);
    const std::int64_t fits = (end > here) ? (end - here) / 32 : 0;
    const std::int64_t rows = std::min<std::int64_t>(n, std::max<std::int64_t>(fits, 0));
    s.walkingregions = s.walkingrows = to_i32(rows);
    s.walking.assign(static_cast<std::size_t>(rows), WalkingRegion{});
    for (auto& r : s.walking) {
        double v[4] = {0, 0, 0, 0};
        if (std::fread(v, sizeof(double), 4, f) != 4) break;
        r.A = v[0];
        r.startfreq = v[1];
        r.B = v[2];
        r.endfreq = v[3];
    }
}

// The copy that TransferParametersfromSpectrum makes for a further SED channel.
void transfer_parameters(const Spectrum& from, Spectrum& to) {
    to.datacount = from.datacount;
    to.domain = from.domain;
    to.dbandwidth = from.dbandwidth;
    to.Aterm = from.Aterm;
    to.Bterm = from.Bterm;
    to.detectmode = from.detectmode;
    to.Trapvoltage = from.Trapvoltage;
    to.reffreq = from.reffreq;
    to.detectstart = from.detectstart;
    to.filename = from.filename;
    to.caltype = CALTYPE_TWO_TERM;
}

// Which generation's rules a shared step follows.
enum class Gen { V3, V4 };

struct HeaderResult {
    Storage storage = Storage::Int;
    float scale = 1.0f;
    bool sed2 = false;
};

int slot_of(const Workspace& ws, const Spectrum& s) {
    for (int i = 0; i < MAX_PANELS; ++i)
        if (&ws.panels[static_cast<std::size_t>(i)].spectrum == &s) return i;
    return -1;
}

// Reads one further SED channel: skip to its section marker, reserve a slot,
// copy the header and read the block. Returns the slot, -1 without a free
// slot, or -2 when the file cannot hold the block (after the message).
int read_sed_channel(Workspace& ws, std::FILE* f, Spectrum& first, const HeaderResult& h, Gen gen,
                     std::string_view section, Ui& ui, bool third) {
    const int slot = Get_New_Panel(ws);
    if (slot < 0) {
        ui.MessagePopup("Warning", TOO_MANY_FILES);
        return -1;
    }
    prepare_new_slot(ws, slot, FILETYPE_TULVA);
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    s.sed = 1;
    s.Zeroorder = s.OptimizedFirstorder = s.OptimizedSecondorder = 0.0;
    transfer_parameters(first, s);
    if (third) ws.sed_third_panel = slot;
    else ws.sed_second_panel = slot;

    std::string line;
    bool found = false;
    while (read_header_line(f, line) >= 0) {
        // v4 needs the named section line; v3 takes any line holding "Data:".
        if (gen == Gen::V4 ? has(line, section, true) : has(line, "Data:")) {
            found = true;
            break;
        }
    }
    // A padded transient stores only storedcount samples per channel; the
    // channel's read may run short by the padding, which stays zero.
    const std::size_t stored = first.storedcount != 0 ? static_cast<std::size_t>(first.storedcount)
                                                      : static_cast<std::size_t>(s.datacount);
    if (found && !block_fits(f, s, h.storage, stored, ui)) return -2;
    alloc_samples(s.data, static_cast<std::size_t>(s.datacount));
    if (found) {
        std::vector<double> d;
        read_block(f, h.storage, static_cast<std::size_t>(s.datacount), h.scale, s.data,
                   h.storage == Storage::Double ? &d : nullptr);
        if (h.storage == Storage::Double && !third) first.imagdata64 = std::move(d);
    }
    Initialize_Display(ws, slot);
    return slot;
}

// End of a v3 or v4 header: the count check and the sample blocks.
int finish_header(Workspace& ws, std::FILE* f, Spectrum& s, const HeaderResult& h, Gen gen, bool sets_storageinfo,
                  Ui& ui) {
    if (!valid_count(s, ui)) return -1;
    const bool sed = ws.sed_mode != 0 || h.sed2;
    const std::size_t stored = s.storedcount != 0 ? static_cast<std::size_t>(s.storedcount)
                                                  : static_cast<std::size_t>(s.datacount);
    if (!block_fits(f, s, h.storage, stored, ui)) return -1;
    alloc_samples(s.data, static_cast<std::size_t>(s.datacount));

    if (!sed) {
        if (h.storage != Storage::Double) {
            const std::size_t n = s.storedcount != 0 ? static_cast<std::size_t>(s.storedcount)
                                                     : static_cast<std::size_t>(s.datacount);
            read_block(f, h.storage, n, h.scale, s.data, nullptr);
            if (sets_storageinfo && (gen == Gen::V4 || h.storage == Storage::Int)) s.storageinfo = 1;
        }
        return 0;
    }

    // Two (or three) channels: block 1 here, the others into newly reserved slots.
    const std::size_t n1 = s.storedcount != 0 ? static_cast<std::size_t>(s.storedcount)
                                              : static_cast<std::size_t>(s.datacount);
    std::vector<double> d1;
    read_block(f, h.storage, n1, h.scale, s.data, h.storage == Storage::Double ? &d1 : nullptr);
    if (h.storage == Storage::Double) s.realdata64 = std::move(d1);

    const int first_slot = slot_of(ws, s);
    ws.phased_data = first_slot;
    if (first_slot >= 0) Initialize_Display(ws, first_slot);
    int rc = read_sed_channel(ws, f, s, h, gen, "SED Data:", ui, false) == -2 ? -1 : 0;
    if (h.storage == Storage::Double) ws.sed_mode = 0;
    if (rc == 0 && h.sed2 && gen == Gen::V4 && read_sed_channel(ws, f, s, h, gen, "SED Data2:", ui, true) == -2)
        rc = -1;
    if (first_slot >= 0) ws.active_panel = first_slot;
    return rc;
}

// One block and nothing more: the explicit channel readers.
int read_single_block(std::FILE* f, Spectrum& s, const HeaderResult& h, Ui& ui) {
    if (!valid_count(s, ui)) return -1;
    const std::size_t n = s.storedcount != 0 ? static_cast<std::size_t>(s.storedcount)
                                             : static_cast<std::size_t>(s.datacount);
    if (!block_fits(f, s, h.storage, n, ui)) return -1;
    alloc_samples(s.data, static_cast<std::size_t>(s.datacount));
    if (h.storage != Storage::Double) read_block(f, h.storage, n, h.scale, s.data, nullptr);
    return 0;
}

// The float block of the oldest generations: no zero-count check of their own,
// but a count no file can hold is still refused.
int read_float_block(std::FILE* f, Spectrum& s, Ui& ui) {
    if (s.datacount < 0 || s.datacount > MAX_DATACOUNT) {
        valid_count(s, ui);
        return -1;
    }
    if (!block_fits(f, s, Storage::Float, static_cast<std::size_t>(s.datacount), ui)) return -1;
    alloc_samples(s.data, static_cast<std::size_t>(s.datacount));
    read_block(f, Storage::Float, s.data.size(), 1.0f, s.data, nullptr);
    return 0;
}

// ---------------------------------------------------------------------------
// v4, and the near-copies of the explicit SED open path.

struct V4Variant {
    std::string_view marker = "Data:";
    bool marker_col0 = true;      // the marker counts only at column 0
    bool text_keys = true;        // "Data Collected on ", "Project Code = ", "Data Collected by "
    bool excite_duration = true;
    bool freq_keys = true;        // keys 25 to 31: the ungated frequency range
    bool walking = true;
    bool bandwidth_in_row = false;  // dbandwidth/Bandwidth/RelativeX tested one after the other
    bool sed2_test = true;
    bool sets_storageinfo = true;
    bool delay_as_int = false;
    bool collection_clears = false;  // "Collection Mode:" only clears sed_mode and sed
    bool reads_channels = true;      // end of header reads the further SED channels
};

int Get_Tulva_Data_v40_impl(Workspace& ws, std::FILE* f, Spectrum& s, Ui& ui, const V4Variant& v) {
    Set_Default_Parameters(s);
    HeaderResult h;
    std::string line;
    for (;;) {
        if (Get_Next_Line(f, line) < 0) {
            ui.MessagePopup(FILE_INPUT_ERROR, NO_MARKER);
            return -1;
        }
        const std::string_view L = line;
        const bool gate = s.phaseparams != 0;

        if (v.text_keys && has(L, "Data Collected on ")) {
            s.collectedon = fit_field(scan_text(behind(L, "Data Collected on ")), COLLECTEDON_WIDTH);
        } else if (v.text_keys && has(L, "Project Code = ")) {
            s.projectcode = fit_field(scan_text(behind(L, "Project Code = ")), PROJECTCODE_WIDTH);
        } else if (v.text_keys && has(L, "Data Collected by ")) {
            s.collectedby = fit_field(scan_text(behind(L, "Data Collected by ")), COLLECTEDBY_WIDTH);
        } else if (has(L, "Date: ")) {
            s.dateserial = to_i32(scan_int(behind(L, "Date: ")));
        } else if (has(L, "expcount:")) {
            s.expcount = to_i32(scan_int(behind(L, "expcount:")));
        } else if (has(L, "Data Detected at (seconds):")) {
            s.expcount = 1;
            s.detectstart = scan_real(behind(L, "Data Detected at (seconds):"));
        } else if (has(L, "Phase Parameters:")) {
            s.phaseparams = 1;
        } else if (has(L, "Data Storage Mode:")) {
            s.storagemode = to_i32(scan_int(behind(L, "Data Storage Mode:")));
        } else if (gate && has(L, "Optimized Sweep Rate:")) {
            s.sweeprate = s.OptimizedSecondorder = scan_real(behind(L, "Optimized Sweep Rate:"));
        } else if (gate && has(L, "Optimized Delay:")) {
            const auto t = behind(L, "Optimized Delay:");
            s.delay = s.OptimizedFirstorder = v.delay_as_int ? static_cast<double>(scan_int(t)) : scan_real(t);
        } else if (gate && v.excite_duration && has(L, "Excite Duration:")) {
            s.exciteduration = scan_real(behind(L, "Excite Duration:"));
        } else if (gate && has(L, "Final Frequency:")) {
            s.highfreq = scan_real(behind(L, "Final Frequency:"));
        } else if (gate && has(L, "Initial Frequency:")) {
            s.lowfreq = scan_real(behind(L, "Initial Frequency:"));
        } else if (gate && has(L, "Initial Constant:")) {
            s.initialconstant = scan_real(behind(L, "Initial Constant:"));
            s.Zeroorder += s.initialconstant;
            s.ZeroDegrees = degrees_of(s.Zeroorder);
        } else if (gate && has(L, "Optimized Constant:")) {
            s.phaseconstant = scan_real(behind(L, "Optimized Constant:"));
            s.Zeroorder += s.phaseconstant;
            s.ZeroDegrees = degrees_of(s.Zeroorder);
        } else if (gate && has(L, "Detection BW:")) {
            s.detectbw = static_cast<double>(scan_int(behind(L, "Detection BW:")));
        } else if (gate && has(L, "Use Phase Delay F:")) {
            s.usephasedelay = to_i32(scan_int(behind(L, "Use Phase Delay F:")));
        } else if (has(L, "Data Points:")) {
            set_datacount(s, scan_int(behind(L, "Data Points:")), true);
        } else if (int at = FindPattern(L, "Storage Type:", false); at >= 0) {
            h.storage = storage_type(L, at);
        } else if (int cm = FindPattern(L, "Collection Mode:", false); cm >= 0) {
            const std::size_t from = static_cast<std::size_t>(cm) + 13;
            if (v.collection_clears) {
                ws.sed_mode = 0;
                s.sed = 0;
            } else if (v.sed2_test && FindPattern(L, "SED2", true, from) >= 0) {
                h.sed2 = true;
                ws.sed_mode = 0;
                s.sed = 0;
            } else if (FindPattern(L, "SED", true, from) > 0) {
                ws.sed_mode = 1;
                s.sed = 1;
            } else {
                ws.sed_mode = 0;
                s.sed = 0;
            }
        } else if (has(L, "Voltage Scale:")) {
            double scale = scan_real(behind(L, "Voltage Scale:"));
            if (scale == 0.0) {
                ui.MessagePopup("error", "Experiment script error voltage scale was set to zero. Reset to 1.0.");
                scale = 1.0;
            }
            h.scale = static_cast<float>(scale);
        } else if (v.bandwidth_in_row && (has(L, "dbandwidth:") || has(L, "Bandwidth:", true) ||
                                          has(L, "RelativeX:", true))) {
            // The explicit SED reader tests these three one after the other.
            if (has(L, "dbandwidth:")) take_bandwidth(L, "dbandwidth:", false, s);
            if (has(L, "Bandwidth:", true)) take_bandwidth(L, "Bandwidth:", true, s);
            if (has(L, "RelativeX:", true)) {
                double rx = scan_real(behind(L, "RelativeX:", true));
                if (rx > 0.0) s.relativex = rx;
            }
        } else if (!v.bandwidth_in_row && has(L, "dbandwidth:")) {
            take_bandwidth(L, "dbandwidth:", false, s);
        } else if (!v.bandwidth_in_row && has(L, "Bandwidth:", true)) {
            take_bandwidth(L, "Bandwidth:", true, s);
        } else if (!v.bandwidth_in_row && has(L, "RelativeX:", true)) {
            double rx = scan_real(behind(L, "RelativeX:", true));
            if (rx > 0.0) s.relativex = rx;
        } else if (v.freq_keys && has(L, "lowfreq:", true)) {
            double x = scan_real(behind(L, "lowfreq:", true));
            if (x > 0.0) s.lowfreq = s.origlowfreq = x;
        } else if (v.freq_keys && has(L, "Initial Frequency:", true)) {
            double x = scan_real(behind(L, "Initial Frequency:", true));
            if (x > 0.0) s.lowfreq = s.origlowfreq = x;
        } else if (v.freq_keys && has(L, "highfreq:", true)) {
            double x = scan_real(behind(L, "highfreq:", true));
            if (x > 0.0) s.highfreq = s.orighighfreq = x;
        } else if (v.freq_keys && has(L, "hifreq:", true)) {
            double x = scan_real(behind(L, "hifreq:", true));
            if (x > 0.0) s.highfreq = s.orighighfreq = x;
        } else if (v.freq_keys && has(L, "Final Frequency:", true)) {
            // Sets the working value only: orighighfreq keeps its "not given" -1.
            double x = scan_real(behind(L, "Final Frequency:", true));
            if (x > 0.0) s.highfreq = x;
        } else if (v.freq_keys && has(L, "sweeprate:", true)) {
            double x = scan_real(behind(L, "sweeprate:", true));
            if (x > 0.0) s.sweeprate = x;
        } else if (v.freq_keys && has(L, "Optimized Sweep Rate:", true)) {
            double x = scan_real(behind(L, "Optimized Sweep Rate:", true));
            if (x > 0.0) s.sweeprate = x;
        } else if (has(L, "Calibration Type:")) {
            // The stored type is not trusted: every file starts on the two-term law.
            s.caltype = CALTYPE_TWO_TERM;
        } else if (has(L, "Source Coeff0:")) {
            s.Aterm = scan_real(behind(L, "Source Coeff0:"));
        } else if (has(L, "Source Coeff1:")) {
            s.Bterm = scan_real(behind(L, "Source Coeff1:"));
        } else if (has(L, "Phased_Zero=")) {
            s.Zeroorder = scan_real(behind(L, "Phased_Zero="));
            // Converts the old degree value, not the new radians: compatible with
            // the files and phase panels that were made this way.
            s.ZeroDegrees = degrees_of(static_cast<double>(s.ZeroDegrees));
        } else if (has(L, "Phased_First=")) {
            s.OptimizedFirstorder = scan_real(behind(L, "Phased_First="));
        } else if (has(L, "Phased_Intercept=")) {
            s.Phased_Intercept = to_i32(scan_int(behind(L, "Phased_Intercept=")));
        } else if (has(L, "DOMAIN=")) {
            s.domain = to_i32(scan_int(behind(L, "DOMAIN=")));
        } else if (has(L, "Phased_Datacount=")) {
            s.Phased_Datacount = s.datacount = to_i32(scan_int(behind(L, "Phased_Datacount=")));
        } else if (has(L, "Detect Mode:")) {
            const auto m = scan_int(behind(L, "Detect Mode:"));
            s.detectmode = (m == 1 || m == 2) ? static_cast<std::int32_t>(m) : DETECT_DIRECT;
        } else if (has(L, "Number of Bits:")) {
            // known key, nothing to keep
        } else if (has(L, "Trap Voltage:")) {
            s.Trapvoltage = scan_real(behind(L, "Trap Voltage:"));
        } else if (has(L, "Reference Frequency:")) {
            s.reffreq = scan_real(behind(L, "Reference Frequency:"));
        } else if (has(L, "Parent Mass:")) {
            s.parentmass = scan_real(behind(L, "Parent Mass:"));
        } else if (v.walking && has(L, "Walking Calibration Number of Terms =")) {
            s.walkingterms = to_i32(scan_int(behind(L, "Walking Calibration Number of Terms =")));
        } else if (v.walking && has(L, "Walking Calibration Regions =")) {
            read_walking_table(f, s, scan_int(behind(L, "Walking Calibration Regions =")));
        } else if (has(L, "Comment :")) {
            read_comment(f, ws);
        } else if (int at = FindPattern(L, v.marker, false); at >= 0 && (!v.marker_col0 || at == 0)) {
            break;
        }
    }
    if (!v.reads_channels) return read_single_block(f, s, h, ui);
    return finish_header(ws, f, s, h, Gen::V4, v.sets_storageinfo, ui);
}

// ---------------------------------------------------------------------------
// v3 (also the SWIFT files): every key is tried on every line, no early exit.

struct V3Variant {
    std::string_view marker = "Data:";
    bool sets_storageinfo = true;
    bool constant_as_int = false;
    bool reads_channels = true;
};

int Get_Tulva_Data_v30_impl(Workspace& ws, std::FILE* f, Spectrum& s, Ui& ui, const V3Variant& v) {
    Set_Default_Parameters(s);
    HeaderResult h;
    std::string line;
    for (;;) {
        if (Get_Next_Line(f, line) < 0) {
            ui.MessagePopup(FILE_INPUT_ERROR, NO_MARKER);
            return -1;
        }
        const std::string_view L = line;
        auto real = [&](std::string_view key) { return scan_real(behind(L, key)); };
        auto integer = [&](std::string_view key) { return scan_int(behind(L, key)); };

        if (has(L, "expcount:")) s.expcount = to_i32(integer("expcount:"));
        if (has(L, "Data Detected at (seconds):")) s.expcount = 1;
        if (has(L, "Phase Parameters:")) s.phaseparams = 1;
        if (s.phaseparams) {
            if (has(L, "Optimized Sweep Rate:")) s.sweeprate = s.OptimizedSecondorder = real("Optimized Sweep Rate:");
            if (has(L, "Optimized Delay:")) s.delay = s.OptimizedFirstorder = real("Optimized Delay:");
            if (has(L, "Optimized Constant:")) {
                const double c = v.constant_as_int ? static_cast<double>(integer("Optimized Constant:"))
                                                   : real("Optimized Constant:");
                s.phaseconstant = c;
                s.Zeroorder = c;
                s.ZeroDegrees = degrees_of(c);
            }
            if (has(L, "Final Frequency:")) s.highfreq = real("Final Frequency:");
            if (has(L, "Initial Frequency:")) s.lowfreq = real("Initial Frequency:");
            if (has(L, "Initial Constant:")) s.initialconstant = real("Initial Constant:");
            if (has(L, "Optimized Constant:"))
                s.phaseconstant = v.constant_as_int ? static_cast<double>(integer("Optimized Constant:"))
                                                    : real("Optimized Constant:");
        }
        if (has(L, "Data Storage Mode:")) s.storagemode = to_i32(integer("Data Storage Mode:"));
        if (s.phaseparams) {
            if (has(L, "Detection BW:")) s.detectbw = static_cast<double>(integer("Detection BW:"));
            if (has(L, "Use Phase Delay F:")) s.usephasedelay = to_i32(integer("Use Phase Delay F:"));
        }
        if (has(L, "Data Points:")) set_datacount(s, integer("Data Points:"), true);
        if (int at = FindPattern(L, "Storage Type:", false); at >= 0) h.storage = storage_type(L, at);
        if (int cm = FindPattern(L, "Collection Mode:", false); cm >= 0) {
            const bool sed = FindPattern(L, "SED", true, static_cast<std::size_t>(cm) + 13) > 0;
            ws.sed_mode = s.sed = sed ? 1 : 0;
        }
        if (has(L, "Voltage Scale:")) {
            double scale = real("Voltage Scale:");
            if (scale == 0.0) {
                ui.MessagePopup("error", "Experiment script error voltage scale was set to zero. Reset to 1.0.");
                scale = 1.0;
            }
            h.scale = static_cast<float>(scale);
        }
        if (has(L, "dbandwidth:")) take_bandwidth(L, "dbandwidth:", false, s);
        if (has(L, "Bandwidth:")) take_bandwidth(L, "Bandwidth:", false, s);
        if (has(L, "Calibration Type:")) s.caltype = CALTYPE_TWO_TERM;
        if (has(L, "Source Coeff0:")) s.Aterm = real("Source Coeff0:");
        if (has(L, "Source Coeff1:")) s.Bterm = real("Source Coeff1:");
        if (has(L, "Phased_Zero=")) {
            s.Zeroorder = real("Phased_Zero=");
            s.ZeroDegrees = degrees_of(s.Zeroorder);
        }
        if (has(L, "Phased_First=")) s.OptimizedFirstorder = real("Phased_First=");
        if (has(L, "Phased_Intercept=")) s.Phased_Intercept = to_i32(integer("Phased_Intercept="));
        if (has(L, "DOMAIN=")) s.domain = to_i32(integer("DOMAIN="));
        if (has(L, "Phased_Datacount=")) s.Phased_Datacount = s.datacount = to_i32(integer("Phased_Datacount="));
        if (has(L, "Detect Mode:")) s.detectmode = to_i32(integer("Detect Mode:"));
        if (has(L, "Trap Voltage:")) s.Trapvoltage = real("Trap Voltage:");
        if (has(L, "Reference Frequency:")) s.reffreq = real("Reference Frequency:");
        if (has(L, "Data Detected at (seconds):")) s.detectstart = real("Data Detected at (seconds):");
        if (has(L, "Parent Mass:")) s.parentmass = real("Parent Mass:");
        if (has(L, "Comment :")) read_comment(f, ws);
        if (has(L, v.marker)) break;
    }
    if (!v.reads_channels) return read_single_block(f, s, h, ui);
    return finish_header(ws, f, s, h, Gen::V3, v.sets_storageinfo, ui);
}

// ---------------------------------------------------------------------------
// v2.0: floats only, no padded sizes, no channels.

int Get_Tulva_Data_v20_impl(std::FILE* f, Spectrum& s, Ui& ui, std::string_view marker) {
    Set_Default_Parameters(s);
    std::string line;
    for (;;) {
        if (Get_Next_Line(f, line) < 0) {
            ui.MessagePopup(FILE_INPUT_ERROR, NO_MARKER);
            return -1;
        }
        const std::string_view L = line;
        if (has(L, "expcount:")) s.expcount = to_i32(scan_int(behind(L, "expcount:")));
        if (has(L, "Data Storage Mode:")) s.storagemode = to_i32(scan_int(behind(L, "Data Storage Mode:")));
        if (has(L, "Data Points:")) set_datacount(s, scan_int(behind(L, "Data Points:")), false);
        if (has(L, "dbandwidth:")) take_bandwidth(L, "dbandwidth:", false, s);
        if (has(L, "Bandwidth:")) take_bandwidth(L, "Bandwidth:", false, s);
        if (has(L, "Calibration Type:")) s.caltype = CALTYPE_TWO_TERM;
        if (has(L, "Source Coeff0:")) s.Aterm = scan_real(behind(L, "Source Coeff0:"));
        if (has(L, "Source Coeff1:")) s.Bterm = scan_real(behind(L, "Source Coeff1:"));
        if (has(L, "Detect Mode:")) {
            const auto m = scan_int(behind(L, "Detect Mode:"));
            s.detectmode = (m == 1 || m == 2) ? static_cast<std::int32_t>(m) : DETECT_DIRECT;
        }
        if (has(L, "Reference Frequency:")) s.reffreq = scan_real(behind(L, "Reference Frequency:"));
        if (has(L, "Data Detected at (seconds):"))
            s.detectstart = scan_real(behind(L, "Data Detected at (seconds):"));
        if (has(L, "Trap Voltage:")) s.Trapvoltage = scan_real(behind(L, "Trap Voltage:"));
        if (has(L, marker)) break;
    }
    if (read_float_block(f, s, ui) < 0) return -1;
    return 0;
}

// ---------------------------------------------------------------------------
// Legacy files: a family signature with no known version.

int legacy_reader(std::FILE* f, Spectrum& s, Ui& ui, const std::string& signature, std::string_view marker,
                  bool sets_storageinfo) {
    Set_Default_Parameters(s);
    std::string line = signature;
    bool first = true;
    for (;;) {
        if (!first && Get_Next_Line(f, line) < 0) {
            ui.MessagePopup(FILE_INPUT_ERROR, NO_MARKER);
            return -1;
        }
        first = false;
        const std::string_view L = line;
        if (has(L, "Data Points:")) set_datacount(s, scan_int(behind(L, "Data Points:")), false);
        if (has(L, "dbandwidth:")) take_bandwidth(L, "dbandwidth:", false, s);
        if (has(L, "Bandwidth:")) take_bandwidth(L, "Bandwidth:", false, s);
        if (has(L, "Calibration Type:")) s.caltype = CALTYPE_TWO_TERM;
        if (has(L, "Source Coeff0:")) s.Aterm = scan_real(behind(L, "Source Coeff0:"));
        if (has(L, "Source Coeff1:")) s.Bterm = scan_real(behind(L, "Source Coeff1:"));
        if (has(L, "Phased_Zero=")) s.Zeroorder = scan_real(behind(L, "Phased_Zero="));
        if (has(L, "Phased_First=")) s.OptimizedFirstorder = scan_real(behind(L, "Phased_First="));
        if (has(L, "Phased_Intercept=")) s.Phased_Intercept = to_i32(scan_int(behind(L, "Phased_Intercept=")));
        if (has(L, "DOMAIN=")) s.domain = to_i32(scan_int(behind(L, "DOMAIN=")));
        if (int at = FindPattern(L, "Phased_Datacount=", false); at >= 0) {
            // The value is taken 7 characters behind the start of the key, where the
            // scan meets the word "Datacount" and yields 0. Old files depend on it.
            s.Phased_Datacount = s.datacount = to_i32(scan_int(L.substr(static_cast<std::size_t>(at) + 7)));
        }
        if (has(L, marker)) break;
    }
    if (read_float_block(f, s, ui) < 0) return -1;
    if (sets_storageinfo) s.storageinfo = 1;
    return 0;
}

// The heterodyne question of legacy files, asked at the console after the read.
void legacy_question(Spectrum& s, Ui& ui) {
    ui.Console("Is this a\n");
    ui.Console("\t+) heterodyne experiment with reference frequence LOWER then signal frequency\n");
    ui.Console("\t-) heterodyne experiment with reference frequence HIGER then signal frequency\n");
    ui.Console("\tD) Direct mode experiment?\n");
    ui.Console("+/-/D? <D>");
    const auto answer = ui.ConsoleReadLine();
    const std::string a = answer ? *answer : std::string();
    const char c = a.empty() ? 'D' : a.front();
    if (c == '-' || c == '+') {
        s.detectmode = c == '-' ? DETECT_NEGATIVE_HETERODYNE : DETECT_POSITIVE_HETERODYNE;
        ui.Console(c == '-' ? "\nNegative Heterodyne Mode\n" : "\nPositive Heterodyne Mode\n");
        ui.Console("\nWhat is the reference frequency?");
        const auto ref = ui.ConsoleReadLine();
        s.reffreq = ref ? scan_real(*ref) : 0.0;
    } else {
        ui.Console("\nDirect Mode\n");
    }
}

// ---------------------------------------------------------------------------
// Dispatch and the .Z handling shared by the plain and the SED entry points.

enum class Family { V20, V30, V40, Freq10, Swift, Legacy, None };

Family family_of(std::string_view sig) {
    const bool fam = has(sig, "TULVA Data File") || has(sig, "Vantorix Data File") ||
                     has(sig, "Vantorix Frequency Datafile") || has(sig, "TULVA SWIFT File");
    if (!fam) return Family::None;
    if (has(sig, "TULVA SWIFT File")) return Family::Swift;
    if (has(sig, "TULVA Data File v2.0", true)) return Family::V20;
    if (has(sig, "TULVA Data File v3", true)) return Family::V30;
    if (has(sig, "TULVA Data File v4", true) || has(sig, "Vantorix Data File v4", true)) return Family::V40;
    if (has(sig, "Vantorix Frequency Datafile v1", true)) return Family::Freq10;
    return Family::Legacy;
}

bool ends_with_Z(const std::string& path) {
    return path.size() >= 2 && path[path.size() - 2] == '.' && (path.back() == 'Z' || path.back() == 'z');
}

// Unpacks a .Z archive into a file of the TEMP folder that has no name: it is
// created under a unique name and unlinked at once, so neither a user's file
// of the same name nor a second run is touched, and nothing is left behind
// whatever way the read ends. Returns the file positioned at its start, or
// nullptr after the message.
std::FILE* unpack_Z(const Workspace& ws, const std::string& path, Ui& ui) {
    return unpack_archive_member(ws.settings.TEMP, path, ui);
}

}  // namespace

std::FILE* unpack_archive_member(const std::string& folder, const std::string& path, Ui& ui) {
    std::FILE* out = nullptr;
    int rc = UNZIP_CANNOT_CREATE;
    if (!folder.empty()) {
        std::string pattern = (fs::path(folder) / ".vantorix-unzip-XXXXXX").string();
        const int fd = ::mkstemp(pattern.data());
        if (fd >= 0) {
            ::unlink(pattern.c_str());
            out = ::fdopen(fd, "w+b");
            if (!out) ::close(fd);
        }
    }
    if (out) rc = unzip1_into(path, out, MAX_ARCHIVE_MEMBER);
    if (rc != UNZIP_OK) {
        if (out) std::fclose(out);
        ui.MessagePopup("Error", "Cannot unzip file!");
        ui.Console(fmt::format("{}: {}\n", path, unzip_error_text(rc)));
        return nullptr;
    }
    std::rewind(out);
    return out;
}

namespace {

struct Opened {
    std::FILE* f = nullptr;
    std::string signature;
};

// Resolves .Z, opens the file and reads its signature line.
int open_tulva(const Workspace& ws, const std::string& path, Opened& o, Ui& ui) {
    // A directory, a device or a pipe is refused before reading: /dev/zero has
    // no end, and a folder is not a damaged data file.
    if (!regular_file_size(path)) {
        std::error_code ec;
        ui.MessagePopup(FILE_INPUT_ERROR, fs::is_directory(path, ec)
                                              ? fmt::format("{} is a folder, not a data file.", path)
                                              : fmt::format("Cannot open the file {}.", path));
        return -1;
    }
    if (!ws.settings.WINZIP.empty() && ends_with_Z(path)) {
        o.f = unpack_Z(ws, path, ui);
        if (!o.f) return -1;
    } else {
        o.f = std::fopen(path.c_str(), "rb");
    }
    if (!o.f) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Cannot open the file {}.", path));
        return -1;
    }
    if (Get_Next_Line(o.f, o.signature) < 0) o.signature.clear();
    return 0;
}

int read_frequency_v10(Workspace& ws, std::FILE* f, Spectrum& s, Ui& ui) {
    return Get_Tulva_Frequency_Data_v10(ws, f, s, ui);
}

}  // namespace

std::FILE* unpack_tulva_Z(const Workspace& ws, const std::string& path, Ui& ui) { return unpack_Z(ws, path, ui); }

int read_header_line(std::FILE* f, std::string& line) {
    line.clear();
    int c;
    bool any = false;
    while ((c = getc_unlocked(f)) != EOF) {
        any = true;
        if (c == '\n') break;
        if (line.size() < 255) line.push_back(static_cast<char>(c));
    }
    if (!any) return -1;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return static_cast<int>(line.size());
}

int Get_Next_LineExt(std::FILE* f, std::string& line, int& skipped) {
    skipped = 0;
    for (;;) {
        int n = read_header_line(f, line);
        if (n < 0) return n;
        if (n > 0) return n;
        ++skipped;
    }
}

int Get_Next_Line(std::FILE* f, std::string& line) {
    int skipped = 0;
    return Get_Next_LineExt(f, line, skipped);
}

int Get_Tulva_Data(Workspace& ws, const std::string& path, Spectrum& s, Ui& ui) {
    s.filename = fit_field(path, FILENAME_WIDTH);
    ws.sed_mode = 0;
    InitializeRephase(s);

    Opened o;
    if (open_tulva(ws, path, o, ui) < 0) return -1;
    FileCloser closer{o.f};

    int rc = -1;
    switch (family_of(o.signature)) {
        case Family::None:
            ui.MessagePopup(FILE_INPUT_ERROR, NOT_VALID);
            rc = -1;
            break;
        case Family::Swift: rc = Get_Tulva_Data_v30_impl(ws, o.f, s, ui, V3Variant{}); break;
        case Family::V20: rc = Get_Tulva_Data_v20_impl(o.f, s, ui, "Data:"); break;
        case Family::V30: rc = Get_Tulva_Data_v30_impl(ws, o.f, s, ui, V3Variant{}); break;
        case Family::V40: rc = Get_Tulva_Data_v40_impl(ws, o.f, s, ui, V4Variant{}); break;
        case Family::Freq10: rc = read_frequency_v10(ws, o.f, s, ui); break;
        case Family::Legacy:
            rc = legacy_reader(o.f, s, ui, o.signature, "Data:", true);
            if (rc == 0) {
                std::fclose(o.f);
                closer.f = nullptr;
                legacy_question(s, ui);
            }
            break;
    }
    return rc;
}

namespace {
int sed_entry(Workspace& ws, const std::string& path, Spectrum& s, Ui& ui, std::string_view legacy_marker,
              bool third) {
    s.filename = fit_field(path, FILENAME_WIDTH);
    ws.sed_mode = 0;
    Opened o;
    if (open_tulva(ws, path, o, ui) < 0) return -1;
    FileCloser closer{o.f};

    V4Variant v4;
    v4.marker = third ? "SED Data2:" : "SED:";
    v4.excite_duration = false;
    v4.freq_keys = false;
    v4.walking = false;
    v4.bandwidth_in_row = true;
    v4.sed2_test = false;
    v4.sets_storageinfo = false;
    v4.reads_channels = false;
    if (third) v4.collection_clears = true;

    V3Variant v3;
    v3.marker = "SED:";
    v3.sets_storageinfo = false;
    v3.constant_as_int = true;
    v3.reads_channels = false;

    int rc = -1;
    switch (family_of(o.signature)) {
        case Family::None:
            ui.MessagePopup(FILE_INPUT_ERROR, NOT_VALID);
            rc = -1;
            break;
        case Family::Swift:
        case Family::V30: rc = Get_Tulva_Data_v30_impl(ws, o.f, s, ui, v3); break;
        case Family::V20: rc = Get_Tulva_Data_v20_impl(o.f, s, ui, "SED:"); break;
        case Family::V40: rc = Get_Tulva_Data_v40_impl(ws, o.f, s, ui, v4); break;
        case Family::Freq10: rc = read_frequency_v10(ws, o.f, s, ui); break;
        case Family::Legacy: rc = legacy_reader(o.f, s, ui, o.signature, legacy_marker, false); break;
    }
    return rc;
}
}  // namespace

int Get_Tulva_Data_SED(Workspace& ws, const std::string& path, Spectrum& s, Ui& ui) {
    return sed_entry(ws, path, s, ui, "SED Data:", false);
}

int Get_Tulva_Data_SED2(Workspace& ws, const std::string& path, Spectrum& s, Ui& ui) {
    return sed_entry(ws, path, s, ui, "SED Data2:", true);
}

int read_tulva_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui) {
    return Get_Tulva_Data(ws, path, ws.panels[static_cast<std::size_t>(slot)].spectrum, ui);
}

}  // namespace vx
