#include "formats/peak_csv.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "platform/safe_file.hpp"
#include "platform/ui.hpp"

namespace vx {

namespace {

constexpr std::uint64_t kMaxCsvBytes = 1ull << 30;

std::string normalise(std::string_view cell) {
    std::string s;
    for (char c : cell)
        if (c != '"' && c != '\'' && !std::isspace(static_cast<unsigned char>(c)))
            s += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::vector<std::string_view> split(std::string_view line, char sep) {
    std::vector<std::string_view> cells;
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = line.find(sep, start);
        cells.push_back(line.substr(start, at == std::string_view::npos ? std::string_view::npos : at - start));
        if (at == std::string_view::npos) break;
        start = at + 1;
    }
    return cells;
}

bool is_mz_name(const std::string& n) {
    return n == "m/z" || n == "mz" || n == "mass" || n == "m/z(da)" || n == "mass(m/z)" || n == "exp.m/z" ||
           n == "expmz" || n == "exp_mz" || n == "measuredm/z" || n == "observedm/z" || n.rfind("m/z", 0) == 0;
}

bool is_intensity_name(const std::string& n) {
    return n.find("intensity") != std::string::npos || n.find("height") != std::string::npos ||
           n.find("abundance") != std::string::npos || n == "int" || n == "int.";
}

bool to_number(std::string_view cell, double& out) {
    std::string s;
    for (char c : cell)
        if (c != '"' && !std::isspace(static_cast<unsigned char>(c))) s += c;
    if (s.empty()) return false;
    errno = 0;
    char* end = nullptr;
    out = std::strtod(s.c_str(), &end);
    return end == s.c_str() + s.size() && errno != ERANGE && std::isfinite(out);
}

}  // namespace

int parse_peak_csv(std::string_view text, std::vector<Peak>& peaks, std::string* error) {
    auto fail = [&](const std::string& why) {
        if (error) *error = why;
        return -1;
    };
    peaks.clear();
    if (text.size() >= 3 && static_cast<unsigned char>(text[0]) == 0xEF && static_cast<unsigned char>(text[1]) == 0xBB &&
        static_cast<unsigned char>(text[2]) == 0xBF)
        text.remove_prefix(3);
    std::size_t pos = 0, line_no = 0;
    auto next_line = [&](std::string_view& line) {
        if (pos >= text.size()) return false;
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        line = text.substr(pos, end - pos);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        pos = end + 1;
        ++line_no;
        return true;
    };
    std::string_view line;
    bool have_header = false;
    while (next_line(line)) {
        if (std::all_of(line.begin(), line.end(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); })) continue;
        have_header = true;
        break;
    }
    if (!have_header) return fail("The CSV peak list is empty: no header row.");
    const char sep = line.find('\t') != std::string_view::npos ? '\t'
                     : line.find(',') != std::string_view::npos ? ','
                     : line.find(';') != std::string_view::npos ? ';' : ',';
    const auto header = split(line, sep);
    int mz_col = -1, int_col = -1, sn_col = -1;
    for (std::size_t i = 0; i < header.size(); ++i) {
        const std::string n = normalise(header[i]);
        if (mz_col < 0 && is_mz_name(n)) mz_col = static_cast<int>(i);
        else if (int_col < 0 && is_intensity_name(n)) int_col = static_cast<int>(i);
        else if (sn_col < 0 && (n == "s/n" || n == "sn" || n == "snr")) sn_col = static_cast<int>(i);
    }
    if (mz_col < 0 || int_col < 0)
        return fail(fmt::format("Line {}: the header names no {} column (expected m/z and intensity, height or abundance).",
                                line_no, mz_col < 0 ? "m/z" : "intensity"));
    double largest = 0.0;
    while (next_line(line)) {
        if (std::all_of(line.begin(), line.end(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); })) continue;
        const auto cells = split(line, sep);
        const auto need = static_cast<std::size_t>(std::max({mz_col, int_col, sn_col}));
        if (cells.size() <= need) return fail(fmt::format("Line {}: {} cells, the header promised more.", line_no, cells.size()));
        Peak p;
        double mz = 0.0, ab = 0.0;
        if (!to_number(cells[static_cast<std::size_t>(mz_col)], mz) || !(mz > 0.0))
            return fail(fmt::format("Line {}: the m/z \"{}\" is not a positive number.", line_no,
                                    std::string(cells[static_cast<std::size_t>(mz_col)]).substr(0, 40)));
        if (!to_number(cells[static_cast<std::size_t>(int_col)], ab))
            return fail(fmt::format("Line {}: the intensity \"{}\" is not a number.", line_no,
                                    std::string(cells[static_cast<std::size_t>(int_col)]).substr(0, 40)));
        double sn = -1.0;
        if (sn_col >= 0 && !to_number(cells[static_cast<std::size_t>(sn_col)], sn)) sn = -1.0;
        p.mass = mz;
        p.index = mz;
        p.abundance = ab;
        p.sn = sn;
        largest = std::max(largest, ab);
        peaks.push_back(p);
    }
    if (peaks.empty()) return fail("The CSV peak list has a header but no peaks.");
    std::stable_sort(peaks.begin(), peaks.end(), [](const Peak& a, const Peak& b) { return a.mass < b.mass; });
    for (Peak& p : peaks) p.relabundance = largest > 0.0 ? 100.0 * p.abundance / largest : 0.0;
    return 0;
}

int read_peak_csv(const std::string& path, Spectrum& s, Ui& ui) {
    const auto size = regular_file_size(path);
    if (!size) {
        ui.MessagePopup("File Error", fmt::format("{} is not a readable file.", path));
        return -1;
    }
    if (*size > kMaxCsvBytes) {
        ui.MessagePopup("File Error", fmt::format("{} is larger than any peak list ({} bytes).", path, *size));
        return -1;
    }
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        ui.MessagePopup("File Error", fmt::format("{} cannot be opened.", path));
        return -1;
    }
    std::string text(static_cast<std::size_t>(*size), '\0');
    const std::size_t got = std::fread(text.data(), 1, text.size(), f);
    std::fclose(f);
    text.resize(got);
    std::vector<Peak> peaks;
    std::string error;
    if (parse_peak_csv(text, peaks, &error) < 0) {
        ui.MessagePopup("File Error", fmt::format("{}: {}", path, error));
        return -1;
    }
    s.peaks = std::move(peaks);
    s.peakcount = static_cast<std::int32_t>(s.peaks.size());
    s.domain = DOMAIN_PEAKLIST;
    s.filetype = FILETYPE_PEAKLIST;
    s.filename = path.substr(0, 255);
    return 0;
}

}  // namespace vx
