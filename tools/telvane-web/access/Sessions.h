#pragma once

#include "common/support/Clock.h"

#include <list>
#include <string>
#include <string_view>

namespace TelvaneTool
{

/// The browsers that have given the password. They are forgotten when the program ends.
class Sessions
{
public:
    static constexpr Nanoseconds kIdle = kSecond * 3600 * 12;
    static constexpr Nanoseconds kLongest = kSecond * 3600 * 24 * 7;
    static constexpr std::size_t kMaxSessions = 100;

    /// \return the secret of a new session, 64 hexadecimal digits
    std::string open(Nanoseconds now);
    /// \return false if there is no such session, or it has expired
    bool use(std::string_view secret, Nanoseconds now);
    void close(std::string_view secret);

    std::size_t size() const { return m_sessions.size(); }

private:
    struct Session
    {
        std::string secret;
        Nanoseconds opened = 0;
        Nanoseconds used = 0;
    };

    std::list<Session>::iterator find(std::string_view secret);

    std::list<Session> m_sessions; ///< the one that was used last comes first
};

} // namespace TelvaneTool
