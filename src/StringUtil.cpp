// String helpers: tokens, numbers from text, rounding and substitution.
#include "StringUtil.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <stdexcept>

const std::string StringUtil::NEW_LINE_DELIMIER = "\n";
const std::string StringUtil::MARKUP_NEW_LINE_DELIMITER = "<br>";

std::string StringUtil::StringReplace(std::string source, std::string pattern,
                                      std::string replacement) {
    // One substitution only: templates with a repeated placeholder call this once per use.
    size_t pos = source.find(pattern);
    if (pos == std::string::npos) return source;
    source.erase(pos, pattern.size());
    source.insert(pos, replacement);
    return source;
}

std::string StringUtil::GetColorTagedString(int red, int green, int blue, int alpha, int fontSize,
                                            const std::string& text, std::string font) {
    char tag[256];
    if (font.empty())
        snprintf(tag, sizeof tag, "<color=#%02x%02x%02x%02x font_size=%d>", red, green, blue, alpha,
                 fontSize);
    else
        snprintf(tag, sizeof tag, "<color=#%02x%02x%02x%02x font_size=%d font=%s>", red, green,
                 blue, alpha, fontSize, font.c_str());
    return std::string(tag) + text + "</color>";
}

int StringUtil::StringToInt(const std::string& text) {
    int value = 0;
    std::istringstream in(text);
    in >> value;
    return value;
}

int64_t StringUtil::StringToInt64(const std::string& text) {
    // Read unsigned so that a leading minus wraps the way the stream does it, then reinterpret.
    uint64_t value = 0;
    std::istringstream in(text);
    in >> value;
    if (in.fail() || in.bad()) throw std::runtime_error(text);
    return static_cast<int64_t>(value);
}

float StringUtil::StringToFloat(const std::string& text) {
    float value = 0;
    std::istringstream in(text);
    in >> value;
    return value;
}

double StringUtil::StringToDouble(const std::string& text) {
    double value = 0;
    std::istringstream in(text);
    in >> value;
    return value;
}

std::vector<std::string> StringUtil::Tokenize(const std::string& text,
                                              const std::string& delimiters) {
    std::vector<std::string> tokens;
    size_t start = text.find_first_not_of(delimiters);
    size_t end = text.find_first_of(delimiters, start);
    while (start != std::string::npos || end != std::string::npos) {
        tokens.push_back(text.substr(start, end == std::string::npos ? end : end - start));
        start = text.find_first_not_of(delimiters, end);
        end = text.find_first_of(delimiters, start);
    }
    return tokens;
}

std::string StringUtil::ReplaceToMarkUpNewLineTagFromNewLineSymbol(std::string text) {
    std::vector<std::string> lines = Tokenize(text, NEW_LINE_DELIMIER);
    std::string out;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i) out += MARKUP_NEW_LINE_DELIMITER;
        out += lines[i];
    }
    return out;
}

std::string StringUtil::IntToHexaStringBy8Bit(int value) {
    if (value == 0) return "00";
    std::ostringstream out;
    // The leading zero goes up to and including 16, which therefore prints as "010".
    if (value <= 16) out << "0";
    out << std::hex << value;
    return out.str();
}

std::string StringUtil::IntToString(int value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

std::string StringUtil::Int64ToString(int64_t value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

std::string StringUtil::FloatToString(float value) {
    if (std::isnan(value)) value = 0;
    std::ostringstream out;
    out << static_cast<double>(value);
    return out.str();
}

std::string StringUtil::RoundOffToString(float value, int decimals) {
    std::string text = FloatToString(value);
    if (value == 0) return text;
    size_t point = text.find('.');
    if (point == std::string::npos) return text;
    // Cuts the text: the name promises rounding, the callers rely on truncation.
    long long length = static_cast<long long>(point) + decimals + (decimals != 0 ? 1 : 0);
    length = std::max(0LL, std::min(length, static_cast<long long>(text.size())));
    return text.substr(0, static_cast<size_t>(length));
}

std::string StringUtil::DoubleToString(double value, int precision) {
    if (std::isnan(value)) value = 0;
    std::ostringstream out;
    out << std::fixed;
    if (precision > 0) out.precision(precision);
    out << value;
    return out.str();
}
