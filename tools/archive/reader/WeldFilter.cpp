// Conditions are read into columns of the list, comparisons of the enumeration and values. The statement is then put
// together from literals only; see Sql.

#include "archive/reader/WeldFilter.h"

#include "archive/reader/WholeCondition.h"
#include "common/support/HumanReadable.h"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace TelvaneArchive
{

namespace
{

using Comparison = Condition::Comparison;

/// Splits the text into words, numbers, quoted texts and operators.
class Words
{
public:
    explicit Words(const std::string& text) : m_text(text) { next(); }

    bool atEnd() const { return m_word.empty() && !m_quoted; }
    const std::string& word() const { return m_word; }
    bool quoted() const { return m_quoted; }
    bool damaged() const { return m_damaged; }
    std::size_t position() const { return m_start + 1; }

    bool accept(const char* word)
    {
        if (m_quoted || !sameWord(m_word, word)) {
            return false;
        }
        next();
        return true;
    }
    void next()
    {
        while (m_position < m_text.size() && isSpace(m_text[m_position])) {
            ++m_position;
        }
        m_start = m_position;
        m_word.clear();
        m_quoted = false;
        if (m_position >= m_text.size()) {
            return;
        }
        const char first = m_text[m_position];
        if (first == '\'' || first == '"') {
            readQuoted(first);
        } else if (isOperator(first)) {
            readWhile(isOperator);
        } else {
            readWhile([](char letter) { return !isSpace(letter) && !isOperator(letter) && letter != '\''; });
        }
    }

private:
    static bool isSpace(char letter) { return std::isspace(static_cast<unsigned char>(letter)) != 0; }
    static bool isOperator(char letter)
    {
        return letter == '<' || letter == '>' || letter == '=' || letter == '!';
    }
    static bool sameWord(const std::string& text, const char* word)
    {
        std::string lower;
        for (const char letter : text) {
            lower += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
        }
        return lower == word;
    }
    template <class Test>
    void readWhile(Test test)
    {
        while (m_position < m_text.size() && test(m_text[m_position])) {
            m_word += m_text[m_position++];
        }
        if (m_word.empty()) {
            m_damaged = true;
            m_word = m_text[m_position++];
        }
    }
    void readQuoted(char quote)
    {
        m_quoted = true;
        ++m_position;
        for (; m_position < m_text.size(); ++m_position) {
            if (m_text[m_position] != quote) {
                m_word += m_text[m_position];
            } else if (m_position + 1 < m_text.size() && m_text[m_position + 1] == quote) {
                m_word += quote;
                ++m_position;
            } else {
                ++m_position;
                return;
            }
        }
        m_damaged = true;
    }

    const std::string& m_text;
    std::size_t m_position = 0;
    std::size_t m_start = 0;
    std::string m_word;
    bool m_quoted = false;
    bool m_damaged = false;
};

struct Operator
{
    const char* text;
    Comparison comparison;
};
constexpr Operator kOperators[] = {
    {"=", Comparison::Equal},     {"==", Comparison::Equal},
    {"!=", Comparison::NotEqual}, {"<>", Comparison::NotEqual},
    {"<", Comparison::Less},      {"<=", Comparison::LessOrEqual},
    {">", Comparison::Greater},   {">=", Comparison::GreaterOrEqual},
    {"like", Comparison::Like},
};

bool readValue(const Words& words, Condition& condition)
{
    const ColumnInfo& info = infoOf(condition.column);
    if (info.type == ColumnType::Text) {
        condition.value = words.word();
        return !words.atEnd();
    }
    if (condition.comparison == Comparison::Like) {
        return false;
    }
    const std::string& word = words.word();
    double number = 0.0;
    if (!TelvaneTool::readNumber(word, number) ||
        std::isspace(static_cast<unsigned char>(word.front())) != 0) {
        return false;
    }
    condition.value = number;
    if (info.type == ColumnType::Whole) {
        compareWithWhole(condition, word);
    }
    return true;
}

Sql operatorOf(Comparison comparison)
{
    switch (comparison) {
    case Comparison::NotEqual:
        return " <> ";
    case Comparison::Less:
        return " < ";
    case Comparison::LessOrEqual:
        return " <= ";
    case Comparison::Greater:
        return " > ";
    case Comparison::GreaterOrEqual:
        return " >= ";
    case Comparison::Like:
        return " LIKE ";
    case Comparison::Unknown:
        return " IS NULL";
    case Comparison::Known:
        return " IS NOT NULL";
    case Comparison::Equal:
        break;
    }
    return " = ";
}

/// \return the pattern of LIKE for one with * and ?; a backslash takes the meaning from those of LIKE
std::string patternOf(const std::string& wildcards)
{
    std::string pattern;
    for (const char letter : wildcards) {
        if (letter == '*') {
            pattern += '%';
        } else if (letter == '?') {
            pattern += '_';
        } else {
            if (letter == '%' || letter == '_' || letter == '\\') {
                pattern += '\\';
            }
            pattern += letter;
        }
    }
    return pattern;
}

std::size_t characterAt(const std::string& text, std::size_t position)
{
    std::size_t size = 1; // of UTF-8
    while (position + size < text.size() &&
           (static_cast<unsigned char>(text[position + size]) & 0xc0U) == 0x80) {
        ++size;
    }
    return size;
}

/// Compares a text with a pattern of * and ?.
bool isLike(const std::string& text, const std::string& pattern)
{
    std::size_t at = 0;
    std::size_t next = 0;
    std::size_t star = std::string::npos; // what follows the last *
    std::size_t tried = 0;                // where that was tried last
    while (at < text.size()) {
        if (next < pattern.size() && pattern[next] == '*') {
            star = ++next;
            tried = at;
        } else if (next < pattern.size() && pattern[next] == '?') {
            at += characterAt(text, at);
            ++next;
        } else if (next < pattern.size() && pattern[next] == text[at]) {
            ++at;
            ++next;
        } else if (star != std::string::npos) {
            tried += characterAt(text, tried);
            at = tried;
            next = star;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', next) == std::string::npos;
}

} // namespace

int compareValues(const Value& value, const Value& other)
{
    if (std::holds_alternative<std::string>(value)) {
        return textOf(value).compare(textOf(other));
    }
    const auto* const whole = std::get_if<std::int64_t>(&value);
    const auto* const otherWhole = std::get_if<std::int64_t>(&other);
    if (whole != nullptr && otherWhole != nullptr) {
        return *whole < *otherWhole ? -1 : *whole > *otherWhole ? 1 : 0;
    }
    const double number = numberOf(value);
    const double otherNumber = numberOf(other);
    if (std::isnan(number) || std::isnan(otherNumber)) { // which PostgreSQL can keep, as the largest
        return (std::isnan(number) ? 1 : 0) - (std::isnan(otherNumber) ? 1 : 0);
    }
    return number < otherNumber ? -1 : number > otherNumber ? 1 : 0;
}

bool holds(const Condition& condition, const Value& value)
{
    switch (condition.comparison) {
    case Comparison::Unknown:
        return isNull(value);
    case Comparison::Known:
        return !isNull(value);
    case Comparison::Like:
        return !isNull(value) && isLike(textOf(value), textOf(condition.value));
    default:
        break;
    }
    if (isNull(value)) {
        return false;
    }
    const int order = compareValues(value, condition.value);
    switch (condition.comparison) {
    case Comparison::NotEqual:
        return order != 0;
    case Comparison::Less:
        return order < 0;
    case Comparison::LessOrEqual:
        return order <= 0;
    case Comparison::Greater:
        return order > 0;
    case Comparison::GreaterOrEqual:
        return order >= 0;
    default:
        return order == 0;
    }
}

bool matches(const Weld& weld, const WeldFilter& filter)
{
    return std::all_of(
        filter.conditions.begin(), filter.conditions.end(),
        [&weld](const Condition& condition) { return holds(condition, weld[condition.column]); });
}

void WeldFilter::add(Column column, Condition::Comparison comparison, const Value& value)
{
    Condition& condition = conditions.emplace_back();
    condition.column = column;
    condition.comparison = comparison;
    condition.value = value;
}

bool readWhere(const std::string& text, WeldFilter& filter, std::string& error)
{
    Words words(text);
    for (;;) {
        const auto column = words.quoted() ? std::nullopt : findColumn(words.word());
        if (!column) {
            error = "\"" + words.word() + "\" is not a column (character " +
                    std::to_string(words.position()) + ")";
            return false;
        }
        Condition condition;
        condition.column = *column;
        words.next();
        if (words.accept("is")) {
            condition.comparison = words.accept("not") ? Comparison::Known : Comparison::Unknown;
            if (!words.accept("empty") && !words.accept("null")) {
                error =
                    std::string("expected \"is empty\" or \"is not empty\" after ") + infoOf(*column).name;
                return false;
            }
        } else {
            const Operator* found = nullptr;
            for (const Operator& known : kOperators) {
                found = words.accept(known.text) ? &known : found;
                if (found != nullptr) {
                    break;
                }
            }
            if (found == nullptr) {
                error = "\"" + words.word() + "\" is not a comparison (character " +
                        std::to_string(words.position()) + ")";
                return false;
            }
            condition.comparison = found->comparison;
            if (words.damaged() || !readValue(words, condition)) {
                error = "\"" + words.word() + "\" is not a value for " + infoOf(*column).name +
                        " (character " + std::to_string(words.position()) + ")";
                return false;
            }
            words.next();
        }
        filter.conditions.push_back(std::move(condition));
        if (words.atEnd() && !words.damaged()) {
            return true;
        }
        if (!words.accept("and")) {
            error = "expected \"and\" or the end, not \"" + words.word() + "\" (character " +
                    std::to_string(words.position()) + ")";
            return false;
        }
    }
}

/// \param avoids  says of a column that its index must not be used
template <class Avoids>
static void appendConditions(const WeldFilter& filter, Sql& statement, Row& values, Avoids avoids)
{
    bool first = true;
    for (const Condition& condition : filter.conditions) {
        statement += first ? Sql(" WHERE ") : Sql(" AND ");
        first = false;
        // With a sign before it, a column is an expression, for which there is no index.
        statement += avoids(condition.column) ? Sql("+") : Sql("");
        statement += sqlOf(condition.column) + operatorOf(condition.comparison);
        if (condition.comparison == Comparison::Unknown || condition.comparison == Comparison::Known) {
            continue;
        }
        const bool like = condition.comparison == Comparison::Like;
        values.push_back(like ? Value(patternOf(textOf(condition.value))) : condition.value);
        statement.parameter(values.size());
        if (like) {
            statement += " ESCAPE '\\'";
        }
    }
}

void appendWhere(const WeldFilter& filter, Sql& statement, Row& values, MetricIndexes indexes)
{
    appendConditions(filter, statement, values, [indexes](Column column) {
        return indexes == MetricIndexes::Avoid && isMetric(column);
    });
}

void appendWhere(const WeldFilter& filter, Sql& statement, Row& values, std::optional<Column> index)
{
    appendConditions(filter, statement, values, [index](Column column) { return index && column != *index; });
}

} // namespace TelvaneArchive
