#include "formats/peak_list.hpp"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>

#include <fmt/format.h>

#include "platform/keyscan.hpp"
#include "platform/safe_file.hpp"
#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

std::string cfmt(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string cfmt(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int size = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string out(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
    if (size > 0) std::vsnprintf(out.data(), out.size() + 1, format, args);
    va_end(args);
    return out;
}

// Whole resolving power as the rows print it; a value beyond an int (no width)
// prints as 0.
int whole(double v) {
    if (!std::isfinite(v) || v >= 2147483647.0 || v <= -2147483648.0) return 0;
    return static_cast<int>(v);
}

// A parsed value as float32, the way the record stores it; values beyond the
// float range saturate to infinity instead of overflowing.
float to_float(double v) {
    if (v > std::numeric_limits<float>::max()) return std::numeric_limits<float>::infinity();
    if (v < -std::numeric_limits<float>::max()) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(v);
}

int clamp_decimals(int d) { return std::clamp(d, 0, 15); }

// Text-mode files end their lines in CR LF.
std::string crlf(const std::string& text) {
    std::string out;
    out.reserve(text.size() + text.size() / 16);
    for (char c : text) {
        if (c == '\n') out += '\r';
        out += c;
    }
    return out;
}

int write_text_file(const std::string& path, const std::string& text, Ui& ui) {
    if (path.empty()) {
        ui.MessagePopup("File Error", "No file name for the peak list.");
        return -1;
    }
    // Written beside the target and renamed over it when complete, so a full
    // disk leaves the previous list as it was.
    std::string why;
    if (write_file_atomically(path, crlf(text), &why) < 0) {
        ui.MessagePopup("File Error", fmt::format("Unable to write the peak list {}: {}", path, why));
        return -1;
    }
    return 0;
}

double centre_of_mass(const std::vector<Peak>& peaks) {
    double weighted = 0.0, heights = 0.0;
    for (const Peak& p : peaks) {
        weighted += p.abundance * p.mass;
        heights += p.abundance;
    }
    return heights != 0.0 ? weighted / heights : 0.0;
}

std::string header_line1(const Spectrum& s, double low, double high) {
    return cfmt("There were %d Peaks found from m/z= %8.2f    to m/z= %8.2f.\n", static_cast<int>(s.peaks.size()), low,
                high);
}

std::string ion_mode_line(const Spectrum& s) {
    return s.Trapvoltage >= 0.0 ? "POSITIVE ION MODE\n" : "NEGATIVE ION MODE\n";
}

std::string detected_line(const Spectrum& s) {
    return s.detectstart != 0.0 ? cfmt("Data Detected at (seconds): %f\n", s.detectstart) : std::string("\n");
}

// Frequency of a peak for the batch rows: the point of its mass, converted.
double batch_frequency(const Spectrum& s, double mass) {
    double m[1] = {mass}, p[1] = {0.0}, f[1] = {0.0};
    Mass_topt(s, m, p);
    Pt_tofreq(s, p, f);
    return f[0];
}

std::string batch_text(const Spectrum& s, double noise, double threshold, double low, double high,
                       const BatchPeakListOptions& o, bool autocal) {
    std::string t = header_line1(s, low, high);
    t += ion_mode_line(s);
    t += cfmt("Noise threshold: %f        Peak threshold: %f\n", noise, threshold);
    t += detected_line(s);
    t += " Center of Mass for the Assigned Window is  ";
    t += cfmt(" %9.4f\n\n", centre_of_mass(s.peaks));
    const bool profile = s.domain == DOMAIN_PROFILE;
    const PeakListColumn last = (profile || autocal) ? PeakListColumn::None : o.last_column;
    t += " Peak Location    Peak Height           Abundance         Resolving Power      Frequency";
    if (last == PeakListColumn::SN) t += "\t\tSN";
    if (last == PeakListColumn::Baseline) t += "\t\tBaseline";
    t += "\n\n";

    const std::size_t n = s.peaks.size();
    const int p = profile ? 5 : clamp_decimals(o.precision);
    for (std::size_t r = 0; r < n; ++r) {
        // Batch lists run from the last peak down; profile and recalibrated
        // lists keep list order.
        const std::size_t k = (profile || autocal) ? r : n - 1 - r;
        const Peak& pk = s.peaks[k];
        double mass = pk.mass;
        if (autocal) {
            double f[1] = {pk.frequency}, m[1] = {0.0};
            Freq_tomass(s, f, m);
            mass = m[0];
        }
        const double percent = o.window_max > 0.0 ? pk.abundance / o.window_max * 100.0 : pk.relabundance;
        const int rp = whole(mass / pk.width + 0.5);
        const double freq = (profile || autocal) ? pk.frequency : batch_frequency(s, pk.mass);
        if (autocal) {
            t += cfmt(" %10.5f       %9.4f       %1.7f              %d         %14.6f\n", mass, percent, pk.abundance, rp,
                      freq);
            continue;
        }
        t += cfmt("%10.*f       %9.4f       %14.7f              %d         %14.6f", p, mass, percent, pk.abundance, rp,
                  freq);
        if (last == PeakListColumn::SN) {
            t += o.vfd_last_column ? cfmt("     %9.2f", pk.sn) : cfmt("     %9.*f", p, pk.sn);
        } else if (last == PeakListColumn::Baseline) {
            const double b = k < o.baselines.size() ? o.baselines[k] : 0.0;
            t += o.vfd_last_column ? cfmt("     %9.2f", b) : cfmt("     %9.*f", p, b);
        }
        t += "\n";
    }
    return t;
}

int save_batch(const Spectrum& s, const std::string& basepath, int scanindex, const BatchPeakListOptions& o,
               bool autocal, Ui& ui) {
    const std::string path = peak_list_path(basepath, s.filetype, scanindex);
    if (path.empty()) {
        ui.MessagePopup("File Error", fmt::format("Scan {} of {} has no peak-list name.", scanindex + 1, basepath));
        return -1;
    }
    return write_text_file(path, batch_text(s, o.noise_threshold, o.peak_threshold, o.low_mass, o.high_mass, o, autocal),
                           ui);
}

BatchPeakListOptions options_of(const Spectrum& s, double noise, double threshold, int precision) {
    BatchPeakListOptions o;
    o.low_mass = s.initMz;
    o.high_mass = s.finalMz;
    o.noise_threshold = noise;
    o.peak_threshold = threshold;
    o.precision = precision;
    return o;
}

// The number of the field at a column: a column inside a number reads that
// whole number, a column in the blanks before one reads the next; 0 past the
// end. The rows' fields are right-aligned with variable widths, so a fixed
// column often lands inside a value.
double real_at(const std::string& line, std::size_t column) {
    if (column >= line.size()) return 0.0;
    auto is_blank = [](char c) { return c == ' ' || c == '\t'; };
    while (column > 0 && !is_blank(line[column]) && !is_blank(line[column - 1])) --column;
    return scan_real(std::string_view(line).substr(column));
}

bool read_line(std::FILE* f, std::string& line) {
    line.clear();
    int c;
    bool any = false;
    while ((c = std::fgetc(f)) != EOF) {
        any = true;
        if (c == '\n') break;
        if (line.size() < 500) line += static_cast<char>(c);
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return any;
}

}  // namespace

std::string peak_list_path(const std::string& source, int filetype, int scanindex) {
    std::string base = source;
    const auto dot = base.rfind('.');
    if (dot != std::string::npos) base[dot] = '_';
    if (filetype == FILETYPE_PROFILE) {
        const int n = scanindex + 1;
        if (n < 0 || n >= 10000) return {};
        if (n < 10) base += cfmt("_000%i", n);
        else if (n < 100) base += cfmt("_00%i", n);
        else if (n < 1000) base += cfmt("_0%i", n);
        else base += cfmt("_%i", n);
    }
    return base + ".pks";
}

std::string table_peak_list_path(const std::string& source) {
    if (source.size() < 4) return source + ".pks";
    return source.substr(0, source.size() - 4) + ".pks";
}

std::string batch_peak_list_text(const Spectrum& s, const BatchPeakListOptions& o) {
    return batch_text(s, o.noise_threshold, o.peak_threshold, o.low_mass, o.high_mass, o, false);
}

int write_batch_peak_list(const std::string& path, const Spectrum& s, const BatchPeakListOptions& o, Ui& ui) {
    return write_text_file(path, batch_peak_list_text(s, o), ui);
}

int SavePeakList(const Spectrum& s, const std::string& basepath, double noise, int scanindex, int precision,
                 int withsn, double threshold, Ui& ui) {
    BatchPeakListOptions o = options_of(s, noise, threshold, precision);
    o.last_column = withsn ? PeakListColumn::SN : PeakListColumn::None;
    return save_batch(s, basepath, scanindex, o, false, ui);
}

int SavePeakListBaseline(const Spectrum& s, const std::string& basepath, double noise, int scanindex, int precision,
                         const std::vector<double>& baselines, double threshold, Ui& ui) {
    BatchPeakListOptions o = options_of(s, noise, threshold, precision);
    o.last_column = PeakListColumn::Baseline;
    o.baselines = baselines;
    return save_batch(s, basepath, scanindex, o, false, ui);
}

int SaveVFDPeakList(const Spectrum& s, const std::string& basepath, double noise, int scanindex, int precision,
                    int withsn, double threshold, Ui& ui) {
    BatchPeakListOptions o = options_of(s, noise, threshold, precision);
    o.last_column = withsn ? PeakListColumn::SN : PeakListColumn::None;
    o.vfd_last_column = true;
    return save_batch(s, basepath, scanindex, o, false, ui);
}

int SaveAutoCalPeakList(const Spectrum& s, const std::string& basepath, double noise, double threshold, Ui& ui) {
    const BatchPeakListOptions o = options_of(s, noise, threshold, 5);
    return save_batch(s, basepath, 0, o, true, ui);
}

std::string table_peak_list_text(const Spectrum& s, const PeakListDecimals& d, bool with_sn, double abundance_scale) {
    std::string t = "Vantorix Analysis Peaklist V2.0 - " + header_line1(s, s.initMz, s.finalMz);
    t += ion_mode_line(s);
    t += cfmt("Peak threshold: %f      Noise threshold: %f    Baseline for SN: %f   Sigma for SN: %f\n",
              s.peakabundance, s.peakprofile, s.noisemean, s.noisesigma);
    t += detected_line(s);
    t += "Center of Mass for the Assigned Window is  ";
    t += cfmt("%9.4f\n\n ", centre_of_mass(s.peaks));
    t += with_sn ? "Peak Location      Peak Height            Abundance             Resolving Power        Frequency"
                   "               S/N\n\n"
                 : "Peak Location          Peak Height            Abundance             Resolving Power      Frequency"
                   "\n\n";
    const int a = clamp_decimals(d.mass), b = clamp_decimals(d.relabundance), c = clamp_decimals(d.abundance),
              e = clamp_decimals(d.frequency);
    const bool profile = s.filetype == FILETYPE_PROFILE;
    double largest = 0.0;
    for (const Peak& p : s.peaks) largest = std::max(largest, p.abundance);
    for (const Peak& p : s.peaks) {
        double rel = p.relabundance, abundance = p.abundance, freq = p.frequency, sn = p.sn;
        int rp = whole(p.resolvingpower);
        if (profile) {
            // Profile lists have no frequency axis: fixed stand-ins for the
            // columns that need one.
            abundance = p.abundance * abundance_scale;
            rel = largest > 0.0 ? p.abundance / largest * 100.0 : 0.0;
            rp = 10000;
            freq = 10000.0;
            sn = 5.0;
        }
        if (with_sn)
            t += cfmt(" %10.*f         %9.*f        %14.*f              %10d         %16.*f      %10.3f\n", a, p.mass, b,
                      rel, c, abundance, rp, e, freq, sn);
        else
            t += cfmt(" %10.*f         %9.*f         %14.*f               %10d         %14.*f\n", a, p.mass, b, rel, c,
                      abundance, rp, e, freq);
    }
    return t;
}

int SavePeakList2(const Spectrum& s, const std::string& path, const PeakListDecimals& d, bool with_sn,
                  double abundance_scale, Ui& ui) {
    return write_text_file(path, table_peak_list_text(s, d, with_sn, abundance_scale), ui);
}

std::string csv_peak_list_text(const Spectrum& s) {
    std::string t = "m/z,Abundance,Relative Abundance,Resolving Power,Frequency,S/N,Width,Index\n";
    for (const Peak& p : s.peaks)
        t += cfmt("%.7f,%.7f,%.5f,%.1f,%.6f,%.4f,%.9f,%.5f\n", p.mass, p.abundance, p.relabundance, p.resolvingpower,
                  p.frequency, p.sn, p.width, p.index);
    return t;
}

int SavePeakListCsv(const Spectrum& s, const std::string& path, Ui& ui) {
    return write_text_file(path, csv_peak_list_text(s), ui);
}

int Get_Tulva_Peak_List(const std::string& given, Spectrum& s, Ui& ui) {
    Set_Default_Parameters(s);
    std::string path = given;
    if (const int z = FindPattern(path, ".Z", false); z >= 0) path = path.substr(0, static_cast<std::size_t>(z)) + "_Z.pks";

    // A directory, a device or a pipe is refused before reading: /dev/zero has
    // no end and no line breaks.
    const auto file_size = regular_file_size(path);
    std::FILE* f = file_size ? std::fopen(path.c_str(), "rb") : nullptr;
    if (!f) {
        ui.MessagePopup("File Error", fmt::format("Unable to open the peak list {}.", path));
        return -1;
    }
    const std::uint64_t size = *file_size;

    std::string line;
    long n = 0;
    double low = 100.0, high = 1000.0;
    if (read_line(f, line)) {
        n = static_cast<long>(std::clamp<std::int64_t>(line.size() > 11 ? scan_int(std::string_view(line).substr(11)) : 0,
                                                       0, std::numeric_limits<long>::max() / 16));
        // The limits move with the width of the count.
        const std::size_t k = n <= 100 ? 0 : n <= 1000 ? 1 : n <= 10000 ? 2 : n <= 100000 ? 3 : 4;
        low = real_at(line, 37 + k) - 1.0;
        high = real_at(line, 57 + k) + 1.0;
    }
    // Every row takes a line of at least six characters and its line break; a
    // count beyond what the file could hold is damage, not a list, and is
    // refused before the arrays for it are allocated. A list cut short within
    // that bound still loads, its missing rows empty, as lists always have.
    if (static_cast<std::uintmax_t>(n) > size / 7 + 1) {
        std::fclose(f);
        ui.MessagePopup("File Error", fmt::format("The peak list {} announces {} peaks, more than the file holds.", path, n));
        return -1;
    }

    const auto points = static_cast<std::size_t>(5 * n + 2);
    s.data.assign(points, 0.0f);
    s.xvalues.assign(points, 0.0);
    s.peaks.assign(static_cast<std::size_t>(n), Peak{});
    s.peakcount = static_cast<std::int32_t>(n);

    for (int i = 0; i < 4; ++i) read_line(f, line);
    read_line(f, line);
    int skip = FindPattern(line, "Center of Mass for the Assigned Window is", true) >= 0 ? 3 : 1;
    while (skip-- > 0) read_line(f, line);

    bool ended = false;
    for (long i = 0; i < n && !ended; ++i) {
        bool got = false;
        while (!got) {
            if (!read_line(f, line) || (!line.empty() && static_cast<unsigned char>(line[0]) == 255)) {
                ended = true;
                break;
            }
            got = line.size() >= 6;
        }
        if (ended) break;
        const double mz = real_at(line, 0);
        const double height = real_at(line, 21);
        const double abundance = real_at(line, 39);
        const double rp = real_at(line, 65);
        const double freq = real_at(line, 81);

        const double base = i == 0 ? 0.0 : low;
        const auto at = static_cast<std::size_t>(5 * i);
        s.xvalues[at + 1] = base + (mz - base) / 3.0;
        s.xvalues[at + 2] = base + 2.0 * (mz - base) / 3.0;
        s.xvalues[at + 3] = mz;
        s.xvalues[at + 4] = mz;
        s.xvalues[at + 5] = mz;
        s.data[at + 4] = to_float(height);
        if (i > 0) {
            s.xvalues[0] = low;
            s.xvalues[points - 1] = high;
            s.data[0] = 0.0f;
            s.data[points - 1] = 0.0f;
        }
        Peak& p = s.peaks[static_cast<std::size_t>(i)];
        p.abundance = to_float(height);
        p.relabundance = to_float(abundance);
        p.index = mz;
        p.frequency = freq;
        p.resolvingpower = rp;
        p.width = to_float(mz / rp);
        p.calmass = -1.0;
        p.iscalibrant = 0;
        p.calibrantrow = -1;
    }
    std::fclose(f);
    s.datacount = static_cast<std::int32_t>(points);
    s.domain = DOMAIN_PEAKLIST;
    s.filetype = FILETYPE_PEAKLIST;
    s.filename = path.substr(0, 255);
    return 0;
}

}  // namespace vx
