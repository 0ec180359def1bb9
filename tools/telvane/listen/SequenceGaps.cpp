#include "listen/SequenceGaps.h"

#include "common/bus/SequenceNumbers.h"

namespace TelvaneTool
{

void SequenceGaps::take(int sequence)
{
    if (sequence < 0 || sequence >= kSequenceNumbers) {
        return; // not a number that a server gives
    }
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_first < 0) {
        m_first = sequence;
    } else {
        // Numbers arrive in order, so a repeated number means a full cycle.
        m_missing += static_cast<std::uint64_t>(sequencesBetween(m_last, sequence));
    }
    m_last = sequence;
}

void SequenceGaps::takeUnreadable()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    ++m_unreadable;
}

void SequenceGaps::takeInvalidText()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    ++m_invalidText;
}

std::uint64_t SequenceGaps::missing() const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_missing;
}

std::vector<std::string> SequenceGaps::describe(bool verbose) const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    std::vector<std::string> lines;
    if (m_unreadable != 0) {
        lines.push_back("records that could not be decoded: " + std::to_string(m_unreadable));
    }
    if (m_invalidText != 0) {
        lines.push_back("records with bytes that are not UTF-8, printed as U+FFFD: " +
                        std::to_string(m_invalidText));
    }
    const std::string range = std::to_string(m_first) + " to " + std::to_string(m_last);
    if (m_missing != 0) {
        lines.push_back("at most " + std::to_string(m_missing) +
                        " records were missed: so many of the sequence numbers " + range +
                        " are missing, including those of other channels and of subscriptions");
    } else if (verbose && m_first >= 0) {
        lines.push_back("nothing was missed: the sequence numbers " + range + " have no gap");
    }
    return lines;
}

} // namespace TelvaneTool
