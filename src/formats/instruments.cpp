#include "formats/instruments.hpp"

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <numbers>

#include <fmt/format.h>

#include "formats/tulva_reader.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"
#include "workspace/display.hpp"

namespace vx {

namespace fs = std::filesystem;

namespace {

constexpr const char* ODYSSEY_ERROR = "Open Odyssey File Error";
constexpr const char* NOT_ODYSSEY = "This is NOT an Odyssey Data File";
constexpr const char* FILE_INPUT_ERROR = "File Input Error";

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) std::fclose(f);
    }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// Reads exactly n bytes at off, or nothing when they are not all in the file.
bool read_at(std::FILE* f, std::uint64_t size, std::uint64_t off, void* dst, std::size_t n) {
    if (off > size || n > size - off) return false;
    if (::fseeko(f, static_cast<off_t>(off), SEEK_SET) != 0) return false;
    return std::fread(dst, 1, n, f) == n;
}

std::uint32_t be32(const unsigned char* p) {
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}

float be_float(const unsigned char* p) {
    const std::uint32_t u = be32(p);
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}

// A double stored as two big-endian 32-bit halves, most significant first:
// each half is read as an integer, the pair is laid into the double in file
// order and Flip_double puts the halves where this machine wants them.
double be_double(const unsigned char* p) {
    const std::uint32_t halves[2] = {be32(p), be32(p + 4)};
    double d;
    std::memcpy(&d, halves, 8);
    return Flip_double(d);
}

// An anonymous file in TEMP holding the first member of a .Z archive, or
// nullptr after "Error" / "Cannot unzip file!". Being unlinked at once it
// leaves nothing behind whichever way the read ends, and its first member may
// carry any name.
std::FILE* unpack_member(const Workspace& ws, const std::string& path, Ui& ui) {
    const std::string temp = ws.settings.TEMP.empty() ? fs::temp_directory_path().string() : ws.settings.TEMP;
    return unpack_archive_member(temp, path, ui);
}

bool ends_with_Z(const std::string& path) {
    return path.size() >= 2 && path[path.size() - 2] == '.' && (path.back() == 'Z' || path.back() == 'z');
}

// The script line: read from byte 52, where the header read leaves the file,
// as the run-time reads a line (up to LF, at most 255 characters kept), with
// NUL bytes turned into blanks.
std::string script_line(const unsigned char* p, std::size_t n) {
    std::string line;
    for (std::size_t i = 52; i < n && line.size() < 255; ++i) {
        if (p[i] == '\n') break;
        line.push_back(p[i] == 0 ? ' ' : static_cast<char>(p[i]));
    }
    return line;
}

// One row of the Odyssey parameter table with the value its type carries.
struct OdysseyParameter {
    int type = 0;
    std::uint32_t name_offset = 0;
    std::optional<std::int32_t> integer;
    std::optional<float> real;
    std::optional<double> dbl;
};

// The value of a row is read on from byte 8 of its 16-byte entry; types 4
// and 6 run past the entry into the next one (those bytes are read as they
// stand). A value whose bytes lie beyond the end of the file is left unset.
OdysseyParameter parse_parameter(std::FILE* f, std::uint64_t size, std::uint64_t entry) {
    OdysseyParameter prm;
    unsigned char e[24] = {};
    if (!read_at(f, size, entry, e, 8)) return prm;
    prm.type = e[1];
    prm.name_offset = be32(e + 4);
    const std::size_t need = prm.type == 4 ? 16 : prm.type == 6 ? 12 : prm.type == 7 ? 8 : prm.type == 71 ? 4 : 0;
    if (need == 0 || !read_at(f, size, entry + 8, e + 8, need)) return prm;
    switch (prm.type) {
        case 4:
            prm.integer = static_cast<std::int32_t>(be32(e + 8));
            prm.real = be_float(e + 12);
            prm.dbl = be_double(e + 16);
            break;
        case 6:
            prm.real = be_float(e + 8);
            prm.dbl = be_double(e + 12);
            break;
        case 7: prm.dbl = be_double(e + 8); break;
        case 71: prm.integer = static_cast<std::int32_t>(be32(e + 8)); break;
        default: break;
    }
    return prm;
}

