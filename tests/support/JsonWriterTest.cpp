#include "support/JsonWriter.h"

#include "helpers/GoldenCatalogue.h"
#include "helpers/TestPaths.h"
#include "support/JsonTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace Telvane
{
namespace
{

constexpr std::size_t kNoLimit = 1'000'000;

std::string written(JsonWriter& writer, const cJSON* tree, int depth = 0)
{
    writer.clear();
    writer.tree(tree, depth);
    const char* const text = writer.finish();
    return text != nullptr ? std::string(text, writer.length()) : "failed";
}

std::string printed(const cJSON* tree)
{
    const JsonText text(cJSON_Print(tree));
    return text != nullptr ? text.get() : "failed";
}

TEST(JsonWriter, PrintsTreesAsTheLibraryDoes)
{
    JsonWriter writer(kNoLimit);
    for (const char* const text : {"{}", "[]", "null", "[{}]", "[[], [[]], {\"\": {}}]",
                                   R"({"a":1,"b":[1,-2.5,{"c":"\u0001\"\\\/\t"}]})",
                                   R"({"a":{"b":{"c":[{"d":[true,false,null]}, {}]}}})", "\"text\"", "1e300",
                                   "-0.1", "\"\\ud83d\\udd25\xff\""}) {
        const JsonTree tree(cJSON_Parse(text));
        ASSERT_NE(tree, nullptr) << text;
        EXPECT_EQ(written(writer, tree.get()), printed(tree.get()));
    }
}

TEST(JsonWriter, PrintsEveryGoldenRecordAsTheLibraryDoes)
{
    JsonWriter writer(kNoLimit);
    std::size_t count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(sourceDirectory() + "/tests/golden/records")) {
        std::ifstream file(entry.path());
        const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        const JsonTree tree(cJSON_Parse(text.c_str()));
        EXPECT_EQ(written(writer, tree.get()), printed(tree.get())) << entry.path();
        ++count;
    }
    EXPECT_EQ(count, 2 * goldenCatalogue().size()) << "two files of each class";
}

TEST(JsonWriter, PrintsTreesThatAreMadeByHandAsTheLibraryDoes)
{
    JsonWriter writer(kNoLimit);
    JsonTree object(cJSON_CreateObject());
    cJSON_AddRawToObject(object.get(), "raw", "[ as it is ]");
    cJSON_AddItemReferenceToObject(object.get(), "reference", object.get()->child);
    cJSON* const nameless = cJSON_CreateTrue();
    cJSON_AddItemToArray(object.get(), nameless);
    cJSON* const textless = cJSON_CreateString("");
    cJSON_free(textless->valuestring);
    textless->valuestring = nullptr;
    cJSON_AddItemToObject(object.get(), "textless", textless);
    EXPECT_EQ(written(writer, object.get()), printed(object.get()));

    nameless->type = cJSON_Invalid;
    EXPECT_EQ(printed(object.get()), "failed");
    EXPECT_EQ(written(writer, object.get()), "failed");
    nameless->type = cJSON_Raw; // without a text
    EXPECT_EQ(printed(object.get()), "failed");
    EXPECT_EQ(written(writer, object.get()), "failed");
    nameless->type = cJSON_NULL;
    EXPECT_EQ(written(writer, object.get()), printed(object.get()));
}

TEST(JsonWriter, IndentsATreeByTheLevelsAroundIt)
{
    JsonWriter writer(kNoLimit);
    const JsonTree outer(cJSON_Parse(R"({"outer":[{"a":{},"b":[{"c":1}]}]})"));
    const JsonTree inner(cJSON_Parse(R"({"a":{},"b":[{"c":1}]})"));
    EXPECT_EQ("{\n\t\"outer\":\t[" + written(writer, inner.get(), 2) + "]\n}", printed(outer.get()));
}

/// Writes something of each kind, with keys and texts of the length.
void writeAll(JsonWriter& writer, std::size_t length)
{
    const std::string text(length, 'x');
    writer.clear();
    writer.put("{");
    for (int depth = 1; depth < 100; depth += 33) {
        writer.key(text, depth == 1, depth);
        writer.string((text + "\n\x01").c_str());
        writer.key("number", false, depth);
        writer.number(-1.0 / 3.0);
        writer.key("integer", false, depth);
        writer.integer(-2147483647);
        writer.key("flag", false, depth);
        writer.flag(false);
        writer.key("short", false, depth);
        writer.shortString([](char* to) { return std::string_view("short").copy(to, 5) + to; });
        writer.newLine(depth);
    }
}

TEST(JsonWriter, CutsAtItsLimitAndNowhereElse)
{
    for (const std::size_t length : {0U, 5U, 80U, 3000U}) {
        JsonWriter unlimited(kNoLimit);
        writeAll(unlimited, length);
        const std::string whole = unlimited.finish();
        EXPECT_EQ(whole.size(), unlimited.length());
        for (std::size_t limit = 0; limit < whole.size() + 10; limit += length < 100 ? 1 : 37) {
            JsonWriter writer(limit);
            for (int round = 0; round < 2; ++round) {
                writeAll(writer, length);
                ASSERT_STREQ(writer.finish(), whole.substr(0, limit).c_str()) << limit;
                ASSERT_EQ(writer.length(), std::min(limit, whole.size()));
            }
        }
    }
}

TEST(JsonWriter, ForgetsWhatIsTakenBack)
{
    JsonWriter writer(10);
    writer.clear();
    writer.put("[1");
    const std::size_t position = writer.position();
    writer.put(", 2345678901234567890");
    writer.rewind(position);
    writer.put("]");
    EXPECT_STREQ(writer.finish(), "[1]");
}

TEST(JsonWriter, FailsUntilTheNextText)
{
    JsonWriter writer(kNoLimit);
    writer.clear();
    writer.fail();
    writer.put("text");
    EXPECT_EQ(writer.finish(), nullptr);
    writer.clear();
    EXPECT_STREQ(writer.finish(), "");
}

} // namespace
} // namespace Telvane
