#include <Telvane/WireComputations.h>

#include <gtest/gtest.h>

namespace
{

TEST(MillimetreConversion, DividesByTheMillimetresOfAnInch)
{
    EXPECT_EQ(ConvertmmToInches(25.4), 1.0);
    EXPECT_EQ(ConvertmmToInches(0.8), 0.8 / 25.4);
    EXPECT_EQ(ConvertmmToInches(0.0), 0.0);
    EXPECT_EQ(ConvertmmToInches(-25.4), -1.0);
}

TEST(MillimetreConversion, ServesTheMetricWireSizes)
{
    EXPECT_EQ(Telvane::GetWireDiameterInInches(Telvane::WireSize_Metric_1_2), 1.2 / 25.4);
}

} // namespace
