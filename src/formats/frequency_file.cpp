#include "formats/frequency_file.hpp"

#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <vector>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "formats/header_copy.hpp"
#include "formats/tulva_reader.hpp"
#include "formats/tulva_writer.hpp"
#include "platform/keyscan.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace fs = std::filesystem;

namespace {

constexpr const char* FILE_INPUT_ERROR = "File Input Error";
constexpr const char* SAVE_ERROR = "Error saving file.";
// Keys are searched in the first 600 bytes of a line; the walking keys in all of it.
constexpr std::size_t KEY_WINDOW = 600;
// Longest line kept; the rest of a longer line is passed over (a header line
// is never this long, a run of binary bytes without LF may be).
constexpr std::size_t LINE_LIMIT = 1 << 16;

// One line up to LF without its end (CR LF or LF); -1 at the end of the file.
int read_line(std::FILE* f, std::string& line) {
    line.clear();
    int c;
    bool any = false;
    while ((c = std::fgetc(f)) != EOF) {
        any = true;
        if (c == '\n') break;
        if (line.size() < LINE_LIMIT) line.push_back(static_cast<char>(c));
    }
    if (!any) return -1;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return static_cast<int>(line.size());
}

std::uint64_t bytes_left(std::FILE* f) {
    struct stat st {};
    const long here = std::ftell(f);
    if (here < 0 || ::fstat(::fileno(f), &st) != 0 || st.st_size <= here) return 0;
    return static_cast<std::uint64_t>(st.st_size - here);
}

std::int32_t to_i32(std::int64_t v) {
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<std::int32_t>(v);
}

// A binary block of n values behind its key line. The file must hold it
// before anything is allocated; a negative count is damage too.
template <typename T>
bool read_binary(std::FILE* f, std::int64_t n, std::vector<T>& out, std::string_view what, const Spectrum& s,
                 Ui& ui) {
    out.clear();
    if (n == 0) return true;
    if (n < 0) {
        ui.MessagePopup(FILE_INPUT_ERROR,
                        fmt::format("The file {} announces {} values for its {}.", s.filename, n, what));
        return false;
    }
    const std::uint64_t left = bytes_left(f);
    const std::uint64_t need = static_cast<std::uint64_t>(n) > left ? left + 1 : static_cast<std::uint64_t>(n) * sizeof(T);
    if (need > left) {
        ui.MessagePopup(FILE_INPUT_ERROR,
                        fmt::format("The file {} ends inside its {}: {} values need {} bytes, {} are left.",
                                    s.filename, what, n, need, left));
        return false;
    }
    out.assign(static_cast<std::size_t>(n), T{});
    return std::fread(out.data(), sizeof(T), out.size(), f) == out.size();
}

// The text-mode file of the writers ends every line in CR LF.
void text_line(std::FILE* out, std::string_view text) {
    if (!text.empty()) std::fwrite(text.data(), 1, text.size(), out);
    std::fputs("\r\n", out);
}

void raw(std::FILE* out, std::string_view text) {
    if (!text.empty()) std::fwrite(text.data(), 1, text.size(), out);
}

// Removes the first occurrence of name and everything behind it.
std::string strip(const std::string& path, std::string_view name) {
    const auto at = path.find(name);
    return at == std::string::npos ? path : path.substr(0, at);
}

}  // namespace

// ---------------------------------------------------------------------------
// Reader

