// Addresses need no list: a page cannot make its own name look like an address, so the address that the client connected
// to is always allowed.

#include "telvane-web/http/HostCheck.h"

#include <algorithm>
#include <arpa/inet.h>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMaxName = 253;
constexpr std::size_t kMaxPort = 5;

bool isPort(std::string_view text)
{
    return !text.empty() && text.size() <= kMaxPort &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isAddress6(const std::string& text)
{
    in6_addr address = {};
    return inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

bool isNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_';
}

} // namespace

std::string hostName(std::string_view header)
{
    std::string name;
    std::string_view rest;
    const bool bracketed = !header.empty() && header.front() == '[';
    const std::size_t end = bracketed ? header.find(']') : header.find(':');
    if (bracketed && end == std::string_view::npos) {
        return {};
    }
    name = header.substr(bracketed ? 1 : 0, bracketed ? end - 1 : end);
    rest = end == std::string_view::npos ? std::string_view() : header.substr(bracketed ? end + 1 : end);
    if (!rest.empty() && (rest.front() != ':' || !isPort(rest.substr(1)))) {
        return {};
    }
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (bracketed) {
        return isAddress6(name) ? name : std::string();
    }
    if (!name.empty() && name.back() == '.') {
        name.pop_back();
    }
    const bool valid = !name.empty() && name.back() != '.' && name.size() <= kMaxName &&
                       std::all_of(name.begin(), name.end(), isNameCharacter);
    return valid ? name : std::string();
}

HostCheck::HostCheck(const std::string& machineName) : m_names{"localhost", "127.0.0.1", "::1"}
{
    const std::string name = hostName(machineName);
    if (!name.empty()) {
        m_names.insert(name);
        m_names.insert(name.substr(0, name.find('.')) + ".local");
    }
}

bool HostCheck::allow(std::string_view name)
{
    std::string plain = hostName(name);
    if (plain.empty() && isAddress6(std::string(name))) {
        plain = name;
    }
    return !plain.empty() && (m_names.insert(plain), true);
}

bool HostCheck::allows(std::string_view header, std::string_view localAddress) const
{
    const std::string name = hostName(header);
    return !name.empty() && (name == localAddress || m_names.find(name) != m_names.end());
}

} // namespace TelvaneTool
