// What is read from text has the value that the JSON library's parser finds.

#include "support/JsonScanner.h"

#include "helpers/NumberTestCount.h"
#include "support/JsonTree.h"
#include "support/NumberText.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

namespace Telvane
{
namespace
{

std::uint64_t bitsOf(double value)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

/// Reads a number with both. \return whether it was read without the library
bool readsAsTheLibrary(const std::string& text)
{
    JsonScanner scanner(text.c_str());
    double value = 0.0;
    if (!scanner.number(value)) {
        return false;
    }
    // In an array it has to end where the library's ends.
    const JsonTree array(cJSON_Parse(("[" + text + "]").c_str()));
    const cJSON* const number = cJSON_GetArrayItem(array.get(), 0);
    EXPECT_NE(number, nullptr) << text;
    if (number != nullptr) {
        EXPECT_EQ(bitsOf(value), bitsOf(number->valuedouble)) << text;
        JsonScanner again(text.c_str());
        int integer = 0;
        EXPECT_TRUE(again.integer(integer));
        EXPECT_EQ(integer, number->valueint) << text;
    }
    EXPECT_TRUE(scanner.skip("")) << text;
    return true;
}

TEST(JsonScanner, ReadsNumbersWhoseDigitsDoNotFitInto64Bits)
{
    // The remainders by 2^64 are small: 1, 7 and 0.
    for (const char* const text :
         {"36893488147419103233", "18446744073709551623", "-3.6893488147419103232"}) {
        EXPECT_TRUE(readsAsTheLibrary(text)) << text;
    }
}

TEST(JsonScanner, ReadsNumbersAsTheLibraryDoes)
{
    for (const char* const text : {"0",
                                   "-0",
                                   "7",
                                   "-7",
                                   "007",
                                   "0.5",
                                   "-0.1",
                                   "999999999999999",
                                   "9007199254740992",
                                   "9007199254740993",
                                   "9999999999999999999",
                                   "12345678901234567890",
                                   "2147483647",
                                   "2147483648",
                                   "-2147483648",
                                   "-2147483649",
                                   "3.9999999999999999",
                                   "0.1000000000000000055",
                                   "4.35",
                                   "1e5",
                                   "1E5",
                                   "1e+5",
                                   "1e-5",
                                   "1.5e300",
                                   "1e22",
                                   "1e23",
                                   "0.0000000000000000001",
                                   "123456789.0123456789",
                                   "4.9406564584124654e-324",
                                   "1.7976931348623157e+308",
                                   "2.2250738585072011e-308"}) {
        EXPECT_TRUE(readsAsTheLibrary(text)) << text;
    }
    EXPECT_TRUE(readsAsTheLibrary(std::string(63, '1')));
    EXPECT_TRUE(readsAsTheLibrary("0." + std::string(61, '3')));
}

TEST(JsonScanner, LeavesToTheLibraryWhatIsNoNumberOrMayBeNone)
{
    const std::string tooLong(64, '1');
    for (const std::string text : {"", "-", ".5", "1.", "-.5", "+1", "1.5.3", "1-2", "1+2", "1e", "1e+", "e5",
                                   "1e400", "x", "\"1\"", "null", tooLong.c_str()}) {
        JsonScanner scanner(text.c_str());
        double value = 0.0;
        EXPECT_FALSE(scanner.number(value)) << text;
    }
}

template <class Generator>
void expectLibraryValues(Generator next)
{
    std::mt19937_64 random(20'240'229);
    for (std::uint64_t i = 0; i < numberTestCount(); ++i) {
        const std::string text = next(random);
        // As the library reads it, but for its tree.
        JsonScanner scanner(text.c_str());
        double value = 0.0;
        const double expected = std::strtod(text.c_str(), nullptr);
        if (!scanner.number(value) || bitsOf(value) != bitsOf(expected)) {
            FAIL() << text;
        }
    }
}

TEST(JsonScanner, ReadsBackPrintedNumbersOfAnyBits)
{
    expectLibraryValues([](auto& random) {
        double value = 0.0;
        do {
            const std::uint64_t bits = random();
            std::memcpy(&value, &bits, sizeof value);
        } while (!(value - value == 0.0) || (value > -1e-300 && value < 1e-300));
        std::array<char, kNumberTextSize> text;
        return std::string(text.data(), formatNumber(value, text.data()));
    });
}

TEST(JsonScanner, ReadsDecimalsOfAnyLength)
{
    expectLibraryValues([](auto& random) {
        std::string text = std::to_string(random() >> random() % 64);
        if (random() % 4 != 0) {
            text.insert(1 + static_cast<std::size_t>(random() % text.size()), ".");
            text += text.back() == '.' ? "5" : "";
        }
        return (random() % 2 != 0 ? "-" : "") + text;
    });
}

TEST(JsonScanner, ReadsMeasuredValues)
{
    expectLibraryValues([](auto& random) {
        std::array<char, kNumberTextSize> text;
        const double value = static_cast<double>(static_cast<std::int32_t>(random())) / 1000.0;
        return std::string(text.data(), formatNumber(value, text.data()));
    });
}

TEST(JsonScanner, ReadsStringsWithTheEscapesOfOneLetter)
{
    JsonScanner scanner(R"("a\"b\\c\/d\be\ff\ng\rh\ti" and more)");
    std::string value = "before";
    ASSERT_TRUE(scanner.string(value));
    EXPECT_EQ(value, "a\"b\\c/d\be\ff\ng\rh\ti");
    EXPECT_TRUE(scanner.skip(" and more"));
}

TEST(JsonScanner, ReadsAnyOtherCharacterAsItIs)
{
    for (int c = ' '; c < 256; ++c) {
        if (c == '"' || c == '\\') {
            continue;
        }
        const std::string expected = std::string("x") + static_cast<char>(c);
        const std::string text = '"' + expected + '"';
        std::string value;
        std::string_view plain;
        EXPECT_TRUE(JsonScanner(text.c_str()).string(value)) << c;
        EXPECT_EQ(value, expected);
        EXPECT_TRUE(JsonScanner(text.c_str()).plainString(plain)) << c;
        EXPECT_EQ(plain, expected);
    }
}

TEST(JsonScanner, LeavesOtherStringsToTheLibrary)
{
    for (const char* const text : {"", "\"", "\"x", "x\"", "\"\\", "\"\\\"", "\"\\q\"", "\"\\u0041\"",
                                   "\"\x01\"", "\"\n\"", "1", "\"\\\\\\\""}) {
        std::string value;
        std::string_view plain;
        EXPECT_FALSE(JsonScanner(text).string(value)) << text;
        EXPECT_FALSE(JsonScanner(text).plainString(plain)) << text;
    }
    std::string_view plain;
    EXPECT_FALSE(JsonScanner("\"\\n\"").plainString(plain));
}

TEST(JsonScanner, StaysInPlaceAtAnotherKey)
{
    JsonScanner scanner("\n\t\"key\":\t1,\n\t\"key\":\ttrue\n}");
    int integer = 0;
    bool flag = false;
    for (const char* const other : {"", "k", "keys", "Key", "ke"}) {
        EXPECT_FALSE(scanner.key(other, true, 1)) << other;
    }
    EXPECT_FALSE(scanner.key("key", false, 1));
    EXPECT_FALSE(scanner.key("key", true, 2));
    EXPECT_FALSE(scanner.key("key", true, 0));
    EXPECT_TRUE(scanner.key("key", true, 1));
    EXPECT_TRUE(scanner.integer(integer));
    EXPECT_EQ(integer, 1);
    EXPECT_FALSE(scanner.key("key", true, 1));
    EXPECT_TRUE(scanner.key("key", false, 1));
    EXPECT_TRUE(scanner.flag(flag));
    EXPECT_TRUE(flag);
    EXPECT_FALSE(scanner.key("key", false, 1));
    EXPECT_FALSE(scanner.skip("}"));
    EXPECT_TRUE(scanner.newLine(0));
    EXPECT_TRUE(scanner.skip("}"));
}

} // namespace
} // namespace Telvane