int Get_Tulva_Frequency_Data_v10(Workspace& ws, std::FILE* f, Spectrum& s, Ui& ui) {
    Set_Default_Parameters(s);
    s.domain = DOMAIN_FREQUENCY;
    s.caltype = CALTYPE_TWO_TERM;
    ws.sed_mode = 0;
    s.ionpolarity = 0;

    std::string line;
    bool marker = false;
    while (read_line(f, line) >= 0) {
        const std::string_view whole = line;
        const std::string_view L = whole.substr(0, std::min(whole.size(), KEY_WINDOW));
        auto any = [&](std::string_view key) { return FindPattern(L, key, false) >= 0; };
        auto exact = [&](std::string_view key) { return FindPattern(L, key, true) >= 0; };
        // Free: the value starts right behind the key wherever it stands.
        auto free_of = [&](std::string_view key, bool cs = false) {
            auto v = value_behind(L, key, cs);
            return v ? *v : std::string_view();
        };
        // Fixed: the value starts at the column of the key's length.
        auto fixed_at = [&](std::size_t column) { return column < L.size() ? L.substr(column) : std::string_view(); };

        if (any("Data Collected on ")) {
            s.collectedon = fit_field(scan_text(free_of("Data Collected on ")), COLLECTEDON_WIDTH);
        } else if (any("Project Code = ")) {
            s.projectcode = fit_field(scan_text(free_of("Project Code = ")), PROJECTCODE_WIDTH);
        } else if (any("Data Collected by ")) {
            s.collectedby = fit_field(scan_text(free_of("Data Collected by ")), COLLECTEDBY_WIDTH);
        } else if (any("Datatype: ")) {
            if (any("FREQUENCY_DOMAIN")) s.domain = DOMAIN_FREQUENCY;
        } else if (any("Date: ")) {
            s.dateserial = to_i32(scan_int(free_of("Date: ")));
        } else if (any("lowfreq:")) {
            s.lowfreq = s.origlowfreq = scan_real(free_of("lowfreq:"));
        } else if (any("startfreq:")) {
            s.lowfreq = s.origlowfreq = scan_real(free_of("startfreq:"));
        } else if (any("hifreq:") && !any("ecal hifreq:")) {
            // "ecal hifreq:" is another key: the line goes on to the tests below.
            s.highfreq = s.orighighfreq = scan_real(free_of("hifreq:"));
        } else if (any("highfreq:")) {
            s.highfreq = s.orighighfreq = scan_real(free_of("highfreq:"));
        } else if (any("endfreq:")) {
            s.highfreq = s.orighighfreq = scan_real(free_of("endfreq:"));
        } else if (any("Datacount:")) {
            const std::int64_t v = scan_int(fixed_at(10));
            // The two padded transient sizes, as for the data files.
            if (v == 32000000) {
                s.datacount = 33554432;
                s.storedcount = 32000000;
            } else if (v == 16000000) {
                s.datacount = 16777216;
                s.storedcount = 16000000;
            } else {
                s.datacount = to_i32(v);
            }
        } else if (any("Truncations: ")) {
            const auto v = scan_int(free_of("Truncations: "));
            if (v > 0) s.Truncations_stored = to_i32(v);
        } else if (any("Zerofills: ")) {
            const auto v = scan_int(free_of("Zerofills: "));
            if (v > 0) s.Zerofills_stored = to_i32(v);
        } else if (any("Zoomcount: ")) {
            const auto v = scan_int(free_of("Zoomcount: "));
            if (v > 0) s.Zoomcount = to_i32(v);
        } else if (any("Start Index: ")) {
            const auto v = scan_int(free_of("Start Index: "));
            if (v > 0) {
                s.StartIndex = to_i32(v);
                s.zoomed = 1;
            }
        } else if (any("dbandwidth:")) {
            const double v = scan_real(free_of("dbandwidth:"));
            if (v > 1.0) s.dbandwidth = v;
        } else if (any("Bandwidth:")) {
            const double v = scan_real(free_of("Bandwidth:"));
            if (v > 1.0) s.dbandwidth = v;
        } else if (any("hzppt:")) {
            const double v = scan_real(free_of("hzppt:"));
            if (v > 0.0) s.hzppt = v;
        } else if (any("Aterm:")) {
            s.Aterm = scan_real(fixed_at(7));
        } else if (any("Bterm: ")) {
            s.Bterm = scan_real(fixed_at(7));
        } else if (any("Trapvoltage: ")) {
            s.Trapvoltage = scan_real(fixed_at(13));
        } else if (any("OptimizedSecondorder: ")) {
            s.OptimizedSecondorder = scan_real(fixed_at(22));
        } else if (any("OptimizedFirstorder: ")) {
            s.OptimizedFirstorder = scan_real(fixed_at(21));
        } else if (any("Zeroorder: ")) {
            s.Zeroorder = scan_real(fixed_at(11));
        } else if (any("ZeroDegrees: ")) {
            s.ZeroDegrees = to_i32(scan_int(fixed_at(13)));
        } else if (exact("Phased: ")) {
            s.sedflag = to_i32(scan_int(fixed_at(8)));
            if (s.sedflag != 0) s.sed = 1;
        } else if (exact("Rephased: ")) {
            s.Rephased = to_i32(scan_int(fixed_at(10)));
        } else if (exact("Rephase Sections: ")) {
            s.rephase_sections = to_i32(scan_int(fixed_at(18)));
        } else if (exact("Rephase Section Initial Indexes as Int32:")) {
            if (!read_binary(f, s.rephase_sections, s.rephase_initial, "rephase section starts", s, ui)) return -1;
        } else if (exact("Rephase Section Final Indexes as Int32:")) {
            if (!read_binary(f, s.rephase_sections, s.rephase_final, "rephase section ends", s, ui)) return -1;
        } else if (exact("Rephase D Terms as Real64:")) {
            if (!read_binary(f, s.rephase_sections, s.rephase_dterms, "rephase terms", s, ui)) return -1;
        } else if (exact("ScoreArray DataPoints as Int32:")) {
            s.scorepoints = to_i32(scan_int(fixed_at(31)));
        } else if (exact("Score for each A B Combo as Real64:")) {
            if (!read_binary(f, s.scorepoints, s.scorearray, "score array", s, ui)) return -1;
        } else if (exact("A Array as Real64:")) {
            if (!read_binary(f, s.scorepoints, s.scoreA, "A array", s, ui)) return -1;
        } else if (exact("B Array as Real64:")) {
            if (!read_binary(f, s.scorepoints, s.scoreB, "B array", s, ui)) return -1;
        } else if (FindPattern(whole, "Walking Calibration Number of Terms =", false) >= 0) {
            s.walkingterms = to_i32(scan_int(*value_behind(whole, "Walking Calibration Number of Terms =", false)));
        } else if (FindPattern(whole, "Walking Calibration Regions =", false) >= 0) {
            const std::int64_t r = scan_int(*value_behind(whole, "Walking Calibration Regions =", false));
            std::vector<double> block;
            // Four values a region; a count beyond any file fails the size test.
            const std::int64_t values = r > 0 ? (r < (std::int64_t{1} << 40) ? 4 * r : INT64_MAX) : r;
            if (!read_binary(f, values, block, "walking calibration table", s, ui)) return -1;
            s.walkingregions = s.walkingrows = to_i32(std::max<std::int64_t>(r, 0));
            // Rows start from the defaults of a new walking region; the file
            // gives A, start, B, end of each.
            s.walking.assign(static_cast<std::size_t>(s.walkingregions), WalkingRegion{});
            for (std::size_t i = 0; i < s.walking.size(); ++i) {
                s.walking[i].A = block[4 * i];
                s.walking[i].startfreq = block[4 * i + 1];
                s.walking[i].B = block[4 * i + 2];
                s.walking[i].endfreq = block[4 * i + 3];
            }
            s.storageinfo = 3;
        } else if (FindPattern(L, "Data:", false) == 0) {
            marker = true;
            break;
        }
    }
    if (!marker) {
        ui.MessagePopup(FILE_INPUT_ERROR, "No Data Marker Found");
        return -1;
    }
    // A count with no block of its own (sections without their arrays) is
    // never trusted beyond the arrays that were read.
    const auto sections = std::min({s.rephase_initial.size(), s.rephase_final.size(), s.rephase_dterms.size()});
    if (s.rephase_sections < 0 || static_cast<std::size_t>(s.rephase_sections) > sections)
        s.rephase_sections = static_cast<std::int32_t>(sections);
    const auto scores = std::min({s.scorearray.size(), s.scoreA.size(), s.scoreB.size()});
    if (s.scorepoints < 0 || static_cast<std::size_t>(s.scorepoints) > scores) s.scorepoints = static_cast<std::int32_t>(scores);

    if (s.datacount == 0) {
        ui.MessagePopup(FILE_INPUT_ERROR, "No Data Count Specified");
        return -1;
    }
    // The count of the file is the count before the last zero-fill and
    // truncation steps of the writers' rule: doubled Zerofills - 1 times,
    // halved Truncations times. A file zero-filled twice thus reads back at
    // twice its length; files have always been read this way.
    std::int64_t n = s.datacount;
    for (int i = 1; i < s.Zerofills_stored && n > 0 && n <= MAX_DATACOUNT; ++i) n *= 2;
    for (int i = 0; i < s.Truncations_stored && n > 0; ++i) n /= 2;
    if (n <= 0 || n > MAX_DATACOUNT) {
        ui.MessagePopup(FILE_INPUT_ERROR, fmt::format("Data Count {} is not a valid number of samples.", n));
        return -1;
    }
    s.datacount = static_cast<std::int32_t>(n);

    const std::size_t count = static_cast<std::size_t>(s.datacount);
    std::size_t first = 0, stored = count;
    if (s.Zoomcount != 0) {
        first = static_cast<std::size_t>(std::max(s.StartIndex, 0));
        stored = static_cast<std::size_t>(s.Zoomcount);
        if (s.StartIndex < 0 || first + stored > count) {
            ui.MessagePopup(FILE_INPUT_ERROR,
                            fmt::format("The stored range of {} points from point {} lies outside the {} points "
                                        "of the spectrum in {}.",
                                        stored, s.StartIndex, count, s.filename));
            return -1;
        }
    } else if (s.storedcount != 0) {
        stored = std::min(static_cast<std::size_t>(s.storedcount), count);
    }
    const std::uint64_t need = static_cast<std::uint64_t>(stored) * sizeof(float);
    const std::uint64_t left = bytes_left(f);
    if (need > left) {
        ui.MessagePopup(FILE_INPUT_ERROR,
                        fmt::format("The file {} ends before its data: {} points need {} bytes, the file holds {}.",
                                    s.filename, stored, need, left));
        return -1;
    }
    s.data = {};
    s.data.reserve(count + 2);
    s.data.assign(count, 0.0f);
    (void)std::fread(s.data.data() + first, sizeof(float), stored, f);
    s.domain = DOMAIN_MASS;
    // A file that names no excitation range (both ends still at their "not
    // given" -1, as every 1.0 file) has no range to be reduced to: cut to
    // the range 0..0 it would keep one point of the spectrum. Such a file
    // keeps its whole array; any file with a range is reduced as always.
    const bool has_range = s.lowfreq > 0.0 || s.highfreq > 0.0;
    if (s.zoomed != 1 && has_range) ConvertFullVFDtoReducedVFD(s);
    return 0;
}

