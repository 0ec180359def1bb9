#pragma once

#include <cstddef>
#include <string>

namespace TelvaneTool
{

/// \return whether a descriptor is a terminal that understands control sequences
bool isTerminal(int fd);

/// \return whether to use colours: on a terminal, unless NO_COLOR is set
bool wantsColour(int fd);

/// \return whether the user's locale is UTF-8
bool terminalIsUtf8();

/// \return the number of columns; 80 if \p fd is not a terminal
std::size_t terminalWidth(int fd);
/// \return the number of rows; 24 if \p fd is not a terminal
std::size_t terminalHeight(int fd);

/// Shows a page on standard output that is drawn repeatedly. The previous contents of the terminal come back
/// when the page is destroyed.
class TerminalPage
{
public:
    TerminalPage();
    ~TerminalPage();
    TerminalPage(const TerminalPage&) = delete;
    TerminalPage& operator=(const TerminalPage&) = delete;

    /// \param lines the whole page; lines beyond \p height are left out
    /// \return the text to write to the terminal
    static std::string draw(const std::string& lines, std::size_t height);
};

/// Ends a TerminalPage, if one is shown, for a process that exits without destructors.
void restoreTerminal();

} // namespace TelvaneTool
