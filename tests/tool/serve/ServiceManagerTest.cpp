#include "serve/ServiceManager.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace TelvaneTool
{
namespace
{

class ServiceManagerTest : public testing::Test
{
protected:
    static void pass(pid_t process, const char* sockets)
    {
        setenv("LISTEN_PID", std::to_string(process).c_str(), 1);
        setenv("LISTEN_FDS", sockets, 1);
        setenv("LISTEN_FDNAMES", "bus", 1);
    }

    void TearDown() override
    {
        for (const char* const variable : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) {
            unsetenv(variable);
        }
    }
};

TEST_F(ServiceManagerTest, PassesSocketsToThisProcessOnly)
{
    pass(getpid(), "2");
    EXPECT_EQ(takeListenSockets(), 2);
    pass(getppid(), "2");
    EXPECT_EQ(takeListenSockets(), 0);
    pass(getpid(), "-1");
    EXPECT_EQ(takeListenSockets(), 0);
}

TEST_F(ServiceManagerTest, PassesNoSocketsToChildren)
{
    pass(getpid(), "1");
    takeListenSockets();
    EXPECT_EQ(std::getenv("LISTEN_PID"), nullptr);
    EXPECT_EQ(std::getenv("LISTEN_FDS"), nullptr);
    EXPECT_EQ(std::getenv("LISTEN_FDNAMES"), nullptr);
}

} // namespace
} // namespace TelvaneTool
