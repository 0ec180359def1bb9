#include "common/bus/RecordBuilder.h"

#include <Telvane/DateTime.h>
#include <Telvane/WeldRecords.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using Telvane::RecordCatalogue;
using testing::HasSubstr;

std::string packaged(Telvane::TelvaneDataTypeBase& record)
{
    cJSON* tree = nullptr;
    EXPECT_EQ(record.Package(&tree), 0);
    return printJson(JsonTree(tree).get());
}

/// \return the record's JSON, or "error: " and what is wrong
std::string build(const char* className, const char* json, std::vector<std::string> settings = {})
{
    RecordRequest request;
    request.recordClass = className != nullptr ? RecordCatalogue::find(className) : nullptr;
    request.settings = std::move(settings);
    const std::string text = json != nullptr ? json : "";
    std::string error;
    const auto record = buildRecord(request, json != nullptr ? &text : nullptr, error);
    return record != nullptr ? packaged(*record) : "error: " + error;
}

TEST(RecordBuilder, IsTheDefaultOfItsClassWithoutJson)
{
    EXPECT_EQ(build("LogData", nullptr), R"({"log":""})");
}

TEST(RecordBuilder, IsAnyObjectWithoutAClass)
{
    EXPECT_EQ(build(nullptr, R"({"a":[1,{"b":null}],"c":"d"})"), R"({"a":[1,{"b":null}],"c":"d"})");
}

TEST(RecordBuilder, IsNothingButAnObject)
{
    EXPECT_EQ(build(nullptr, "[1]"), "error: a record must be a JSON object, not an array");
    EXPECT_EQ(build(nullptr, nullptr), "error: no record given; pass its JSON text, or a class with --as");
}

TEST(RecordBuilder, TellsWhereItsJsonIsWrong)
{
    EXPECT_EQ(build(nullptr, R"({"a":1,})"), R"(error: invalid JSON near character 8: {"a":1,})");
    EXPECT_EQ(build(nullptr, R"({"a":1)"), R"(error: invalid JSON near character 6: {"a":1)");
    EXPECT_EQ(build(nullptr, "{} x"), "error: invalid JSON near character 4: {} x");
    EXPECT_EQ(build(nullptr, ""), "error: the JSON text is empty");
}

TEST(RecordBuilder, RefusesNumbersThatWouldArriveAsNull)
{
    EXPECT_EQ(build(nullptr, R"({"a":[1,{"b":1e999}]})"), "error: a[1].b: the number is too large");
    EXPECT_EQ(build(nullptr, R"({"a":-1e999})"), "error: a: the number is too large");
    EXPECT_EQ(build("UnitValueDoublePair", R"({"Unit":"A","Value":1e999})"),
              "error: Value: the number is too large");
    for (const char* const value : {"NaN", "-inf", "1e999", "Infinity"}) {
        EXPECT_EQ(build("UnitValueDoublePair", nullptr, {std::string("Value=") + value}),
                  std::string("error: Value: ") + value + " cannot be sent; it would arrive as null");
    }
}

TEST(RecordBuilder, IsCheckedAsItsClass)
{
    EXPECT_EQ(build("LogData", R"({"log":1})"), "error: log: expected a string, got a number");
}

TEST(RecordBuilder, IsWrittenInTheSpellingAndOrderOfItsClass)
{
    EXPECT_EQ(build("UnitValuePair", R"({"VALUE":5,"unit":"A"})"), R"({"Unit":"A","Value":5})");
}

TEST(RecordBuilder, TakesSettingsOverDefaults)
{
    EXPECT_EQ(build("UnitValueDoublePair", nullptr, {"Unit=in/min", "Value=2.5"}),
              R"({"Unit":"in/min","Value":2.5})");
}

TEST(RecordBuilder, TakesSettingsOverJson)
{
    EXPECT_EQ(build("UnitValuePair", R"({"Unit":"A","Value":5})", {"Value=6"}), R"({"Unit":"A","Value":6})");
}

TEST(RecordBuilder, ReachesNestedRecordsByDots)
{
    EXPECT_THAT(build("WeldTriggerStart", nullptr, {"settings.CommandWFS.Value=210"}),
                HasSubstr(R"("CommandWFS":{"Unit":"","Value":210})"));
}

TEST(RecordBuilder, KeepsTextsAsTheyAre)
{
    EXPECT_EQ(build("LogData", nullptr, {"log=5"}), R"({"log":"5"})");
    EXPECT_EQ(build("LogData", nullptr, {"log=a=b"}), R"({"log":"a=b"})");
    EXPECT_EQ(build("LogData", nullptr, {"log="}), R"({"log":""})");
}

