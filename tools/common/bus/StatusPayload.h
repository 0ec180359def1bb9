#pragma once

// What a server that was started by `telvane serve` tells of itself over the bus; docs/server-status.md
// describes it.

#include <Telvane/EventServerStatus.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// Answers come on these; questions go to the same names behind "req_".
constexpr const char* kChannelsStatus = "TelvaneChannels";
constexpr const char* kClientsStatus = "TelvaneClients";

/// \return true for the channels above and for their questions
bool isStatusChannel(std::string_view channel);

using ChannelStatus = Telvane::EventServerChannelStatus;

struct ClientStatus : Telvane::EventServerClientStatus
{
    std::string program;  ///< name of the process, empty when nobody knows
    std::string userName; ///< empty when nobody knows
};

/// \name Telling
/// \return payloads in their order, each small enough for one message; at least one. An item too large for
///         any message is left out.
/// @{
std::vector<std::string> printStatus(const std::vector<ChannelStatus>& channels);
std::vector<std::string> printStatus(const std::vector<ClientStatus>& clients);
/// @}

/// Puts the payloads of one answer together again.
/// \tparam Item ChannelStatus or ClientStatus
template <class Item>
class StatusAnswer
{
public:
    /// \return true when an answer has become complete
    bool take(const std::string& payload);

    /// \return the latest complete answer
    const std::vector<Item>& items() const { return m_complete; }

private:
    std::vector<Item> m_complete;
    std::vector<Item> m_growing;
    int m_nextPart = 1;
};
extern template class StatusAnswer<ChannelStatus>;
extern template class StatusAnswer<ClientStatus>;

} // namespace TelvaneTool