std::string read_name(std::FILE* f, std::uint64_t size, std::uint64_t at) {
    char buf[64];
    if (at >= size) return {};
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(sizeof buf, size - at));
    if (!read_at(f, size, at, buf, n)) return {};
    return std::string(buf, strnlen(buf, n));
}

int odyssey_refuse(Ui& ui, const std::string& text) {
    ui.MessagePopup(ODYSSEY_ERROR, text);
    return -1;
}

int read_odyssey(std::FILE* f, std::uint64_t size, Spectrum& s, Ui& ui) {
    unsigned char head[320] = {};
    const std::size_t got = static_cast<std::size_t>(std::min<std::uint64_t>(sizeof head, size));
    if (got < 52 || !read_at(f, size, 0, head, got) || !looks_like_odyssey(std::string(reinterpret_cast<char*>(head), got)))
        return odyssey_refuse(ui, NOT_ODYSSEY);
    // Header (all big-endian, unsigned): 2 version bytes, three 16-bit fields,
    // then a (first section), b (script section), c (data bytes), d (name
    // section), e (further table), reserved, p (parameters), four reserved.
    const std::uint64_t a = be32(head + 8), b = be32(head + 12), c = be32(head + 16), d = be32(head + 20),
                        e = be32(head + 24), p = be32(head + 32);
    const std::uint64_t data_at = 64 + a + b;  // sums of 32-bit values cannot overflow 64 bits
    if (data_at > size || c > size - data_at)
        return odyssey_refuse(ui, fmt::format("The data block ({} bytes at byte {}) runs past the end of the file ({} bytes).",
                                              c, data_at, size));
    const std::uint64_t count = c / 4;
    if (count == 0) return odyssey_refuse(ui, "No Data Count Specified");
    if (count > static_cast<std::uint64_t>(MAX_DATACOUNT))
        return odyssey_refuse(ui, fmt::format("The data block holds {} samples, more than this program reads.", count));
    const std::uint64_t table_at = data_at + c;
    if (p * 16 > size - table_at)
        return odyssey_refuse(ui, fmt::format("The parameter table ({} entries) runs past the end of the file.", p));

    std::vector<float> data(static_cast<std::size_t>(count));
    if (!read_at(f, size, data_at, data.data(), data.size() * 4)) return odyssey_refuse(ui, NOT_ODYSSEY);
    Flip_float(data.data(), data.size());

    const std::uint64_t names_at = 64 + a + b + c + d;
    for (std::uint64_t i = 0; i < p; ++i) {
        const OdysseyParameter prm = parse_parameter(f, size, table_at + 16 * i);
        const std::string name = read_name(f, size, names_at + prm.name_offset);
        if (name == "Signal_Bandwidth") {
            if (prm.real) s.dbandwidth = *prm.real;
        } else if (name == "Reference_Frequency") {
            if (prm.dbl) s.reffreq = *prm.dbl;
        } else if (name == "Trap_Voltage") {
            if (prm.dbl) s.Trapvoltage = *prm.dbl;
        } else if (name == "Calib_Type") {
            // Only 3 and 1 are known; any other type keeps the record's caltype.
            if (prm.integer == 3) s.caltype = CALTYPE_THREE_TERM;
            else if (prm.integer == 1) s.caltype = CALTYPE_TWO_TERM;
        } else if (name == "Heterodyne_Flag") {
            if (prm.integer == 1) s.detectmode = DETECT_NEGATIVE_HETERODYNE;
            else if (prm.integer == 0) s.detectmode = DETECT_DIRECT;
        } else if (name == "Calib_Coefficient_Table" && prm.integer) {
            const std::uint64_t at = names_at + e + static_cast<std::uint32_t>(*prm.integer);
            unsigned char t[40];
            if (read_at(f, size, at, t, sizeof t)) {
                s.Aterm = be_double(t);
                s.Bterm = be_double(t + 8);
                s.Cterm = be_double(t + 16);
                s.calcoeff3 = be_double(t + 24);
                s.calcoeff4 = be_double(t + 32);
            } else {
                ui.Console("Odyssey calibration table lies beyond the end of the file; default terms kept\n");
            }
        }
    }
    // A bandwidth that is no number would poison every axis downstream.
    if (!std::isfinite(s.dbandwidth) || s.dbandwidth <= 0.0) s.dbandwidth = 1000000.0;
    s.datacount = static_cast<std::int32_t>(count);
    s.data = std::move(data);
    s.domain = DOMAIN_TIME;
    s.filetype = FILETYPE_ODYSSEY;
    return 0;
}

