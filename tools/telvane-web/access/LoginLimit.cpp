#include "telvane-web/access/LoginLimit.h"

#include <algorithm>
#include <arpa/inet.h>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMaxAddresses = 1000;
constexpr Nanoseconds kForget = 600 * kSecond;
constexpr std::size_t kNetworkBytes = 8;

} // namespace

std::string LoginLimit::addressGroup(const std::string& address)
{
    in6_addr bytes = {};
    if (inet_pton(AF_INET6, address.c_str(), &bytes) != 1) {
        return address;
    }
    return {reinterpret_cast<const char*>(&bytes), kNetworkBytes};
}

Nanoseconds LoginLimit::wait(const std::string& address, Nanoseconds now) const
{
    const auto found = m_addresses.find(addressGroup(address));
    return found == m_addresses.end() ? 0 : std::max<Nanoseconds>(found->second.until - now, 0);
}

void LoginLimit::failed(const std::string& address, Nanoseconds now)
{
    const std::string group = addressGroup(address);
    if (m_addresses.size() >= kMaxAddresses && m_addresses.find(group) == m_addresses.end()) {
        m_addresses.erase(
            std::min_element(m_addresses.begin(), m_addresses.end(),
                             [](const auto& a, const auto& b) { return a.second.until < b.second.until; }));
    }
    Failures& failures = m_addresses[group];
    if (now - failures.until > kForget) {
        failures.count = 0;
    }
    ++failures.count;
    const unsigned doublings = failures.count < kFree ? 0 : std::min(failures.count - kFree, 10U);
    failures.until =
        now + (failures.count < kFree ? 0 : std::min<Nanoseconds>(kSecond << doublings, kLongest));
}

} // namespace TelvaneTool
