// What starting, accepting and stopping do when the system fails them: every call fails here once, in each
// way that matters, and what is told, who is served on and what is left behind is held against what is
// promised.

#include "helpers/BusTestSupport.h"
#include "helpers/FaultInjection.h"

#include <sys/resource.h>

namespace Telvane
{
namespace
{

using namespace Testing;

constexpr std::chrono::milliseconds kPauseAfterFailedAccept{20};

std::string bindingError(int line, int code)
{
    return "ERROR (-1) @ TelvaneLib/EventServer." + std::to_string(line) +
           "-> An error occurred while binding the local socket: [" + std::to_string(code) + "] " +
           std::strerror(code) + "\n";
}

/// A fault by one of several error numbers.
class OfError : public ::testing::TestWithParam<int>
{
protected:
    TemporaryDirectory directory;
    const std::string path = directory.path("bus");
};

void expectStartsAndServes(EventServer& server, const std::string& path)
{
    ASSERT_EQ(server.Start(path), 0);
    expectNothingElse(RawPeer::connectedTo(path));
    EXPECT_EQ(server.Stop(), 0);
}

using EventServerStartWithoutSocket = OfError;

TEST_P(EventServerStartWithoutSocket, IsReportedAndCanBeRepeated)
{
    EventServer server;
    {
        const Fault fault({Call::Socket, Caller::Application, GetParam()});
        const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(server.Start(path), -1); });
        EXPECT_EQ(told.error, bindingError(288, GetParam()));
        EXPECT_EQ(told.output, "");
    }
    EXPECT_FALSE(server.IsStarted());
    EXPECT_EQ(server.Stop(), -ENOTCONN);
    expectStartsAndServes(server, path);
}

TEST_P(EventServerStartWithoutSocket, IsSilentWhenTheOldFileCannotBeProbed)
{
    std::fclose(std::fopen(path.c_str(), "w"));
    EventServer server;
    {
        const Fault fault({Call::Socket, Caller::Application, GetParam()});
        const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(server.Start(path), -1); });
        EXPECT_EQ(told.error + told.output, "");
    }
    EXPECT_TRUE(std::filesystem::is_regular_file(path));
    EXPECT_FALSE(server.IsStarted());
    expectStartsAndServes(server, path);
}

INSTANTIATE_TEST_SUITE_P(ByError, EventServerStartWithoutSocket,
                         ::testing::Values(EMFILE, ENFILE, ENOBUFS, ENOMEM), nameOfError);

using EventServerStartWithoutBind = OfError;

TEST_P(EventServerStartWithoutBind, IsReportedAndCanBeRepeated)
{
    EventServer server;
    const std::size_t descriptors = openDescriptors();
    {
        const Fault fault({Call::Bind, Caller::Application, GetParam()});
        const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(server.Start(path), -1); });
        EXPECT_EQ(told.error, bindingError(298, GetParam()));
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_FALSE(server.IsStarted());
    expectStartsAndServes(server, path);
}

INSTANTIATE_TEST_SUITE_P(ByError, EventServerStartWithoutBind,
                         ::testing::Values(EADDRINUSE, EACCES, ENOSPC, ENOMEM, EROFS), nameOfError);

using EventServerStartWithoutThread = OfError;

TEST_P(EventServerStartWithoutThread, GivesTheNumberSilentlyAndCanBeTriedAgain)
{
    EventServer server;
    const std::size_t descriptors = openDescriptors();
    {
        const Fault fault({Call::CreateThread, Caller::Application, GetParam()});
        const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(server.Start(path), GetParam()); });
        EXPECT_EQ(told.error + told.output, "");
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_FALSE(server.IsStarted());
    EXPECT_EQ(server.Stop(), -ENOTCONN);
    expectStartsAndServes(server, path);
}

INSTANTIATE_TEST_SUITE_P(ByError, EventServerStartWithoutThread, ::testing::Values(EAGAIN, ENOMEM, EPERM),
                         nameOfError);

