// Records made of a list of fields: one engine reads and writes what the list says. The record under test is
// one that an application would make, with a field of every kind.

#include <Telvane/RecordTable.h>

#include <Telvane/DateTime.h>
#include <Telvane/PSPrimitives.h>

#include "helpers/JsonTestSupport.h"
#include "helpers/ProcessTestSupport.h"
#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Application
{

class Torch : public Telvane::TelvaneDataTypeBase
{
public:
    int serialNumber = 7;                    ///< an integer with a default
    double length = 0.5;                     ///< a real number with a default
    bool cooled = true;                      ///< a flag with a default
    std::string Label = "new";               ///< a text with a default
    Telvane::ValueType wear;                 ///< a record
    Telvane::DateTime made;                  ///< a time stamp
    bool buttons[3] = {};                    ///< flags
    int counts[2] = {1, 2};                  ///< integers
    Telvane::FlagType lamps[2];              ///< records
    std::vector<Telvane::ValueType> history; ///< a vector of records

    TELVANE_RECORD(Torch, serialNumber, length, cooled, Label, wear, made, buttons, counts, lamps, history)
};

TELVANE_DEFINE_RECORD(Torch)

/// More defaults for a Torch, and nothing in JSON.
class LongTorch : public Torch
{
public:
    LongTorch() { length = 9.0; }
    TELVANE_DERIVED_RECORD(LongTorch)
};

TELVANE_DEFINE_DERIVED_RECORD(LongTorch, Torch)

} // namespace Application

namespace Telvane
{
namespace
{

using Application::LongTorch;
using Application::Torch;
using Testing::compact;
using Testing::Diagnostics;
using Testing::diagnosticsOf;
using Testing::Member;
using Testing::Members;
using Testing::parse;
using Testing::textOf;
using Testing::Tree;

/// A complete object for a Torch, each value different from the default.
Members filledMembers()
{
    return {{"serialNumber", "31"},
            {"length", "2.5"},
            {"cooled", "false"},
            {"Label", "\"L\""},
            {"wear", R"({"Value":3,"Status":true,"_id":"w"})"},
            {"made", "\"/Date(1500)/\""},
            {"buttons", "[true,false,true]"},
            {"counts", "[8,9]"},
            {"lamps", R"([{"Flag":true,"Status":false},{"Flag":false,"Status":true}])"},
            {"history", R"([{"Value":1,"Status":false},{"Value":2,"Status":true}])"},
            {"_id", "\"torch\""},
            {"_sequence_tag", "6"}};
}

TEST(RecordTable, ListsKeysKindsAndLimitsInOrder)
{
    struct Expected
    {
        const char* key;
        FieldKind kind;
        unsigned limit;
    };
    const std::vector<Expected> expected = {
        {"serialNumber", FieldKind::Integer, 0}, {"length", FieldKind::Number, 0},
        {"cooled", FieldKind::Flag, 0},          {"Label", FieldKind::Text, 0},
        {"wear", FieldKind::Record, 0},          {"made", FieldKind::Record, 0},
        {"buttons", FieldKind::FlagArray, 3},    {"counts", FieldKind::IntegerArray, 2},
        {"lamps", FieldKind::RecordArray, 2},    {"history", FieldKind::RecordVector, kRecordVectorLimit}};
    const RecordTable& table = Torch::recordTable();
    EXPECT_STREQ(table.className(), "Torch");
    ASSERT_EQ(table.fields().size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_STREQ(table.fields()[i].key, expected[i].key);
        EXPECT_EQ(table.fields()[i].kind, expected[i].kind) << expected[i].key;
        EXPECT_EQ(table.fields()[i].limit, expected[i].limit) << expected[i].key;
    }
    EXPECT_STREQ(table.fields()[4].nested->table().className(), "ValueType");
}

TEST(WritingARecord, WritesDefaultsInTheListsOrder)
{
    Torch torch;
    EXPECT_EQ(compactJson(torch),
              R"({"serialNumber":7,"length":0.5,"cooled":true,"Label":"new",)"
              R"("wear":{"Value":0,"Status":false},"made":"/Date(0)/","buttons":[false,false,false],)"
              R"("counts":[1,2],"lamps":[{"Flag":false,"Status":false},{"Flag":false,"Status":false}],)"
              R"("history":[]})");
}

TEST(WritingARecord, WritesBackWhatWasRead)
{
    Torch torch;
    ASSERT_TRUE(torch.FromJson(textOf(filledMembers())));
    EXPECT_EQ(compactJson(torch), textOf(filledMembers()));
}

TEST(WritingARecord, WritesEveryElementOfAVectorOfAnyLength)
{
    Torch torch;
    torch.history.resize(kRecordVectorLimit + 50);
    cJSON* packaged = nullptr;
    ASSERT_EQ(torch.Package(&packaged), 0);
    const Tree owned(packaged);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(packaged, "history")), 150);
}

