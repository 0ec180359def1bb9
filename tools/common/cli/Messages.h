#pragma once

#include <string>
#include <string_view>

namespace TelvaneTool
{

/// Sets the prefix of all messages, such as "telvane listen".
void setMessagePrefix(const std::string& prefix);

/// Prints an error message as one line on standard error. Lines of several threads do not mix. Text from other
/// processes may be part of it: control characters are replaced, and quotations are cut after 200 bytes.
void printError(std::string_view message);

/// Prints a message that is not an error in the same way.
void printStatus(std::string_view message);

/// Writes the result of a command to standard output, without control characters except newlines and tabs. Prints an
/// error if that fails.
/// \return an exit code
int writeResult(std::string_view text);

/// Reads a file. Prints an error if that fails or the file is empty.
/// \return the text, which is then empty
std::string readFile(const std::string& path);

/// Redirects a descriptor to /dev/null.
void discardOutput(int fd);

} // namespace TelvaneTool
