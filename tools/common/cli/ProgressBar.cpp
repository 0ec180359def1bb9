#include "common/cli/ProgressBar.h"

#include "common/bus/BusConnection.h"
#include "common/cli/Messages.h"

#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kRedraw = kSecond / 10;

winsize terminalSize(int fd)
{
    winsize size = {};
    if (ioctl(fd, TIOCGWINSZ, &size) != 0) {
        size = {};
    }
    return size;
}

} // namespace

std::size_t terminalWidth(int fd)
{
    constexpr std::size_t kUsual = 80;
    const std::size_t width = terminalSize(fd).ws_col;
    return width > 0 ? width : kUsual;
}

std::size_t terminalHeight(int fd)
{
    constexpr std::size_t kUsual = 24;
    const std::size_t height = terminalSize(fd).ws_row;
    return height > 0 ? height : kUsual;
}

std::string progressBar(double share, std::size_t width)
{
    const double filled = std::clamp(share, 0.0, 1.0) * static_cast<double>(width);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.append(width - bar.size(), '-');
    return bar;
}

ProgressBar::ProgressBar() : m_visible(isatty(STDERR_FILENO) != 0) {}

bool ProgressBar::due() const
{
    return m_visible && monotonicNow() >= m_next;
}

void ProgressBar::draw(double share, const std::string& text)
{
    if (!due()) {
        return;
    }
    m_next = monotonicNow() + kRedraw;
    constexpr std::size_t kBar = 30;
    std::string line;
    if (share >= 0.0) {
        line = "[" + progressBar(share, kBar) + "] " +
               std::to_string(static_cast<int>(std::clamp(share, 0.0, 1.0) * 100.0)) + " %  ";
    }
    line = (line + text).substr(0, terminalWidth(STDERR_FILENO) - 1);
    writeFully(STDERR_FILENO, "\r\x1b[K" + line);
    m_drawn = true;
}

void ProgressBar::clear()
{
    if (m_drawn) {
        writeFully(STDERR_FILENO, "\r\x1b[K");
        m_drawn = false;
    }
}

} // namespace TelvaneTool
