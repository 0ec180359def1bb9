#pragma once

#include "common/support/Clock.h"
#include "common/support/FileDescriptor.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace TelvaneTool
{

/// A small file, shared by `telvane weld` and `telvane monitor`, in which the publisher notes what it published
/// and when. The listener uses it to measure losses and latency. It does not use the bus, so that the measurement
/// itself cannot be lost.
///
/// One publisher and any number of listeners share a file. Either side may open it first. A file that no process
/// has open is reset, so that no counts of an earlier run remain.
class LatencyTracker
{
public:
    enum class Role
    {
        Publisher,
        Listener,
    };

    LatencyTracker() = default;
    ~LatencyTracker();
    LatencyTracker(const LatencyTracker&) = delete;
    LatencyTracker& operator=(const LatencyTracker&) = delete;

    /// Opens or creates the file. Prints the reason if it fails, for example if the file has another publisher, or
    /// if it is not a ledger; it then stays unchanged.
    bool open(const std::string& path, Role role);
    bool isOpen() const { return m_page != nullptr; }

    /// \name For the publisher
    /// @{

    /// Notes the time of a record, just before it is published.
    /// \param serial  the record's serial number
    void note(int serial);
    /// Notes that everything has been published.
    void finish();
    /// @}

    /// Notes, for a listener, that it has subscribed.
    void listen();

    bool hasListener() const;
    bool finished() const;
    std::uint64_t published() const;
    /// \return when the record was published, on the monotonic clock; 0 if no longer known
    Nanoseconds published(int serial) const;

private:
    struct Page;

    /// \return an error message; empty if the file can be used
    std::string prepare();
    std::string share();

    FileDescriptor m_file; ///< holds the lock
    Page* m_page = nullptr;
};

} // namespace TelvaneTool
