// A program that forwards thousands of records a second must not make a tree of each. Nearly every payload is a record that
// the library has printed: the keys in the order of the list, and numbers and strings as they would be printed again. Its
// line is then the same text without the white space between the tokens. One pass checks that and copies the tokens.

#include "telvane-mqtt/channels/CompactPayload.h"

#include "common/bus/RecordCheck.h"
#include "common/text/JsonPrinter.h"
#include "common/text/PrintableText.h"

#include <Telvane/DateTime.h>

#include <charconv>
#include <cstring>
#include <limits>

namespace TelvaneTool::Mqtt
{

using Telvane::FieldKind;
using Telvane::RecordField;
using Telvane::RecordTable;

namespace
{

constexpr int kMaxLevels = 32; // more than any record has
constexpr std::ptrdiff_t kMaxDigits = 15;
constexpr std::ptrdiff_t kMaxLeadingZeros = 3; // smaller numbers have an exponent
constexpr std::size_t kMaxNumberLength = 63;   // the JSON library splits longer ones

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

/// Copies tokens. Operations return false for a text that would change if it were parsed and printed.
class Compactor
{
public:
    /// \param output as many bytes as \p payload
    Compactor(std::string_view payload, char* output)
        : m_at(payload.data()), m_end(m_at + payload.size()), m_output(output)
    {}

    bool isAtEnd() const { return m_at == m_end; }
    char* output() const { return m_output; }
    bool isPlain() const { return m_isPlain; }

    bool record(const RecordTable& table)
    {
        if (const Telvane::TextForm* const form = table.textForm()) {
            return isTimeStamp(table) && time(*form);
        }
        if (!token('{')) {
            return false;
        }
        bool first = true;
        for (const RecordField& field : table.fields()) {
            if (!key({field.key, field.keyLength}, first) || !value(field)) {
                return false;
            }
            first = false;
        }
        if (key("_id", first)) {
            first = false;
            next();
            const char* const begin = m_at;
            if (!string() || m_at - begin <= 2) {
                return false;
            }
        }
        if (key("_sequence_tag", first) && (next() == '-' || !integer())) {
            return false;
        }
        return token('}');
    }

    bool anyValue(int level)
    {
        switch (next()) {
        case '{':
        case '[':
            return level < kMaxLevels && members(level);
        case '"':
            return string();
        case 't':
        case 'f':
            return flag();
        case 'n':
            return word("null");
        default:
            return number();
        }
    }

private:
    /// \return the next character that is not white space; a zero byte at the end
    char next()
    {
        while (m_at != m_end && (*m_at == '\n' || *m_at == '\t' || *m_at == ' ')) {
            ++m_at;
        }
        return here();
    }

    char here() const { return m_at != m_end ? *m_at : '\0'; }

    bool token(char character)
    {
        if (next() != character) {
            return false;
        }
        *m_output++ = *m_at++;
        return true;
    }

    bool copyTo(const char* end)
    {
        const auto length = static_cast<std::size_t>(end - m_at);
        std::memcpy(m_output, m_at, length);
        m_output += length;
        m_at = end;
        return true;
    }

    bool word(std::string_view expected)
    {
        return std::string_view(m_at, static_cast<std::size_t>(m_end - m_at)).substr(0, expected.size()) ==
                   expected &&
               copyTo(m_at + expected.size());
    }

    /// Copies a key with the comma and the colon around it. Nothing changes if another key follows.
    bool key(std::string_view expected, bool first)
    {
        const char* const begin = m_at;
        char* const output = m_output;
        if ((first || token(',')) && next() == '"') {
            const std::string_view rest(m_at + 1, static_cast<std::size_t>(m_end - m_at - 1));
            if (rest.size() > expected.size() && rest[expected.size()] == '"' &&
                std::memcmp(rest.data(), expected.data(), expected.size()) == 0 &&
                copyTo(m_at + expected.size() + 2) && token(':')) {
                return true;
            }
        }
        m_at = begin;
        m_output = output;
        return false;
    }

    bool value(const RecordField& field)
    {
        switch (field.kind) {
        case FieldKind::Integer:
            next();
            return integer();
        case FieldKind::Number:
            next();
            return number();
        case FieldKind::Flag:
            next();
            return flag();
        case FieldKind::Text:
            return string();
        case FieldKind::Record:
            return nested(field);
        case FieldKind::Value:
            return false;
        default:
            return array(field);
        }
    }

    bool nested(const RecordField& field)
    {
        const RecordTable& table = field.nested->table();
        return table.ifCovers(*field.nested->recordClass) != nullptr && record(table);
    }

    bool array(const RecordField& field)
    {
        std::size_t size = 0;
        if (!token('[')) {
            return false;
        }
        if (next() != ']') {
            do {
                if (size == field.limit || !element(field)) {
                    return false;
                }
                ++size;
            } while (token(','));
        }
        // Elements that were not received would be written as well.
        return (field.kind == FieldKind::RecordVector || size == field.limit) && token(']');
    }

    bool element(const RecordField& field)
    {
        next();
        switch (field.kind) {
        case FieldKind::FlagArray:
            return flag();
        case FieldKind::IntegerArray:
            return integer();
        default:
            return nested(field);
        }
    }