std::optional<std::uint64_t> checked_size(const std::string& path, Ui& ui) {
    const auto size = regular_file_size(path);
    if (!size) ui.MessagePopup("Error", "Can not find the file!");
    return size;
}

}  // namespace

void Flip_float(float* values, std::size_t count) {
    auto* u = reinterpret_cast<unsigned char*>(values);
    for (std::size_t i = 0; i < count; ++i, u += 4) {
        std::uint32_t w;
        std::memcpy(&w, u, 4);
        w = __builtin_bswap32(w);
        std::memcpy(u, &w, 4);
    }
}

double Flip_double(double& value) {
    std::uint32_t h[2];
    std::memcpy(h, &value, 8);
    std::swap(h[0], h[1]);
    std::memcpy(&value, h, 8);
    return value;
}

double Unflip_double(double& value) { return Flip_double(value); }

bool looks_like_odyssey(const std::string& head) {
    if (head.size() < 52) return false;
    return script_line(reinterpret_cast<const unsigned char*>(head.data()), head.size()).find(ODYSSEY_SCRIPT) !=
           std::string::npos;
}

int Get_Odyssey_Data(Workspace& ws, const std::string& path, Spectrum& s, Ui& ui) {
    Set_Default_Parameters(s);
    s.filename = path.substr(0, 255);
    const auto size0 = checked_size(path, ui);
    if (!size0) return -1;
    FilePtr f;
    if (!ws.settings.WINZIP.empty() && ends_with_Z(path)) {
        f.reset(unpack_member(ws, path, ui));
        if (!f) return -1;
    } else {
        f.reset(std::fopen(path.c_str(), "rb"));
        if (!f) {
            ui.MessagePopup("Error", "Can not find the file!");
            return -1;
        }
    }
    struct stat st {};
    if (::fstat(::fileno(f.get()), &st) != 0) return odyssey_refuse(ui, NOT_ODYSSEY);
    return read_odyssey(f.get(), static_cast<std::uint64_t>(st.st_size), s, ui);
}

// ---------------------------------------------------------------------------
// Melbar and Vosk