class Unwritable : public ValueType
{
public:
    bool _packageData(cJSON*) override { return false; }
    static const RecordTable& recordTable() { return ValueType::recordTable(); }
};

class HolderOfUnwritable : public TelvaneDataTypeBase
{
public:
    int before = 1;
    Unwritable inner;
    int after = 2;

    TELVANE_RECORD(HolderOfUnwritable, before, inner, after)
};

TELVANE_DEFINE_RECORD(HolderOfUnwritable)

TEST(WritingARecord, StopsAtARecordThatFailsAndNamesIt)
{
    HolderOfUnwritable holder;
    holder._id = "abc";
    cJSON* packaged = nullptr;
    const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(holder.Package(&packaged), -1); });
    const Tree owned(packaged);
    EXPECT_EQ(compact(packaged), R"({"before":1})");
    EXPECT_EQ(told.error, "FAIL! _toJson Objectinner\n");
    EXPECT_EQ(told.output, "");
}

class HolderOfArray : public TelvaneDataTypeBase
{
public:
    int numbers[2] = {};
    TELVANE_RECORD(HolderOfArray, numbers)
};

TELVANE_DEFINE_RECORD(HolderOfArray)

class HolderOfVector : public TelvaneDataTypeBase
{
public:
    std::vector<ValueType> values;
    TELVANE_RECORD(HolderOfVector, values)
};

TELVANE_DEFINE_RECORD(HolderOfVector)

template <class Record>
std::string errorWithoutMemoryForTheField()
{
    Record record;
    const Tree output = Testing::emptyObject();
    return diagnosticsOf([&] {
               const Testing::FailingAllocator allocator(0);
               EXPECT_FALSE(record._packageData(output.get()));
           })
        .error;
}

TEST(WritingARecord, NamesAnArrayThatCannotBeMade)
{
    EXPECT_EQ(errorWithoutMemoryForTheField<HolderOfArray>(), "FAIL! _toJson Arraynumbers\n");
}

TEST(WritingARecord, NamesAVectorThatCannotBeMade)
{
    EXPECT_EQ(errorWithoutMemoryForTheField<HolderOfVector>(), "FAIL! _toJson Vector Array values\n");
}

TEST(ReadingARecord, NamesTheFirstMissingKeyAndKeepsWhatCameBefore)
{
    const std::vector<std::string> tags = {
        "_int_fromJson",    "_double_fromJson", "_bool_fromJson",  "_str_fromJson",   "_object_fromJson",
        "_object_fromJson", "_array_fromJson",  "_array_fromJson", "_array_fromJson", "_vector_fromJson"};
    for (std::size_t missing = 0; missing < tags.size(); ++missing) {
        Members members = filledMembers();
        const std::string key = members[missing].first;
        members.erase(members.begin() + static_cast<std::ptrdiff_t>(missing));
        Torch torch;
        const Diagnostics told = diagnosticsOf([&] { EXPECT_FALSE(torch.FromJson(textOf(members))); });
        EXPECT_EQ(told.error, "FAIL! " + tags[missing] + " " + key + "\n");

        const Tree read = parse(compactJson(torch));
        const Tree defaults = parse(compactJson(*std::make_unique<Torch>()));
        for (std::size_t field = 0; field < tags.size(); ++field) {
            const auto [name, value] = filledMembers()[field];
            const std::string expected =
                field < missing ? value : compact(cJSON_GetObjectItem(defaults.get(), name.c_str()));
            EXPECT_EQ(compact(cJSON_GetObjectItem(read.get(), name.c_str())), expected)
                << name << " without " << key;
        }
        EXPECT_EQ(torch._id, "");
    }
}

TEST(ReadingARecord, TakesTheFirstOfTwoKeysThatDifferInCase)
{
    Members members = filledMembers();
    members.insert(members.begin(), Member("SERIALNUMBER", "99"));
    Torch torch;
    ASSERT_TRUE(torch.FromJson(textOf(members)));
    EXPECT_EQ(torch.serialNumber, 99);
    EXPECT_EQ(torch.length, 2.5);
}

TEST(ReadingARecord, TakesBaseKeysFromAnyPlace)
{
    Members members = filledMembers();
    std::rotate(members.begin(), members.end() - 2, members.end());
    Torch torch;
    ASSERT_TRUE(torch.FromJson(textOf(members)));
    EXPECT_EQ(torch._id, "torch");
    EXPECT_EQ(torch._sequence_tag, 6);
}

