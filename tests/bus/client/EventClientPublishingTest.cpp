// What a client sends for a record is what the JSON library prints for it. It does not depend on what was published
// before.

#include <Telvane/Telvane.h>

#include "helpers/BusTestSupport.h"
#include "helpers/JsonTestSupport.h"

#include <random>
#include <set>
#include <string>
#include <vector>

namespace Telvane
{
namespace
{

using namespace Testing;

class EventClientPublishing : public ClientOfRawServer
{
protected:
    void expectPublished(TelvaneDataTypeBase& record, const std::string& channel = "Channel")
    {
        cJSON* payload = nullptr;
        ASSERT_EQ(record.Package(&payload), 0);
        const Tree expected = emptyObject();
        cJSON_AddStringToObject(expected.get(), "header", channel.c_str());
        cJSON_AddItemToObject(expected.get(), "payload", payload);
        ASSERT_EQ(client.Publish(channel, record), 0);
        const std::string text = printed(expected);
        if (text.size() < kMessageLimit) {
            ASSERT_EQ(peer.receive(), text);
        } else {
            ASSERT_EQ(peer.receive(), text.substr(0, kMessageLimit));
        }
    }
};

TEST_F(EventClientPublishing, PrintsAsTheJsonLibraryDoes)
{
    WeldTriggerStart start;
    start.FeederSide = "\"left\" \\ / \b\f\n\r\t \x01\x1F\x7F \xE2\x82\xAC \xFF";
    start.timestamp.time.tv_sec = 1'700'000'000;
    start.data._id = "nested";
    start.generate_id();
    for (const double value :
         {0.0, -0.0, 0.1, 1.0 / 3, 24.75, 1e15, 1e16, 1e-7, 5e-324, 1.7976931348623157e308,
          123456789012345678.0, 2147483648.0, -2147483649.0, 99999.99999999999}) {
        start.settings.CommandVoltage.Value = value;
        start.tag = static_cast<int>(value > 1e9 ? -7 : value);
        for (const char* const channel : {"WeldTriggerStart", "\"quoted\"\n\xC2\xB5"}) {
            expectPublished(start, channel);
        }
    }
}

/// Gives every value of a packaged record another one, and objects base members now and then.
void disturb(cJSON* tree, std::mt19937& random)
{
    for (cJSON* item = tree->child; item != nullptr; item = item->next) {
        if (cJSON_IsNumber(item) != 0) {
            cJSON_SetNumberValue(item, static_cast<double>(static_cast<int>(random()) >> (random() % 31)));
        } else if (cJSON_IsBool(item) != 0) {
            item->type = (item->type & ~0xFF) | (random() % 2 == 0 ? cJSON_True : cJSON_False);
        } else if (cJSON_IsString(item) != 0) {
            const bool isTime = std::string(item->valuestring).rfind("/Date(", 0) == 0;
            const std::string text = isTime
                                         ? "/Date(" + std::to_string(random()) + ")/"
                                         : std::string(random() % 40, static_cast<char>('!' + random() % 90));
            cJSON_SetValuestring(item, text.c_str());
        } else {
            disturb(item, random);
        }
    }
    if (cJSON_IsObject(tree) != 0 && random() % 4 == 0) {
        cJSON_AddStringToObject(tree, "_id", "some id");
    }
    if (cJSON_IsObject(tree) != 0 && random() % 4 == 0) {
        cJSON_AddNumberToObject(tree, "_sequence_tag", static_cast<int>(random() % 5) - 1);
    }
}

/// A record of the class with random values, and vectors of random lengths.
std::unique_ptr<TelvaneDataTypeBase> randomRecord(const RecordClass& recordClass, std::mt19937& random)
{
    std::unique_ptr<TelvaneDataTypeBase> record(recordClass.build());
    cJSON* packaged = nullptr;
    EXPECT_EQ(record->Package(&packaged), 0);
    const Tree tree(packaged);
    for (const RecordField& field : recordClass.table().fields()) {
        if (field.kind == FieldKind::RecordVector) {
            const RecordClass* const elements = RecordCatalogue::find(field.nested->table().className());
            cJSON* const vector = cJSON_GetObjectItem(packaged, field.key);
            for (std::size_t i = random() % 5; i > 0; --i) {
                const std::unique_ptr<TelvaneDataTypeBase> element(elements->build());
                cJSON* item = nullptr;
                EXPECT_EQ(element->Package(&item), 0);
                cJSON_AddItemToArray(vector, item);
            }
        }
    }
    disturb(packaged, random);
    EXPECT_EQ(record->Unpackage(packaged), 0) << compact(packaged);
    return record;
}

TEST_F(EventClientPublishing, PrintsRecordsOfEveryClassInAnyOrder)
{
    std::mt19937 random(1911);
    const auto& classes = RecordCatalogue::classes();
    for (const RecordClass& recordClass : classes) {
        for (int times = 0; times < 4; ++times) {
            if (std::string(recordClass.name) != "DateTime") {
                ASSERT_NO_FATAL_FAILURE(expectPublished(*randomRecord(recordClass, random)))
                    << recordClass.name;
            }
        }
    }
    for (int times = 0; times < 1000; ++times) {
        const RecordClass& recordClass = classes[random() % classes.size()];
        if (std::string(recordClass.name) != "DateTime") {
            ASSERT_NO_FATAL_FAILURE(expectPublished(*randomRecord(recordClass, random))) << recordClass.name;
        }
    }
}

TEST_F(EventClientPublishing, PrintsATimeStampAsAText)
{
    DateTime time;
    time.time.tv_sec = 5;
    for (int times = 0; times < 3; ++times) {
        EXPECT_EQ(client.Publish("Time", time), 0);
        EXPECT_EQ(peer.receive(), "{\n\t\"header\":\t\"Time\",\n\t\"payload\":\t\"/Date(5000)/\"\n}");
    }
}

/// A value that writes more than the list of its base.
class HintedValue : public ValueType
{
public:
    std::string hint = "hint";

