// The part of BusConnection that survives a restart of the server: the library's Bus connects and subscribes again. It
// needs no watchdog for its own calls, because each of them has a deadline.

#include "common/bus/BusConnection.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <numeric>
#include <utility>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kFirstAnswer = 3 * kSecond;
constexpr std::chrono::seconds kSubscribeLimit{1};

} // namespace

void BusConnection::reconnect(bool notices, std::function<void(bool connected)> onChange)
{
    m_lasts = true;
    m_notices = notices;
    m_onChange = std::move(onChange);
}

int BusConnection::connectLasting()
{
    Telvane::BusOptions options;
    options.onEvent = [this](const Telvane::BusEvent& event) {
        takeEvent(event);
    };
    {
        const std::lock_guard<std::mutex> guard(m_disconnecting);
        m_bus.emplace(m_path, std::move(options));
    }
    const auto connected = [this] {
        return m_bus->state() == Telvane::ConnectionState::Connected;
    };
    const bool waits = m_wait > 0.0;
    waitFor([&] { return connected() || (!waits && m_attemptFailed); },
            monotonicNow() + (waits ? nanoseconds(m_wait) : kFirstAnswer));
    if (connected()) {
        return kSuccess;
    }
    if (!stopping()) {
        printConnectError();
    }
    return kBusFailure;
}

/// Called on the bus's second thread.
void BusConnection::takeEvent(const Telvane::BusEvent& event)
{
    using Kind = Telvane::BusEvent::Kind;
    const bool connected = event.state == Telvane::ConnectionState::Connected;
    if (event.kind == Kind::AttemptFailed) {
        m_attemptFailed = true;
    } else if (event.kind == Kind::StateChanged && (!connected || std::exchange(m_connectedOnce, true))) {
        m_losses += connected ? 0 : 1;
        if (m_notices) {
            printStatus(connected ? "connected to " + m_path + " again"
                                  : "the server at " + m_path + " has gone away; waiting for it to return");
        }
        if (m_onChange) {
            m_onChange(connected);
        }
    }
    wake();
}

int BusConnection::subscribeLasting(const std::string& channel, const Telvane::TelvaneDataTypeBase& prototype,
                                    Telvane::EventClient::Callback callback)
{
    Telvane::Subscription subscription = m_bus->subscribe(
        channel, prototype,
        [callback = std::move(callback)](Telvane::TelvaneDataTypeBase& record,
                                         const Telvane::Delivery& delivery) {
            callback(nullptr, &record, delivery.sequence, nullptr);
        },
        Telvane::Run::Direct);
    const std::error_code error = subscription.waitActive(kSubscribeLimit);
    if (stopping()) {
        return kSuccess;
    }
    if (error == Telvane::BusError::Refused) {
        return reportSubscription(channel, "the server refused; see its limits, or the channel's name");
    }
    if (error && m_bus->state() == Telvane::ConnectionState::Connected) {
        return reportSubscription(channel, error.message());
    }
    m_subscriptions.push_back(std::move(subscription)); // without a connection, the next one makes it
    return kSuccess;
}

std::uint64_t BusConnection::brokenMessages() const
{
    return m_bus ? m_bus->statistics().notJson : m_client.Statistics().notJson;
}

std::uint64_t BusConnection::undecodableRecords() const
{
    return std::accumulate(m_subscriptions.begin(), m_subscriptions.end(), m_client.Statistics().undecodable,
                           [](std::uint64_t sum, const auto& subscription) {
                               return sum + subscription.statistics().undecodable;
                           });
}

} // namespace TelvaneTool
