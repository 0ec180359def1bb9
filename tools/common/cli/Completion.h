#pragma once

// Completion of the tool's command line in shells. The shells' scripts call `telvane complete`, so they never get out
// of date.

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// An option or an argument.
struct OptionInfo
{
    std::vector<std::string> names; ///< "-h" and "--help", or "PATH" for an argument
    bool argument = false;
    bool repeated = false;
    std::string value; ///< placeholder, such as "FILE"; empty if the option takes no value
    std::string what;
};

struct CommandInfo
{
    std::string name;
    std::string what;
    std::vector<OptionInfo> options;
};

struct Candidate
{
    std::string text;
    std::string what; ///< short description; may be empty
};

struct Completion
{
    std::vector<Candidate> candidates;
    bool files = false; ///< file names are also candidates
};

/// The place on the command line where a value is completed.
struct ValuePlace
{
    std::vector<std::string> arguments; ///< the arguments so far
    std::string option;                 ///< name without dashes; empty for an argument
};

/// Functions that list values, by placeholder: "CHANNEL", "CLASS".
using ValueSources = std::map<std::string, std::function<std::vector<Candidate>(const ValuePlace&)>>;

/// Completes the last word of a command line.
/// \param commands from CommandLine::describe()
/// \param words the words after the program's name; the last one may be empty
/// \param sources PATH and FILE complete to file names; other placeholders without a source have no candidates
Completion complete(const std::vector<CommandInfo>& commands, const std::vector<std::string>& words,
                    const ValueSources& sources);

/// \return one candidate per line, with its description after a tab. A line ":files" requests file names
std::string completionText(const Completion& completion);

} // namespace TelvaneTool
