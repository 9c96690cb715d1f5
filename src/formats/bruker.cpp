#include "formats/bruker.hpp"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>

#include <fmt/format.h>
#include <fmt/printf.h>
#include <pugixml.hpp>

#include "formats/tulva_reader.hpp"
#include "platform/keyscan.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {

static_assert(std::endian::native == std::endian::little, "fid samples are swapped relative to a little-endian host");

namespace fs = std::filesystem;

namespace {

constexpr const char* OPEN_ERROR = "Error Opening Bruker Data File";
constexpr const char* FILE_INPUT_ERROR = "File Input Error";
constexpr const char* METHOD_FILE = "apexAcquisition.method";
// A method file is a few tens of kilobytes; anything far larger is not one.
constexpr std::uint64_t MAX_PARAMETER_FILE = 64ull << 20;

struct FileCloser {
    std::FILE* f;
    ~FileCloser() {
        if (f) std::fclose(f);
    }
};

bool has(std::string_view line, std::string_view key) { return FindPattern(line, key, false) >= 0; }

std::string_view behind(std::string_view line, std::string_view key) {
    auto v = value_behind(line, key, false);
    return v ? *v : std::string_view();
}

bool is_dir(const fs::path& p) {
    std::error_code ec;
    return fs::is_directory(p, ec);
}
bool is_file(const fs::path& p) { return regular_file_size(p.string()).has_value(); }

// The method file of a .d directory: <name>.m/apexAcquisition.method, the first
// by name when there are several method folders.
std::optional<fs::path> method_file_in(const fs::path& dir) {
    std::vector<fs::path> found;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
        const fs::path& p = it->path();
        if (p.extension() == ".m" && is_dir(p) && is_file(p / METHOD_FILE)) found.push_back(p / METHOD_FILE);
    }
    if (found.empty()) return std::nullopt;
    std::sort(found.begin(), found.end());
    return found.front();
}

// The first non-empty line of acqus names the dialect.
std::optional<std::string> first_line_of(const fs::path& file) {
    FileCloser fc{std::fopen(file.string().c_str(), "rb")};
    if (!fc.f) return std::nullopt;
    std::string line;
    if (Get_Next_Line(fc.f, line) < 0) return std::string();
    return line;
}

bool is_xmass_title(std::string_view line) {
    return FindPattern(line, "##TITLE= XMASS Parameter file", false) >= 0 ||
           FindPattern(line, "##TITLE= UXNMR Parameter file", false) >= 0;
}

std::int32_t to_i32(std::int64_t v) {
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<std::int32_t>(v);
}

// Sample arrays keep two floats of spare room, as every reader's do: the real
// transform of the chain runs in place on N + 2 floats.
void alloc_samples(std::vector<float>& v, std::size_t n) {
    v = {};
    v.reserve(n + 2);
    v.resize(n);
}

std::string short_file_text(const std::string& path, std::uint64_t size, std::int64_t td) {
    return fmt::format("Data file {} holds {} bytes; TD {} needs {} bytes ({} x 4).", path, size, td,
                       static_cast<std::uint64_t>(td) * 4, td);
}

// ---------------------------------------------------------------------------
// Parameter sources of apex/solariX directories: name -> value text.

using ParamMap = std::map<std::string, std::string>;

// The fid of an XMASS directory into a record holding its datacount.
int read_fid(const std::string& directory, bool swap, Spectrum& s, Ui& ui);

bool load_method_xml(const fs::path& file, ParamMap& out, BrukerParameters& bp, Ui& ui) {
    const auto size = regular_file_size(file.string());
    if (!size || *size == 0 || *size > MAX_PARAMETER_FILE) {
        ui.MessagePopup(OPEN_ERROR, fmt::format("Method file {} is empty or not a method file ({} bytes).",
                                                file.string(), size ? *size : 0));
        return false;
    }
    pugi::xml_document doc;
    const pugi::xml_parse_result r = doc.load_file(file.string().c_str());
    if (!r) {
        ui.MessagePopup(OPEN_ERROR, fmt::format("Method file {} is not valid XML: {} at byte {}.", file.string(),
                                                r.description(), r.offset));
        return false;
    }
    const pugi::xml_node method = doc.child("method");
    for (pugi::xml_node p : method.child("paramlist").children("param")) {
        const char* name = p.child_value("name");
        if (*name) out[name] = p.child_value("value");
    }
    if (out.empty()) {
        ui.MessagePopup(OPEN_ERROR, fmt::format("Method file {} holds no <paramlist> of <param> entries.", file.string()));
        return false;
    }
    const pugi::xml_node key = method.child("methodmetadata").child("primarykey");
    bp.method = key.child_value("methodname");
    bp.date = key.child_value("date");
    bp.user = key.child_value("username");
    bp.sample = key.child_value("samplename");
    if (bp.method.empty()) bp.method = file.parent_path().stem().string();
    return true;
}

