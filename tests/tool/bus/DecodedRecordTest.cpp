#include "common/bus/DecodedRecord.h"

#include "common/support/Json.h"

#include <gtest/gtest.h>

#include <memory>

namespace TelvaneTool
{
namespace
{

using Telvane::RecordCatalogue;
using Telvane::TelvaneDataTypeBase;

/// Receives a payload as the client does: through a prototype.
std::unique_ptr<DecodedRecord> receive(const char* className, const std::string& json)
{
    const DecodedRecord prototype(className != nullptr ? RecordCatalogue::find(className) : nullptr);
    std::string error;
    const JsonTree payload = parseJson(json, error);
    std::unique_ptr<TelvaneDataTypeBase> record(prototype.BuildNewDataType());
    EXPECT_EQ(record->Unpackage(payload.get()), 0);
    return std::unique_ptr<DecodedRecord>(static_cast<DecodedRecord*>(record.release()));
}

TEST(DecodedRecord, TakesAnyPayloadAsItComesWithoutAClass)
{
    for (const char* json : {R"({"b":1,"a":[null]})", "[1,2]", "5", "\"text\"", "null"}) {
        const auto record = receive(nullptr, json);
        EXPECT_EQ(record->text(), json);
        EXPECT_EQ(record->decodeError(), "");
    }
}

TEST(DecodedRecord, IsDecodedAsItsClass)
{
    const auto record = receive("UnitValuePair", R"({"VALUE":5.9,"unit":"A","more":1})");
    EXPECT_EQ(record->decodeError(), "");
    EXPECT_EQ(record->text(), R"({"Unit":"A","Value":5})");
}

TEST(DecodedRecord, TellsWhyItCannotBeDecoded)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const auto record = receive("WeldTriggerEnd", R"({"timestamp":"/Date(0)/","tag":1})");
    EXPECT_EQ(record->decodeError(), "lifetimeArcHours: missing; expected a number");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(DecodedRecord, SurvivesTimesThatNobodyCanRead)
{
    const auto record = receive("TimeType", R"({"time":"soon"})");
    EXPECT_NE(record->decodeError(), "");
    EXPECT_EQ(record->text(), R"({"time":"soon"})");
}

TEST(DecodedRecord, CanOnlyBeCopiedFromItsOwnKind)
{
    const auto record = receive(nullptr, "5");
    DecodedRecord copied(nullptr);
    EXPECT_EQ(copied.copy(record.get()), 0);
    EXPECT_EQ(copied.text(), "5");
    EXPECT_EQ(copied.copy(nullptr), -EINVAL);
}

} // namespace
} // namespace TelvaneTool
