#include "common/text/PrintableText.h"

#include <algorithm>
#include <cstdio>

namespace TelvaneTool
{

namespace
{

constexpr std::string_view kReplacement = "\xEF\xBF\xBD"; // U+FFFD
constexpr std::size_t kMaxQuoted = 200;
constexpr std::size_t kMaxMessage = 4000;

unsigned byteAt(std::string_view text, std::size_t at)
{
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

/// \return the length of the UTF-8 character at \p at; 0 if it is invalid
std::size_t characterLength(std::string_view text, std::size_t at)
{
    const unsigned first = byteAt(text, at);
    const auto follows = [&](std::size_t offset, unsigned low = 0x80, unsigned high = 0xBF) {
        const unsigned byte = byteAt(text, at + offset);
        return byte >= low && byte <= high;
    };
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return follows(1) ? 2 : 0;
    }
    // The second byte excludes longer forms than necessary, surrogates, and numbers beyond U+10FFFF.
    if (first >= 0xE0 && first <= 0xEF) {
        const bool second = follows(1, first == 0xE0 ? 0xA0 : 0x80, first == 0xED ? 0x9F : 0xBF);
        return second && follows(2) ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const bool second = follows(1, first == 0xF0 ? 0x90 : 0x80, first == 0xF4 ? 0x8F : 0xBF);
        return second && follows(2) && follows(3) ? 4 : 0;
    }
    return 0;
}

bool isControl(std::string_view character)
{
    const unsigned first = byteAt(character, 0);
    return first < 0x20 || first == 0x7F || (first == 0xC2 && byteAt(character, 1) < 0xA0);
}

/// \return whether all characters are printable ASCII, newlines and tabs
bool isPlain(std::string_view text, Lines lines)
{
    return std::all_of(text.begin(), text.end(), [lines](char character) {
        return (character >= ' ' && character <= '~') ||
               (lines == Lines::Keep && (character == '\n' || character == '\t'));
    });
}

/// Copies a text, with \p writeControl in place of control characters.
/// \return the number of invalid sequences that were replaced
template <class WriteControl>
std::uint64_t copyPrintable(std::string_view text, std::string& result, WriteControl writeControl)
{
    std::uint64_t replaced = 0;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = characterLength(text, at);
        const std::string_view character = text.substr(at, std::max<std::size_t>(length, 1));
        if (length == 0) {
            result += kReplacement;
            ++replaced;
        } else if (isControl(character)) {
            writeControl(result, character);
        } else {
            result += character;
        }
        at += character.size();
    }
    return replaced;
}

/// \return at most \p size bytes of \p text, without half a character at the end
std::string_view firstBytes(std::string_view text, std::size_t size)
{
    while (size > 0 && (byteAt(text, size) & 0xC0U) == 0x80U) {
        --size;
    }
    return text.substr(0, size);
}

} // namespace

std::string printable(std::string_view text, Lines lines)
{
    if (isPlain(text, lines)) {
        return std::string(text);
    }
    std::string result;
    copyPrintable(text, result, [lines](std::string& target, std::string_view control) {
        const bool kept = lines == Lines::Keep && (control == "\n" || control == "\t");
        target += kept ? control.front() : '?';
    });
    return result;
}

std::string withShortQuotes(std::string_view message)
{
    std::string result;
    std::size_t at = 0;
    while (at < message.size()) {
        const std::size_t begin = std::min(message.find('"', at), message.size());
        const std::size_t end = std::min(message.find('"', begin + 1), message.size());
        result += message.substr(at, begin - at);
        const std::string_view quoted = message.substr(begin, end - begin);
        const bool closed = end < message.size();
        result += closed && quoted.size() > kMaxQuoted + 1
                      ? std::string(firstBytes(quoted, kMaxQuoted + 1)) + "..."
                      : std::string(quoted);
        result += closed ? "\"" : "";
        at = end + 1;
    }
    if (result.size() > kMaxMessage) {
        result = std::string(firstBytes(result, kMaxMessage)) + "...";
    }
    return result;
}

std::uint64_t makeJsonPrintable(std::string& json)
{
    if (isPlain(json, Lines::Keep)) {
        return 0;
    }
    std::string result;
    const std::uint64_t replaced =
        copyPrintable(json, result, [](std::string& target, std::string_view control) {
            const unsigned first = byteAt(control, 0);
            if (first < 0x20) {
                target += control; // between values; in strings the library has escaped it
                return;
            }
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", first == 0x7F ? 0x7FU : byteAt(control, 1));
            target += escape;
        });
    json.swap(result);
    return replaced;
}

} // namespace TelvaneTool
