// There is no form to parse: the page sends the password in the header Authorization, which no page of another server can
// send, and gets a cookie that scripts cannot read. The cookie is needed because a browser sends no header of our choice
// with the request for the live stream.

#include "telvane-web/access/AccessGate.h"

#include "telvane-web/access/Password.h"

#include <algorithm>
#include <cstdlib>
#include <sodium.h>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMaxWaiting = 4;
constexpr std::size_t kMaxKnown = 32;
constexpr std::size_t kMaxPassword = 1000;
constexpr unsigned kOk = 200;
constexpr unsigned kUnauthorized = 401;
constexpr unsigned kTooManyRequests = 429;
constexpr unsigned kUnavailable = 503;

/// \return the password in a header Authorization; nothing if there is none
std::optional<std::string> basicPassword(std::string_view header)
{
    constexpr std::string_view kScheme = "basic ";
    if (header.size() < kScheme.size() || header.size() > 2 * kMaxPassword ||
        !std::equal(kScheme.begin(), kScheme.end(), header.begin(), [](char a, char b) {
            return a == (b >= 'A' && b <= 'Z' ? static_cast<char>(b - 'A' + 'a') : b);
        })) {
        return std::nullopt;
    }
    header.remove_prefix(kScheme.size());
    std::string text(header.size(), '\0');
    std::size_t length = 0;
    if (sodium_base642bin(reinterpret_cast<unsigned char*>(text.data()), text.size(), header.data(),
                          header.size(), nullptr, &length, nullptr, sodium_base64_VARIANT_ORIGINAL) != 0) {
        return std::nullopt;
    }
    text.resize(length);
    const std::size_t colon = text.find(':');
    return colon == std::string::npos ? std::nullopt : std::optional(text.substr(colon + 1));
}

} // namespace

/// A password that the worker checks. Afterwards the request is handled again, and finds what is known now.
class AccessGate::Checking : public HttpLater
{
public:
    Checking(AccessGate& gate, std::unique_ptr<HttpLater> job, const Digest& digest)
        : m_gate(gate), m_job(std::move(job)), m_digest(digest)
    {}

    bool isReady() const override { return m_job->isReady(); }
    std::optional<HttpReply> take() override
    {
        std::optional<HttpReply> result = m_job->take();
        if (!result || result->status == kUnavailable) {
            HttpReply reply;
            reply.status = kUnavailable;
            reply.body = "there is not enough memory to check the password\n";
            reply.retryAfter = 1;
            return reply;
        }
        m_gate.m_known.push_front({m_digest, result->status == kOk});
        if (m_gate.m_known.size() > kMaxKnown) {
            m_gate.m_known.pop_back();
        }
        return std::nullopt;
    }

private:
    AccessGate& m_gate;
    std::unique_ptr<HttpLater> m_job;
    Digest m_digest;
};

AccessGate::AccessGate(Settings settings, const WakeUp& wakeUp)
    : m_settings(std::move(settings)),
      m_cookie((m_settings.secure ? "__Host-telvane-" : "telvane-") + std::to_string(m_settings.port)),
      m_worker(kMaxWaiting, wakeUp)
{
    if (sodium_init() < 0) {
        std::abort(); // there is no source of random numbers, so no session would be secret
    }
    randombytes_buf(m_key.data(), m_key.size());
}

AccessGate::Digest AccessGate::digestOf(const std::string& password) const
{
    Digest digest = {};
    crypto_generichash(digest.data(), digest.size(), reinterpret_cast<const unsigned char*>(password.data()),
                       password.size(), m_key.data(), m_key.size());
    return digest;
}

std::string AccessGate::secretOf(const HttpRequest& request) const
{
    std::string_view cookies = request.header("Cookie");
    while (!cookies.empty()) {
        const std::size_t end = std::min(cookies.find(';'), cookies.size());
        const std::string_view item = cookies.substr(0, end);
        cookies.remove_prefix(std::min(end + 1, cookies.size()));
        const std::size_t begin = std::min(item.find_first_not_of(' '), item.size());
        const std::size_t equals = item.find('=');
        if (equals != std::string_view::npos && equals > begin &&
            item.substr(begin, equals - begin) == m_cookie) {
            return std::string(item.substr(equals + 1));
        }
    }
    return {};
}

