// The client's connection and its receiver thread.
//
// The receiver thread reads all messages and dispatches them by their header to closures: the client's own
// for responses of the server, the application's for channels. No message must end the thread: messages that
// cannot be read are dropped and counted. Only exceptions of an application's own callback are not caught.

#include "bus/EventClientState.h"

#include "base/RecordEngine.h"
#include "support/JsonScanner.h"
#include "support/Thread.h"

#include <cerrno>
#include <chrono>
#include <string_view>
#include <sys/socket.h>
#include <utility>

namespace Telvane
{

namespace
{

constexpr auto kDisconnectDeadline = std::chrono::seconds(10);

} // namespace

EventClient::EventClient() : m_state(std::make_unique<State>()) {}

EventClient::~EventClient()
{
    Disconnect();
    m_state->joinEndedReceiver();
}

int EventClient::Connect(const std::string& path)
{
    if (m_state->connected()) {
        return -EADDRINUSE;
    }
    return catchBadAlloc([&] { return m_state->connect(*this, path); });
}

int EventClient::State::connect(EventClient& client, const std::string& newPath)
{
    // Allocate first: nothing can be undone once the thread runs.
    std::string ownPath = newPath;
    ClosureEntry subscribeEntry = makeEntry(
        kSubscribeHeader, std::make_unique<InternalOperationClosure>(&EventClient::subscribeResponseHandler));
    ClosureEntry unsubscribeEntry =
        makeEntry(kUnsubscribeHeader,
                  std::make_unique<InternalOperationClosure>(&EventClient::unsubscribeResponseHandler));
    ConnectionPointer newConnection = std::make_shared<Connection>(openSocket());
    const int socket = newConnection->socket.get();
    if (socket < 0 || connectSocket(socket, newPath) != 0) {
        return -1;
    }
    joinEndedReceiver();
    setConnection(std::move(newConnection));
    {
        const std::lock_guard<std::mutex> guard(disconnectLock);
        receiverRunning = true;
        receiverJoinable = startThread(receiverThread, &EventClient::rx_handler, &client, 0) == 0;
        receiverRunning = receiverJoinable;
    }
    path = std::move(ownPath);
    const std::lock_guard<std::mutex> guard(closuresLock);
    enter(std::move(subscribeEntry));
    enter(std::move(unsubscribeEntry));
    return 0;
}

int EventClient::Disconnect()
{
    const ConnectionPointer connection = m_state->currentConnection();
    if (connection == nullptr) {
        return -ENOTCONN;
    }
    {
        std::unique_lock<std::mutex> guard(m_state->disconnectLock);
        if (m_state->currentConnection() != connection) {
            return -ENOTCONN; // another thread has disconnected meanwhile
        }
        connection->open = false;
        if (shutdown(connection->socket.get(), SHUT_RDWR) != 0) {
            connection->open = true;
            return -EALREADY;
        }
        m_state->setConnection(nullptr);
        const auto deadline = std::chrono::system_clock::now() + kDisconnectDeadline;
        if (!m_state->disconnectCondition.wait_until(guard, deadline,
                                                     [this] { return !m_state->receiverRunning; })) {
            return -ETIMEDOUT;
        }
    }
    m_state->joinEndedReceiver();
    const std::lock_guard<std::mutex> guard(m_state->closuresLock);
    m_state->closures.clear();
    return 0;
}

bool EventClient::IsConnected()
{
    return m_state->connected();
}

ConnectionPointer EventClient::State::currentConnection()
{
    const std::lock_guard<std::mutex> guard(connectionLock);
    return connection;
}

void EventClient::State::setConnection(ConnectionPointer newConnection)
{
    // The old connection is released, and perhaps closed, after the lock.
    const std::lock_guard<std::mutex> guard(connectionLock);
    connection.swap(newConnection);
}

void EventClient::State::joinEndedReceiver()
{
    pthread_t left = {};
    {
        // The notification of a lost connection may call this function on the receiver thread, which a later
        // call joins. Join without the lock, which the receiver thread takes before it ends.
        const std::lock_guard<std::mutex> guard(disconnectLock);
        if (!receiverJoinable || pthread_equal(receiverThread, pthread_self()) != 0) {
            return;
        }
        receiverJoinable = false;
        left = receiverThread;
    }
    pthread_join(left, nullptr);
}

void EventClient::State::endReceiver()
{
    const std::lock_guard<std::mutex> guard(disconnectLock);
    receiverRunning = false;
    disconnectCondition.notify_all();
}

bool EventClient::State::isReceiver()
{
    const std::lock_guard<std::mutex> guard(disconnectLock);
    return receiverRunning && pthread_equal(receiverThread, pthread_self()) != 0;
}

void* EventClient::rx_handler(void* client)
{
    EventClient& self = *static_cast<EventClient*>(client);
    State& state = *self.m_state;
    const ConnectionPointer connection = state.currentConnection();
    const auto isOpen = [&] {
        if (connection->open) {
            return true;
        }
        // A disconnection that fails opens the connection again before it releases the lock.
        const std::lock_guard<std::mutex> guard(state.disconnectLock);
        return connection->open.load();
    };
    if (connection != nullptr) {
        char buffer[kMessageLimit];
        while (isOpen()) {
            const int length = receivePacket(connection->socket.get(), buffer);
            if (length < 0 && errno == EINTR) {
                continue;
            }
            if (length < 1) {
                break;
            }
            state.dispatch(self, buffer);
        }
    }
    const bool lost = connection != nullptr && isOpen();
    state.endReceiver();
    if (lost && state.onConnectionLost) {
        state.onConnectionLost(self);
    }
    return nullptr;
}

void EventClient::State::dispatch(EventClient& client, const char* text)
{
    count(counters.received);
    if (deliver(client, text)) {
        return;
    }
    const JsonTree message(cJSON_Parse(text));
    if (message == nullptr) {
        count(counters.notJson);
        return;
    }
    const std::lock_guard<std::mutex> guard(closuresLock);
    const auto found = closures.find(std::string_view(headerOf(message.get())));
    if (found == closures.end()) {
        count(counters.notSubscribed);
    } else if (found->second->ExecuteCallback(&client, message.get()) != 0) {
        count(counters.undecodable);
    }
}

bool EventClient::State::deliver(EventClient& client, const char* text)
{
    JsonScanner relay(text);
    std::string_view channel;
    int sequence = 0;
    if (!beginRelay(relay, channel, sequence)) {
        return false;
    }
    const std::lock_guard<std::mutex> guard(closuresLock);
    const auto found = closures.find(channel);
    if (found == closures.end()) {
        return false;
    }
    CallbackClosure& closure = *found->second;
    return typeid(closure) == typeid(SubscriptionCallbackClosure) &&
           static_cast<SubscriptionCallbackClosure&>(closure).deliver(client, relay, sequence);
}

EventClient::State::ClosureEntry EventClient::State::makeEntry(const std::string& header, Closure closure)
{
    ClosureTable table;
    table.emplace(header, std::move(closure));
    return table.extract(table.begin());
}

EventClient::State::Closure EventClient::State::enter(ClosureEntry entry)
{
    auto outcome = closures.insert(std::move(entry));
    return outcome.inserted ? nullptr
                            : std::exchange(outcome.position->second, std::move(outcome.node.mapped()));
}

void EventClient::State::removeClosure(const std::string& header)
{
    ClosureEntry removed; // destroyed after the lock: the application's callback may own anything
    const std::lock_guard<std::mutex> guard(closuresLock);
    removed = closures.extract(header);
}

EventClient::CallbackClosure::~CallbackClosure() = default;

EventClient::InternalOperationClosure::InternalOperationClosure(Operation operation) : m_operation(operation)
{}

int EventClient::InternalOperationClosure::ExecuteCallback(EventClient* client, cJSON* message)
{
    m_operation(client, message);
    return 0;
}

EventClient::SubscriptionCallbackClosure::SubscriptionCallbackClosure(TelvaneDataTypeBase* prototype,
                                                                      void* user, Callback callback)
    : m_prototype(prototype), m_user(user), m_callback(std::move(callback))
{}

int EventClient::SubscriptionCallbackClosure::ExecuteCallback(EventClient* client, cJSON* message)
{
    cJSON* const payload = payloadOf(message);
    if (payload == nullptr) {
        count(State::of(*client).counters.undecodable);
        return 0;
    }
    TelvaneDataTypeBase* unpackaged = nullptr;
    try {
        const int result = m_prototype->Unpackage(payload, &unpackaged);
        if (result != 0) {
            return result;
        }
    } catch (const std::exception&) {
        // For example a time without digits. No message must end this thread.
        return -EINVAL;
    }
    const std::unique_ptr<TelvaneDataTypeBase> record(unpackaged);
    m_callback(client, record.get(), sequenceOf(message), m_user);
    return 0;
}

bool EventClient::SubscriptionCallbackClosure::deliver(EventClient& client, JsonScanner& relay, int sequence)
{
    std::unique_ptr<TelvaneDataTypeBase> record;
    try {
        // If this fails, the message is handled once more with a tree, and errors are counted and reported there.
        if (m_prototype->_recordTable() == nullptr) {
            return false;
        }
        record.reset(m_prototype->BuildNewDataType());
        if (record == nullptr || !RecordEngine::scan(*record, relay, 1) || !endRelay(relay)) {
            return false;
        }
    } catch (const std::exception&) {
        return false;
    }
    m_callback(&client, record.get(), sequence, m_user);
    return true;
}

int EventClient::install_OnConnectionLost(std::function<void(EventClient& client)> fn)
{
    if (!fn) {
        return -EINVAL;
    }
    m_state->onConnectionLost = std::move(fn);
    return 0;
}

int EventClient::uninstall_OnConnectionLost()
{
    if (!m_state->onConnectionLost) {
        return -EALREADY;
    }
    m_state->onConnectionLost = nullptr;
    return 0;
}

void EventClient::Statistics(EventClientStatistics& statistics, std::size_t size) const
{
    const ClientCounters& counters = m_state->counters;
    EventClientStatistics copy;
    TELVANE_CLIENT_COUNTERS(TELVANE_COPY_COUNTER)
    copyKnown(copy, statistics, size);
}

} // namespace Telvane