void ConvertFullVFDtoReducedVFD(Spectrum& s) {
    const long long n = static_cast<long long>(s.data.size());
    if (!(s.hzppt > 0.0) || !std::isfinite(s.lowfreq / s.hzppt) || !std::isfinite(s.highfreq / s.hzppt)) return;
    long long low = round_to_int(s.lowfreq / s.hzppt);
    long long high = round_to_int(s.highfreq / s.hzppt);
    if (low > high) std::swap(low, high);
    s.zoomlow = static_cast<std::int32_t>(low);
    s.zoomhigh = static_cast<std::int32_t>(high);
    s.StartIndex = static_cast<std::int32_t>(low);
    s.Zoomcount = static_cast<std::int32_t>(high + 1 - low);
    // The point just below the range keeps its value.
    for (long long i = 0; i < std::min(low - 1, n); ++i) s.data[static_cast<std::size_t>(i)] = 0.0f;
    for (long long i = std::max(high + 1, 0LL); i < n; ++i) s.data[static_cast<std::size_t>(i)] = 0.0f;
    s.zoomed = 1;
}

void CalculateZoomDataParameters(Spectrum& s) {
    if (s.datacount <= 0) return;
    const double hz = s.dbandwidth / s.datacount;
    long long first, last;
    if (s.highfreq <= s.lowfreq) {
        first = static_cast<long long>(std::llround(std::floor(s.highfreq / hz)));
        last = static_cast<long long>(std::llround(std::ceil(s.lowfreq / hz)));
        s.sweeprate = -s.sweeprate;
    } else {
        first = static_cast<long long>(std::llround(std::floor(s.lowfreq / hz)));
        last = static_cast<long long>(std::llround(std::ceil(s.highfreq / hz)));
    }
    // A record without an excitation range (both ends at their "not given"
    // -1) or with one outside the array keeps the array's own bounds, so the
    // stored range always lies inside the data.
    if (last > s.datacount - 1) last = s.datacount - 1;
    if (first < 0) first = 0;
    if (last < first) {
        first = 0;
        last = s.datacount - 1;
    }
    s.Zoomcount = static_cast<std::int32_t>(std::llabs(1 - first + last));
    s.StartIndex = static_cast<std::int32_t>(first);
    s.hzppt = hz;
    s.zoomed = 1;
}

