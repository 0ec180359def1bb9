// An application with a conversion of its own, which the library must call; or without one.
#include <Telvane/Telvane.h>

#include <cstdio>

#ifndef WITHOUT_CONVERSION
double ConvertmmToInches(double millimetres)
{
    return millimetres * 1000;
}
#endif

int main()
{
    std::printf("%.4f\n", Telvane::GetWireDiameterInInches(Telvane::WireSize_Metric_1_2));
    return 0;
}
