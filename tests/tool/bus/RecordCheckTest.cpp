#include "common/bus/RecordCheck.h"

#include "common/support/Json.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using Telvane::RecordCatalogue;

std::string check(const char* className, const std::string& json, Strictness strictness = Strictness::Sending)
{
    std::string error;
    const JsonTree tree = parseJson(json, error);
    EXPECT_NE(tree, nullptr) << error;
    return checkRecord(tree.get(), RecordCatalogue::find(className)->table(), strictness);
}

std::string receive(const char* className, const std::string& json)
{
    return check(className, json, Strictness::Receiving);
}

const std::string kTrace = R"({"sequence":1,"timestamp":"/Date(5)/","data":)"
                           R"({"amps":1.5,"volts":2,"wfs":0,"gas":0,"power":3,"motor":0},"messageSerial":9})";

std::string replaced(std::string text, const std::string& part, const std::string& by)
{
    text.replace(text.find(part), part.size(), by);
    return text;
}

TEST(RecordCheck, AcceptsEveryDefaultRecordOfTheCatalogue)
{
    for (const auto& recordClass : RecordCatalogue::classes()) {
        const std::unique_ptr<Telvane::TelvaneDataTypeBase> record(recordClass.build());
        cJSON* packaged = nullptr;
        ASSERT_EQ(record->Package(&packaged), 0);
        const JsonTree tree(packaged);
        EXPECT_EQ(checkRecord(tree.get(), recordClass.table(), Strictness::Sending), "") << recordClass.name;
    }
}

TEST(RecordCheck, NamesAMissingKey)
{
    EXPECT_EQ(check("LogData", "{}"), "log: missing; expected a string");
    EXPECT_EQ(check("WeldTraceData", replaced(kTrace, R"("volts":2,)", "")),
              "data.volts: missing; expected a number");
}

TEST(RecordCheck, RefusesToSendNumbersThatWouldArriveAsNull)
{
    const std::string json = R"({"Unit":"V","Value":1e999})";
    EXPECT_EQ(check("UnitValueDoublePair", json), "Value: the number is too large");
    EXPECT_EQ(receive("UnitValueDoublePair", json), "");
}

TEST(RecordCheck, RefusesToSendTagsThatWouldArriveChanged)
{
    EXPECT_EQ(check("RequestType", R"({"_sequence_tag":7})"), "");
    EXPECT_EQ(check("RequestType", R"({"_sequence_tag":3.9})"),
              "_sequence_tag: expected an integer, got a fraction");
    EXPECT_EQ(check("RequestType", R"({"_sequence_tag":1e12})"),
              "_sequence_tag: expected a 32-bit integer, got a larger number");
    EXPECT_EQ(check("RequestType", R"({"_sequence_tag":"7"})"),
              "_sequence_tag: expected an integer, got a string");
}

TEST(RecordCheck, NamesTheKeyOfAWrongTypeAndWhatWasExpected)
{
    EXPECT_EQ(check("LogData", R"({"log":5})"), "log: expected a string, got a number");
    EXPECT_EQ(check("TelvaneDataFullStatus", R"({"isFull":1})"),
              "isFull: expected true or false, got a number");
    EXPECT_EQ(check("DataStatus", R"({"ttl":"5"})"), "ttl: expected an integer, got a string");
    EXPECT_EQ(check("WeldTraceData", replaced(kTrace, "1.5", "null")),
              "data.amps: expected a number, got null");
    EXPECT_EQ(check("WeldTraceData", replaced(kTrace, R"("/Date(5)/")", "5")),
              R"(timestamp: expected a time, "/Date(milliseconds)/", got a number)");
    EXPECT_EQ(check("WeldTriggerEnd", R"({"timestamp":"/Date(0)/","tag":1,"lifetimeArcHours":0,)"
                                      R"("metrics":[],"messageSerial":1})"),
              "metrics: expected an object (WeldMetrics), got an array");
}

TEST(RecordCheck, NamesTheFirstFaultInTheOrderOfTheClass)
{
    EXPECT_EQ(check("UnitValuePair", R"({"Value":"x","Unit":5})"), "Unit: expected a string, got a number");
}

TEST(RecordCheck, TellsWhatIsNoObject)
{
    EXPECT_EQ(check("LogData", "[1]"), "expected an object (LogData), got an array");
    EXPECT_EQ(receive("LogData", "null"), "expected an object (LogData), got null");
}

TEST(RecordCheck, FindsKeysInAnyLetterCase)
{
    EXPECT_EQ(check("LogData", R"({"LOG":"x"})"), "");
}