TEST(ReadingARecord, NamesTheObjectOfAFailingArrayElement)
{
    Members members = filledMembers();
    members[7].second = "[1,\"x\"]";
    const Tree parent = parse("{\"torch\":" + textOf(members) + "}");
    Torch torch;
    const Diagnostics told = diagnosticsOf(
        [&] { EXPECT_FALSE(torch._unpackageData(cJSON_GetObjectItem(parent.get(), "torch"))); });
    EXPECT_EQ(told.output, "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, int &target) error!\n"
                           "_readFromJsonItem error!  Type: 16 Value Db: 0 Array Size: 2 Index: 1\n"
                           "torch\n");
    EXPECT_EQ(told.error, "FAIL! _array_fromJson counts\n");
    EXPECT_EQ(torch.counts[0], 1);
}

TEST(ReadingARecord, NamesEachLevelOfARecordThatFails)
{
    Members members = filledMembers();
    members[4].second = R"({"Value":3})";
    Torch torch;
    const Diagnostics told = diagnosticsOf([&] { EXPECT_FALSE(torch.FromJson(textOf(members))); });
    EXPECT_EQ(told.error, "FAIL! _bool_fromJson Status\nFAIL! _object_fromJson wear\n");
    EXPECT_EQ(told.output, "");
    EXPECT_EQ(torch.wear.Value, 3);
}

std::string vectorOf(std::size_t size)
{
    std::string text = "[";
    for (std::size_t i = 0; i < size; ++i) {
        text += (i > 0 ? "," : "") + (R"({"Value":)" + std::to_string(i)) + R"(,"Status":true})";
    }
    return text + "]";
}

TEST(ReadingAVector, TakesTheArraysLength)
{
    HolderOfVector holder;
    for (const std::size_t size :
         {std::size_t{3}, std::size_t{kRecordVectorLimit}, std::size_t{1}, std::size_t{0}}) {
        ASSERT_TRUE(holder.FromJson("{\"values\":" + vectorOf(size) + "}"));
        ASSERT_EQ(holder.values.size(), size);
        for (std::size_t i = 0; i < size; ++i) {
            EXPECT_EQ(holder.values[i].Value, static_cast<int>(i));
        }
    }
}

TEST(ReadingAVector, RefusesMoreThanTheLimitAndWhatIsNoArray)
{
    HolderOfVector holder;
    holder.values.resize(2);
    for (const std::string& value : {vectorOf(kRecordVectorLimit + 1), std::string("{}"), std::string("5")}) {
        const Diagnostics told =
            diagnosticsOf([&] { EXPECT_FALSE(holder.FromJson("{\"values\":" + value + "}")); });
        EXPECT_EQ(told.error, "FAIL! _vector_fromJson values\n");
        EXPECT_EQ(told.output, "");
        EXPECT_EQ(holder.values.size(), 2U);
    }
}

TEST(ReadingAVector, KeepsTheElementsBeforeTheFailingOne)
{
    HolderOfVector holder;
    const Diagnostics told = diagnosticsOf([&] {
        EXPECT_FALSE(
            holder.FromJson(R"({"values":[{"Value":4,"Status":true},5,{"Value":6,"Status":true}]})"));
    });
    EXPECT_EQ(told.error, "FAIL! _readFromJsonItem item not an object \nFAIL! _vector_fromJson values\n");
    ASSERT_EQ(holder.values.size(), 3U);
    EXPECT_EQ(holder.values[0].Value, 4);
    EXPECT_EQ(holder.values[2].Value, 0);
}

TEST(CopyingARecord, TakesEveryFieldWhole)
{
    Torch from;
    ASSERT_TRUE(from.FromJson(textOf(filledMembers())));
    Torch to;
    to.history.resize(9);
    EXPECT_EQ(to.copy(&from), 0);
    EXPECT_EQ(compactJson(to), textOf(filledMembers()));
    EXPECT_EQ(to.wear._id, "w");
}

TEST(ADerivedRecord, PrintsAsItsBaseAndBuildsItself)
{
    LongTorch derived;
    Torch base;
    base.length = 9.0;
    EXPECT_EQ(derived.GetString(), base.GetString());
    const std::unique_ptr<TelvaneDataTypeBase> built(derived.BuildNewDataType());
    EXPECT_NE(dynamic_cast<LongTorch*>(built.get()), nullptr);
}

TEST(ADerivedRecord, IsCopiedIntoItsBaseButNotTheOtherWayRound)
{
    LongTorch derived;
    derived._id = "derived";
    Torch base;
    EXPECT_EQ(base.copy(&derived), 0);
    EXPECT_EQ(base.length, 9.0);
    EXPECT_EQ(base._id, "derived");
    EXPECT_EQ(derived.copy(&base), -EINVAL);
}

} // namespace
} // namespace Telvane
