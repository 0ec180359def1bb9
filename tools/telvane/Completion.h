#pragma once

// What a shell offers while a command line of the tool is being typed. The shells' scripts know nothing of the tool:
// they ask it, so that they are never out of date.

#include "HelpText.h"

#include <functional>
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

/// \return the channels that the server at \p path knows; none when it does not tell in a moment
using ChannelSource = std::function<std::vector<std::string>(const std::string& path)>;

/// \param commands as CommandLine::describe() tells them
/// \param words what has been typed behind "telvane"; the last one is unfinished, and may be empty
Completion complete(const std::vector<CommandText>& commands, const std::vector<std::string>& words,
                    const ChannelSource& channels);

} // namespace TelvaneTool
