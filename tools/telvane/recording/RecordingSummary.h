#pragma once

#include "recording/RecordingLine.h"

#include <cstdint>
#include <map>
#include <string>

namespace TelvaneTool
{

/// What a recording holds, in numbers.
class RecordingSummary
{
public:
    void add(const RecordedMessage& message);

    /// What is known of the file besides its messages.
    struct File
    {
        std::string path;
        RecordingHeader header;
        std::uint64_t bytes = 0;
        std::uint64_t tornBytes = 0;
        std::uint64_t damagedLines = 0;
    };
    std::string text(const File& file) const;
    std::string json(const File& file) const;

private:
    struct Channel
    {
        std::uint64_t count = 0;
        std::uint64_t bytes = 0; ///< of payloads
        Nanoseconds first = 0;
        Nanoseconds last = 0;
        Nanoseconds longestPause = 0;
    };

    Nanoseconds span() const { return m_total.count != 0 ? m_total.last - m_total.first : 0; }
    static void count(Channel& channel, const RecordedMessage& message);
    static double rate(const Channel& channel);

    std::map<std::string, Channel, std::less<>> m_channels;
    Channel m_total;
    int m_lastSequence = 0;
    std::uint64_t m_gaps = 0;
    std::uint64_t m_missing = 0; ///< numbers that no message has
    std::uint64_t m_restarts = 0;
};

} // namespace TelvaneTool
