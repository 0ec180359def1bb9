// One client of the stream without a network: what it is sent, in which order, and what a slow client is spared.

#include "common/support/Json.h"
#include "telvane-web/live/StreamClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using Telvane::WeldTraceData;
using Telvane::WeldTriggerEnd;
using Telvane::WeldTriggerStart;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct Event
{
    std::string type;
    std::string id;
    std::string data;
    JsonTree json;
};

/// Reads a stream as a browser does.
std::vector<Event> eventsIn(const std::string& text)
{
    std::vector<Event> events;
    Event event;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        const std::string line = text.substr(begin, end - begin);
        begin = end + 1;
        if (line.empty() && !event.type.empty()) {
            std::string error;
            event.json = parseJson(event.data, error);
            EXPECT_EQ(error, "") << event.data;
            events.push_back(std::move(event));
            event = {};
        } else if (line.rfind("event: ", 0) == 0) {
            event.type = line.substr(7);
        } else if (line.rfind("id: ", 0) == 0) {
            event.id = line.substr(4);
        } else if (line.rfind("data: ", 0) == 0) {
            event.data = line.substr(6);
        }
    }
    return events;
}

std::vector<std::string> typesOf(const std::vector<Event>& events)
{
    std::vector<std::string> types;
    types.reserve(events.size());
    for (const Event& event : events) {
        types.push_back(event.type);
    }
    return types;
}

double number(const cJSON* object, const char* key)
{
    return cJSON_GetNumberValue(cJSON_GetObjectItemCaseSensitive(object, key));
}

class LiveStream : public testing::Test
{
protected:
    void start(int period = 500)
    {
        WeldTriggerStart record;
        record.tag = 12;
        record.samplePeriodus = period;
        record.data.amps = "A";
        m_live.take(record, m_now, kWall);
        m_next = 0;
    }

    void sample(double amps) { sampleAt(m_next++, amps); }
    void sampleAt(int sequence, double amps)
    {
        WeldTraceData record;
        record.sequence = sequence;
        record.data.amps = amps;
        record.data.volts = 20.0;
        m_live.take(record, m_now, kWall);
    }

    std::vector<Event> next(StreamClient& client) { return eventsIn(client.next(m_live, m_now)); }
    /// \return all events up to now
    std::vector<Event> all(StreamClient& client)
    {
        std::vector<Event> events;
        for (;;) {
            std::vector<Event> more = next(client);
            if (more.empty()) {
                return events;
            }
            std::move(more.begin(), more.end(), std::back_inserter(events));
        }
    }

    static constexpr Nanoseconds kWall = 1'700'000'000 * kSecond;
    LiveWeld m_live{kWall};
    Nanoseconds m_now = 100 * kSecond;
    int m_next = 0;
    std::string m_lastPace;
};

TEST_F(LiveStream, BeginsWithTheStateAndTheColumnsSoFar)
{
    start();
    for (int i = 0; i < 300; ++i) {
        sample(100.0 + i);
    }
    StreamClient client({}, "{}");
    const std::vector<Event> events = all(client);
    EXPECT_THAT(typesOf(events), ElementsAre("hello", "state", "columns", "columns", "columns"));
    EXPECT_THAT(events[1].data, HasSubstr(R"("state":"arc")"));
    EXPECT_THAT(events[1].data, HasSubstr(R"("tag":12)"));
    EXPECT_EQ(number(events[3].json.get(), "from"), 128);
    const cJSON* const columns = cJSON_GetObjectItem(events[4].json.get(), "columns");
    EXPECT_EQ(cJSON_GetArraySize(columns), 300 - 256);
    const cJSON* const last = cJSON_GetArrayItem(columns, 300 - 256 - 1);
    EXPECT_EQ(cJSON_GetArrayItem(last, 0)->valuedouble, 1.0) << "samples";
    EXPECT_EQ(cJSON_GetArrayItem(last, 2)->valuedouble, 399.0) << "mean current";
}

