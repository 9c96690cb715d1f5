// Header-line scanning shared by every reader of the Tulva family and its
// relatives: a substring search with a case flag, the value that starts right
// behind a key, and numbers parsed as far as they go.
//
// Headers are matched by substring, never parsed by structure, so free text and
// embedded experiment scripts do not disturb them; these helpers keep that rule
// in one place.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vx {

// Index of the first occurrence of pattern in text at or after start, or -1.
// case_sensitive = false compares ASCII letters without regard to case.
int FindPattern(std::string_view text, std::string_view pattern, bool case_sensitive, std::size_t start = 0);

// Text behind the key when the key occurs in line (the value starts right behind
// the key, wherever the key stands); nullopt when the key is absent.
std::optional<std::string_view> value_behind(std::string_view line, std::string_view key, bool case_sensitive);

// Numbers as the run-time's scanner reads them: leading blanks skipped, then as
// many characters as form a number. Text that does not start a number gives 0.
// Integers stop at the first character that is not a digit ("3.7" gives 3).
std::int64_t scan_int(std::string_view text);
double scan_real(std::string_view text);
// Same, but tells whether any number was found.
std::optional<std::int64_t> try_scan_int(std::string_view text);
std::optional<double> try_scan_real(std::string_view text);

// Text of a value: the rest of the line without its line end.
std::string scan_text(std::string_view text);

// Copies text into a fixed-width field of the record: at most width - 1 characters,
// as a char array of that width holds.
std::string fit_field(std::string_view text, std::size_t width);

// Nearest integer, halves away from zero (the run-time's RoundRealToNearestInteger).
int round_to_int(double v);

}  // namespace vx
