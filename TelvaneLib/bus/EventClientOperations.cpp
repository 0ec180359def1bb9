// Subscribing. All waits have a time-out. A response of the server identifies its request only by the channel, so
// there is one request to the server at a time, and threads take turns.

#include "bus/EventClientState.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

namespace Telvane
{

int EventClient::subscribeToServer(const std::string& channel)
{
    return m_state->runExchange(m_state->subscribing, channel, makeSubscribeRequest(channel).get());
}

int EventClient::unsubscribeFromServer(const std::string& channel)
{
    return m_state->runExchange(m_state->unsubscribing, channel, makeUnsubscribeRequest(channel).get());
}

/// \param[out] sent order in which the request was sent; may be null
int EventClient::State::runExchange(MetaExchange& exchange, const std::string& channel, cJSON* request,
                                    std::uint64_t* sent)
{
    const std::lock_guard<std::mutex> turnGuard(exchange.turn);
    std::unique_lock<std::mutex> guard(exchange.lock);
    if (const int result = catchBadAlloc([&] {
            exchange.pendingChannel = channel;
            return 0;
        });
        result != 0) {
        return result;
    }
    exchange.success = false;
    exchange.done = false;
    {
        const std::lock_guard<std::mutex> orderGuard(orderLock);
        if (const int result = send(request); result != 0) {
            return result;
        }
        ++requestsSent;
        if (sent != nullptr) {
            *sent = requestsSent;
        }
    }
    while (!exchange.done) {
        const auto deadline = std::chrono::system_clock::now() + std::chrono::seconds(kResponseSeconds);
        if (exchange.condition.wait_until(guard, deadline) == std::cv_status::timeout && !exchange.done) {
            return -ETIMEDOUT;
        }
    }
    return exchange.success ? 0 : -1;
}

void MetaExchange::takeResponse(const cJSON* message)
{
    const char* const channel = channelOf(message);
    const std::lock_guard<std::mutex> guard(lock);
    success = isSuccess(message) && channel != nullptr && pendingChannel == channel;
    done = true;
    condition.notify_all();
}

void EventClient::subscribeResponseHandler(EventClient* client, cJSON* message)
{
    client->m_state->subscribing.takeResponse(message);
}

void EventClient::unsubscribeResponseHandler(EventClient* client, cJSON* message)
{
    client->m_state->unsubscribing.takeResponse(message);
}

int EventClient::Subscribe(const std::string& channel, Callback callback,
                           const TelvaneDataTypeBase& prototype, void* user)
{
    // Weak, so that the wait for the response does not keep a connection open.
    const std::weak_ptr<Connection> connection = m_state->currentConnection();
    if (connection.expired()) {
        return -ENOTCONN;
    }
    return catchBadAlloc([&] {
        State::ClosureEntry entry = State::makeEntry(
            channel, makeSubscription<SubscriptionCallbackClosure>(std::move(callback), prototype, user));
        return m_state->subscribe(channel, std::move(entry), connection);
    });
}

ChannelChange::ChannelChange(ChangeList& list, std::string_view channel) : m_list(list), m_channel(channel) {}

void ChannelChange::begin()
{
    const std::lock_guard<std::mutex> guard(m_list.lock);
    m_next = m_list.first;
    m_list.first = this;
}

ChannelChange::~ChannelChange()
{
    const std::lock_guard<std::mutex> guard(m_list.lock);
    unlink();
}

void ChannelChange::unlink()
{
    for (ChannelChange** place = &m_list.first; *place != nullptr; place = &(*place)->m_next) {
        if (*place == this) {
            *place = m_next;
            return;
        }
    }
}

void ChannelChange::end(Kind kind)
{
    const std::lock_guard<std::mutex> guard(m_list.lock);
    unlink();
    for (ChannelChange* other = m_list.first; other != nullptr; other = other->m_next) {
        if (other->m_channel == m_channel) {
            std::uint64_t& latest = kind == Kind::Subscribed ? other->m_subscribed : other->m_unsubscribed;
            latest = std::max(latest, sent);
        }
    }
}

bool ChannelChange::subscriptionUndone()
{
    const std::lock_guard<std::mutex> guard(m_list.lock);
    return m_unsubscribed > sent;
}

bool ChannelChange::undidSubscription()
{
    const std::lock_guard<std::mutex> guard(m_list.lock);
    return m_subscribed != 0 && m_subscribed < sent;
}

int EventClient::State::subscribe(const std::string& channel, ClosureEntry entry,
                                  const std::weak_ptr<Connection>& subscribedOn)
{
    ChannelChange change(changes, channel);
    change.begin();
    for (;;) {
        const int result = exchangeSubscription(channel, change);
        if (result != 0) {
            return result;
        }
        Closure earlier; // destroyed after the lock: the application's callback may own anything
        const std::lock_guard<std::mutex> guard(closuresLock);
        if (!change.subscriptionUndone()) {
            change.end(ChannelChange::Kind::Subscribed);
            return enterSubscription(std::move(entry), subscribedOn, earlier);
        }
    }
}

int EventClient::State::exchangeSubscription(const std::string& channel, ChannelChange& change)
{
    return runExchange(subscribing, channel, makeSubscribeRequest(channel).get(), &change.sent);
}

/// \return `-ENOTCONN` if the connection that was subscribed on was closed: after Disconnect() the table must
/// stay empty
int EventClient::State::enterSubscription(ClosureEntry entry, const std::weak_ptr<Connection>& subscribedOn,
                                          Closure& earlier)
{
    const ConnectionPointer current = currentConnection();
    if (current == nullptr || current != subscribedOn.lock()) {
        return -ENOTCONN;
    }
    earlier = enter(std::move(entry));
    return 0;
}

int EventClient::Unsubscribe(const std::string& channel)
{
    if (!m_state->connected()) {
        return -ENOTCONN;
    }
    if (m_state->isReceiver()) {
        return -EDEADLK;
    }
    {
        const std::lock_guard<std::mutex> guard(m_state->closuresLock);
        if (m_state->closures.find(channel) == m_state->closures.end()) {
            return -EINVAL;
        }
    }
    const int result = unsubscribeFromServer(channel);
    if (result == 0) {
        m_state->removeClosure(channel);
    }
    return result;
}

} // namespace Telvane
