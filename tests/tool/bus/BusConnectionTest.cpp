// The tool's connection while a server gets no processor time.

#include "common/bus/BusConnection.h"

#include "common/bus/StatusClient.h"
#include "common/bus/StatusPayload.h"
#include "helpers/BusTestSupport.h"
#include "tool/fixtures/ToolBusFixture.h"

#include <Telvane/RequestType.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>

namespace TelvaneTool
{
namespace
{

using Telvane::FileDescriptor;
using Telvane::Testing::TemporaryDirectory;

TEST(BusConnectionTest, WaitsForAServerThatDoesNotAcceptYet)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    const FileDescriptor listening(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const sockaddr_un address = Telvane::Testing::addressOf(path);
    const auto* const name = reinterpret_cast<const sockaddr*>(&address);
    ASSERT_EQ(::bind(listening.get(), name, sizeof address), 0);
    ASSERT_EQ(::listen(listening.get(), 1), 0);
    std::vector<FileDescriptor> waiting; // until the kernel keeps no more
    int error = 0;
    while (error == 0) {
        waiting.emplace_back(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        error = ::connect(waiting.back().get(), name, sizeof address) == 0 ? 0 : errno;
    }
    ASSERT_EQ(error, EAGAIN);

    BusConnection connection(BusConnection::Output::Unused, BusConnection::Interruption::Aborts);
    std::future<int> connected =
        std::async(std::launch::async, [&] { return connection.connect(path, 60.0); });
    // Something must not happen in this time: the watchdog ends a command without --wait after 0.9 s.
    EXPECT_EQ(connected.wait_for(std::chrono::milliseconds(1200)), std::future_status::timeout);
    std::vector<FileDescriptor> accepted;
    while (accepted.size() < waiting.size()) { // the last one of them failed, and the connection is one more
        accepted.emplace_back(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }
    EXPECT_EQ(connected.get(), kSuccess);
    EXPECT_EQ(connection.finish(kSuccess), kSuccess);
}

/// A server that does not respond to requests for its status yet.
class StatusClientTest : public ToolBusFixture
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(m_server.Start(path()), 0);
        ASSERT_EQ(m_connection.connect(path(), 60.0), kSuccess);
        ASSERT_EQ(m_other.Connect(path()), 0);
    }
};

TEST_F(StatusClientTest, RepeatsARequestThatNobodyTook)
{
    std::promise<void> requested;
    std::atomic<int> requests{0};
    ASSERT_EQ(m_other.Subscribe(
                  Telvane::kRequestPrefix + std::string(kChannelsStatus),
                  [&](void*, Telvane::TelvaneDataTypeBase*, int, void*) {
                      if (++requests == 1) {
                          requested.set_value();
                      }
                  },
                  Telvane::RequestType(), nullptr),
              0);
    StatusClient status(m_connection);
    std::future<int> started = std::async(std::launch::async, [&] { return status.start(true); });
    requested.get_future().wait();
    m_responder.start(path());
    EXPECT_EQ(started.get(), kSuccess);
    EXPECT_TRUE(Telvane::Testing::eventually([&] { return requests > 1; }));
    EXPECT_FALSE(status.channels().empty());
    m_connection.finish(kSuccess); // before the client of the status is destroyed
    m_other.Disconnect();          // its callback uses variables of this test
}

} // namespace
} // namespace TelvaneTool
