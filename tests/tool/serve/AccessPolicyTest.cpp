#include "serve/AccessPolicy.h"

#include "helpers/TestFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::TemporaryDirectory;
using testing::EndsWith;
using testing::HasSubstr;
using Action = Telvane::EventServerAccess::Action;

constexpr uid_t kRobot = 4201;
constexpr uid_t kGuest = 4202;
constexpr gid_t kWelding = 4301;
constexpr gid_t kOffice = 4302;

class AccessPolicyTest : public testing::Test
{
protected:
    AccessPolicy read(const std::string& text)
    {
        std::string error;
        const auto policy = AccessPolicy::read(m_directory.write("policy", text), error);
        EXPECT_EQ(error, "");
        return policy.value_or(AccessPolicy());
    }

    std::string errorOf(const std::string& text)
    {
        std::string error;
        EXPECT_FALSE(AccessPolicy::read(m_directory.write("policy", text), error)) << text;
        return error;
    }

    static bool allows(const AccessPolicy& policy, uid_t user, Action action, const std::string& channel,
                       const std::vector<gid_t>& groups = {})
    {
        Telvane::EventServerAccess access;
        access.user = user;
        access.group = kOffice;
        access.groups = groups;
        access.action = action;
        access.channel = channel;
        return policy.allows(access);
    }

    TemporaryDirectory m_directory;
};

TEST_F(AccessPolicyTest, AllowsNothingThatNoRuleMatches)
{
    const AccessPolicy policy = read("# nothing\n\n  \t\n");
    EXPECT_EQ(policy.size(), 0U);
    EXPECT_FALSE(allows(policy, 0, Action::Subscribe, "LogData"));
}

TEST_F(AccessPolicyTest, DistinguishesUsers)
{
    const AccessPolicy policy = read("allow user:4201 * *\n");
    EXPECT_TRUE(allows(policy, kRobot, Action::Publish, "LogData"));
    EXPECT_FALSE(allows(policy, kGuest, Action::Publish, "LogData"));
    EXPECT_FALSE(allows(policy, 0, Action::Publish, "LogData"));
    EXPECT_TRUE(allows(read("allow user:root * *"), 0, Action::Publish, "LogData"));
}

TEST_F(AccessPolicyTest, DistinguishesActions)
{
    for (const auto& [word, allowed] : {std::pair<const char*, Action>{"publish", Action::Publish},
                                        {"request", Action::Request},
                                        {"subscribe", Action::Subscribe}}) {
        const AccessPolicy policy = read(std::string("allow * ") + word + " LogData");
        for (const Action action : {Action::Publish, Action::Request, Action::Subscribe}) {
            EXPECT_EQ(allows(policy, kGuest, action, "LogData"), action == allowed) << word;
        }
    }
    const AccessPolicy two = read("allow * publish,request LogData");
    EXPECT_TRUE(allows(two, kGuest, Action::Publish, "LogData"));
    EXPECT_TRUE(allows(two, kGuest, Action::Request, "LogData"));
    EXPECT_FALSE(allows(two, kGuest, Action::Subscribe, "LogData"));
}

TEST_F(AccessPolicyTest, DistinguishesChannelsByPattern)
{
    const AccessPolicy policy = read("allow * subscribe Weld* Log?ata req_HALInfo");
    EXPECT_TRUE(allows(policy, kGuest, Action::Subscribe, "WeldTraceData"));
    EXPECT_TRUE(allows(policy, kGuest, Action::Subscribe, "LogData"));
    EXPECT_TRUE(allows(policy, kGuest, Action::Subscribe, "req_HALInfo"));
    EXPECT_FALSE(allows(policy, kGuest, Action::Subscribe, "LogDatas"));
    EXPECT_FALSE(allows(policy, kGuest, Action::Subscribe, "HALInfo"));
}

TEST_F(AccessPolicyTest, KnowsMembersOfGroups)
{
    const AccessPolicy policy = read("allow group:4301 * *");
    EXPECT_TRUE(allows(policy, kRobot, Action::Publish, "LogData", {1, kWelding}));
    EXPECT_FALSE(allows(policy, kRobot, Action::Publish, "LogData", {1}));
    EXPECT_TRUE(
        allows(read("allow group:4302 * *"), kRobot, Action::Publish, "LogData")); // the group of the process
    EXPECT_TRUE(allows(read("allow user:4201,group:4301 * *"), kRobot, Action::Publish, "LogData"));
    EXPECT_TRUE(
        allows(read("allow user:4201,group:4301 * *"), kGuest, Action::Publish, "LogData", {kWelding}));
}

