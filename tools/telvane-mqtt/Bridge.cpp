// Threads: that of the bus fills the queue with records that leave as they are, and this one with all others and with what
// goes to the spool, because that takes longer. The link's empties the queue, and requests wait on their own. A message that
// comes alone is sent by the thread that fills the queue, because a second wake-up would take longer than sending it. A slow
// broker can fill the queue, but it delays neither the bus nor a request.

#include "telvane-mqtt/Bridge.h"

#include "common/bus/MetricsPipe.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "telvane-mqtt/InboundHandler.h"
#include "telvane-mqtt/Metrics.h"
#include "telvane-mqtt/broker/BrokerLink.h"
#include "telvane-mqtt/channels/ChannelFeed.h"
#include "telvane-mqtt/channels/PayloadDecoder.h"

#include <Telvane/Bus.h>

#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr std::size_t kBusQueue = 10'000;
constexpr std::size_t kEnvelope = 1024; ///< what a payload may have beside its body, and the topic
constexpr Nanoseconds kFarewell = 2 * kSecond;

/// Holds the client's identifier at a broker for as long as the process lives: two bridges with one identifier would end each
/// other's connections for ever. A socket in the abstract namespace needs no file and no cleaning up.
FileDescriptor lockIdentifier(const std::string& identifier)
{
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string name = "telvane-mqtt/" + std::to_string(std::hash<std::string>()(identifier));
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    return bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), length) == 0 ? std::move(socket)
                                                                                        : FileDescriptor();
}

void reportEvent(const Telvane::BusEvent& event)
{
    using Kind = Telvane::BusEvent::Kind;
    if (event.kind == Kind::StateChanged && event.state == Telvane::ConnectionState::Connected) {
        printStatus("connected to the bus");
    } else if (event.kind == Kind::AttemptFailed || (event.kind == Kind::StateChanged && event.reason)) {
        printError("bus: " + event.reason.message());
    } else if (event.kind == Kind::SubscriptionRefused) {
        printError("the server of the bus refuses the channel " + event.channel);
    }
}

Telvane::BusOptions busOptions()
{
    Telvane::BusOptions options;
    options.run = Telvane::Run::Dispatch;
    options.onEvent = &reportEvent;
    return options;
}

/// Follows the channels that go out.
class Outbound
{
public:
    /// \param eachRecord where records are handled that leave as they are
    Outbound(const BridgeSettings& settings, Telvane::Bus& bus, OutgoingQueue& queue, Telvane::Run eachRecord)
        : m_settings(settings), m_queue(queue)
    {
        const Topics topics(settings.prefix, settings.module);
        for (const auto& [name, rule] : settings.rules.out()) {
            auto channel = std::make_unique<Channel>(Channel{
                name,
                PayloadDecoder(rule.recordClass),
                ChannelFeed(rule,
                            [this, outline = outlineOf(name, rule, topics)](std::string body, WallTime time) {
                                push(outline, std::move(body), std::move(time));
                            }),
                {},
                0});
            Channel* const raw = channel.get();
            Telvane::Limit limit;
            limit.messages = kBusQueue;
            channel->subscription = bus.subscribeText(
                name,
                [this, raw](std::string_view payload, const Telvane::Delivery& /*delivery*/) {
                    take(*raw, payload);
                },
                rule.mode == Mode::EachRecord ? eachRecord : Telvane::Run::Dispatch, limit);
            m_channels.push_back(std::move(channel));
        }
    }

    /// Closes what is due, commits what was accepted and counts what the bus has dropped.
    /// \return milliseconds until it should be called again
    int tick(Nanoseconds now)
    {
        Nanoseconds next = now + kSecond;
        for (const auto& channel : m_channels) {
            channel->feed.closeIfDue(now);
            const Nanoseconds due = channel->feed.due();
            next = due >= 0 ? std::min(next, due) : next;
            const std::uint64_t lost = channel->subscription.statistics().dropped;
            if (lost != channel->lost) {
                m_queue.countLost(channel->name, DropReason::BusLag, lost - channel->lost);
                channel->lost = lost;
            }
        }
        m_queue.commit(now);
        return static_cast<int>(std::max<Nanoseconds>(next - now + kMillisecond - 1, 0) / kMillisecond);
    }

    void close()
    {
        for (const auto& channel : m_channels) {
            channel->subscription.end();
            channel->feed.close();
        }
        m_queue.commit(monotonicNow());
    }

private:
    struct Channel
    {
        std::string name;
        PayloadDecoder decoder;
        ChannelFeed feed;
        Telvane::Subscription subscription;
        std::uint64_t lost = 0;
    };

