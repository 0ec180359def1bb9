#include "telvane-web/access/Sessions.h"

#include <algorithm>
#include <sodium.h>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kSecretBytes = 32;

} // namespace

std::string Sessions::open(Nanoseconds now)
{
    unsigned char bytes[kSecretBytes] = {};
    char text[2 * kSecretBytes + 1] = "";
    randombytes_buf(bytes, sizeof bytes);
    sodium_bin2hex(text, sizeof text, bytes, sizeof bytes);
    m_sessions.push_front({text, now, now});
    if (m_sessions.size() > kMaxSessions) {
        m_sessions.pop_back();
    }
    return text;
}

std::list<Sessions::Session>::iterator Sessions::find(std::string_view secret)
{
    // The comparison takes as long for any secret, so that its time gives no digit away.
    return std::find_if(m_sessions.begin(), m_sessions.end(), [secret](const Session& session) {
        return session.secret.size() == secret.size() &&
               sodium_memcmp(session.secret.data(), secret.data(), secret.size()) == 0;
    });
}

bool Sessions::use(std::string_view secret, Nanoseconds now)
{
    const auto found = find(secret);
    if (found == m_sessions.end()) {
        return false;
    }
    if (now - found->used > kIdle || now - found->opened > kLongest) {
        m_sessions.erase(found);
        return false;
    }
    found->used = now;
    m_sessions.splice(m_sessions.begin(), m_sessions, found);
    return true;
}

void Sessions::close(std::string_view secret)
{
    if (const auto found = find(secret); found != m_sessions.end()) {
        m_sessions.erase(found);
    }
}

} // namespace TelvaneTool
