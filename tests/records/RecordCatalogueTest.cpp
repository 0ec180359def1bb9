// Holds all record classes against an independent table of them and against the texts that they must print:
// a class that is missing, a member that was forgotten, misspelt, put in another place or given another
// default cannot pass. What reading does with input that is not perfect stands in RecordReadingTest.cpp.

#include <Telvane/RecordCatalogue.h>

#include "helpers/GoldenCatalogue.h"
#include "support/JsonTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <cxxabi.h>
#include <memory>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

namespace Telvane
{
namespace
{

using RecordPointer = std::unique_ptr<TelvaneDataTypeBase>;

std::string inLowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string dynamicClassOf(const TelvaneDataTypeBase& record)
{
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(record).name(), nullptr, nullptr, nullptr), &std::free);
    return name != nullptr ? name.get() : "";
}

/// A record of the class with no member at its default, the base members included.
RecordPointer filledRecord(const std::string& className)
{
    RecordPointer record = RecordCatalogue::build(className);
    if (record == nullptr || !record->FromJson(goldenText(className, "filled"))) {
        ADD_FAILURE() << className << " cannot be filled";
        return record;
    }
    if (record->_id.empty()) { // a class that does not carry them in its JSON
        record->_id = "b8f6a1de-0000-4000-8000-9d4fb0a7f3c1";
        record->_sequence_tag = 41;
    }
    return record;
}

std::vector<std::string> goldenNames()
{
    std::vector<std::string> names;
    for (const GoldenClass& golden : goldenCatalogue()) {
        names.push_back(golden.name);
    }
    return names;
}

std::vector<std::string> catalogueNames()
{
    std::vector<std::string> names;
    for (const RecordClass& candidate : RecordCatalogue::classes()) {
        names.emplace_back(candidate.name);
    }
    return names;
}

TEST(RecordCatalogue, HasNoFewerClassesThanTheFirstVersion)
{
    EXPECT_GE(goldenCatalogue().size(), 84U);
    EXPECT_EQ(RecordCatalogue::classes().size(), goldenCatalogue().size());
}

TEST(RecordCatalogue, HasEveryClassOfTheTableAndNoOther)
{
    EXPECT_THAT(catalogueNames(), testing::UnorderedElementsAreArray(goldenNames()));
}

TEST(RecordCatalogue, IsInAlphabeticalOrder)
{
    const std::vector<std::string> names = catalogueNames();
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

TEST(RecordCatalogue, HasNoClassUnderAnUnknownName)
{
    for (const char* name :
         {"", "TelvaneDataTypeBase", "weldMetrics", "WeldMetrics ", "Telvane::WeldMetrics"}) {
        EXPECT_EQ(RecordCatalogue::find(name), nullptr) << name;
        EXPECT_EQ(RecordCatalogue::build(name), nullptr) << name;
    }
}

class EveryRecord : public testing::TestWithParam<GoldenClass>
{
protected:
    const std::string& name() const { return GetParam().name; }

    RecordPointer defaultRecord() const { return RecordCatalogue::build(name()); }

    void SetUp() override
    {
        ASSERT_NE(RecordCatalogue::find(name()), nullptr) << name() << " is not in the catalogue";
    }
};

INSTANTIATE_TEST_SUITE_P(Catalogue, EveryRecord, testing::ValuesIn(goldenCatalogue()),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(EveryRecord, IsFoundUnderItsName)
{
    const RecordClass& found = *RecordCatalogue::find(name());
    EXPECT_EQ(found.name, name());
    EXPECT_EQ(found.base, GetParam().base);
}

TEST_P(EveryRecord, IsBuiltUnderItsName)
{
    EXPECT_EQ(dynamicClassOf(*defaultRecord()), "Telvane::" + name());
}

TEST_P(EveryRecord, HasTheFieldsOfTheTable)
{
    const std::vector<RecordField>& fields = RecordCatalogue::find(name())->table().fields();
    const std::vector<GoldenField>& golden = GetParam().fields;
    ASSERT_EQ(fields.size(), golden.size());
    for (std::size_t i = 0; i < golden.size(); ++i) {
        SCOPED_TRACE("field " + std::to_string(i) + ", " + golden[i].key);
        EXPECT_EQ(fields[i].key, golden[i].key);
        EXPECT_EQ(fields[i].kind, golden[i].kind);
        EXPECT_EQ(fields[i].limit, golden[i].limit);
        const auto* const nested = fields[i].nested;
        EXPECT_EQ(nested != nullptr ? nested->table().className() : "", golden[i].nestedClass);
    }
}

TEST_P(EveryRecord, DeclaresItsMembersInTheOrderOfItsKeys)
{
    const std::vector<RecordField>& fields = RecordCatalogue::find(name())->table().fields();
    EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end(), [](const auto& left, const auto& right) {
        return left.offset < right.offset;
    }));
}

