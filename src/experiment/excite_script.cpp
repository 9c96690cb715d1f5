#include "experiment/excite_script.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <fmt/format.h>

#include "formats/tulva_reader.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace {

bool has(std::string_view line, std::string_view key) { return line.find(key) != std::string_view::npos; }

// The number behind key on the line (skip characters more), 0 when none.
double value_after(std::string_view line, std::string_view key, std::size_t skip = 0) {
    const std::size_t at = line.find(key);
    if (at == std::string_view::npos) return 0.0;
    const std::size_t from = at + key.size() + skip;
    if (from >= line.size()) return 0.0;
    const std::string rest(line.substr(from));
    char* end = nullptr;
    const double v = std::strtod(rest.c_str(), &end);
    // A value that is not a finite number counts as no value: the phase model
    // must never see NaN or infinity from a damaged script.
    return (end == rest.c_str() || !std::isfinite(v)) ? 0.0 : v;
}

}  // namespace

bool ExciteScript::chirp() const { return has(mode, "chirp") && !has(mode, "SWIFT"); }

double ExciteScript::chirp_time() const {
    if (rate == 0.0) return 0.0;
    return loops * std::fabs(high - low) / rate / 1000000.0;
}

ExciteScript scan_excite_script(std::string_view text, bool hifreq_quirk, Ui* ui) {
    ExciteScript s;
    double last_time = 0.0;
    bool before_detect = true;
    bool in_disabled = false;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (has(line, "Data:")) {
            s.data_marker = true;
            break;
        }
        if (in_disabled) {
            if (has(line, "endevent:")) in_disabled = false;
            continue;
        }
        if (has(line, "disabled event")) {
            // The time of a disabled event was already charged to the delay by
            // its "time:" line, which stands before this one.
            if (before_detect) s.delay -= last_time;
            in_disabled = true;
            continue;
        }
        if (has(line, "excite:")) {
            s.delay = 0.0;
            s.excite_event_time = last_time;
        } else if (has(line, "time:")) {
            last_time = value_after(line, "time:");
            if (before_detect) s.delay += last_time;
        } else if (has(line, "emode:")) {
            const std::size_t at = line.find("emode:") + 6;
            s.mode = std::string(line.substr(at));
        } else if (has(line, "lowfreq:")) {
            s.low = value_after(line, "lowfreq:");
        } else if (has(line, "highfreq:")) {
            s.high = value_after(line, "highfreq:");
        } else if (has(line, "hifreq:")) {
            s.high = value_after(line, "hifreq:", hifreq_quirk ? 2 : 0);
        } else if (has(line, "sweeprate:")) {
            s.rate = value_after(line, "sweeprate:");
        } else if (has(line, "loops:")) {
            s.loops = value_after(line, "loops:");
        } else if (has(line, "detect:")) {
            s.delay -= last_time;
            before_detect = false;
        } else if (has(line, "dbandwidth:")) {
            s.bw = value_after(line, "dbandwidth:");
            if (ui) ui->Console(fmt::format("dband_width = {:f}\n", s.bw));
        }
        // "elength:" and "label:Excitation" are read past: the event time is what counts.
    }
    return s;
}

int read_script_text(const std::string& path, std::string& text, std::size_t max_bytes) {
    text.clear();
    if (!regular_file_size(path)) return -1;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!f) return -1;
    return read_script_text(f.get(), text, max_bytes);
}

int read_script_text(std::FILE* f, std::string& text, std::size_t max_bytes) {
    text.clear();
    std::string line;
    while (text.size() < max_bytes) {
        if (read_header_line(f, line) < 0) return 1;
        text += line;
        text += '\n';
        if (has(line, "Data:")) return 0;
    }
    return 1;
}

namespace {

double excite_time_impl(const std::string& path, double* hi, double* lo, double* rate, double* delay, double* bw,
                        int compute, bool prints, bool quirk, bool always_compute, Ui& ui) {
    std::string text;
    if (prints) ui.Console("OpenFile in GetExciteTime\n");
    const int rc = read_script_text(path, text);
    if (prints) ui.Console("CloseFile in GetExciteTime\n");
    const ExciteScript s = scan_excite_script(text, quirk, &ui);
    if (rc != 0 || !s.data_marker) {
        ui.MessagePopup("File Input Error", "No Data Marker Found");
        return -1.0;
    }
    if (!s.chirp()) return always_compute ? 0.0 : s.excite_event_time;
    if (hi) {
        *hi = s.high;
        if (lo) *lo = s.low;
        if (rate) *rate = s.rate;
        if (delay) *delay = s.delay;
        if (bw) *bw = s.bw;
    }
    return (compute || always_compute) ? s.chirp_time() : s.excite_event_time;
}

}  // namespace

double GetExciteTime(const std::string& path, double* hi, double* lo, double* rate, double* delay, double* bw,
                     int compute, int quiet, Ui& ui) {
    return excite_time_impl(path, hi, lo, rate, delay, bw, compute, quiet == 0, false, false, ui);
}

double GetExciteTime2(const std::string& path, double* hi, double* lo, double* rate, double* delay, double* bw,
                      Ui& ui) {
    // GetExciteTime2 alone reads "hifreq:" two characters late; kept so that
    // files phased through it keep the values they always gave.
    return excite_time_impl(path, hi, lo, rate, delay, bw, 1, false, true, true, ui);
}

double GetExciteTime3(Spectrum& s, Ui& ui) {
    std::string text;
    const int rc = read_script_text(s.filename, text);
    const ExciteScript sc = scan_excite_script(text, false, &ui);
    if (rc != 0 || !sc.data_marker) {
        ui.MessagePopup("File Input Error", "No Data Marker Found");
        return -1.0;
    }
    if (!sc.chirp()) return sc.excite_event_time;
    s.exciteduration = sc.chirp_time();
    s.highfreq = sc.high;
    s.lowfreq = sc.low;
    s.sweeprate = sc.rate;
    s.delay = sc.delay;
    return s.exciteduration;
}

double GetExciteTime4(const std::string& path, double* hi, double* lo, double* rate, double* delay, double* bw,
                      int compute, Ui& ui) {
    return excite_time_impl(path, hi, lo, rate, delay, bw, compute, false, false, false, ui);
}

long long Time_topt(const Spectrum& s, double t) {
    const double v = std::ceil(2.0 * t * s.dbandwidth);
    if (!std::isfinite(v) || v < 0.0) return 0;
    return static_cast<long long>(std::min(v, 9.0e18));
}

}  // namespace vx
