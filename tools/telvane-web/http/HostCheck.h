#pragma once

#include <set>
#include <string>
#include <string_view>

namespace TelvaneTool
{

/// Refuses requests that reach the server under a name that is not its own. A page of somebody else whose name is made
/// to resolve to this machine could otherwise read everything (DNS rebinding).
class HostCheck
{
public:
    /// Allows localhost, this machine's name, and the same name below ".local".
    explicit HostCheck(const std::string& machineName);

    /// Allows one more name or address.
    /// \return false if it is neither
    bool allow(std::string_view name);

    /// \param header        value of the header Host
    /// \param localAddress  address that the client connected to
    bool allows(std::string_view header, std::string_view localAddress) const;

private:
    std::set<std::string, std::less<>> m_names;
};

/// \return the name or address in a Host header, in lower case, without port, brackets and final dot; empty if the
///         header is malformed
std::string hostName(std::string_view header);

} // namespace TelvaneTool