    bool _packageData(cJSON* output) override
    {
        return _toJson("hint", hint, output) && ValueType::_packageData(output);
    }
};

class HolderOfHintedValues : public TelvaneDataTypeBase
{
public:
    int before = 1;
    HintedValue single;
    std::vector<HintedValue> several;
    int after = 2;

    TELVANE_RECORD(HolderOfHintedValues, before, single, several, after)
};

TELVANE_DEFINE_RECORD(HolderOfHintedValues)

TEST_F(EventClientPublishing, PrintsNestedRecordsThatHaveAFormOfTheirOwn)
{
    HolderOfHintedValues holder;
    for (int times = 0; times < 4; ++times) {
        holder.single.Value = times;
        holder.single.hint = "hint " + std::to_string(times);
        holder.several.resize(static_cast<std::size_t>(times) % 3);
        ASSERT_NO_FATAL_FAILURE(expectPublished(holder)) << times;
    }
}

/// A record that publishes another while it is packaged.
class Announcer : public DataStatus
{
public:
    explicit Announcer(EventClient& client) : m_client(client) {}

    bool _packageData(cJSON* output) override
    {
        DataStatus other;
        other.ttl = ttl + 1;
        EXPECT_EQ(m_client.Publish("Other", other), 0);
        return DataStatus::_packageData(output);
    }

private:
    EventClient& m_client;
};

TEST_F(EventClientPublishing, MayHappenWhileARecordIsPackaged)
{
    Announcer announcer(client);
    for (announcer.ttl = 10; announcer.ttl < 40; announcer.ttl += 10) {
        ASSERT_EQ(client.Publish("Own", announcer), 0);
        EXPECT_EQ(peer.receive(),
                  printedPublication("Other", "\"ttl\":\t" + std::to_string(announcer.ttl + 1)));
        EXPECT_EQ(peer.receive(), printedPublication("Own", "\"ttl\":\t" + std::to_string(announcer.ttl)));
    }
}

/// Can or cannot be written.
class Moody : public UnitValuePair
{
public:
    bool writable = true;
    bool _packageData(cJSON* output) override { return UnitValuePair::_packageData(output) && writable; }
};

TEST_F(EventClientPublishing, SendsNothingOfARecordThatCannotBePackagedAndContinues)
{
    Moody record;
    UnitValuePair plain;
    for (int times = 0; times < 4; ++times) {
        record.writable = times % 2 == 1;
        record.Value = times;
        if (record.writable) {
            expectPublished(record);
        } else {
            EXPECT_EQ(client.Publish("Channel", record), -1);
            expectNothingElseSent();
        }
        plain.Value = 10 + times;
        expectPublished(plain);
    }
}

TEST_F(EventClientPublishing, FromSeveralThreadsPrintsEachRecordAsItIs)
{
    constexpr int kThreads = 4;
    constexpr int kMessages = 100;
    std::multiset<std::string> expected;
    JoiningThreads threads;
    for (int number = 0; number < kThreads; ++number) {
        const std::string unit(1, static_cast<char>('a' + number));
        for (int value = 0; value < kMessages; ++value) {
            expected.insert(printedPublication("Channel", "\"Unit\":\t\"" + unit + "\",\n\t\t\"Value\":\t" +
                                                              std::to_string(value)));
        }
        threads.start([this, unit] {
            UnitValuePair record;
            record.Unit = unit;
            for (record.Value = 0; record.Value < kMessages; ++record.Value) {
                EXPECT_EQ(client.Publish("Channel", record), 0);
            }
        });
    }
    for (int message = 0; message < kThreads * kMessages; ++message) {
        const auto found = expected.find(peer.receive());
        ASSERT_NE(found, expected.end());
        expected.erase(found);
    }
}

} // namespace
} // namespace Telvane
