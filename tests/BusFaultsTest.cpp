// What server and client make of system calls that fail, are interrupted or do less than asked. This
// program has the calls itself, before the C library's, and lets them fail as a test wants.

#include <Telvane/EventClientSynchronizer.h>
#include <Telvane/WeldRecords.h>

#include "BusTestSupport.h"

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>

namespace
{

/// How many of the next calls fail, and with what.
class Failures
{
public:
    void arm(int calls, int error)
    {
        m_error = error;
        m_calls = calls;
    }
    /// \return whether this call is to fail; `errno` is then set
    bool strikes()
    {
        if (m_calls.load() <= 0) {
            return false;
        }
        m_calls.fetch_sub(1);
        errno = m_error.load();
        return true;
    }
    bool spent() const { return m_calls.load() == 0; }

private:
    std::atomic<int> m_calls{0};
    std::atomic<int> m_error{0};
};

struct Faults
{
    Failures socket;
    Failures connect;
    Failures accept;
    Failures shutdown;
    Failures send;
    Failures receive;
    Failures thread;
    std::atomic<int> sendsBeforeCut{-1}; ///< the send after so many is cut, once
    std::atomic<std::size_t> cutTo{0};

    void cutSend(int after, std::size_t bytes)
    {
        cutTo = bytes;
        sendsBeforeCut = after;
    }
};

Faults onTheTestsThread;
Faults onOtherThreads;

Faults& faults()
{
    static const pthread_t tests = pthread_self(); // the first call is the test's own, see SystemCalls
    return pthread_equal(tests, pthread_self()) != 0 ? onTheTestsThread : onOtherThreads;
}

template <class Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept
{
    static auto* const call = next<int(int, int, int)>("socket");
    return faults().socket.strikes() ? -1 : call(domain, type, protocol);
}

int connect(int descriptor, const sockaddr* address, socklen_t length)
{
    static auto* const call = next<int(int, const sockaddr*, socklen_t)>("connect");
    return faults().connect.strikes() ? -1 : call(descriptor, address, length);
}

int accept(int descriptor, sockaddr* address, socklen_t* length)
{
    static auto* const call = next<int(int, sockaddr*, socklen_t*)>("accept");
    return faults().accept.strikes() ? -1 : call(descriptor, address, length);
}

int accept4(int descriptor, sockaddr* address, socklen_t* length, int flags)
{
    static auto* const call = next<int(int, sockaddr*, socklen_t*, int)>("accept4");
    return faults().accept.strikes() ? -1 : call(descriptor, address, length, flags);
}

int shutdown(int descriptor, int how) noexcept
{
    static auto* const call = next<int(int, int)>("shutdown");
    return faults().shutdown.strikes() ? -1 : call(descriptor, how);
}

ssize_t send(int descriptor, const void* data, std::size_t length, int flags)
{
    static auto* const call = next<ssize_t(int, const void*, std::size_t, int)>("send");
    Faults& active = faults();
    if (active.send.strikes()) {
        return -1;
    }
    if (active.sendsBeforeCut.load() >= 0 && active.sendsBeforeCut.fetch_sub(1) == 0) {
        length = std::min(length, active.cutTo.load());
    }
    return call(descriptor, data, length, flags);
}

ssize_t recv(int descriptor, void* data, std::size_t length, int flags)
{
    static auto* const call = next<ssize_t(int, void*, std::size_t, int)>("recv");
    return faults().receive.strikes() ? -1 : call(descriptor, data, length, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) noexcept
{
    static auto* const call =
        next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    return faults().thread.strikes() ? errno : call(thread, attributes, entry, argument);
}

} // extern "C"

namespace Telvane
{
namespace
{

using namespace Testing;

/// Makes the thread that runs the tests known before any other makes a call.
class SystemCalls : public ::testing::Environment
{
public:
    void SetUp() override { faults(); }
};

[[maybe_unused]] const auto* const kSystemCalls = ::testing::AddGlobalTestEnvironment(new SystemCalls);

std::string bindingError(int line, int code)
{
    return "ERROR (-1) @ TelvaneLib/EventServer." + std::to_string(line) +
           "-> An error occurred while binding the local socket: [" + std::to_string(code) + "] " +
           std::strerror(code) + "\n";
}

TEST(EventServerStart, TellsThatItCouldNotHaveASocket)
{
    const TemporaryDirectory directory;
    EventServer server;
    onTheTestsThread.socket.arm(1, EMFILE);
    const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(server.Start(directory.path("bus")), -1); });
    EXPECT_EQ(told.error, bindingError(288, EMFILE));
    EXPECT_EQ(told.output, "");
    EXPECT_FALSE(server.IsStarted());
    EXPECT_EQ(server.Start(directory.path("bus")), 0);
    EXPECT_EQ(server.Stop(), 0);
}

TEST(EventServerStart, LeavesTheFileAloneWhenItCannotProbeIt)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    RawServer(path).close();
    EventServer server;
    onTheTestsThread.socket.arm(1, EMFILE);
    const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(server.Start(path), -1); });
    EXPECT_EQ(told.output + told.error, "");
    EXPECT_TRUE(std::filesystem::is_socket(path));
    EXPECT_EQ(server.Start(path), 0);
    EXPECT_EQ(server.Stop(), 0);
}

