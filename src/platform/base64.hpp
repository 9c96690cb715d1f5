// Base64 (RFC 4648, standard alphabet, with padding) for binary arrays carried
// in XML exchange files. OpenSSL's block coder does the work; this wraps its
// quirks: the decoder ignores padding when it counts bytes, refuses line
// breaks inside the text, and accepts a length that is not a multiple of four.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vx {

// Encodes bytes as one line of base64 text with "=" padding.
std::string base64_encode(const void* data, std::size_t size);
inline std::string base64_encode(std::string_view bytes) { return base64_encode(bytes.data(), bytes.size()); }

// Decodes base64 text. Whitespace anywhere (line breaks of an XML writer) is
// skipped. Missing padding is accepted (some writers leave it off); a
// character outside the alphabet, padding in the middle or a dangling single
// character gives nullopt.
std::optional<std::vector<std::uint8_t>> base64_decode(std::string_view text);

}  // namespace vx
