// The text conversions on arbitrary input; only StringToInt64 may throw, and only its own error.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "StringUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    int number = static_cast<int>(data[0]) - 128 + (static_cast<int>(data[1]) << 4);
    std::string text(reinterpret_cast<const char*>(data + 2), size - 2);
    size_t split = text.size() / 2;
    std::string left = text.substr(0, split), right = text.substr(split);

    StringUtil::StringReplace(text, left, right);
    StringUtil::GetColorTagedString(number, -number, number * 7, 255, number, left, right);
    StringUtil::StringToInt(text);
    try {
        StringUtil::StringToInt64(text);
    } catch (const std::runtime_error&) {
    }
    float f = StringUtil::StringToFloat(text);
    double d = StringUtil::StringToDouble(text);
    StringUtil::Tokenize(left, right);
    StringUtil::ReplaceToMarkUpNewLineTagFromNewLineSymbol(text);
    StringUtil::IntToHexaStringBy8Bit(number);
    StringUtil::FloatToString(f);
    StringUtil::RoundOffToString(f, number % 12);
    StringUtil::DoubleToString(d, number % 20);
    return 0;
}