    void take(Channel& channel, std::string_view payload)
    {
        std::string record;
        if (!channel.decoder.decode(payload, record).empty()) {
            m_queue.countLost(channel.name, DropReason::Invalid);
            return;
        }
        channel.feed.add(std::move(record), monotonicNow(),
                         std::max(m_settings.broker.packetLimit, 2 * kEnvelope) - kEnvelope);
    }

    /// \return what all messages of a channel have
    static OutgoingMessage outlineOf(const std::string& channel, const OutRule& rule, const Topics& topics)
    {
        OutgoingMessage message;
        message.channel = channel;
        message.topic = topics.notification(channel);
        message.className = rule.recordClass != nullptr ? rule.recordClass->name : "";
        message.qos = rule.qos;
        message.retain = rule.retain;
        return message;
    }

    void push(const OutgoingMessage& outline, std::string body, WallTime time)
    {
        OutgoingMessage message = outline;
        message.body = std::move(body);
        message.time = std::move(time);
        m_queue.push(std::move(message), monotonicNow());
    }

    const BridgeSettings& m_settings;
    OutgoingQueue& m_queue;
    std::vector<std::unique_ptr<Channel>> m_channels;
};

/// Runs callbacks of the bus until a signal arrives.
template <class AfterCallbacks>
int runUntilSignal(Telvane::Bus& bus, Outbound& outbound, AfterCallbacks afterCallbacks)
{
    const FileDescriptor signals = openSignals();
    for (;;) {
        const int wait = outbound.tick(monotonicNow());
        pollfd descriptors[] = {{signals.get(), POLLIN, 0}, {bus.fd(), POLLIN, 0}};
        poll(descriptors, 2, wait);
        if ((descriptors[0].revents & POLLIN) != 0 && readSignal(signals.get()) != 0) {
            return kSuccess;
        }
        bus.dispatch();
        const int result = afterCallbacks();
        if (result != kSuccess) {
            return result;
        }
    }
}

} // namespace

int runBridge(const BridgeSettings& settings)
{
    const BrokerSettings& broker = settings.broker;
    const FileDescriptor lock =
        lockIdentifier(broker.clientId + "@" + broker.host + ":" + std::to_string(broker.port));
    if (!lock.isOpen()) {
        printError("a bridge for the module " + settings.module + " runs already on this machine");
        return kWrongUsage;
    }
    Session session = startSession();
    std::optional<Spool> spool;
    if (!settings.spool.empty()) {
        spool.emplace(settings.spool, settings.spoolLimits);
        std::uint64_t number = session.number;
        const std::string error = spool->open(machineClocks(), number);
        if (!error.empty()) {
            printError(error);
            return kOutputFailure;
        }
        session = sessionWithNumber(number);
    }
    OutgoingQueue queue(settings.queue, spool ? &*spool : nullptr);
    Telvane::Bus bus(settings.bus, busOptions());
    // Commits come from one thread only, after each group of records.
    Outbound outbound(settings, bus, queue, spool ? Telvane::Run::Dispatch : Telvane::Run::Direct);
    InboundHandler inbound(settings, session, bus, queue);
    BrokerLink link(settings, session, queue,
                    [&inbound](TopicKind kind, const std::string& channel, IncomingMessage message) {
                        inbound.handle(kind, channel, std::move(message));
                    });
    const MetricsSources sources = {queue, link.counts(), inbound.counts(), spool ? &*spool : nullptr};
    std::optional<MetricsPipe> pipe;
    if (!settings.metricsPipe.empty()) {
        pipe.emplace(settings.metricsPipe, [&sources] { return metricsPage(sources); });
        const int opened = pipe->open();
        if (opened != kSuccess) {
            return opened;
        }
    }
    link.start();
    const int result = runUntilSignal(bus, outbound, [] { return kSuccess; });
    outbound.close();
    const bool ended = link.stop(kFarewell);
    queue.commit(monotonicNow()); // what was acknowledged in the end
    if (!ended) {
        // Its thread waits for TCP and cannot be interrupted.
        pipe.reset();
        _exit(result);
    }
    return result;
}

int runDry(const BridgeSettings& settings)
{
    const Session session = startSession();
    OutgoingQueue queue(settings.queue);
    Telvane::Bus bus(settings.bus, busOptions());
    Outbound outbound(settings, bus, queue, Telvane::Run::Dispatch);
    const auto print = [&] {
        bool fromBacklog = false;
        int result = kSuccess;
        while (auto message = queue.take(monotonicNow(), true, fromBacklog)) {
            result =
                writeResult(message->topic + " " +
                            (settings.bare ? barePayloadOf(*message) : payloadOf(*message, session)) + "\n");
            if (result != kSuccess) {
                break;
            }
        }
        return result;
    };
    const int result = runUntilSignal(bus, outbound, print);
    outbound.close();
    return result == kSuccess ? print() : result;
}

} // namespace TelvaneTool::Mqtt
