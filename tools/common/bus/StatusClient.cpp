#include "common/bus/StatusClient.h"

#include "common/bus/DecodedRecord.h"
#include "common/bus/RecordBuilder.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <Telvane/RequestType.h>

#include <algorithm>
#include <type_traits>

namespace TelvaneTool
{

namespace
{

/// Even a busy server responds within milliseconds.
constexpr Nanoseconds kTimeout = 3 * kSecond;
/// A server that has just started may not take requests yet, and loses them.
constexpr Nanoseconds kRepeat = kSecond / 2;

} // namespace

template <class Item>
int StatusClient::subscribe(const char* channel, StatusResponse<Item>& response, std::vector<Item>& items)
{
    return m_bus.subscribe(
        channel, DecodedRecord(nullptr),
        [this, &response, &items](void*, Telvane::TelvaneDataTypeBase* record, int, void*) {
            {
                const std::lock_guard<std::mutex> guard(m_lock);
                if (!response.take(static_cast<DecodedRecord&>(*record).text()) ||
                    !isPlausible(response.items())) {
                    return;
                }
                items = response.items();
                ++(std::is_same_v<Item, ChannelStatus> ? m_channelResponses : m_clientResponses);
            }
            m_bus.wake();
        });
}

int StatusClient::start(bool clients)
{
    m_wantsClients = clients;
    int result = subscribe(kChannelsStatus, m_channelResponse, m_channels);
    if (result == kSuccess && clients) {
        result = subscribe(kClientsStatus, m_clientResponse, m_clients);
    }
    if (result != kSuccess) {
        return result;
    }
    const Nanoseconds deadline = monotonicNow() + std::max(kTimeout, nanoseconds(m_bus.wait()));
    while (monotonicNow() < deadline) {
        request();
        const Nanoseconds next = std::min(deadline, monotonicNow() + kRepeat);
        if (m_bus.waitFor([this] { return complete(); }, next) || m_bus.stopping()) {
            return kSuccess;
        }
    }
    printError("the server does not report its channels; start it with telvane serve, without --no-status");
    return kBusFailure;
}

bool StatusClient::complete()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_channelResponses != 0 && (!m_wantsClients || m_clientResponses != 0);
}

void StatusClient::request()
{
    RawRecord nothing;
    m_bus.publish(Telvane::kRequestPrefix + std::string(kChannelsStatus), nothing);
    if (m_wantsClients) {
        m_bus.publish(Telvane::kRequestPrefix + std::string(kClientsStatus), nothing);
    }
}

std::vector<ChannelStatus> StatusClient::channels()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_channels;
}

std::vector<ClientStatus> StatusClient::clients()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_clients;
}

std::uint64_t StatusClient::responses()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_channelResponses + m_clientResponses;
}

} // namespace TelvaneTool