int Get_Melbar_Data(const std::string& path, Spectrum& s, const PointsChannel& dlg, Ui& ui) {
    Set_Default_Parameters(s);
    s.filename = path.substr(0, 255);
    const auto size = checked_size(path, ui);
    if (!size) return -1;
    FilePtr f(std::fopen(path.c_str(), "rb"));
    if (!f) {
        ui.MessagePopup("Error", "Can not find the file!");
        return -1;
    }
    const std::uint64_t records = *size / 20;
    const std::uint64_t n = dlg.points > 0 ? static_cast<std::uint64_t>(dlg.points) : records;
    if (n == 0 || n > records || n > static_cast<std::uint64_t>(MAX_DATACOUNT)) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("The file holds {} records of five values; {} points cannot be read.",
                                                      records, n));
        return -1;
    }
    std::vector<float> rec(static_cast<std::size_t>(n) * 5);
    if (std::fread(rec.data(), 4, rec.size(), f.get()) != rec.size()) {
        ui.MessagePopup(FILE_INPUT_ERROR, "The file ended before its records.");
        return -1;
    }
    s.data.assign(static_cast<std::size_t>(n), 0.0f);
    for (std::size_t i = 0; i < s.data.size(); ++i) {
        const float* r = &rec[i * 5];
        switch (dlg.channel) {
            case 0: s.data[i] = r[2]; break;
            case 1:
                // atan(d/c): at c = 0 the quotient's limit, +-pi/2 by the sign
                // of d, and 0 when both are 0 (no signal, not NaN).
                if (r[2] != 0.0f) s.data[i] = std::atan(r[3] / r[2]);
                else s.data[i] = r[3] > 0.0f ? static_cast<float>(std::numbers::pi / 2)
                                 : r[3] < 0.0f ? -static_cast<float>(std::numbers::pi / 2) : 0.0f;
                break;
            case 3: s.data[i] = r[4]; break;
            case 4: s.data[i] = r[3]; break;
            default: break;  // channel 2 and others are no channel of the layout: zeros
        }
    }
    if (dlg.channel == 2 || dlg.channel < 0 || dlg.channel > 4)
        ui.Console(fmt::format("Melbar channel {} is not read; the samples are zero\n", dlg.channel));
    s.datacount = static_cast<std::int32_t>(n);
    s.domain = DOMAIN_TIME;
    return 0;
}

int read_vosk_header(const std::string& path, VoskHeader& h, Ui& ui) {
    const auto size = checked_size(path, ui);
    if (!size) return -1;
    FilePtr f(std::fopen(path.c_str(), "rb"));
    float v[5];
    if (!f || std::fread(v, 4, 5, f.get()) != 5) {
        ui.MessagePopup(FILE_INPUT_ERROR, "The file is too short for the five header values of a Vosk file.");
        return -1;
    }
    if (!std::isfinite(v[0]) || v[0] < 0.5f || v[0] > static_cast<float>(MAX_DATACOUNT) || !std::isfinite(v[2]) ||
        v[2] < 0.0f || v[2] > 1024.0f) {
        ui.MessagePopup(FILE_INPUT_ERROR, "The header of this Vosk file gives no usable point or channel count.");
        return -1;
    }
    h.points = static_cast<int>(std::lround(v[0]));
    h.timestep = v[1];
    h.channels = static_cast<int>(std::floor(v[2]));
    if (h.channels == 0) h.channels = 5;
    return 0;
}

int Get_Vosk_Data(const std::string& path, Spectrum& s, const PointsChannel& dlg, bool /*quiet*/, Ui& ui) {
    Set_Default_Parameters(s);
    s.filename = path.substr(0, 255);
    VoskHeader h;
    if (read_vosk_header(path, h, ui) < 0) return -1;
    if (h.timestep > 0.0 && std::isfinite(1.0 / h.timestep)) s.dbandwidth = 1.0 / h.timestep * 0.5;
    const std::uint64_t n = dlg.points > 0 ? static_cast<std::uint64_t>(dlg.points) : static_cast<std::uint64_t>(h.points);
    const std::uint64_t size = *regular_file_size(path);
    const std::uint64_t rec = static_cast<std::uint64_t>(h.channels) * 4;
    if (n > static_cast<std::uint64_t>(MAX_DATACOUNT) || n * rec > size - 20) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("The file holds {} records of {} values; {} points cannot be read.",
                                                      (size - 20) / rec, h.channels, n));
        return -1;
    }
    FilePtr f(std::fopen(path.c_str(), "rb"));
    if (!f || std::fseek(f.get(), 20, SEEK_SET) != 0) {
        ui.MessagePopup("Error", "Can not find the file!");
        return -1;
    }
    s.data.assign(static_cast<std::size_t>(n), 0.0f);
    // Only index 5 is a channel of this layout (the second value of each
    // record); the dialogue's preset 4 leaves the samples as allocated. Kept:
    // our opening road passes 5.
    if (dlg.channel == VOSK_WORKING_CHANNEL && h.channels >= 2) {
        const std::size_t per = static_cast<std::size_t>(h.channels);
        const std::size_t chunk = std::max<std::size_t>(1, (1u << 20) / per);
        std::vector<float> buf(chunk * per);
        for (std::size_t done = 0; done < s.data.size();) {
            const std::size_t k = std::min(chunk, s.data.size() - done);
            if (std::fread(buf.data(), 4, k * per, f.get()) != k * per) {
                ui.MessagePopup(FILE_INPUT_ERROR, "The file ended before its records.");
                return -1;
            }
            for (std::size_t i = 0; i < k; ++i) s.data[done + i] = buf[i * per + 1];
            done += k;
        }
    }
    s.datacount = static_cast<std::int32_t>(n);
    s.domain = DOMAIN_TIME;
    s.ionpolarity = 0;
    return 0;
}

