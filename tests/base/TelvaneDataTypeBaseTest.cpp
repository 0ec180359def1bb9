// The operations of a whole record. Those of single fields stand in FieldOperationsTest.cpp.

#include <Telvane/TelvaneDataTypeBase.h>

#include <Telvane/WeldRecords.h>

#include "helpers/JsonTestSupport.h"
#include "helpers/ProcessTestSupport.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>

namespace Telvane
{
namespace
{

using Testing::compact;
using Testing::Diagnostics;
using Testing::diagnosticsOf;
using Testing::parse;

/// Nothing but the base.
class BareRecord : public TelvaneDataTypeBase
{
public:
    TelvaneDataTypeBase* BuildNewDataType() const override { return new BareRecord; }
};

/// Cannot be written or read.
class FailingRecord : public TelvaneDataTypeBase
{
public:
    static int living;

    FailingRecord() { ++living; }
    FailingRecord(const FailingRecord&) = delete;
    FailingRecord& operator=(const FailingRecord&) = delete;
    ~FailingRecord() override { --living; }

    bool _packageData(cJSON*) override { return false; }
    bool _unpackageData(cJSON*) override { return false; }
    TelvaneDataTypeBase* BuildNewDataType() const override { return new FailingRecord; }
};

int FailingRecord::living = 0;

/// BuildNewDataType() fails.
class UnbuildableRecord : public BareRecord
{
public:
    TelvaneDataTypeBase* BuildNewDataType() const override { return nullptr; }
};

/// A number, and then a record that fails.
class PartlyFailingRecord : public TelvaneDataTypeBase
{
public:
    bool _packageData(cJSON* output) override
    {
        FailingRecord nested;
        return _toJson("first", 1, output) && _toJson("second", nested, output);
    }
    TelvaneDataTypeBase* BuildNewDataType() const override { return new PartlyFailingRecord; }
};

TEST(RecordBase, StartsWithoutIdAndTag)
{
    const BareRecord record;
    EXPECT_EQ(record._id, "");
    EXPECT_EQ(record._sequence_tag, -1);
}

TEST(RecordBase, PrintsNeitherBaseKeyWhenFresh)
{
    EXPECT_EQ(BareRecord().GetString(), "{\n}");
    EXPECT_EQ(DataStatus().GetString(), "{\n\t\"ttl\":\t0\n}");
}

TEST(RecordBase, PrintsItsKeysAfterTheRecordsOwn)
{
    DataStatus record;
    record.ttl = 9;
    record._id = "abc";
    record._sequence_tag = 4;
    EXPECT_EQ(record.GetString(), "{\n\t\"ttl\":\t9,\n\t\"_id\":\t\"abc\",\n\t\"_sequence_tag\":\t4\n}");
}

TEST(RecordBase, PrintsTagZeroButNoNegativeTag)
{
    BareRecord record;
    record._sequence_tag = 0;
    EXPECT_EQ(record.GetString(), "{\n\t\"_sequence_tag\":\t0\n}");
    for (const int negative : {-1, -2, -2147483647 - 1}) {
        record._sequence_tag = negative;
        EXPECT_EQ(record.GetString(), "{\n}") << negative;
    }
}

TEST(RecordBase, ReadsIdAndTag)
{
    BareRecord record;
    EXPECT_TRUE(record._unpackageData(parse(R"({"_id": "abc", "_sequence_tag": 12})").get()));
    EXPECT_EQ(record._id, "abc");
    EXPECT_EQ(record._sequence_tag, 12);
}

TEST(RecordBase, ReadsItsKeysInAnyLetterCase)
{
    BareRecord record;
    EXPECT_TRUE(record.FromJson(R"({"_ID": "abc", "_Sequence_TAG": 12})"));
    EXPECT_EQ(record._id, "abc");
    EXPECT_EQ(record._sequence_tag, 12);
}

TEST(RecordBase, KeepsIdAndTagThatAreMissing)
{
    BareRecord record;
    record._id = "old";
    record._sequence_tag = 3;
    EXPECT_TRUE(record.FromJson("{}"));
    EXPECT_EQ(record._id, "old");
    EXPECT_EQ(record._sequence_tag, 3);
}

TEST(RecordBase, KeepsIdAndTagIfTheirTypesDifferWithoutAReport)
{
    BareRecord record;
    record._id = "old";
    record._sequence_tag = 3;
    const Diagnostics told =
        diagnosticsOf([&] { EXPECT_TRUE(record.FromJson(R"({"_id": 5, "_sequence_tag": "7"})")); });
    EXPECT_EQ(record._id, "old");
    EXPECT_EQ(record._sequence_tag, 3);
    EXPECT_EQ(told.output + told.error, "");
}

TEST(RecordBase, ReadsANegativeTag)
{
    BareRecord record;
    record._sequence_tag = 3;
    EXPECT_TRUE(record.FromJson(R"({"_sequence_tag": -8})"));
    EXPECT_EQ(record._sequence_tag, -8);
}

TEST(RecordBase, ReadsTheTagAsAnInteger)
{
    BareRecord record;
    EXPECT_TRUE(record.FromJson(R"({"_sequence_tag": 3.9})"));
    EXPECT_EQ(record._sequence_tag, 3);
    EXPECT_TRUE(record.FromJson(R"({"_sequence_tag": 1e12})"));
    EXPECT_EQ(record._sequence_tag, 2147483647);
}

TEST(RecordBase, ReadsNothingFromNull)
{
    BareRecord record;
    record._id = "old";
    EXPECT_TRUE(record._unpackageData(nullptr));
    EXPECT_EQ(record._id, "old");
    EXPECT_EQ(record._sequence_tag, -1);
}

TEST(RecordBase, CopiesIdAndTag)
{
    BareRecord from;
    from._id = "abc";
    from._sequence_tag = 5;
    BareRecord to;
    EXPECT_EQ(to.copy(&from), 0);
    EXPECT_EQ(to._id, "abc");
    EXPECT_EQ(to._sequence_tag, 5);
}

TEST(RecordGenerateId, GivesThirtySixCharactersOfUuid)
{
    BareRecord record;
    record.generate_id();
    ASSERT_EQ(record._id.size(), 36U);
    for (std::size_t i = 0; i < record._id.size(); ++i) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            EXPECT_EQ(record._id[i], '-') << i;
        } else {
            EXPECT_NE(std::isxdigit(static_cast<unsigned char>(record._id[i])), 0) << i;
        }
    }
}

