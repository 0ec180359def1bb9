// Relays that are read without a tree, against the same with one.

#include "helpers/ProcessTestSupport.h"
#include "helpers/RecordTestSupport.h"
#include "helpers/RelayWithoutTree.h"
#include "helpers/TestPaths.h"
#include "support/JsonWriter.h"

#include <Telvane/Telvane.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Telvane
{
namespace
{

using Testing::relayByTree;
using Testing::relayStraight;

std::string relayOf(const cJSON* payload)
{
    JsonWriter writer(100'000);
    writer.clear();
    writer.put("{\n\t\"header\":\t\"Channel\",\n\t\"sequence\":\t65535,\n\t\"payload\":\t");
    writer.tree(payload, 1);
    writer.put("\n}");
    return writer.finish();
}

std::string relayOf(TelvaneDataTypeBase& record)
{
    cJSON* payload = nullptr;
    EXPECT_EQ(record.Package(&payload), 0);
    const JsonTree owned(payload);
    return relayOf(payload);
}

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    const std::size_t position = text.find(from);
    EXPECT_NE(position, std::string::npos) << from;
    return position != std::string::npos ? text.replace(position, from.size(), to) : text;
}

/// \return whether the text is read without a tree; then it is the same with one, and nothing was reported
bool isReadStraight(const std::string& text, const TelvaneDataTypeBase& prototype, const RecordTable& table)
{
    const auto straight = relayStraight(text, prototype);
    if (!straight) {
        return false;
    }
    const Testing::ReadRelay expected = relayByTree(text, prototype);
    EXPECT_NE(expected.record, nullptr) << text;
    EXPECT_EQ(straight->channel, expected.channel);
    EXPECT_EQ(straight->sequence, expected.sequence);
    EXPECT_TRUE(expected.record != nullptr &&
                Testing::haveSameValues(*straight->record, *expected.record, table))
        << text;
    return true;
}

template <class Record>
bool isReadStraight(const std::string& text)
{
    return isReadStraight(text, Record(), Record::recordTable());
}

class EventClientRelayOfEachClass : public testing::TestWithParam<std::string>
{
protected:
    const RecordClass& recordClass() const { return *RecordCatalogue::find(GetParam()); }

    std::string relay(const std::string& form) const
    {
        std::ifstream file(sourceDirectory() + "/tests/golden/records/" + GetParam() + "." + form + ".json");
        const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        return relayOf(JsonTree(cJSON_Parse(text.c_str())).get());
    }
};

TEST_P(EventClientRelayOfEachClass, IsReadStraight)
{
    const std::unique_ptr<TelvaneDataTypeBase> prototype(recordClass().build());
    for (const char* const form : {"default", "filled"}) {
        EXPECT_TRUE(isReadStraight(relay(form), *prototype, recordClass().table()) ||
                    relay(form).find("\\u") != std::string::npos);
    }
}

TEST_P(EventClientRelayOfEachClass, IsLeftToTheTreeWhereverItIsCutOrChanged)
{
    const std::unique_ptr<TelvaneDataTypeBase> prototype(recordClass().build());
    const std::string text = relay("filled");
    const Testing::Diagnostics reported = Testing::diagnosticsOf([&] {
        for (std::size_t i = 0; i < text.size(); ++i) {
            EXPECT_FALSE(relayStraight(text.substr(0, i), *prototype)) << i;
            std::string changed = text;
            changed[i] = ' ';
            if (relayStraight(changed, *prototype)) {
                isReadStraight(changed, *prototype, recordClass().table());
            }
        }
    });
    EXPECT_TRUE(isReadStraight(text + "}", *prototype, recordClass().table()) ||
                text.find("\\u") != std::string::npos);
    EXPECT_EQ(reported.error + reported.output, "");
}

INSTANTIATE_TEST_SUITE_P(Catalogue, EventClientRelayOfEachClass, testing::ValuesIn(classNames()),
                         [](const auto& instance) { return instance.param; });

TEST(EventClientRelayReading, LeavesEverythingUnusualToTheTree)
{
    FlagType flag;
    flag._id = "id";
    flag._sequence_tag = 5;
    const std::string text = relayOf(flag);
    ASSERT_TRUE(isReadStraight<FlagType>(text));
    for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
             {"\"Flag\"", "\"flag\""},
             {"\"Flag\"", "\"Status\""},
             {"\"Flag\":\tfalse,", "\"Flag\":\tfalse,\n\t\t\"Flag\":\ttrue,"},
             {"\"Flag\":\tfalse,", "\"Flag\":\t0,"},
             {"\"Flag\":\tfalse,", "\"Flag\": false,"},
             {"\"Flag\":\tfalse,\n\t\t", ""},
             {"\n\t\t\"_id\"", "\n\t\t\"more\":\t1,\n\t\t\"_id\""},
             {"\"id\"", "7"},
             {"\"id\"", "\"\\u0069d\""},
             {":\t5", ":\t\"5\""},
             {"5\n\t}", "5,\n\t\t\"more\":\t1\n\t}"},
             {"\n\t}\n}", "\n\t},\n\t\"payload\":\t{}\n}"},
             {"\n\t}\n}", "\n\t}"},
             {"\"sequence\":\t65535,\n\t", ""},
             {"65535", "\"65535\""},
             {"\"Channel\"", "\"\\u0043hannel\""},
             {"\"header\"", "\"Header\""},
             {"{\n\t\"header\"", "\xEF\xBB\xBF{\n\t\"header\""}}) {
        EXPECT_FALSE(relayStraight(replaced(text, from, to), FlagType())) << to;
    }
    EXPECT_TRUE(isReadStraight<FlagType>(replaced(text, "65535", "1e3")));
    EXPECT_TRUE(isReadStraight<FlagType>(replaced(text, ":\t5", ":\t5.9")));
}

