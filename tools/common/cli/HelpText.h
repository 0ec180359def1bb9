#pragma once

// What the tool says of its own command line. Manual pages and completion are made from it, too.

#include <string>
#include <vector>

namespace TelvaneTool
{

/// An option, or an argument, which is told by its place.
struct OptionText
{
    std::vector<std::string> names; ///< as they are typed: "-h", "--help"; of an argument "PATH"
    bool argument = false;
    bool required = false;
    bool repeated = false;
    std::string value;                ///< what stands for the value, as in "FILE"; empty when it takes none
    std::string what;                 ///< what it is for
    std::string group;                ///< heading that it stands under
    std::string defaultText;          ///< empty when that is not to be shown
    std::vector<std::string> remarks; ///< how it goes together with others
};

struct CommandText
{
    std::string name;
    std::string what;
    std::vector<OptionText> options;
    std::string examples;
};

/// \return the help of one subcommand
std::string helpOfCommand(const CommandText& command);

/// \param commands the first is the tool itself
/// \return the help of the tool: what there is
std::string helpOfTool(const std::vector<CommandText>& commands, const std::string& footer);

} // namespace TelvaneTool