    bool members(int level)
    {
        const bool isObject = next() == '{';
        const char close = isObject ? '}' : ']';
        token(*m_at);
        if (next() != close) {
            do {
                if ((isObject && !(string() && token(':'))) || !anyValue(level + 1)) {
                    return false;
                }
            } while (token(','));
        }
        return token(close);
    }

    bool flag() { return word("true") || word("false"); }

    const char* digitsFrom(const char* at) const
    {
        while (at != m_end && isDigit(*at)) {
            ++at;
        }
        return at;
    }

    /// Copies an integer that fits into an `int`, which has no negative zero.
    bool integer()
    {
        const char* const begin = m_at;
        const char* const end = digitsFrom(begin + (here() == '-' ? 1 : 0));
        int value = 0;
        return std::from_chars(begin, end, value).ec == std::errc() && (value != 0 || *begin != '-') &&
               number() && m_at == end;
    }

    /// Copies a number that would be printed in the same way.
    bool number()
    {
        const char* end = endOfShortNumber();
        if (end == nullptr) {
            end = endOfNumberByPrinting();
        }
        return end != nullptr && copyTo(end);
    }

    /// \return null unless it is a number of at most 15 digits without an exponent, which is printed as it is
    const char* endOfShortNumber() const
    {
        const char* const whole = m_at + (here() == '-' ? 1 : 0);
        const char* end = digitsFrom(whole);
        std::ptrdiff_t digits = end - whole;
        const bool isZero = digits == 1 && *whole == '0';
        if (digits == 0 || (*whole == '0' && !isZero)) {
            return nullptr;
        }
        if (end != m_end && *end == '.') {
            const char* const fraction = end + 1;
            const char* significant = fraction;
            while (isZero && significant != m_end && *significant == '0') {
                ++significant;
            }
            end = digitsFrom(significant);
            digits = (isZero ? 0 : digits) + (end - significant);
            if (end == significant || end[-1] == '0' || significant - fraction > kMaxLeadingZeros) {
                return nullptr;
            }
        } else if (isZero && whole != m_at) {
            return nullptr; // versions of the JSON library differ in negative zeros
        }
        return digits <= kMaxDigits && !isInNumber(end) ? end : nullptr;
    }

    const char* endOfNumberByPrinting()
    {
        const char* end = m_at;
        while (isInNumber(end)) {
            ++end;
        }
        double value = 0;
        const auto length = static_cast<std::size_t>(end - m_at);
        const auto [position, error] = std::from_chars(m_at, end, value);
        if (length > kMaxNumberLength || error != std::errc() || position != end) {
            return nullptr;
        }
        m_number.clear();
        appendNumber(m_number, value);
        return m_number == std::string_view(m_at, length) ? end : nullptr;
    }

    bool isInNumber(const char* at) const
    {
        return at != m_end &&
               (isDigit(*at) || *at == '.' || *at == 'e' || *at == 'E' || *at == '+' || *at == '-');
    }

    bool string()
    {
        if (next() != '"') {
            return false;
        }
        for (const char* at = m_at + 1; at != m_end; ++at) {
            if (*at == '"') {
                return copyTo(at + 1);
            }
            if (*at == '\\' && !skipEscape(at)) {
                return false;
            }
            if (*at < ' ' || *at > '~') {
                if (static_cast<unsigned char>(*at) < ' ') {
                    return false;
                }
                m_isPlain = false;
            }
        }
        return false;
    }

    /// Moves to the last character of an escape with one letter. Others may be right, but are rare.
    bool skipEscape(const char*& at) const
    {
        ++at;
        return at != m_end && *at != '\0' && std::strchr("\"\\bfnrt", *at) != nullptr;
    }

    bool time(const Telvane::TextForm& form)
    {
        if (next() != '"') {
            return false;
        }
        const char* const begin = m_at + 1;
        const auto rest = static_cast<std::size_t>(m_end - begin);
        const auto* const end = static_cast<const char*>(std::memchr(begin, '"', rest));
        Telvane::DateTime time;
        char text[Telvane::TextForm::kSize + 1] = {};
        return end != nullptr && form.read(time, begin, end) &&
               std::string_view(text, static_cast<std::size_t>(form.write(time, text) - text)) ==
                   std::string_view(begin, static_cast<std::size_t>(end - begin)) &&
               copyTo(end + 1);
    }

    const char* m_at;
    const char* const m_end;
    char* m_output;
    bool m_isPlain = true;
    std::string m_number;
};

} // namespace

bool compactPayload(std::string_view payload, const RecordTable* table, std::string& json)
{
    json.resize(payload.size());
    Compactor compactor(payload, json.data());
    if (!(table != nullptr ? compactor.record(*table) : compactor.anyValue(0)) || !compactor.isAtEnd()) {
        return false;
    }
    json.resize(static_cast<std::size_t>(compactor.output() - json.data()));
    if (!compactor.isPlain()) {
        makeJsonPrintable(json);
    }
    return true;
}

} // namespace TelvaneTool::Mqtt
