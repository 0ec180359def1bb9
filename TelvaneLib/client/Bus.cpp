// The public operations of Bus, and the start and end of its threads. BusHandles.cpp has those of the handles.

#include <Telvane/Bus.h>

#include "client/BusState.h"
#include "client/PayloadText.h"
#include "support/Thread.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cxxabi.h>
#include <new>
#include <random>
#include <sys/un.h>
#include <unistd.h>

namespace Telvane
{

namespace Detail
{

Clock::time_point deadlineAfter(std::chrono::nanoseconds timeout)
{
    constexpr std::chrono::nanoseconds kMaxTimeout = std::chrono::hours(24 * 365);
    return Clock::now() + std::clamp(timeout, std::chrono::nanoseconds(0), kMaxTimeout);
}

MessageHandler::~MessageHandler() = default;

std::string classNameOf(const std::type_info& type)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    const std::string name = demangled != nullptr ? demangled.get() : type.name();
    const std::size_t scope = name.rfind("::");
    return scope != std::string::npos ? name.substr(scope + 2) : name;
}

BusState::BusState(const std::string& serverPath, BusOptions how)
    : options(std::move(how)), path(serverPath), m_wake(openWake())
{
    const auto now = static_cast<std::uint64_t>(Clock::now().time_since_epoch().count());
    m_identity = now ^ (static_cast<std::uint64_t>(getpid()) << 40U);
    try {
        std::random_device device;
        m_identity ^= (static_cast<std::uint64_t>(device()) << 32U) | device();
    } catch (const std::exception&) {
        // The time and the process ID are enough to distinguish programs on one machine.
        m_identity ^= reinterpret_cast<std::uintptr_t>(this);
    }
    m_random = m_identity;
}

BusState::~BusState()
{
    delete m_idleWriter.load();
}

void BusState::start()
{
    const Held held(lock);
    if (path.empty() || path.size() >= sizeof(sockaddr_un::sun_path)) {
        reason = BusError::BadPath;
    } else if (!m_wake.isOpen()) {
        reason = {errno, std::system_category()};
    } else {
        int result = options.onEvent && !eventsAreDispatched() ? startWorker() : 0;
        if (result == 0) {
            result = launch(m_receiverThread, &runReceiver);
        }
        if (result == 0) {
            return;
        }
        reason = {result, std::system_category()};
    }
    state = ConnectionState::Closed;
    m_closed = true;
    m_work.notify_all();
}

/// Starts a thread unless it has been started.
/// \return 0, or an error number
int BusState::launch(OwnThread& thread, void* (*entry)(void*))
{
    if (thread.started) {
        return 0;
    }
    auto self = std::make_unique<std::shared_ptr<BusState>>(shared_from_this());
    const int result = startThread(thread.handle, entry, self.get(), 0);
    if (result == 0) {
        self.release(); // the thread owns it now
        thread.started = true;
    }
    return result;
}

void* runReceiver(void* argument)
{
    const std::unique_ptr<std::shared_ptr<BusState>> own(static_cast<std::shared_ptr<BusState>*>(argument));
    (*own)->receive();
    return nullptr;
}

void* runWorker(void* argument)
{
    const std::unique_ptr<std::shared_ptr<BusState>> own(static_cast<std::shared_ptr<BusState>*>(argument));
    (*own)->work();
    return nullptr;
}

void BusState::close(bool forGood)
{
    std::list<Kept> outbox;
    Held held(lock);
    revokeDirect();
    if (!m_closed) {
        m_closed = true;
        m_closer = std::this_thread::get_id();
        m_upLink = nullptr; // so that publish() finds that the bus is closed
        state = ConnectionState::Closed;
        reason = BusError::Closed;
        if (m_link != nullptr) {
            m_link->shutDown();
        }
        for (auto& [name, channel] : m_channels) {
            for (const RequestPointer& request : channel.requests) {
                request->fail(BusError::Closed);
            }
            for (const EndpointPointer& endpoint : channel.endpoints) {
                endpoint->ended = true;
                endpoint->error = BusError::Closed;
                endpoint->updateEvent();
                endpoint->changed.notify_all();
            }
        }
        outbox.swap(m_outbox);
        m_work.notify_all();
        changed.notify_all();
        wakeUp(m_wake.get());
    }
    endThread(held, m_receiverThread, forGood);
    endThread(held, m_workerThread, forGood);
    while (popReady(m_worker) != nullptr || popReady(m_dispatcher) != nullptr) {
    }
    const CallbackFrame* const frame = CallbackFrame::innermost(*this);
    const bool inEvent = CallbackFrame::inEvent(*this);
    changed.wait(held, [&] { return !m_eventRuns || inEvent || frame != nullptr; });
    while (const EndpointPointer endpoint = takeAnyEndpoint()) {
        held.unlock();
        endEndpoint(endpoint, true);
        held.lock();
    }
    m_events.clear();
}

EndpointPointer BusState::takeAnyEndpoint()
{
    for (auto& [name, channel] : m_channels) {
        if (!channel.endpoints.empty()) {
            EndpointPointer endpoint = std::move(channel.endpoints.back());
            channel.endpoints.pop_back();
            return endpoint;
        }
    }
    return nullptr;
}

/// Joins a thread of the bus. The thread cannot join itself; if \p forGood, it is detached instead.
void BusState::endThread(Held& held, OwnThread& thread, bool forGood)
{
    const bool isOwn = thread.started && pthread_equal(thread.handle, pthread_self()) != 0;
    if (!thread.started || (isOwn && !forGood)) {
        return;
    }
    thread.started = false;
    if (isOwn) {
        pthread_detach(thread.handle);
        return;
    }
    held.unlock();
    pthread_join(thread.handle, nullptr);
    held.lock();
}

std::error_code BusState::waitConnected(std::chrono::nanoseconds timeout)
{
    const Clock::time_point deadline = deadlineAfter(timeout);
    Held held(lock);
    if (state == ConnectionState::Connecting && CallbackFrame::inReceiver(*this)) {
        return BusError::WouldDeadlock;
    }
    changed.wait_until(held, deadline, [this] { return state != ConnectionState::Connecting; });
    switch (state) {
    case ConnectionState::Connected:
        return {};
    case ConnectionState::Closed:
        return BusError::Closed;
    case ConnectionState::Connecting:
        break;
    }
    return BusError::TimedOut;
}

BusStatistics BusState::statistics() const
{
    const std::lock_guard<std::mutex> guard(lock);
    BusStatistics now = m_counters;
    now.received = m_received.value();
    now.outboxWaiting = m_outbox.size();
    return now;
}

namespace
{

/// A callable that takes records of any class.
class GenericHandler : public MessageHandler
{
public:
    using Callback = std::function<void(TelvaneDataTypeBase&, const Delivery&)>;

