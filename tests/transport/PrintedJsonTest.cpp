// Which texts are taken for printed by the JSON library, held against the library itself.

#include "transport/PrintedJson.h"

#include "helpers/GoldenCatalogue.h"
#include "helpers/TestPaths.h"
#include "support/JsonTree.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace Telvane
{
namespace
{

bool isPrinted(const std::string& text, int depth = 0)
{
    const char* const end = skipPrintedValue(text.c_str(), depth);
    return end == text.c_str() + text.size();
}

/// \return what the library prints for \p text; "none" when it does not read it
std::string printed(const std::string& text)
{
    const JsonTree tree(cJSON_Parse(text.c_str()));
    return tree != nullptr ? JsonText(cJSON_Print(tree.get())).get() : "none";
}

/// Expects each text to be taken for printed exactly when the library prints it so.
void expectAsPrinted(const std::vector<std::string>& texts)
{
    for (const std::string& text : texts) {
        EXPECT_EQ(isPrinted(text), printed(text) == text) << text << " is printed as " << printed(text);
    }
}

TEST(PrintedJson, TakesEveryGoldenRecordAsItPrints)
{
    std::size_t files = 0;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(sourceDirectory() + "/tests/golden")) {
        if (entry.path().extension() != ".json") {
            continue;
        }
        std::stringstream content;
        content << std::ifstream(entry.path()).rdbuf();
        const std::string text = printed(content.str());
        ASSERT_NE(text, "none") << entry.path();
        EXPECT_TRUE(isPrinted(text)) << entry.path();
        ++files;
    }
    EXPECT_EQ(files, 2 * goldenCatalogue().size() + 1) << "two files of each class, and the catalogue";
}

TEST(PrintedJson, AcceptsNumbersInPrintedForm)
{
    expectAsPrinted({"0",
                     "-0",
                     "1",
                     "-1",
                     "00",
                     "01",
                     "-01",
                     "+1",
                     "10",
                     "123456789012345",
                     "999999999999999",
                     "1234567890123456",
                     "9007199254740993",
                     "1000000000000000",
                     "1e15",
                     "1e+15",
                     "1E+15",
                     "1.5e+15",
                     "1.50e+15",
                     "1e+015",
                     "123456789012345678901234567890"});
    expectAsPrinted({"0.1",
                     "0.10",
                     "0.",
                     ".1",
                     "1.",
                     "1.0",
                     "0.0",
                     "-0.0",
                     "-0.5",
                     "00.5",
                     "0.5e0",
                     "0.0001",
                     "0.00012",
                     "0.00001",
                     "1e-05",
                     "1e-5",
                     "1.25e-07",
                     "0.000123456789012345",
                     "123456789.012345",
                     "123456789.0123456",
                     "0.123456789012345",
                     "0.1234567890123456",
                     "0.30000000000000004",
                     "25.100000381469727",
                     "1.7976931348623157e+308",
                     "1e+309",
                     "5e-324",
                     "4.9406564584124654e-324",
                     "2.2250738585072014e-308",
                     "1e-400"});
    expectAsPrinted(
        {"1e", "1e+", "--1", "1-2", "1+", "1.2.3", "-", "", "0x10", "1f", "Infinity", "nan", "NaN"});
    expectAsPrinted({std::string(63, '1'), std::string(64, '1'), "0." + std::string(70, '1')});
}

TEST(PrintedJson, AcceptsNumbersOfEachLengthInPrintedForm)
{
    std::minstd_rand random(4711);
    for (int i = 0; i < 50'000; ++i) {
        std::string text = random() % 4 == 0 ? "-" : "";
        const auto digits = [&](unsigned most) {
            for (auto count = 1 + random() % most; count > 0; --count) {
                text += static_cast<char>('0' + (random() % 3 == 0 ? 0 : random() % 10));
            }
        };
        digits(17);
        if (random() % 3 != 0) {
            text += '.';
            digits(18);
        }
        if (random() % 8 == 0) {
            text += random() % 2 == 0 ? "e-0" : "e+1";
            text += static_cast<char>('0' + random() % 10);
        }
        ASSERT_EQ(isPrinted(text), printed(text) == text) << text << " is printed as " << printed(text);
    }
}

TEST(PrintedJson, AcceptsStringsInPrintedForm)
{
    expectAsPrinted({R"("")",
                     R"("a")",
                     R"("a)",
                     R"("a\)",
                     R"("\")",
                     R"("\\")",
                     R"("\"")",
                     R"("\/")",
                     R"("/")",
                     R"("\b\f\n\r\t")",
                     R"("\a")",
                     R"("\u0001")",
                     R"("\u0000")",
                     R"("a\u0000b")",
                     R"("\u0041")",
                     R"("\u00e9")",
                     R"("\ud83d\udd25")",
                     R"("\ud800")",
                     R"("\u")",
                     R"("\u00")",
                     R"("\u001)"});
    expectAsPrinted({"\"\x01\"", "\"\n\"", "\"\t\"", "\"\x1f\"", "\"\x7f\"", "\"\x80\"", "\"\xff\xfe\"",
                     "\"\xc3\xa9\"", "\"\xf0\x9f\x94\xa5\"", "\"\xed\xa0\x80\"", "'a'"});
    for (const std::string digits : {"0123456789abcdef", "ABCDEF"}) {
        for (const char first : {'0', '1', '2'}) {
            for (const char second : digits) {
                expectAsPrinted({std::string("\"\\u00") + first + second + "\""});
            }
        }
    }
    for (int c = 1; c < 256; ++c) {
        expectAsPrinted({std::string("\"") + static_cast<char>(c) + "\"",
                         std::string("\"\\") + static_cast<char>(c) + "\""});
    }
}

