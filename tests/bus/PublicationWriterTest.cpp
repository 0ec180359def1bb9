#include "bus/PublicationWriter.h"

#include "helpers/GoldenCatalogue.h"
#include "helpers/MessagesByTree.h"
#include "helpers/ProcessTestSupport.h"
#include "helpers/RecordTestSupport.h"
#include "support/JsonTree.h"

#include <Telvane/Telvane.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

namespace Telvane
{
namespace
{

std::string plainPublication(const std::string& channel, TelvaneDataTypeBase& record)
{
    return Testing::publicationByTree(channel, record).value_or("");
}

std::string written(PublicationWriter& writer, const std::string& channel, TelvaneDataTypeBase& record)
{
    const char* text = nullptr;
    if (writer.write(channel, record, text) != 0) {
        return "";
    }
    EXPECT_EQ(std::string(text).size(), static_cast<std::size_t>(writer.length()));
    EXPECT_LE(writer.length(), kMessageLimit);
    return text;
}

class PublicationOfEachClass : public testing::TestWithParam<std::string>
{
protected:
    std::unique_ptr<TelvaneDataTypeBase> make(const std::string& form) const
    {
        auto record = RecordCatalogue::build(GetParam());
        EXPECT_TRUE(record->FromJson(goldenText(GetParam(), form)));
        return record;
    }
};

TEST_P(PublicationOfEachClass, ReadsAsTheJsonLibraryPrintsItAfterAnyOther)
{
    const auto defaults = make("default");
    const auto filled = make("filled");
    PublicationWriter writer;
    for (const auto& record : {&defaults, &filled, &filled, &defaults, &defaults, &filled}) {
        EXPECT_EQ(written(writer, "Channel", **record), plainPublication("Channel", **record));
    }
}

TEST_P(PublicationOfEachClass, GainsAndLosesTheBaseMembers)
{
    const auto record = make("filled");
    const std::string id = record->_id.empty() ? "an identifier" : record->_id;
    PublicationWriter writer;
    for (const auto& [useId, tag] : std::vector<std::pair<bool, int>>{
             {true, 5}, {false, 5}, {true, -1}, {true, 0}, {false, -1}, {false, 7}, {true, 8}, {false, -1}}) {
        record->_id = useId ? id : "";
        record->_sequence_tag = tag;
        EXPECT_EQ(written(writer, "Channel", *record), plainPublication("Channel", *record));
    }
}

INSTANTIATE_TEST_SUITE_P(Catalogue, PublicationOfEachClass, testing::ValuesIn(classNames()),
                         [](const auto& instance) { return instance.param; });

TEST(PublicationWriter, FollowsVectorsThatGrowAndShrink)
{
    std::mt19937 random(84);
    PublicationWriter writer;
    PSCommand command;
    for (int round = 0; round < 300; ++round) {
        command.mModes.resize(random() % 6);
        command.mValues.resize(random() % 40);
        for (ValueLabelType& value : command.mValues) {
            value.Value = static_cast<int>(random());
            value.Status = random() % 2 != 0;
            value._id = random() % 3 == 0 ? "id" + std::to_string(random()) : "";
            value._sequence_tag = static_cast<int>(random() % 3) - 1;
        }
        EXPECT_EQ(written(writer, "PSCommand", command), plainPublication("PSCommand", command));
    }
}

TEST(PublicationWriter, KeepsChannelsAndClassesApart)
{
    PublicationWriter writer;
    WeldTraceData trace;
    LogData log;
    for (int round = 0; round < 4; ++round) {
        trace.data.volts = 20.1 + round;
        log.log = std::string(static_cast<std::size_t>(round) * 50, 'x');
        EXPECT_EQ(written(writer, "First", trace), plainPublication("First", trace));
        EXPECT_EQ(written(writer, "Second", trace), plainPublication("Second", trace));
        EXPECT_EQ(written(writer, "First", log), plainPublication("First", log));
    }
}

TEST(PublicationWriter, OutlivesTheRecordsThatItHasWritten)
{
    PublicationWriter writer;
    for (int round = 0; round < 3; ++round) {
        const auto log = std::make_unique<LogData>();
        log->log = "a text too long to be held within the string itself, round " + std::to_string(round);
        EXPECT_EQ(written(writer, "LogData", *log), plainPublication("LogData", *log));
    }
}

/// Says more than its list of fields, before and behind it, and not always the same.
class Talkative : public WeldTraceDataPoint
{
public:
    bool before = false;
    bool behind = false;

