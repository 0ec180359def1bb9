#pragma once

// What the tests of reading share: the lines that a failed reading writes, changed copies of JSON trees, and
// the fixture that goes through the record classes of the independent table.

#include <Telvane/RecordCatalogue.h>

#include "helpers/GoldenCatalogue.h"
#include "support/JsonTree.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Telvane
{

struct Lines
{
    std::string output; ///< on standard output
    std::string error;  ///< on standard error
};

struct Reading
{
    int result;
    Lines lines;
};

template <class Operation>
Reading capture(Operation operation)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int result = operation();
    const std::string error = testing::internal::GetCapturedStderr();
    return {result, {testing::internal::GetCapturedStdout(), error}};
}

inline Reading read(TelvaneDataTypeBase& record, cJSON* input)
{
    return capture([&] { return record.Unpackage(input); });
}

inline void expectSuccess(const Reading& reading)
{
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.lines.output, "");
    EXPECT_EQ(reading.lines.error, "");
}

inline void expectFailure(const Reading& reading, const Lines& lines)
{
    EXPECT_EQ(reading.result, -EINVAL);
    EXPECT_EQ(reading.lines.output, lines.output);
    EXPECT_EQ(reading.lines.error, lines.error);
}

inline std::string failureLine(const GoldenField& field)
{
    switch (field.kind) {
    case FieldKind::Integer:
        return "FAIL! _int_fromJson " + field.key + "\n";
    case FieldKind::Number:
        return "FAIL! _double_fromJson " + field.key + "\n";
    case FieldKind::Flag:
        return "FAIL! _bool_fromJson " + field.key + "\n";
    case FieldKind::Text:
        return "FAIL! _str_fromJson " + field.key + "\n";
    case FieldKind::Record:
        return "FAIL! _object_fromJson " + field.key + "\n";
    case FieldKind::FlagArray:
    case FieldKind::IntegerArray:
    case FieldKind::RecordArray:
        return "FAIL! _array_fromJson " + field.key + "\n";
    case FieldKind::RecordVector:
        return "FAIL! _vector_fromJson " + field.key + "\n";
    case FieldKind::Value:
        break; // not in the catalogue
    }
    return "";
}

inline Lines linesForMissing(const GoldenField& field)
{
    const bool nested = field.kind == FieldKind::Record;
    return {nested ? "TelvaneDataTypeBase::_object_fromJson(const std::string& field_name, "
                     "TelvaneDataTypeBase* value, cJSON* input) error!\n"
                   : "",
            failureLine(field)};
}

inline JsonTree parse(const std::string& text)
{
    return JsonTree(cJSON_Parse(text.c_str()));
}

inline std::string print(const cJSON* tree)
{
    return JsonText(cJSON_Print(tree)).get();
}

inline JsonTree duplicate(const cJSON* tree)
{
    return JsonTree(cJSON_Duplicate(tree, 1));
}

inline cJSON* member(const JsonTree& tree, const std::string& key)
{
    return cJSON_GetObjectItemCaseSensitive(tree.get(), key.c_str());
}

inline JsonTree without(const JsonTree& tree, const std::string& key)
{
    JsonTree changed = duplicate(tree.get());
    cJSON_DeleteItemFromObjectCaseSensitive(changed.get(), key.c_str());
    return changed;
}

inline JsonTree with(const JsonTree& tree, const std::string& key, const cJSON* value)
{
    JsonTree changed = duplicate(tree.get());
    cJSON_ReplaceItemInObjectCaseSensitive(changed.get(), key.c_str(), cJSON_Duplicate(value, 1));
    return changed;
}

/// One JSON value of each type, and where emptiness might matter two.
inline std::vector<JsonTree> valuesOfEveryType()
{
    std::vector<JsonTree> values;
    for (const char* text :
         {"null", "true", "false", "0", "1", "\"\"", "\"1\"", "[]", "[1]", "{}", "{\"1\": 1}"}) {
        values.push_back(parse(text));
    }
    return values;
}

class ReadingRecord : public testing::TestWithParam<GoldenClass>
{
protected:
    const std::vector<GoldenField>& fields() const { return GetParam().fields; }

    std::unique_ptr<TelvaneDataTypeBase> defaultRecord() const
    {
        return RecordCatalogue::build(GetParam().name);
    }

    JsonTree defaults() const { return goldenTree(GetParam().name, "default"); }
    JsonTree filled() const { return goldenTree(GetParam().name, "filled"); }
    std::string filledText() const { return goldenText(GetParam().name, "filled"); }

    /// What a default record prints when reading the filled one has failed before its field \p count.
    JsonTree filledUpTo(std::size_t count) const
    {
        JsonTree tree = defaults();
        const JsonTree source = filled();
        for (std::size_t i = 0; i < count; ++i) {
            tree = with(tree, fields()[i].key, member(source, fields()[i].key));
        }
        return tree;
    }

    void SetUp() override
    {
        ASSERT_NE(RecordCatalogue::find(GetParam().name), nullptr) << "it is not in the catalogue";
    }
};

inline std::string nameOf(const testing::TestParamInfo<GoldenClass>& instance)
{
    return instance.param.name;
}

} // namespace Telvane
