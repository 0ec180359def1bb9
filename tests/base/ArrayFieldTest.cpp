// Reading fixed-size arrays: how many elements are taken, and what is told of the one that is not.

#include <Telvane/PSPrimitives.h>
#include <Telvane/TelvaneDataTypeBase.h>

#include "helpers/JsonTestSupport.h"
#include "helpers/ProcessTestSupport.h"

#include <array>

namespace Telvane
{
namespace
{

using Testing::Diagnostics;
using Testing::diagnosticsOf;
using Testing::parse;
using Testing::Tree;

class ArrayReader : public TelvaneDataTypeBase
{
public:
    using TelvaneDataTypeBase::_array_fromJson;
    TelvaneDataTypeBase* BuildNewDataType() const override { return new ArrayReader; }
};

template <class Element, std::size_t Capacity>
bool readArray(std::array<Element, Capacity>& target, const std::string& array)
{
    ArrayReader reader;
    const Tree input = parse("{\"k\":" + array + "}");
    return reader._array_fromJson("k", target.data(), Capacity, input.get());
}

TEST(ReadingAnArray, FillsEverySlot)
{
    std::array<bool, 4> flags = {};
    EXPECT_TRUE(readArray(flags, "[true, false, true, true]"));
    EXPECT_EQ(flags, (std::array<bool, 4>{true, false, true, true}));

    std::array<int, 3> integers = {};
    EXPECT_TRUE(readArray(integers, "[1, -2, 3.9]"));
    EXPECT_EQ(integers, (std::array<int, 3>{1, -2, 3}));
}

TEST(ReadingAnArray, FillsOnlyTheFirstSlotsFromAShorterOne)
{
    std::array<bool, 4> flags = {false, false, true, true};
    EXPECT_TRUE(readArray(flags, "[true, true]"));
    EXPECT_EQ(flags, (std::array<bool, 4>{true, true, true, true}));

    std::array<int, 4> integers = {1, 2, 3, 4};
    EXPECT_TRUE(readArray(integers, "[9]"));
    EXPECT_EQ(integers, (std::array<int, 4>{9, 2, 3, 4}));
}

TEST(ReadingAnArray, FindsTheKeyInAnyLetterCase)
{
    ArrayReader reader;
    std::array<int, 2> integers = {};
    EXPECT_TRUE(reader._array_fromJson("Bits", integers.data(), 2, parse(R"({"bITS": [4]})").get()));
    EXPECT_EQ(integers[0], 4);
}

TEST(ReadingAnArray, RefusesTooFewAndTooManyElementsWithoutAWord)
{
    std::array<bool, 4> flags = {true, false, true, false};
    const std::array<bool, 4> before = flags;
    const Diagnostics told = diagnosticsOf([&] {
        EXPECT_FALSE(readArray(flags, "[]"));
        EXPECT_FALSE(readArray(flags, "[true, true, true, true, true]"));
    });
    EXPECT_EQ(flags, before);
    EXPECT_EQ(told.output + told.error, "");
}

TEST(ReadingAnArray, RefusesWhatIsNoArrayWithoutAWord)
{
    for (const char* const value : {"true", "5", "\"[1]\"", "{\"0\": 1}", "null"}) {
        std::array<int, 4> integers = {1, 2, 3, 4};
        const Diagnostics told = diagnosticsOf([&] { EXPECT_FALSE(readArray(integers, value)) << value; });
        EXPECT_EQ(integers, (std::array<int, 4>{1, 2, 3, 4})) << value;
        EXPECT_EQ(told.output + told.error, "") << value;
    }
}

TEST(ReadingAnArray, RefusesAMissingKeyAndANullTargetWithoutAWord)
{
    ArrayReader reader;
    std::array<int, 1> integers = {};
    const Diagnostics told = diagnosticsOf([&] {
        EXPECT_FALSE(reader._array_fromJson("k", integers.data(), 1, parse("{}").get()));
        EXPECT_FALSE(reader._array_fromJson<int>("k", nullptr, 1, parse(R"({"k": [1]})").get()));
    });
    EXPECT_EQ(told.output + told.error, "");
}

TEST(ReadingAnArray, KeepsTheElementsBeforeTheFailingOneAndReportsItsIndex)
{
    std::array<bool, 4> flags = {false, false, true, true};
    const Diagnostics told = diagnosticsOf([&] { EXPECT_FALSE(readArray(flags, "[true, 1]")); });
    EXPECT_EQ(flags, (std::array<bool, 4>{true, false, true, true}));
    EXPECT_EQ(told.output, "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, bool &target) error!\n"
                           "_readFromJsonItem error!  Type: 8 Value Db: 1 Array Size: 2 Index: 1\n");
    EXPECT_EQ(told.error, "");
}

TEST(ReadingAnArray, ReportsTheTypeOfTheFailingElement)
{
    const std::vector<std::pair<std::string, std::string>> elements = {
        {"false", "1 Value Db: 0"},  {"true", "2 Value Db: 0"}, {"null", "4 Value Db: 0"},
        {"\"x\"", "16 Value Db: 0"}, {"[]", "32 Value Db: 0"},  {"{}", "64 Value Db: 0"}};
    for (const auto& [element, told] : elements) {
        std::array<int, 3> integers = {};
        const Diagnostics lines = diagnosticsOf(
            [&, &last = element] { EXPECT_FALSE(readArray(integers, "[7, 8, " + last + "]")); });
        EXPECT_EQ(lines.output, "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, int &target) error!\n"
                                "_readFromJsonItem error!  Type: " +
                                    told + " Array Size: 3 Index: 2\n");
        EXPECT_EQ(integers, (std::array<int, 3>{7, 8, 0}));
    }
}

TEST(ReadingAnArray, ReportsTheValueOfAFailingNumber)
{
    std::array<bool, 1> flags = {};
    const Diagnostics told = diagnosticsOf([&] { EXPECT_FALSE(readArray(flags, "[-2.5]")); });
    EXPECT_EQ(told.output, "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, bool &target) error!\n"
                           "_readFromJsonItem error!  Type: 8 Value Db: -2.5 Array Size: 1 Index: 0\n");
}

TEST(ReadingAnArray, NamesTheObjectThatHoldsItWhenThatHasAName)
{
    ArrayReader reader;
    std::array<int, 2> integers = {};
    const Tree parent = parse(R"({"feeder": {"k": ["x"]}})");
    const Diagnostics told = diagnosticsOf([&] {
        EXPECT_FALSE(
            reader._array_fromJson("k", integers.data(), 2, cJSON_GetObjectItem(parent.get(), "feeder")));
    });
    EXPECT_EQ(told.output, "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, int &target) error!\n"
                           "_readFromJsonItem error!  Type: 16 Value Db: 0 Array Size: 1 Index: 0\n"
                           "feeder\n");
    EXPECT_EQ(told.error, "");
}

TEST(ReadingAnArrayOfRecords, AssignsElementsWhole)
{
    std::array<FlagType, 3> flags;
    flags[0]._id = "old";
    flags[0]._sequence_tag = 1;
    flags[1]._id = "old";
    flags[2].Flag = true;
    EXPECT_TRUE(readArray(flags, R"([{"Flag": true, "Status": true},
                             {"Flag": false, "Status": true, "_id": "new", "_sequence_tag": 5}])"));
    EXPECT_TRUE(flags[0].Flag);
    EXPECT_TRUE(flags[0].Status);
    EXPECT_EQ(flags[0]._id, "");
    EXPECT_EQ(flags[0]._sequence_tag, -1);
    EXPECT_EQ(flags[1]._id, "new");
    EXPECT_EQ(flags[1]._sequence_tag, 5);
    EXPECT_TRUE(flags[2].Flag);
}

TEST(ReadingAnArrayOfRecords, DoesNotChangeTheFailingElement)
{
    std::array<FlagType, 2> flags;
    const Diagnostics told = diagnosticsOf(
        [&] { EXPECT_FALSE(readArray(flags, R"([{"Flag": true, "Status": true}, {"Flag": true}])")); });
    EXPECT_TRUE(flags[0].Flag);
    EXPECT_FALSE(flags[1].Flag);
    EXPECT_EQ(told.error, "FAIL! _bool_fromJson Status\nFAIL! _readFromJsonItem Unpackage Failed \n");
    EXPECT_EQ(told.output, "_readFromJsonItem error!  Type: 64 Value Db: 0 Array Size: 2 Index: 1\n");
}

TEST(ReadingAnArrayOfRecords, ReportsAnElementOtherThanAnObject)
{
    std::array<FlagType, 2> flags;
    const Diagnostics told = diagnosticsOf([&] { EXPECT_FALSE(readArray(flags, "[true]")); });
    EXPECT_EQ(told.error, "FAIL! _readFromJsonItem item not an object \n");
    EXPECT_EQ(told.output, "_readFromJsonItem error!  Type: 2 Value Db: 0 Array Size: 1 Index: 0\n");
}

} // namespace
} // namespace Telvane