    bool _packageData(cJSON* output) override
    {
        if (before) {
            _toJson("before", 1, output);
        }
        const bool packaged = WeldTraceDataPoint::_packageData(output);
        if (behind) {
            _toJson("behind", 2, output);
        }
        return packaged;
    }
};

TEST(PublicationWriter, LetsRecordsWithAFormOfTheirOwnPackageThemselves)
{
    PublicationWriter writer;
    Talkative record;
    WeldTraceDataPoint plain;
    for (int round = 0; round < 16; ++round) {
        record.before = (round & 1) != 0;
        record.behind = (round & 2) != 0;
        record.amps = round;
        EXPECT_EQ(written(writer, "Channel", record), plainPublication("Channel", record));
        if ((round & 4) != 0) {
            EXPECT_EQ(written(writer, "Channel", plain), plainPublication("Channel", plain));
        }
    }
}

/// Holds a tree of its own and lends it to each publication.
class Lender : public TelvaneDataTypeBase
{
public:
    JsonTree own{cJSON_Parse(R"({"numbers": [1, 2.5, -3]})")};

    bool _packageData(cJSON* output) override
    {
        return cJSON_AddItemReferenceToObject(output, "lent", own.get()) != 0 &&
               TelvaneDataTypeBase::_packageData(output);
    }
    TelvaneDataTypeBase* BuildNewDataType() const override { return new Lender(); }
};

TEST(PublicationWriter, DoesNotChangeTreesThatItDoesNotOwn)
{
    PublicationWriter writer;
    Lender lender;
    const std::string expected = plainPublication("Channel", lender);
    EXPECT_EQ(written(writer, "Channel", lender), expected);
    EXPECT_EQ(written(writer, "Channel", lender), expected);
    const JsonText own(cJSON_PrintUnformatted(lender.own.get()));
    EXPECT_STREQ(own.get(), R"({"numbers":[1,2.5,-3]})");
}

/// A record of an application's own, with a nested one that packages a temporary.
class Wrapper : public TelvaneDataTypeBase
{
public:
    int number = 0;

    bool _packageData(cJSON* output) override
    {
        LogData temporary;
        temporary.log =
            "a temporary text that is gone when the publication is printed " + std::to_string(number);
        return _toJson("wrapped", temporary, output) && TelvaneDataTypeBase::_packageData(output);
    }
    TelvaneDataTypeBase* BuildNewDataType() const override { return new Wrapper(); }
};

TEST(PublicationWriter, CopiesTheValuesOfATemporaryRecord)
{
    PublicationWriter writer;
    Wrapper wrapper;
    for (wrapper.number = 0; wrapper.number < 3; ++wrapper.number) {
        EXPECT_EQ(written(writer, "Channel", wrapper), plainPublication("Channel", wrapper));
    }
}

class Failing : public TelvaneDataTypeBase
{
public:
    bool fail = true;

    bool _packageData(cJSON* output) override { return !fail && TelvaneDataTypeBase::_packageData(output); }
    TelvaneDataTypeBase* BuildNewDataType() const override { return new Failing(); }
};

TEST(PublicationWriter, ReportsARecordThatCannotBePackagedAndContinues)
{
    PublicationWriter writer;
    Failing record;
    const char* text = nullptr;
    EXPECT_EQ(writer.write("Channel", record, text), -1);
    record.fail = false;
    EXPECT_EQ(written(writer, "Channel", record), plainPublication("Channel", record));
    LogData log;
    EXPECT_EQ(written(writer, "Channel", log), plainPublication("Channel", log));
    record.fail = true;
    EXPECT_EQ(writer.write("Channel", record, text), -1);
    EXPECT_EQ(written(writer, "Channel", log), plainPublication("Channel", log));
}

/// A record that writes its own list and, at times, more.
class Hybrid : public TelvaneDataTypeBase
{
public:
    enum class Form
    {
        List,
        MemberAndList,
        ListAndMember,
        Member,
    };

    Form form = Form::List;
    int number = 0;

    TELVANE_RECORD(Hybrid, number)
};

const RecordTable& Hybrid::recordTable()
{
    static const RecordTable* const table = Hybrid().newRecordTable();
    return *table;
}

bool Hybrid::_packageData(cJSON* output)
{
    if (form == Form::MemberAndList || form == Form::Member) {
        _toJson("more", 10 + number, output);
    }
    if (form != Form::Member && !_packageFields(recordTable(), output)) {
        return false;
    }
    if (form == Form::ListAndMember) {
        _toJson("more", 20 + number, output);
    }
    return true;
}

bool Hybrid::_unpackageData(cJSON* input)
{
    return _unpackageFields(recordTable(), input);
}

TELVANE_DEFINE_RECORD_COPY(Hybrid, TelvaneDataTypeBase)

TEST(PublicationWriter, PrintsAllThatARecordWritesBesidesItsList)
{
    constexpr Hybrid::Form kForms[] = {Hybrid::Form::List, Hybrid::Form::MemberAndList,
                                       Hybrid::Form::ListAndMember, Hybrid::Form::Member};
    for (const Hybrid::Form first : kForms) {
        for (const Hybrid::Form second : kForms) {
            PublicationWriter writer;
            Hybrid record;
            for (const Hybrid::Form form : {first, first, second, first, second, second}) {
                record.form = form;
                ++record.number;
                EXPECT_EQ(written(writer, "Channel", record), plainPublication("Channel", record));
            }
        }
    }
}

/// A value that may run out of memory while it is packaged.
class GreedyValue : public ValueType
{
public:
    bool greedy = false;

