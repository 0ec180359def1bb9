#pragma once

// What a shell offers while a command line of the tool is being typed. The shells' scripts know nothing of the tool:
// they ask it, so that they are never out of date.

#include "common/cli/HelpText.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// Something that may stand at the end of the line.
struct Candidate
{
    std::string text;
    std::string what; ///< a few words on it, or nothing
};

struct Completion
{
    std::vector<Candidate> candidates;
    bool files = false; ///< the shell is to offer files
};

/// Where a value is wanted.
struct ValuePlace
{
    std::vector<std::string> arguments; ///< of the line so far
    std::string option;                 ///< name of the option without dashes; empty for an argument
};

/// The values that a program knows, by the placeholder of the option or argument in the help: "CHANNEL", "CLASS".
using ValueSources = std::map<std::string, std::function<std::vector<Candidate>(const ValuePlace&)>>;

/// \param commands from CommandLine::describe()
/// \param words the words typed after the program's name; the last one is unfinished and may be empty
/// \param sources the shell offers files for "PATH" and "FILE", and nothing for placeholders without a source
Completion complete(const std::vector<CommandText>& commands, const std::vector<std::string>& words,
                    const ValueSources& sources);

} // namespace TelvaneTool
