// Many threads at once, each with a random schedule of its own. What holds at any time is checked all the
// way: a record arrives on its own channel, whole and in order; who did not subscribe receives nothing;
// what is logged is whole lines.

#include <Telvane/EventClientSynchronizer.h>
#include <Telvane/WeldRecords.h>

#include "helpers/BusTestSupport.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <random>
#include <sstream>

namespace Telvane
{
namespace
{

using namespace Testing;

constexpr int kThreads = 16;
const std::vector<std::string> kChannels = {"A", "B", "C", "D", "E", "F"};

/// One application that connects, subscribes, publishes, asks and leaves as chance has it.
class Participant
{
public:
    Participant(RunningServer& running, unsigned number)
        : m_running(running), m_number(number), m_random(number)
    {
        connect();
    }

    void act()
    {
        const std::string& channel = kChannels[m_random() % kChannels.size()];
        switch (m_random() % 16) {
        case 0:
            EXPECT_EQ(m_client.Disconnect(), 0);
            connect();
            break;
        case 1:
        case 2:
            expectOneOf(m_client.Subscribe(channel, receiving(channel), UnitValuePair(), nullptr),
                        {0, -1, -ETIMEDOUT});
            break;
        case 3:
            expectOneOf(m_client.Unsubscribe(channel), {0, -1, -EINVAL, -ETIMEDOUT});
            break;
        case 4:
            ask(channel);
            break;
        case 5:
            standBy();
            break;
        default:
            publish(channel);
            break;
        }
    }

private:
    void connect()
    {
        ASSERT_EQ(m_client.Connect(m_running.path), 0);
        ++m_connection;
    }

    /// The record tells its channel and its source; its value counts what that source sent.
    void publish(const std::string& channel)
    {
        UnitValuePair record;
        record.Unit = channel + "/" + std::to_string(m_number) + "/" + std::to_string(m_connection);
        record.Value = ++m_published;
        EXPECT_EQ(m_client.Publish(channel, record), 0);
    }

    EventClient::Callback receiving(const std::string& channel)
    {
        return [this, channel](void* client, TelvaneDataTypeBase* record, int sequence, void*) {
            const auto& received = dynamic_cast<UnitValuePair&>(*record);
            EXPECT_EQ(client, &m_client);
            EXPECT_EQ(received.Unit.substr(0, received.Unit.find('/')), channel);
            EXPECT_GE(sequence, 0);
            EXPECT_LT(sequence, 65536);
            int& last = m_lastReceived[received.Unit];
            EXPECT_GT(received.Value, last) << received.Unit;
            last = received.Value;
        };
    }

    void ask(const std::string& channel)
    {
        expectOneOf(m_synchronizer.Request(m_client, channel, m_reply, 0),
                    {-1, -ETIMEDOUT, ETIMEDOUT, -EINVAL});
    }

    /// Somebody who only watches and so must be left alone, whosever descriptor number the server gave it.
    void standBy() { expectNothingElse(m_running.connect()); }

    static void expectOneOf(int result, const std::vector<int>& described)
    {
        EXPECT_NE(std::find(described.begin(), described.end(), result), described.end()) << result;
    }