    bool _packageData(cJSON* output) override
    {
        if (greedy) {
            throw std::bad_alloc();
        }
        return ValueType::_packageData(output);
    }
};

class HolderOfAGreedyValue : public TelvaneDataTypeBase
{
public:
    int before = 1;
    GreedyValue value;
    int behind = 2;

    TELVANE_RECORD(HolderOfAGreedyValue, before, value, behind)
};

TELVANE_DEFINE_RECORD(HolderOfAGreedyValue)

TEST(PublicationWriter, ReportsARecordThatRunsOutOfMemoryAndContinues)
{
    PublicationWriter writer;
    HolderOfAGreedyValue holder;
    const char* text = nullptr;
    for (const bool greedy : {true, false, true, false, false, true, true, false}) {
        holder.value.greedy = greedy;
        ++holder.behind;
        if (greedy) {
            EXPECT_EQ(writer.write("Channel", holder, text), -ENOMEM);
        } else {
            EXPECT_EQ(written(writer, "Channel", holder), plainPublication("Channel", holder));
        }
    }
}

/// The defaults of another record, and what may be in its way.
class DerivedValue : public ValueType
{
public:
    DerivedValue() { Value = 77; }
    TELVANE_DERIVED_RECORD(DerivedValue)
};

TELVANE_DEFINE_DERIVED_RECORD(DerivedValue, ValueType)

class ReadsByItself : public ValueType
{
public:
    bool _unpackageData(cJSON* input) override { return input != nullptr; }
    TELVANE_DERIVED_RECORD(ReadsByItself)
};

TELVANE_DEFINE_DERIVED_RECORD(ReadsByItself, ValueType)

class DerivedTalker : public Talkative
{
public:
    TELVANE_DERIVED_RECORD(DerivedTalker)
};

TELVANE_DEFINE_DERIVED_RECORD(DerivedTalker, Talkative)

class TwiceDerived : public DerivedValue
{
public:
    TELVANE_DERIVED_RECORD(TwiceDerived)
};

TELVANE_DEFINE_DERIVED_RECORD(TwiceDerived, DerivedValue)

TEST(PublicationWriter, WritesOnlyRecordsStraightThatAreNothingButTheirList)
{
    EXPECT_EQ(ValueType()._recordTable(), &ValueType::recordTable());
    EXPECT_EQ(DerivedValue()._recordTable(), &ValueType::recordTable());
    EXPECT_EQ(DateTime()._recordTable(), &DateTime::recordTable());
    EXPECT_EQ(ReadsByItself()._recordTable(), nullptr);
    EXPECT_EQ(DerivedTalker()._recordTable(), nullptr);
    EXPECT_EQ(TwiceDerived()._recordTable(), nullptr);
    EXPECT_EQ(Talkative()._recordTable(), nullptr);
    EXPECT_EQ(Hybrid()._recordTable(), nullptr);
    EXPECT_EQ(GreedyValue()._recordTable(), nullptr);
    EXPECT_EQ(Failing()._recordTable(), nullptr);
    for (const RecordClass& entry : RecordCatalogue::classes()) {
        const std::unique_ptr<TelvaneDataTypeBase> record(entry.build());
        EXPECT_EQ(record->_recordTable(), &entry.table()) << entry.name;
    }
}

TEST(PublicationWriter, WritesRecordsOfAllSorts)
{
    PublicationWriter writer;
    DerivedValue derived;
    ReadsByItself reads;
    DerivedTalker talker;
    TwiceDerived twice;
    DateTime time = DateTime::Now();
    for (TelvaneDataTypeBase* const record :
         std::initializer_list<TelvaneDataTypeBase*>{&derived, &reads, &talker, &twice, &time}) {
        EXPECT_EQ(written(writer, "Channel", *record), plainPublication("Channel", *record));
    }
}

/// A value that writes itself in its own way, or not at all.
class MoodyValue : public TelvaneDataTypeBase
{
public:
    enum class Mood
    {
        Object,
        Array,
        Raw,
        Fails,
        RunsOut,
    };
    Mood mood = Mood::Object;

