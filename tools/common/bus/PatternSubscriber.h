#pragma once

#include "common/bus/StatusClient.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// Subscribes to the channels that a user wants, those included that appear while the session runs.
class PatternSubscriber
{
public:
    /// \return an exit code
    using Subscriber = std::function<int(const std::string& channel)>;

    /// \param wanted names, and patterns as in "PS*"; the status channels have to be named
    /// \param all every channel that there is
    PatternSubscriber(BusConnection& session, std::vector<std::string> wanted, bool all,
                      Subscriber subscribe);

    /// Subscribes to the channels that there are.
    /// \return an exit code
    int start();

    /// Subscribes to those that have appeared, and asks whether there are more, when it is time to.
    /// \return an exit code
    int follow();

    /// \return true when the server has to be asked what channels there are
    bool asks() const { return m_inquiry.has_value(); }

    /// \return when to call follow() again, or BusConnection::kNoDeadline
    Nanoseconds nextLook() const { return m_nextLook; }

    /// \param deadline or BusConnection::kNoDeadline
    /// \return the earlier of \p deadline and nextLook()
    Nanoseconds nextWake(Nanoseconds deadline) const;

private:
    int add(const std::string& channel);
    int addMatching();

    BusConnection& m_session;
    std::vector<std::string> m_patterns;
    std::vector<std::string> m_names;
    Subscriber m_subscribe;
    std::set<std::string, std::less<>> m_subscribed;
    std::optional<StatusClient> m_inquiry;
    std::uint64_t m_answers = 0;
    Nanoseconds m_nextLook = BusConnection::kNoDeadline;
};

} // namespace TelvaneTool
