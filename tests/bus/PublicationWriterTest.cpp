#include "bus/PublicationWriter.h"

#include "helpers/TestPaths.h"
#include "support/JsonTree.h"
#include "transport/Envelope.h"

#include <Telvane/Telvane.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

namespace Telvane
{
namespace
{

/// The publication as the JSON library alone builds and prints it.
std::string plainPublication(const std::string& channel, TelvaneDataTypeBase& record)
{
    cJSON* payload = nullptr;
    if (record.Package(&payload) != 0) {
        cJSON_Delete(payload);
        return "";
    }
    const JsonTree message(cJSON_CreateObject());
    cJSON_AddStringToObject(message.get(), "header", channel.c_str());
    cJSON_AddItemToObject(message.get(), "payload", payload);
    const JsonText text(cJSON_Print(message.get()));
    return text.get();
}

std::string written(PublicationWriter& writer, const std::string& channel, TelvaneDataTypeBase& record)
{
    const char* text = nullptr;
    if (writer.write(channel, record, text) != 0) {
        return "";
    }
    EXPECT_EQ(std::string(text).size(), static_cast<std::size_t>(writer.length()));
    return text;
}

std::string goldenText(const std::string& className, const std::string& form)
{
    std::ifstream file(sourceDirectory() + "/tests/golden/records/" + className + "." + form + ".json");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> classNames()
{
    std::vector<std::string> names;
    for (const RecordClass& entry : RecordCatalogue::classes()) {
        names.emplace_back(entry.name);
    }
    return names;
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

TEST_P(PublicationOfEachClass, ReadsAsTheJsonLibraryPrintsItWhateverWentBefore)
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

TEST(PublicationWriter, LeavesRecordsWithAFormOfTheirOwnToThemselves)
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

TEST(PublicationWriter, LeavesTreesThatAreOnlyLentToItAlone)
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

TEST(PublicationWriter, CopiesWhatATemporaryRecordSays)
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

TEST(PublicationWriter, TellsOfARecordThatCannotBePackagedAndGoesOn)
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
    if (form != Form::Member && !_packageFields(recordTable(), typeid(Hybrid), output)) {
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

TEST(PublicationWriter, TellsOfARecordThatRunsOutOfMemoryAndGoesOn)
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

TEST(PublicationWriter, PrintsTextsLongerThanItsBuffers)
{
    PublicationWriter writer;
    LogData log;
    for (const std::size_t size : {10U, 5000U, 20'000U, 100'000U, 10U, 300'000U}) {
        log.log = std::string(size, '"');
        EXPECT_EQ(written(writer, "LogData", log), plainPublication("LogData", log));
    }
}

} // namespace
} // namespace Telvane
