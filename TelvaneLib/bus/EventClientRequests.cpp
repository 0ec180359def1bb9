// Requests of EventClient. While a request waits, its closure takes the place of the channel's subscription.
// Requests and subscriptions of several threads on one channel may overlap: each restores what the others need.

#include "bus/EventClientState.h"
#include "bus/PendingRequest.h"

#include <Telvane/RequestType.h>

#include <cerrno>
#include <utility>

namespace Telvane
{

int EventClient::Request(const std::string& channel, TelvaneDataTypeBase& record, int /*timeout*/)
{
    if (!m_state->connected()) {
        return -ENOTCONN;
    }
    if (m_state->isReceiver()) {
        return -EDEADLK;
    }
    return catchBadAlloc([&] { return m_state->request(*this, channel, record); });
}

/// The closure of a request that waits for its reply. It keeps the closure that it replaced in the table: a
/// subscription, which gets no messages meanwhile, or another thread's request, which gets each reply as
/// well.
class EventClient::State::RequestClosure : public SubscriptionCallbackClosure
{
public:
    using SubscriptionCallbackClosure::SubscriptionCallbackClosure;

    int ExecuteCallback(EventClient* client, cJSON* message) override
    {
        const int result = SubscriptionCallbackClosure::ExecuteCallback(client, message);
        auto* const other = dynamic_cast<RequestClosure*>(earlier.get());
        if (other != nullptr && payloadOf(message) != nullptr) {
            other->ExecuteCallback(client, message);
        }
        return result;
    }

    Closure earlier;
};

/// Subscribes and enters the closure, unless the server does not respond.
int EventClient::State::subscribeForRequest(const std::string& channel, ClosureEntry entry,
                                            RequestClosure& request)
{
    ChannelChange change(changes, channel);
    change.begin();
    for (;;) {
        const int result = exchangeSubscription(channel, change);
        if (result == -ENOMEM || result == -ETIMEDOUT) {
            return result;
        }
        const std::lock_guard<std::mutex> guard(closuresLock);
        if (result != 0 || !change.subscriptionUndone()) {
            request.earlier = enter(std::move(entry));
            change.end(ChannelChange::Kind::Subscribed);
            return result;
        }
    }
}

/// Removes the closure of a request, and unsubscribes if it was the channel's last one.
void EventClient::State::unsubscribeAfterRequest(const std::string& channel, RequestClosure& request)
{
    ChannelChange change(changes, channel);
    {
        Closure removed; // destroyed after the lock
        const std::lock_guard<std::mutex> guard(closuresLock);
        if (endRequest(channel, request, false, removed)) {
            return;
        }
        change.begin();
    }
    runExchange(unsubscribing, channel, makeUnsubscribeRequest(channel).get(), &change.sent);
    bool undone = false;
    {
        Closure removed;
        const std::lock_guard<std::mutex> guard(closuresLock);
        endRequest(channel, request, true, removed);
        change.end(ChannelChange::Kind::Unsubscribed);
        undone = change.undidSubscription() && closures.find(channel) != closures.end();
    }
    if (undone) {
        // The request of another thread that has subscribed was sent before the one that unsubscribed.
        runExchange(subscribing, channel, makeSubscribeRequest(channel).get());
    }
}

bool EventClient::State::endRequest(const std::string& channel, RequestClosure& request, bool removeLast,
                                    Closure& removed)
{
    const auto found = closures.find(channel);
    if (found == closures.end()) {
        return true; // another thread has unsubscribed
    }
    Closure* place = &found->second;
    while (place->get() != &request) {
        auto* const later = dynamic_cast<RequestClosure*>(place->get());
        if (later == nullptr) {
            return true; // another thread has subscribed
        }
        place = &later->earlier;
    }
    if (place != &found->second || request.earlier != nullptr) {
        removed = std::exchange(*place, std::move(request.earlier));
        return true;
    }
    if (removeLast) {
        removed = std::move(found->second);
        closures.erase(found);
    }
    return removeLast;
}

int EventClient::State::request(EventClient& client, const std::string& channel, TelvaneDataTypeBase& record)
{
    PendingRequest pending;
    pending.begin(record);
    auto closure = makeSubscription<RequestClosure>(
        [&pending](void*, TelvaneDataTypeBase* received, int, void*) { pending.take(received); }, record,
        nullptr);
    RequestClosure& own = *closure;
    ClosureEntry entry = makeEntry(channel, std::move(closure));
    const std::string requestChannel = kRequestPrefix + channel;
    int result = subscribeForRequest(channel, std::move(entry), own);
    if (result == -ENOMEM) {
        return result; // nothing was sent
    }
    if (result == -ETIMEDOUT) {
        client.unsubscribeFromServer(channel);
        removeClosure(channel);
        return result;
    }
    pending.ask(client, requestChannel, kResponseSeconds, result);
    unsubscribeAfterRequest(channel, own);
    return result > 0 ? -result : result;
}

} // namespace Telvane