// JCAMP-DX parameters "##$KEY= value": single values only (arrays and their
// rows are passed over); strings lose their angle brackets.
bool load_acqus(const fs::path& file, ParamMap& out, BrukerParameters& bp, Ui& ui) {
    const auto size = regular_file_size(file.string());
    if (!size || *size > MAX_PARAMETER_FILE) {
        ui.MessagePopup(OPEN_ERROR, fmt::format("Parameter file {} cannot be read.", file.string()));
        return false;
    }
    FileCloser fc{std::fopen(file.string().c_str(), "rb")};
    if (!fc.f) {
        ui.MessagePopup(OPEN_ERROR, "Parameter File (acqus) not found.");
        return false;
    }
    std::string line;
    while (read_header_line(fc.f, line) >= 0) {
        if (line.rfind("##$", 0) != 0) continue;
        const auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        std::string value = scan_text(std::string_view(line).substr(eq + 1));
        const auto a = value.find_first_not_of(' ');
        value = a == std::string::npos ? std::string() : value.substr(a);
        while (!value.empty() && value.back() == ' ') value.pop_back();
        if (!value.empty() && value.front() == '(') continue;  // an array; its rows follow
        if (value.size() >= 2 && value.front() == '<' && value.back() == '>') value = value.substr(1, value.size() - 2);
        out[line.substr(3, eq - 3)] = value;
    }
    if (auto t = out.find("DATE"); t != out.end()) {
        const std::time_t when = static_cast<std::time_t>(scan_int(t->second));
        char text[64] = "";
        std::tm tm{};
        if (when > 0 && gmtime_r(&when, &tm)) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &tm);
        bp.date = text;
    }
    return true;
}

std::optional<double> real_of(const ParamMap& m, const char* key) {
    const auto it = m.find(key);
    if (it == m.end()) return std::nullopt;
    return try_scan_real(it->second);
}
std::optional<std::int64_t> int_of(const ParamMap& m, const char* key) {
    const auto it = m.find(key);
    if (it == m.end()) return std::nullopt;
    // TD may be written as a real ("524288.0"); a fraction is not a count.
    const auto r = try_scan_real(it->second);
    if (!r || !std::isfinite(*r) || *r != std::floor(*r) || std::fabs(*r) > 9.0e15) return std::nullopt;
    return static_cast<std::int64_t>(*r);
}

}  // namespace

// ---------------------------------------------------------------------------

bool read_int32_samples(const std::string& path, std::uint64_t offset, std::size_t count, bool swap,
                        std::vector<float>& out) {
    FileCloser fc{std::fopen(path.c_str(), "rb")};
    if (!fc.f) return false;
    std::setvbuf(fc.f, nullptr, _IONBF, 0);  // large reads go straight to the kernel
    if (offset > 0 && fseeko(fc.f, static_cast<off_t>(offset), SEEK_SET) != 0) return false;
    alloc_samples(out, count);
    // Converted in pieces that stay in cache: no second full-size buffer, and
    // the int-to-float pass runs on data just read.
    constexpr std::size_t CHUNK = 1 << 16;
    std::vector<std::int32_t> buf(std::min(count, CHUNK));
    std::size_t done = 0;
    while (done < count) {
        const std::size_t want = std::min(CHUNK, count - done);
        if (std::fread(buf.data(), sizeof(std::int32_t), want, fc.f) != want) return false;
        float* dst = out.data() + done;
        const std::int32_t* src = buf.data();
        if (swap) {
            for (std::size_t i = 0; i < want; ++i)
                dst[i] = static_cast<float>(static_cast<std::int32_t>(__builtin_bswap32(static_cast<std::uint32_t>(src[i]))));
        } else {
            for (std::size_t i = 0; i < want; ++i) dst[i] = static_cast<float>(src[i]);
        }
        done += want;
    }
    return true;
}