// ---------------------------------------------------------------------------
// Writers

namespace {

// DealWithWalkingCal with keepwalking 0: the source's own walking block ends
// the copy; the file position goes past its regions.
void skip_walking_block(std::FILE* source) {
    std::string line;
    while (read_line(source, line) >= 0) {
        if (auto v = value_behind(line, "Walking Calibration Regions =", false)) {
            const std::int64_t r = scan_int(*v);
            if (r > 0 && static_cast<std::uint64_t>(r) * 32 <= bytes_left(source))
                std::fseek(source, static_cast<long>(r * 32), SEEK_CUR);
            return;
        }
    }
}

}  // namespace

int CopyExperimentScript(std::FILE* source, std::FILE* target, int keepwalking) {
    std::string line;
    if (read_line(source, line) < 0) return 0;
    if (!line.empty()) text_line(target, line);
    while (read_line(source, line) >= 0) {
        if (FindPattern(line, "Data:", false) >= 0) break;
        if (FindPattern(line, "Walking Calibration Parameters", false) >= 0) {
            if (keepwalking) continue;  // the line is dropped, the copy goes on
            skip_walking_block(source);
            break;
        }
        text_line(target, line);
        // A rephased source: what follows is binary.
        if (FindPattern(line, "Rephased: 1", false) >= 0) break;
    }
    return 0;
}

