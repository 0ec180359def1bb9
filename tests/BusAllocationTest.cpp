// The bus while memory runs out: every allocation of every operation fails once, alone and for good, on the
// thread that makes it. Nobody dies of it, nobody throws, what is lost is told or counted, and with memory
// back the next call does all that it should.

#include "AllocationFaults.h"
#include "BusTestSupport.h"

#include <Telvane/DeviceRecords.h>
#include <Telvane/EventClientSynchronizer.h>

#include <atomic>
#include <unistd.h>

namespace Telvane
{
namespace
{

using namespace Testing;

// Longer than what a text holds without an allocation.
const std::string kChannel = "a_channel_with_quite_a_long_name";

HALInfo exampleRecord(int number)
{
    HALInfo record;
    record.serialNumber = "a serial number of more than sixteen characters";
    record.machineType = "a machine type of more than sixteen characters";
    record.revisionNumber = number;
    return record;
}

/// Counts the calls of one kind on one kind of thread, which tells how far that thread is.
class Progress
{
public:
    Progress(Call call, Caller caller) : m_counting({call, caller, 0, 0, 0}) {}

    /// Runs \p action, and waits until the thread has come to its next call.
    template <class Action>
    bool afterNextCallOf(Action action)
    {
        const int before = m_counting.calls();
        action();
        return eventually([&] { return m_counting.calls() > before; });
    }

private:
    Fault m_counting;
};

/// What the server does.
class ServerMemory : public UnderShortage
{
protected:
    /// Sends \p packet while the thread that handles it runs out of memory.
    static void sendDuring(AllocationFault& fault, Progress& receiving, const RawPeer& peer,
                           const std::string& packet)
    {
        fault.begin();
        EXPECT_TRUE(receiving.afterNextCallOf([&] { peer.send(packet); }));
        fault.end();
    }

    /// Connects a peer and waits until its thread has come to receive.
    static RawPeer connect(const RunningServer& running, Progress& receiving)
    {
        std::optional<RawPeer> peer;
        EXPECT_TRUE(receiving.afterNextCallOf([&] { peer.emplace(running.connect()); }));
        return std::move(*peer);
    }

    static void subscribeAndSettle(const RawPeer& peer, Progress& receiving, const std::string& channel)
    {
        EXPECT_TRUE(receiving.afterNextCallOf([&] { subscribe(peer, channel); }));
    }

    /// \return the answers that \p peer has got so far
    static std::vector<std::string> answers(const RawPeer& peer, Progress& receiving)
    {
        std::vector<std::string> all;
        const std::string last = response(".unsubscribe", false, "nobody_ever");
        EXPECT_TRUE(receiving.afterNextCallOf([&] { peer.send(unsubscribeRequest("nobody_ever")); }));
        for (std::string packet = peer.receive(); packet != last; packet = peer.receive()) {
            all.push_back(packet);
        }
        return all;
    }

    template <class Operation>
    void failEach(Caller caller, Operation operation)
    {
        EXPECT_GT(failEachAllocation(caller, GetParam(), operation), 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Memory, ServerMemory, ::testing::Values(Shortage::Once, Shortage::Lasting),
                         nameOfShortage);

TEST_P(ServerMemory, RunsOutInStart)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    EventServer server;
    const std::size_t descriptors = openDescriptors();
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const int result = fault.during([&] { return server.Start(path); });
        EXPECT_EQ(result, fault.struck() ? -ENOMEM : 0);
        EXPECT_EQ(server.IsStarted(), result == 0);
        if (result != 0) {
            EXPECT_EQ(openDescriptors(), descriptors);
            ASSERT_EQ(server.Start(path), 0);
        }
        expectNothingElse(RawPeer::connectedTo(path));
        EXPECT_EQ(server.Stop(), 0);
    });
}

TEST_P(ServerMemory, IsNotNeededForTheLineThatTellsWhyStartFailed)
{
    const TemporaryDirectory directory;
    EventServer server;
    const std::string path = directory.path("none/bus");
    std::string lines;
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const StreamCapture error(STDERR_FILENO);
        const int result = fault.during([&] { return server.Start(path); });
        EXPECT_TRUE(result == -1 || (fault.struck() && result == -ENOMEM)) << result;
        EXPECT_EQ(error.text().empty(), result == -ENOMEM);
        lines += error.text();
    });
    EXPECT_NE(lines.find("An error occurred while binding the local socket: [2] No such file"),
              std::string::npos);
}

