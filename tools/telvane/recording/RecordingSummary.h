#pragma once

#include "common/support/Json.h"
#include "recording/RecordingLine.h"

#include <cstdint>
#include <map>
#include <string>

namespace TelvaneTool
{

/// Counts the messages of a recording.
class RecordingSummary
{
public:
    void add(const RecordedMessage& message);

    /// The file without its messages.
    struct File
    {
        std::string path;
        RecordingHeader header;
        std::uint64_t bytes = 0;
        std::uint64_t tornBytes = 0;
        std::uint64_t damagedLines = 0;
    };
    std::string text(const File& file) const;
    JsonTree json(const File& file) const;

private:
    struct Channel
    {
        std::uint64_t count = 0;
        std::uint64_t bytes = 0; ///< of payloads
        Nanoseconds first = 0;
        Nanoseconds last = 0;
        Nanoseconds longestPause = 0;
        std::uint64_t missed = 0; ///< by the notes of the recorder
    };

    Nanoseconds span() const;
    void countGaps(int sequence);
    static void count(Channel& channel, const RecordedMessage& message);
    static double rate(const Channel& channel);

    std::map<std::string, Channel, std::less<>> m_channels;
    Channel m_total;
    int m_lastSequence = 0;
    std::uint64_t m_outages = 0;
    Nanoseconds m_outageTime = 0;
    std::uint64_t m_gaps = 0;
    std::uint64_t m_missing = 0; ///< sequence numbers that no message has
    std::uint64_t m_restarts = 0;
};

} // namespace TelvaneTool
