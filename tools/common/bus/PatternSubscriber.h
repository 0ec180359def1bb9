#pragma once

#include "common/bus/StatusClient.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// Subscribes to channels by name and by pattern, including channels that appear later.
class PatternSubscriber
{
public:
    /// \return an exit code
    using Subscriber = std::function<int(const std::string& channel)>;

    /// \param wanted names and patterns such as "PS*"; patterns do not match the status channels
    /// \param all subscribe to every channel, as with the pattern "*"
    /// \param maxChannels limit of channels that patterns match: each subscription to a new name takes memory of the
    ///        server, which never forgets it
    PatternSubscriber(BusConnection& bus, std::vector<std::string> wanted, bool all, Subscriber subscribe,
                      std::size_t maxChannels = kMaxChannels);
    static constexpr std::size_t kMaxChannels = 4096;

    /// Subscribes to the channels that exist.
    /// \return an exit code
    int start();

    /// Subscribes to new channels, and requests the list of channels again when due.
    /// \return an exit code
    int follow();

    /// \return whether the list of channels is polled
    bool polls() const { return m_status.has_value(); }

    /// \return when to call follow() again, or BusConnection::kNoDeadline
    Nanoseconds nextPoll() const { return m_nextPoll; }

    /// \param deadline or BusConnection::kNoDeadline
    /// \return the earlier of \p deadline and nextPoll()
    Nanoseconds nextWake(Nanoseconds deadline) const;

private:
    int add(const std::string& channel);
    void addMatching();
    void addOptional(const std::string& channel);

    BusConnection& m_bus;
    std::vector<std::string> m_patterns;
    std::vector<std::string> m_names;
    Subscriber m_subscribe;
    std::size_t m_maxChannels;
    std::set<std::string, std::less<>> m_subscribed;
    std::optional<StatusClient> m_status;
    std::uint64_t m_responses = 0;
    bool m_limitReported = false;
    Nanoseconds m_nextPoll = BusConnection::kNoDeadline;
};

} // namespace TelvaneTool