TEST(EventServerStart, TakesAnAddressInUseFromItsProbeAsALiveServer)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    RawServer(path).close();
    EventServer server;
    onTheTestsThread.connect.arm(1, EADDRINUSE);
    EXPECT_EQ(server.Start(path), -EADDRINUSE);
    EXPECT_TRUE(std::filesystem::is_socket(path));
}

TEST(EventServerStart, ReturnsSilentlyThatItCouldNotHaveAThread)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    EventServer server;
    const std::size_t descriptors = openDescriptors();
    const Diagnostics told = diagnosticsOf([&] {
        onTheTestsThread.thread.arm(1, EAGAIN);
        EXPECT_EQ(server.Start(path), EAGAIN);
    });
    EXPECT_EQ(told.output + told.error, "");
    EXPECT_FALSE(server.IsStarted());
    EXPECT_EQ(server.Stop(), -ENOTCONN);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(server.Start(path), 0);
    EXPECT_EQ(server.Stop(), 0);
}

TEST(EventServerStop, ReturnsAlreadyWhenTheSocketCannotBeShutDown)
{
    RunningServer running;
    onTheTestsThread.shutdown.arm(1, ENOTCONN);
    EXPECT_EQ(running.server.Stop(), -EALREADY);
    EXPECT_TRUE(onTheTestsThread.shutdown.spent());
    EXPECT_TRUE(running.server.IsStarted());
    expectNothingElse(running.connect());
    EXPECT_EQ(running.server.Stop(), 0);
}

TEST(EventServerListener, SendsAClientAwayThatItHasNoThreadFor)
{
    HookCalls connects;
    RunningServer running([&](EventServer& server) { server.install_OnConnect(recordHookCall, &connects); });
    const Diagnostics told = diagnosticsOf([&] {
        onOtherThreads.thread.arm(1, EAGAIN);
        running.connect().expectEnd();
    });
    EXPECT_EQ(told.output + told.error, "");
    expectNothingElse(running.connect());
    EXPECT_EQ(running.server.Stop(), 0);
    connects.take();
    EXPECT_TRUE(connects.empty());
}

TEST(EventServerListener, GoesOnAfterAnAcceptThatFailed)
{
    RunningServer running;
    for (const int error : {EMFILE, ECONNABORTED, EINTR, ENOMEM}) {
        onOtherThreads.accept.arm(3, error);
        expectNothingElse(running.connect()); // taken by the accept that already waits
        expectNothingElse(running.connect());
        EXPECT_TRUE(onOtherThreads.accept.spent());
    }
}

TEST(EventServerSend, IsRepeatedWhenInterrupted)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    const StreamCapture error(STDERR_FILENO);
    onOtherThreads.send.arm(3, EINTR);
    peer.send(publication("C"));
    EXPECT_EQ(peer.receive(), printedRelay("C", 1, ""));
    EXPECT_TRUE(onOtherThreads.send.spent());
    expectNothingElse(peer);
    EXPECT_EQ(error.text(), "");
}

