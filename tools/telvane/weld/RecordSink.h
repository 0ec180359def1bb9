#pragma once

#include "common/support/Clock.h"
#include "common/support/Compression.h"
#include "common/support/OutputFile.h"

#include <Telvane/TelvaneDataTypeBase.h>

#include <cstdint>
#include <memory>
#include <string>

namespace TelvaneTool
{

class BusConnection;

/// Where the records of a weld go.
class RecordSink
{
public:
    virtual ~RecordSink() = default;

    /// \param stamp  time stamp of the record, ns since the Unix epoch
    /// \param group  of the weld; empty for none
    virtual void publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record, Nanoseconds stamp,
                         const std::string& group) = 0;

    /// Waits until a moment of the monotonic clock.
    /// \return false to stop
    virtual bool sleepUntil(Nanoseconds deadline) = 0;
};

/// Publishes on a bus, which has no place for the group.
class BusSink : public RecordSink
{
public:
    explicit BusSink(BusConnection& connection) : m_connection(connection) {}
    void publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record, Nanoseconds stamp,
                 const std::string& group) override;
    bool sleepUntil(Nanoseconds deadline) override;

private:
    BusConnection& m_connection;
};

/// Writes a recording, which appears in finish().
class RecordingSink : public RecordSink
{
public:
    /// \param connection  not connected; stops the work on a signal
    explicit RecordingSink(BusConnection& connection) : m_connection(connection) {}

    /// Opens the file. Prints the reason if it fails.
    bool open(const std::string& path, bool replace);

    void publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record, Nanoseconds stamp,
                 const std::string& group) override;
    bool sleepUntil(Nanoseconds deadline) override;

    /// Completes the file. Prints the reason if it fails.
    bool finish();

private:
    void write(bool last);
    bool report() const;

    BusConnection& m_connection;
    std::string m_path;
    OutputFile m_file;
    std::unique_ptr<Compressor> m_compressor;
    std::string m_pending;
    bool m_begun = false;
    Nanoseconds m_started = 0;
    Nanoseconds m_last = 0;
    std::uint64_t m_records = 0;
    int m_error = 0;
};

} // namespace TelvaneTool