TEST_P(EveryRecord, HasKeysThatDifferInMoreThanLetterCase)
{
    std::set<std::string> keys = {"_id", "_sequence_tag"};
    for (const RecordField& field : RecordCatalogue::find(name())->table().fields()) {
        EXPECT_TRUE(keys.insert(inLowerCase(field.key)).second) << field.key;
    }
}

TEST_P(EveryRecord, HasGoldenFilesThatDifferInEveryField)
{
    const JsonTree defaults = goldenTree(name(), "default");
    const JsonTree filled = goldenTree(name(), "filled");
    EXPECT_FALSE(cJSON_Compare(defaults.get(), filled.get(), 1));
    for (const GoldenField& field : GetParam().fields) {
        const cJSON* const plain = cJSON_GetObjectItemCaseSensitive(defaults.get(), field.key.c_str());
        const cJSON* const changed = cJSON_GetObjectItemCaseSensitive(filled.get(), field.key.c_str());
        ASSERT_TRUE(plain != nullptr && changed != nullptr) << field.key;
        EXPECT_FALSE(cJSON_Compare(plain, changed, 1)) << field.key;
    }
}

TEST_P(EveryRecord, PrintsItsDefaults)
{
    EXPECT_EQ(defaultRecord()->GetString(), goldenText(name(), "default"));
}

TEST_P(EveryRecord, PrintsWhatItHasRead)
{
    const std::string text = goldenText(name(), "filled");
    const RecordPointer record = defaultRecord();
    EXPECT_TRUE(record->FromJson(text));
    EXPECT_EQ(record->GetString(), text);
}

TEST_P(EveryRecord, PackagesTheTreeThatItPrints)
{
    cJSON* output = nullptr;
    EXPECT_EQ(filledRecord(name())->Package(&output), 0);
    const JsonTree packaged(output);
    // Compares the types of all nodes too: a number must be a number node, not text that prints like one.
    EXPECT_TRUE(cJSON_Compare(packaged.get(), goldenTree(name(), "filled").get(), 1));
    EXPECT_EQ(std::string(JsonText(cJSON_Print(packaged.get())).get()), goldenText(name(), "filled"));
}

TEST_P(EveryRecord, MakesAFilledRecordOfItsClassFromATree)
{
    const RecordPointer prototype = defaultRecord();
    TelvaneDataTypeBase* output = nullptr;
    ASSERT_EQ(prototype->Unpackage(goldenTree(name(), "filled").get(), &output), 0);
    const RecordPointer made(output);
    EXPECT_EQ(dynamicClassOf(*made), "Telvane::" + name());
    EXPECT_EQ(made->GetString(), goldenText(name(), "filled"));
    EXPECT_EQ(prototype->GetString(), goldenText(name(), "default"));
}

TEST_P(EveryRecord, BuildsANewDefaultRecordWhenItIsFilled)
{
    const RecordPointer built(filledRecord(name())->BuildNewDataType());
    EXPECT_EQ(dynamicClassOf(*built), "Telvane::" + name());
    EXPECT_EQ(built->GetString(), goldenText(name(), "default"));
    EXPECT_EQ(built->_id, "");
    EXPECT_EQ(built->_sequence_tag, -1);
}

TEST_P(EveryRecord, CopiesEveryMemberFromItsOwnKind)
{
    const RecordPointer source = filledRecord(name());
    const RecordPointer target = defaultRecord();
    EXPECT_EQ(target->copy(source.get()), 0);
    EXPECT_EQ(target->GetString(), goldenText(name(), "filled"));
    EXPECT_EQ(target->_id, source->_id);
    EXPECT_EQ(target->_sequence_tag, source->_sequence_tag);
    EXPECT_EQ(source->GetString(), goldenText(name(), "filled"));
}

TEST_P(EveryRecord, RefusesToCopyFromNothing)
{
    const RecordPointer target = filledRecord(name());
    EXPECT_EQ(target->copy(nullptr), -EINVAL);
    EXPECT_EQ(target->GetString(), goldenText(name(), "filled"));
}

TEST_P(EveryRecord, CopiesFromDerivedClassesAndRefusesAllOthers)
{
    for (const GoldenClass& other : goldenCatalogue()) {
        if (other.name == name()) {
            continue;
        }
        SCOPED_TRACE("from " + other.name);
        const RecordPointer source = filledRecord(other.name);
        const RecordPointer target = filledRecord(name());
        ASSERT_TRUE(source != nullptr && target != nullptr);
        const std::string id = target->_id;
        const bool accepted = goldenClassIsA(other, name());
        EXPECT_EQ(target->copy(source.get()), accepted ? 0 : -EINVAL);
        EXPECT_EQ(target->GetString(), goldenText(accepted ? other.name : name(), "filled"));
        EXPECT_EQ(target->_id, accepted ? source->_id : id);
    }
}

} // namespace
} // namespace Telvane
