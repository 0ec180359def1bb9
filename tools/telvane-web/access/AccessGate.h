#pragma once

#include "telvane-web/access/LoginLimit.h"
#include "telvane-web/access/Sessions.h"
#include "telvane-web/http/Worker.h"

#include <array>
#include <functional>
#include <list>
#include <optional>
#include <string>

namespace TelvaneTool
{

/// Lets in who knows the password: a browser by a cookie, which it gets for the password, other programs by HTTP's
/// Basic authentication with any user name.
///
/// A password is checked on the thread of a worker, one at a time, as each check takes much time and memory. What it
/// found is kept under a digest of the password, so that a program that sends it with each request costs one check.
class AccessGate
{
public:
    struct Settings
    {
        std::string hash;    ///< of the password
        bool secure = false; ///< the connection is encrypted
        unsigned port = 0;   ///< browsers send cookies to all ports of a machine, so the name contains it
    };

    struct Statistics
    {
        std::uint64_t logins = 0;
        std::uint64_t wrong = 0;   ///< wrong passwords
        std::uint64_t limited = 0; ///< attempts that had to wait
    };

    AccessGate(Settings settings, const WakeUp& wakeUp);

    /// \return nothing for a request that may go on, else the answer
    std::optional<HttpReply> check(const HttpRequest& request);

    /// \return whether the request carries the cookie of an open session
    bool hasSession(const HttpRequest& request) { return m_sessions.use(secretOf(request), request.now); }
    /// Answers /api/login: opens a session for a request with the right password.
    HttpReply login(const HttpRequest& request);
    /// Answers /api/logout.
    HttpReply logout(const HttpRequest& request);

    /// \return a function that says whether the request would still be let in; for answers that go on
    std::function<bool(Nanoseconds now)> permission(const HttpRequest& request);

    const Statistics& statistics() const { return m_statistics; }
    std::size_t sessions() const { return m_sessions.size(); }

private:
    using Digest = std::array<unsigned char, 32>;
    struct Known
    {
        Digest digest = {};
        bool right = false;
    };
    class Checking;

    HttpReply refuse(unsigned status, const char* text, const HttpRequest& request) const;
    std::optional<HttpReply> checkPassword(const HttpRequest& request);
    std::string secretOf(const HttpRequest& request) const;
    Digest digestOf(const std::string& password) const;

    const Settings m_settings;
    const std::string m_cookie; ///< its name
    Digest m_key = {};
    Sessions m_sessions;
    LoginLimit m_limit;
    std::list<Known> m_known; ///< passwords that were checked lately
    Statistics m_statistics;
    Worker m_worker;
};

} // namespace TelvaneTool
