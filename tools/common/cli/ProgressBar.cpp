#include "common/cli/ProgressBar.h"

#include "common/cli/Terminal.h"
#include "common/support/FileDescriptor.h"
#include "common/text/PrintableText.h"

#include <algorithm>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kRedraw = kSecond / 10;

} // namespace

std::string progressBar(double fraction, std::size_t width)
{
    const double filled = std::clamp(fraction, 0.0, 1.0) * static_cast<double>(width);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.append(width - bar.size(), '-');
    return bar;
}

ProgressBar::ProgressBar() : m_visible(isTerminal(STDERR_FILENO)) {}

bool ProgressBar::due() const
{
    return m_visible && monotonicNow() >= m_next;
}

void ProgressBar::draw(double fraction, const std::string& text)
{
    if (!due()) {
        return;
    }
    m_next = monotonicNow() + kRedraw;
    constexpr std::size_t kBar = 30;
    std::string line;
    if (fraction >= 0.0) {
        line = "[" + progressBar(fraction, kBar) + "] " +
               std::to_string(static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100.0)) + " %  ";
    }
    line = (line + printable(text, Lines::Remove)).substr(0, terminalWidth(STDERR_FILENO) - 1);
    writeFully(STDERR_FILENO, kEraseLine + line);
    m_drawn = true;
}

void ProgressBar::clear()
{
    if (m_drawn) {
        writeFully(STDERR_FILENO, kEraseLine);
        m_drawn = false;
    }
}

} // namespace TelvaneTool