    explicit GenericHandler(Callback callback) : m_callback(std::move(callback)) {}
    std::unique_ptr<TelvaneDataTypeBase> handle(TelvaneDataTypeBase& record,
                                                const Delivery& delivery) override
    {
        m_callback(record, delivery);
        return nullptr;
    }

private:
    Callback m_callback;
};

/// A callable that takes texts.
class TextHandler : public MessageHandler
{
public:
    using Callback = std::function<void(std::string_view, const Delivery&)>;

    explicit TextHandler(Callback callback) : m_callback(std::move(callback)) {}
    std::unique_ptr<TelvaneDataTypeBase> handle(TelvaneDataTypeBase& record,
                                                const Delivery& delivery) override
    {
        m_callback(static_cast<const PayloadText&>(record).text(), delivery);
        return nullptr;
    }

private:
    Callback m_callback;
};

} // namespace

} // namespace Detail

Bus::Bus(const std::string& path, BusOptions options)
    : m_state(std::make_shared<Detail::BusState>(path, std::move(options)))
{
    m_state->start();
}

Bus::~Bus()
{
    const std::shared_ptr<Detail::BusState> state = m_state;
    state->close(true);
}

void Bus::close()
{
    const std::shared_ptr<Detail::BusState> state = m_state;
    state->close(false);
}

ConnectionState Bus::state() const
{
    const std::lock_guard<std::mutex> guard(m_state->lock);
    return m_state->state;
}

std::error_code Bus::reason() const
{
    const std::lock_guard<std::mutex> guard(m_state->lock);
    return m_state->reason;
}

std::error_code Bus::waitConnected(std::chrono::nanoseconds timeout) const
{
    return m_state->waitConnected(timeout);
}

BusStatistics Bus::statistics() const
{
    return m_state->statistics();
}

Publication Bus::publish(const std::string& channel, const TelvaneDataTypeBase& record)
{
    return m_state->publish(channel, record, m_state->options.deadline, Detail::BusState::Absence::Keeps);
}

Publication Bus::publish(const std::string& channel, const TelvaneDataTypeBase& record,
                         std::chrono::nanoseconds timeout)
{
    return m_state->publish(channel, record, timeout, Detail::BusState::Absence::Keeps);
}

Subscription
Bus::subscribe(const std::string& channel, const TelvaneDataTypeBase& prototype,
               std::function<void(TelvaneDataTypeBase& record, const Delivery& delivery)> callback, Run run,
               Limit limit)
{
    return make<Subscription>(channel, {Detail::EndpointSettings::Kind::Callback, run, limit}, [&] {
        Parts parts{std::unique_ptr<TelvaneDataTypeBase>(prototype.BuildNewDataType()),
                    std::make_unique<Detail::GenericHandler>(std::move(callback))};
        if (parts.prototype == nullptr) {
            throw std::bad_alloc();
        }
        return parts;
    });
}

Subscription
Bus::subscribeText(const std::string& channel,
                   std::function<void(std::string_view payload, const Delivery& delivery)> callback, Run run,
                   Limit limit)
{
    return make<Subscription>(channel, {Detail::EndpointSettings::Kind::Callback, run, limit}, [&] {
        return Parts{std::make_unique<Detail::PayloadText>(),
                     std::make_unique<Detail::TextHandler>(std::move(callback))};
    });
}

std::error_code Bus::request(const std::string& channel, const TelvaneDataTypeBase& argument,
                             TelvaneDataTypeBase& answer)
{
    return request(channel, argument, answer, m_state->options.deadline);
}

std::error_code Bus::request(const std::string& channel, const TelvaneDataTypeBase& argument,
                             TelvaneDataTypeBase& answer, std::chrono::nanoseconds timeout)
{
    const std::shared_ptr<Detail::BusState> state = m_state;
    return state->request(channel, argument, answer, timeout);
}

std::size_t Bus::dispatch()
{
    const std::shared_ptr<Detail::BusState> state = m_state; // a callback may destroy the bus
    return state->dispatch();
}

int Bus::fd()
{
    return m_state->dispatchDescriptor();
}

std::shared_ptr<Detail::Endpoint> Bus::addEndpoint(const std::string& channel,
                                                   const Detail::EndpointSettings& settings,
                                                   std::unique_ptr<TelvaneDataTypeBase> prototype,
                                                   std::unique_ptr<Detail::MessageHandler> handler,
                                                   std::error_code& error)
{
    return m_state->addEndpoint(channel, settings, std::move(prototype), std::move(handler), error);
}

} // namespace Telvane
