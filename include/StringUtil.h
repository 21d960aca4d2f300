// String helpers: tokens, numbers from text, rounding and substitution.
#ifndef STRING_UTIL_H
#define STRING_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

/**
 * @brief Stateless text conversions: numbers to text and back, tokenising, template substitution
 * and two mark-up helpers for text widgets.
 *
 * Construct one on the stack or call the operations directly; nothing is shared between calls.
 */
class StringUtil {
public:
    /** @brief A stateless helper; nothing to set up. */
    StringUtil() {}
    /** @brief Nothing to release. */
    virtual ~StringUtil() {}

    /** @brief "\n": the line break that the mark-up conversion splits on. */
    static const std::string NEW_LINE_DELIMIER;
    /** @brief "<br>": the line break of the mark-up text. */
    static const std::string MARKUP_NEW_LINE_DELIMITER;

    /** @brief source with the first occurrence of pattern replaced (an empty pattern prefixes). */
    static std::string StringReplace(std::string source, std::string pattern,
                                     std::string replacement);
    /** @brief text wrapped in a colour/font-size (and font, when given) tag of at most 255 bytes.
     */
    static std::string GetColorTagedString(int red, int green, int blue, int alpha, int fontSize,
                                           const std::string& text, std::string font);
    /** @brief The leading decimal integer of text; 0 when there is none, clamped when too large. */
    static int StringToInt(const std::string& text);
    /** @brief The leading integer of text; throws std::runtime_error(text) when there is none. */
    static int64_t StringToInt64(const std::string& text);
    /** @brief The leading number of text as a float; 0 when there is none. */
    static float StringToFloat(const std::string& text);
    /** @brief The leading number of text as a double; 0 when there is none. */
    static double StringToDouble(const std::string& text);
    /** @brief The non-empty runs of text between characters of the delimiter set. */
    static std::vector<std::string> Tokenize(const std::string& text,
                                             const std::string& delimiters);
    /** @brief The non-empty lines of text joined with "<br>". */
    static std::string ReplaceToMarkUpNewLineTagFromNewLineSymbol(std::string text);
    /** @brief Lower-case hexadecimal of a byte with a leading zero up to 16 ("0f", "010"). */
    static std::string IntToHexaStringBy8Bit(int value);
    /** @brief Decimal text of an int. */
    static std::string IntToString(int value);
    /** @brief Decimal text of a 64-bit int. */
    static std::string Int64ToString(int64_t value);
    /** @brief Six significant digits in general notation; NaN prints as 0. */
    static std::string FloatToString(float value);
    /** @brief FloatToString cut (not rounded) after the given number of decimals. */
    static std::string RoundOffToString(float value, int decimals);
    /** @brief Fixed notation with the given precision (6 when not positive); NaN prints as 0. */
    static std::string DoubleToString(double value, int precision);
};

#endif
