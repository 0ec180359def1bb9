// The client and the synchronizer while memory runs out: every allocation of every operation fails once,
// alone and for good, on the thread that makes it. Nothing is thrown, what is lost is told or counted, and
// with memory back the next call does all that it should.

#include "helpers/BusMemorySupport.h"

#include <Telvane/EventClientSynchronizer.h>

#include <atomic>

namespace Telvane
{
namespace
{

using namespace Testing;

/// What a client does on the threads of its application.
class ClientMemory : public UnderShortage
{
protected:
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

INSTANTIATE_TEST_SUITE_P(Memory, ClientMemory, ::testing::Values(Shortage::Once, Shortage::Persistent),
                         nameOfShortage);

TEST_P(ClientMemory, RunsOutInConnect)
{
    const TemporaryDirectory directory;
    const RawServer server(directory.path("bus"));
    EventClient client;
    const std::size_t descriptors = openDescriptors();
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const int result = fault.during([&] { return client.Connect(server.path()); });
        EXPECT_EQ(result, fault.triggered() ? -ENOMEM : 0);
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
    EXPECT_FALSE(fault.triggered());
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
            EXPECT_TRUE(result == 0 || (fault.triggered() && (result == -ENOMEM || result == -1))) << result;
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
        EXPECT_TRUE(result == 0 || (fault.triggered() && result == -ENOMEM)) << result;
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
        EXPECT_TRUE(result == 0 || (fault.triggered() && result == -ENOMEM)) << result;
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
        EXPECT_TRUE(result == 0 || (fault.triggered() && result == -ENOMEM)) << result;
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
        EXPECT_TRUE(result == 0 || (fault.triggered() && result == -ENOMEM)) << result;
        EXPECT_EQ(synchronizer.Request(client, kChannel, answer, 20), 0);
        EXPECT_EQ(answer.serialNumber, m_example.serialNumber);
    });
}

/// What a client does on its receiver thread, with the test as the server.
class ReceiverMemory : public ClientOfRawServer, public ::testing::WithParamInterface<Shortage>
{
protected:
    /// Connects again, and waits until the new thread, now the only one, has come to receive.
    void settle(Progress& receiving)
    {
        ASSERT_EQ(client.Disconnect(), 0);
        EXPECT_TRUE(receiving.afterNextCallOf([&] { connect(); }));
    }
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

INSTANTIATE_TEST_SUITE_P(Memory, ReceiverMemory, ::testing::Values(Shortage::Once, Shortage::Persistent),
                         [](const auto& shortage) { return nameOfShortage(shortage); });

TEST_P(ReceiverMemory, RunsOutInADispatchWhichIsThenCountedAsLost)
{
    std::atomic<int> calls{0};
    Progress receiving(Call::Receive, Caller::ClientReceiver);
    settle(receiving);
    const auto callback = [&](void*, TelvaneDataTypeBase* record, int, void*) {
        EXPECT_EQ(dynamic_cast<HALInfo*>(record)->machineType, m_example.machineType);
        ++calls;
    };
    EXPECT_TRUE(receiving.afterNextCallOf([&] { subscribe(kChannel, callback, m_example); }));
    const int allocations =
        failEachAllocation(Caller::ClientReceiver, GetParam(), [&](AllocationFault& fault) {
            calls = 0;
            const EventClientStatistics before = client.Statistics();
            sendDuring(fault, receiving);
            const EventClientStatistics after = client.Statistics();
            EXPECT_EQ(after.received - before.received, 1U);
            EXPECT_EQ(calls, fault.triggered() ? 0 : 1);
            EXPECT_EQ(after.notJson - before.notJson + after.undecodable - before.undecodable,
                      fault.triggered() ? 1U : 0U);
            sendExample(receiving);
            EXPECT_EQ(calls, fault.triggered() ? 1 : 2);
        });
    EXPECT_GT(allocations, 10);
}

TEST_P(ReceiverMemory, RunsOutWhileAReplyIsTakenAndTheNextOneIsTaken)
{
    Progress receiving(Call::Receive, Caller::ClientReceiver);
    settle(receiving);
    const int allocations =
        failEachAllocation(Caller::ClientReceiver, GetParam(), [&](AllocationFault& fault) {
            HALInfo answer;
            std::future<int> result = begin([&] { return client.Request(kChannel, answer, 1); });
            EXPECT_TRUE(receiving.afterNextCallOf([&] { acceptSubscription(kChannel); }));
            EXPECT_EQ(peer.receive(), printedPublication("req_" + kChannel));
            sendDuring(fault, receiving);
            if (fault.triggered()) {
                sendExample(receiving);
            }
            EXPECT_TRUE(receiving.afterNextCallOf([&] { acceptUnsubscription(kChannel); }));
            EXPECT_EQ(result.get(), 0);
            EXPECT_EQ(answer.machineType, m_example.machineType);
        });
    EXPECT_GT(allocations, 10);
}

TEST_P(ReceiverMemory, RunsOutWhileASynchronizersReplyIsTakenAndTheNextOneIsTaken)
{
    Progress receiving(Call::Receive, Caller::ClientReceiver);
    settle(receiving);
    EventClientSynchronizer synchronizer;
    const int allocations =
        failEachAllocation(Caller::ClientReceiver, GetParam(), [&](AllocationFault& fault) {
            HALInfo answer;
            std::future<int> result =
                begin([&] { return synchronizer.Request(client, kChannel, answer, 40); });
            EXPECT_TRUE(receiving.afterNextCallOf([&] { acceptSubscription(kChannel); }));
            EXPECT_EQ(peer.receive(), printedPublication("req_" + kChannel));
            sendDuring(fault, receiving);
            if (fault.triggered()) {
                sendExample(receiving);
            }
            EXPECT_TRUE(receiving.afterNextCallOf([&] { acceptUnsubscription(kChannel); }));
            EXPECT_EQ(result.get(), 0);
            EXPECT_EQ(answer.machineType, m_example.machineType);
        });
    EXPECT_GT(allocations, 10);
}

} // namespace
} // namespace Telvane