TEST(RecordBuilder, GrowsASequenceAtItsEnd)
{
    EXPECT_THAT(
        build("PSCommand", nullptr, {"mModes[0].Label=3", "mModes.1.Value=7", "mModes[1].Status=true"}),
        HasSubstr(R"("mModes":[{"Label":3,"Value":0,"Status":false},)"
                  R"({"Label":0,"Value":7,"Status":true}])"));
    EXPECT_EQ(build("PSCommand", nullptr, {"mModes[1].Label=3"}),
              "error: mModes[1].Label: mModes has no element 1; its size is 0");
}

TEST(RecordBuilder, TakesWholeValuesAsJson)
{
    EXPECT_THAT(build("PSCommand", nullptr, {R"(mModes=[{"Label":1,"Value":2,"Status":true}])"}),
                HasSubstr(R"("mModes":[{"Label":1,"Value":2,"Status":true}])"));
}

TEST(RecordBuilder, SetsTheKeysThatEveryRecordMayHave)
{
    EXPECT_EQ(build("LogData", nullptr, {"_id=7", "_sequence_tag=3"}),
              R"({"log":"","_id":"7","_sequence_tag":3})");
}

TEST(RecordBuilder, StampsTheTimeNow)
{
    RecordRequest request;
    request.recordClass = RecordCatalogue::find("WeldTraceData");
    request.settings = {"timestamp=now"};
    std::string error;
    const time_t before = time(nullptr);
    const auto record = buildRecord(request, nullptr, error);
    ASSERT_NE(record, nullptr) << error;
    EXPECT_GE(dynamic_cast<Telvane::WeldTraceData&>(*record).timestamp.time.tv_sec, before);
}

TEST(RecordBuilder, TellsWhatIsWrongWithASetting)
{
    EXPECT_EQ(build("LogData", nullptr, {"log"}), "error: \"log\" is not of the form key=value");
    EXPECT_EQ(build("LogData", nullptr, {"lag=1"}), "error: lag: LogData has no key \"lag\"");
    EXPECT_EQ(build("WeldTraceData", nullptr, {"data.ampz=1"}),
              "error: data.ampz: WeldTraceDataPoint has no key \"ampz\"");
    EXPECT_EQ(build("WeldTraceData", nullptr, {"data.amps.x=1"}),
              "error: data.amps.x: amps is not a record or an array");
    EXPECT_EQ(build("WeldTraceData", nullptr, {"data.amps=x"}),
              "error: data.amps: expected a number, got a string");
    EXPECT_EQ(build("WeldTraceData", nullptr, {"timestamp=yesterday"}),
              R"(error: timestamp: expected a time, "/Date(milliseconds)/", got "yesterday")");
    EXPECT_EQ(build(nullptr, "{}", {"a=1"}), "error: --set requires a class; pass one with --as");
}

TEST(RecordBuilder, MayFillAMessageToTheLimit)
{
    Telvane::LogData record;
    const std::size_t empty = publicationSize("LogData", record);
    record.log.assign(kMaxPublicationSize - empty, 'x');
    EXPECT_EQ(publicationSize("LogData", record), kMaxPublicationSize);
    EXPECT_EQ(checkPublicationSize(kMaxPublicationSize), "");
    EXPECT_EQ(checkPublicationSize(kMaxPublicationSize + 1),
              "the message is too large: 16364 bytes; the limit is 16363 bytes");
}

TEST(RecordBuilder, HasTheSizeOfWhatTheClientSends)
{
    Telvane::LogData record;
    record.log = "hi";
    EXPECT_EQ(publicationSize("LogData", record),
              std::string("{\n\t\"header\":\t\"LogData\",\n\t\"payload\":\t{\n\t\t\"log\":\t\"hi\"\n\t}\n}")
                  .size());
}

TEST(RawRecord, CanBeCopiedAndReadBack)
{
    std::string error;
    RawRecord record;
    const JsonTree tree = parseJson(R"({"a":1})", error);
    EXPECT_EQ(record.Unpackage(tree.get()), 0);
    RawRecord other;
    EXPECT_EQ(other.copy(&record), 0);
    EXPECT_EQ(packaged(other), R"({"a":1})");
    Telvane::LogData foreign;
    EXPECT_EQ(other.copy(&foreign), -EINVAL);
}

} // namespace
} // namespace TelvaneTool
