#include "common/text/JsonPrinter.h"

#include "common/support/Json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

namespace TelvaneTool
{
namespace
{

std::string printedByTheLibrary(const cJSON* tree)
{
    const JsonText text(cJSON_PrintUnformatted(tree));
    return text != nullptr ? text.get() : "";
}

void expectSameText(const JsonTree& tree)
{
    ASSERT_EQ(printOnOneLine(tree.get()), printedByTheLibrary(tree.get()));
}

TEST(JsonPrinter, PrintsNumbersLikeTheLibrary)
{
    using Limits = std::numeric_limits<double>;
    for (const double number : {0.0,
                                -0.0,
                                1.0,
                                -1.0,
                                0.1,
                                1.0 / 3,
                                2.0 / 3,
                                1e15,
                                1e16,
                                123456789012345678.0,
                                1e21,
                                1e-5,
                                1e-4,
                                0.00012,
                                2147483647.0,
                                2147483648.0,
                                -2147483648.0,
                                -2147483649.0,
                                24.399999999999999,
                                5e-324,
                                Limits::min(),
                                -Limits::max(),
                                Limits::max(),
                                Limits::infinity(),
                                -Limits::infinity(),
                                Limits::quiet_NaN()}) {
        expectSameText(JsonTree(cJSON_CreateNumber(number)));
    }
}

TEST(JsonPrinter, PrintsNumbersOfAllSizesLikeTheLibrary)
{
    std::mt19937_64 random(1);
    for (int i = 0; i < 20'000; ++i) {
        const std::uint64_t bits = random();
        double number = 0.0;
        std::memcpy(&number, &bits, sizeof number);
        expectSameText(JsonTree(cJSON_CreateNumber(number)));
        expectSameText(JsonTree(cJSON_CreateNumber(static_cast<double>(bits % 1'000'000) / 1000.0)));
        // Decimals of all lengths, with and without neighbours that need more digits.
        const double decimal = static_cast<double>(static_cast<std::int64_t>(bits) >> (bits % 50)) / 1e6;
        expectSameText(JsonTree(cJSON_CreateNumber(decimal)));
        expectSameText(JsonTree(cJSON_CreateNumber(decimal / 1e6)));
        expectSameText(JsonTree(cJSON_CreateNumber(std::nextafter(decimal, 0.0))));
    }
}

TEST(JsonPrinter, EscapesLikeTheLibrary)
{
    for (int character = 1; character < 256; ++character) {
        const char text[] = {'a', static_cast<char>(character), 'b', static_cast<char>(character), '\0'};
        JsonTree object(cJSON_CreateObject());
        cJSON_AddStringToObject(object.get(), text, text);
        expectSameText(object);
    }
}

TEST(JsonPrinter, PrintsTreesLikeTheLibrary)
{
    for (const char* json : {"{}", "[]", "null", "true", "false", "\"\"",
                             R"({"a":{},"b":[],"":[[1,2],{"c":[null,true,false]}],"d":"\u0000x"})",
                             R"([{"a":1},{"a":1.5},"x",{"b":{"c":{"d":"\u00e4\n"}}}])"}) {
        std::string error;
        expectSameText(parseJson(json, error));
    }
    expectSameText(JsonTree(cJSON_CreateRaw("{\"raw\": 1}")));
}

TEST(JsonPrinter, PrintsNothingIfAPartCannotBePrinted)
{
    JsonTree array(cJSON_CreateArray());
    cJSON* const item = cJSON_CreateNumber(1);
    item->type = cJSON_Invalid;
    cJSON_AddItemToArray(array.get(), item);
    EXPECT_EQ(printedByTheLibrary(array.get()), "");
    EXPECT_EQ(printOnOneLine(array.get()), "");
    EXPECT_EQ(printOnOneLine(nullptr), "");
}

} // namespace
} // namespace TelvaneTool
