// Installing, replacing and uninstalling the server's hooks: the same for all four.

#include "helpers/BusTestSupport.h"

#include <cerrno>

namespace Telvane
{
namespace
{

using namespace Testing;

using Install = int (EventServer::*)(EventHandler, void*);
using Uninstall = int (EventServer::*)();

struct HookOperations
{
    const char* name;
    Install install;
    Uninstall uninstall;
};

class EventServerHook : public ::testing::TestWithParam<HookOperations>
{};

TEST_P(EventServerHook, IsNotInstalledWithoutAFunction)
{
    EventServer server;
    EXPECT_EQ((server.*GetParam().install)(nullptr, this), -EINVAL);
    EXPECT_EQ((server.*GetParam().uninstall)(), -EALREADY);
}

TEST_P(EventServerHook, IsUninstalledOnce)
{
    EventServer server;
    EXPECT_EQ((server.*GetParam().uninstall)(), -EALREADY);
    EXPECT_EQ((server.*GetParam().install)(recordHookCall, nullptr), 0);
    EXPECT_EQ((server.*GetParam().install)(recordHookCall, this), 0);
    EXPECT_EQ((server.*GetParam().uninstall)(), 0);
    EXPECT_EQ((server.*GetParam().uninstall)(), -EALREADY);
}

/// A client comes, subscribes, unsubscribes and goes: each hook has one cause.
void visit(RunningServer& running)
{
    RawPeer peer = running.connect();
    subscribe(peer, "C");
    unsubscribe(peer, "C");
    peer.close();
}

TEST_P(EventServerHook, IsReplacedByALaterOne)
{
    HookCalls earlier;
    HookCalls later;
    RunningServer running([&](EventServer& server) {
        EXPECT_EQ((server.*GetParam().install)(recordHookCall, &earlier), 0);
        EXPECT_EQ((server.*GetParam().install)(recordHookCall, &later), 0);
        EXPECT_EQ((server.*GetParam().install)(nullptr, &earlier), -EINVAL);
    });
    visit(running);
    EXPECT_EQ(later.take().server, &running.server);
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_TRUE(earlier.empty());
    EXPECT_TRUE(later.empty());
}

TEST_P(EventServerHook, IsNotCalledOnceUninstalled)
{
    HookCalls calls;
    RunningServer running([&](EventServer& server) {
        EXPECT_EQ((server.*GetParam().install)(recordHookCall, &calls), 0);
        EXPECT_EQ((server.*GetParam().uninstall)(), 0);
    });
    visit(running);
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_TRUE(calls.empty());
}

INSTANTIATE_TEST_SUITE_P(Each, EventServerHook,
                         ::testing::Values(HookOperations{"OnSubscribe", &EventServer::install_OnSubscribe,
                                                          &EventServer::uninstall_OnSubscribe},
                                           HookOperations{"OnUnsubscribe",
                                                          &EventServer::install_OnUnsubscribe,
                                                          &EventServer::uninstall_OnUnsubscribe},
                                           HookOperations{"OnConnect", &EventServer::install_OnConnect,
                                                          &EventServer::uninstall_OnConnect},
                                           HookOperations{"OnDisconnect", &EventServer::install_OnDisconnect,
                                                          &EventServer::uninstall_OnDisconnect}),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
} // namespace Telvane
