#include "common/bus/RecordText.h"

#include "common/bus/DecodedRecord.h"
#include "common/support/Json.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

namespace TelvaneTool
{
namespace
{

using Telvane::RecordCatalogue;
using Telvane::RecordClass;
using Telvane::TelvaneDataTypeBase;

/// \return the value after it was read into a record and written again; an empty text if it cannot be read
std::string rewritten(const RecordClass& recordClass, const cJSON* value)
{
    testing::internal::CaptureStdout(); // the library reports what it cannot read
    testing::internal::CaptureStderr();
    const std::unique_ptr<TelvaneDataTypeBase> record(recordClass.build());
    cJSON* packaged = nullptr;
    std::string text;
    try {
        const JsonTree copy(cJSON_Duplicate(value, 1));
        if (record->Unpackage(copy.get()) == 0 && record->Package(&packaged) == 0) {
            text = printJson(packaged);
        }
    } catch (const std::exception&) {
        text.clear(); // a time without digits
    }
    cJSON_Delete(packaged);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    return text;
}

JsonTree written(const RecordClass& recordClass)
{
    const std::unique_ptr<TelvaneDataTypeBase> record(recordClass.build());
    cJSON* packaged = nullptr;
    EXPECT_EQ(record->Package(&packaged), 0) << recordClass.name;
    std::string error;
    return parseJson(printJson(JsonTree(packaged).get()), error); // with keys that may be changed
}

/// Gives all numbers, flags and strings another value.
void vary(cJSON* value, std::mt19937& random)
{
    for (cJSON* item = value->child; item != nullptr; item = item->next) {
        vary(item, random);
        if (cJSON_IsNumber(item) != 0) {
            const bool whole = item->valuedouble == static_cast<double>(item->valueint) && random() % 2 == 0;
            cJSON_SetNumberHelper(item, whole ? static_cast<double>(static_cast<int>(random()))
                                              : static_cast<double>(random()) / 1000.0);
        } else if (cJSON_IsBool(item) != 0) {
            item->type = random() % 2 == 0 ? cJSON_True : cJSON_False;
        } else if (cJSON_IsString(item) != 0 && item->valuestring[0] != '/') {
            JsonTree text(cJSON_CreateString(random() % 2 == 0 ? "\xC3\xA4 \"quoted\"\n" : ""));
            std::swap(item->valuestring, text->valuestring);
        }
    }
}

/// Expects that a value becomes the same text with and without the short cut.
void expectSameText(const RecordClass& recordClass, const JsonTree& value)
{
    const DecodedRecord prototype(&recordClass);
    std::unique_ptr<TelvaneDataTypeBase> decoded(prototype.BuildNewDataType());
    ASSERT_EQ(decoded->Unpackage(value.get()), 0);
    const auto& record = static_cast<const DecodedRecord&>(*decoded);
    const std::string expected = rewritten(recordClass, value.get());
    ASSERT_EQ(record.decodeError().empty(), !expected.empty()) << recordClass.name << printJson(value.get());
    if (!expected.empty()) {
        ASSERT_EQ(record.text(), expected) << recordClass.name;
    }
}

const RecordClass& classNamed(const char* name)
{
    return *RecordCatalogue::find(name);
}

TEST(RecordText, IsRecognizedAsWrittenInAllClasses)
{
    for (const RecordClass& recordClass : RecordCatalogue::classes()) {
        const std::unique_ptr<TelvaneDataTypeBase> record(recordClass.build());
        record->_id = "x";
        record->_sequence_tag = 5;
        cJSON* packaged = nullptr;
        ASSERT_EQ(record->Package(&packaged), 0);
        const JsonTree tree(packaged);
        if (record->_recordTable() != nullptr && cJSON_IsObject(packaged) != 0 &&
            !rewritten(recordClass, packaged).empty()) {
            EXPECT_TRUE(isAsWritten(packaged, *record->_recordTable()))
                << recordClass.name << printJson(packaged);
        }
    }
}

TEST(RecordText, IsTheSameWithAndWithoutARecordInAllClasses)
{
    std::mt19937 random(1);
    for (const RecordClass& recordClass : RecordCatalogue::classes()) {
        for (int i = 0; i < 5; ++i) {
            const JsonTree value = written(recordClass);
            if (cJSON_IsObject(value.get()) == 0) {
                break;
            }
            vary(value.get(), random);
            expectSameText(recordClass, value);
        }
    }
}

TEST(RecordText, IsTheSameForChangedObjectsInAllClasses)
{
    for (const RecordClass& recordClass : RecordCatalogue::classes()) {
        const int size = cJSON_GetArraySize(written(recordClass).get());
        for (int i = 0; i < size; ++i) {
            const JsonTree moved = written(recordClass);
            cJSON_AddItemToArray(moved.get(), cJSON_DetachItemFromArray(moved.get(), i));
            expectSameText(recordClass, moved);

            const JsonTree missing = written(recordClass);
            cJSON_DeleteItemFromArray(missing.get(), i);
            expectSameText(recordClass, missing);

            const JsonTree renamed = written(recordClass);
            cJSON* const item = cJSON_GetArrayItem(renamed.get(), i);
            item->string[0] = static_cast<char>(item->string[0] ^ 0x20); // another letter case
            expectSameText(recordClass, renamed);

            for (const char* other : {"null", "1", "-0.0", "1.5", "1e300", "true", "\"\"", "\"x\"", "{}",
                                      "[]", "[1]", "[{}]", "\"/Date(007)/\"", "\"/Date(7)/ \""}) {
                const JsonTree changed = written(recordClass);
                std::string error;
                cJSON* const old = cJSON_GetArrayItem(changed.get(), i);
                JsonTree value = parseJson(other, error);
                value->string = strdup(old->string);
                cJSON_ReplaceItemViaPointer(changed.get(), old, value.release());
                expectSameText(recordClass, changed);
            }
        }
    }
}

TEST(RecordText, IsNotAsWrittenWithOtherOrWrongIdentifiers)
{
    const char* const base = R"({"Unit":"A","Value":5%})";
    const std::unique_ptr<TelvaneDataTypeBase> record(classNamed("UnitValuePair").build());
    const auto check = [&](const std::string& more) {
        std::string json = base;
        json.replace(json.find('%'), 1, more);
        std::string error;
        const JsonTree tree = parseJson(json, error);
        expectSameText(classNamed("UnitValuePair"), tree);
        return isAsWritten(tree.get(), *record->_recordTable());
    };
    EXPECT_TRUE(check(""));
    EXPECT_TRUE(check(R"(,"_id":"x")"));
    EXPECT_TRUE(check(R"(,"_sequence_tag":0)"));
    EXPECT_TRUE(check(R"(,"_id":"x","_sequence_tag":1)"));
    EXPECT_FALSE(check(R"(,"_id":"")"));
    EXPECT_FALSE(check(R"(,"_id":1)"));
    EXPECT_FALSE(check(R"(,"_sequence_tag":-1)"));
    EXPECT_FALSE(check(R"(,"_sequence_tag":1.5)"));
    EXPECT_FALSE(check(R"(,"_sequence_tag":1,"_id":"x")"));
    EXPECT_FALSE(check(R"(,"_id":"x","_id":"y")"));
    EXPECT_FALSE(check(R"(,"more":1)"));
}

} // namespace
} // namespace TelvaneTool
