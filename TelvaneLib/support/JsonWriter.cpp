// The rules of the JSON library's formatted printer: an object's members have a line each, indented by one
// tabulator for each level around them, with a tabulator after the colon, and an empty object has two lines. An
// array is one line, with a space after each comma, and counts as a level for the objects in it. In strings `"`,
// `\` and the characters below 32 are escaped; everything else is printed as it is, valid UTF-8 or not.
//
// The buffer has room for one more piece after the limit. So pieces of bounded length, such as numbers, are written
// without checking the limit, and text beyond it is cut at the end.

#include "support/JsonWriter.h"

#include "support/NumberText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <new>

namespace Telvane
{

namespace
{

constexpr std::size_t kFirstSize = 1024;
constexpr std::size_t kMaxPieceSize = 96;
static_assert(kNumberTextSize <= kMaxPieceSize, "a number is a piece");

/// For each character 0 when it stands for itself, `u` when it is written as a code, else the letter of its escape.
constexpr std::array<char, 256> makeEscapes()
{
    std::array<char, 256> escapes = {};
    for (std::size_t c = 0; c < 32; ++c) {
        escapes[c] = 'u';
    }
    escapes['"'] = '"';
    escapes['\\'] = '\\';
    escapes['\b'] = 'b';
    escapes['\f'] = 'f';
    escapes['\n'] = 'n';
    escapes['\r'] = 'r';
    escapes['\t'] = 't';
    return escapes;
}

constexpr auto kEscapes = makeEscapes();

char escapeOf(char c)
{
    return kEscapes[static_cast<unsigned char>(c)];
}

} // namespace

void JsonWriter::clear()
{
    m_next = m_buffer.get();
    m_failed = false;
}

void JsonWriter::grow(std::size_t size)
{
    const std::size_t used = position();
    const auto capacity = used + room();
    const std::size_t larger =
        std::min(std::max({kFirstSize, capacity * 2, used + size}), m_limit + kMaxPieceSize);
    if (larger == capacity || m_failed) {
        return;
    }
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[larger]);
    if (buffer == nullptr) {
        m_failed = true;
        return;
    }
    if (used > 0) {
        std::memcpy(buffer.get(), m_buffer.get(), used);
    }
    m_buffer = std::move(buffer);
    m_next = m_buffer.get() + used;
    m_end = m_buffer.get() + larger;
}

bool JsonWriter::reserve(std::size_t size)
{
    if (room() >= size) {
        return true;
    }
    grow(size);
    return room() >= size;
}

bool JsonWriter::reservePiece()
{
    if (!reserve(kMaxPieceSize)) {
        if (m_buffer == nullptr) {
            return false;
        }
        // Beyond the limit, or without memory, where it does not matter what is overwritten.
        m_next = m_end - kMaxPieceSize;
    }
    return true;
}

void JsonWriter::put(std::string_view text)
{
    if (!reserve(text.size())) {
        text = text.substr(0, room());
    }
    if (!text.empty()) {
        std::memcpy(m_next, text.data(), text.size());
        m_next += text.size();
    }
}

void JsonWriter::newLine(int depth)
{
    constexpr std::string_view kTabulators =
        "\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t";
    put("\n");
    for (; depth > 0; depth -= static_cast<int>(kTabulators.size())) {
        put(kTabulators.substr(0, static_cast<std::size_t>(depth)));
    }
}

void JsonWriter::key(std::string_view key, bool first, int depth)
{
    if (key.size() + static_cast<std::size_t>(depth) + 8 > kMaxPieceSize || !reservePiece()) {
        put(first ? "" : ",");
        newLine(depth);
        put("\"");
        put(key);
        put("\":\t");
        return;
    }
    char* to = m_next;
    if (!first) {
        *to++ = ',';
    }
    *to++ = '\n';
    for (; depth > 0; --depth) {
        *to++ = '\t';
    }
    *to++ = '"';
    to = std::copy(key.begin(), key.end(), to);
    *to++ = '"';
    *to++ = ':';
    *to++ = '\t';
    m_next = to;
}

void JsonWriter::integer(int value)
{
    if (reservePiece()) {
        m_next = std::to_chars(m_next, m_end, value).ptr;
    }
}

void JsonWriter::number(double value)
{
    if (reservePiece()) {
        m_next = formatNumber(value, m_next);
    }
}

void JsonWriter::flag(bool value)
{
    put(value ? "true" : "false");
}

void JsonWriter::string(const char* value)
{
    put("\"");
    for (;;) {
        const char* end = value;
        while (escapeOf(*end) == 0) {
            ++end;
        }
        put(std::string_view(value, static_cast<std::size_t>(end - value)));
        if (*end == '\0') {
            break;
        }
        escape(*end);
        value = end + 1;
    }
    put("\"");
}

void JsonWriter::escape(char c)
{
    constexpr const char* kHexDigits = "0123456789abcdef";
    const char letter = escapeOf(c);
    if (letter != 'u') {
        put({std::array<char, 2>{'\\', letter}.data(), 2});
        return;
    }
    put("\\u00");
    put({kHexDigits + c / 16, 1});
    put({kHexDigits + c % 16, 1});
}

/// One short frame for each level: the deepest payload must fit on the smallest stack.
void JsonWriter::tree(const cJSON* value, int depth)
{
    const bool isObject = cJSON_IsObject(value) != 0;
    if (!isObject && cJSON_IsArray(value) == 0) {
        scalar(value);
        return;
    }
    put(isObject ? "{" : "[");
    for (const cJSON* item = value->child; item != nullptr; item = item->next) {
        separate(item, item == value->child, isObject, depth + 1);
        tree(item, depth + 1);
    }
    if (isObject) {
        newLine(depth);
    }
    put(isObject ? "}" : "]");
}

/// What is before an element, or before the value of a member.
void JsonWriter::separate(const cJSON* item, bool first, bool isMember, int depth)
{
    if (!isMember) {
        put(first ? "" : ", ");
        return;
    }
    put(first ? "" : ",");
    newLine(depth);
    string(item->string != nullptr ? item->string : "");
    put(":\t");
}

void JsonWriter::scalar(const cJSON* value)
{
    switch (value->type & 0xFF) {
    case cJSON_NULL:
        return put("null");
    case cJSON_False:
        return put("false");
    case cJSON_True:
        return put("true");
    case cJSON_Number:
        return number(value->valuedouble);
    case cJSON_String:
        return string(value->valuestring != nullptr ? value->valuestring : "");
    case cJSON_Raw:
        return value->valuestring != nullptr ? put(value->valuestring) : fail();
    default:
        fail();
    }
}

const char* JsonWriter::finish()
{
    if (!reservePiece() || m_failed) {
        return nullptr;
    }
    rewind(std::min(position(), m_limit));
    *m_next = '\0';
    return m_buffer.get();
}

} // namespace Telvane
