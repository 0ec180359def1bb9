#pragma once

#include <string>

namespace TelvaneTool
{

/// \return true when a descriptor is a terminal that understands more than lines
bool isTerminal(int fd);

/// \return true when colours are welcome there: on a terminal, and when NO_COLOR is not set
bool wantsColour(int fd);

/// Standard output as a page that is drawn over again and again. What stood there before comes back at the
/// end, whichever way the process ends that it can see coming.
class TerminalPage
{
public:
    TerminalPage();
    ~TerminalPage();
    TerminalPage(const TerminalPage&) = delete;
    TerminalPage& operator=(const TerminalPage&) = delete;

    /// \param lines the whole page, each line with its end; what does not fit below is cut off
    /// \return what is to be written to the terminal
    static std::string draw(const std::string& lines, std::size_t height);
};

/// Brings back what stood there before a TerminalPage, if there is one.
void restoreTerminal();

} // namespace TelvaneTool
