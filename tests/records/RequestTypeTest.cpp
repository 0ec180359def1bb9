#include <Telvane/RequestType.h>

#include <gtest/gtest.h>

namespace Telvane
{
namespace
{

TEST(RequestType, PrintsAnEmptyObject)
{
    EXPECT_EQ(RequestType().GetString(), "{\n}");
}

TEST(RequestType, ReadsFromAnyObject)
{
    RequestType request;
    EXPECT_TRUE(request.FromJson(R"({"anything": [1, 2], "_sequence_tag": 7})"));
    EXPECT_EQ(request._sequence_tag, 7);
}

} // namespace
} // namespace Telvane