TEST(EventServerStart, DoesNotTakeAnInterruptedProbeForADeadServer)
{
    RunningServer running;
    EventServer second;
    const Fault fault({Call::Connect, Caller::Application, EINTR});
    EXPECT_EQ(second.Start(running.path), -EADDRINUSE);
    EXPECT_EQ(fault.calls(), 2);
    EXPECT_TRUE(std::filesystem::is_socket(running.path));
    expectNothingElse(running.connect());
}

TEST(EventServerStart, TakesAnAddressInUseFromItsProbeForALiveServer)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    RawServer(path).close();
    EventServer server;
    const Fault fault({Call::Connect, Caller::Application, EADDRINUSE});
    EXPECT_EQ(server.Start(path), -EADDRINUSE);
    EXPECT_TRUE(std::filesystem::is_socket(path));
}

TEST(EventServerStart, DoesNotExamineWhetherItListens)
{
    const TemporaryDirectory directory;
    EventServer server;
    const Fault accepting({Call::Accept, Caller::Listener, EINVAL});
    {
        const Fault fault({Call::Listen, Caller::Application, EADDRINUSE});
        EXPECT_EQ(server.Start(directory.path("bus")), 0);
    }
    EXPECT_TRUE(server.IsStarted());
    // The listening thread finds out and ends. Nobody may wait for a farewell that it said before.
    EXPECT_TRUE(accepting.awaitFailures(1));
    EXPECT_EQ(server.Stop(), 0);
    expectStartsAndServes(server, directory.path("bus"));
}

using EventServerAccept = OfError;

TEST_P(EventServerAccept, ContinuesAfterAFailure)
{
    const Fault fault({Call::Accept, Caller::Listener, GetParam(), 0, 3});
    RunningServer running;
    expectNothingElse(running.connect());
    EXPECT_EQ(fault.failures(), 3);
}

TEST_P(EventServerAccept, DoesNotBurnAProcessorWhileItFailsForEver)
{
    std::optional<Fault> fault(std::in_place,
                               FaultScript{Call::Accept, Caller::Listener, GetParam(), 0, kForEver});
    RunningServer running;
    const RawPeer waiting = running.connect();
    ASSERT_TRUE(fault->awaitFailures(1));

    // Between one failure and the fourth after it, there are at least three pauses.
    const int before = fault->failures();
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(fault->awaitFailures(before + 4));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 3 * kPauseAfterFailedAccept);

    fault.reset();
    expectNothingElse(waiting);
    expectNothingElse(running.connect());
}

TEST_P(EventServerAccept, CanBeStoppedWhileItFailsForEver)
{
    const Fault fault({Call::Accept, Caller::Listener, GetParam(), 0, kForEver});
    RunningServer running;
    const RawPeer waiting = running.connect();
    ASSERT_TRUE(fault.awaitFailures(2));
    EXPECT_EQ(running.server.Stop(), 0);
    waiting.expectEnd();
}

INSTANTIATE_TEST_SUITE_P(ByError, EventServerAccept,
                         ::testing::Values(EINTR, EAGAIN, ECONNABORTED, EMFILE, ENFILE, ENOBUFS, ENOMEM,
                                           EPERM, EPROTO),
                         nameOfError);