TEST(RecordGenerateId, KeepsAnIdOnceGiven)
{
    BareRecord record;
    record.generate_id();
    const std::string first = record._id;
    record.generate_id();
    EXPECT_EQ(record._id, first);

    BareRecord named;
    named._id = "mine";
    named.generate_id();
    EXPECT_EQ(named._id, "mine");
}

TEST(RecordGenerateId, GivesEachRecordItsOwn)
{
    BareRecord one;
    BareRecord other;
    one.generate_id();
    other.generate_id();
    EXPECT_NE(one._id, other._id);
}

TEST(RecordPackage, MakesAnObject)
{
    DataStatus record;
    record.ttl = 5;
    cJSON* output = nullptr;
    EXPECT_EQ(record.Package(&output), 0);
    const Testing::Tree owned(output);
    EXPECT_EQ(compact(owned), R"({"ttl":5})");
}

TEST(RecordPackage, ReturnsThePartlyFilledObjectIfAFieldFails)
{
    PartlyFailingRecord record;
    cJSON* output = nullptr;
    EXPECT_EQ(record.Package(&output), -1);
    const Testing::Tree owned(output);
    EXPECT_EQ(compact(owned), R"({"first":1})");
}

TEST(RecordPackage, ReportsThatNoObjectCouldBeMade)
{
    DataStatus record;
    const Testing::Tree other = Testing::emptyObject();
    cJSON* output = other.get();
    const Testing::FailingAllocator allocator(0);
    EXPECT_EQ(record.Package(&output), -ENOMEM);
    EXPECT_EQ(output, nullptr);
}

