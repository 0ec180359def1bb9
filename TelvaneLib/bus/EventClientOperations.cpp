// Publishing, subscribing and requesting.
//
// A send is retried until at least a part is sent, so that a busy server loses no message; only Disconnect()
// ends that. Other waits have a time-out. A response of the server identifies its request only by the
// channel, so there is one request to the server at a time, and threads take turns.

#include "bus/EventClientState.h"
#include "bus/PendingRequest.h"

#include <Telvane/RequestType.h>

#include <cerrno>
#include <chrono>
#include <new>
#include <utility>

namespace Telvane
{

namespace
{

constexpr unsigned int kResponseSeconds = 1;

} // namespace

int EventClient::Publish(const std::string& channel, TelvaneDataTypeBase& record)
{
    const ConnectionPointer connection = m_state->currentConnection();
    if (connection == nullptr) {
        return -ENOTCONN;
    }
    std::unique_ptr<PublicationWriter> writer = m_state->takeWriter();
    if (writer == nullptr) {
        return -ENOMEM;
    }
    const char* text = nullptr;
    int result = writer->write(channel, record, text);
    if (result == 0) {
        result = State::sendText(*connection, text, writer->length());
    }
    m_state->returnWriter(std::move(writer));
    return result;
}

std::unique_ptr<PublicationWriter> EventClient::State::takeWriter()
{
    PublicationWriter* const idle = idleWriter.exchange(nullptr);
    return std::unique_ptr<PublicationWriter>(idle != nullptr ? idle
                                                              : new (std::nothrow) PublicationWriter());
}

void EventClient::State::returnWriter(std::unique_ptr<PublicationWriter> writer)
{
    // Keep this one. Delete one that another thread has returned meanwhile.
    writer.reset(idleWriter.exchange(writer.release()));
}

int EventClient::State::send(cJSON* message)
{
    const ConnectionPointer used = currentConnection();
    if (used == nullptr) {
        return -ENOTCONN;
    }
    std::unique_ptr<PublicationWriter> writer = takeWriter();
    if (message == nullptr || writer == nullptr) {
        return -ENOMEM;
    }
    const char* const text = writer->print(message);
    const int result = text != nullptr ? sendText(*used, text, writer->length()) : -ENOMEM;
    returnWriter(std::move(writer));
    return result;
}

int EventClient::State::sendText(Connection& used, const char* text, int length)
{
    SentPacket packet;
    do {
        if (!used.open) {
            return -ENOTCONN;
        }
        packet = sendPacket(used.socket.get(), text, length, 0);
    } while (packet.sent <= 0);
    return packet.complete() ? 0 : packet.sent;
}

int EventClient::writeDataToSocket(char* data, int length)
{
    const ConnectionPointer connection = m_state->currentConnection();
    return connection != nullptr ? State::sendText(*connection, data, length) : -ENOTCONN;
}

int EventClient::subscribeToServer(const std::string& channel)
{
    return m_state->runExchange(m_state->subscribing, channel, makeSubscribeRequest(channel).get());
}

int EventClient::unsubscribeFromServer(const std::string& channel)
{
    return m_state->runExchange(m_state->unsubscribing, channel, makeUnsubscribeRequest(channel).get());
}

int EventClient::State::runExchange(MetaExchange& exchange, const std::string& channel, cJSON* request)
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
    if (const int result = send(request); result != 0) {
        return result;
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

namespace
{

/// \return a closure of SubscriptionCallbackClosure or a class with the same constructor
template <class Closure>
std::unique_ptr<Closure> makeSubscription(EventClient::Callback callback,
                                          const TelvaneDataTypeBase& prototype, void* user)
{
    std::unique_ptr<TelvaneDataTypeBase> own(prototype.BuildNewDataType());
    if (own == nullptr) {
        throw std::bad_alloc();
    }
    auto closure = std::make_unique<Closure>(own.get(), user, std::move(callback));
    own.release(); // the closure owns it now
    return closure;
}

} // namespace

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
        const int result = subscribeToServer(channel);
        return result == 0 ? m_state->enterSubscription(std::move(entry), connection) : result;
    });
}

/// \return `-ENOTCONN` if the connection that was subscribed on was closed: after Disconnect() the table must
/// stay empty
int EventClient::State::enterSubscription(ClosureEntry entry, const std::weak_ptr<Connection>& subscribedOn)
{
    Closure earlier; // destroyed after the lock: the application's callback may own anything
    const std::lock_guard<std::mutex> guard(closuresLock);
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

void EventClient::State::enterRequest(ClosureEntry entry, RequestClosure& request)
{
    const std::lock_guard<std::mutex> guard(closuresLock);
    request.earlier = enter(std::move(entry));
}

bool EventClient::State::endRequest(const std::string& channel, RequestClosure& request, bool removeLast)
{
    // Destroyed after the lock.
    Closure ended;
    ClosureEntry removed;
    const std::lock_guard<std::mutex> guard(closuresLock);
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
        ended = std::exchange(*place, std::move(request.earlier));
        return true;
    }
    if (removeLast) {
        removed = closures.extract(found);
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
    int result = client.subscribeToServer(channel);
    if (result == -ENOMEM) {
        return result; // nothing was sent
    }
    if (result == -ETIMEDOUT) {
        client.unsubscribeFromServer(channel);
        removeClosure(channel);
        return result;
    }
    enterRequest(std::move(entry), own);
    pending.ask(client, requestChannel, kResponseSeconds, result);
    if (!endRequest(channel, own, false)) {
        client.unsubscribeFromServer(channel);
        endRequest(channel, own, true);
    }
    return result > 0 ? -result : result;
}

} // namespace Telvane
