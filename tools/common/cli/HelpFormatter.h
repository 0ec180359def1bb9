#pragma once

#include <memory>
#include <string>

namespace CLI
{
class FormatterBase;
class Option;
} // namespace CLI

namespace TelvaneTool
{

/// \return the formatter of the help texts, from which the manual pages are made
std::shared_ptr<CLI::FormatterBase> makeHelpFormatter();

/// \return the placeholder of an option's value, such as "FILE"; empty if it takes none
std::string placeholderOf(const CLI::Option& option);

/// \return whether an option or argument may have several values
bool isRepeated(const CLI::Option& option);

} // namespace TelvaneTool
