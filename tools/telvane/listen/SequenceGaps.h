#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// Counts gaps in the sequence numbers that a listener receives. Any thread may use it.
///
/// The server numbers every message on every channel, and every subscribe and unsubscribe request. A listener
/// receives only the numbers of its own channels, so a missing number may belong to another channel. Without
/// gaps, nothing was missed.
class SequenceGaps
{
public:
    /// Adds the number of a record that arrived on one of the channels.
    void take(int sequence);

    /// Counts a record that arrived but could not be decoded.
    void takeUnreadable();

    /// Counts a record whose text was not valid UTF-8.
    void takeInvalidText();

    /// \return how many numbers between the first and the last are missing. A gap of exactly 65,536 goes
    ///         unnoticed.
    std::uint64_t missing() const;

    /// \param verbose  also report that nothing was missed
    /// \return messages for the user, one per line
    std::vector<std::string> describe(bool verbose) const;

private:
    mutable std::mutex m_lock;
    int m_first = -1;
    int m_last = -1;
    std::uint64_t m_missing = 0;
    std::uint64_t m_unreadable = 0;
    std::uint64_t m_invalidText = 0;
};

} // namespace TelvaneTool
