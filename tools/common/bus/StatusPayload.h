#pragma once

// The messages in which `telvane serve` reports its status, see docs/server-status.md.

#include <Telvane/EventServerStatus.h>

#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// Channels of the responses. The channels of the requests have the prefix `kRequestPrefix`.
constexpr const char* kChannelsStatus = "TelvaneChannels";
constexpr const char* kClientsStatus = "TelvaneClients";

/// \return whether a channel is one of the above, or a channel of their requests
bool isStatusChannel(std::string_view channel);

using ChannelStatus = Telvane::EventServerChannelStatus;

struct ClientStatus : Telvane::EventServerClientStatus
{
    std::string program;  ///< name of the process; empty if unknown
    std::string userName; ///< empty if unknown
};

/// \name Encoding
/// \return one or more payloads, each small enough for a message. Items that are too large are left out.
/// @{
std::vector<std::string> encodeStatus(const std::vector<ChannelStatus>& channels);
std::vector<std::string> encodeStatus(const std::vector<ClientStatus>& clients);
/// @}

/// \name Checks
/// A server's response lists the subscription of the client that requested it.
/// @{
bool isPlausible(const std::vector<ChannelStatus>& channels);
bool isPlausible(const std::vector<ClientStatus>& clients);
/// @}

/// Decodes the payloads of a response. Any client can publish payloads of this kind: names that are not channels are
/// left out, and parts that never end take no more than kMaxSize of memory.
/// \tparam Item ChannelStatus or ClientStatus
template <class Item>
class StatusResponse
{
public:
    static constexpr std::size_t kMaxSize = std::size_t{32} * 1024 * 1024; ///< of all parts, in bytes

    /// \return whether the payload completed a response
    bool take(const std::string& payload);

    /// \return the latest complete response
    const std::vector<Item>& items() const { return m_complete; }

private:
    std::vector<Item> m_complete;
    std::vector<Item> m_partial;
    int m_nextPart = 1;
    std::size_t m_size = 0;
};
extern template class StatusResponse<ChannelStatus>;
extern template class StatusResponse<ClientStatus>;

} // namespace TelvaneTool