/// Starts with contents that a relay replaces, or keeps.
class Furnished : public TelvaneDataTypeBase
{
public:
    std::vector<ValueLabelType> vector{2};
    FlagType flags[3];
    int numbers[3] = {7, 8, 9};
    std::string text = "text";
    DateTime time;

    Furnished()
    {
        vector[0]._id = "first";
        vector[1]._id = "second";
        flags[0]._id = "flag";
        flags[2].Flag = true;
        _id = "furnished";
        _sequence_tag = 5;
    }

    TELVANE_RECORD(Furnished, vector, flags, numbers, text, time)
};

TELVANE_DEFINE_RECORD(Furnished)

TEST(EventClientRelayReading, ReplacesAndKeepsTheSameOfARecordThatIsNotEmpty)
{
    for (std::size_t size = 0; size <= kRecordVectorLimit + 1; ++size) {
        Furnished record;
        record.vector.clear();
        record.vector.resize(size);
        for (ValueLabelType& element : record.vector) {
            element._sequence_tag = static_cast<int>(size) - 1;
        }
        record.flags[0] = FlagType();
        record._id = size % 2 != 0 ? "own" : "";
        record._sequence_tag = -1;
        const std::string text = relayOf(record);
        EXPECT_EQ(isReadStraight<Furnished>(text), size <= kRecordVectorLimit);
        EXPECT_EQ(isReadStraight<Furnished>(replaced(text, "[7, 8, 9]", "[1, 2]")),
                  size <= kRecordVectorLimit);
        EXPECT_FALSE(relayStraight(replaced(text, "[7, 8, 9]", "[]"), Furnished()));
        EXPECT_FALSE(relayStraight(replaced(text, "[7, 8, 9]", "[1, 2, 3, 4]"), Furnished()));
        EXPECT_FALSE(relayStraight(replaced(text, "/Date(0)/", "/Date()/"), Furnished()));
    }
}

/// Has an operation of its own.
class ByItself : public ValueType
{
public:
    bool _unpackageData(cJSON* input) override { return ValueType::_unpackageData(input); }
    TelvaneDataTypeBase* BuildNewDataType() const override { return new ByItself(); }
};

class HolderByItself : public TelvaneDataTypeBase
{
public:
    ByItself value;

    TELVANE_RECORD(HolderByItself, value)
};

TELVANE_DEFINE_RECORD(HolderByItself)

TEST(EventClientRelayReading, LeavesRecordsWithOperationsOfTheirOwnToThemselves)
{
    ByItself value;
    HolderByItself holder;
    EXPECT_FALSE(relayStraight(relayOf(value), ByItself()));
    EXPECT_FALSE(relayStraight(relayOf(holder), HolderByItself()));
}

/// Cannot be built.
class Unbuildable : public TelvaneDataTypeBase
{
public:
    inline static bool fails = false;
    Unbuildable()
    {
        if (fails) {
            throw std::runtime_error("cannot be built");
        }
    }
    TELVANE_RECORD_WITHOUT_FIELDS(Unbuildable)
};

TELVANE_DEFINE_RECORD(Unbuildable)

TEST(EventClientRelayReading, LeavesARecordThatCannotBeBuiltToTheTree)
{
    Unbuildable record;
    const std::string text = relayOf(record);
    EXPECT_TRUE(relayStraight(text, record));
    EventClient client;
    EventClient::SubscriptionCallbackClosure subscription(
        new Unbuildable(), nullptr, [](void*, TelvaneDataTypeBase*, int, void*) { FAIL(); });
    Unbuildable::fails = true;
    JsonScanner scanner("{\n\t}\n}");
    EXPECT_FALSE(subscription.deliver(client, scanner, 1));
    Unbuildable::fails = false;
}

} // namespace
} // namespace Telvane