TEST(RecordUnpackage, FillsTheRecord)
{
    DataStatus record;
    EXPECT_EQ(record.Unpackage(parse(R"({"ttl": 5})").get()), 0);
    EXPECT_EQ(record.ttl, 5);
}

TEST(RecordUnpackage, RefusesAMissingKeyAndAWrongType)
{
    DataStatus record;
    const Diagnostics told = diagnosticsOf([&] {
        EXPECT_EQ(record.Unpackage(parse("{}").get()), -EINVAL);
        EXPECT_EQ(record.Unpackage(parse(R"({"ttl": "5"})").get()), -EINVAL);
    });
    EXPECT_EQ(told.error, "FAIL! _int_fromJson ttl\nFAIL! _int_fromJson ttl\n");
    EXPECT_EQ(told.output, "");
}

TEST(RecordUnpackageAnew, BuildsARecordOfThePrototypesClass)
{
    DataStatus prototype;
    prototype.ttl = 77;
    TelvaneDataTypeBase& base = prototype;
    TelvaneDataTypeBase* output = nullptr;
    ASSERT_EQ(base.Unpackage(parse(R"({"ttl": 5})").get(), &output), 0);
    const std::unique_ptr<TelvaneDataTypeBase> owned(output);
    const auto* const built = dynamic_cast<DataStatus*>(output);
    ASSERT_NE(built, nullptr);
    EXPECT_EQ(built->ttl, 5);
    EXPECT_EQ(prototype.ttl, 77);
}

TEST(RecordUnpackageAnew, RefusesAMissingKey)
{
    DataStatus prototype;
    TelvaneDataTypeBase* output = nullptr;
    diagnosticsOf([&] { EXPECT_EQ(prototype.Unpackage(parse("{}").get(), &output), -EINVAL); });
}

TEST(RecordUnpackageAnew, DeletesTheRecordThatCouldNotBeRead)
{
    FailingRecord prototype;
    const int before = FailingRecord::living;
    TelvaneDataTypeBase* output = nullptr;
    EXPECT_EQ(prototype.Unpackage(parse("{}").get(), &output), -EINVAL);
    EXPECT_EQ(FailingRecord::living, before);
}

TEST(RecordUnpackageAnew, ReportsThatNoRecordCouldBeBuilt)
{
    UnbuildableRecord prototype;
    BareRecord other;
    TelvaneDataTypeBase* output = &other;
    EXPECT_EQ(prototype.Unpackage(parse("{}").get(), &output), -ENOMEM);
    EXPECT_EQ(output, nullptr);
}

TEST(RecordToJson, ReplacesTheTextByTheIndentedPrint)
{
    LogData record;
    record.log = "ready";
    std::string text = "before";
    EXPECT_TRUE(record.ToJson(text));
    EXPECT_EQ(text, "{\n\t\"log\":\t\"ready\"\n}");
}

TEST(RecordToJson, DoesNotChangeTheTextIfAFieldFails)
{
    PartlyFailingRecord record;
    std::string text = "before";
    EXPECT_FALSE(record.ToJson(text));
    EXPECT_EQ(text, "before");
}

TEST(RecordGetString, IsEmptyWhenAFieldFails)
{
    EXPECT_EQ(PartlyFailingRecord().GetString(), "");
}

TEST(RecordFromJson, ReadsBackWhatWasPrinted)
{
    LogData record;
    record.log = "Zündung \"ok\" \\ \n\t\x01 \xE2\x82\xAC";
    record._id = "abc";
    LogData read;
    EXPECT_TRUE(read.FromJson(record.GetString()));
    EXPECT_EQ(read.log, record.log);
    EXPECT_EQ(read._id, "abc");
}