TEST_F(LiveStream, SendsOnlyTheNewestColumnAgain)
{
    start();
    sample(1.0);
    sample(2.0);
    StreamClient client({}, "{}");
    all(client);
    m_now += kSecond / 10;
    EXPECT_THAT(next(client), IsEmpty()) << "nothing has changed";
    sample(3.0);
    const std::vector<Event> events = next(client);
    ASSERT_THAT(typesOf(events), ElementsAre("columns"));
    EXPECT_EQ(number(events[0].json.get(), "from"), 1);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(events[0].json.get(), "columns")), 2);
}

TEST_F(LiveStream, NeverSendsMoreColumnsThanThePageDraws)
{
    start();
    StreamClient::Settings settings;
    settings.columns = 64;
    StreamClient client(settings, "{}");
    std::vector<double> sums(64);
    unsigned level = 0;
    for (int i = 0; i < 10'000; ++i) {
        sample(100.0 + i % 7);
        m_now += kMillisecond / 2;
        for (const Event& event : next(client)) {
            if (event.type == "columns") {
                const double from = number(event.json.get(), "from");
                const int count = cJSON_GetArraySize(cJSON_GetObjectItem(event.json.get(), "columns"));
                ASSERT_LE(from + count, 64.0);
                ASSERT_GE(number(event.json.get(), "level"), level);
                level = static_cast<unsigned>(number(event.json.get(), "level"));
            }
        }
    }
    EXPECT_EQ(level, 8U) << "256 samples in a column";
}

TEST_F(LiveStream, KeepsItsPaceBelowThirtyUpdatesASecond)
{
    start();
    StreamClient client({}, "{}");
    int updates = 0;
    for (int i = 0; i < 2000; ++i) {
        sample(100.0);
        m_now += kMillisecond / 2;
        updates += client.next(m_live, m_now).empty() ? 0 : 1;
    }
    EXPECT_LE(updates, 31);
    EXPECT_GE(updates, 25);
}

TEST_F(LiveStream, SendsChangesOfTheStateAndErrorsBeforeSamples)
{
    start();
    StreamClient client({}, "{}");
    all(client);
    m_now += kSecond;
    sample(1.0);
    m_live.takeError("TelvaneError", "", "gas is low", kWall);
    m_live.take(WeldTriggerEnd(), kWall);
    EXPECT_THAT(typesOf(next(client)), ElementsAre("fault", "state", "columns"));
}

TEST_F(LiveStream, SendsEachChangeToAClientThatWasAway)
{
    StreamClient client({}, "{}");
    all(client);
    for (int i = 0; i < 20; ++i) {
        start();
        sample(1.0);
        m_live.take(WeldTriggerEnd(), kWall);
    }
    m_now += kSecond;
    const std::vector<Event> events = all(client);
    EXPECT_EQ(
        std::count_if(events.begin(), events.end(), [](const Event& event) { return event.type == "state"; }),
        40);
    EXPECT_EQ(std::count_if(events.begin(), events.end(),
                            [](const Event& event) { return event.type == "columns"; }),
              1)
        << "of the samples, only the present weld";
    EXPECT_FALSE(client.missedEvents(m_live));
}

TEST_F(LiveStream, EndsAClientThatWouldMissAChange)
{
    StreamClient client({}, "{}");
    all(client);
    for (std::size_t i = 0; i < EventLog::kMaxEntries; ++i) {
        m_live.takeError("TelvaneError", "", "again", kWall);
    }
    EXPECT_FALSE(client.missedEvents(m_live));
    m_live.takeError("TelvaneError", "", "one more", kWall);
    EXPECT_TRUE(client.missedEvents(m_live));
}

TEST_F(LiveStream, NeedsNoMoreMemoryForASlowClient)
{
    start();
    StreamClient client({}, "{}");
    all(client);
    for (int i = 0; i < 1'000'000; ++i) {
        sample(100.0);
    }
    m_now += kSecond;
    const std::string text = client.next(m_live, m_now);
    EXPECT_LT(text.size(), 32U * 1024) << "one answer, whatever has happened meanwhile";
}

