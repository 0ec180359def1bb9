#include <Telvane/WireComputations.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <iterator>
#include <limits>
#include <vector>

namespace
{

std::vector<double> g_converted; ///< the lengths that the library had converted

} // namespace

/// This program's own conversion, rounded to tenths of a thousandth so that it differs from the natural one.
double ConvertmmToInches(double millimetres)
{
    g_converted.push_back(millimetres);
    return std::round(millimetres / 25.4 * 10000) / 10000;
}

namespace Telvane
{
namespace
{

struct Size
{
    int code;
    double inches;      ///< 0.0 where the size is metric or there is none
    double millimetres; ///< 0.0 where the size is not metric
};

constexpr Size kSizes[] = {
    {0, 0.023, 0.0},    {1, 0.03, 0.0},  {2, 0.035, 0.0},     {3, 0.04, 0.0},   {4, 0.045, 0.0},
    {5, 0.046875, 0.0}, {6, 0.052, 0.0}, {7, 0.062, 0.0},     {8, 0.0625, 0.0}, {9, 0.078125, 0.0},
    {10, 0.125, 0.0},   {11, 0.0, 0.0},  {12, 0.0, 0.0},      {13, 0.0, 0.0},   {14, 0.024, 0.0},
    {15, 0.0, 0.8},     {16, 0.0, 0.9},  {17, 0.0, 1.0},      {18, 0.0, 1.2},   {19, 0.0, 1.4},
    {20, 0.09375, 0.0}, {21, 0.0, 1.6},  {22, 0.063, 0.0},    {23, 0.0, 1.8},   {24, 0.15625, 0.0},
    {25, 0.0, 2.0},     {26, 0.0, 2.5},  {27, 0.109375, 0.0}, {28, 0.0, 3.0},
};

struct Band
{
    double below; ///< in inches
    int code;
};

constexpr Band kBands[] = {
    {0.0115, 255},   {0.0235, 0},     {0.027, 14},     {0.030748, 1},   {0.033248, 15},  {0.0352165, 2},
    {0.0374016, 16}, {0.039685, 17},  {0.0425, 3},     {0.0459375, 4},  {0.0470595, 5},  {0.049622, 18},
    {0.0535591, 6},  {0.0585591, 19}, {0.06225, 7},    {0.0627461, 8},  {0.0629961, 21}, {0.0669331, 22},
    {0.0744956, 23}, {0.0784326, 9},  {0.0862451, 25}, {0.0960876, 20}, {0.1039001, 26}, {0.1137426, 27},
    {0.1215551, 28}, {0.140625, 10},  {0.171875, 24},
};

TEST(WireDiameter, IsTheNominalOneOfEachSize)
{
    ASSERT_EQ(std::size(kSizes), 29U);
    for (const Size& size : kSizes) {
        g_converted.clear();
        const double diameter = GetWireDiameterInInches(_WireSize_e(size.code));
        if (size.millimetres > 0) {
            EXPECT_EQ(g_converted, std::vector<double>{size.millimetres}) << size.code;
            EXPECT_EQ(diameter, std::round(size.millimetres / 25.4 * 10000) / 10000) << size.code;
        } else {
            EXPECT_TRUE(g_converted.empty()) << size.code;
            EXPECT_EQ(diameter, size.inches) << size.code;
        }
    }
}

TEST(WireDiameter, IsZeroForCodesWithoutASize)
{
    for (const int code : {11, 12, 13, 29, 254, 255, 256, -1, std::numeric_limits<int>::max(),
                           std::numeric_limits<int>::min()}) {
        EXPECT_EQ(GetWireDiameterInInches(_WireSize_e(code)), 0.0) << code;
    }
}

TEST(WireSizeOfADiameter, ChangesAtEachBoundAndNowhereElse)
{
    ASSERT_EQ(std::size(kBands), 27U);
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (std::size_t i = 0; i < std::size(kBands); ++i) {
        const double bound = kBands[i].below;
        const int below = kBands[i].code;
        const int above = i + 1 < std::size(kBands) ? kBands[i + 1].code : 255;

        const auto nearest = static_cast<float>(bound);
        const float lastBelow = nearest < bound ? nearest : std::nextafterf(nearest, -kInfinity);
        const float firstAbove = nearest < bound ? std::nextafterf(nearest, kInfinity) : nearest;
        ASSERT_LT(lastBelow, bound);
        ASSERT_GE(firstAbove, bound);
        EXPECT_EQ(GetWireDiameterFromInches(lastBelow), below) << bound;
        EXPECT_EQ(GetWireDiameterFromInches(firstAbove), above) << bound;

        // In between, from the bound before on, it stays the same.
        const double start = i > 0 ? kBands[i - 1].below : 0.0;
        EXPECT_EQ(GetWireDiameterFromInches(static_cast<float>((start + bound) / 2)), below) << bound;
    }
}

TEST(WireSizeOfADiameter, IsFoundForDiametersOfUse)
{
    EXPECT_EQ(GetWireDiameterFromInches(0.035F), 2);
    EXPECT_EQ(GetWireDiameterFromInches(0.0352F), 2);
    EXPECT_EQ(GetWireDiameterFromInches(0.0353F), 16);
    EXPECT_EQ(GetWireDiameterFromInches(0.01F), 255);
    EXPECT_EQ(GetWireDiameterFromInches(0.2F), 255);
}

TEST(WireSizeOfADiameter, BelongsToTheBandAboveWhenTheWidenedValueEqualsTheBound)
{
    EXPECT_EQ(GetWireDiameterFromInches(0.140625F), 24);
    EXPECT_EQ(GetWireDiameterFromInches(0.171875F), 255);
    // In single precision 0.0235 lies a little below the bound of that name.
    EXPECT_EQ(GetWireDiameterFromInches(0.0235F), 0);
}

TEST(WireSizeOfADiameter, IsUnknownForWhatIsNoDiameter)
{
    EXPECT_EQ(GetWireDiameterFromInches(0.0F), WireSize_Unknown);
    EXPECT_EQ(GetWireDiameterFromInches(-0.035F), WireSize_Unknown);
    EXPECT_EQ(GetWireDiameterFromInches(std::numeric_limits<float>::infinity()), WireSize_Unknown);
    EXPECT_EQ(GetWireDiameterFromInches(std::numeric_limits<float>::quiet_NaN()), WireSize_Unknown);
}

TEST(WireSizeOfADiameter, IsTheSizeItselfForEveryNominalDiameter)
{
    for (const Size& size : kSizes) {
        const double inches = size.millimetres > 0 ? size.millimetres / 25.4 : size.inches;
        if (inches > 0) {
            EXPECT_EQ(GetWireDiameterFromInches(static_cast<float>(inches)), size.code) << size.code;
        }
    }
}

/// The densities of the alloys 0 to 39, in pounds per cubic inch.
constexpr double kDensities[] = {
    0.283, 0.283, 0.283, 0.283, 0.283, 0.0975, 0.0975, 0.0975, 0.287, 0.287, 0.287, 0.287, 0.287, 0.287,
    0.287, 0.27,  0.27,  0.27,  0.27,  0.27,   0.283,  0.283,  0.308, 0.305, 0.305, 0.308, 0.283, 0.287,
    0.27,  0.27,  0.27,  0.308, 0.308, 0.308,  0.308,  0.27,   0.246, 0.246, 0.246, 0.246,
};

double weightOfAFoot(double density, double diameter)
{
    return 12 * 3.141592653589793 * (diameter / 2) * (diameter / 2) * density;
}

TEST(WireWeight, FollowsTheDensityOfEachAlloy)
{
    ASSERT_EQ(std::size(kDensities), 40U);
    for (const float diameter : {0.035F, 0.0625F, 0.125F}) {
        for (int alloy = 0; alloy < 40; ++alloy) {
            EXPECT_FLOAT_EQ(GetWireWeight(_AlloyID_e(alloy), diameter),
                            static_cast<float>(weightOfAFoot(kDensities[alloy], diameter)))
                << alloy;
        }
    }
}

TEST(WireWeight, HasADensityForCodesOutsideTheTable)
{
    for (const int alloy : {40, 41, 254, 255, 256, std::numeric_limits<int>::max()}) {
        EXPECT_FLOAT_EQ(GetWireWeight(_AlloyID_e(alloy), 0.035F),
                        static_cast<float>(weightOfAFoot(0.246, 0.035F)))
            << alloy;
    }
    for (const int alloy : {-1, std::numeric_limits<int>::min()}) {
        EXPECT_FLOAT_EQ(GetWireWeight(_AlloyID_e(alloy), 0.035F),
                        static_cast<float>(weightOfAFoot(0.283, 0.035F)))
            << alloy;
    }
}

TEST(WireWeight, IsThatOfAFootOfWireInPounds)
{
    EXPECT_NEAR(GetWireWeight(AlloyID_STL_E70, 0.035F), 0.003266, 1e-5);
    EXPECT_NEAR(GetWireWeight(AlloyID_STL_E70, 0.035F), 12 * 3.141592653589793 * 0.0175 * 0.0175 * 0.283,
                1e-9);
    EXPECT_EQ(GetWireWeight(AlloyID_Unspecified, 0.045F), GetWireWeight(AlloyID_STL_E70, 0.045F));
}

TEST(WireWeight, IsZeroForARadiusBelowAHundredthOfAnInch)
{
    EXPECT_EQ(GetWireWeight(AlloyID_STL_E70, 0.019F), 0.0F);
    EXPECT_EQ(GetWireWeight(AlloyID_STL_E70, 0.0F), 0.0F);
    EXPECT_EQ(GetWireWeight(AlloyID_STL_E70, -1.0F), 0.0F);
    // In single precision 0.02 lies a little below 0.02.
    EXPECT_EQ(GetWireWeight(AlloyID_STL_E70, 0.02F), 0.0F);
    EXPECT_GT(GetWireWeight(AlloyID_STL_E70, std::nextafterf(0.02F, 1.0F)), 0.0F);
}

} // namespace
} // namespace Telvane
