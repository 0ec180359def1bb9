#pragma once

#include "common/support/Clock.h"

#include <string>

namespace TelvaneTool
{

/// A line on standard error that shows how far something has come, if somebody can see it there.
class ProgressBar
{
public:
    ProgressBar();
    ~ProgressBar() { clear(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// \return true when it is worth while to call draw()
    bool due() const;

    /// \param share 0 to 1, negative when nobody knows
    void draw(double share, const std::string& text);

    /// Takes the line away.
    void clear();

private:
    const bool m_visible;
    bool m_drawn = false;
    Nanoseconds m_next = 0;
};

/// \return the bar without what stands around it, \p width columns of it
std::string progressBar(double share, std::size_t width);

/// \return the columns of a terminal, 80 where there is none
std::size_t terminalWidth(int fd);
/// \return its rows, 24 where there is none
std::size_t terminalHeight(int fd);

} // namespace TelvaneTool