TEST_F(LiveStream, LimitsOneAnswerHoweverLargeTheErrorsAre)
{
    StreamClient client({}, "{}");
    all(client);
    for (int i = 0; i < 100; ++i) {
        m_live.takeError("ErrorLogType", std::string(5000, 'c'), std::string(50'000, 'x'), kWall);
    }
    EXPECT_LT(client.next(m_live, m_now).size(), 64U * 1024);
    EXPECT_LT(m_live.log().entries().back().data.size(), 8000U) << "texts are cut";
}

TEST_F(LiveStream, ReportsReducedUpdatesToASlowClient)
{
    start();
    StreamClient client({}, "{}");
    all(client);
    const auto hold = [&](Nanoseconds duration, std::size_t unsent) {
        int updates = 0;
        for (const Nanoseconds end = m_now + duration; m_now < end; m_now += 20 * kMillisecond) {
            sample(100.0);
            client.observe(m_now, unsent, false);
            for (const Event& event : next(client)) {
                m_lastPace = event.type == "pace" ? event.data : m_lastPace;
                updates += event.type == "columns" ? 1 : 0;
            }
        }
        return updates;
    };
    EXPECT_GT(hold(2 * kSecond, 0), 40);
    EXPECT_EQ(m_lastPace, "");
    hold(kSecond, 60'000);
    EXPECT_EQ(m_lastPace, "\"thinned\"");
    EXPECT_LE(hold(2 * kSecond, 60'000), 5);
    hold(3 * kSecond, 0);
    EXPECT_EQ(m_lastPace, "\"full\"");
    EXPECT_GT(hold(2 * kSecond, 0), 40);
}

TEST_F(LiveStream, SendsAHeartbeatWhenThereIsNothingElse)
{
    StreamClient client({}, "{}");
    all(client);
    m_now += StreamClient::kHeartbeat - 1;
    EXPECT_THAT(next(client), IsEmpty());
    m_now += 1;
    EXPECT_THAT(typesOf(next(client)), ElementsAre("beat"));
    EXPECT_LE(client.due(m_live), m_now + StreamClient::kHeartbeat);
}

TEST_F(LiveStream, ResumesAfterTheLastEntryThatAPageHas)
{
    m_live.takeError("TelvaneError", "", "first", kWall);
    StreamClient::Settings settings;
    settings.lastEvent = m_live.log().newest();
    settings.resumed = true;
    m_live.takeError("TelvaneError", "", "second", kWall);
    StreamClient resumed(settings, "{}");
    const std::string text = resumed.next(m_live, m_now);
    EXPECT_THAT(text, HasSubstr("second"));
    EXPECT_THAT(text, Not(HasSubstr("first")));

    StreamClient fresh({}, "{}");
    const std::string both = fresh.next(m_live, m_now);
    EXPECT_THAT(both, HasSubstr("first"));
    EXPECT_THAT(both, HasSubstr("second"));
}

TEST_F(LiveStream, StartsAgainForAPageWhoseEntriesAreGone)
{
    StreamClient::Settings settings;
    settings.lastEvent = 1;
    settings.resumed = true;
    for (std::size_t i = 0; i < EventLog::kMaxEntries + 10; ++i) {
        m_live.takeError("TelvaneError", "", "again", kWall);
    }
    StreamClient client(settings, "{}");
    all(client);
    EXPECT_FALSE(client.missedEvents(m_live));
}

TEST_F(LiveStream, CutsTextsBetweenCharacters)
{
    EXPECT_EQ(shortened("Lichtbogen", 5), "Licht");
    EXPECT_EQ(shortened("Schwei\xc3\x9f", 7), "Schwei");
    EXPECT_EQ(shortened("\xe2\x82\xac", 2), "");
    EXPECT_EQ(shortened("\x80\x80\x80", 2), "");
}

} // namespace
} // namespace TelvaneTool
