#include "calibration/reference_file.hpp"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <fmt/printf.h>

#include "platform/safe_file.hpp"
#include "platform/ui.hpp"

namespace vx {
namespace {

// The number at the start of a line, as the run-time's scan reads it: blanks
// first, then a decimal number; what follows is ignored. Words such as "nan"
// or "inf" are not numbers here.
bool scan_leading_number(std::string_view line, double& value) {
    std::size_t i = 0;
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
    if (i == line.size()) return false;
    const char c = line[i];
    if (!(std::isdigit(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.')) return false;
    const std::string text(line.substr(i, 64));
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (end == text.c_str()) return false;
    // strtod takes "-inf", "+nan" and hexadecimal forms; none of them is a mass.
    for (const char* p = text.c_str(); p != end; ++p)
        if (std::isalpha(static_cast<unsigned char>(*p)) && *p != 'e' && *p != 'E') return false;
    if (!std::isfinite(v)) return false;
    value = v;
    return true;
}

}  // namespace

std::vector<double> parse_reference_text(std::string_view text) {
    std::vector<double> masses;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t eol = text.find('\n', pos);
        if (eol == std::string_view::npos) eol = text.size();
        std::string_view line = text.substr(pos, eol - pos);
        pos = eol + 1;
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (line.size() < 3 || line.front() == ';' || line.front() == '[') continue;
        double m = 0.0;
        if (!scan_leading_number(line, m) || !(m > 0.0)) continue;
        masses.push_back(m);
    }
    return masses;
}

std::string reference_file_text(const std::vector<double>& masses) {
    std::string out = std::string(REF_FILE_FIRST_LINE) + "\r\n";
    // The column is written as it stands: an unassigned -1.0 is written too,
    // and the reader skips it again.
    for (double m : masses) out += fmt::sprintf("%f\r\n", m);
    return out;
}

int read_reference_file(const std::string& path, std::vector<double>& masses, Ui& ui) {
    const auto size = regular_file_size(path);
    std::ifstream in(path, std::ios::binary);
    if (!size || !in) {
        ui.MessagePopup("Calibration error", "Could not open calibration data file");
        return -1;
    }
    std::ostringstream buf;
    buf << in.rdbuf();
    masses = parse_reference_text(buf.str());
    return 0;
}

int OpenCalFile(std::vector<double>& masses, Ui& ui) {
    const auto path = ui.FileSelectPopup("Choose calibration reference file to use", "*.ref", "");
    if (!path || path->empty()) return -1;
    if (read_reference_file(*path, masses, ui) < 0) return -1;
    if (masses.size() > MAX_REFERENCE_MASSES) masses.resize(MAX_REFERENCE_MASSES);
    return 1;
}

int write_reference_file(const std::string& path, const std::vector<double>& masses, Ui& ui) {
    std::error_code ec;
    if (regular_file_size(path) &&
        !ui.ConfirmPopup("Overwrite the existing file", "File with specified name already exists. Overwrite the file?"))
        return 1;
    std::string error;
    if (write_file_atomically(path, reference_file_text(masses), &error) < 0) {
        ui.MessagePopup("Calibration error", fmt::format("Could not write the reference file {}: {}", path, error));
        return -1;
    }
    return 0;
}

}  // namespace vx