int CopyExperimentScript_RP(std::FILE* source, std::FILE* target) {
    std::string line;
    if (read_line(source, line) < 0) return 0;
    if (!line.empty()) text_line(target, line);
    while (read_line(source, line) >= 0) {
        if (FindPattern(line, "Data:", false) >= 0) break;
        text_line(target, line);
    }
    return 0;
}

int StoreVFDFile(Spectrum& s, const std::string& outpath, const std::string& sourcepath, int withwalking,
                 int sed_mode, Ui& ui, const VfdStoreOptions& options) {
    if (s.domain != DOMAIN_FREQUENCY && s.domain != DOMAIN_MASS) {
        ui.MessagePopup(SAVE_ERROR, "Only a processed Frequency domain file can be processed.");
        return -2;
    }
    if (refuse_same_file(sourcepath, outpath, ui)) return -1;
    if (s.zoomed == 0) CalculateZoomDataParameters(s);
    std::size_t first = 0, count = s.data.size();
    if (s.zoomed) {
        first = static_cast<std::size_t>(std::max(s.StartIndex, 0));
        count = static_cast<std::size_t>(std::max(s.Zoomcount, 0));
    } else {
        count = static_cast<std::size_t>(std::max(s.datacount, 0));
    }
    if (s.StartIndex < 0 || first + count > s.data.size()) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("The stored range of {} points from point {} lies outside the {} "
                                                "points of the spectrum.",
                                                count, s.StartIndex, s.data.size()));
        return -1;
    }
    AtomicFile out(outpath);
    if (!out.ok()) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("Cannot write the file {}: {}", outpath, out.error()));
        return -1;
    }
    std::FILE* o = out.file();
    text_line(o, "Vantorix Frequency Datafile v1.1\r\n");
    text_line(o, "Begin Previous Header Information\r\n");
    if (std::FILE* src = open_source_file(sourcepath, ui)) {
        CopyExperimentScript(src, o, 0);
        std::fclose(src);
    } else {
        ui.Console(fmt::format("The header of {} could not be copied into {}.\n", sourcepath, outpath));
    }
    text_line(o, "End Previous Header Information\r\n");
    text_line(o, "Phased Data Parameters\r\n");
    text_line(o, "Datatype: FREQUENCY_DOMAIN");
    text_line(o, fmt::format("Datacount: {}", s.datacount));
    text_line(o, fmt::format("Truncations: {}", options.exact_count ? 0 : s.Truncations));
    text_line(o, fmt::format("Zerofills: {}", options.exact_count ? 0 : s.Zerofills));
    text_line(o, fmt::format("Zoomcount: {}", s.Zoomcount));
    text_line(o, fmt::format("Start Index: {}", s.StartIndex));
    text_line(o, fmt::sprintf("Bandwidth: %.15f", s.dbandwidth));
    text_line(o, fmt::sprintf("hzppt: %.16f", s.datacount != 0 ? s.dbandwidth / s.datacount : 0.0));
    text_line(o, fmt::sprintf("Aterm: %.6f", s.Aterm));
    text_line(o, fmt::sprintf("Bterm: %.6f", s.Bterm));
    text_line(o, fmt::sprintf("Trapvoltage: %f", s.Trapvoltage));
    text_line(o, fmt::sprintf("OptimizedSecondorder: %.6e", s.OptimizedSecondorder));
    text_line(o, fmt::sprintf("OptimizedFirstorder: %.6e", s.OptimizedFirstorder));
    text_line(o, fmt::sprintf("Zeroorder: %.6f", s.Zeroorder));
    text_line(o, fmt::format("ZeroDegrees: {}", s.ZeroDegrees));
    text_line(o, fmt::format("Phased: {}", s.Rephased ? 1 : sed_mode));
    if (s.Rephased) {
        text_line(o, "Rephased: 1");
        const std::size_t n = static_cast<std::size_t>(std::max(s.rephase_sections, 0));
        if (n != 0) {
            if (s.rephase_initial.size() < n || s.rephase_final.size() < n || s.rephase_dterms.size() < n) {
                ui.MessagePopup(SAVE_ERROR, fmt::format("The record has {} rephase sections but fewer section "
                                                        "values.",
                                                        n));
                return -1;
            }
            // From here on the lines go through the binary stream: LF only.
            raw(o, fmt::format("Rephase Sections: {}\n", n));
            raw(o, "Rephase Section Initial Indexes as Int32:\n");
            std::fwrite(s.rephase_initial.data(), sizeof(std::int32_t), n, o);
            raw(o, "\n\nRephase Section Final Indexes as Int32:\n");
            std::fwrite(s.rephase_final.data(), sizeof(std::int32_t), n, o);
            raw(o, "\n\nRephase D Terms as Real64:\n");
            std::fwrite(s.rephase_dterms.data(), sizeof(double), n, o);
        }
    }
    if (withwalking) StoreWalkingCalibration(s, o);
    raw(o, "\n\nData:\n");
    if (count) std::fwrite(s.data.data() + first, sizeof(float), count, o);
    if (out.commit() < 0) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("Cannot write the file {}: {}", outpath, out.error()));
        return -1;
    }
    return 0;
}