TEST_F(AccessPolicyTest, TakesTheFirstRuleThatMatches)
{
    const AccessPolicy policy = read("allow user:4201 publish LogData\n"
                                     "deny * publish Log*   # not even the others\n"
                                     "deny group:4301 * *\n"
                                     "allow * * *\n");
    EXPECT_EQ(policy.size(), 4U);
    EXPECT_TRUE(allows(policy, kRobot, Action::Publish, "LogData"));
    EXPECT_FALSE(allows(policy, kRobot, Action::Publish, "LogOther"));
    EXPECT_FALSE(allows(policy, kGuest, Action::Publish, "LogData"));
    EXPECT_TRUE(allows(policy, kGuest, Action::Subscribe, "LogData"));
    EXPECT_FALSE(allows(policy, kGuest, Action::Subscribe, "LogData", {kWelding}));
}

TEST_F(AccessPolicyTest, TakesTabsAndWindowsLineEndings)
{
    EXPECT_TRUE(allows(read("\tallow\t*  publish\tLogData \r\n"), kGuest, Action::Publish, "LogData"));
}

TEST_F(AccessPolicyTest, ReportsFileAndLineOfAnError)
{
    const std::string error = errorOf("# comment\nallow * * *\n\npermit * * *\n");
    EXPECT_THAT(error, HasSubstr("policy:4: "));
    EXPECT_THAT(error, EndsWith("\"permit\" is not a verdict; use allow or deny"));
}

TEST_F(AccessPolicyTest, ReportsWhatIsWrongWithARule)
{
    const std::string incomplete =
        ":1: expected clients, actions and channels, as in \"deny group:welding publish,subscribe Weld*\"";
    EXPECT_THAT(errorOf("deny"), EndsWith(incomplete));
    EXPECT_THAT(errorOf("deny *"), EndsWith(incomplete));
    EXPECT_THAT(errorOf("deny * publish"), EndsWith(incomplete));
    EXPECT_THAT(errorOf("deny * publish # LogData"), EndsWith(incomplete));
    EXPECT_THAT(errorOf("allow user:no-such-user * *"), EndsWith(":1: unknown user \"no-such-user\""));
    EXPECT_THAT(errorOf("allow user:root,group:no-such-group * *"),
                EndsWith(":1: unknown group \"no-such-group\""));
    EXPECT_THAT(errorOf("allow user: * *"), EndsWith(":1: unknown user \"\""));
    EXPECT_THAT(errorOf("allow root * *"),
                EndsWith(":1: \"root\" is not a client; use user:NAME, group:NAME or *"));
    EXPECT_THAT(errorOf("allow , * *"), EndsWith(":1: \"\" is not a client; use user:NAME, group:NAME or *"));
    EXPECT_THAT(errorOf("allow * read *"),
                EndsWith(":1: \"read\" is not an action; use publish, request, subscribe or *"));
    EXPECT_THAT(errorOf("allow * publish,,write *"),
                EndsWith(":1: \"write\" is not an action; use publish, request, subscribe or *"));
    EXPECT_THAT(errorOf("allow * , *"),
                EndsWith(":1: \"\" is not an action; use publish, request, subscribe or *"));
    EXPECT_THAT(errorOf("allow * publish Weld-*"),
                EndsWith(":1: \"Weld-*\" is not a channel name; use ASCII letters and underscores only"));
    EXPECT_THAT(
        errorOf("allow * publish,request LogData req_HALInfo"),
        EndsWith(":1: \"req_HALInfo\" matches no request; name the requested channel, such as HALInfo"));
}

TEST_F(AccessPolicyTest, ReportsAFileThatCannotBeRead)
{
    std::string error;
    EXPECT_FALSE(AccessPolicy::read(m_directory.path("none"), error));
    EXPECT_EQ(error, "cannot read " + m_directory.path("none") + ": No such file or directory");
    EXPECT_FALSE(AccessPolicy::read(m_directory.path("."), error));
    EXPECT_THAT(error, EndsWith(": Is a directory"));
}

} // namespace
} // namespace TelvaneTool