TEST(RecordCheck, OnlyLetsWholeIntegersInRangeBeSent)
{
    EXPECT_EQ(check("DataStatus", R"({"ttl":3.5})"), "ttl: expected an integer, got a fraction");
    EXPECT_EQ(check("DataStatus", R"({"ttl":2147483648})"),
              "ttl: expected a 32-bit integer, got a larger number");
    EXPECT_EQ(check("DataStatus", R"({"ttl":-2147483648})"), "");
    EXPECT_EQ(receive("DataStatus", R"({"ttl":3.5})"), "");
    EXPECT_EQ(receive("DataStatus", R"({"ttl":1e12})"), "");
}

TEST(RecordCheck, OnlyLetsKnownKeysBeSent)
{
    EXPECT_EQ(check("LogData", R"({"log":"x","lag":1})"), "lag: LogData has no such key");
    EXPECT_EQ(receive("LogData", R"({"log":"x","lag":1})"), "");
}

TEST(RecordCheck, KnowsTheKeysThatEveryRecordMayHave)
{
    EXPECT_EQ(check("LogData", R"({"log":"x","_id":"1","_sequence_tag":2})"), "");
    EXPECT_EQ(check("LogData", R"({"log":"x","_id":1})"), "_id: expected a string, got a number");
    EXPECT_EQ(check("LogData", R"({"log":"x","_sequence_tag":"1"})"),
              "_sequence_tag: expected an integer, got a string");
    EXPECT_EQ(receive("LogData", R"({"log":"x","_id":1})"), "");
}

TEST(RecordCheck, OnlyLetsTimesOfTheExactFormBeSent)
{
    for (const char* text : {"\"5\"", "\"/Date(-5)/\"", "\"/Date(5)\"", "\"2024-01-02\""}) {
        const std::string json = replaced(kTrace, R"("/Date(5)/")", text);
        EXPECT_NE(check("WeldTraceData", json), "") << text;
        EXPECT_EQ(receive("WeldTraceData", json), "") << text;
    }
}

TEST(RecordCheck, RefusesTimesThatTheLibraryCannotRead)
{
    for (const char* text : {"\"\"", "\"/Date()/\"", "\"/Date(99999999999999999999)/\""}) {
        EXPECT_NE(receive("WeldTraceData", replaced(kTrace, R"("/Date(5)/")", text)), "") << text;
    }
}

TEST(RecordCheck, NamesTheElementAtFault)
{
    const std::string mode = R"({"Label":1,"Value":2,"Status":true})";
    const std::string command = R"({"mLabel":"x","mCommandType":3,"mResponseFlag":false,)"
                                R"("mPublishResponse":false,"mModes":[)" +
                                mode + "," + replaced(mode, "true", "1") + R"(],"mValues":[]})";
    EXPECT_EQ(check("PSCommand", command), "mModes[1].Status: expected true or false, got a number");
}

TEST(RecordCheck, LimitsTheLengthOfASequence)
{
    std::string modes;
    for (int i = 0; i <= 100; ++i) {
        modes += (i == 0 ? "" : ",") + std::string(R"({"Label":1,"Value":2,"Status":true})");
    }
    EXPECT_EQ(check("PSCommand", R"({"mLabel":"x","mCommandType":3,"mResponseFlag":false,)"
                                 R"("mPublishResponse":false,"mModes":[)" +
                                     modes + R"(],"mValues":[]})"),
              "mModes: expected an array of at most 100 objects, got 101");
}

TEST(RecordCheck, WantsArraysOfOneToTheirCapacity)
{
    const auto& classes = RecordCatalogue::classes();
    int arrays = 0;
    for (const auto& recordClass : classes) {
        for (const auto& field : recordClass.table().fields()) {
            if (field.kind != Telvane::FieldKind::FlagArray &&
                field.kind != Telvane::FieldKind::IntegerArray) {
                continue;
            }
            ++arrays;
            const std::unique_ptr<Telvane::TelvaneDataTypeBase> record(recordClass.build());
            cJSON* packaged = nullptr;
            ASSERT_EQ(record->Package(&packaged), 0);
            const JsonTree tree(packaged);
            cJSON* const array = cJSON_GetObjectItem(tree.get(), field.key);
            cJSON_AddItemToArray(array, cJSON_Duplicate(array->child, 1));
            const std::string limit = std::to_string(field.limit);
            EXPECT_EQ(checkRecord(tree.get(), recordClass.table(), Strictness::Receiving),
                      std::string(field.key) + ": expected an array of 1 to " + limit + " values, got " +
                          std::to_string(field.limit + 1));
            while (array->child != nullptr) {
                cJSON_DeleteItemFromArray(array, 0);
            }
            EXPECT_EQ(checkRecord(tree.get(), recordClass.table(), Strictness::Receiving),
                      std::string(field.key) + ": expected an array of 1 to " + limit + " values, got 0");
        }
    }
    EXPECT_GT(arrays, 0);
}

} // namespace
} // namespace TelvaneTool
