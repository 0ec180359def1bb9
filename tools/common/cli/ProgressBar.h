#pragma once

#include "common/support/Clock.h"

#include <string>

namespace TelvaneTool
{

/// A progress line on standard error, if that is a terminal.
class ProgressBar
{
public:
    ProgressBar();
    ~ProgressBar() { clear(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// \return whether it is time to call draw() again
    bool due() const;

    /// \param fraction 0 to 1; negative if unknown
    void draw(double fraction, const std::string& text);

    /// Erases the line.
    void clear();

private:
    const bool m_visible;
    bool m_drawn = false;
    Nanoseconds m_next = 0;
};

/// \return a bar of \p width characters
std::string progressBar(double fraction, std::size_t width);

} // namespace TelvaneTool
