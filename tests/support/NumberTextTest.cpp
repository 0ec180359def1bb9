#include "support/NumberText.h"

#include "helpers/NumberTestCount.h"

#include <cjson/cJSON.h>

#include <gtest/gtest.h>

#include <array>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>

namespace Telvane
{
namespace
{

/// What the installed JSON library prints for a number.
std::string libraryText(double value)
{
    std::array<char, 64> text = {};
    cJSON number = {};
    number.type = cJSON_Number;
    number.valuedouble = value;
    EXPECT_NE(cJSON_PrintPreallocated(&number, text.data(), static_cast<int>(text.size()), 0), 0);
    return text.data();
}

std::string ourText(double value)
{
    std::array<char, kNumberTextSize> text = {};
    char* const end = formatNumber(value, text.data());
    EXPECT_EQ(*end, '\0');
    return {text.data(), end};
}

double fromBits(std::uint64_t bits)
{
    double value = 0.0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

template <class Generator>
void expectLibraryDigits(Generator next)
{
    std::mt19937_64 random(20'240'229);
    for (std::uint64_t i = 0; i < numberTestCount(); ++i) {
        const double value = next(random);
        const std::string expected = libraryText(value);
        const std::string actual = ourText(value);
        if (actual != expected) {
            std::array<char, 64> hex = {};
            std::snprintf(hex.data(), hex.size(), "%a", value);
            FAIL() << hex.data() << " prints as " << actual << " instead of " << expected;
        }
    }
}

TEST(NumberText, PrintsExtremesAsTheLibraryDoes)
{
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double value : {0.0,
                               0.1,
                               0.5,
                               1.0,
                               10.0,
                               1e14,
                               1e15,
                               1e16,
                               1e17,
                               1e21,
                               1e22,
                               1e100,
                               999999999999999.0,
                               9999999999999998.0,
                               123456789012345678.0,
                               1e-3,
                               1e-4,
                               9.9999e-5,
                               1e-5,
                               1.5e-5,
                               1e-7,
                               1e-300,
                               DBL_MIN,
                               DBL_TRUE_MIN,
                               DBL_MAX,
                               DBL_EPSILON,
                               0.1 + 0.2,
                               1.0 / 3.0,
                               2.0 / 3.0,
                               M_PI,
                               23.400000000000002,
                               static_cast<double>(INT_MAX),
                               static_cast<double>(INT_MIN),
                               9007199254740993.0,
                               infinity,
                               std::numeric_limits<double>::quiet_NaN(),
                               4.35,
                               999999999999999.9,
                               99999999999999.95}) {
        EXPECT_EQ(ourText(value), libraryText(value));
        EXPECT_EQ(ourText(-value), libraryText(-value));
    }
}

TEST(NumberText, PrintsPowersOfTenAndTheirNeighbours)
{
    for (int exponent = -323; exponent <= 308; ++exponent) {
        const double power = std::strtod(("1e" + std::to_string(exponent)).c_str(), nullptr);
        for (const double value : {power, std::nextafter(power, 0.0), std::nextafter(power, DBL_MAX)}) {
            EXPECT_EQ(ourText(value), libraryText(value));
        }
    }
}

TEST(NumberText, PrintsNumbersAroundTheLimitOf32BitsAsTheLibraryDoes)
{
    for (const double scale : {1.0, 1e2, 1e6, 1e8}) {
        for (const double multiple : {0x1p31, 0x1p32}) {
            for (int step = -3; step <= 3; ++step) {
                const double value = (multiple + step * 0.5) / scale;
                EXPECT_EQ(ourText(value), libraryText(value));
                EXPECT_EQ(ourText(-value), libraryText(-value));
            }
        }
    }
}

TEST(NumberText, PrintsIntegersAsTheLibraryDoes)
{
    expectLibraryDigits(
        [](std::mt19937_64& random) { return static_cast<double>(static_cast<std::int32_t>(random())); });
    expectLibraryDigits([](std::mt19937_64& random) {
        return static_cast<double>(static_cast<std::int64_t>(random()) >> (random() % 64));
    });
}

TEST(NumberText, PrintsMeasuredValuesAsTheLibraryDoes)
{
    expectLibraryDigits([](std::mt19937_64& random) {
        const double scale = std::pow(10.0, static_cast<double>(random() % 9));
        return static_cast<double>(static_cast<std::int32_t>(random() % 20'000'000) - 10'000'000) / scale;
    });
    expectLibraryDigits([](std::mt19937_64& random) { return static_cast<double>(random() % 5000) * 0.1; });
}

TEST(NumberText, PrintsAnyDoubleAsTheLibraryDoes)
{
    expectLibraryDigits([](std::mt19937_64& random) { return fromBits(random()); });
}

TEST(NumberText, PrintsNumbersOfUsualSizeAsTheLibraryDoes)
{
    constexpr int kBias = 1023;
    const auto fromParts = [](std::uint64_t fraction, std::uint64_t exponent) {
        return fromBits((kBias + exponent - 30) << 52 | (fraction & 0xF'FFFF'FFFF'FFFFULL));
    };
    expectLibraryDigits([&](std::mt19937_64& random) { return fromParts(random(), random() % 84); });
    // Few bits: many lie half way between two texts.
    expectLibraryDigits(
        [&](std::mt19937_64& random) { return fromParts(random() << (random() % 52), random() % 84); });
    expectLibraryDigits([](std::mt19937_64& random) {
        return static_cast<double>(static_cast<float>(random() % 100'000) * 0.01013F);
    });
}

TEST(NumberText, PrintsSubnormalsAsTheLibraryDoes)
{
    expectLibraryDigits(
        [](std::mt19937_64& random) { return fromBits(random() & 0x800F'FFFF'FFFF'FFFFULL); });
}

TEST(NumberText, PrintsDecimalsOfFifteenToSeventeenDigitsAsTheLibraryDoes)
{
    expectLibraryDigits([](std::mt19937_64& random) {
        const std::string text = std::to_string(random() % 100'000'000'000'000'000ULL) + "e" +
                                 std::to_string(static_cast<int>(random() % 60) - 40);
        return std::strtod(text.c_str(), nullptr);
    });
}

} // namespace
} // namespace Telvane
