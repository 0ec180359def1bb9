// The records of a weld against a table of their own: keys, spelling, order, kinds, defaults, and what
// happens when a key is missing, of another type, or in another letter case.

#include <Telvane/WeldRecords.h>

#include "helpers/JsonTestSupport.h"
#include "helpers/ProcessTestSupport.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <functional>

namespace Telvane
{
namespace
{

using Testing::compact;
using Testing::Diagnostics;
using Testing::diagnosticsOf;
using Testing::parse;
using Testing::Tree;

struct Field
{
    std::string key;
    std::string kind;      ///< integer, number, boolean, string, object
    std::string byDefault; ///< as it prints, without blanks
    std::string value;     ///< another value, as it prints
};

struct Record
{
    std::string name;
    std::function<TelvaneDataTypeBase*()> build;
    std::vector<Field> fields;
};

const Field kTimestamp = {"timestamp", "object", R"("/Date(0)/")", R"("/Date(1700000000123)/")"};

Field integer(const std::string& key)
{
    return {key, "integer", "0", "-42"};
}

Field number(const std::string& key)
{
    return {key, "number", "0", "24.75"};
}

Field flag(const std::string& key)
{
    return {key, "boolean", "false", "true"};
}

Field text(const std::string& key)
{
    return {key, "string", R"("")", R"("in/min")"};
}

Field doublePair(const std::string& key)
{
    return {key, "object", R"({"Unit":"","Value":0})", R"({"Unit":"V","Value":24.75,"_id":"n"})"};
}

Field integerPair(const std::string& key)
{
    return {key, "object", R"({"Unit":"","Value":0})", R"({"Unit":"A","Value":176,"_sequence_tag":3})"};
}

/// The fields of one object, as a field of another.
Field nested(const std::string& key, const std::vector<Field>& fields)
{
    std::string byDefault;
    std::string value;
    for (const Field& field : fields) {
        const std::string begin = (byDefault.empty() ? "\"" : ",\"") + field.key + "\":";
        byDefault += begin + field.byDefault;
        value += begin + field.value;
    }
    return {key, "object", "{" + byDefault + "}", "{" + value + "}"};
}

template <class Class>
TelvaneDataTypeBase* build()
{
    return new Class;
}

const std::vector<Record>& weldRecords()
{
    static const std::vector<Field> settings = {doublePair("CommandVoltage"), doublePair("CommandAmperage"),
                                                doublePair("CommandWFS"), doublePair("CommandArcControl")};
    static const std::vector<Field> metrics = {doublePair("ArcDuration"),      doublePair("AverageVoltage"),
                                               integerPair("AverageAmperage"), integerPair("AverageWFS"),
                                               integerPair("AverageGas"),      doublePair("TotalDeposition"),
                                               integerPair("TotalEnergy"),     integerPair("AverageMotor")};
    static const std::vector<Field> point = {number("amps"), number("volts"), number("wfs"),
                                             number("gas"),  number("power"), number("motor")};
    static const std::vector<Field> definition = {text("amps"), text("volts"), text("wfs"),
                                                  text("gas"),  text("power"), text("motor")};
    static const std::vector<Record> records = {
        {"UnitValuePair", build<UnitValuePair>, {text("Unit"), integer("Value")}},
        {"UnitValueDoublePair", build<UnitValueDoublePair>, {text("Unit"), number("Value")}},
        {"MachineSettings", build<MachineSettings>, settings},
        {"WeldMetrics", build<WeldMetrics>, metrics},
        {"WeldTraceDataPoint", build<WeldTraceDataPoint>, point},
        {"WeldTraceDataPointDefinition", build<WeldTraceDataPointDefinition>, definition},
        {"WeldTraceData",
         build<WeldTraceData>,
         {integer("sequence"), kTimestamp, nested("data", point), integer("messageSerial")}},
        {"WeldTriggerStart",
         build<WeldTriggerStart>,
         {integer("tag"), kTimestamp, integer("samplePeriodus"), integer("program"), integer("process"),
          integer("wireType"), integer("wireSize"), integer("alloy"), integer("gas"),
          nested("settings", settings), nested("data", definition), integer("messageSerial"),
          text("FeederSide")}},
        {"WeldTriggerEnd",
         build<WeldTriggerEnd>,
         {kTimestamp, integer("tag"), number("lifetimeArcHours"), nested("metrics", metrics),
          integer("messageSerial")}},
        {"TelvaneDataConfirmation",
         build<TelvaneDataConfirmation>,
         {text("id"), text("channel"), flag("confirmed")}},
        {"TelvaneDataFullStatus", build<TelvaneDataFullStatus>, {flag("isFull")}},
        {"DataStatus", build<DataStatus>, {integer("ttl")}},
        {"LogData", build<LogData>, {text("log")}}};
    return records;
}

std::string printed(TelvaneDataTypeBase& record)
{
    cJSON* packaged = nullptr;
    EXPECT_EQ(record.Package(&packaged), 0);
    const Tree owned(packaged);
    return compact(packaged);
}

std::string failureLine(const Field& field)
{
    static const std::map<std::string, std::string> operations = {{"integer", "_int_fromJson"},
                                                                  {"number", "_double_fromJson"},
                                                                  {"boolean", "_bool_fromJson"},
                                                                  {"string", "_str_fromJson"},
                                                                  {"object", "_object_fromJson"}};
    return "FAIL! " + operations.at(field.kind) + " " + field.key + "\n";
}

using Value = std::function<std::string(const Field&)>;

std::string objectOf(const std::vector<Field>& fields, const Value& key, const Value& value)
{
    std::string object;
    for (const Field& field : fields) {
        const std::string name = key(field);
        if (!name.empty()) {
            object += (object.empty() ? "\"" : ",\"") + name + "\":" + value(field);
        }
    }
    return "{" + object + "}";
}

std::string spelled(const Field& field)
{
    return field.key;
}

std::string valueOf(const Field& field)
{
    return field.value;
}

std::string defaultOf(const Field& field)
{
    return field.byDefault;
}

class WeldRecord : public ::testing::TestWithParam<Record>
{
protected:
    const std::vector<Field>& fields() const { return GetParam().fields; }
    std::unique_ptr<TelvaneDataTypeBase> fresh() const
    {
        return std::unique_ptr<TelvaneDataTypeBase>(GetParam().build());
    }

