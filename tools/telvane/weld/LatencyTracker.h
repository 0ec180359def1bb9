#pragma once

#include "common/support/Clock.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace TelvaneTool
{

/// A small shared file in which a publisher notes what it published and when, so that a listener in another
/// process can tell what was lost and how long the way took. It lies beside the bus, not on it: a measure
/// that travelled with the records would share their fate.
class LatencyTracker
{
public:
    LatencyTracker() = default;
    ~LatencyTracker();
    LatencyTracker(const LatencyTracker&) = delete;
    LatencyTracker& operator=(const LatencyTracker&) = delete;

    /// Opens the file, or makes it: either side may come first.
    /// \return false after a complaint
    bool open(const std::string& path);
    bool isOpen() const { return m_page != nullptr; }

    /// The publisher, just before it publishes the record of that serial number.
    void note(int serial);
    void finish();

    /// The listener, when it has subscribed.
    void listen();

    bool hasListener() const;
    bool finished() const;
    std::uint64_t published() const;
    /// \return when the record was published, on the monotonic clock, or 0 when that is no longer known
    Nanoseconds published(int serial) const;

private:
    struct Page;
    Page* m_page = nullptr;
};

} // namespace TelvaneTool
