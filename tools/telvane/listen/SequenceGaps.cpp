#include "listen/SequenceGaps.h"

namespace TelvaneTool
{

namespace
{

constexpr int kNumbers = 65536; // then they begin again

} // namespace

void SequenceGaps::take(int sequence)
{
    if (sequence < 0 || sequence >= kNumbers) {
        return; // no server of ours numbers so
    }
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_first < 0) {
        m_first = sequence;
    } else {
        // They come in order: the same number again is a whole round later.
        m_absent += static_cast<std::uint64_t>((sequence - m_last - 1 + kNumbers) % kNumbers);
    }
    m_last = sequence;
}

void SequenceGaps::takeUnreadable()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    ++m_unreadable;
}

std::uint64_t SequenceGaps::absent() const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_absent;
}

std::vector<std::string> SequenceGaps::describe(bool thorough) const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    std::vector<std::string> lines;
    if (m_unreadable != 0) {
        lines.push_back("records that could not be read: " + std::to_string(m_unreadable));
    }
    const std::string range = std::to_string(m_first) + " to " + std::to_string(m_last);
    if (m_absent != 0) {
        lines.push_back("at most " + std::to_string(m_absent) + " records were missed: of the numbers " +
                        range +
                        " as many did not come, those of other channels and of subscriptions among them");
    } else if (thorough && m_first >= 0) {
        lines.push_back("nothing was missed: the numbers " + range + " came without a gap");
    }
    return lines;
}

} // namespace TelvaneTool
