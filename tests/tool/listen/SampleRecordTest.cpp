// Samples that are read and printed directly, compared with samples that are decoded as any other record.

#include "listen/SampleRecord.h"

#include "helpers/BusTestSupport.h"
#include "listen/RecordFormatter.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace TelvaneTool
{
namespace
{

using Telvane::RecordCatalogue;
using Telvane::TelvaneDataTypeBase;
using Telvane::Testing::RawPeer;
using Telvane::Testing::RunningServer;

const std::string kChannel = "WeldTraceData";
constexpr Nanoseconds kMoment = 1'704'164'645'000'901'999;

RecordFormatter formatterOf(const std::vector<std::string>& fields)
{
    RecordFormatter::Settings settings;
    settings.csvFields = fields;
    return RecordFormatter(settings);
}

RecordFormatter formatterOfAll()
{
    return formatterOf({"sequence", "timestamp", "data.amps", "DATA.Volts", "data[wfs]", "data.gas",
                        "data.power", "data.motor", "messageSerial"});
}

std::string printDecoded(RecordFormatter& formatter, const DecodedRecord& record, int sequence)
{
    return record.decodeError().empty()
               ? formatter.print({kChannel, sequence, record.text(), nullptr, kMoment, 0}) +
                     (record.hadInvalidText() ? "invalid text" : "")
               : record.decodeError();
}

std::string printSample(RecordFormatter& formatter, SampleRecord& record, int sequence)
{
    std::string line;
    const bool printed = record.isRead() && formatter.printSample(record, kChannel, sequence, kMoment, line);
    return printed ? line : printDecoded(formatter, record.decoded(), sequence);
}

/// The lines of a subscriber.
class Lines
{
public:
    void add(const std::string& line, bool direct)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_lines.push_back(line);
        m_direct += direct ? 1 : 0;
        m_added.notify_all();
    }

    std::vector<std::string> await(std::size_t count)
    {
        std::unique_lock<std::mutex> guard(m_lock);
        m_added.wait_for(guard, std::chrono::seconds(60), [&] { return m_lines.size() >= count; });
        return m_lines;
    }

    std::size_t direct()
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_direct;
    }

private:
    std::mutex m_lock;
    std::condition_variable m_added;
    std::vector<std::string> m_lines;
    std::size_t m_direct = 0;
};

struct Parts
{
    std::string sequence = "7";
    std::string timestamp = "\"/Date(1704164645678)/\"";
    std::string amps = "176.25";
    std::string more; ///< after the last member, with its comma
};

/// A publication with the layout of the library.
std::string publication(const Parts& parts)
{
    return "{\n\t\"header\":\t\"WeldTraceData\",\n\t\"payload\":\t{\n\t\t\"sequence\":\t" + parts.sequence +
           ",\n\t\t\"timestamp\":\t" + parts.timestamp + ",\n\t\t\"data\":\t{\n\t\t\t\"amps\":\t" +
           parts.amps +
           ",\n\t\t\t\"volts\":\t25.1,\n\t\t\t\"wfs\":\t0,\n\t\t\t\"gas\":\t1e-05,\n\t\t\t\"power\":\t4423."
           "875,"
           "\n\t\t\t\"motor\":\t0.001\n\t\t},\n\t\t\"messageSerial\":\t-1" +
           parts.more + "\n\t}\n}";
}

std::vector<std::string> publications()
{
    std::vector<std::string> texts;
    const auto add = [&texts](std::string Parts::*part, const std::vector<std::string>& values) {
        for (const std::string& value : values) {
            Parts parts;
            parts.*part = value;
            texts.push_back(publication(parts));
        }
    };
    add(&Parts::amps, {"0",
                       "-0",
                       "0.1",
                       "-12.25",
                       "100",
                       "1e15",
                       "123456789012345.6",
                       "0.30000000000000004",
                       "1e-4",
                       "9.9e-5",
                       "5e-324",
                       "2147483648",
                       "1.50",
                       "1E2",
                       "1e307",
                       "1e308",
                       "1.7976931348623157e308",
                       "-1.7976931348623157e308",
                       "1e999",
                       "null",
                       "\"1\"",
                       "true",
                       "[1]",
                       "24.399999999999999"});
    add(&Parts::sequence, {"0", "-5", "1.5", "2147483647", "2147483648", "1e3", "007", "\"1\"", "null"});
    add(&Parts::timestamp, {"\"/Date(0)/\"", "\"/Date(-1)/\"", "\"/Date(007)/\"", "\"1704164645678\"",
                            "\"/Date(9223372036854775807)/\"", "\"/Date(99999999999999999999)/\"", "\"soon\"",
                            "\"\"", "5", "null", "\"/Date(5)\\/\""});
    add(&Parts::more, {",\n\t\t\"_id\":\t\"\"", ",\n\t\t\"_id\":\t\"abc\"", ",\n\t\t\"_id\":\t\"\xFF\"",
                       ",\n\t\t\"_id\":\t\"a\\u0001\"", ",\n\t\t\"_id\":\t5", ",\n\t\t\"_sequence_tag\":\t9",
                       ",\n\t\t\"_sequence_tag\":\t-9", ",\n\t\t\"other\":\t1", ",\n\t\t\"sequence\":\t1",
                       ",\n\t\t\"x\":\t{}"});
    texts.push_back(R"({"header":"WeldTraceData","payload":{}})");
    texts.push_back(R"({"header":"WeldTraceData","payload":[]})");
    texts.push_back(
        R"({"header":"WeldTraceData","payload":{"messageSerial":2,"SEQUENCE":3,"data":{"volts":1,"amps":2,)"
        R"("wfs":3,"gas":4,"power":5,"motor":6},"timestamp":"/Date(1)/"}})");
    texts.push_back(publication({}));
    return texts;
}

