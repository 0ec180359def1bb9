// What a server can be told of its threads' stacks and its clients' buffers.

#include "helpers/BusTestSupport.h"

#include <cerrno>
#include <pthread.h>

namespace Telvane
{
namespace
{

using namespace Testing;

constexpr std::size_t kMinStackSize = std::size_t{256} * 1024;

TEST(EventServerThreadStackSize, IsRefusedWhenTheDeepestMessageWouldNotFit)
{
    EventServer server;
    EXPECT_EQ(server.SetThreadStackSize(0), -EINVAL);
    EXPECT_EQ(server.SetThreadStackSize(kMinStackSize - 1), -EINVAL);
    EXPECT_EQ(server.SetThreadStackSize(kMinStackSize), 0);
}

/// \return the size of the calling thread's stack
std::size_t sizeOfStack()
{
    pthread_attr_t attributes;
    std::size_t size = 0;
    if (::pthread_getattr_np(::pthread_self(), &attributes) == 0) {
        ::pthread_attr_getstacksize(&attributes, &size);
        ::pthread_attr_destroy(&attributes);
    }
    return size;
}

TEST(EventServerThreadStackSize, AppliesToTheThreadsOfTheServer)
{
    Mailbox<std::size_t> sizes;
    RunningServer running([&sizes](EventServer& server) {
        server.SetThreadStackSize(kMinStackSize);
        const auto tell = [](void*, int, const std::string&, int, cJSON*, void* user) {
            static_cast<Mailbox<std::size_t>*>(user)->put(sizeOfStack());
            return 0;
        };
        server.install_OnConnect(tell, &sizes);
        server.install_OnSubscribe(tell, &sizes);
    });
    subscribe(running.connect(), "C");
    for (const char* const thread : {"listener", "receiver"}) {
        const std::size_t size = sizes.take();
        EXPECT_GE(size, kMinStackSize / 2) << thread;
        EXPECT_LE(size, 6 * kMinStackSize) << thread; // less than any usual size
    }
}

// Sanitizers put records of their own on every stack, larger than the stack's usual size.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
TEST(EventServerThreadStackSize, BearsTheDeepestMessageAtItsSmallest)
{
    RunningServer running([](EventServer& server) { server.SetThreadStackSize(kMinStackSize); });
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    // With the message around it, nested as deep as the JSON library reads.
    constexpr std::size_t kDepth = 998;
    for (const auto& [open, close] : {std::pair<const char*, char>{"[", ']'}, {R"({"a":)", '}'}}) {
        std::string nest;
        for (std::size_t depth = 0; depth < kDepth; ++depth) {
            nest += open;
        }
        peer.send(publication("C", nest + "1" + std::string(kDepth, close)));
        EXPECT_NE(peer.receive().find("\"C\""), std::string::npos);
    }
    EXPECT_EQ(running.server.Statistics().dispatched, 3U);
}
#endif

TEST(EventServerSubscriberSendBuffer, IsRefusedWhenItIsNegative)
{
    EventServer server;
    EXPECT_EQ(server.SetSubscriberSendBuffer(-1), -EINVAL);
    EXPECT_EQ(server.SetSubscriberSendBuffer(0), 0);
}

TEST(EventServerSubscriberSendBuffer, AppliesToTheNextClient)
{
    RunningServer running;
    EXPECT_EQ(running.server.GrantedSubscriberSendBuffer(), 0);
    const RawPeer first = running.connect();
    ASSERT_TRUE(eventually([&] { return running.server.GrantedSubscriberSendBuffer() != 0; }));
    const int usual = running.server.GrantedSubscriberSendBuffer();
    ASSERT_EQ(running.server.SetSubscriberSendBuffer(usual / 4), 0);
    const RawPeer second = running.connect();
    EXPECT_TRUE(eventually([&] { return running.server.GrantedSubscriberSendBuffer() == usual / 4; }));
}

} // namespace
} // namespace Telvane