TEST(EventServerSend, ThatFailsIsLoggedForARelay)
{
    HookCalls connects;
    RunningServer running([&](EventServer& server) { server.install_OnConnect(recordHookCall, &connects); });
    const RawPeer peer = running.connect();
    const std::string client = std::to_string(connects.take().client);
    subscribe(peer, "C");
    const StreamCapture error(STDERR_FILENO);
    onOtherThreads.send.arm(1, ENOBUFS);
    peer.send(publication("C"));
    expectNothingElse(peer);
    EXPECT_EQ(error.text(), "RELAY ERROR to client " + client + ": [-105]: No buffer space available\n");
}

TEST(EventServerSend, ThatIsShortIsLoggedForARelayWithItsCount)
{
    HookCalls connects;
    RunningServer running([&](EventServer& server) { server.install_OnConnect(recordHookCall, &connects); });
    const RawPeer peer = running.connect();
    const std::string client = std::to_string(connects.take().client);
    subscribe(peer, "C");
    const StreamCapture error(STDERR_FILENO);
    onOtherThreads.cutSend(0, 5);
    peer.send(publication("C"));
    EXPECT_EQ(peer.receive(), printedRelay("C", 1, "").substr(0, 5));
    expectNothingElse(peer);
    EXPECT_EQ(error.text(), "RELAY ERROR to client " + client + ": [5]: Input/output error\n");
}

TEST(EventServerSend, ThatIsShortOrFailsKeepsTheHooksFromBeingCalled)
{
    HookCalls calls;
    RunningServer running([&](EventServer& server) {
        server.install_OnSubscribe(recordHookCall, &calls);
        server.install_OnUnsubscribe(recordHookCall, &calls);
    });
    const RawPeer peer = running.connect();
    for (const std::string& request : {subscribeRequest("C"), unsubscribeRequest("C")}) {
        onOtherThreads.cutSend(0, 5);
        peer.send(request);
        EXPECT_EQ(peer.receive(), "{\"hea");
        onOtherThreads.send.arm(1, ENOBUFS);
        peer.send(request);
    }
    peer.send(subscribeRequest("Last"));
    EXPECT_EQ(peer.receive(), response(".subscribe", true, "Last"));
    EXPECT_EQ(calls.take().channel, "Last");
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_TRUE(calls.empty());
}

class ClientWithFaults : public ClientOfRawServer
{
protected:
    LogData record;
};

TEST_F(ClientWithFaults, CannotConnectWithoutASocket)
{
    EventClient another;
    onTheTestsThread.socket.arm(1, EMFILE);
    EXPECT_EQ(another.Connect(server.path()), -1);
    EXPECT_FALSE(another.IsConnected());
    EXPECT_EQ(another.Connect(server.path()), 0);
}

TEST_F(ClientWithFaults, IsConnectedEvenWithoutAReceiverThread)
{
    EventClient another;
    onTheTestsThread.thread.arm(1, EAGAIN);
    EXPECT_EQ(another.Connect(server.path()), 0);
    EXPECT_TRUE(onTheTestsThread.thread.spent());
    const RawPeer other = server.accept();
    EXPECT_TRUE(another.IsConnected());
    EXPECT_EQ(another.Publish("C", record), 0);
    EXPECT_EQ(other.receive(), printedPublication("C", "\"log\":\t\"\""));
    EXPECT_EQ(another.Disconnect(), 0);
    other.expectEnd();
}

TEST_F(ClientWithFaults, TriesASendAgainWhateverItsFailure)
{
    for (const int error : {EINTR, EAGAIN, ENOBUFS, EPIPE}) {
        onTheTestsThread.send.arm(3, error);
        EXPECT_EQ(client.Publish("C", record), 0);
        EXPECT_TRUE(onTheTestsThread.send.spent());
        EXPECT_EQ(peer.receive(), printedPublication("C", "\"log\":\t\"\""));
    }
}