    /// What a fresh record holds after a read that stopped at field \p failing.
    std::string readUpTo(std::size_t failing) const
    {
        return objectOf(fields(), spelled, [&](const Field& field) {
            const auto index = static_cast<std::size_t>(&field - fields().data());
            return index < failing ? field.value : field.byDefault;
        });
    }
};

TEST_P(WeldRecord, PrintsItsDefaults)
{
    EXPECT_EQ(printed(*fresh()), objectOf(fields(), spelled, defaultOf));
}

TEST_P(WeldRecord, PrintsTheBaseKeysLast)
{
    const auto record = fresh();
    record->_id = "abc";
    record->_sequence_tag = 0;
    std::string expected = objectOf(fields(), spelled, defaultOf);
    expected.pop_back();
    EXPECT_EQ(printed(*record), expected + R"(,"_id":"abc","_sequence_tag":0})");
}

TEST_P(WeldRecord, WritesBackWhatItRead)
{
    const std::string text = objectOf(fields(), spelled, valueOf);
    const auto record = fresh();
    EXPECT_TRUE(record->FromJson(text));
    EXPECT_EQ(printed(*record), text);
}

TEST_P(WeldRecord, ReadsKeysInOtherLetterCase)
{
    const Value upper = [](const Field& field) {
        std::string key = field.key;
        for (char& letter : key) {
            letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
        }
        return key;
    };
    const auto record = fresh();
    EXPECT_TRUE(record->FromJson(objectOf(fields(), upper, valueOf)));
    EXPECT_EQ(printed(*record), objectOf(fields(), spelled, valueOf));
}

TEST_P(WeldRecord, RequiresEveryKeyAndKeepsWhatItReadBefore)
{
    for (std::size_t missing = 0; missing < fields().size(); ++missing) {
        const Field& absent = fields()[missing];
        const Value present = [&](const Field& field) {
            return &field == &absent ? "" : field.key;
        };
        const auto record = fresh();
        const Diagnostics told = diagnosticsOf([&] {
            EXPECT_EQ(record->Unpackage(parse(objectOf(fields(), present, valueOf)).get()), -EINVAL);
        });
        EXPECT_EQ(told.error, failureLine(absent));
        EXPECT_EQ(told.output, absent.kind == "object"
                                   ? "TelvaneDataTypeBase::_object_fromJson(const std::string& field_name, "
                                     "TelvaneDataTypeBase* value, cJSON* input) error!\n"
                                   : "");
        EXPECT_EQ(printed(*record), readUpTo(missing)) << absent.key;
    }
}

TEST_P(WeldRecord, RefusesValuesOfAnyOtherType)
{
    const std::map<std::string, std::vector<std::string>> others = {
        {"integer", {"\"5\"", "true", "null", "[5]", "{}"}},
        {"number", {"\"5\"", "false", "null", "[5]", "{}"}},
        {"boolean", {"1", "0", "\"true\"", "null", "[true]", "{}"}},
        {"string", {"5", "true", "null", "[\"x\"]", "{}"}},
        {"object", {"5", "true", "null", "[]", "{}"}}};
    for (std::size_t wrong = 0; wrong < fields().size(); ++wrong) {
        const Field& mistyped = fields()[wrong];
        for (const std::string& other : others.at(mistyped.kind)) {
            const Value value = [&](const Field& field) {
                return &field == &mistyped ? other : field.value;
            };
            const auto record = fresh();
            const Diagnostics told =
                diagnosticsOf([&] { EXPECT_FALSE(record->FromJson(objectOf(fields(), spelled, value))); });
            const std::string line = failureLine(mistyped);
            ASSERT_GE(told.error.size(), line.size());
            EXPECT_EQ(told.error.substr(told.error.size() - line.size()), line) << other;
            EXPECT_EQ(printed(*record), readUpTo(wrong)) << mistyped.key << " as " << other;
        }
    }
}

TEST_P(WeldRecord, BuildsDefaultsNotACopy)
{
    const auto record = fresh();
    ASSERT_TRUE(record->FromJson(objectOf(fields(), spelled, valueOf)));
    const std::unique_ptr<TelvaneDataTypeBase> built(record->BuildNewDataType());
    const TelvaneDataTypeBase& original = *record;
    const TelvaneDataTypeBase& defaults = *built;
    EXPECT_EQ(typeid(defaults), typeid(original));
    EXPECT_EQ(printed(*built), objectOf(fields(), spelled, defaultOf));
}

TEST_P(WeldRecord, CopiesEveryMemberOfItsOwnClassOnly)
{
    const auto from = fresh();
    ASSERT_TRUE(from->FromJson(objectOf(fields(), spelled, valueOf)));
    from->_id = "abc";
    from->_sequence_tag = 7;
    for (const Record& other : weldRecords()) {
        const std::unique_ptr<TelvaneDataTypeBase> to(other.build());
        const std::string before = printed(*to);
        if (other.name == GetParam().name) {
            EXPECT_EQ(to->copy(from.get()), 0);
            EXPECT_EQ(printed(*to), printed(*from));
        } else {
            EXPECT_EQ(to->copy(from.get()), -EINVAL) << other.name;
            EXPECT_EQ(printed(*to), before) << other.name;
        }
    }
    EXPECT_EQ(fresh()->copy(nullptr), -EINVAL);
}

INSTANTIATE_TEST_SUITE_P(Each, WeldRecord, ::testing::ValuesIn(weldRecords()),
                         [](const auto& instance) { return instance.param.name; });

TEST(WeldTriggerEnd, KeepsTimestampAndTagWhenTheArcHoursAreMissing)
{
    WeldTriggerEnd end;
    const Diagnostics told =
        diagnosticsOf([&] { EXPECT_FALSE(end.FromJson(R"({"timestamp":"/Date(5000)/","tag":12})")); });
    EXPECT_EQ(told.error, "FAIL! _double_fromJson lifetimeArcHours\n");
    EXPECT_EQ(end.timestamp.time.tv_sec, 5);
    EXPECT_EQ(end.tag, 12);
}

TEST(WeldMetrics, KeepsFractionsOnlyWhereTheQuantityHasThem)
{
    WeldMetrics metrics;
    metrics.ArcDuration.Value = 26.25;
    const Tree tree = parse(printed(metrics));
    EXPECT_EQ(cJSON_GetObjectItem(cJSON_GetObjectItem(tree.get(), "ArcDuration"), "Value")->valuedouble,
              26.25);
    cJSON_SetNumberValue(cJSON_GetObjectItem(cJSON_GetObjectItem(tree.get(), "AverageAmperage"), "Value"),
                         176.9);
    ASSERT_EQ(metrics.Unpackage(tree.get()), 0);
    EXPECT_EQ(metrics.ArcDuration.Value, 26.25);
    EXPECT_EQ(metrics.AverageAmperage.Value, 176);
}

TEST(WeldTraceDataPoint, DoesNotReadItsDescription)
{
    WeldTraceDataPoint point;
    WeldTraceDataPointDefinition definition;
    const std::string pointText = point.GetString();
    const std::string definitionText = definition.GetString();
    const Diagnostics told = diagnosticsOf([&] {
        EXPECT_FALSE(point.FromJson(definitionText));
        EXPECT_FALSE(definition.FromJson(pointText));
    });
    EXPECT_EQ(told.error, "FAIL! _double_fromJson amps\nFAIL! _str_fromJson amps\n");
}

TEST(WeldTriggerStart, PrintsNestedBaseKeysWhereTheyAreSet)
{
    WeldTriggerStart start;
    start.settings.CommandWFS._id = "wfs";
    start.settings._sequence_tag = 4;
    const Tree tree = parse(printed(start));
    EXPECT_EQ(compact(cJSON_GetObjectItem(tree.get(), "settings")),
              R"({"CommandVoltage":{"Unit":"","Value":0},"CommandAmperage":{"Unit":"","Value":0},)"
              R"("CommandWFS":{"Unit":"","Value":0,"_id":"wfs"},"CommandArcControl":{"Unit":"","Value":0},)"
              R"("_sequence_tag":4})");
}

} // namespace
} // namespace Telvane
