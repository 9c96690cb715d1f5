#include "platform/keyscan.hpp"

#include <gtest/gtest.h>

namespace vx {
namespace {

TEST(KeyScan, FindPatternHonoursCaseAndStart) {
    struct Case {
        std::string text, pattern;
        bool cs;
        std::size_t start;
        int expect;
    };
    const std::vector<Case> cases = {
        {"Data Points: 16384", "data points:", false, 0, 0},
        {"Data Points: 16384", "data points:", true, 0, -1},
        {"x dbandwidth: 5", "Bandwidth:", true, 0, -1},
        {"x dbandwidth: 5", "Bandwidth:", false, 0, 3},
        {"SED Data: here", "Data:", false, 0, 4},
        {"Storage Type: int", "int", true, 13, 14},
        {"Storage Type: float", "int", true, 13, -1},
        {"abc", "abcd", false, 0, -1},
        {"abc", "", false, 2, 2},
        {"abc", "c", false, 9, -1},
        {std::string("a\0b:key", 7), "b:KEY", false, 0, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text + " / " + c.pattern);
        EXPECT_EQ(FindPattern(c.text, c.pattern, c.cs, c.start), c.expect);
    }
}

TEST(KeyScan, ValueStartsRightBehindTheKey) {
    auto v = value_behind("  prefix Trap Voltage:  -2.5 V", "Trap Voltage:", false);
    ASSERT_TRUE(v);
    EXPECT_EQ(*v, "  -2.5 V");
    EXPECT_FALSE(value_behind("nothing here", "Trap Voltage:", false));
}

TEST(KeyScan, NumbersAreReadAsFarAsTheyGo) {
    struct Case {
        std::string text;
        long long i;
        double r;
    };
    const std::vector<Case> cases = {
        {" 16384", 16384, 16384.0},
        {"\t-3.75e2 trailing", -3, -375.0},
        {"+12.5", 12, 12.5},
        {".5", 0, 0.5},
        {"Datacount= 7", 0, 0.0},   // a word first: nothing is read
        {"", 0, 0.0},
        {"inf", 0, 0.0},
        {"nan", 0, 0.0},
        {"0x1A", 0, 0.0},
        {"1e999", 1, 1.7976931348623157e308},
        {"99999999999999999999999", 9223372036854775807LL, 1e23},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(scan_int(c.text), c.i);
        EXPECT_DOUBLE_EQ(scan_real(c.text), c.r);
    }
    EXPECT_FALSE(try_scan_int("abc"));
    EXPECT_TRUE(try_scan_real("-0.0"));
}

TEST(KeyScan, TextFieldsAndRounding) {
    EXPECT_EQ(scan_text("Monday\r\n"), "Monday");
    EXPECT_EQ(fit_field("ABCDEFGHIJKL", 10), "ABCDEFGHI");
    EXPECT_EQ(fit_field("short", 10), "short");
    EXPECT_EQ(round_to_int(28.5), 29);
    EXPECT_EQ(round_to_int(-28.5), -29);
    EXPECT_EQ(round_to_int(1e300), 2147483647);
}

}  // namespace
}  // namespace vx
