#include "telvane-web/http/HostCheck.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

TEST(HostCheck, AllowsTheMachinesOwnNamesWithAndWithoutPort)
{
    const HostCheck check("Cell4.Example");
    for (const char* const name :
         {"localhost", "localhost:8320", "LOCALHOST", "localhost.", "127.0.0.1:8320", "[::1]:8320", "[::1]",
          "cell4.example", "CELL4.example:80", "cell4.local", "cell4.local:8320"}) {
        EXPECT_TRUE(check.allows(name, "127.0.0.1")) << name;
    }
}

TEST(HostCheck, AllowsTheAddressThatTheClientConnectedTo)
{
    const HostCheck check("cell4");
    EXPECT_TRUE(check.allows("192.0.2.7:8320", "192.0.2.7"));
    EXPECT_TRUE(check.allows("[2001:db8::7]:8320", "2001:db8::7"));
    EXPECT_FALSE(check.allows("192.0.2.8:8320", "192.0.2.7"));
}

TEST(HostCheck, RefusesOtherNames)
{
    const HostCheck check("cell4");
    for (const char* const name :
         {"evil.example", "localhost.evil.example", "127.0.0.1.evil.example", "xlocalhost", "cell4.evil",
          "cell5.local", "localhost@evil.example", "evil.example:8320"}) {
        EXPECT_FALSE(check.allows(name, "127.0.0.1")) << name;
    }
}

TEST(HostCheck, RefusesMalformedHeaders)
{
    const HostCheck check("cell4");
    for (const char* const name :
         {"", ":8320", "localhost:", "localhost:80:80", "localhost:http", "localhost:123456", "[::1",
          "[::1]x", "[localhost]", "[]", ".", "localhost..", "local host", "localhost/", "localhost\\",
          "localhost,evil", "\"localhost\"", "localhost\t"}) {
        EXPECT_FALSE(check.allows(name, "127.0.0.1")) << name;
    }
    EXPECT_FALSE(check.allows(std::string("localhost\0", 10), "127.0.0.1"));
    EXPECT_FALSE(check.allows(std::string(300, 'a'), "127.0.0.1"));
}

TEST(HostCheck, AnEmptyAddressMatchesNothing)
{
    EXPECT_FALSE(HostCheck("").allows("", ""));
}

TEST(HostCheck, AllowsNamesThatAreAdded)
{
    HostCheck check("cell4");
    EXPECT_TRUE(check.allow("Proxy.Example"));
    EXPECT_TRUE(check.allow("2001:db8::9"));
    EXPECT_TRUE(check.allows("proxy.example:443", "127.0.0.1"));
    EXPECT_TRUE(check.allows("[2001:db8::9]", "127.0.0.1"));
    EXPECT_FALSE(check.allow("not a name"));
    EXPECT_FALSE(check.allow(""));
    EXPECT_FALSE(check.allow("*"));
}

} // namespace
} // namespace TelvaneTool
