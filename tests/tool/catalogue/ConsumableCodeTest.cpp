#include "catalogue/ConsumableCode.h"

#include <Telvane/Consumables.h>

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

std::optional<int> wireSize(const std::string& text)
{
    return readConsumableCode(text, Telvane::WireSizeStrings, Telvane::kWireSizeCount);
}

TEST(ConsumableCode, IsGivenByName)
{
    EXPECT_EQ(wireSize("0.045"), Telvane::WireSize_Inch_0_045);
    EXPECT_EQ(wireSize("0.0472 (1.2MM)"), Telvane::WireSize_Metric_1_2);
}

TEST(ConsumableCode, IsGivenByNumber)
{
    EXPECT_EQ(wireSize("4"), 4);
    EXPECT_EQ(wireSize("255"), 255);
}

TEST(ConsumableCode, IsNothingElse)
{
    for (const char* text : {"", "29", "-1", "4x", "thick", "0.0451"}) {
        EXPECT_FALSE(wireSize(text).has_value()) << text;
    }
}

} // namespace
} // namespace TelvaneTool
