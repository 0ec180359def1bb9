// Student's distribution from the regularised incomplete beta function, which is summed as a continued fraction
// (Abramowitz and Stegun 26.5.8 and 26.7.1).

#include "archive/judge/Student.h"

#include <cmath>

namespace TelvaneArchive
{

namespace
{

double notZero(double value)
{
    constexpr double kTiny = 1e-300;
    return std::fabs(value) < kTiny ? kTiny : value;
}

/// The continued fraction of the incomplete beta function, by Lentz's method.
double betaFraction(double a, double b, double x)
{
    constexpr int kMaxTerms = 500;
    constexpr double kPrecision = 1e-15;
    double c = 1.0;
    double d = 1.0 / notZero(1.0 - (a + b) * x / (a + 1.0));
    double result = d;
    for (int m = 1; m < kMaxTerms; ++m) {
        const double even = m * (b - m) * x / ((a + 2 * m - 1) * (a + 2 * m));
        d = 1.0 / notZero(1.0 + even * d);
        c = notZero(1.0 + even / c);
        result *= d * c;
        const double odd = -(a + m) * (a + b + m) * x / ((a + 2 * m) * (a + 2 * m + 1));
        d = 1.0 / notZero(1.0 + odd * d);
        c = notZero(1.0 + odd / c);
        const double factor = d * c;
        result *= factor;
        if (std::fabs(factor - 1.0) < kPrecision) {
            break;
        }
    }
    return result;
}

double incompleteBeta(double a, double b, double x)
{
    if (x <= 0.0 || x >= 1.0) {
        return x <= 0.0 ? 0.0 : 1.0;
    }
    const double front =
        std::exp(std::lgamma(a + b) - std::lgamma(a) - std::lgamma(b) + a * std::log(x) + b * std::log1p(-x));
    return x < (a + 1.0) / (a + b + 2.0) ? front * betaFraction(a, b, x) / a
                                         : 1.0 - front * betaFraction(b, a, 1.0 - x) / b;
}

} // namespace

double studentProbability(double t, double freedom)
{
    const double tail = 0.5 * incompleteBeta(freedom / 2.0, 0.5, freedom / (freedom + t * t));
    return t > 0.0 ? 1.0 - tail : tail;
}

double studentQuantile(double probability, double freedom)
{
    double low = 0.0;
    double high = 1.0;
    while (studentProbability(-high, freedom) > probability && high < 1e12) {
        high *= 2.0;
    }
    constexpr int kSteps = 200;
    for (int i = 0; i < kSteps; ++i) {
        const double middle = (low + high) / 2.0;
        (studentProbability(-middle, freedom) > probability ? low : high) = middle;
    }
    return high;
}

} // namespace TelvaneArchive