TEST_P(ServerMemory, RunsOutWhenAClientComes)
{
    Progress accepting(Call::Accept, Caller::Listener);
    std::optional<RunningServer> running;
    EXPECT_TRUE(accepting.afterNextCallOf([&] { running.emplace(); }));
    failEach(Caller::Listener, [&](AllocationFault& fault) {
        fault.begin();
        std::optional<RawPeer> peer;
        EXPECT_TRUE(accepting.afterNextCallOf([&] { peer.emplace(running->connect()); }));
        fault.end();
        if (fault.struck()) {
            peer->expectEnd();
        } else {
            expectNothingElse(*peer);
        }
        EXPECT_TRUE(accepting.afterNextCallOf([&] { expectNothingElse(running->connect()); }));
    });
}

TEST_P(ServerMemory, IsNotNeededWhenAClientGoesOrTheServerStops)
{
    std::atomic<int> leaving{0};
    RunningServer running([&](EventServer& server) {
        server.install_OnDisconnect([](void*, int, const std::string&, int, cJSON*,
                                       void* user) { return ++*static_cast<std::atomic<int>*>(user); },
                                    &leaving);
    });
    RawPeer first = running.connect();
    const RawPeer second = running.connect();
    subscribe(first, kChannel);
    subscribe(second, kChannel);
    {
        AllocationFault fault(Caller::Receiver, 1, GetParam());
        fault.begin();
        first.close();
        EXPECT_TRUE(eventually([&] { return leaving == 1; }));
        fault.end();
        EXPECT_FALSE(fault.struck());
    }
    AllocationFault fault(Caller::Application, 1, GetParam());
    EXPECT_EQ(fault.during([&] { return running.server.Stop(); }), 0);
    EXPECT_FALSE(fault.struck());
    second.expectEnd();
}

TEST_P(ServerMemory, RunsOutInASubscription)
{
    failEach(Caller::Receiver, [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running;
        const RawPeer peer = connect(running, receiving);
        const RawPeer publisher = connect(running, receiving);
        sendDuring(fault, receiving, peer, subscribeRequest(kChannel));
        const std::vector<std::string> told = answers(peer, receiving);
        const std::string granted = response(".subscribe", true, kChannel);
        if (!fault.struck()) {
            EXPECT_EQ(told, std::vector<std::string>{granted});
        } else if (!told.empty()) {
            EXPECT_EQ(told.size(), 1U);
            EXPECT_TRUE(told[0] == granted || told[0] == response(".subscribe", false, kChannel)) << told[0];
        }
        if (told.empty() || told[0] != granted) {
            subscribeAndSettle(peer, receiving, kChannel);
        }
        publisher.send(publication(kChannel));
        EXPECT_NE(peer.receive().find(kChannel), std::string::npos);
        EXPECT_TRUE(answers(peer, receiving).empty());
    });
}

TEST_P(ServerMemory, RunsOutInAnUnsubscription)
{
    failEach(Caller::Receiver, [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running;
        const RawPeer peer = connect(running, receiving);
        const RawPeer publisher = connect(running, receiving);
        subscribeAndSettle(peer, receiving, kChannel);
        sendDuring(fault, receiving, peer, unsubscribeRequest(kChannel));
        const std::vector<std::string> told = answers(peer, receiving);
        if (told.empty()) {
            EXPECT_TRUE(fault.struck());
            unsubscribe(peer, kChannel);
        } else {
            EXPECT_EQ(told[0], response(".unsubscribe", true, kChannel));
        }
        EXPECT_TRUE(receiving.afterNextCallOf([&] { publisher.send(publication(kChannel)); }));
        expectNothingElse(peer);
    });
}

