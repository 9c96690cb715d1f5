#include "platform/base64.hpp"

#include <climits>

#include <openssl/evp.h>

namespace vx {

namespace {

// EVP_EncodeBlock / EVP_DecodeBlock take int lengths: work in pieces well below
// INT_MAX. A piece is a multiple of 3 input bytes (encoding) or 4 characters
// (decoding), so the pieces join without padding in between.
constexpr std::size_t ENCODE_PIECE = 3u << 24;  // 48 MiB of input
constexpr std::size_t DECODE_PIECE = 4u << 24;  // 64 MiB of text

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

bool in_alphabet(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

}  // namespace

std::string base64_encode(const void* data, std::size_t size) {
    const auto* in = static_cast<const unsigned char*>(data);
    std::string out;
    out.resize(4 * ((size + 2) / 3));
    std::size_t written = 0;
    for (std::size_t at = 0; at < size; at += ENCODE_PIECE) {
        const std::size_t n = std::min(ENCODE_PIECE, size - at);
        // EVP_EncodeBlock writes a terminating NUL behind the text: the piece's
        // room is 4 ceil(n/3) + 1, which the next piece (or the spare below) covers.
        std::string piece(4 * ((n + 2) / 3) + 1, '\0');
        const int got = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(piece.data()), in + at, static_cast<int>(n));
        out.replace(written, static_cast<std::size_t>(got), piece.data(), static_cast<std::size_t>(got));
        written += static_cast<std::size_t>(got);
    }
    out.resize(written);
    return out;
}

std::optional<std::vector<std::uint8_t>> base64_decode(std::string_view text) {
    // Keep only the alphabet and the padding; check the padding stands at the end.
    std::string clean;
    clean.reserve(text.size());
    std::size_t pad = 0;
    for (char c : text) {
        if (is_space(c)) continue;
        if (c == '=') {
            ++pad;
            continue;
        }
        if (!in_alphabet(c) || pad != 0) return std::nullopt;  // foreign character, or data behind padding
        clean.push_back(c);
    }
    if (pad > 2) return std::nullopt;
    // Four characters give three bytes; a rest of 2 or 3 characters gives 1 or 2
    // bytes, a rest of 1 is no encoding at all.
    const std::size_t rest = clean.size() % 4;
    if (rest == 1) return std::nullopt;
    if (pad != 0 && (rest == 0 || rest + pad != 4)) return std::nullopt;
    const std::size_t bytes = clean.size() / 4 * 3 + (rest == 0 ? 0 : rest - 1);
    const std::size_t missing = rest == 0 ? 0 : 4 - rest;
    clean.append(missing, '=');  // EVP_DecodeBlock wants whole quads

    std::vector<std::uint8_t> out(clean.size() / 4 * 3);
    std::size_t written = 0;
    for (std::size_t at = 0; at < clean.size(); at += DECODE_PIECE) {
        const std::size_t n = std::min(DECODE_PIECE, clean.size() - at);
        const int got = EVP_DecodeBlock(out.data() + written,
                                        reinterpret_cast<const unsigned char*>(clean.data() + at),
                                        static_cast<int>(n));
        if (got < 0) return std::nullopt;
        written += static_cast<std::size_t>(got);
    }
    // The decoder counts the padding as zero bytes: cut back to the true length.
    out.resize(bytes);
    return out;
}

}  // namespace vx
