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

/// A server with status answers within milliseconds, also a busy one; one without never does.
constexpr Nanoseconds kPatience = 3 * kSecond;

} // namespace

template <class Item>
int StatusClient::subscribe(const char* channel, StatusAnswer<Item>& answer)
{
    return m_session.subscribe(channel, DecodedRecord(nullptr),
                               [this, &answer](void*, Telvane::TelvaneDataTypeBase* record, int, void*) {
                                   {
                                       const std::lock_guard<std::mutex> guard(m_lock);
                                       if (!answer.take(static_cast<DecodedRecord&>(*record).text())) {
                                           return;
                                       }
                                       ++(std::is_same_v<Item, ChannelStatus> ? m_channelAnswers
                                                                              : m_clientAnswers);
                                   }
                                   m_session.wake();
                               });
}

int StatusClient::start(bool clients)
{
    m_wantsClients = clients;
    int result = subscribe(kChannelsStatus, m_channels);
    if (result == kSuccess && clients) {
        result = subscribe(kClientsStatus, m_clients);
    }
    if (result != kSuccess) {
        return result;
    }
    ask();
    const Nanoseconds patience = std::max(kPatience, nanoseconds(m_session.wait()));
    if (m_session.waitFor([this] { return complete(); }, monotonicNow() + patience) || m_session.stopping()) {
        return kSuccess;
    }
    printError(
        "the server does not tell what channels there are: it was not started by telvane serve, or with "
        "--no-status");
    return kBusFailure;
}

bool StatusClient::complete()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_channelAnswers != 0 && (!m_wantsClients || m_clientAnswers != 0);
}

void StatusClient::ask()
{
    RawRecord nothing;
    m_session.publish(Telvane::kRequestPrefix + std::string(kChannelsStatus), nothing);
    if (m_wantsClients) {
        m_session.publish(Telvane::kRequestPrefix + std::string(kClientsStatus), nothing);
    }
}

std::vector<ChannelStatus> StatusClient::channels()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_channels.items();
}

std::vector<ClientStatus> StatusClient::clients()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_clients.items();
}

std::uint64_t StatusClient::answers()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_channelAnswers + m_clientAnswers;
}

} // namespace TelvaneTool
