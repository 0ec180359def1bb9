// The rules of the JSON library's formatted printing:
//
// - each member of an object has a line, indented by a tab per level, with a tab after the colon. An empty
//   object has two lines;
// - an array is one line, with a space after each comma. It counts as a level for the objects in it;
// - in strings `"`, `\` and the characters below 32 are escaped, everything else is printed as it is, valid
//   UTF-8 or not. A zero ends a string, so its escape is never printed;
// - a number has 15 significant digits, or 17 where 15 give another number. A text of at most 15 digits is
//   unchanged by reading and printing if it has the printer's layout: no leading zeros before the point, no
//   trailing zeros after it, no exponent from 0.0001 to 10^15. Any other text is printed and compared.

#include "transport/PrintedJson.h"

#include "support/NumberText.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>

namespace Telvane
{

namespace
{

constexpr int kMaxDigits = 15;
constexpr int kMaxLevels = 63;

/// Characters that are printed as they are in a string.
constexpr std::array<bool, 256> plainCharacters()
{
    std::array<bool, 256> plain = {};
    for (std::size_t c = ' '; c < plain.size(); ++c) {
        plain[c] = c != '"' && c != '\\';
    }
    return plain;
}

constexpr auto kPlain = plainCharacters();

bool isPlain(const char* text)
{
    return kPlain[static_cast<unsigned char>(*text)];
}

/// Checks four characters at a time, which saves a quarter of the time.
const char* skipPlain(const char* text)
{
    for (;; text += 4) {
        for (int i = 0; i < 4; ++i) {
            if (!isPlain(text + i)) {
                return text + i;
            }
        }
    }
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

const char* skipDigits(const char* text)
{
    while (isDigit(*text)) {
        ++text;
    }
    return text;
}

/// \param text position after a backslash
const char* skipEscape(const char* text)
{
    switch (*text) {
    case '"':
    case '\\':
    case 'b':
    case 'f':
    case 'n':
    case 'r':
    case 't':
        return text + 1;
    case 'u':
        break;
    default:
        return nullptr;
    }
    // Control characters without a one-letter escape, in lower case.
    if (text[1] != '0' || text[2] != '0' || (text[3] != '0' && text[3] != '1')) {
        return nullptr;
    }
    const char last = text[4];
    if (text[3] == '1') {
        return isDigit(last) || (last >= 'a' && last <= 'f') ? text + 5 : nullptr;
    }
    return (last >= '1' && last <= '7') || last == 'b' || last == 'e' || last == 'f' ? text + 5 : nullptr;
}

/// For numbers that no rule above covers.
const char* skipNumberByPrinting(const char* text)
{
    const char* end = text;
    while (isDigit(*end) || *end == '.' || *end == 'e' || *end == '+' || *end == '-') {
        ++end;
    }
    char printed[kNumberTextSize];
    const std::ptrdiff_t length = end - text;
    double value = 0.0;
    if (length >= kNumberTextSize || std::from_chars(text, end, value).ec != std::errc() ||
        formatNumber(value, printed) - printed != length ||
        std::memcmp(text, printed, static_cast<std::size_t>(length)) != 0) {
        return nullptr;
    }
    return end;
}

const char* skipWord(const char* text, const char* word)
{
    for (; *word != '\0'; ++word, ++text) {
        if (*text != *word) {
            return nullptr;
        }
    }
    return text;
}

/// \param text position at the end of the previous line
/// \return the position after the indentation
const char* skipNewLine(const char* text, int depth)
{
    if (*text != '\n') {
        return nullptr;
    }
    for (++text; depth > 0; --depth, ++text) {
        if (*text != '\t') {
            return nullptr;
        }
    }
    return text;
}

/// \return the position of the member's value
const char* skipMemberKey(const char* text)
{
    if (text == nullptr || *text != '"') {
        return nullptr;
    }
    text = skipPrintedString(text);
    return text != nullptr && text[0] == ':' && text[1] == '\t' ? text + 2 : nullptr;
}

} // namespace

const char* skipPrintedString(const char* text)
{
    for (++text;;) {
        text = skipPlain(text);
        if (*text == '"') {
            return text + 1;
        }
        text = *text == '\\' ? skipEscape(text + 1) : nullptr;
        if (text == nullptr) {
            return nullptr;
        }
    }
}

const char* skipPrintedNumber(const char* const text)
{
    const char* const whole = *text == '-' ? text + 1 : text;
    const char* at = skipDigits(whole);
    auto digits = at - whole;
    const bool startsWithZero = *whole == '0';
    if (digits == 0 || (startsWithZero && digits > 1)) {
        return nullptr;
    }
    if (*at == '.') {
        const char* const fraction = at + 1;
        const char* significant = fraction;
        if (startsWithZero) {
            while (*significant == '0') {
                ++significant;
            }
            digits = 0;
        }
        at = skipDigits(significant);
        digits += at - significant;
        if (at == significant || at[-1] == '0' || significant - fraction > 3) {
            return skipNumberByPrinting(text);
        }
    } else if (startsWithZero && whole != text) {
        return skipNumberByPrinting(text);
    }
    return digits <= kMaxDigits && *at != 'e' ? at : skipNumberByPrinting(text);
}

const char* skipPrintedValue(const char* text, int depth)
{
    const int outside = depth;
    std::uint64_t objects = 0; // bit 0 is the innermost level: 1 for an object, 0 for an array
    for (;;) {
        // Start of a value.
        switch (*text) {
        case '"':
            text = skipPrintedString(text);
            break;
        case '{':
            text = skipNewLine(text + 1, depth);
            if (text == nullptr) {
                return nullptr;
            }
            if (*text == '}') {
                ++text;
                break;
            }
            if (*text != '\t' || depth == kMaxLevels) {
                return nullptr;
            }
            ++depth;
            objects = objects << 1 | 1;
            text = skipMemberKey(text + 1);
            if (text == nullptr) {
                return nullptr;
            }
            continue;
        case '[':
            if (text[1] == ']') {
                text += 2;
                break;
            }
            if (depth == kMaxLevels) {
                return nullptr;
            }
            ++depth;
            objects <<= 1;
            ++text;
            continue;
        case 't':
            text = skipWord(text, "true");
            break;
        case 'f':
            text = skipWord(text, "false");
            break;
        case 'n':
            text = skipWord(text, "null");
            break;
        default:
            text = skipPrintedNumber(text);
        }
        // End of a value, and perhaps of those around it.
        for (;;) {
            if (text == nullptr || depth == outside) {
                return text;
            }
            if (*text == ',') {
                break;
            }
            --depth;
            const bool inObject = (objects & 1) != 0;
            objects >>= 1;
            if (inObject) {
                text = skipNewLine(text, depth);
            }
            if (text == nullptr || *text != (inObject ? '}' : ']')) {
                return nullptr;
            }
            ++text;
        }
        if ((objects & 1) != 0) {
            text = skipMemberKey(skipNewLine(text + 1, depth));
        } else {
            text = text[1] == ' ' ? text + 2 : nullptr;
        }
        if (text == nullptr) {
            return nullptr;
        }
    }
}

} // namespace Telvane