int StoreVFDFileRephase(const Spectrum& s, const std::string& outpath, int sed_mode, Ui& ui) {
    AtomicFile out(outpath);
    if (!out.ok()) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("Cannot write the file {}: {}", outpath, out.error()));
        return -1;
    }
    std::FILE* o = out.file();
    text_line(o, "Vantorix Frequency Datafile v1.0\r\n");
    text_line(o, "GlobalParameters\r\n");
    // "Data Collected at" is not the reader's key "Data Collected on ": a 1.0
    // file loads with collectedon "Unknown". Kept for the files in the field.
    text_line(o, fmt::format("Data Collected at {}", s.collectedon));
    text_line(o, fmt::format("Project Code = {}", s.projectcode));
    text_line(o, fmt::format("Data Collected by {}", s.collectedby));
    text_line(o, fmt::format("Date: {}", s.dateserial));
    text_line(o, "Datatype: FREQUENCY_DOMAIN");
    text_line(o, fmt::format("Datacount: {}", s.datacount));
    text_line(o, fmt::sprintf("Bandwidth: %.15f", s.dbandwidth));
    text_line(o, fmt::sprintf("hzppt: %.16f", s.datacount != 0 ? s.dbandwidth / s.datacount : 0.0));
    text_line(o, fmt::sprintf("Aterm: %.6f", s.Aterm));
    text_line(o, fmt::sprintf("Bterm: %.6f", s.Bterm));
    text_line(o, fmt::sprintf("Trapvoltage: %f", s.Trapvoltage));
    text_line(o, fmt::sprintf("OptimizedSecondorder: %.6f", s.OptimizedSecondorder));
    text_line(o, fmt::sprintf("OptimizedFirstorder: %.6f", s.OptimizedFirstorder));
    text_line(o, fmt::sprintf("Zeroorder: %.6f", s.Zeroorder));
    text_line(o, fmt::format("ZeroDegrees: {}", s.ZeroDegrees));
    text_line(o, fmt::format("Phased: {}", sed_mode));
    text_line(o, "\r\n\r\nData:");
    const std::size_t n = std::min(s.data.size(), static_cast<std::size_t>(std::max(s.datacount, 0)));
    if (n) std::fwrite(s.data.data(), sizeof(float), n, o);
    if (out.commit() < 0) {
        ui.MessagePopup(SAVE_ERROR, fmt::format("Cannot write the file {}: {}", outpath, out.error()));
        return -1;
    }
    return 0;
}

