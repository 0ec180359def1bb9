// Fixed-size arrays and vectors of records: how many elements each class takes, and what it does with
// elements of another type. As in RecordReadingTest.cpp the independent table says which class has which
// arrays.

#include "helpers/RecordReading.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Telvane
{
namespace
{

Lines linesForMistypedElement(const GoldenField& field, const cJSON& element, int size, int index)
{
    Lines lines;
    if (field.kind == FieldKind::FlagArray || field.kind == FieldKind::IntegerArray) {
        const std::string type = field.kind == FieldKind::FlagArray ? "bool" : "int";
        lines.output = "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, " + type + " &target) error!\n";
    } else if (cJSON_IsObject(&element) != 0) {
        lines.error = failureLine(goldenClass(field.nestedClass).fields.front()) +
                      "FAIL! _readFromJsonItem Unpackage Failed \n";
    } else {
        lines.error = "FAIL! _readFromJsonItem item not an object \n";
    }
    if (field.kind != FieldKind::RecordVector) {
        lines.output += "_readFromJsonItem error!  Type: " + std::to_string(element.type) +
                        " Value Db: " + std::to_string(static_cast<int>(element.valuedouble)) +
                        " Array Size: " + std::to_string(size) + " Index: " + std::to_string(index) + "\n";
    }
    lines.error += failureLine(field);
    return lines;
}

bool isOfTheElementTypeOf(const GoldenField& field, const cJSON* value)
{
    switch (field.kind) {
    case FieldKind::FlagArray:
        return cJSON_IsBool(value) != 0;
    case FieldKind::IntegerArray:
        return cJSON_IsNumber(value) != 0;
    default:
        return false; // for a record an object with none of its keys is as wrong as any other type
    }
}

class EveryRecordWithArrays : public ReadingRecord
{
protected:
    std::vector<std::size_t> arrays() const
    {
        std::vector<std::size_t> found;
        for (std::size_t i = 0; i < fields().size(); ++i) {
            if (fields()[i].isArray()) {
                found.push_back(i);
            }
        }
        return found;
    }

    /// The first \p size elements of the filled array, repeated where it has fewer.
    JsonTree elements(const GoldenField& field, std::size_t size) const
    {
        const JsonTree source = filled();
        const cJSON* const array = member(source, field.key);
        JsonTree result(cJSON_CreateArray());
        for (std::size_t i = 0; i < size; ++i) {
            const int index = static_cast<int>(i) % cJSON_GetArraySize(array);
            cJSON_AddItemToArray(result.get(), cJSON_Duplicate(cJSON_GetArrayItem(array, index), 1));
        }
        return result;
    }

    /// What the array holds when \p given has been read, only its first \p count elements with success.
    JsonTree afterReading(const GoldenField& field, const cJSON* given, int count) const
    {
        JsonTree result;
        if (field.kind == FieldKind::RecordVector) {
            const JsonTree element = goldenTree(field.nestedClass, "default");
            result.reset(cJSON_CreateArray());
            for (int i = 0; i < cJSON_GetArraySize(given); ++i) {
                cJSON_AddItemToArray(result.get(), cJSON_Duplicate(element.get(), 1));
            }
        } else {
            result = duplicate(member(defaults(), field.key));
        }
        for (int i = 0; i < count; ++i) {
            cJSON_ReplaceItemInArray(result.get(), i, cJSON_Duplicate(cJSON_GetArrayItem(given, i), 1));
        }
        return result;
    }
};

INSTANTIATE_TEST_SUITE_P(Catalogue, EveryRecordWithArrays,
                         testing::ValuesIn(goldenClassesWithField([](const GoldenField& field) {
                             return field.isArray();
                         })),
                         nameOf);

TEST_P(EveryRecordWithArrays, AcceptsShortArrays)
{
    for (const std::size_t i : arrays()) {
        const GoldenField& field = fields()[i];
        SCOPED_TRACE(field.key);
        const JsonTree given = elements(field, 2);
        const auto record = defaultRecord();
        expectSuccess(read(*record, with(filled(), field.key, given.get()).get()));
        const JsonTree expected = afterReading(field, given.get(), 2);
        EXPECT_EQ(record->GetString(), print(with(filled(), field.key, expected.get()).get()));
    }
}

TEST_P(EveryRecordWithArrays, AcceptsArraysUpToTheLimit)
{
    for (const std::size_t i : arrays()) {
        const GoldenField& field = fields()[i];
        SCOPED_TRACE(field.key);
        const JsonTree input = with(filled(), field.key, elements(field, field.limit).get());
        const auto record = defaultRecord();
        expectSuccess(read(*record, input.get()));
        EXPECT_EQ(record->GetString(), print(input.get()));
    }
}

TEST_P(EveryRecordWithArrays, RefusesArraysBeyondTheLimit)
{
    for (const std::size_t i : arrays()) {
        const GoldenField& field = fields()[i];
        SCOPED_TRACE(field.key);
        const JsonTree input = with(filled(), field.key, elements(field, field.limit + 1).get());
        const auto record = defaultRecord();
        expectFailure(read(*record, input.get()), {"", failureLine(field)});
        EXPECT_EQ(record->GetString(), print(filledUpTo(i).get()));
    }
}

TEST_P(EveryRecordWithArrays, AcceptsEmptyVectorsButRefusesEmptyFixedArrays)
{
    const JsonTree empty(cJSON_CreateArray());
    for (const std::size_t i : arrays()) {
        const GoldenField& field = fields()[i];
        SCOPED_TRACE(field.key);
        const JsonTree input = with(filled(), field.key, empty.get());
        const auto record = defaultRecord();
        const Reading reading = read(*record, input.get());
        if (field.kind == FieldKind::RecordVector) {
            expectSuccess(reading);
            EXPECT_EQ(record->GetString(), print(input.get()));
        } else {
            expectFailure(reading, {"", failureLine(field)});
            EXPECT_EQ(record->GetString(), print(filledUpTo(i).get()));
        }
    }
}

TEST_P(EveryRecordWithArrays, FailsAtAnElementOfAnotherTypeAndKeepsTheElementsBefore)
{
    constexpr int size = 3;
    const std::vector<JsonTree> values = valuesOfEveryType();
    for (const std::size_t i : arrays()) {
        const GoldenField& field = fields()[i];
        for (const JsonTree& value : values) {
            if (isOfTheElementTypeOf(field, value.get())) {
                continue;
            }
            for (int index = 0; index < size; ++index) {
                SCOPED_TRACE(field.key + "[" + std::to_string(index) + "]: " + print(value.get()));
                const JsonTree given = elements(field, size);
                cJSON_ReplaceItemInArray(given.get(), index, cJSON_Duplicate(value.get(), 1));
                const auto record = defaultRecord();
                expectFailure(read(*record, with(filled(), field.key, given.get()).get()),
                              linesForMistypedElement(field, *value, size, index));
                const JsonTree expected = afterReading(field, given.get(), index);
                EXPECT_EQ(record->GetString(), print(with(filledUpTo(i), field.key, expected.get()).get()));
            }
        }
    }
}

} // namespace
} // namespace Telvane
