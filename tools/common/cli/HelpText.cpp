// The help is laid out here and not by CLI11: lines are broken for a terminal of 80 columns, and what stands for
// a value is a word of ours and not the name of a type with its bounds. scripts/update-docs makes the manual pages
// from this layout.

#include "common/cli/HelpText.h"

#include <algorithm>
#include <cstddef>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kWidth = 80;
constexpr std::size_t kIndent = 2;
constexpr std::size_t kWidestTerm = 24; ///< what is longer has a line of its own

/// Breaks a text into lines that begin in \p column; the first one is begun already.
std::string wrapped(const std::string& text, std::size_t column)
{
    std::string lines;
    std::size_t at = column;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(' ', begin), text.size());
        const std::size_t length = end - begin;
        if (at != column && at + 1 + length > kWidth) {
            lines += '\n' + std::string(column, ' ');
            at = column;
        } else if (at != column) {
            lines += ' ';
            ++at;
        }
        lines.append(text, begin, length);
        at += length;
        begin = end + 1;
    }
    return lines;
}

struct Row
{
    std::string term;
    std::string what;
};

std::string table(const std::string& heading, const std::vector<Row>& rows)
{
    if (rows.empty()) {
        return std::string();
    }
    std::size_t width = 0;
    for (const Row& row : rows) {
        width = std::max(width, row.term.size() <= kWidestTerm ? row.term.size() : 0);
    }
    const std::size_t column = kIndent + width + 2;
    std::string text = '\n' + heading + ":\n";
    for (const Row& row : rows) {
        text += std::string(kIndent, ' ') + row.term;
        const std::size_t at = kIndent + row.term.size();
        text += at + 2 > column ? '\n' + std::string(column, ' ') : std::string(column - at, ' ');
        text += wrapped(row.what, column) + '\n';
    }
    return text;
}

std::string termOf(const OptionText& option)
{
    std::string term;
    for (const std::string& name : option.names) {
        term += (term.empty() ? "" : ", ") + name;
    }
    if (!option.argument && !option.value.empty()) {
        term += ' ' + option.value;
    }
    return option.repeated ? term + "..." : term;
}

std::string explanationOf(const OptionText& option)
{
    std::vector<std::string> remarks = option.remarks;
    if (option.required && !option.argument) {
        remarks.insert(remarks.begin(), "required");
    }
    if (!option.defaultText.empty()) {
        remarks.push_back("default: " + option.defaultText);
    }
    std::string text = option.what;
    for (const std::string& remark : remarks) {
        text += (&remark == &remarks.front() ? " (" : "; ") + remark;
    }
    return remarks.empty() ? text : text + ")";
}

/// Arguments in their order, then the options below their headings, in the order in which these come up.
std::string tables(const CommandText& command)
{
    std::vector<Row> arguments;
    std::vector<std::string> headings;
    for (const OptionText& option : command.options) {
        if (option.argument) {
            arguments.push_back({termOf(option), explanationOf(option)});
        } else if (std::find(headings.begin(), headings.end(), option.group) == headings.end()) {
            headings.push_back(option.group);
        }
    }
    std::string text = table("Arguments", arguments);
    for (const std::string& heading : headings) {
        std::vector<Row> rows;
        for (const OptionText& option : command.options) {
            if (!option.argument && option.group == heading) {
                rows.push_back({termOf(option), explanationOf(option)});
            }
        }
        text += table(heading, rows);
    }
    return text;
}

std::string indented(const std::string& lines)
{
    std::string text;
    for (std::size_t begin = 0; begin < lines.size();) {
        const std::size_t end = std::min(lines.find('\n', begin), lines.size());
        text += std::string(lines[begin] == ' ' ? 0 : kIndent, ' ').append(lines, begin, end - begin) + '\n';
        begin = end + 1;
    }
    return text;
}

std::string examplesOf(const CommandText& command)
{
    return command.examples.empty() ? std::string() : "\nExamples:\n" + indented(command.examples);
}

} // namespace

std::string helpOfCommand(const CommandText& command)
{
    const std::string begin = "Usage: telvane " + command.name;
    std::string arguments = "[OPTION]...";
    for (const OptionText& option : command.options) {
        if (option.argument) {
            arguments += ' ' + (option.required ? termOf(option) : '[' + termOf(option) + ']');
        }
    }
    return wrapped(command.what, 0) + "\n\n" + begin + ' ' + wrapped(arguments, begin.size() + 1) + '\n' +
           tables(command) + examplesOf(command);
}

std::string helpOfTool(const std::vector<CommandText>& commands, const std::string& footer)
{
    std::vector<Row> rows;
    for (std::size_t i = 1; i < commands.size(); ++i) {
        rows.push_back({commands[i].name, commands[i].what});
    }
    return wrapped(commands.front().what, 0) + "\n\nUsage: telvane COMMAND [OPTION]... [ARGUMENT]...\n" +
           table("Commands", rows) + tables(commands.front()) + examplesOf(commands.front()) + '\n' + footer +
           '\n';
}

} // namespace TelvaneTool