TEST(RecordFromJson, RefusesWhatIsNotJsonWithoutAWord)
{
    for (const char* const text : {"", "   ", "nonsense", "{", R"({"ttl": )", "}", R"({"ttl" 5})"}) {
        DataStatus record;
        record.ttl = 3;
        const Diagnostics told = diagnosticsOf([&] { EXPECT_FALSE(record.FromJson(text)) << text; });
        EXPECT_EQ(told.output + told.error, "") << text;
        EXPECT_EQ(record.ttl, 3) << text;
    }
}

TEST(RecordFromJson, DoesNotReportAnEarlierTextThatWasNotJson)
{
    const Diagnostics told = diagnosticsOf([] {
        DataStatus record;
        EXPECT_FALSE(record.FromJson("nonsense"));
        EXPECT_TRUE(record.FromJson(R"({"ttl": 5})"));
    });
    EXPECT_EQ(told.output + told.error, "");
}

TEST(RecordFromJson, RefusesJsonThatIsNoObject)
{
    for (const char* const text : {"5", "\"text\"", "[]", "[1]", "null", "true"}) {
        DataStatus record;
        const Diagnostics told = diagnosticsOf([&] { EXPECT_FALSE(record.FromJson(text)) << text; });
        EXPECT_EQ(told.error, "FAIL! _int_fromJson ttl\n") << text;
    }
}

TEST(RecordFromJson, KeepsWhatWasReadBeforeTheFailingField)
{
    UnitValuePair record;
    record.Unit = "A";
    record.Value = 3;
    const Diagnostics told =
        diagnosticsOf([&] { EXPECT_FALSE(record.FromJson(R"({"Unit": "V", "Value": true, "_id": "x"})")); });
    EXPECT_EQ(told.error, "FAIL! _int_fromJson Value\n");
    EXPECT_EQ(record.Unit, "V");
    EXPECT_EQ(record.Value, 3);
    EXPECT_EQ(record._id, "");
}

TEST(RecordBuildNewDataType, GivesDefaultsNotACopy)
{
    LogData record;
    record.log = "text";
    record._id = "abc";
    record._sequence_tag = 9;
    const std::unique_ptr<TelvaneDataTypeBase> built(record.BuildNewDataType());
    EXPECT_EQ(built->GetString(), LogData().GetString());
}

TEST(RecordCopy, RefusesNullAndOtherClasses)
{
    UnitValuePair from;
    from.Unit = "A";
    from._id = "from";
    UnitValueDoublePair to;
    to.Unit = "V";
    to.Value = 2.5;
    const std::string before = to.GetString();
    EXPECT_EQ(to.copy(nullptr), -EINVAL);
    EXPECT_EQ(to.copy(&from), -EINVAL);
    EXPECT_EQ(to.GetString(), before);
}

TEST(RecordCopy, TakesEveryMember)
{
    UnitValuePair from;
    from.Unit = "A";
    from.Value = 180;
    from._id = "abc";
    from._sequence_tag = 9;
    UnitValuePair to;
    EXPECT_EQ(to.copy(&from), 0);
    EXPECT_EQ(to.GetString(), from.GetString());
}

TEST(RecordCopy, OfItselfChangesNothing)
{
    UnitValuePair record;
    record.Unit = "A";
    record._id = "abc";
    const std::string before = record.GetString();
    EXPECT_EQ(record.copy(&record), 0);
    EXPECT_EQ(record.GetString(), before);
}

TEST(BoolFlag, IsOneByteThatHoldsZeroOrOne)
{
    EXPECT_EQ(sizeof(BoolFlag), 1U);
    EXPECT_EQ(BoolFlag().state, 0);
    EXPECT_EQ(BoolFlag(true).state, 1);
    EXPECT_EQ(BoolFlag(false).state, 0);
}

} // namespace
} // namespace Telvane
