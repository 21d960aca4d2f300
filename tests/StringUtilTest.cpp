#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "StringUtil.h"

namespace {

using V = std::vector<std::string>;
using S = StringUtil;

TEST(StringUtilTest, TextTransformations) {
    const std::pair<std::string, std::string> cases[] = {
        // Only the first occurrence is replaced.
        {S::StringReplace("a%sb%s", "%s", "X"), "aXb%s"},
        {S::StringReplace("abc", "zz", "X"), "abc"},
        {S::StringReplace("abc", "", "X"), "Xabc"},
        {S::StringReplace("q={V}&k=1", "{V}", "LONG_VALUE"), "q=LONG_VALUE&k=1"},
        // Colour components are not clamped.
        {S::GetColorTagedString(255, 0, 16, 255, 30, "Hi", ""),
         "<color=#ff0010ff font_size=30>Hi</color>"},
        {S::GetColorTagedString(256, -1, 1, 2, -1, "", "Bold"),
         "<color=#100ffffffff0102 font_size=-1 font=Bold></color>"},
        {S::ReplaceToMarkUpNewLineTagFromNewLineSymbol("a\n\nb\n"), "a<br>b"},
        {S::ReplaceToMarkUpNewLineTagFromNewLineSymbol("a\r\nb\nc"), "a\r<br>b<br>c"},
        {S::ReplaceToMarkUpNewLineTagFromNewLineSymbol("\n\n"), ""},
    };
    for (const auto& [got, expected] : cases) EXPECT_EQ(expected, got);
    // The tag is cut at 255 bytes; the text is not.
    std::string tagged =
        S::GetColorTagedString(1, 2, 3, 4, 5, std::string(300, 't'), std::string(400, 'f'));
    EXPECT_EQ("<color=#01020304 font_size=5 font=fff", tagged.substr(0, 37));
    EXPECT_EQ(std::string(300, 't') + "</color>", tagged.substr(255));
}

TEST(StringUtilTest, TokenizeCollapsesDelimiters) {
    const std::pair<V, V> cases[] = {
        {S::Tokenize(",,a,,bc,", ","), V{"a", "bc"}},
        {S::Tokenize("", ","), V{}},
        {S::Tokenize(";,;", ",;"), V{}},
        {S::Tokenize("k=v;w", "=;"), V{"k", "v", "w"}},
        {S::Tokenize("whole", ","), V{"whole"}},
    };
    for (const auto& [got, expected] : cases) EXPECT_EQ(expected, got);
}

TEST(StringUtilTest, NumbersFromText) {
    EXPECT_EQ(12, S::StringToInt("12abc"));
    EXPECT_EQ(0, S::StringToInt("abc"));
    EXPECT_EQ(INT_MAX, S::StringToInt("99999999999"));
    EXPECT_EQ(1471234567890LL, S::StringToInt64("1471234567890"));
    EXPECT_EQ(-5, S::StringToInt64("-5"));  // wraps through the unsigned read
    for (const std::string bad : {"abc", "", "99999999999999999999999"}) {
        try {
            S::StringToInt64(bad);
            ADD_FAILURE() << "no exception for '" << bad << "'";
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(bad, e.what());
        }
    }
    EXPECT_EQ(1013.25f, S::StringToFloat("1013.25hPa"));
    EXPECT_EQ(0.0f, S::StringToFloat("hPa"));
    EXPECT_EQ(-37.123456, S::StringToDouble("-37.123456"));
    EXPECT_EQ(0.0, S::StringToDouble("x"));
}

TEST(StringUtilTest, NumbersToText) {
    const std::pair<std::string, std::string> cases[] = {
        {S::IntToHexaStringBy8Bit(0), "00"},
        {S::IntToHexaStringBy8Bit(1), "01"},
        {S::IntToHexaStringBy8Bit(15), "0f"},
        {S::IntToHexaStringBy8Bit(16), "010"},
        {S::IntToHexaStringBy8Bit(17), "11"},
        {S::IntToHexaStringBy8Bit(-1), "0ffffffff"},
        {S::IntToString(-123), "-123"},
        {S::Int64ToString(INT64_MIN), "-9223372036854775808"},
        {S::FloatToString(1013.25f), "1013.25"},
        {S::FloatToString(12345678.0f), "1.23457e+07"},
        {S::FloatToString(std::nanf("")), "0"},
        {S::FloatToString(-INFINITY), "-inf"},
        {S::DoubleToString(1013.256, 2), "1013.26"},
        {S::DoubleToString(5.0, 0), "5.000000"},
        {S::DoubleToString(NAN, 2), "0.00"},
        {S::DoubleToString(1013.26, 1), "1013.3"},
        {S::DoubleToString(144.9631, 6), "144.963100"},
        // Rounding off cuts the text.
        {S::RoundOffToString(1013.789f, 1), "1013.7"},
        {S::RoundOffToString(1013.75f, 0), "1013"},
        {S::RoundOffToString(1013.75f, 2), "1013.75"},
        {S::RoundOffToString(1013.75f, 9), "1013.75"},
        {S::RoundOffToString(0.0f, 2), "0"},
        {S::RoundOffToString(-0.5f, 0), "-0"},
        {S::RoundOffToString(1013.0f, 2), "1013"},
        {S::RoundOffToString(12345678.0f, 1), "1.2"},
        {S::RoundOffToString(1.5f, -5), ""},
    };
    for (const auto& [got, expected] : cases) EXPECT_EQ(expected, got);
}

}  // namespace
