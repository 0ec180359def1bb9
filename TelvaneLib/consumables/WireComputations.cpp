// The table of diameters is searched in its order. All arithmetic uses double precision in the written order,
// so that all builds give the same digits.

#include <Telvane/WireComputations.h>

/// Weak, so that programs without a definition of their own can be linked and loaded.
double ConvertmmToInches(double millimetres) __attribute__((weak));

namespace Telvane
{

namespace
{

struct SizeBand
{
    double below; ///< upper bound of the diameter, in inches; exclusive
    _WireSize_e size;
};

constexpr SizeBand kSizeBands[] = {
    {0.0115, WireSize_Unknown},          {0.0235, WireSize_Inch_0_023},
    {0.027, WireSize_Inch_0_024},        {0.030748, WireSize_Inch_0_030},
    {0.033248, WireSize_Metric_0_8},     {0.0352165, WireSize_Inch_0_035},
    {0.0374016, WireSize_Metric_0_9},    {0.039685, WireSize_Metric_1_0},
    {0.0425, WireSize_Inch_0_040},       {0.0459375, WireSize_Inch_0_045},
    {0.0470595, WireSize_Fraction_3_64}, {0.049622, WireSize_Metric_1_2},
    {0.0535591, WireSize_Inch_0_052},    {0.0585591, WireSize_Metric_1_4},
    {0.06225, WireSize_Inch_0_062},      {0.0627461, WireSize_Fraction_1_16},
    {0.0629961, WireSize_Metric_1_6},    {0.0669331, WireSize_Inch_0_063},
    {0.0744956, WireSize_Metric_1_8},    {0.0784326, WireSize_Fraction_5_64},
    {0.0862451, WireSize_Metric_2_0},    {0.0960876, WireSize_Fraction_3_32},
    {0.1039001, WireSize_Metric_2_5},    {0.1137426, WireSize_Fraction_7_64},
    {0.1215551, WireSize_Metric_3_0},    {0.140625, WireSize_Fraction_1_8}, // 9/64
    {0.171875, WireSize_Fraction_5_32},                                     // 11/64
};

/// \return the density of the alloy, in pounds per cubic inch
double densityOf(_AlloyID_e alloy)
{
    const auto among = [alloy](_AlloyID_e first, _AlloyID_e last) {
        return alloy >= first && alloy <= last;
    };

    if (among(AlloyID_STL_E70, AlloyID_STL_E120) || alloy == AlloyID_STL_EXX) {
        return 0.283;
    }
    if (among(AlloyID_SS_ER308, AlloyID_SS_EC439) || alloy == AlloyID_SS_3XX) {
        return 0.287;
    }
    if (among(AlloyID_MC_E70C, AlloyID_MC_E100C) || among(AlloyID_MC_XXC, AlloyID_MC_MATRIX) ||
        alloy == AlloyID_MC_VANT) {
        return 0.27;
    }
    if (among(AlloyID_AL_4XXX, AlloyID_AL_5554)) {
        return 0.0975;
    }
    if (among(AlloyID_INC_622, AlloyID_INC_625)) {
        return 0.305;
    }
    if (alloy > AlloyID_MC_VANT) {
        return 0.246;
    }
    // The bronzes, and the four codes after the metal-cored wires that are not assigned.
    if (alloy == AlloyID_SIBR || alloy == AlloyID_ALBR ||
        (alloy > AlloyID_MC_MATRIX && alloy < AlloyID_MC_VANT)) {
        return 0.308;
    }
    return 0.283;
}

/// \return the program's conversion; without one, the division by the millimetres of an inch
double inInches(double millimetres)
{
    return ConvertmmToInches != nullptr ? ConvertmmToInches(millimetres) : millimetres / 25.4;
}

} // namespace

double GetWireDiameterInInches(_WireSize_e size)
{
    switch (size) {
    case WireSize_Inch_0_023:
        return 0.023;
    case WireSize_Inch_0_030:
        return 0.03;
    case WireSize_Inch_0_035:
        return 0.035;
    case WireSize_Inch_0_040:
        return 0.04;
    case WireSize_Inch_0_045:
        return 0.045;
    case WireSize_Fraction_3_64:
        return 3.0 / 64;
    case WireSize_Inch_0_052:
        return 0.052;
    case WireSize_Inch_0_062:
        return 0.062;
    case WireSize_Fraction_1_16:
        return 1.0 / 16;
    case WireSize_Fraction_5_64:
        return 5.0 / 64;
    case WireSize_Fraction_1_8:
        return 1.0 / 8;
    case WireSize_Inch_0_024:
        return 0.024;
    case WireSize_Metric_0_8:
        return inInches(0.8);
    case WireSize_Metric_0_9:
        return inInches(0.9);
    case WireSize_Metric_1_0:
        return inInches(1.0);
    case WireSize_Metric_1_2:
        return inInches(1.2);
    case WireSize_Metric_1_4:
        return inInches(1.4);
    case WireSize_Fraction_3_32:
        return 3.0 / 32;
    case WireSize_Metric_1_6:
        return inInches(1.6);
    case WireSize_Inch_0_063:
        return 0.063;
    case WireSize_Metric_1_8:
        return inInches(1.8);
    case WireSize_Fraction_5_32:
        return 5.0 / 32;
    case WireSize_Metric_2_0:
        return inInches(2.0);
    case WireSize_Metric_2_5:
        return inInches(2.5);
    case WireSize_Fraction_7_64:
        return 7.0 / 64;
    case WireSize_Metric_3_0:
        return inInches(3.0);
    default:
        return 0.0;
    }
}

_WireSize_e GetWireDiameterFromInches(float diameter)
{
    const double inches = diameter;
    for (const SizeBand& band : kSizeBands) {
        if (inches < band.below) {
            return band.size;
        }
    }
    return WireSize_Unknown;
}

float GetWireWeight(_AlloyID_e alloy, float diameter)
{
    constexpr double kPi = 3.141592653589793;
    const double radius = diameter * 0.5;
    if (radius < 0.01) {
        return 0.0F;
    }
    return static_cast<float>(12 / (1 / (kPi * radius * radius * densityOf(alloy))));
}

} // namespace Telvane