// ---------------------------------------------------------------------------
// Time-of-flight text

int Get_Standing_TOF(const std::string& path, Spectrum& s, std::optional<double> bin, Ui& ui) {
    Set_Default_Parameters(s);
    s.filename = path.substr(0, 255);
    const auto size = checked_size(path, ui);
    if (!size) return -1;
    std::string text(static_cast<std::size_t>(*size), '\0');
    {
        FilePtr f(std::fopen(path.c_str(), "rb"));
        if (!f || (!text.empty() && std::fread(text.data(), 1, text.size(), f.get()) != text.size())) {
            ui.MessagePopup("Error", "Can not find the file!");
            return -1;
        }
    }
    std::vector<double> xs;
    std::vector<float> ys;
    const char* p = text.data();
    const char* end = p + text.size();
    while (p < end) {
        const char* eol = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p)));
        if (!eol) eol = end;
        const char* q = p;
        while (q < eol && (*q == ' ' || *q == '\t')) ++q;
        double x = 0.0;
        auto rx = std::from_chars(q, eol, x);
        // Lines that do not start with a number (column titles) are no points.
        if (rx.ec == std::errc() && std::isfinite(x)) {
            // The y value is the integer behind the first blank.
            const char* blank = rx.ptr;
            while (blank < eol && *blank != ' ' && *blank != '\t') ++blank;
            while (blank < eol && (*blank == ' ' || *blank == '\t')) ++blank;
            if (blank < eol && *blank == '+') ++blank;
            long long y = 0;
            std::from_chars(blank, eol, y);
            xs.push_back(x);
            ys.push_back(static_cast<float>(y));
        }
        p = eol + 1;
    }
    if (xs.empty()) {
        ui.MessagePopup(FILE_INPUT_ERROR, "The file holds no lines of two numbers.");
        return -1;
    }
    if (!bin) {
        const auto answer = ui.PromptPopup("Bin data for greater signal to noise",
                                           "Please enter m/z size (between 0.1 and 100 m/z) for each bin", 20);
        if (answer && !answer->empty()) bin = std::atof(answer->c_str());
    }
    // Bin 0 would divide by zero: like any size outside (0, 100] it means no binning.
    const double size_bin = bin.value_or(0.0);
    if (size_bin > 0.0 && size_bin <= 100.0) {
        const double last = xs.back();
        const double bins = std::ceil(last / size_bin) + 1.0;
        // Sixteen million bins hold a spectrum to m/z 1.6 million at 0.1 m/z;
        // more come only from a wild last x, not from a real acquisition.
        if (!(bins >= 1.0) || bins > static_cast<double>(1 << 24)) {
            ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("The last x, {}, gives no bins of {} m/z.", last, size_bin));
            return -1;
        }
        const auto n = static_cast<std::size_t>(bins);
        s.data.assign(n, 0.0f);
        s.xvalues.resize(n);
        for (std::size_t i = 0; i < n; ++i) s.xvalues[i] = size_bin * (static_cast<double>(i) + 0.5);
        for (std::size_t i = 0; i < xs.size(); ++i) {
            const double k = std::floor(xs[i] / size_bin);
            // Points before zero or beyond the last line's bin have no bin.
            if (k >= 0.0 && k < bins) s.data[static_cast<std::size_t>(k)] += ys[i];
        }
    } else {
        s.data = std::move(ys);
        s.xvalues = std::move(xs);
    }
    if (s.data.size() > static_cast<std::size_t>(MAX_DATACOUNT)) {
        ui.MessagePopup(FILE_INPUT_ERROR, "The file holds more points than this program reads.");
        return -1;
    }
    s.datacount = static_cast<std::int32_t>(s.data.size());
    s.domain = DOMAIN_PROFILE;
    s.filetype = FILETYPE_PROFILE;
    s.timedomainfile = 0;
    return 0;
}