TEST_F(ClientWithFaults, ReturnsTheCountOfAShortPublication)
{
    onTheTestsThread.cutSend(0, 7);
    EXPECT_EQ(client.Publish("C", record), 7);
    EXPECT_EQ(peer.receive(), printedPublication("C").substr(0, 7));
    expectNothingElseSent();
}

TEST_F(ClientWithFaults, ReturnsTheCountOfAShortSubscribeRequestAndStaysUsable)
{
    onTheTestsThread.cutSend(0, 7);
    EXPECT_EQ(client.Subscribe("C", {}, record, nullptr), 7);
    EXPECT_EQ(peer.receive().size(), 7U);
    EXPECT_EQ(client.Unsubscribe("C"), -EINVAL);
    subscribe("C", {}, record);
}

TEST_F(ClientWithFaults, ReturnsTheCountOfAShortUnsubscribeRequestAndStaysSubscribed)
{
    subscribe("C", {}, record);
    onTheTestsThread.cutSend(0, 7);
    EXPECT_EQ(client.Unsubscribe("C"), 7);
    EXPECT_EQ(peer.receive().size(), 7U);
    std::future<int> result = begin([&] { return client.Unsubscribe("C"); });
    grantUnsubscription("C");
    EXPECT_EQ(result.get(), 0);
}

TEST_F(ClientWithFaults, ReturnsTheCountOfAShortQuestionNegated)
{
    onOtherThreads.cutSend(1, 7);
    std::future<int> result = begin([&] { return client.Request("C", record, 1); });
    grantSubscription("C");
    EXPECT_EQ(peer.receive().size(), 7U);
    grantUnsubscription("C");
    EXPECT_EQ(result.get(), -7);
}

TEST_F(ClientWithFaults, AsksEvenWhenTheSubscribeRequestWasShort)
{
    onOtherThreads.cutSend(0, 7);
    std::future<int> result = begin([&] { return client.Request("C", record, 1); });
    EXPECT_EQ(peer.receive().size(), 7U);
    EXPECT_EQ(peer.receive(), printedPublication("req_C"));
    peer.send(relay("C", 1, R"({"log":"answer"})"));
    grantUnsubscription("C");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(record.log, "answer");
}

TEST_F(ClientWithFaults, EndsASynchronizersRequestWithoutAReplyWhenTheQuestionWasShort)
{
    EventClientSynchronizer synchronizer;
    onOtherThreads.cutSend(1, 7);
    std::future<int> result = begin([&] { return synchronizer.Request(client, "C", record, 40); });
    grantSubscription("C");
    EXPECT_EQ(peer.receive().size(), 7U);
    grantUnsubscription("C");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(record.log, "");
}

TEST_F(ClientWithFaults, ReturnsAlreadyWhenTheSocketCannotBeShutDownAndStaysUsable)
{
    onTheTestsThread.shutdown.arm(1, ENOTCONN);
    EXPECT_EQ(client.Disconnect(), -EALREADY);
    EXPECT_TRUE(onTheTestsThread.shutdown.spent());
    EXPECT_TRUE(client.IsConnected());
    Receptions receptions;
    subscribe("C", recordingTo(receptions), record);
    peer.send(relay("C", 1, R"({"log":""})"));
    receptions.take();
    EXPECT_EQ(client.Disconnect(), 0);
    peer.expectEnd();
}

TEST_F(ClientWithFaults, ReceivesAgainWhenInterrupted)
{
    Receptions receptions;
    subscribe("C", recordingTo(receptions), record);
    onOtherThreads.receive.arm(3, EINTR);
    peer.send(relay("C", 1, R"({"log":""})")); // taken by the receive that already waits
    peer.send(relay("C", 2, R"({"log":""})"));
    EXPECT_EQ(receptions.take().sequence, 1);
    EXPECT_EQ(receptions.take().sequence, 2);
    EXPECT_TRUE(onOtherThreads.receive.spent());
}

} // namespace
} // namespace Telvane
