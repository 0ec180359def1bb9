// Serving on a listening socket that somebody else has made, and handing it back as it was found.

#include "helpers/BusTestSupport.h"
#include "helpers/FaultInjection.h"

#include <fcntl.h>

namespace Telvane
{
namespace
{

using namespace Testing;

/// \return a listening socket, as a service manager makes it
FileDescriptor listeningSocket(const std::string& path, int type = SOCK_SEQPACKET)
{
    FileDescriptor socket(::socket(AF_UNIX, type, 0));
    const sockaddr_un address = addressOf(path);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket.get(), 16) != 0) {
        throwSystemError("opening a listening socket");
    }
    return socket;
}

bool isOpen(int descriptor)
{
    return ::fcntl(descriptor, F_GETFD) >= 0;
}

/// The socket as a service manager keeps it, and what it gives to each server that it starts.
class EventServerOnAnInheritedSocket : public ::testing::Test
{
protected:
    int inherited() const { return ::dup(kept.get()); }

    TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    FileDescriptor kept = listeningSocket(path);
    EventServer server;
};

TEST_F(EventServerOnAnInheritedSocket, ServesItsClients)
{
    const Diagnostics told = diagnosticsOf([&] { ASSERT_EQ(server.StartOn(inherited()), 0); });
    EXPECT_EQ(told.output + told.error, "");
    EXPECT_TRUE(server.IsStarted());
    const RawPeer publisher = RawPeer::connectedTo(path);
    const RawPeer subscriber = RawPeer::connectedTo(path);
    subscribe(subscriber, "C");
    publisher.send(publication("C", R"({"a":1})"));
    EXPECT_EQ(subscriber.receive(), printedRelay("C", 1, "\"a\":\t1"));
    EXPECT_EQ(server.Stop(), 0);
    subscriber.expectEnd();
}

TEST_F(EventServerOnAnInheritedSocket, ServesClientsThatConnectedBeforeItsStart)
{
    const RawPeer early = RawPeer::connectedTo(path);
    early.send(subscribeRequest("C"));
    ASSERT_EQ(server.StartOn(inherited()), 0);
    EXPECT_EQ(early.receive(), response(".subscribe", true, "C"));
    EXPECT_EQ(server.Stop(), 0);
}

TEST_F(EventServerOnAnInheritedSocket, KeepsItListeningForTheNextServer)
{
    ASSERT_EQ(server.StartOn(inherited()), 0);
    expectNothingElse(RawPeer::connectedTo(path));
    EXPECT_EQ(server.Stop(), 0);
    EXPECT_FALSE(server.IsStarted());
    EXPECT_TRUE(std::filesystem::is_socket(path));

    const RawPeer between = RawPeer::connectedTo(path);
    between.send(subscribeRequest("C"));
    EventServer next;
    ASSERT_EQ(next.StartOn(inherited()), 0);
    EXPECT_EQ(between.receive(), response(".subscribe", true, "C"));
    EXPECT_EQ(next.Stop(), 0);
}

TEST_F(EventServerOnAnInheritedSocket, CanBeStoppedBeforeAnyClientConnects)
{
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(server.StartOn(inherited()), 0);
        ASSERT_EQ(server.Stop(), 0);
    }
}

