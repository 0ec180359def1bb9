#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// What a listener can know of records that did not reach it. Any thread may use it.
///
/// The server numbers everything that it handles, on whatever channel: publications, and requests to subscribe
/// and unsubscribe. A listener sees the numbers of its own channels, so a number that did not come may or may
/// not have been one of its records. When none is absent, it has missed nothing.
class SequenceGaps
{
public:
    /// Takes the number of a record that arrived, on any of the channels listened to.
    void take(int sequence);

    /// Takes note of a record that arrived and is not what it should be.
    void takeUnreadable();

    /// \return how many numbers between the first and the last did not come. Whole rounds of 65,536 are not
    ///         noticed.
    std::uint64_t absent() const;

    /// \param thorough also when there is nothing to printError about
    /// \return what there is to say, in lines
    std::vector<std::string> describe(bool thorough) const;

private:
    mutable std::mutex m_lock;
    int m_first = -1;
    int m_last = -1;
    std::uint64_t m_absent = 0;
    std::uint64_t m_unreadable = 0;
};

} // namespace TelvaneTool