TEST_P(ServerMemory, RunsOutInARelayWhichIsThenCountedAsLost)
{
    failEach(Caller::Receiver, [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running;
        const RawPeer first = connect(running, receiving);
        const RawPeer second = connect(running, receiving);
        const RawPeer publisher = connect(running, receiving);
        subscribeAndSettle(first, receiving, kChannel);
        subscribeAndSettle(second, receiving, kChannel);
        sendDuring(
            fault, receiving, publisher,
            publication(kChannel, R"({"text":"more than sixteen characters","numbers":[1.5,-2,1e300]})"));
        const EventServerStatistics statistics = running.server.Statistics();
        const std::size_t got = answers(first, receiving).size();
        EXPECT_EQ(answers(second, receiving).size(), got);
        EXPECT_EQ(statistics.relayed, 2 * got);
        EXPECT_EQ(statistics.outOfMemory + statistics.notJson + got, 1U);
        EXPECT_TRUE(got == 1 || fault.struck());

        EXPECT_TRUE(receiving.afterNextCallOf([&] { publisher.send(publication(kChannel)); }));
        EXPECT_EQ(answers(first, receiving).size(), 1U);
        EXPECT_EQ(answers(second, receiving).size(), 1U);
    });
}

TEST_P(ServerMemory, IsNotNeededToTellOfARelayThatFailed)
{
    failEach(Caller::Receiver, [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running;
        const RawPeer first = connect(running, receiving);
        const RawPeer second = connect(running, receiving);
        const RawPeer publisher = connect(running, receiving);
        subscribeAndSettle(first, receiving, kChannel);
        subscribeAndSettle(second, receiving, kChannel);
        const StreamCapture error(STDERR_FILENO);
        std::size_t blocked = 0;
        {
            const Fault full({Call::Send, Caller::Receiver, EAGAIN});
            sendDuring(fault, receiving, publisher, publication(kChannel));
            blocked = static_cast<std::size_t>(full.failures());
        }
        const std::size_t got = answers(first, receiving).size() + answers(second, receiving).size();
        EXPECT_EQ(got, blocked);
        EXPECT_EQ(running.server.Statistics().relaysFailed, blocked);
        EXPECT_EQ(error.text().find("]: Resource temporarily unavailable\n") != std::string::npos,
                  blocked == 1)
            << error.text();
        EXPECT_TRUE(got == 1 || fault.struck());
    });
}

TEST_P(ServerMemory, RunsOutWhileTheServerTellsOfItself)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, kChannel);
    subscribe(peer, "another_" + kChannel);
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const auto clients = fault.during([&] { return running.server.Clients(); });
        EXPECT_EQ(clients.size(), fault.struck() ? 0U : 1U);
        ASSERT_EQ(running.server.Clients().size(), 1U);
        EXPECT_EQ(running.server.Clients()[0].subscriptions.size(), 2U);
    });
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const auto channels = fault.during([&] { return running.server.Channels(); });
        EXPECT_EQ(channels.size(), fault.struck() ? 0U : 2U);
        EXPECT_EQ(running.server.Channels().size(), 2U);
    });
}

TEST_P(ServerMemory, IsNotNeededToRefuseAClient)
{
    Progress accepting(Call::Accept, Caller::Listener);
    std::optional<RunningServer> running;
    EXPECT_TRUE(accepting.afterNextCallOf([&] { running.emplace(); }));
    EventServerLimits limits;
    limits.groups = {::getegid() + 1};
    running->server.SetLimits(limits);
    std::uint64_t refused = 0;
    failEach(Caller::Listener, [&](AllocationFault& fault) {
        const StreamCapture error(STDERR_FILENO);
        fault.begin();
        std::optional<RawPeer> peer;
        EXPECT_TRUE(accepting.afterNextCallOf([&] { peer.emplace(running->connect()); }));
        fault.end();
        peer->expectEnd();
        EXPECT_EQ(running->server.Statistics().connectionsRefused, ++refused);
        EXPECT_EQ(error.text().rfind("REFUSED ", 0), 0U);
        EXPECT_NE(error.text().find("neither its user nor one of its groups is allowed\n"),
                  std::string::npos);
    });
}