    RunningServer& m_running;
    const unsigned m_number;
    std::mt19937 m_random;
    int m_connection = 0;
    int m_published = 0;
    std::map<std::string, int> m_lastReceived; ///< belongs to the client's receiver thread
    UnitValuePair m_reply;                     // these two outlive a subscription whose end was not confirmed
    EventClientSynchronizer m_synchronizer;
    EventClient m_client;
};

/// Whether \p line is one whole line about a subscriber that cannot keep up or is going.
bool isRelayError(const std::string& line)
{
    const std::string begin = "RELAY ERROR to client ";
    if (line.compare(0, begin.size(), begin) != 0) {
        return false;
    }
    const std::size_t end = line.find_first_not_of("0123456789", begin.size());
    for (const int error : {EAGAIN, EPIPE, ECONNRESET, ECONNREFUSED, ENOTCONN}) {
        const std::string rest = ": [-" + std::to_string(error) + "]: " + std::strerror(error);
        if (end != begin.size() && end != std::string::npos && line.substr(end) == rest) {
            return true;
        }
    }
    return false;
}

TEST(EventServerWithEventClients, KeepsItsPromisesUnderRandomSchedulesOfSixteenThreads)
{
    const std::size_t descriptors = openDescriptors();
    std::atomic<int> connects{0};
    std::atomic<int> departures{0};
    const EventHandler count = [](void*, int, const std::string&, int, cJSON*, void* user) {
        return ++*static_cast<std::atomic<int>*>(user);
    };
    const StreamCapture error(STDERR_FILENO);
    {
        RunningServer running([&](EventServer& server) {
            server.install_OnConnect(count, &connects);
            server.install_OnDisconnect(count, &departures);
        });
        {
            JoiningThreads threads;
            for (unsigned number = 0; number < kThreads; ++number) {
                threads.start([&running, number] {
                    Participant participant(running, number);
                    for (int action = 0; action < 150; ++action) {
                        participant.act();
                    }
                });
            }
        }
        Receptions receptions;
        EventClient client;
        EXPECT_EQ(client.Connect(running.path), 0);
        // A channel of its own: the server may still relay what participants published before they left.
        // A server that is still busy with the others may answer too late.
        EXPECT_TRUE(eventually(
            [&] { return client.Subscribe("Last", recordingTo(receptions), LogData(), nullptr) == 0; }));
        LogData last;
        EXPECT_EQ(client.Publish("Last", last), 0);
        EXPECT_EQ(receptions.take().record, last.GetString());
        EXPECT_EQ(client.Disconnect(), 0);
        EXPECT_EQ(running.server.Stop(), 0);
    }
    EXPECT_EQ(departures, connects);
    std::istringstream lines(error.text());
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(isRelayError(line)) << line;
    }
    // The stream's own two, which are still held.
    EXPECT_EQ(openDescriptors(), descriptors + 2);
}

/// Connects, subscribes, publishes and leaves, over and over, whether the server is there or not.
void comeAndGo(const std::string& path, const std::atomic<bool>& enough, std::atomic<int>& received)
{
    while (!enough) {
        try {
            const RawPeer peer = RawPeer::connectedTo(path);
            peer.send(subscribeRequest("C"));
            peer.send(publication("C"));
            peer.receive();
            peer.receive();
            ++received;
        } catch (const std::exception&) {
            std::this_thread::yield(); // the server was stopped in between
        }
    }
}

TEST(EventServerWithEventClients, BearsBeingStoppedAndStartedUnderTraffic)
{
    const StreamCapture error(STDERR_FILENO);
    std::atomic<bool> enough{false};
    std::atomic<int> received{0};
    JoiningThreads threads;
    RunningServer running;
    for (int i = 0; i < 8; ++i) {
        threads.start([&] { comeAndGo(running.path, enough, received); });
    }
    for (int round = 0; round < 20; ++round) {
        const int before = received;
        EXPECT_TRUE(eventually([&] { return received > before; })) << round;
        EXPECT_EQ(running.server.Stop(), 0) << round;
        EXPECT_EQ(running.server.Start(running.path), 0) << round;
    }
    enough = true;
    threads.join();
    EXPECT_EQ(running.server.Stop(), 0);
}

TEST(EventServerWithEventClients, BearsHooksAndRequestsWhileClientsOnOneConnectionCompete)
{
    HookCalls calls;
    RunningServer running([&](EventServer& server) {
        server.install_OnSubscribe(recordHookCall, &calls);
        server.install_OnUnsubscribe(recordHookCall, &calls);
    });
    EventClient client;
    ASSERT_EQ(client.Connect(running.path), 0);
    std::atomic<int> exchanges{0}; // each calls a hook
    // A busy machine may stall for longer than the second that an exchange may take.
    const auto untilAnswered = [&exchanges](const std::function<int()>& exchange) {
        int result = -ETIMEDOUT;
        EXPECT_TRUE(eventually([&] {
            ++exchanges;
            result = exchange();
            return result == 0; // an answer that is too late disturbs the next exchange
        }));
        return result;
    };
    {
        JoiningThreads threads;
        for (unsigned number = 0; number < 8; ++number) {
            threads.start([&client, &untilAnswered, number] {
                const std::string channel(1, static_cast<char>('a' + number));
                Receptions receptions;
                DataStatus record;
                for (record.ttl = 0; record.ttl < 15; ++record.ttl) {
                    EXPECT_EQ(untilAnswered([&] {
                                  return client.Subscribe(channel, recordingTo(receptions), DataStatus(),
                                                          nullptr);
                              }),
                              0);
                    ASSERT_EQ(client.Publish(channel, record), 0);
                    EXPECT_EQ(receptions.take().record, record.GetString());
                    EXPECT_EQ(untilAnswered([&] { return client.Unsubscribe(channel); }), 0);
                }
            });
        }
    }
    EXPECT_EQ(client.Disconnect(), 0);
    for (int i = 0; i < exchanges; ++i) {
        calls.take();
    }
    EXPECT_TRUE(calls.empty());
}

} // namespace
} // namespace Telvane
