// What the threads of the bus are to the process: which signals they take, and that their ends are collected.

#include "helpers/FaultInjection.h"

#include <csignal>
#include <unistd.h>
#include <utility>

namespace Telvane
{
namespace
{

using namespace Testing;

/// \return whether the calling thread takes the signals that the application handles, and those of its own
std::pair<bool, bool> signalsTaken()
{
    sigset_t blocked;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    const auto taken = [&](int signal) {
        return ::sigismember(&blocked, signal) == 0;
    };
    return {taken(SIGTERM) || taken(SIGINT) || taken(SIGUSR1) || taken(SIGCHLD) || taken(SIGPIPE),
            taken(SIGSEGV) && taken(SIGBUS) && taken(SIGFPE) && taken(SIGILL) && taken(SIGABRT)};
}

using Signals = Mailbox<std::pair<bool, bool>>;

int tellSignals(void* /*server*/, int /*client*/, const std::string& /*header*/, int /*sequence*/,
                cJSON* /*payload*/, void* user)
{
    static_cast<Signals*>(user)->put(signalsTaken());
    return 0;
}

TEST(ThreadsOfTheBus, BlockTheSignalsThatTheApplicationHandles)
{
    Signals signals;
    RunningServer running([&](EventServer& server) {
        server.install_OnConnect(tellSignals, &signals);
        server.install_OnSubscribe(tellSignals, &signals);
    });
    EventClient client;
    ASSERT_EQ(client.Connect(running.path), 0);
    RequestType record;
    const auto callback = [&](void*, TelvaneDataTypeBase*, int, void*) {
        signals.put(signalsTaken());
    };
    ASSERT_EQ(client.Subscribe("C", callback, record, nullptr), 0);
    ASSERT_EQ(client.Publish("C", record), 0);
    for (const char* const thread : {"listener", "server's receiver", "client's receiver"}) {
        EXPECT_EQ(signals.take(), std::pair(false, true)) << thread;
    }
    EXPECT_EQ(signalsTaken(), std::pair(true, true));
    EXPECT_EQ(client.Disconnect(), 0);
}

/// \return whether a forked child takes SIGTERM and blocks SIGUSR2, as its application does
bool childIsLikeItsApplication()
{
    return holdsInChild([] {
        sigset_t blocked;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        return ::sigismember(&blocked, SIGTERM) == 0 && ::sigismember(&blocked, SIGUSR2) == 1;
    });
}

TEST(ThreadsOfTheBus, ForkChildrenThatTakeTheSignalsOfTheApplication)
{
    sigset_t applicationBlocks;
    ::sigemptyset(&applicationBlocks);
    ::sigaddset(&applicationBlocks, SIGUSR2);
    sigset_t previous;
    ::pthread_sigmask(SIG_BLOCK, &applicationBlocks, &previous);
    Mailbox<bool> answers;
    RunningServer running;
    EventClient client;
    ASSERT_EQ(client.Connect(running.path), 0);
    RequestType record;
    const auto callback = [&](void*, TelvaneDataTypeBase*, int, void*) {
        answers.put(childIsLikeItsApplication());
    };
    ASSERT_EQ(client.Subscribe("C", callback, record, nullptr), 0);
    ASSERT_EQ(client.Publish("C", record), 0);
    EXPECT_TRUE(answers.take());
    EXPECT_TRUE(childIsLikeItsApplication()) << "of the application's own thread";
    EXPECT_EQ(client.Disconnect(), 0);
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

TEST(ThreadsOfTheBus, AreJoinedWhenTheNextClientConnects)
{
    HookCalls departures;
    RunningServer running(
        [&](EventServer& server) { server.install_OnDisconnect(recordHookCall, &departures); });
    const Fault joins({Call::JoinThread, Caller::Listener, 0, 0, 0});
    std::vector<RawPeer> staying;
    for (int gone = 1; gone <= 3; ++gone) {
        expectNothingElse(running.connect());
        departures.take();
        staying.push_back(running.connect());
        ASSERT_TRUE(eventually([&] { return joins.calls() == gone; }));
    }
}

} // namespace
} // namespace Telvane
