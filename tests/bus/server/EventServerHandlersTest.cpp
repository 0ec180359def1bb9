// The server's handlers and its send primitive by themselves, where their results can be seen.

#include "helpers/BusTestSupport.h"

#include <cerrno>

namespace Telvane
{
namespace
{

using namespace Testing;

/// Calls the handlers with a socket pair instead of a client.
class Handlers : public ::testing::Test
{
protected:
    Handlers()
    {
        int ends[2] = {};
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            throwSystemError("socketpair");
        }
        ours = FileDescriptor(ends[0]);
        theirs = RawPeer(FileDescriptor(ends[1]));
    }

    int call(EventHandler handler, const std::string& header, const std::string& payload)
    {
        const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree(cJSON_Parse(payload.c_str()),
                                                                   &cJSON_Delete);
        return handler(&server, ours.get(), header, 7, tree.get(), nullptr);
    }

    EventServer server;
    FileDescriptor ours;
    RawPeer theirs{FileDescriptor()};
};

TEST_F(Handlers, RefuseRequestsWithoutAUsableChannel)
{
    for (const char* const payload : {"{}", R"({"channel":5})", "5", "null", R"({"channel":[]})"}) {
        EXPECT_EQ(call(EventServer::meta_subscribeHandler, ".subscribe", payload), -EINVAL) << payload;
        EXPECT_EQ(call(EventServer::meta_unsubscribeHandler, ".unsubscribe", payload), -EINVAL) << payload;
    }
    EXPECT_TRUE(theirs.isSilent());
}

TEST_F(Handlers, ReturnTheResultOfSendingTheResponse)
{
    EXPECT_EQ(call(EventServer::meta_subscribeHandler, ".subscribe", R"({"channel":"C"})"), 0);
    EXPECT_EQ(theirs.receive(), response(".subscribe", true, "C"));
    EXPECT_EQ(call(EventServer::meta_unsubscribeHandler, ".unsubscribe", R"({"channel":"C"})"), 0);
    EXPECT_EQ(theirs.receive(), response(".unsubscribe", true, "C"));
    theirs.close();
    EXPECT_EQ(call(EventServer::meta_subscribeHandler, ".subscribe", R"({"channel":"C"})"), -EPIPE);
    EXPECT_EQ(call(EventServer::meta_unsubscribeHandler, ".unsubscribe", R"({"channel":"C"})"), -EPIPE);
}

TEST_F(Handlers, ReturnZeroFromTheRelayEvenIfItFails)
{
    EXPECT_EQ(call(EventServer::subscriptionHandler, "Nobodys", "{}"), 0);
    call(EventServer::meta_subscribeHandler, ".subscribe", R"({"channel":"C"})");
    theirs.receive();
    EXPECT_EQ(call(EventServer::subscriptionHandler, "C", R"({"n":1})"), 0);
    EXPECT_EQ(theirs.receive(), printedRelay("C", 7, "\"n\":\t1"));
    theirs.close();
    diagnosticsOf([&] { EXPECT_EQ(call(EventServer::subscriptionHandler, "C", "{}"), 0); });
}

TEST_F(Handlers, SendAtMostTheLimitAndCallThatComplete)
{
    std::string text(kMessageLimit + 100, 'x');
    EXPECT_EQ(server.writeDataToSocket(ours.get(), text.data(), static_cast<int>(text.size())), 0);
    EXPECT_EQ(theirs.receive(), text.substr(0, kMessageLimit));
    EXPECT_EQ(server.writeDataToSocket(ours.get(), text.data(), 5), 0);
    EXPECT_EQ(theirs.receive(), "xxxxx");
}

TEST_F(Handlers, SendNothingForANegativeLength)
{
    std::string text = "text";
    EXPECT_EQ(server.writeDataToSocket(ours.get(), text.data(), -3), 0);
    EXPECT_EQ(server.writeDataToSocket(ours.get(), text.data(), 4), 0);
    char received[8] = {};
    ssize_t length = 0;
    while (length == 0) { // an empty packet may come first
        length = ::recv(theirs.descriptor(), received, sizeof received, 0);
    }
    EXPECT_EQ(std::string(received, static_cast<std::size_t>(length)), "text");
}

TEST_F(Handlers, NeverWaitForRoomInTheSocket)
{
    std::string text(1000, 'x');
    int result = 0;
    for (int i = 0; i < 100'000 && result == 0; ++i) {
        result = server.writeDataToSocket(ours.get(), text.data(), static_cast<int>(text.size()));
    }
    EXPECT_EQ(result, -EAGAIN);
    EXPECT_EQ(server.writeDataToSocket(-1, text.data(), 5), -EBADF);
}

} // namespace
} // namespace Telvane
