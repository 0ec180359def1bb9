// The operations with which records write and read single fields and array elements.

#include <Telvane/PSPrimitives.h>
#include <Telvane/TelvaneDataTypeBase.h>

#include "helpers/JsonTestSupport.h"
#include "helpers/ProcessTestSupport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <functional>
#include <map>
#include <set>

namespace Telvane
{
namespace
{

using Testing::compact;
using Testing::Diagnostics;
using Testing::diagnosticsOf;
using Testing::emptyArray;
using Testing::emptyObject;
using Testing::parse;
using Testing::Tree;

/// Opens the field operations to the tests.
class FieldOperations : public TelvaneDataTypeBase
{
public:
    using TelvaneDataTypeBase::_addItemToJsonArray;
    using TelvaneDataTypeBase::_array_fromJson;
    using TelvaneDataTypeBase::_bool_fromJson;
    using TelvaneDataTypeBase::_double_fromJson;
    using TelvaneDataTypeBase::_int_fromJson;
    using TelvaneDataTypeBase::_object_fromJson;
    using TelvaneDataTypeBase::_readFromJsonItem;
    using TelvaneDataTypeBase::_str_fromJson;
    using TelvaneDataTypeBase::_toJson;
    TelvaneDataTypeBase* BuildNewDataType() const override { return new FieldOperations; }
};

class FailingRecord : public FieldOperations
{
public:
    bool _packageData(cJSON* output) override
    {
        _toJson("half", 1, output);
        return false;
    }
};

/// A value of every JSON type, by the name of the type.
const std::map<std::string, std::string>& valuesByType()
{
    static const std::map<std::string, std::string> values = {
        {"number", "5"},  {"string", "\"5\""}, {"true", "true"}, {"false", "false"},
        {"null", "null"}, {"array", "[5]"},    {"object", "{}"}};
    return values;
}

std::string written(const std::function<bool(FieldOperations&, cJSON*)>& write)
{
    FieldOperations fields;
    const Tree output = emptyObject();
    EXPECT_TRUE(write(fields, output.get()));
    return compact(output);
}

TEST(WritingAField, WritesIntegersAsNumbers)
{
    const auto integer = [](int value) {
        return written([value](auto& fields, cJSON* output) { return fields._toJson("k", value, output); });
    };
    EXPECT_EQ(integer(0), R"({"k":0})");
    EXPECT_EQ(integer(-17), R"({"k":-17})");
    EXPECT_EQ(integer(INT_MAX), R"({"k":2147483647})");
    EXPECT_EQ(integer(INT_MIN), R"({"k":-2147483648})");
}

TEST(WritingAField, WritesRealNumbers)
{
    const auto number = [](double value) {
        return written([value](auto& fields, cJSON* output) { return fields._toJson("k", value, output); });
    };
    EXPECT_EQ(number(0.0), R"({"k":0})");
    EXPECT_EQ(number(24.75), R"({"k":24.75})");
    EXPECT_EQ(number(-0.1), R"({"k":-0.1})");
    EXPECT_EQ(number(1e100), R"({"k":1e+100})");
}

TEST(WritingAField, WritesTexts)
{
    const auto text = [](const std::string& value) {
        return written([&](auto& fields, cJSON* output) { return fields._toJson("k", value, output); });
    };
    EXPECT_EQ(text(""), R"({"k":""})");
    EXPECT_EQ(text("A \"quoted\"\n\xC2\xB5s"), "{\"k\":\"A \\\"quoted\\\"\\n\xC2\xB5s\"}");
}

TEST(WritingAField, WritesATextLiteralAsText)
{
    EXPECT_EQ(written([](auto& fields, cJSON* output) { return fields._toJson("k", "text", output); }),
              R"({"k":"text"})");
}

TEST(WritingAField, WritesFlagsAsTrueAndFalse)
{
    EXPECT_EQ(written([](auto& fields, cJSON* output) { return fields._toJson("k", true, output); }),
              R"({"k":true})");
    EXPECT_EQ(written([](auto& fields, cJSON* output) { return fields._toJson("k", false, output); }),
              R"({"k":false})");
}

TEST(WritingAField, KeepsTheOrderOfWriting)
{
    FieldOperations fields;
    const Tree output = emptyObject();
    fields._toJson("b", 1, output.get());
    fields._toJson("a", 2, output.get());
    fields._toJson("b", 3, output.get());
    EXPECT_EQ(compact(output), R"({"b":1,"a":2,"b":3})");
}

TEST(WritingAField, WritesARecordAsAnObjectWithItsBaseKeys)
{
    ValueType value;
    value.Value = 4;
    value._sequence_tag = 2;
    EXPECT_EQ(written([&](auto& fields, cJSON* output) { return fields._toJson("k", value, output); }),
              R"({"k":{"Value":4,"Status":false,"_sequence_tag":2}})");
}

TEST(WritingAField, AddsNothingForARecordThatFails)
{
    FieldOperations fields;
    FailingRecord nested;
    const Tree output = emptyObject();
    EXPECT_FALSE(fields._toJson("k", nested, output.get()));
    EXPECT_EQ(compact(output), "{}");
}

template <class Value>
using FieldReading = bool (FieldOperations::*)(const std::string&, Value*, cJSON*);

/// Reads a value of every type but those in \p readable and expects that nothing happens.
template <class Value>
void expectRefusalOfOtherTypes(FieldReading<Value> read, const std::set<std::string>& readable,
                               const Value& before)
{
    for (const auto& [type, value] : valuesByType()) {
        if (readable.count(type) != 0) {
            continue;
        }
        FieldOperations fields;
        Value target = before;
        const Tree input = parse("{\"k\":" + value + "}");
        const Diagnostics told = diagnosticsOf(
            [&, &kind = type] { EXPECT_FALSE((fields.*read)("k", &target, input.get())) << kind; });
        EXPECT_EQ(target, before) << type;
        EXPECT_EQ(told.output + told.error, "") << type;
    }
    FieldOperations fields;
    Value target = before;
    const Diagnostics told = diagnosticsOf([&] {
        EXPECT_FALSE((fields.*read)("k", &target, parse(R"({"other": 1})").get()));
        EXPECT_FALSE((fields.*read)("k", &target, parse("{}").get()));
    });
    EXPECT_EQ(target, before);
    EXPECT_EQ(told.output + told.error, "");
}

TEST(ReadingAField, ReadsOnlyNumbersAsIntegers)
{
    FieldOperations fields;
    int target = 0;
    EXPECT_TRUE(fields._int_fromJson("k", &target, parse(R"({"k": -12})").get()));
    EXPECT_EQ(target, -12);
    expectRefusalOfOtherTypes<int>(&FieldOperations::_int_fromJson, {"number"}, 99);
}

TEST(ReadingAField, TruncatesAndSaturatesIntegers)
{
    const std::vector<std::pair<std::string, int>> views = {{"3.9", 3},
                                                            {"-3.9", -3},
                                                            {"0.999", 0},
                                                            {"1e12", INT_MAX},
                                                            {"-1e12", INT_MIN},
                                                            {"2147483647", INT_MAX},
                                                            {"2147483648", INT_MAX},
                                                            {"2147483646.5", INT_MAX - 1},
                                                            {"-2147483648", INT_MIN},
                                                            {"-2147483649", INT_MIN},
                                                            {"1e300", INT_MAX}};
    for (const auto& [text, expected] : views) {
        FieldOperations fields;
        int target = 0;
        EXPECT_TRUE(fields._int_fromJson("k", &target, parse("{\"k\":" + text + "}").get()));
        EXPECT_EQ(target, expected) << text;
        int element = 0;
        EXPECT_TRUE(fields._readFromJsonItem(parse(text).get(), element));
        EXPECT_EQ(element, expected) << text;
    }
}

TEST(ReadingAField, ReadsOnlyNumbersAsRealNumbers)
{
    FieldOperations fields;
    double target = 0;
    EXPECT_TRUE(fields._double_fromJson("k", &target, parse(R"({"k": 24.75})").get()));
    EXPECT_EQ(target, 24.75);
    EXPECT_TRUE(fields._double_fromJson("k", &target, parse(R"({"k": 7})").get()));
    EXPECT_EQ(target, 7.0);
    expectRefusalOfOtherTypes<double>(&FieldOperations::_double_fromJson, {"number"}, 1.5);
}

TEST(ReadingAField, ReadsOnlyStringsAsTexts)
{
    FieldOperations fields;
    std::string target = "before";
    EXPECT_TRUE(fields._str_fromJson("k", &target, parse(R"({"k": "µs"})").get()));
    EXPECT_EQ(target, "µs");
    EXPECT_TRUE(fields._str_fromJson("k", &target, parse(R"({"k": ""})").get()));
    EXPECT_EQ(target, "");
    expectRefusalOfOtherTypes<std::string>(&FieldOperations::_str_fromJson, {"string"}, "before");
}

TEST(ReadingAField, ReadsOnlyTrueAndFalseAsFlags)
{
    FieldOperations fields;
    bool target = false;
    EXPECT_TRUE(fields._bool_fromJson("k", &target, parse(R"({"k": true})").get()));
    EXPECT_TRUE(target);
    EXPECT_TRUE(fields._bool_fromJson("k", &target, parse(R"({"k": false})").get()));
    EXPECT_FALSE(target);
    expectRefusalOfOtherTypes<bool>(&FieldOperations::_bool_fromJson, {"true", "false"}, true);
    expectRefusalOfOtherTypes<bool>(&FieldOperations::_bool_fromJson, {"true", "false"}, false);
}

TEST(ReadingAField, MatchesKeysInAnyLetterCaseAndTakesTheFirst)
{
    FieldOperations fields;
    int target = 0;
    EXPECT_TRUE(fields._int_fromJson("serialNumber", &target, parse(R"({"SERIALNUMBER": 5})").get()));
    EXPECT_EQ(target, 5);
    EXPECT_TRUE(fields._int_fromJson("serialNumber", &target,
                                     parse(R"({"SerialNumber": 6, "serialNumber": 7})").get()));
    EXPECT_EQ(target, 6);
}

TEST(ReadingAField, LooksNoFurtherThanTheFirstMatch)
{
    FieldOperations fields;
    int target = 1;
    EXPECT_FALSE(fields._int_fromJson("k", &target, parse(R"({"K": "text", "k": 7})").get()));
    EXPECT_EQ(target, 1);
}

TEST(ReadingARecordField, FillsTheRecordInPlace)
{
    FieldOperations fields;
    ValueType value;
    const Tree input = parse(R"({"k": {"Value": 3, "Status": true, "_id": "n"}})");
    EXPECT_TRUE(fields._object_fromJson("k", &value, input.get()));
    EXPECT_EQ(value.Value, 3);
    EXPECT_TRUE(value.Status);
    EXPECT_EQ(value._id, "n");
}

TEST(ReadingARecordField, ReportsAMissingKeyOnStandardOutput)
{
    FieldOperations fields;
    ValueType value;
    const Diagnostics told =
        diagnosticsOf([&] { EXPECT_FALSE(fields._object_fromJson("k", &value, parse("{}").get())); });
    EXPECT_EQ(told.output, "TelvaneDataTypeBase::_object_fromJson(const std::string& field_name, "
                           "TelvaneDataTypeBase* value, cJSON* input) error!\n");
    EXPECT_EQ(told.error, "");
}

TEST(ReadingARecordField, LetsTheRecordJudgeAValueOfAnyType)
{
    for (const auto& [type, value] : valuesByType()) {
        FieldOperations fields;
        ValueType record;
        const Tree input = parse("{\"k\":" + value + "}");
        const Diagnostics told =
            diagnosticsOf([&] { EXPECT_FALSE(fields._object_fromJson("k", &record, input.get())); });
        EXPECT_EQ(told.error, "FAIL! _int_fromJson Value\n") << type;
        EXPECT_EQ(told.output, "") << type;
    }
}

template <class Target>
void expectElementRefusal(const std::set<std::string>& readable, const std::string& line)
{
    for (const auto& [type, value] : valuesByType()) {
        if (readable.count(type) != 0) {
            continue;
        }
        FieldOperations fields;
        Target target{};
        const Tree item = parse(value);
        const Diagnostics told = diagnosticsOf(
            [&, &kind = type] { EXPECT_FALSE(fields._readFromJsonItem(item.get(), target)) << kind; });
        EXPECT_EQ(told.output, line) << type;
        EXPECT_EQ(told.error, "") << type;
    }
}

TEST(ReadingAnElement, ReadsNumbers)
{
    FieldOperations fields;
    double number = 0;
    int integer = 0;
    EXPECT_TRUE(fields._readFromJsonItem(parse("2.5").get(), number));
    EXPECT_EQ(number, 2.5);
    EXPECT_TRUE(fields._readFromJsonItem(parse("2.5").get(), integer));
    EXPECT_EQ(integer, 2);
    expectElementRefusal<double>(
        {"number"}, "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, double &target) error!\n");
    expectElementRefusal<int>({"number"},
                              "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, int &target) error!\n");
}

TEST(ReadingAnElement, ReadsFlags)
{
    FieldOperations fields;
    bool plain = false;
    BoolFlag flag;
    EXPECT_TRUE(fields._readFromJsonItem(parse("true").get(), plain));
    EXPECT_TRUE(plain);
    EXPECT_TRUE(fields._readFromJsonItem(parse("false").get(), plain));
    EXPECT_FALSE(plain);
    EXPECT_TRUE(fields._readFromJsonItem(parse("true").get(), flag));
    EXPECT_EQ(flag.state, 1);
    EXPECT_TRUE(fields._readFromJsonItem(parse("false").get(), flag));
    EXPECT_EQ(flag.state, 0);
    expectElementRefusal<bool>({"true", "false"},
                               "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, bool &target) error!\n");
    expectElementRefusal<BoolFlag>({"true", "false"},
                                   "_readFromJsonItem(cJSON *item, BoolFlag &target) error!\n");
}

TEST(ReadingAnElement, ReadsRecords)
{
    FieldOperations fields;
    ValueType value;
    EXPECT_TRUE(fields._readFromJsonItem(parse(R"({"Value": 8, "Status": true})").get(), &value));
    EXPECT_EQ(value.Value, 8);
}

TEST(ReadingAnElement, ReportsNullArgumentsForARecord)
{
    FieldOperations fields;
    ValueType value;
    const Tree item = emptyObject();
    const Diagnostics told = diagnosticsOf([&] {
        EXPECT_FALSE(fields._readFromJsonItem(nullptr, &value));
        EXPECT_FALSE(fields._readFromJsonItem(item.get(), static_cast<TelvaneDataTypeBase*>(nullptr)));
    });
    EXPECT_EQ(told.error, "FAIL! _readFromJsonItem - NUll arguments passed\n"
                          "FAIL! _readFromJsonItem - NUll arguments passed\n");
    EXPECT_EQ(told.output, "");
}

TEST(ReadingAnElement, ReportsAValueOtherThanAnObjectForARecord)
{
    for (const auto& [type, text] : valuesByType()) {
        if (type == "object") {
            continue;
        }
        FieldOperations fields;
        ValueType value;
        const Tree item = parse(text);
        const Diagnostics told =
            diagnosticsOf([&] { EXPECT_FALSE(fields._readFromJsonItem(item.get(), &value)); });
        EXPECT_EQ(told.error, "FAIL! _readFromJsonItem item not an object \n") << type;
        EXPECT_EQ(told.output, "") << type;
    }
}

TEST(ReadingAnElement, ReportsARecordThatCouldNotBeRead)
{
    FieldOperations fields;
    ValueType value;
    const Diagnostics told = diagnosticsOf(
        [&] { EXPECT_FALSE(fields._readFromJsonItem(parse(R"({"Value": 1})").get(), &value)); });
    EXPECT_EQ(told.error, "FAIL! _bool_fromJson Status\nFAIL! _readFromJsonItem Unpackage Failed \n");
    EXPECT_EQ(told.output, "");
}

TEST(AddingAnElement, AppendsEachKind)
{
    FieldOperations fields;
    ValueType value;
    const Tree array = emptyArray();
    fields._addItemToJsonArray(array.get(), 2.5);
    fields._addItemToJsonArray(array.get(), 7);
    fields._addItemToJsonArray(array.get(), true);
    fields._addItemToJsonArray(array.get(), false);
    fields._addItemToJsonArray(array.get(), BoolFlag(true));
    fields._addItemToJsonArray(array.get(), BoolFlag(false));
    fields._addItemToJsonArray(array.get(), value);
    EXPECT_EQ(compact(array), R"([2.5,7,true,false,true,false,{"Value":0,"Status":false}])");
}

TEST(AddingAnElement, OmitsARecordThatFails)
{
    FieldOperations fields;
    FailingRecord failing;
    const Tree array = emptyArray();
    fields._addItemToJsonArray(array.get(), failing);
    EXPECT_EQ(compact(array), "[]");
}

} // namespace
} // namespace Telvane
