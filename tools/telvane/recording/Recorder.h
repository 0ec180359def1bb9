#pragma once

#include "common/support/Clock.h"
#include "recording/PreTriggerBuffer.h"
#include "recording/RecordingWriter.h"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace TelvaneTool
{

/// Takes messages as they arrive and writes them to a recording: all of them, or those around a trigger.
///
/// take() and addMissed() are for the receiver thread, everything else is for the main thread. In between is a
/// queue of limited size, so that a slow disk does not slow down the receiver.
class Recorder
{
public:
    struct Settings
    {
        RecordingWriter::Settings output;
        Nanoseconds keep = 0; ///< keep this time span in memory until a trigger; 0 writes everything at once
        std::uint64_t maxKept = 0;            ///< maximum size of the lines kept in memory, bytes
        Nanoseconds after = 0;                ///< how long to continue after a trigger
        std::string trigger;                  ///< channel whose messages are triggers; empty for none
        std::uint64_t count = 0;              ///< number of messages to take; 0 for no limit
        std::uint64_t maxQueued = 64U << 20U; ///< bytes
    };

    using Clock = std::function<Nanoseconds()>;

    /// \param clock  the monotonic clock, or a test's; called by all threads
    Recorder(Settings settings, RecordingHeader header, Clock clock = monotonicNow);

    /// Opens the file, unless files are only written on a trigger.
    bool open() { return m_buffer.has_value() || m_writer.open(m_header); }

    void take(const std::string& channel, int sequence, std::string_view payload);

    /// Notes that messages did not arrive.
    /// \param from, to  when they were sent at the earliest and at the latest, on the monotonic clock
    void addMissed(const std::string& channel, std::uint64_t count, Nanoseconds from, Nanoseconds to);

    /// Notes that there was no connection.
    /// \param from, to  on the monotonic clock
    void addOutage(Nanoseconds from, Nanoseconds to);

    /// Writes the queued messages.
    /// \param reason  a trigger from outside, for the user; empty for none
    /// \return false if it fails, after printing the reason
    bool write(const std::string& reason = {});

    /// Writes the rest and closes the file.
    /// \param reason  as for write(); ignored if nothing is kept
    bool finish(const std::string& reason = {});

    /// \return true if the requested number of messages has been taken
    bool complete();

    /// \return messages missed so far, by channel
    std::map<std::string, std::uint64_t> missed();

    const RecordingWriter& writer() const { return m_writer; }

private:
    bool writeLines(std::string_view lines);
    bool writeLine(std::string_view line, const RecordedMessage& message);
    bool trigger(const std::string& reason, Nanoseconds time);
    bool begin();
    bool endAfter(Nanoseconds time);
    void append(const RecordedMessage& message);
    void noteDropped();

    const Settings m_settings;
    const RecordingHeader m_header;
    const Clock m_clock;
    const Nanoseconds m_origin; ///< RecordingHeader::started on the monotonic clock
    RecordingWriter m_writer;
    std::optional<PreTriggerBuffer> m_buffer;
    RecordingLineReader m_reader;
    Nanoseconds m_until = -1; ///< end of the time after the last trigger
    std::string m_batch;

    struct Dropped
    {
        std::uint64_t count = 0;
        Nanoseconds from = 0;
        Nanoseconds to = 0;
    };

    std::mutex m_lock;
    std::string m_queue;
    std::uint64_t m_taken = 0;
    Nanoseconds m_lastTime = 0;
    std::map<std::string, Dropped> m_dropped; ///< while the queue is full
    std::map<std::string, std::uint64_t> m_missed;
};

} // namespace TelvaneTool