// ---------------------------------------------------------------------------
// Chromatograms of peak lists

std::string lcms_raw_name(const std::string& pks) {
    std::string name = pks;
    const auto at = name.find("_Z.pks");
    if (at != std::string::npos) name.replace(at, 6, ".Z");
    return name;
}

int Get_Tulva_Lcms_Data(const std::vector<std::string>& list, Spectrum& s, Ui& ui) {
    Set_Default_Parameters(s);
    if (list.empty()) {
        ui.MessagePopup("Warning", "No peak lists given.");
        return -1;
    }
    for (const std::string& f : list) {
        if (!regular_file_size(f)) {
            ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Cannot open the file {}.", f));
            return -1;
        }
    }
    s.lcmsfiles.clear();
    for (const std::string& f : list) s.lcmsfiles.push_back(lcms_raw_name(f));
    s.lcmscount = static_cast<std::int32_t>(list.size());
    s.domain = DOMAIN_CHROMATOGRAM;
    // The scans are summed by the chromatogram's own line logic (TIC).
    AnalysisPanel tmp;
    tmp.spectrum = std::move(s);
    const int rc = Calculate_TIC(tmp, ui);
    s = std::move(tmp.spectrum);
    if (rc < 0) return -1;
    s.datacount = s.lcmscount;
    s.timedomainfile = 0;
    return 0;
}

int Open_LCMS_Data_file(Workspace& ws, const std::string& path, Spectrum& s, Ui& ui) {
    const std::string raw = lcms_raw_name(path);
    const int filetype = s.filetype;
    free_arrays(s);
    const int rc = filetype == FILETYPE_ODYSSEY ? Get_Odyssey_Data(ws, raw, s, ui) : Get_Tulva_Data(ws, raw, s, ui);
    s.filename = raw.substr(0, 255);
    return rc;
}

// ---------------------------------------------------------------------------
// Opening road

int read_odyssey_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui) {
    return Get_Odyssey_Data(ws, path, ws.panels[static_cast<std::size_t>(slot)].spectrum, ui);
}

int read_melbar_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui) {
    const OpenOptions& o = ws.open_options;
    const PointsChannel d{o.points, o.channel >= 0 ? o.channel : MELBAR_PRESET_CHANNEL};
    return Get_Melbar_Data(path, ws.panels[static_cast<std::size_t>(slot)].spectrum, d, ui);
}

int read_vosk_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui) {
    const OpenOptions& o = ws.open_options;
    // The dialogue's preset (4) reads nothing; the one channel the layout has is 5.
    const PointsChannel d{o.points, o.channel >= 0 ? o.channel : VOSK_WORKING_CHANNEL};
    return Get_Vosk_Data(path, ws.panels[static_cast<std::size_t>(slot)].spectrum, d, true, ui);
}

int read_tof_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui) {
    return Get_Standing_TOF(path, ws.panels[static_cast<std::size_t>(slot)].spectrum, ws.open_options.bin, ui);
}

}  // namespace vx
