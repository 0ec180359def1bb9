#include "common/support/JsonPath.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

TEST(JsonPath, IsSplitAtDotsAndBrackets)
{
    EXPECT_THAT(splitPath("a.b[2].c"), ElementsAre("a", "b", "2", "c"));
    EXPECT_THAT(splitPath("a.2"), ElementsAre("a", "2"));
    EXPECT_THAT(splitPath(".[]"), IsEmpty());
}

TEST(JsonPath, FindsValuesInObjectsAndArrays)
{
    std::string error;
    const JsonTree tree = parseJson(R"({"Set":{"Modes":[{"Label":3},{"Label":"x"}]}})", error);
    EXPECT_EQ(fieldText(findField(tree.get(), "set.modes[1].label")), "x");
    EXPECT_EQ(fieldText(findField(tree.get(), "Set.Modes.0")), R"({"Label":3})");
    for (const char* const path :
         {"Set.Modes[2]", "Set.Modes[-1]", "Set.Modes[x]", "Set.Label", "Set.Modes[0].Label.x"}) {
        EXPECT_EQ(findField(tree.get(), path), nullptr) << path;
    }
}

} // namespace
} // namespace TelvaneTool