TEST_P(ServerMemory, IsNotNeededToRefuseASubscription)
{
    failEach(Caller::Receiver, [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running;
        EventServerLimits limits;
        limits.channels = 1;
        running.server.SetLimits(limits);
        const RawPeer peer = connect(running, receiving);
        subscribeAndSettle(peer, receiving, kChannel);
        const StreamCapture error(STDERR_FILENO);
        sendDuring(fault, receiving, peer, subscribeRequest("another_" + kChannel));
        for (const std::string& told : answers(peer, receiving)) {
            EXPECT_EQ(told, response(".subscribe", false, "another_" + kChannel));
        }
        EXPECT_EQ(running.server.Channels().size(), 1U);
        EXPECT_EQ(error.text().empty(), running.server.Statistics().subscriptionsRefused == 0);
        EXPECT_TRUE(fault.struck() || !error.text().empty());
    });
}

/// What a client does on the threads of its application.
class ClientMemory : public UnderShortage
{
protected:
    template <class Operation>
    void failEach(Caller caller, Operation operation)
    {
        EXPECT_GT(failEachAllocation(caller, GetParam(), operation), 0);
    }

    /// Counts how often it is called with the example, without an allocation of its own.
    EventClient::Callback counting(std::atomic<int>& calls)
    {
        return [&calls, this](void*, TelvaneDataTypeBase* record, int, void*) {
            const auto* const received = dynamic_cast<HALInfo*>(record);
            if (received != nullptr && received->serialNumber == m_example.serialNumber &&
                received->machineType == m_example.machineType) {
                ++calls;
            }
        };
    }

    HALInfo m_example = exampleRecord(1);
};

INSTANTIATE_TEST_SUITE_P(Memory, ClientMemory, ::testing::Values(Shortage::Once, Shortage::Lasting),
                         nameOfShortage);

TEST_P(ClientMemory, RunsOutInConnect)
{
    const TemporaryDirectory directory;
    const RawServer server(directory.path("bus"));
    EventClient client;
    const std::size_t descriptors = openDescriptors();
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const int result = fault.during([&] { return client.Connect(server.path()); });
        EXPECT_EQ(result, fault.struck() ? -ENOMEM : 0);
        EXPECT_EQ(client.IsConnected(), result == 0);
        if (result != 0) {
            EXPECT_EQ(openDescriptors(), descriptors);
            ASSERT_EQ(client.Connect(server.path()), 0);
        }
        const RawPeer peer = server.accept();
        EXPECT_EQ(client.Publish(kChannel, m_example), 0);
        EXPECT_NE(peer.receive().find(kChannel), std::string::npos);
        EXPECT_EQ(client.Disconnect(), 0);
    });
}

TEST_P(ClientMemory, IsNotNeededToDisconnect)
{
    RunningServer running;
    EventClient client;
    ASSERT_EQ(client.Connect(running.path), 0);
    std::atomic<int> calls{0};
    ASSERT_EQ(client.Subscribe(kChannel, counting(calls), m_example, nullptr), 0);
    AllocationFault fault(Caller::Application, 1, GetParam());
    EXPECT_EQ(fault.during([&] { return client.Disconnect(); }), 0);
    EXPECT_FALSE(fault.struck());
}

TEST_P(ClientMemory, RunsOutInPublish)
{
    const TemporaryDirectory directory;
    const RawServer server(directory.path("bus"));
    HALInfo other = exampleRecord(2);
    failEach(Caller::Application, [&](AllocationFault& fault) {
        EventClient client;
        ASSERT_EQ(client.Connect(server.path()), 0);
        const RawPeer peer = server.accept();
        // A second time, too: then the first one's tree is used again.
        int results[2] = {};
        fault.during([&] {
            results[0] = client.Publish(kChannel, m_example);
            results[1] = client.Publish(kChannel, other);
            return 0;
        });
        for (const int result : results) {
            EXPECT_TRUE(result == 0 || (fault.struck() && (result == -ENOMEM || result == -1))) << result;
            if (result == 0) {
                EXPECT_EQ(peer.receive().rfind("{\n\t\"header\":\t\"" + kChannel, 0), 0U);
            }
        }
        EXPECT_EQ(client.Publish(kChannel, m_example), 0);
        EXPECT_NE(peer.receive().find(m_example.machineType), std::string::npos);
    });
}

