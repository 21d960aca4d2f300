#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "StringUtil.h"

namespace {

using V = std::vector<std::string>;

TEST(StringUtilTest, ReplaceTouchesOnlyTheFirstOccurrence) {
    StringUtil util;  // instantiable, as callers use it
    EXPECT_EQ("aXb%s", util.StringReplace("a%sb%s", "%s", "X"));
    EXPECT_EQ("aXbY",
              StringUtil::StringReplace(StringUtil::StringReplace("a%sb%s", "%s", "X"), "%s", "Y"));
    EXPECT_EQ("abc", StringUtil::StringReplace("abc", "zz", "X"));
    EXPECT_EQ("Xabc", StringUtil::StringReplace("abc", "", "X"));
    EXPECT_EQ("", StringUtil::StringReplace("abc", "abc", ""));
    EXPECT_EQ("q=LONG_VALUE&k=1", StringUtil::StringReplace("q={V}&k=1", "{V}", "LONG_VALUE"));
}

TEST(StringUtilTest, ColourTags) {
    EXPECT_EQ("<color=#ff0010ff font_size=30>Hi</color>",
              StringUtil::GetColorTagedString(255, 0, 16, 255, 30, "Hi", ""));
    EXPECT_EQ("<color=#ff0010ff font_size=30 font=Bold>Hi</color>",
              StringUtil::GetColorTagedString(255, 0, 16, 255, 30, "Hi", "Bold"));
    // Components are not clamped.
    EXPECT_EQ("<color=#100ffffffff0102 font_size=-1></color>",
              StringUtil::GetColorTagedString(256, -1, 1, 2, -1, "", ""));
    // The tag is cut at 255 bytes; the text is not.
    std::string font(400, 'f');
    std::string text(300, 't');
    std::string tagged = StringUtil::GetColorTagedString(1, 2, 3, 4, 5, text, font);
    EXPECT_EQ(255u + 300u + 8u, tagged.size());
    EXPECT_EQ("<color=#01020304 font_size=5 font=fff", tagged.substr(0, 37));
    EXPECT_EQ(text + "</color>", tagged.substr(255));
}

TEST(StringUtilTest, TextToNumbersIsSilentExceptForInt64) {
    EXPECT_EQ(12, StringUtil::StringToInt("12abc"));
    EXPECT_EQ(0, StringUtil::StringToInt("abc"));
    EXPECT_EQ(-7, StringUtil::StringToInt("  -7"));
    EXPECT_EQ(INT_MAX, StringUtil::StringToInt("99999999999"));
    EXPECT_EQ(INT_MIN, StringUtil::StringToInt("-99999999999"));

    EXPECT_EQ(1471234567890LL, StringUtil::StringToInt64("1471234567890"));
    EXPECT_EQ(-5, StringUtil::StringToInt64("-5"));  // wraps through the unsigned read
    EXPECT_EQ(42, StringUtil::StringToInt64("42abc"));
    for (const std::string bad : {"abc", "", "99999999999999999999999"}) {
        try {
            StringUtil::StringToInt64(bad);
            ADD_FAILURE() << "no exception for '" << bad << "'";
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(bad, e.what());
        }
    }

    EXPECT_EQ(1013.25f, StringUtil::StringToFloat("1013.25hPa"));
    EXPECT_EQ(0.0f, StringUtil::StringToFloat("hPa"));
    EXPECT_EQ(-37.123456, StringUtil::StringToDouble("-37.123456"));
    EXPECT_EQ(0.0, StringUtil::StringToDouble(""));
    EXPECT_EQ(1e300, StringUtil::StringToDouble("1e300"));
}

TEST(StringUtilTest, TokenizeCollapsesDelimiters) {
    EXPECT_EQ((V{"a", "b"}), StringUtil::Tokenize(",,a,,b,", ","));
    EXPECT_EQ(V{}, StringUtil::Tokenize("", ","));
    EXPECT_EQ(V{}, StringUtil::Tokenize(";,;", ",;"));
    EXPECT_EQ((V{"k", "v", "w"}), StringUtil::Tokenize("k=v;w", "=;"));
    EXPECT_EQ(V{"whole"}, StringUtil::Tokenize("whole", ","));
    EXPECT_EQ(V{"whole"}, StringUtil::Tokenize("whole", ""));
}

TEST(StringUtilTest, MarkUpLineBreaks) {
    EXPECT_EQ("a<br>b", StringUtil::ReplaceToMarkUpNewLineTagFromNewLineSymbol("a\n\nb\n"));
    EXPECT_EQ("", StringUtil::ReplaceToMarkUpNewLineTagFromNewLineSymbol("\n\n"));
    EXPECT_EQ("a\r<br>b", StringUtil::ReplaceToMarkUpNewLineTagFromNewLineSymbol("a\r\nb"));
    EXPECT_EQ("\n", StringUtil::NEW_LINE_DELIMIER);
    EXPECT_EQ("<br>", StringUtil::MARKUP_NEW_LINE_DELIMITER);
}

TEST(StringUtilTest, HexByteKeepsItsBoundaryAtSixteen) {
    const std::pair<int, const char*> cases[] = {{0, "00"},    {1, "01"},        {15, "0f"},
                                                 {16, "010"},  {17, "11"},       {255, "ff"},
                                                 {256, "100"}, {-1, "0ffffffff"}};
    for (const auto& [value, text] : cases)
        EXPECT_EQ(text, StringUtil::IntToHexaStringBy8Bit(value)) << value;
}

TEST(StringUtilTest, NumbersToText) {
    EXPECT_EQ("-123", StringUtil::IntToString(-123));
    EXPECT_EQ("2147483647", StringUtil::IntToString(INT_MAX));
    EXPECT_EQ("-9223372036854775808",
              StringUtil::Int64ToString(std::numeric_limits<int64_t>::min()));

    EXPECT_EQ("1013.25", StringUtil::FloatToString(1013.25f));
    EXPECT_EQ("0.1", StringUtil::FloatToString(0.1f));
    EXPECT_EQ("1.23457e+07", StringUtil::FloatToString(12345678.0f));
    EXPECT_EQ("0", StringUtil::FloatToString(0.0f));
    EXPECT_EQ("0", StringUtil::FloatToString(std::nanf("")));
    EXPECT_EQ("inf", StringUtil::FloatToString(INFINITY));
    EXPECT_EQ("-inf", StringUtil::FloatToString(-INFINITY));

    EXPECT_EQ("1013.26", StringUtil::DoubleToString(1013.256, 2));
    EXPECT_EQ("5.000000", StringUtil::DoubleToString(5.0, 0));
    EXPECT_EQ("5.000000", StringUtil::DoubleToString(5.0, -3));
    EXPECT_EQ("0.00", StringUtil::DoubleToString(NAN, 2));
    EXPECT_EQ("-37.813600", StringUtil::DoubleToString(-37.8136, 6));
    EXPECT_EQ("144.963100", StringUtil::DoubleToString(144.9631, 6));
}

TEST(StringUtilTest, RoundOffCutsTheText) {
    EXPECT_EQ("1013.7", StringUtil::RoundOffToString(1013.789f, 1));
    EXPECT_EQ("1013", StringUtil::RoundOffToString(1013.75f, 0));
    EXPECT_EQ("1013.7", StringUtil::RoundOffToString(1013.75f, 1));
    EXPECT_EQ("1013.75", StringUtil::RoundOffToString(1013.75f, 2));
    EXPECT_EQ("1013.75", StringUtil::RoundOffToString(1013.75f, 9));  // clamped to the text
    EXPECT_EQ("0", StringUtil::RoundOffToString(0.0f, 2));
    EXPECT_EQ("-0", StringUtil::RoundOffToString(-0.5f, 0));
    EXPECT_EQ("1013", StringUtil::RoundOffToString(1013.0f, 2));  // no point at all
    // Exponent notation has a point too, and is cut like any other text.
    EXPECT_EQ("1.2", StringUtil::RoundOffToString(12345678.0f, 1));
    EXPECT_EQ("", StringUtil::RoundOffToString(1.5f, -5));
}

}  // namespace
