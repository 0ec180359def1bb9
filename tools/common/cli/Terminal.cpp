#include "common/cli/Terminal.h"

#include "common/support/FileDescriptor.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

std::atomic<bool> pageShown{false};
std::atomic<bool> keysTaken{false};
termios settingsBefore = {}; ///< written before keysTaken is set

void restoreKeys()
{
    if (keysTaken.exchange(false)) {
        tcsetattr(STDIN_FILENO, TCSANOW, &settingsBefore);
    }
}

std::size_t sizeOr(int fd, unsigned short winsize::*member, std::size_t fallback)
{
    winsize size = {};
    return ioctl(fd, TIOCGWINSZ, &size) == 0 && size.*member > 0 ? size.*member : fallback;
}

} // namespace

std::size_t terminalWidth(int fd)
{
    return sizeOr(fd, &winsize::ws_col, 80);
}

std::size_t terminalHeight(int fd)
{
    return sizeOr(fd, &winsize::ws_row, 24);
}

bool isTerminal(int fd)
{
    const char* const kind = std::getenv("TERM");
    return isatty(fd) != 0 && kind != nullptr && std::strcmp(kind, "dumb") != 0;
}

bool wantsColour(int fd)
{
    const char* const unwanted = std::getenv("NO_COLOR");
    return isTerminal(fd) && (unwanted == nullptr || *unwanted == '\0');
}

bool terminalIsUtf8()
{
    for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            return strcasestr(value, "UTF-8") != nullptr || strcasestr(value, "UTF8") != nullptr;
        }
    }
    return false;
}

TerminalPage::TerminalPage()
{
    pageShown = true;
    writeFully(STDOUT_FILENO, "\x1b[?1049h\x1b[?25l"); // alternate screen, no cursor
}

TerminalPage::~TerminalPage()
{
    restoreTerminal();
}

std::string TerminalPage::draw(const std::string& lines, std::size_t height)
{
    std::string text = "\x1b[H";
    std::size_t row = 0;
    std::size_t at = 0;
    while (at < lines.size() && row < height) {
        const std::size_t end = std::min(lines.find('\n', at), lines.size());
        text += (row != 0 ? "\r\n" : "") + lines.substr(at, end - at) + "\x1b[K";
        at = end + 1;
        ++row;
    }
    return text + "\x1b[J";
}

TerminalKeys::TerminalKeys()
{
    // A process in the background must not change the settings of its terminal.
    if (tcgetpgrp(STDIN_FILENO) != getpgrp() || tcgetattr(STDIN_FILENO, &settingsBefore) != 0) {
        return;
    }
    termios settings = settingsBefore;
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    keysTaken = true;
    m_active = tcsetattr(STDIN_FILENO, TCSANOW, &settings) == 0;
}

TerminalKeys::~TerminalKeys()
{
    restoreKeys();
}

std::string TerminalKeys::read()
{
    pollfd watched = {STDIN_FILENO, POLLIN, 0};
    if (!m_active || poll(&watched, 1, 0) != 1) {
        return {};
    }
    char text[256];
    const ssize_t size = ::read(STDIN_FILENO, text, sizeof text);
    m_active = size > 0; // else the terminal is gone
    return {text, size > 0 ? static_cast<std::size_t>(size) : 0};
}

void restoreTerminal()
{
    restoreKeys();
    if (pageShown.exchange(false)) {
        writeFully(STDOUT_FILENO, "\x1b[?25h\x1b[?1049l");
    }
}

} // namespace TelvaneTool