std::string bruker_directory_of(const std::string& path) {
    fs::path p(path);
    while (!p.empty() && p.filename().empty() && p.has_parent_path() && p != p.root_path()) p = p.parent_path();
    if (!is_dir(p)) {
        p = p.parent_path();
        if (p.empty()) p = ".";
    }
    // A file of a method folder opens the acquisition that holds it.
    if (p.extension() == ".m" && !is_file(p / "acqus") && !is_file(p / "fid") && !is_file(p / "ser"))
        p = p.parent_path();
    // The base directory of an XMASS export stands for its acquisition "1".
    if (!is_file(p / "acqus") && !method_file_in(p) && is_file(p / "1" / "acqus")) p /= "1";
    return p.string();
}

BrukerLayout bruker_layout(const std::string& directory) {
    const fs::path d(directory);
    if (!is_dir(d)) return BrukerLayout::None;
    const bool acqus = is_file(d / "acqus");
    if (acqus) {
        const auto title = first_line_of(d / "acqus");
        if (title && is_xmass_title(*title)) return BrukerLayout::Xmass;
    }
    if (method_file_in(d)) return BrukerLayout::Method;
    return acqus ? BrukerLayout::Acqus : BrukerLayout::None;
}

bool is_bruker_path(const std::string& path) {
    // A missing name inside an acquisition is a typo, not the acquisition.
    std::error_code ec;
    if (!fs::exists(path, ec)) return false;
    return bruker_layout(bruker_directory_of(path)) != BrukerLayout::None;
}

int Get_Bruker_Data(const std::string& directory, Spectrum& s, Ui& ui) {
    const std::string acqus = (fs::path(directory) / "acqus").string();
    FileCloser fc{regular_file_size(acqus) ? std::fopen(acqus.c_str(), "rb") : nullptr};
    if (!fc.f) {
        ui.MessagePopup(OPEN_ERROR, "Parameter File (acqus) not found.");
        return -1;
    }
    std::string line;
    if (Get_Next_Line(fc.f, line) < 0 || !is_xmass_title(line)) {
        ui.MessagePopup(OPEN_ERROR, "Not Valid BRUKER Data File Format.");
        return -1;
    }
    Set_Default_Parameters(s);
    s.filetype = FILETYPE_BRUKER;
    std::int64_t byteorder = 0;
    std::int64_t td = s.datacount;
    bool end = false;
    while (!end) {
        if (read_header_line(fc.f, line) < 0) {
            ui.MessagePopup(FILE_INPUT_ERROR, "No Data Marker Found");
            return -1;
        }
        const std::string_view L = line;
        // Every key is tried on every line.
        if (has(L, "##$TD=")) td = scan_int(behind(L, "##$TD="));
        if (has(L, "##$BYTORDA=")) byteorder = scan_int(behind(L, "##$BYTORDA="));
        if (has(L, "##$SW_h=")) s.dbandwidth = scan_real(behind(L, "##$SW_h="));
        if (int at = FindPattern(L, "##$Calmet=", false); at >= 0) {
            // The value is read from 9 characters behind the start of the key, on
            // its "=", so the scan yields 0 whatever the file says. Deliberate and
            // compatible: these files are always read on the two-term law.
            const int calmet = to_i32(scan_int(L.substr(static_cast<std::size_t>(at) + 9)));
            if (calmet != 0) {
                ui.MessagePopup("Data Error", "Can not convert calibration!\n Please use 2 point linear calibration.");
            }
            s.caltype = CALTYPE_TWO_TERM;
        }
        if (has(L, "##$ML1=")) s.Aterm = scan_real(behind(L, "##$ML1="));
        // ML2 is taken as written: the writer's -B / A is not inverted back, so a
        // read-back has Bterm = -B / A (the law of filetype 2 expects it so).
        if (has(L, "##$ML2=")) s.Bterm = scan_real(behind(L, "##$ML2="));
        if (has(L, "##END=")) end = true;
    }
    std::fclose(fc.f);
    fc.f = nullptr;

    if (td == 0) {
        ui.MessagePopup(FILE_INPUT_ERROR, "No Data Count Specified");
        return -1;
    }
    if (td < 0 || td > MAX_BRUKER_TD) {
        ui.MessagePopup(FILE_INPUT_ERROR,
                        fmt::format("TD {} in {} is not a valid number of samples (1 to {}).", td, acqus, MAX_BRUKER_TD));
        return -1;
    }
    s.datacount = static_cast<std::int32_t>(td);
    // BYTORDA 0: as stored; any other value: reversed.
    return read_fid(directory, byteorder != 0, s, ui);
}