/// Takes all the descriptors of the process, until it is destroyed.
class DescriptorShortage
{
public:
    DescriptorShortage()
    {
        if (::getrlimit(RLIMIT_NOFILE, &m_before) != 0) {
            throwSystemError("getrlimit");
        }
        // The next free number is the first that is out of bounds.
        const FileDescriptor next(::dup(STDIN_FILENO));
        rlimit none = m_before;
        none.rlim_cur = static_cast<rlim_t>(next.get());
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    DescriptorShortage(const DescriptorShortage&) = delete;
    DescriptorShortage& operator=(const DescriptorShortage&) = delete;
    ~DescriptorShortage() { ::setrlimit(RLIMIT_NOFILE, &m_before); }

private:
    rlimit m_before = {};
};

TEST(EventServerAccept, ServesThoseWhoWaitedWhenDescriptorsAreBack)
{
    const Fault counting({Call::Accept, Caller::Listener, 0, 0, 0});
    RunningServer running;
    const RawPeer early = running.connect();
    subscribe(early, "C");
    // The system may have reserved a number already for the client that the server waits for, so the first of
    // the two may be served in spite of the shortage; the second one never is.
    FileDescriptor first(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    FileDescriptor second(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressOf(running.path);
    const auto join = [&](const FileDescriptor& socket) {
        return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    };
    std::optional<DescriptorShortage> shortage(std::in_place);
    ASSERT_EQ(join(first), 0);
    ASSERT_EQ(join(second), 0);
    const RawPeer next(std::move(first));
    const RawPeer waiting(std::move(second));
    waiting.send(publication("C"));
    const int before = counting.calls();
    EXPECT_TRUE(eventually([&] { return counting.calls() > before + 3; }));
    early.send(publication("C"));
    EXPECT_EQ(early.receive(), printedRelay("C", 1, ""));
    EXPECT_TRUE(early.isSilent());

    shortage.reset();
    EXPECT_EQ(early.receive(), printedRelay("C", 2, ""));
    expectNothingElse(next);
    expectNothingElse(waiting);
}

using EventServerReceiverWithoutThread = OfError;

TEST_P(EventServerReceiverWithoutThread, ClosesThatClientSilentlyAndServesTheOthers)
{
    RunningServer running;
    const RawPeer early = running.connect();
    expectNothingElse(early);
    const Diagnostics told = diagnosticsOf([&] {
        const Fault fault({Call::CreateThread, Caller::Listener, GetParam()});
        running.connect().expectEnd();
        EXPECT_EQ(fault.failures(), 1);
    });
    EXPECT_EQ(told.error + told.output, "");
    EXPECT_EQ(running.server.Clients().size(), 1U) << "the client that was refused is not listed";
    expectNothingElse(early);
    expectNothingElse(running.connect());
}

INSTANTIATE_TEST_SUITE_P(ByError, EventServerReceiverWithoutThread, ::testing::Values(EAGAIN, ENOMEM, EPERM),
                         nameOfError);

TEST(EventServerStop, FailsIfTheSocketCannotBeShutDownAndTheServerContinues)
{
    RunningServer running;
    const RawPeer early = running.connect();
    {
        const Fault fault({Call::Shutdown, Caller::Application, ENOTCONN});
        EXPECT_EQ(running.server.Stop(), -EALREADY);
    }
    EXPECT_TRUE(running.server.IsStarted());
    EXPECT_TRUE(std::filesystem::is_socket(running.path));
    expectNothingElse(early);
    expectNothingElse(running.connect());
    expectNothingElse(running.connect());
    EXPECT_EQ(running.server.Stop(), 0);
    early.expectEnd();
}

TEST(EventServerStop, WaitsForAClientWhoseSocketCannotBeShutDown)
{
    RunningServer running;
    RawPeer peer = running.connect();
    expectNothingElse(peer);
    const Fault fault({Call::Shutdown, Caller::Application, ENOTCONN, 1});
    std::future<int> stopped = std::async(std::launch::async, [&] { return running.server.Stop(); });
    ASSERT_TRUE(fault.awaitFailures(1));
    peer.close();
    EXPECT_EQ(stopped.get(), 0);
}

TEST(EventServerStop, RegardsADescriptorAsClosedEvenIfCloseFails)
{
    for (const int error : {EINTR, EIO}) {
        RunningServer running;
        const std::size_t descriptors = openDescriptors();
        const Fault fault({Call::Close, Caller::Receiver, error, 0, kForEver});
        {
            const RawPeer peer = running.connect();
            expectNothingElse(peer);
        }
        EXPECT_TRUE(fault.awaitFailures(1));
        expectNothingElse(running.connect());
        EXPECT_TRUE(eventually([&] { return openDescriptors() == descriptors; }));
        EXPECT_EQ(running.server.Stop(), 0);
    }
}

} // namespace
} // namespace Telvane