TEST_P(ClientMemory, RunsOutInSubscribe)
{
    RunningServer running;
    failEach(Caller::Application, [&](AllocationFault& fault) {
        EventClient client;
        ASSERT_EQ(client.Connect(running.path), 0);
        std::atomic<int> calls{0};
        EventClient::Callback callback = counting(calls);
        const int result =
            fault.during([&] { return client.Subscribe(kChannel, std::move(callback), m_example, nullptr); });
        EXPECT_TRUE(result == 0 || (fault.struck() && result == -ENOMEM)) << result;
        if (result != 0) {
            EXPECT_EQ(client.Unsubscribe(kChannel), -EINVAL);
            EXPECT_EQ(client.Subscribe(kChannel, counting(calls), m_example, nullptr), 0);
        }
        EXPECT_EQ(client.Publish(kChannel, m_example), 0);
        EXPECT_TRUE(eventually([&] { return calls == 1; }));
    });
}

TEST_P(ClientMemory, RunsOutInUnsubscribe)
{
    RunningServer running;
    failEach(Caller::Application, [&](AllocationFault& fault) {
        EventClient client;
        ASSERT_EQ(client.Connect(running.path), 0);
        std::atomic<int> calls{0};
        ASSERT_EQ(client.Subscribe(kChannel, counting(calls), m_example, nullptr), 0);
        const int result = fault.during([&] { return client.Unsubscribe(kChannel); });
        EXPECT_TRUE(result == 0 || (fault.struck() && result == -ENOMEM)) << result;
        if (result != 0) {
            EXPECT_EQ(client.Publish(kChannel, m_example), 0);
            EXPECT_TRUE(eventually([&] { return calls == 1; }));
            EXPECT_EQ(client.Unsubscribe(kChannel), 0);
        }
        EXPECT_EQ(client.Unsubscribe(kChannel), -EINVAL);
    });
}

/// Answers requests on the test's channel with the example.
class Responder
{
public:
    Responder(const std::string& path, HALInfo answer) : m_answer(std::move(answer))
    {
        m_client.Connect(path);
        m_client.Subscribe(
            "req_" + kChannel,
            [this](void*, TelvaneDataTypeBase*, int, void*) { m_client.Publish(kChannel, m_answer); },
            RequestType(), nullptr);
    }

private:
    HALInfo m_answer;
    EventClient m_client;
};

TEST_P(ClientMemory, RunsOutInRequest)
{
    RunningServer running;
    const Responder responder(running.path, m_example);
    failEach(Caller::Application, [&](AllocationFault& fault) {
        EventClient client;
        ASSERT_EQ(client.Connect(running.path), 0);
        HALInfo answer;
        const int result = fault.during([&] { return client.Request(kChannel, answer, 1); });
        EXPECT_TRUE(result == 0 || (fault.struck() && result == -ENOMEM)) << result;
        EXPECT_EQ(client.Request(kChannel, answer, 1), 0);
        EXPECT_EQ(answer.serialNumber, m_example.serialNumber);
        EXPECT_EQ(client.Unsubscribe(kChannel), -EINVAL);
    });
}

TEST_P(ClientMemory, RunsOutInASynchronizersRequest)
{
    RunningServer running;
    const Responder responder(running.path, m_example);
    failEach(Caller::Application, [&](AllocationFault& fault) {
        EventClient client;
        ASSERT_EQ(client.Connect(running.path), 0);
        EventClientSynchronizer synchronizer;
        HALInfo answer;
        const int result = fault.during([&] { return synchronizer.Request(client, kChannel, answer, 20); });
        EXPECT_TRUE(result == 0 || (fault.struck() && result == -ENOMEM)) << result;
        EXPECT_EQ(synchronizer.Request(client, kChannel, answer, 20), 0);
        EXPECT_EQ(answer.serialNumber, m_example.serialNumber);
    });
}