int Get_Bruker2_Data(const std::string& directory, int /*unused*/, Spectrum& s, Ui& ui) {
    return read_fid(directory, false, s, ui);
}

namespace {

int read_fid(const std::string& directory, bool swap, Spectrum& s, Ui& ui) {
    const std::string fid = (fs::path(directory) / "fid").string();
    const auto size = regular_file_size(fid);
    if (!size) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Data file {} not found.", fid));
        return -1;
    }
    if (s.datacount <= 0 || s.datacount > MAX_BRUKER_TD) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("TD {} is not a valid number of samples.", s.datacount));
        return -1;
    }
    const std::int64_t td = s.datacount;
    if (*size < static_cast<std::uint64_t>(td) * 4) {
        ui.MessagePopup(FILE_INPUT_ERROR, short_file_text(fid, *size, td));
        return -1;
    }
    if (!read_int32_samples(fid, 0, static_cast<std::size_t>(td), swap, s.data)) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Data file {} could not be read: {}.", fid, std::strerror(errno)));
        return -1;
    }
    return 0;
}

}  // namespace

int read_bruker_parameters(const std::string& directory, BrukerParameters& bp, Ui& ui) {
    bp = BrukerParameters{};
    bp.directory = directory;
    const fs::path d(directory);
    ParamMap m;
    if (auto method = method_file_in(d)) {
        bp.parameter_file = method->string();
        if (!load_method_xml(*method, m, bp, ui)) return -1;
    } else if (is_file(d / "acqus")) {
        bp.parameter_file = (d / "acqus").string();
        if (!load_acqus(d / "acqus", m, bp, ui)) return -1;
    } else {
        ui.MessagePopup(OPEN_ERROR, fmt::format("Parameter File (acqus) not found, nor a method folder "
                                                "(*.m/{}), in {}.",
                                                METHOD_FILE, directory));
        return -1;
    }

    const auto td = int_of(m, "TD");
    const auto sw = real_of(m, "SW_h");
    if (!td || !sw) {
        ui.MessagePopup(OPEN_ERROR, fmt::format("{} gives no {}.", bp.parameter_file,
                                                !td && !sw ? "TD and no SW_h" : (!td ? "TD" : "SW_h")));
        return -1;
    }
    bp.has_TD = bp.has_SW_h = true;
    bp.TD = *td;
    bp.SW_h = *sw;
    if (bp.TD <= 0 || bp.TD > MAX_BRUKER_TD) {
        ui.MessagePopup(OPEN_ERROR, fmt::format("TD {} in {} is not a valid number of samples (1 to {}).", bp.TD,
                                                bp.parameter_file, MAX_BRUKER_TD));
        return -1;
    }
    if (!(bp.SW_h > 0.0) || !std::isfinite(bp.SW_h)) {
        ui.MessagePopup(OPEN_ERROR, fmt::format("SW_h {} in {} is not a bandwidth.", m["SW_h"], bp.parameter_file));
        return -1;
    }
    bp.BYTORDA = int_of(m, "BYTORDA").value_or(0);
    bp.ML1 = real_of(m, "ML1").value_or(0.0);
    bp.ML2 = real_of(m, "ML2").value_or(0.0);
    bp.ML3 = real_of(m, "ML3").value_or(0.0);
    bp.EXC_low = real_of(m, "EXC_low").value_or(-1.0);
    bp.EXC_hi = real_of(m, "EXC_hi").value_or(-1.0);
    bp.NS = int_of(m, "NS").value_or(0);
    if (bp.method.empty() && m.count("PULPROG")) bp.method = m["PULPROG"];
    bp.values = m;
    if (!std::isfinite(bp.ML1) || !std::isfinite(bp.ML2) || !std::isfinite(bp.ML3) || bp.ML1 == 0.0) {
        ui.MessagePopup(OPEN_ERROR, fmt::format("{} gives no usable calibration (ML1 {}, ML2 {}, ML3 {}).",
                                                bp.parameter_file, bp.ML1, bp.ML2, bp.ML3));
        return -1;
    }

    // The transient: fid, else the first of the ser file.
    const std::uint64_t transient = static_cast<std::uint64_t>(bp.TD) * 4;
    const fs::path fid = d / "fid", ser = d / "ser";
    if (auto size = regular_file_size(fid.string())) {
        bp.data_file = fid.string();
        if (*size < transient) {
            ui.MessagePopup(FILE_INPUT_ERROR, short_file_text(bp.data_file, *size, bp.TD));
            return -1;
        }
    } else if (auto ssize = regular_file_size(ser.string())) {
        bp.data_file = ser.string();
        if (*ssize == 0 || *ssize % transient != 0) {
            ui.MessagePopup(FILE_INPUT_ERROR,
                            fmt::format("Data file {} holds {} bytes, not a whole number of transients of "
                                        "TD {} x 4 = {} bytes.",
                                        bp.data_file, *ssize, bp.TD, transient));
            return -1;
        }
        bp.transients = static_cast<std::int64_t>(*ssize / transient);
    } else {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Data file (fid or ser) not found in {}.", directory));
        return -1;
    }
    return 0;
}