HttpReply AccessGate::refuse(unsigned status, const char* text, const HttpRequest& request) const
{
    HttpReply reply;
    reply.status = status;
    reply.body = std::string(text) + "\n";
    if (status == kUnauthorized) {
        // A browser would ask for the password in a window of its own. Only its page asks.
        reply.challenge =
            request.path == "/metrics" ? "Basic realm=\"telvane\", charset=\"UTF-8\"" : "Cookie";
    }
    return reply;
}

std::optional<HttpReply> AccessGate::checkPassword(const HttpRequest& request)
{
    const std::optional<std::string> password = basicPassword(request.header("Authorization"));
    if (!password || password->size() > kMaxPassword) {
        return refuse(kUnauthorized, "a password is needed", request);
    }
    const Digest digest = digestOf(*password);
    // Before anything is compared: what is known already must not be guessed faster.
    if (const Nanoseconds wait = m_limit.wait(request.peerAddress, request.now); wait != 0) {
        ++m_statistics.limited;
        HttpReply reply = refuse(kTooManyRequests, "too many wrong passwords; try again later", request);
        reply.retryAfter = static_cast<unsigned>((wait + kSecond - 1) / kSecond);
        return reply;
    }
    const auto known = std::find_if(m_known.begin(), m_known.end(), [&](const Known& item) {
        return sodium_memcmp(item.digest.data(), digest.data(), digest.size()) == 0;
    });
    if (known != m_known.end() && known->right) {
        m_limit.succeeded(request.peerAddress);
        m_known.splice(m_known.begin(), m_known, known);
        return std::nullopt;
    }
    if (known != m_known.end()) {
        ++m_statistics.wrong;
        m_limit.failed(request.peerAddress, request.now);
        return refuse(kUnauthorized, "the password is wrong", request);
    }
    std::unique_ptr<HttpLater> job = m_worker.run([password = *password, hash = m_settings.hash] {
        const PasswordCheck check = verifyPassword(password, hash);
        HttpReply result;
        result.status = check == PasswordCheck::Right   ? kOk
                        : check == PasswordCheck::Wrong ? kUnauthorized
                                                        : kUnavailable;
        return result;
    });
    if (job == nullptr) {
        HttpReply reply = refuse(kUnavailable, "too many passwords are being checked", request);
        reply.retryAfter = 1;
        return reply;
    }
    HttpReply reply;
    reply.later = std::make_unique<Checking>(*this, std::move(job), digest);
    return reply;
}

std::optional<HttpReply> AccessGate::check(const HttpRequest& request)
{
    if (hasSession(request)) {
        return std::nullopt;
    }
    return checkPassword(request);
}

HttpReply AccessGate::login(const HttpRequest& request)
{
    if (std::optional<HttpReply> refused = checkPassword(request)) {
        return std::move(*refused);
    }
    ++m_statistics.logins;
    HttpReply reply;
    reply.body = "welcome\n";
    reply.cookie = m_cookie + "=" + m_sessions.open(request.now) + "; Path=/; HttpOnly; SameSite=Strict" +
                   (m_settings.secure ? "; Secure" : "");
    return reply;
}

HttpReply AccessGate::logout(const HttpRequest& request)
{
    m_sessions.close(secretOf(request));
    HttpReply reply;
    reply.body = "goodbye\n";
    reply.cookie =
        m_cookie + "=; Path=/; HttpOnly; SameSite=Strict; Max-Age=0" + (m_settings.secure ? "; Secure" : "");
    return reply;
}

std::function<bool(Nanoseconds)> AccessGate::permission(const HttpRequest& request)
{
    // A request with a password holds for as long as its connection.
    return [this, secret = secretOf(request)](Nanoseconds now) {
        return secret.empty() || m_sessions.use(secret, now);
    };
}

} // namespace TelvaneTool
