#include "platform/base64.hpp"

#include <gtest/gtest.h>

#include <random>

namespace vx {
namespace {

std::string as_text(const std::vector<std::uint8_t>& v) { return std::string(v.begin(), v.end()); }

TEST(Base64, KnownVectorsBothWays) {
    // The test vectors of RFC 4648 section 10: every padding length.
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, coded] : cases) {
        EXPECT_EQ(base64_encode(std::string_view(plain)), coded) << plain;
        auto back = base64_decode(coded);
        ASSERT_TRUE(back) << coded;
        EXPECT_EQ(as_text(*back), plain) << coded;
    }
}

TEST(Base64, DecoderTakesWhatWritersProduce) {
    struct Case {
        const char* text;
        const char* plain;
    };
    const Case cases[] = {
        {"Zm9v\nYmFy\n", "foobar"},          // line breaks of an XML writer
        {"  Zm9vYg==\r\n", "foob"},          // blanks around
        {"Zm9vYg", "foob"},                  // padding left off
        {"Zm9vYmE", "fooba"},
        {"Zm 9v YmFy", "foobar"},
    };
    for (const auto& c : cases) {
        auto back = base64_decode(c.text);
        ASSERT_TRUE(back) << c.text;
        EXPECT_EQ(as_text(*back), c.plain) << c.text;
    }
}

TEST(Base64, DecoderRefusesWhatIsNoEncoding) {
    for (const char* bad : {"Zm9v!", "Z", "Zm9vY", "Zm=9", "Zm9v=", "Zg===", "Zm9v\x80", "Zg==Zg=="}) {
        EXPECT_FALSE(base64_decode(bad)) << bad;
    }
}

TEST(Base64, BinaryArraysRoundTripBitExact) {
    std::mt19937 rng(7);
    for (std::size_t n : {1u, 2u, 3u, 4u, 1000u, 65537u, 1u << 20}) {
        std::vector<std::uint8_t> v(n);
        for (auto& b : v) b = static_cast<std::uint8_t>(rng());
        const std::string text = base64_encode(v.data(), v.size());
        EXPECT_EQ(text.size(), 4 * ((n + 2) / 3));
        auto back = base64_decode(text);
        ASSERT_TRUE(back);
        EXPECT_EQ(*back, v) << n;
    }
}

}  // namespace
}  // namespace vx
