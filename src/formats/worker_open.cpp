// The openers of the batch workers: a data or frequency file read into a
// private record, with no slot, no display and no record defaults.
#include <sys/stat.h>

#include <cmath>
#include <vector>

#include <fmt/format.h>

#include "formats/frequency_file.hpp"
#include "formats/header_copy.hpp"
#include "formats/tulva_reader.hpp"
#include "platform/keyscan.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {

enum class Storage { Int, Float, Double };

std::int32_t to_i32(std::int64_t v) {
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<std::int32_t>(v);
}

std::uint64_t bytes_left(std::FILE* f) {
    struct stat st {};
    const long here = std::ftell(f);
    if (here < 0 || ::fstat(::fileno(f), &st) != 0 || st.st_size <= here) return 0;
    return static_cast<std::uint64_t>(st.st_size - here);
}

int open_for_worker(const std::string& path, Spectrum& w, bool quiet, bool vfd, Ui& ui) {
    // A quiet worker tells its failures on the console instead of a popup.
    auto say = [&](std::string_view title, std::string_view text) {
        if (quiet) ui.Console(fmt::format("{}: {}: {}\n", path, title, text));
        else ui.MessagePopup(title, text);
    };
    std::FILE* f = open_source_file(path, ui);
    if (!f) return -1;
    struct Closer {
        std::FILE* f;
        ~Closer() { std::fclose(f); }
    } closer{f};

    w.storedcount = 0;
    Storage storage = Storage::Int;
    float scale = 1.0f;
    std::string line;
    bool marker = false;
    while (Get_Next_Line(f, line) >= 0) {
        const std::string_view L = line;
        auto any = [&](std::string_view k) { return FindPattern(L, k, false) >= 0; };
        auto exact = [&](std::string_view k) { return FindPattern(L, k, true) >= 0; };
        auto real = [&](std::string_view k, bool cs = false) {
            auto v = value_behind(L, k, cs);
            return v ? scan_real(*v) : 0.0;
        };
        auto integer = [&](std::string_view k) {
            auto v = value_behind(L, k, false);
            return v ? scan_int(*v) : 0;
        };
        auto positive = [&](std::string_view k, double& field) {
            const double v = real(k, true);
            if (v > 0.0) field = v;
        };
        if (any("Data Collected on ")) {
            w.collectedon = fit_field(scan_text(*value_behind(L, "Data Collected on ", false)), COLLECTEDON_WIDTH);
        } else if (any("Project Code = ")) {
            w.projectcode = fit_field(scan_text(*value_behind(L, "Project Code = ", false)), PROJECTCODE_WIDTH);
        } else if (any("Data Collected by ")) {
            w.collectedby = fit_field(scan_text(*value_behind(L, "Data Collected by ", false)), COLLECTEDBY_WIDTH);
        } else if (any("Data Storage Mode:")) {
            w.storagemode = to_i32(integer("Data Storage Mode:"));
        } else if (any("Date: ")) {
            w.dateserial = to_i32(integer("Date: "));
        } else if (any("Data Points:")) {
            const auto v = integer("Data Points:");
            if (v == 32000000) {
                w.datacount = 33554432;
                w.storedcount = 32000000;
            } else if (v == 16000000) {
                w.datacount = 16777216;
                w.storedcount = 16000000;
            } else {
                w.datacount = to_i32(v);
            }
        } else if (const int at = FindPattern(L, "Storage Type:", false); at >= 0) {
            const std::size_t from = static_cast<std::size_t>(at) + 13;
            storage = FindPattern(L, "int", true, from) > 0      ? Storage::Int
                      : FindPattern(L, "double", true, from) >= 0 ? Storage::Double
                                                                  : Storage::Float;
        } else if (any("Collection Mode:")) {
        } else if (any("Voltage Scale:")) {
            const double v = real("Voltage Scale:");
            scale = v == 0.0 ? 1.0f : static_cast<float>(v);
        } else if (any("dbandwidth:")) {
            const double v = real("dbandwidth:");
            if (v > 1.0) w.dbandwidth = v;
        } else if (exact("Bandwidth:")) {
            const double v = real("Bandwidth:", true);
            if (v > 1.0) w.dbandwidth = v;
        } else if (exact("PretriggerDelay:")) {
            // known key; the record has no field for it
        } else if (exact("RelativeX:")) {
            positive("RelativeX:", w.relativex);
        } else if (exact("lowfreq:")) {
            positive("lowfreq:", w.lowfreq);
        } else if (!vfd && exact("Initial Frequency:")) {
            positive("Initial Frequency:", w.lowfreq);
        } else if (exact("highfreq:")) {
            positive("highfreq:", w.highfreq);
        } else if (!vfd && exact("Final Frequency:")) {
            positive("Final Frequency:", w.highfreq);
        } else if (exact("sweeprate:")) {
            positive("sweeprate:", w.sweeprate);
        } else if (!vfd && exact("Optimized Sweep Rate:")) {
            positive("Optimized Sweep Rate:", w.sweeprate);
        } else if (any("Calibration Type:")) {
        } else if (any("Source Coeff0:")) {
            w.Aterm = real("Source Coeff0:");
        } else if (any("Source Coeff1:")) {
            w.Bterm = real("Source Coeff1:");
        } else if (any("Detect Mode:")) {
        } else if (any("Trap Voltage:")) {
            w.Trapvoltage = real("Trap Voltage:");
        } else if (any("Reference Frequency:") || any("Data Detected at (seconds):") || any("Parent Mass:") ||
                   any("Comment :")) {
        } else if (vfd && any("OptimizedSecondorder:")) {
            w.OptimizedSecondorder = real("OptimizedSecondorder:");
        } else if (vfd && any("OptimizedFirstorder:")) {
            w.OptimizedFirstorder = real("OptimizedFirstorder:");
        } else if (vfd && any("Zeroorder:")) {
            w.Zeroorder = real("Zeroorder:");
        } else if (vfd && any("InitialExciteFrequency:")) {
            w.lowfreq = real("InitialExciteFrequency:");
        } else if (FindPattern(L, "Data:", false) == 0) {
            marker = true;
            break;
        }
    }
    if (!marker) {
        say("File Input Error", "No Data Marker Found");
        return -1;
    }
    if (w.datacount == 0) {
        say("File Input Error", "No Data Count Specified");
        return -1;
    }
    if (w.datacount < 0 || w.datacount > MAX_DATACOUNT) {
        say("File Input Error", fmt::format("Data Count {} is not a valid number of samples.", w.datacount));
        return -1;
    }
    const std::size_t count = static_cast<std::size_t>(w.datacount);
    const std::size_t stored = w.storedcount != 0 ? std::min<std::size_t>(static_cast<std::size_t>(w.storedcount), count)
                                                  : count;
    const std::uint64_t size = storage == Storage::Int ? 2 : storage == Storage::Float ? 4 : 8;
    const std::uint64_t left = bytes_left(f);
    if (stored * size > left) {
        say("File Input Error", fmt::format("The file {} ends before its data: {} samples need {} bytes, the file "
                                            "holds {}.",
                                            path, stored, stored * size, left));
        return -1;
    }
    w.data.assign(count, 0.0f);
    if (storage == Storage::Float) {
        (void)std::fread(w.data.data(), sizeof(float), stored, f);
    } else if (storage == Storage::Int) {
        std::vector<std::int16_t> raw(stored);
        const std::size_t got = std::fread(raw.data(), sizeof(std::int16_t), stored, f);
        for (std::size_t i = 0; i < got; ++i) w.data[i] = static_cast<float>(raw[i]) * scale;
    } else {
        std::vector<double> raw(stored);
        const std::size_t got = std::fread(raw.data(), sizeof(double), stored, f);
        for (std::size_t i = 0; i < got; ++i) w.data[i] = static_cast<float>(raw[i]);
    }
    w.exciteduration = std::fabs(w.lowfreq - w.highfreq) / w.sweeprate / 1000000.0;
    return 0;
}

}  // namespace

int OpenVantorixFile(const std::string& path, Spectrum& worker, bool quiet, Ui& ui) {
    return open_for_worker(path, worker, quiet, false, ui);
}

int OpenVantorixVFD(const std::string& path, Spectrum& worker, bool quiet, Ui& ui) {
    return open_for_worker(path, worker, quiet, true, ui);
}

}  // namespace vx