TEST_F(EventServerOnAnInheritedSocket, OwnsTheDescriptorUntilItIsStopped)
{
    const std::size_t before = openDescriptors();
    const int descriptor = inherited();
    ASSERT_EQ(server.StartOn(descriptor), 0);
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    EXPECT_TRUE((::fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0);
    EXPECT_EQ(server.Stop(), 0);
    EXPECT_FALSE(isOpen(descriptor));
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(EventServerOnAnInheritedSocket, LetsClientsHaveSocketsThatWait)
{
    static std::atomic<int> flags{-1};
    server.install_OnConnect(
        [](void*, int client, const std::string&, int, cJSON*, void*) {
            flags = ::fcntl(client, F_GETFL);
            return 0;
        },
        nullptr);
    ASSERT_EQ(server.StartOn(inherited()), 0);
    expectNothingElse(RawPeer::connectedTo(path));
    EXPECT_EQ(server.Stop(), 0);
    EXPECT_EQ(flags & O_NONBLOCK, 0);
}

TEST_F(EventServerOnAnInheritedSocket, RefusesASecondStartOfAnyKind)
{
    ASSERT_EQ(server.StartOn(inherited()), 0);
    const FileDescriptor second(inherited());
    EXPECT_EQ(server.StartOn(second.get()), -EALREADY);
    EXPECT_TRUE(isOpen(second.get()));
    EXPECT_EQ(server.Start(directory.path("other")), -1);
    expectNothingElse(RawPeer::connectedTo(path));
    EXPECT_EQ(server.Stop(), 0);
}

TEST_F(EventServerOnAnInheritedSocket, TakesTurnsWithASocketOfItsOwn)
{
    const std::string own = directory.path("own");
    ASSERT_EQ(server.Start(own), 0);
    const FileDescriptor other(inherited());
    EXPECT_EQ(server.StartOn(other.get()), -EALREADY);
    ASSERT_EQ(server.Stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(own));

    ASSERT_EQ(server.StartOn(inherited()), 0);
    ASSERT_EQ(server.Stop(), 0);
    EXPECT_TRUE(std::filesystem::is_socket(path));

    ASSERT_EQ(server.Start(own), 0);
    expectNothingElse(RawPeer::connectedTo(own));
    ASSERT_EQ(server.Stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(own));
}

TEST_F(EventServerOnAnInheritedSocket, IsNotStartedWithoutAThread)
{
    const FileDescriptor descriptor(inherited());
    const std::size_t descriptors = openDescriptors();
    {
        const Fault fault({Call::CreateThread, Caller::Application, EAGAIN});
        EXPECT_EQ(server.StartOn(descriptor.get()), EAGAIN);
    }
    EXPECT_FALSE(server.IsStarted());
    EXPECT_TRUE(isOpen(descriptor.get()));
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(server.Stop(), -ENOTCONN);
    ASSERT_EQ(server.StartOn(inherited()), 0);
    expectNothingElse(RawPeer::connectedTo(path));
    EXPECT_EQ(server.Stop(), 0);
}

TEST_F(EventServerOnAnInheritedSocket, IsNotStartedWithoutADescriptorToBeWokenBy)
{
    const FileDescriptor descriptor(inherited());
    {
        const Fault fault({Call::CreateEventDescriptor, Caller::Application, EMFILE});
        EXPECT_EQ(server.StartOn(descriptor.get()), -EMFILE);
    }
    EXPECT_FALSE(server.IsStarted());
    EXPECT_TRUE(isOpen(descriptor.get()));
}

TEST_F(EventServerOnAnInheritedSocket, SurvivesAnAcceptThatFails)
{
    ASSERT_EQ(server.StartOn(inherited()), 0);
    {
        const Fault fault({Call::Accept, Caller::Listener, EMFILE});
        expectNothingElse(RawPeer::connectedTo(path));
    }
    EXPECT_EQ(server.Stop(), 0);
}

TEST(EventServerStartOn, RefusesWhatIsNoListeningSocketOfTheBus)
{
    const TemporaryDirectory directory;
    EventServer server;
    EXPECT_EQ(server.StartOn(-1), -EINVAL);

    const FileDescriptor file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const FileDescriptor silent(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const FileDescriptor stream = listeningSocket(directory.path("stream"), SOCK_STREAM);
    const FileDescriptor network(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::listen(network.get(), 1), 0);
    for (const FileDescriptor* const wrong :
         std::initializer_list<const FileDescriptor*>{&file, &silent, &stream, &network}) {
        EXPECT_EQ(server.StartOn(wrong->get()), -EINVAL);
        EXPECT_TRUE(isOpen(wrong->get()));
    }
    EXPECT_FALSE(server.IsStarted());
    EXPECT_EQ(server.Stop(), -ENOTCONN);
}

} // namespace
} // namespace Telvane
