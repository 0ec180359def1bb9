#pragma once

#include "common/support/Clock.h"

#include <map>
#include <string>

namespace TelvaneTool
{

/// Slows down those who guess passwords: after five wrong ones, an address must wait, twice as long after each further
/// one, up to a minute.
class LoginLimit
{
public:
    static constexpr unsigned kFree = 5;
    static constexpr Nanoseconds kLongest = 60 * kSecond;

    /// \return how long the address has to wait; 0 if it may try now
    Nanoseconds wait(const std::string& address, Nanoseconds now) const;
    void failed(const std::string& address, Nanoseconds now);
    void succeeded(const std::string& address) { m_addresses.erase(addressGroup(address)); }

    std::size_t size() const { return m_addresses.size(); }

private:
    struct Failures
    {
        unsigned count = 0;
        Nanoseconds until = 0;
    };

    /// One customer of an IPv6 network has 2^64 addresses, which count as one.
    static std::string addressGroup(const std::string& address);

    std::map<std::string, Failures> m_addresses;
};

} // namespace TelvaneTool
