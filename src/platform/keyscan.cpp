#include "platform/keyscan.hpp"

#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>

namespace vx {

namespace {
inline char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::size_t skip_blanks(std::string_view t) {
    std::size_t i = 0;
    while (i < t.size() && (t[i] == ' ' || t[i] == '\t')) ++i;
    return i;
}
}  // namespace

int FindPattern(std::string_view text, std::string_view pattern, bool case_sensitive, std::size_t start) {
    if (start > text.size()) return -1;
    if (pattern.empty()) return static_cast<int>(start);
    if (case_sensitive) {
        auto pos = text.find(pattern, start);
        return pos == std::string_view::npos ? -1 : static_cast<int>(pos);
    }
    if (pattern.size() > text.size()) return -1;
    const std::size_t last = text.size() - pattern.size();
    for (std::size_t i = start; i <= last; ++i) {
        std::size_t k = 0;
        while (k < pattern.size() && lower(text[i + k]) == lower(pattern[k])) ++k;
        if (k == pattern.size()) return static_cast<int>(i);
    }
    return -1;
}

std::optional<std::string_view> value_behind(std::string_view line, std::string_view key, bool case_sensitive) {
    int at = FindPattern(line, key, case_sensitive);
    if (at < 0) return std::nullopt;
    return line.substr(static_cast<std::size_t>(at) + key.size());
}

std::optional<std::int64_t> try_scan_int(std::string_view text) {
    std::size_t i = skip_blanks(text);
    bool neg = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        neg = text[i] == '-';
        ++i;
    }
    if (i >= text.size() || !std::isdigit(static_cast<unsigned char>(text[i]))) return std::nullopt;
    // Digits beyond the range saturate rather than wrap.
    constexpr std::int64_t max = std::numeric_limits<std::int64_t>::max();
    std::int64_t v = 0;
    for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
        const int d = text[i] - '0';
        v = (v > (max - d) / 10) ? max : v * 10 + d;
    }
    return neg ? -v : v;
}

std::optional<double> try_scan_real(std::string_view text) {
    std::size_t i = skip_blanks(text);
    if (i < text.size() && text[i] == '+') ++i;
    if (i >= text.size()) return std::nullopt;
    // Only decimal notation counts: "inf", "nan" and hex floats are not numbers here.
    char c = text[i];
    char c1 = i + 1 < text.size() ? text[i + 1] : '\0';
    bool starts = std::isdigit(static_cast<unsigned char>(c)) ||
                  (c == '.' && std::isdigit(static_cast<unsigned char>(c1))) ||
                  (c == '-' && (std::isdigit(static_cast<unsigned char>(c1)) || c1 == '.'));
    if (!starts) return std::nullopt;
    double v = 0.0;
    auto res = std::from_chars(text.data() + i, text.data() + text.size(), v, std::chars_format::general);
    if (res.ec == std::errc::result_out_of_range) {
        // The digits are there but the value does not fit: saturate like strtod.
        return (c == '-') ? -std::numeric_limits<double>::max() : std::numeric_limits<double>::max();
    }
    if (res.ec != std::errc()) return std::nullopt;
    if (!std::isfinite(v)) return std::nullopt;
    return v;
}

std::int64_t scan_int(std::string_view text) { return try_scan_int(text).value_or(0); }
double scan_real(std::string_view text) { return try_scan_real(text).value_or(0.0); }

std::string scan_text(std::string_view text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    return std::string(text);
}

std::string fit_field(std::string_view text, std::size_t width) {
    if (width == 0) return {};
    if (text.size() > width - 1) text = text.substr(0, width - 1);
    return std::string(text);
}

int round_to_int(double v) {
    if (!std::isfinite(v)) return 0;
    double r = std::round(v);
    if (r > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
    if (r < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    return static_cast<int>(r);
}

}  // namespace vx