std::string vfd_target_for(const std::string& filename) {
    return strip(strip(filename, ".dat"), ".new") + ".vfd";
}

std::string wcd_target_for(const std::string& filename) {
    const fs::path p(filename);
    const std::string leaf = strip(strip(strip(p.filename().string(), ".dat"), ".new"), ".vfd") + ".wcd";
    return (p.parent_path() / "Walking Calibrated VFD" / leaf).string();
}

int PrephaseFrequency_callback(Workspace& ws, Ui& ui, const VfdStoreOptions& options) {
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(ws.active_panel)].active)
        return -1;
    Spectrum& s = ws.panels[static_cast<std::size_t>(ws.active_panel)].spectrum;
    const std::string source = s.filename;
    return StoreVFDFile(s, vfd_target_for(source), source, 0, ws.sed_mode, ui, options) == 0 ? 0 : -1;
}

int PrephaseFrequency2_callback(Workspace& ws, Ui& ui, const VfdStoreOptions& options) {
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(ws.active_panel)].active)
        return -1;
    Spectrum& s = ws.panels[static_cast<std::size_t>(ws.active_panel)].spectrum;
    if (s.walkingregions < 2) {
        ui.MessagePopup("Walking Calibration Table is not present.", "Walking Calibration File Save was Aborted");
        return -1;
    }
    const std::string source = s.filename;
    const std::string target = wcd_target_for(source);
    std::error_code ec;
    fs::create_directories(fs::path(target).parent_path(), ec);
    return StoreVFDFile(s, target, source, 1, ws.sed_mode, ui, options) == 0 ? 0 : -1;
}

}  // namespace vx
