// The string helpers on the texts the weather services and the store hand them.
#include <climits>
#include <cmath>
#include <stdexcept>

#include "HostFixture.h"
#include "StringUtil.h"

using S = StringUtil;
using namespace orvex_test;

TEST(StringUtilTest, TextResults) {
    const std::pair<std::string, std::string> cases[] = {
        {S::StringReplace("a%sb%s", "%s", "X"), "aXb%s"},  // the first occurrence only
        {S::StringReplace("abc", "zz", "X"), "abc"},
        {S::GetColorTagedString(255, 0, 16, 255, 30, "Hi", ""),
         "<color=#ff0010ff font_size=30>Hi</color>"},
        // The tag is cut at 255 bytes; the text is not.
        {S::GetColorTagedString(1, 2, 3, 4, 5, "tt", std::string(400, 'f')),
         "<color=#01020304 font_size=5 font=" + std::string(221, 'f') + "tt</color>"},
        {S::ReplaceToMarkUpNewLineTagFromNewLineSymbol("a\n\nb\r\nc\n"), "a<br>b\r<br>c"},
        {S::IntToHexaStringBy8Bit(0), "00"},
        {S::IntToHexaStringBy8Bit(16), "010"},
        {S::IntToHexaStringBy8Bit(17), "11"},
        {S::IntToHexaStringBy8Bit(-1), "0ffffffff"},
        {S::Int64ToString(INT64_MIN), "-9223372036854775808"},
        {S::FloatToString(std::nanf("")), "0"},
        {S::DoubleToString(1013.256, 2), "1013.26"},
        {S::DoubleToString(1013.26, 1), "1013.3"},
        {S::DoubleToString(5.0, 0), "5.000000"},
        {S::DoubleToString(NAN, 2), "0.00"},
        // Rounding off cuts the text.
        {S::RoundOffToString(1013.789f, 1), "1013.7"},
        {S::RoundOffToString(1013.75f, 0), "1013"},
        {S::RoundOffToString(1013.75f, 9), "1013.75"},
        {S::RoundOffToString(12345678.0f, 1), "1.2"},
        {S::RoundOffToString(1.5f, -5), ""},
    };
    for (const auto& [got, expected] : cases) EXPECT_EQ(expected, got);
}

TEST(StringUtilTest, TokensAndNumbersFromText) {
    // Runs of delimiters count as one.
    EXPECT_EQ((Lines{"a", "bc"}), S::Tokenize(",,a,,bc,", ","));
    EXPECT_EQ(Lines{}, S::Tokenize(";,;", ",;"));
    EXPECT_EQ((Lines{"k", "v", "w"}), S::Tokenize("k=v;w", "=;"));
    EXPECT_EQ(12, S::StringToInt("12abc"));
    EXPECT_EQ(INT_MAX, S::StringToInt("99999999999"));
    EXPECT_EQ(1471234567890LL, S::StringToInt64("1471234567890"));
    EXPECT_EQ(-5, S::StringToInt64("-5"));  // wraps through the unsigned read
    for (const std::string bad : {"abc", "", "99999999999999999999999"})
        EXPECT_THROW(S::StringToInt64(bad), std::runtime_error) << bad;
    EXPECT_EQ(1013.25f, S::StringToFloat("1013.25hPa"));
    EXPECT_EQ(-37.123456, S::StringToDouble("-37.123456"));
    // Nothing to read at all is zero as well.
    EXPECT_EQ(0.0f, S::StringToFloat(""));
    EXPECT_EQ(0.0, S::StringToDouble(" "));
}
