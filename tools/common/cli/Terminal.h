#pragma once

#include <cstddef>
#include <string>

namespace TelvaneTool
{

/// Goes back to the beginning of the line and erases it.
constexpr const char* kEraseLine = "\r\x1b[K";

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

/// Makes keys that are typed on standard input available at once and unseen, if it is a terminal of this process. Keys
/// that send signals still do.
class TerminalKeys
{
public:
    TerminalKeys();
    ~TerminalKeys();
    TerminalKeys(const TerminalKeys&) = delete;
    TerminalKeys& operator=(const TerminalKeys&) = delete;

    /// \return false if no keys will come
    bool active() const { return m_active; }

    /// \return what was typed since the last call
    std::string read();

private:
    bool m_active = false;
};

/// Ends TerminalPage and TerminalKeys, if there are any, for a process that exits without destructors.
void restoreTerminal();

} // namespace TelvaneTool
