#pragma once

#include "common/bus/BusConnection.h"
#include "recording/PreTriggerBuffer.h"
#include "recording/RecordingWriter.h"

#include <mutex>
#include <optional>
#include <string>

namespace TelvaneTool
{

/// Brings what arrives into a recording: all of it, or what was around a trigger.
///
/// take() is for the receiver thread, all else for the main thread.
class Recorder
{
public:
    struct Settings
    {
        RecordingWriter::Settings output;
        Nanoseconds keep = 0; ///< keep this much in memory and write on a trigger only; 0 writes everything
        std::uint64_t mostKept = 0; ///< bytes
        Nanoseconds after = 0;      ///< how long to go on after a trigger
        std::string trigger;        ///< channel whose records are triggers; empty for none
        std::uint64_t count = 0;    ///< take no more than so many records; 0 takes all
    };

    Recorder(Settings settings, RecordingHeader header);

    /// Opens the file, unless there is only one to be when something has happened.
    bool open() { return m_ring.has_value() || m_writer.open(m_header); }

    void take(const std::string& channel, int sequence, std::string_view payload);

    /// Writes what has arrived.
    /// \param triggered somebody wants what is kept in memory
    /// \return false after a complaint
    bool write(bool triggered);

    /// Writes the rest and closes.
    bool finish();

    /// \return true when all records that were wanted have been taken
    bool complete();

    std::uint64_t records() const { return m_records; } ///< taken by write()
    const RecordingWriter& writer() const { return m_writer; }
    bool keeps() const { return m_ring.has_value(); }

private:
    bool writeLines(std::string_view lines);
    bool writeLine(std::string_view line, Nanoseconds time);
    bool begin();
    bool endAfter(Nanoseconds time);

    const Settings m_settings;
    const RecordingHeader m_header;
    const Nanoseconds m_origin; ///< RecordingHeader::started on the monotonic clock
    RecordingWriter m_writer;
    std::optional<PreTriggerBuffer> m_ring;
    RecordingLineReader m_reader;
    Nanoseconds m_until = -1;    ///< end of the time after the last trigger
    std::uint64_t m_records = 0; ///< used by the main thread only
    std::string m_batch;

    std::mutex m_lock;
    std::string m_arrived;
    std::uint64_t m_taken = 0;
};

} // namespace TelvaneTool