TEST(SampleRecord, IsPrintedLikeARecordThatIsDecodedFromATree)
{
    RunningServer running;
    RecordFormatter formatter = formatterOfAll();
    ASSERT_TRUE(formatter.printsSamples());
    RecordFormatter otherFormatter = formatterOfAll();
    Lines lines;
    Lines expected;
    Telvane::EventClient client;
    Telvane::EventClient otherClient;
    ASSERT_EQ(client.Connect(running.path), 0);
    ASSERT_EQ(otherClient.Connect(running.path), 0);
    ASSERT_EQ(client.Subscribe(
                  kChannel,
                  [&](void*, TelvaneDataTypeBase* received, int sequence, void*) {
                      auto& record = static_cast<SampleRecord&>(*received);
                      lines.add(printSample(formatter, record, sequence), record.isRead());
                  },
                  SampleRecord(), nullptr),
              0);
    ASSERT_EQ(otherClient.Subscribe(
                  kChannel,
                  [&](void*, TelvaneDataTypeBase* received, int sequence, void*) {
                      const auto& record = static_cast<DecodedRecord&>(*received);
                      expected.add(printDecoded(otherFormatter, record, sequence), false);
                  },
                  DecodedRecord(RecordCatalogue::find(kChannel)), nullptr),
              0);
    const std::vector<std::string> texts = publications();
    const RawPeer publisher = running.connect();
    for (std::size_t i = 0; i < texts.size(); ++i) {
        publisher.send(texts[i]);
        EXPECT_EQ(lines.await(i + 1), expected.await(i + 1)) << texts[i]; // one at a time: none is missed
    }
    EXPECT_EQ(expected.await(texts.size()).size(), texts.size());
    EXPECT_GT(lines.direct(), texts.size() / 3);
    EXPECT_LT(lines.direct(), texts.size());
    client.Disconnect();
    otherClient.Disconnect();
}

TEST(SampleRecord, IsPrintedWithTheNumbersOfItsJsonText)
{
    RecordFormatter formatter = formatterOfAll();
    std::mt19937_64 random(1);
    const auto anyNumber = [&random] {
        const std::uint64_t bits = random();
        double number = 0.0;
        switch (bits % 4) {
        case 0:
            std::memcpy(&number, &bits, sizeof number);
            return number;
        case 1:
            return static_cast<double>(bits >> 4 & 0xFFFFFF) / 100;
        case 2:
            return static_cast<double>(static_cast<float>(bits >> 4 & 0xFFFFFF) * 0.01013F);
        default:
            return -static_cast<double>(bits >> 4) / 1e6;
        }
    };
    for (int i = 0; i < 5000; ++i) {
        SampleRecord sample;
        for (double* const member : {&sample.data.amps, &sample.data.volts, &sample.data.wfs,
                                     &sample.data.gas, &sample.data.power, &sample.data.motor}) {
            *member = anyNumber();
        }
        cJSON* packaged = nullptr;
        ASSERT_EQ(sample.Package(&packaged), 0);
        const JsonTree payload(packaged);
        const std::string text = printJson(payload.get());
        ASSERT_EQ(printSample(formatter, sample, i),
                  formatter.print({kChannel, i, text, nullptr, kMoment, 0}));
    }
}

TEST(SampleRecord, KeepsWhatItHasReadAsACopy)
{
    SampleRecord sample;
    sample.data.amps = 5;
    SampleRecord copied;
    EXPECT_EQ(copied.copy(&sample), 0);
    EXPECT_TRUE(copied.isRead());
    EXPECT_EQ(copied.data.amps, 5);

    const JsonTree payload(cJSON_CreateNumber(1));
    EXPECT_EQ(sample.Unpackage(payload.get()), 0);
    EXPECT_EQ(copied.copy(&sample), 0);
    EXPECT_FALSE(copied.isRead());
    EXPECT_EQ(copied.decoded().decodeError(), "expected an object (WeldTraceData), got a number");

    Telvane::WeldTraceData other;
    EXPECT_EQ(copied.copy(&other), -EINVAL);
}

TEST(SampleColumns, AreSingleValuesOfASample)
{
    EXPECT_TRUE(formatterOf({"data.amps"}).printsSamples());
    EXPECT_TRUE(formatterOf({"Timestamp", "messageserial"}).printsSamples());
    for (const char* field :
         {"data", "amps", "data.amps.x", "_id", "data.none", "timestamp.x", "sequence[0]"}) {
        EXPECT_FALSE(formatterOf({"data.amps", field}).printsSamples()) << field;
    }
    EXPECT_FALSE(formatterOf({}).printsSamples());
    RecordFormatter::Settings settings;
    settings.csvFields = {"data.amps"};
    EXPECT_EQ(settings.filters.emplace_back().read("data.amps>100"), "");
    EXPECT_FALSE(RecordFormatter(settings).printsSamples());
}

} // namespace
} // namespace TelvaneTool
