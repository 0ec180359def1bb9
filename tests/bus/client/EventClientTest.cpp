// The client's connection, and the client with a server of ours: what an application sees.

#include <Telvane/WeldRecords.h>

#include "helpers/BusTestSupport.h"

#include <cerrno>
#include <csignal>
#include <map>
#include <set>

namespace Telvane
{
namespace
{

using namespace Testing;

TEST(EventClientConnect, MakesTheClientConnected)
{
    RunningServer running;
    EventClient client;
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(client.Connect(running.path), 0);
    EXPECT_TRUE(client.IsConnected());
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_FALSE(client.IsConnected());
}

TEST(EventClientConnect, ReturnsAddressInUseTheSecondTimeAndStaysConnected)
{
    RunningServer running;
    RunningServer other;
    EventClient client;
    EXPECT_EQ(client.Connect(running.path), 0);
    EXPECT_EQ(client.Connect(running.path), -EADDRINUSE);
    EXPECT_EQ(client.Connect(other.path), -EADDRINUSE);
    Receptions receptions;
    EXPECT_EQ(client.Subscribe("C", recordingTo(receptions), LogData(), nullptr), 0);
}

TEST(EventClientConnect, ReturnsMinusOneWithoutAServer)
{
    const TemporaryDirectory directory;
    const std::size_t descriptors = openDescriptors();
    const std::size_t threads = runningThreads();
    EventClient client;
    const Diagnostics told = diagnosticsOf([&] {
        EXPECT_EQ(client.Connect(directory.path("nothing")), -1);
        RawServer(directory.path("stale")).close();
        EXPECT_EQ(client.Connect(directory.path("stale")), -1);
    });
    EXPECT_EQ(told.output + told.error, "");
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(client.Disconnect(), -ENOTCONN);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(eventually([&] { return runningThreads() <= threads; }));
}

TEST(EventClientConnect, SucceedsAfterOneThatFailed)
{
    RunningServer running;
    EventClient client;
    EXPECT_EQ(client.Connect(running.directory.path("nothing")), -1);
    EXPECT_EQ(client.Connect(running.path), 0);
}

TEST(EventClientConnectDeathTest, EndsTheProcessForAPathThatDoesNotFit)
{
    EXPECT_EXIT(EventClient().Connect("/tmp/" + std::string(103, 'x')), ::testing::KilledBySignal(SIGABRT),
                "");
}

TEST(EventClientNotConnected, ReturnsNotConnectedFromEverything)
{
    EventClient client;
    LogData record;
    Receptions receptions;
    char text[] = "text";
    EXPECT_EQ(client.Disconnect(), -ENOTCONN);
    EXPECT_EQ(client.Publish("C", record), -ENOTCONN);
    EXPECT_EQ(client.Subscribe("C", recordingTo(receptions), record, nullptr), -ENOTCONN);
    EXPECT_EQ(client.Unsubscribe("C"), -ENOTCONN);
    EXPECT_EQ(client.Request("C", record, 1), -ENOTCONN);
    EXPECT_EQ(client.writeDataToSocket(text, 4), -ENOTCONN);
}

TEST(EventClientNotConnected, IsSoAgainAfterDisconnecting)
{
    RunningServer running;
    EventClient client;
    LogData record;
    ASSERT_EQ(client.Connect(running.path), 0);
    ASSERT_EQ(client.Disconnect(), 0);
    EXPECT_EQ(client.Disconnect(), -ENOTCONN);
    EXPECT_EQ(client.Publish("C", record), -ENOTCONN);
    EXPECT_EQ(client.Unsubscribe("C"), -ENOTCONN);
}

TEST(EventClientDisconnect, ForgetsSubscriptionsAndAllowsAnotherConnection)
{
    RunningServer running;
    EventClient client;
    EventClient publisher;
    ASSERT_EQ(publisher.Connect(running.path), 0);
    auto token = std::make_shared<int>(0);
    ASSERT_EQ(client.Connect(running.path), 0);
    ASSERT_EQ(
        client.Subscribe(
            "C", [token](void*, TelvaneDataTypeBase*, int, void*) { ADD_FAILURE(); }, LogData(), nullptr),
        0);
    ASSERT_EQ(client.Disconnect(), 0);
    EXPECT_EQ(token.use_count(), 1);

    ASSERT_EQ(client.Connect(running.path), 0);
    EXPECT_EQ(client.Unsubscribe("C"), -EINVAL);
    Receptions receptions;
    ASSERT_EQ(client.Subscribe("D", recordingTo(receptions), LogData(), nullptr), 0);
    LogData record;
    EXPECT_EQ(publisher.Publish("C", record), 0);
    EXPECT_EQ(publisher.Publish("D", record), 0);
    receptions.take();
}

TEST(EventClientDisconnect, LeaksNoDescriptorAndNoThread)
{
    const TemporaryDirectory directory;
    const RawServer server(directory.path("bus"));
    const auto comeAndGo = [&server](bool disconnects) {
        EventClient client;
        ASSERT_EQ(client.Connect(server.path()), 0);
        const RawPeer peer = server.accept();
        if (disconnects) {
            ASSERT_EQ(client.Disconnect(), 0);
            peer.expectEnd();
        } // else the destructor does it
    };
    comeAndGo(true); // sanitizers keep a thread of their own from the first thread on
    const std::size_t descriptors = openDescriptors();
    const std::size_t threads = runningThreads();
    for (int round = 0; round < 20; ++round) {
        comeAndGo(round % 2 == 0);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(eventually([&] { return runningThreads() <= threads; }));
}

TEST(EventClientDestructor, Disconnects)
{
    const TemporaryDirectory directory;
    const RawServer server(directory.path("bus"));
    auto client = std::make_unique<EventClient>();
    ASSERT_EQ(client->Connect(server.path()), 0);
    const RawPeer peer = server.accept();
    client.reset();
    peer.expectEnd();
}

/// Waits until a client's receiver thread has ended because its server is gone.
void awaitEndOfReceiver(std::size_t threadsWithReceiver)
{
    ASSERT_TRUE(eventually([&] { return runningThreads() < threadsWithReceiver; }));
}

TEST(EventClientOfADeadServer, StaysConnectedUntilItDisconnects)
{
    const TemporaryDirectory directory;
    RawServer server(directory.path("bus"));
    EventClient client;
    ASSERT_EQ(client.Connect(server.path()), 0);
    const std::size_t threads = runningThreads();
    server.accept().close();
    server.close();
    awaitEndOfReceiver(threads);
    EXPECT_TRUE(client.IsConnected());
    EXPECT_EQ(client.Connect(directory.path("bus")), -EADDRINUSE);
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_FALSE(client.IsConnected());
}

TEST(EventClientConnectionLossHook, IsInstalledAndUninstalledLikeTheServersHooks)
{
    EventClient client;
    EXPECT_EQ(client.install_OnConnectionLost({}), -EINVAL);
    EXPECT_EQ(client.uninstall_OnConnectionLost(), -EALREADY);
    EXPECT_EQ(client.install_OnConnectionLost([](EventClient&) {}), 0);
    EXPECT_EQ(client.uninstall_OnConnectionLost(), 0);
    EXPECT_EQ(client.uninstall_OnConnectionLost(), -EALREADY);
}

TEST(EventClientOfADeadServer, ConnectsToTheNextOne)
{
    RunningServer running;
    EventClient client;
    ASSERT_EQ(client.Connect(running.path), 0);
    ASSERT_EQ(running.server.Stop(), 0);
    EXPECT_EQ(client.Disconnect(), 0);
    running.start();
    EXPECT_EQ(client.Connect(running.path), 0);
    Receptions receptions;
    EXPECT_EQ(client.Subscribe("C", recordingTo(receptions), LogData(), nullptr), 0);
}

TEST(EventClientOfADeadServer, KeepsTryingToPublishUntilItIsDisconnected)
{
    RunningServer running;
    EventClient client;
    ASSERT_EQ(client.Connect(running.path), 0);
    ASSERT_EQ(running.server.Stop(), 0);
    std::future<int> publishing = std::async(std::launch::async, [&] {
        LogData record;
        return client.Publish("C", record);
    });
    EXPECT_EQ(publishing.wait_for(4 * kQuietTime), std::future_status::timeout);
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_EQ(publishing.get(), -ENOTCONN);
}

TEST(EventClientDisconnect, TimesOutOnACallbackThatDoesNotReturn)
{
    Gate entered;
    Gate release;
    RunningServer running;
    EventClient client;
    const GateOpener opener(release);
    ASSERT_EQ(client.Connect(running.path), 0);
    ASSERT_EQ(client.Subscribe(
                  "C",
                  [&](void*, TelvaneDataTypeBase*, int, void*) {
                      entered.open();
                      release.pass();
                  },
                  LogData(), nullptr),
              0);
    LogData record;
    ASSERT_EQ(client.Publish("C", record), 0);
    ASSERT_TRUE(entered.pass());
    running.patience.reset();
    EXPECT_EQ(client.Disconnect(), -ETIMEDOUT);
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(client.Disconnect(), -ENOTCONN);
}

class TwoClients : public ::testing::Test
{
protected:
    TwoClients()
    {
        EXPECT_EQ(subscriber.Connect(running.path), 0);
        EXPECT_EQ(publisher.Connect(running.path), 0);
    }

    RunningServer running;
    Receptions receptions;
    EventClient subscriber;
    EventClient publisher;
};

TEST_F(TwoClients, CarryARecordFromOneToTheOther)
{
    ASSERT_EQ(subscriber.Subscribe("WeldTriggerStart", recordingTo(receptions), WeldTriggerStart(), this), 0);
    WeldTriggerStart start;
    start.tag = 12;
    start.timestamp.time.tv_sec = 1'700'000'000;
    start.settings.CommandVoltage.Unit = "V";
    start.settings.CommandVoltage.Value = 24.75;
    start.FeederSide = "left \"A\" \xC2\xB5";
    start.generate_id();
    EXPECT_EQ(publisher.Publish("WeldTriggerStart", start), 0);
    const Reception reception = receptions.take();
    EXPECT_EQ(reception.client, &subscriber);
    EXPECT_EQ(reception.record, start.GetString());
    EXPECT_EQ(reception.sequence, 1);
    EXPECT_EQ(reception.user, this);
}

TEST_F(TwoClients, CarryRecordsInTheirOrder)
{
    Mailbox<int> values;
    ASSERT_EQ(subscriber.Subscribe(
                  "C",
                  [&](void*, TelvaneDataTypeBase* record, int, void*) {
                      values.put(dynamic_cast<DataStatus&>(*record).ttl);
                  },
                  DataStatus(), nullptr),
              0);
    for (int i = 0; i < 500; ++i) {
        DataStatus record;
        record.ttl = i;
        ASSERT_EQ(publisher.Publish("C", record), 0);
        ASSERT_EQ(values.take(), i);
    }
}

TEST_F(TwoClients, ReceiveOneSequenceNumberForOnePublication)
{
    Receptions own;
    ASSERT_EQ(subscriber.Subscribe("C", recordingTo(receptions), LogData(), nullptr), 0);
    ASSERT_EQ(publisher.Subscribe("C", recordingTo(own), LogData(), nullptr), 0);
    LogData record;
    for (int sequence = 2; sequence < 6; ++sequence) {
        ASSERT_EQ(publisher.Publish("C", record), 0);
        EXPECT_EQ(receptions.take().sequence, sequence);
        EXPECT_EQ(own.take().sequence, sequence);
    }
}

TEST_F(TwoClients, AreRefusedNamesThatAreNotAllowed)
{
    for (const char* const name : {"digit1", "a.b", "a-b", "a b", "\xC3\xBC"}) {
        EXPECT_EQ(subscriber.Subscribe(name, recordingTo(receptions), LogData(), nullptr), -1) << name;
        EXPECT_EQ(subscriber.Unsubscribe(name), -EINVAL) << name;
    }
    EXPECT_EQ(subscriber.Subscribe("", recordingTo(receptions), LogData(), nullptr), 0);
    EXPECT_EQ(subscriber.Subscribe("Letters_and_underscores", recordingTo(receptions), LogData(), nullptr),
              0);
}

TEST_F(TwoClients, KeepOneSubscriptionForTwoCallsOfSubscribe)
{
    Receptions earlier;
    ASSERT_EQ(subscriber.Subscribe("C", recordingTo(earlier), LogData(), nullptr), 0);
    ASSERT_EQ(subscriber.Subscribe("C", recordingTo(receptions), DataStatus(), nullptr), 0);
    DataStatus record;
    record.ttl = 4;
    ASSERT_EQ(publisher.Publish("C", record), 0);
    EXPECT_EQ(receptions.take().record, record.GetString());
    EXPECT_EQ(subscriber.Unsubscribe("C"), 0);
    EXPECT_EQ(subscriber.Unsubscribe("C"), -EINVAL);
    EXPECT_TRUE(receptions.empty());
    EXPECT_TRUE(earlier.empty());
}

TEST_F(TwoClients, TakeThePrototypesClassOnlyDuringTheCall)
{
    {
        auto prototype = std::make_unique<DataStatus>();
        prototype->ttl = 99;
        prototype->_id = "prototype";
        ASSERT_EQ(subscriber.Subscribe("C", recordingTo(receptions), *prototype, nullptr), 0);
    }
    DataStatus record;
    ASSERT_EQ(publisher.Publish("C", record), 0);
    EXPECT_EQ(receptions.take().record, record.GetString());
}

TEST_F(TwoClients, TreatAPublicationOnAMetaChannelAsARequest)
{
    ASSERT_EQ(subscriber.Subscribe("Marker", recordingTo(receptions), LogData(), nullptr), 0); // 0
    TelvaneDataConfirmation request; // has a field "channel"
    request.channel = "C";
    LogData record;
    ASSERT_EQ(publisher.Publish(".subscribe", request), 0); // 1
    ASSERT_EQ(publisher.Publish("C", record), 0);           // 2, since C is now a channel
    ASSERT_EQ(publisher.Publish("Marker", record), 0);      // 3
    EXPECT_EQ(receptions.take().sequence, 3);
}

TEST_F(TwoClients, MakeARequestAndItsReply)
{
    WeldMetrics metrics;
    metrics.AverageAmperage.Value = 176;
    ASSERT_EQ(publisher.Subscribe(
                  "req_WeldMetrics",
                  [&](void* self, TelvaneDataTypeBase*, int, void*) {
                      static_cast<EventClient*>(self)->Publish("WeldMetrics", metrics);
                  },
                  RequestType(), nullptr),
              0);
    for (int round = 0; round < 50; ++round) {
        WeldMetrics answer;
        ASSERT_EQ(subscriber.Request("WeldMetrics", answer, 0), 0);
        EXPECT_EQ(answer.AverageAmperage.Value, 176);
        EXPECT_EQ(subscriber.Unsubscribe("WeldMetrics"), -EINVAL);
    }
}

TEST_F(TwoClients, TimeOutWithoutAResponder)
{
    WeldMetrics answer;
    running.patience.reset();
    EXPECT_EQ(subscriber.Request("WeldMetrics", answer, 60), -ETIMEDOUT);
    EXPECT_EQ(subscriber.Unsubscribe("WeldMetrics"), -EINVAL);
}

TEST_F(TwoClients, LoseARecordThatIsTooLargeAndNothingElse)
{
    ASSERT_EQ(subscriber.Subscribe("C", recordingTo(receptions), LogData(), nullptr), 0);
    LogData large;
    large.log.assign(kMessageLimit, 'x');
    LogData small;
    small.log = "small";
    EXPECT_EQ(publisher.Publish("C", large), 0);
    EXPECT_EQ(publisher.Publish("C", small), 0);
    EXPECT_EQ(receptions.take().record, small.GetString());
}

TEST_F(TwoClients, PublishFromSeveralThreadsInWholeMessages)
{
    constexpr int kThreads = 4;
    constexpr int kMessages = 20;
    ASSERT_EQ(subscriber.Subscribe("C", recordingTo(receptions), LogData(), nullptr), 0);
    std::map<std::string, int> expected;
    JoiningThreads threads;
    for (int i = 0; i < kThreads; ++i) {
        LogData record;
        record.log.assign(400, static_cast<char>('a' + i));
        expected[record.GetString()] = kMessages;
        threads.start([this, record]() mutable {
            for (int message = 0; message < kMessages; ++message) {
                EXPECT_EQ(publisher.Publish("C", record), 0);
            }
        });
    }
    for (int i = 0; i < kThreads * kMessages; ++i) {
        --expected[receptions.take().record];
    }
    for (const auto& [text, missing] : expected) {
        EXPECT_EQ(missing, 0) << text;
    }
}

TEST(EventClients, HundredsOnOneServerAllReceive)
{
    RunningServer running;
    Receptions receptions;
    std::vector<std::unique_ptr<EventClient>> clients;
    for (int i = 0; i < 200; ++i) {
        clients.push_back(std::make_unique<EventClient>());
        ASSERT_EQ(clients.back()->Connect(running.path), 0);
        ASSERT_EQ(clients.back()->Subscribe("C", recordingTo(receptions), LogData(), nullptr), 0);
    }
    LogData record;
    record.log = "to all";
    ASSERT_EQ(clients.front()->Publish("C", record), 0);
    std::set<void*> receivers;
    for (std::size_t i = 0; i < clients.size(); ++i) {
        const Reception reception = receptions.take();
        EXPECT_EQ(reception.record, record.GetString());
        receivers.insert(reception.client);
    }
    EXPECT_EQ(receivers.size(), clients.size());
}

} // namespace
} // namespace Telvane