    bool _packageData(cJSON* output) override
    {
        switch (mood) {
        case Mood::Object:
            cJSON_AddItemToObject(output, "an \"object\"", cJSON_Parse(R"({"a":{},"b":[[],{"c":null}]})"));
            break;
        case Mood::Array:
            output->type = cJSON_Array;
            cJSON_AddItemToArray(output, cJSON_Parse(R"({"a":[1,2.5,{"b":"c"}]})"));
            break;
        case Mood::Raw:
            cJSON_AddRawToObject(output, "raw", "as it is");
            break;
        case Mood::Fails:
            return false;
        case Mood::RunsOut:
            throw std::bad_alloc();
        }
        return TelvaneDataTypeBase::_packageData(output);
    }
    TelvaneDataTypeBase* BuildNewDataType() const override { return new MoodyValue(); }
    static const RecordTable& recordTable()
    {
        static const auto* const table = new RecordTable("MoodyValue");
        return *table;
    }
};

class MoodyElement : public TelvaneDataTypeBase
{
public:
    MoodyValue value;

    TELVANE_RECORD(MoodyElement, value)
};

TELVANE_DEFINE_RECORD(MoodyElement)

class MoodyRecord : public TelvaneDataTypeBase
{
public:
    MoodyValue value;
    std::vector<MoodyElement> elements;
    std::vector<MoodyValue> values;
    MoodyElement array[2];

    TELVANE_RECORD(MoodyRecord, value, elements, values, array)
};

TELVANE_DEFINE_RECORD(MoodyRecord)

TEST(PublicationWriter, WritesNestedRecordsWithAFormOfTheirOwnAndReportsThoseThatFail)
{
    using Testing::diagnosticsOf;
    std::mt19937 random(84);
    const auto anyMood = [&random] {
        return random() % 3 != 0 ? static_cast<MoodyValue::Mood>(random() % 3)
                                 : static_cast<MoodyValue::Mood>(random() % 5);
    };
    PublicationWriter writer;
    int packaged = 0;
    int failed = 0;
    for (int round = 0; round < 400; ++round) {
        MoodyRecord record;
        record.elements.resize(random() % 4);
        record.values.resize(random() % 4);
        for (MoodyElement& element : record.elements) {
            element.value.mood = anyMood();
        }
        for (MoodyValue& value : record.values) {
            value.mood = anyMood();
        }
        const bool mayFail = random() % 4 == 0;
        record.value.mood = mayFail ? anyMood() : MoodyValue::Mood::Array;
        record.array[1].value.mood = mayFail ? anyMood() : MoodyValue::Mood::Raw;

        std::string expected;
        std::string actual;
        const auto expectedLines = diagnosticsOf([&] { expected = plainPublication("Channel", record); });
        const auto actualLines = diagnosticsOf([&] { actual = written(writer, "Channel", record); });
        ASSERT_EQ(actual, expected);
        ASSERT_EQ(actualLines.error, expectedLines.error);
        ASSERT_EQ(actualLines.output, expectedLines.output);
        ++(expected.empty() ? failed : packaged);
    }
    EXPECT_GT(packaged, 50);
    EXPECT_GT(failed, 10);
}

TEST(PublicationWriter, PrintsTextsLongerThanItsBuffers)
{
    PublicationWriter writer;
    LogData log;
    for (const std::size_t size : {10U, 500U, 5000U, 20'000U, 100'000U, 10U, 300'000U}) {
        log.log = std::string(size, '"');
        EXPECT_EQ(written(writer, "LogData", log), plainPublication("LogData", log));
    }
}

TEST(PublicationWriter, CutsAtTheLimitWhereverItFalls)
{
    PublicationWriter writer;
    LogData log;
    const std::size_t rest = plainPublication("Channel", log).size();
    ASSERT_LT(rest, 2000U);
    for (std::size_t size = kMessageLimit - rest - 20; size <= kMessageLimit;
         size += size < 15'000 ? 101 : 1) {
        log.log.assign(size, 'x');
        ASSERT_EQ(written(writer, "Channel", log), plainPublication("Channel", log)) << size;
    }
}

TEST(PublicationWriter, EscapesEveryCharacterAsTheLibraryDoes)
{
    PublicationWriter writer;
    LogData log;
    for (int first = 0; first < 256; ++first) {
        log.log = "before";
        log.log += static_cast<char>(first);
        log._id = log.log + "\xFF after";
        EXPECT_EQ(written(writer, log.log, log), plainPublication(log.log, log)) << first;
    }
}

} // namespace
} // namespace Telvane