/// What a client does on its receiver thread, with the test as the server.
class ReceiverMemory : public ClientOfRawServer, public ::testing::WithParamInterface<Shortage>
{
protected:
    /// Sends the example to the client while its thread runs out of memory.
    void sendDuring(AllocationFault& fault, Progress& receiving)
    {
        fault.begin();
        sendExample(receiving);
        fault.end();
    }
    void sendExample(Progress& receiving)
    {
        EXPECT_TRUE(receiving.afterNextCallOf([&] { peer.send(relay(kChannel, 1, m_payload)); }));
    }

    HALInfo m_example = exampleRecord(1);
    const std::string m_payload = m_example.GetString();
};

INSTANTIATE_TEST_SUITE_P(Memory, ReceiverMemory, ::testing::Values(Shortage::Once, Shortage::Lasting),
                         [](const auto& shortage) { return nameOfShortage(shortage); });

TEST_P(ReceiverMemory, RunsOutInADispatchWhichIsThenCountedAsLost)
{
    std::atomic<int> calls{0};
    subscribe(
        kChannel,
        [&](void*, TelvaneDataTypeBase* record, int, void*) {
            EXPECT_EQ(dynamic_cast<HALInfo*>(record)->machineType, m_example.machineType);
            ++calls;
        },
        m_example);
    Progress receiving(Call::Receive, Caller::ClientReceiver);
    const int allocations =
        failEachAllocation(Caller::ClientReceiver, GetParam(), [&](AllocationFault& fault) {
            calls = 0;
            const EventClientStatistics before = client.Statistics();
            sendDuring(fault, receiving);
            const EventClientStatistics after = client.Statistics();
            EXPECT_EQ(after.received - before.received, 1U);
            EXPECT_EQ(calls, fault.struck() ? 0 : 1);
            EXPECT_EQ(after.notJson - before.notJson + after.undecodable - before.undecodable,
                      fault.struck() ? 1U : 0U);
            sendExample(receiving);
            EXPECT_EQ(calls, fault.struck() ? 1 : 2);
        });
    EXPECT_GT(allocations, 10);
}

TEST_P(ReceiverMemory, RunsOutWhileAReplyIsTakenAndTheNextOneIsTaken)
{
    Progress receiving(Call::Receive, Caller::ClientReceiver);
    const int allocations =
        failEachAllocation(Caller::ClientReceiver, GetParam(), [&](AllocationFault& fault) {
            HALInfo answer;
            std::future<int> result = begin([&] { return client.Request(kChannel, answer, 1); });
            grantSubscription(kChannel);
            EXPECT_EQ(peer.receive(), printedPublication("req_" + kChannel));
            sendDuring(fault, receiving);
            if (fault.struck()) {
                sendExample(receiving);
            }
            grantUnsubscription(kChannel);
            EXPECT_EQ(result.get(), 0);
            EXPECT_EQ(answer.machineType, m_example.machineType);
        });
    EXPECT_GT(allocations, 10);
}

TEST_P(ReceiverMemory, RunsOutWhileASynchronizersReplyIsTakenAndTheNextOneIsTaken)
{
    Progress receiving(Call::Receive, Caller::ClientReceiver);
    EventClientSynchronizer synchronizer;
    const int allocations =
        failEachAllocation(Caller::ClientReceiver, GetParam(), [&](AllocationFault& fault) {
            HALInfo answer;
            std::future<int> result =
                begin([&] { return synchronizer.Request(client, kChannel, answer, 40); });
            grantSubscription(kChannel);
            EXPECT_EQ(peer.receive(), printedPublication("req_" + kChannel));
            sendDuring(fault, receiving);
            if (fault.struck()) {
                sendExample(receiving);
            }
            grantUnsubscription(kChannel);
            EXPECT_EQ(result.get(), 0);
            EXPECT_EQ(answer.machineType, m_example.machineType);
        });
    EXPECT_GT(allocations, 10);
}

} // namespace
} // namespace Telvane
