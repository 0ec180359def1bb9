// An application with a conversion of its own, which the library has to call instead of the helper's.
#include <Telvane/Telvane.h>

#include <cstdio>

double ConvertmmToInches(double millimetres)
{
    return millimetres * 1000;
}

int main()
{
    std::printf("%.1f\n", Telvane::GetWireDiameterInInches(Telvane::WireSize_Metric_1_2));
    return 0;
}