TEST(PrintedJson, AcceptsThePrintedLayoutOfObjectsAndArrays)
{
    expectAsPrinted({"{\n}", "{}",     "{\n\t}", "{ \n}",   "[]",       "[ ]",          "[\n]",
                     "[1]",  "[1, 2]", "[1,2]",  "[1,  2]", "[1, ]",    "[, 1]",        "[,]",
                     "[1",   "[1, 2}", "{\n]",   "[[]]",    "[[], []]", "[[1, 2], [3]]"});
    expectAsPrinted({"{\n\t\"a\":\t1\n}",
                     "{\n\t\"a\": 1\n}",
                     "{\n\t\"a\":1\n}",
                     "{\n \"a\":\t1\n}",
                     "{\n\t\"a\":\t1\n\t}",
                     "{\n\t\"a\":\t1}",
                     "{\n\t\"a\":\t1,\n\t\"b\":\t2\n}",
                     "{\n\t\"a\":\t1,\t\"b\":\t2\n}",
                     "{\n\t\"a\":\t1,\n\t\t\"b\":\t2\n}",
                     "{\n\t\"a\":\t1,\n}",
                     "{,\n\t\"a\":\t1\n}",
                     "{\n\t\"a\" :\t1\n}",
                     "{\n\ta:\t1\n}",
                     "{\n\t\"\":\tnull\n}",
                     "{\n\t\"a\":\t1,\n\t\"A\":\t2,\n\t\"a\":\t3\n}",
                     "{\n\t\"a\":\n}",
                     "{\n\t\"a\"\n}",
                     "{\n\t\"a\":\t{\n\t}\n}",
                     "{\n\t\"a\":\t{\n\t\t}\n}",
                     "{\n\t\"a\":\t{\n}\n}",
                     "{\n\t\n}"});
    expectAsPrinted({"[{\n\t}]", "[{\n}]", "[{\n\t\t\"a\":\t1\n\t}]", "[{\n\t\"a\":\t1\n}]",
                     "[{\n\t\t\"a\":\t[{\n\t\t\t\t\t\"b\":\t1\n\t\t\t\t}]\n\t}, {\n\t}]", "[[{\n\t\t}]]",
                     "[[{\n\t}]]"});
    expectAsPrinted({"true", "false", "null", "True", "tru", "truer", "nul", "nulls", " true",
                     "\xef\xbb\xbf"
                     "1"});
}

TEST(PrintedJson, EndsWithTheValue)
{
    const std::string text = "{\n\t}, what follows";
    EXPECT_EQ(skipPrintedValue(text.c_str(), 1), text.c_str() + 4);
    const std::string number = "12}";
    EXPECT_EQ(skipPrintedValue(number.c_str(), 0), number.c_str() + 2);
}

TEST(PrintedJson, CountsTheLevelsAroundAValue)
{
    EXPECT_TRUE(isPrinted("{\n\t\t\"a\":\t1\n\t}", 1));
    EXPECT_FALSE(isPrinted("{\n\t\"a\":\t1\n}", 1));
    EXPECT_TRUE(isPrinted("{\n\t\t\t}", 3));
}

TEST(PrintedJson, TakesSixtyThreeLevelsAndRefusesMore)
{
    for (const std::size_t levels : {62U, 63U, 64U, 200U}) {
        const std::string arrays = std::string(levels, '[') + "1" + std::string(levels, ']');
        EXPECT_EQ(isPrinted(arrays), levels <= 63) << levels;
        std::string objects;
        for (std::size_t level = 0; level < levels; ++level) {
            objects += R"({"a":)";
        }
        objects = printed(objects + "1" + std::string(levels, '}'));
        EXPECT_EQ(isPrinted(objects), levels <= 63) << levels;
        EXPECT_EQ(isPrinted(objects.substr(0, objects.size() - 1)), false);
    }
}

TEST(PrintedJson, TakesNoTextThatIsCutShort)
{
    const std::string text = printed(R"({"a":[1,-2.5,{"b":"c\n\u0001"}],"d":{},"e":[true,false,null,[]]})");
    ASSERT_TRUE(isPrinted(text));
    for (std::size_t length = 0; length < text.size(); ++length) {
        EXPECT_FALSE(isPrinted(text.substr(0, length))) << length;
    }
}

TEST(PrintedJson, TakesNoTextWithAByteChangedThatPrintsOtherwise)
{
    const std::string text = printed(R"({"a":[1,-2.5,{"b":"c\n\u0001"}],"d":{},"e":[true,false,null,[]]})");
    for (std::size_t position = 0; position < text.size(); ++position) {
        for (int c = 1; c < 256; ++c) {
            std::string changed = text;
            changed[position] = static_cast<char>(c);
            ASSERT_EQ(isPrinted(changed), printed(changed) == changed) << changed;
        }
    }
}

} // namespace
} // namespace Telvane
