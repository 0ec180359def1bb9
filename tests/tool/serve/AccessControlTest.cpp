#include "serve/AccessControl.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

TEST(AccessControl, FindsUsersAndGroupsByName)
{
    EXPECT_EQ(findUser("root"), std::optional<uid_t>(0));
    EXPECT_EQ(findGroup("root"), std::optional<gid_t>(0));
}

TEST(AccessControl, TakesNumbersThatAreNobodysName)
{
    EXPECT_EQ(findUser("4294967294"), std::optional<uid_t>(4294967294));
    EXPECT_EQ(findGroup("123456"), std::optional<gid_t>(123456));
}

TEST(AccessControl, FindsNobodyByWhatIsNeither)
{
    for (const char* const text :
         {"", "no such name", "-1", "12x", " 5", "4294967295", "99999999999999999999"}) {
        EXPECT_EQ(findUser(text), std::nullopt) << text;
        EXPECT_EQ(findGroup(text), std::nullopt) << text;
    }
}

} // namespace
} // namespace TelvaneTool