int Get_Bruker_Apex_Data(const std::string& directory, Spectrum& s, Ui& ui, BrukerParameters* out) {
    BrukerParameters bp;
    if (read_bruker_parameters(directory, bp, ui) < 0) return -1;
    Set_Default_Parameters(s);
    s.filetype = FILETYPE_BRUKER;
    s.domain = DOMAIN_TIME;
    s.detectmode = DETECT_DIRECT;
    s.datacount = static_cast<std::int32_t>(bp.TD);
    // Real samples at 2 SW_h: the bandwidth is the highest frequency, and the
    // transform's N/2 points then span 0..SW_h as the chain computes hzppt.
    s.dbandwidth = bp.SW_h;
    s.caltype = CALTYPE_INSTRUMENT;
    s.Aterm = bp.ML1;
    s.Bterm = bp.ML2;
    s.Cterm = bp.ML3;
    s.expcount = to_i32(bp.NS);
    // Excitation limits in Hz (the low m/z is the high frequency). The sweep's
    // original range is left unset: the peak finder reads it with the two-term law.
    if (bp.EXC_low > 0.0 && bp.EXC_hi > 0.0) {
        const double f1 = instrument_freq(bp.ML1, bp.ML2, bp.ML3, bp.EXC_low);
        const double f2 = instrument_freq(bp.ML1, bp.ML2, bp.ML3, bp.EXC_hi);
        if (std::isfinite(f1) && std::isfinite(f2)) {
            s.lowfreq = std::min(f1, f2);
            s.highfreq = std::max(f1, f2);
        }
    }
    if (!bp.date.empty()) s.collectedon = fit_field(bp.date, COLLECTEDON_WIDTH);
    if (!bp.method.empty()) s.projectcode = fit_field(bp.method, PROJECTCODE_WIDTH);
    if (!bp.user.empty()) s.collectedby = fit_field(bp.user, COLLECTEDBY_WIDTH);
    if (!read_int32_samples(bp.data_file, 0, static_cast<std::size_t>(bp.TD), bp.BYTORDA != 0, s.data)) {
        ui.MessagePopup(FILE_INPUT_ERROR,
                        fmt::format("Data file {} could not be read: {}.", bp.data_file, std::strerror(errno)));
        return -1;
    }
    // Digitiser counts to the volt scale of our own transients, at the 2^19
    // counts per volt that the XMASS exchange files use (Store_Data_XMASS
    // multiplies by the same factor). The peak finder's default thresholds are
    // in those units, so an acquisition opened with no option touched lists its
    // ions rather than tens of thousands of noise peaks. A power of two: exact.
    for (float& v : s.data) v *= 1.0f / 524288.0f;
    if (out) *out = std::move(bp);
    return 0;
}

int read_bruker_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui) {
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    const std::string dir = bruker_directory_of(path);
    switch (bruker_layout(dir)) {
        case BrukerLayout::Xmass: return Get_Bruker_Data(dir, s, ui);
        case BrukerLayout::Method:
        case BrukerLayout::Acqus: return Get_Bruker_Apex_Data(dir, s, ui);
        case BrukerLayout::None: break;
    }
    if (!is_dir(dir)) {
        ui.MessagePopup(OPEN_ERROR, fmt::format("{} is not a Bruker acquisition directory.", path));
        return -1;
    }
    // Neither parameter file: the reader says which is missing.
    BrukerParameters bp;
    return read_bruker_parameters(dir, bp, ui);
}

}  // namespace vx
