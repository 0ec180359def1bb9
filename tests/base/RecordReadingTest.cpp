// What every record class does with input that is not as it prints itself: keys in other letter case and
// order, keys missing, values of other types. All of it follows from the class's list of fields, so the tests
// go through the fields of the independent table and name no class.

#include "helpers/RecordReading.h"

#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <string>
#include <vector>

namespace Telvane
{
namespace
{

/// A nested record gets whatever stands under its key, and misses its own first key there.
Lines linesForMistyped(const GoldenField& field)
{
    Lines lines;
    if (field.kind == FieldKind::Record && !goldenClass(field.nestedClass).isText) {
        lines = linesForMissing(goldenClass(field.nestedClass).fields.front());
    }
    lines.error += failureLine(field);
    return lines;
}

void changeKeys(cJSON* tree, int (*change)(int))
{
    for (cJSON* item = tree->child; item != nullptr; item = item->next) {
        for (char* c = item->string; c != nullptr && *c != '\0'; ++c) {
            *c = static_cast<char>(change(static_cast<unsigned char>(*c)));
        }
        changeKeys(item, change);
    }
}

void reverseKeys(cJSON* tree)
{
    std::vector<cJSON*> members;
    while (tree->child != nullptr) {
        members.push_back(cJSON_DetachItemFromArray(tree, 0));
        reverseKeys(members.back());
    }
    const bool isObject = cJSON_IsObject(tree) != 0;
    while (!members.empty()) {
        const auto next = isObject ? members.end() - 1 : members.begin();
        cJSON_AddItemToArray(tree, *next);
        members.erase(next);
    }
}

bool isOfTheTypeOf(const GoldenField& field, const cJSON* value)
{
    switch (field.kind) {
    case FieldKind::Integer:
    case FieldKind::Number:
        return cJSON_IsNumber(value) != 0;
    case FieldKind::Flag:
        return cJSON_IsBool(value) != 0;
    case FieldKind::Text:
        return cJSON_IsString(value) != 0;
    case FieldKind::Record:
        // An object with none of the keys is as wrong for a nested record as any other type.
        return goldenClass(field.nestedClass).isText && cJSON_IsString(value) != 0;
    default:
        return cJSON_IsArray(value) != 0;
    }
}

class EveryRecordWithFields : public ReadingRecord
{};

INSTANTIATE_TEST_SUITE_P(Catalogue, EveryRecordWithFields,
                         testing::ValuesIn(goldenClassesWithField([](const GoldenField&) { return true; })),
                         nameOf);

TEST_P(EveryRecordWithFields, AcceptsKeysInAnyLetterCase)
{
    for (const auto change : {&::toupper, &::tolower}) {
        const JsonTree input = filled();
        changeKeys(input.get(), change);
        const auto record = defaultRecord();
        expectSuccess(read(*record, input.get()));
        EXPECT_EQ(record->GetString(), filledText());
    }
}

TEST_P(EveryRecordWithFields, AcceptsKeysInReversedOrder)
{
    const JsonTree input = filled();
    reverseKeys(input.get());
    const auto record = defaultRecord();
    expectSuccess(read(*record, input.get()));
    EXPECT_EQ(record->GetString(), filledText());
}

TEST_P(EveryRecordWithFields, AcceptsKeysInReversedOrderAndOtherLetterCase)
{
    const JsonTree input = filled();
    reverseKeys(input.get());
    changeKeys(input.get(), ::toupper);
    const auto record = defaultRecord();
    expectSuccess(read(*record, input.get()));
    EXPECT_EQ(record->GetString(), filledText());
}

TEST_P(EveryRecordWithFields, IgnoresUnknownKeysAnywhere)
{
    const JsonTree source = filled();
    const JsonTree input(cJSON_CreateObject());
    for (const cJSON* item = source->child; item != nullptr; item = item->next) {
        cJSON_AddNullToObject(input.get(), (std::string(item->string) + "?").c_str());
        cJSON_AddItemToObject(input.get(), item->string, cJSON_Duplicate(item, 1));
    }
    const auto record = defaultRecord();
    expectSuccess(read(*record, input.get()));
    EXPECT_EQ(record->GetString(), filledText());
}

TEST_P(EveryRecordWithFields, TakesTheFirstOfKeysThatDifferInLetterCaseOnly)
{
    const JsonTree source = filled();
    const JsonTree input(cJSON_CreateObject());
    for (const cJSON* item = source->child; item != nullptr; item = item->next) {
        std::string otherCase = item->string;
        for (char& c : otherCase) {
            c = static_cast<char>(std::isupper(c) != 0 ? std::tolower(c) : std::toupper(c));
        }
        cJSON_AddItemToObject(input.get(), otherCase.c_str(), cJSON_Duplicate(item, 1));
        cJSON_AddNullToObject(input.get(), item->string);
    }
    const auto record = defaultRecord();
    expectSuccess(read(*record, input.get()));
    EXPECT_EQ(record->GetString(), filledText());
}

TEST_P(EveryRecordWithFields, HoldsEachFieldByItself)
{
    for (const GoldenField& field : fields()) {
        SCOPED_TRACE(field.key);
        const JsonTree input = with(defaults(), field.key, member(filled(), field.key));
        const auto record = defaultRecord();
        expectSuccess(read(*record, input.get()));
        EXPECT_EQ(record->GetString(), print(input.get()));
    }
}

TEST_P(EveryRecordWithFields, FailsAtEachMissingKeyAndKeepsWhatItReadBefore)
{
    for (std::size_t i = 0; i < fields().size(); ++i) {
        SCOPED_TRACE(fields()[i].key);
        const JsonTree input = without(filled(), fields()[i].key);
        const auto record = defaultRecord();
        expectFailure(read(*record, input.get()), linesForMissing(fields()[i]));
        EXPECT_EQ(record->GetString(), print(filledUpTo(i).get()));
    }
}

TEST_P(EveryRecordWithFields, FailsAtEachValueOfAnotherTypeAndKeepsWhatItReadBefore)
{
    const std::vector<JsonTree> values = valuesOfEveryType();
    for (std::size_t i = 0; i < fields().size(); ++i) {
        const std::string expected = print(filledUpTo(i).get());
        for (const JsonTree& value : values) {
            if (isOfTheTypeOf(fields()[i], value.get())) {
                continue;
            }
            SCOPED_TRACE(fields()[i].key + ": " + print(value.get()));
            const JsonTree input = with(filled(), fields()[i].key, value.get());
            const auto record = defaultRecord();
            expectFailure(read(*record, input.get()), linesForMistyped(fields()[i]));
            EXPECT_EQ(record->GetString(), expected);
        }
    }
}

TEST_P(EveryRecordWithFields, CannotBeMadeFromATreeWithoutOneOfItsKeys)
{
    const auto prototype = defaultRecord();
    for (const GoldenField& field : fields()) {
        SCOPED_TRACE(field.key);
        const JsonTree input = without(filled(), field.key);
        TelvaneDataTypeBase* meaningless = nullptr;
        expectFailure(capture([&] { return prototype->Unpackage(input.get(), &meaningless); }),
                      linesForMissing(field));
        EXPECT_EQ(prototype->GetString(), print(defaults().get()));
    }
}

class EveryRecordWithIntegers : public ReadingRecord
{};

INSTANTIATE_TEST_SUITE_P(Catalogue, EveryRecordWithIntegers,
                         testing::ValuesIn(goldenClassesWithField([](const GoldenField& field) {
                             return field.kind == FieldKind::Integer;
                         })),
                         nameOf);

TEST_P(EveryRecordWithIntegers, TruncatesAndSaturatesThem)
{
    struct Case
    {
        double given;
        int read;
    };
    for (const GoldenField& field : fields()) {
        if (field.kind != FieldKind::Integer) {
            continue;
        }
        for (const Case& number : {Case{3.9, 3}, Case{-3.9, -3}, Case{1e12, INT_MAX}, Case{-1e12, INT_MIN}}) {
            SCOPED_TRACE(field.key + ": " + std::to_string(number.given));
            const JsonTree given(cJSON_CreateNumber(number.given));
            const JsonTree expected(cJSON_CreateNumber(number.read));
            const auto record = defaultRecord();
            expectSuccess(read(*record, with(filled(), field.key, given.get()).get()));
            EXPECT_EQ(record->GetString(), print(with(filled(), field.key, expected.get()).get()));
        }
    }
}

} // namespace
} // namespace Telvane
