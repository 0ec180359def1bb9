#include "telvane-mqtt/channels/ChannelFeed.h"
#include "telvane-mqtt/channels/ChannelRules.h"
#include "telvane-mqtt/channels/Payload.h"
#include "telvane-mqtt/channels/Topics.h"

#include <gtest/gtest.h>

namespace TelvaneTool::Mqtt
{
namespace
{

TEST(MqttTopics, HaveTheDirectionBeforeTheChannel)
{
    const Topics topics("plant/hall", "m1");
    EXPECT_EQ(topics.notification("HALInfo"), "plant/hall/m1/N/HALInfo");
    std::string channel;
    EXPECT_EQ(topics.parse("plant/hall/m1/W/HALInfo", channel), TopicKind::Write);
    EXPECT_EQ(channel, "HALInfo");
    EXPECT_EQ(topics.parse("plant/hall/m1/R/LogData", channel), TopicKind::Request);
    EXPECT_EQ(topics.parse("plant/hall/m1/state", channel), TopicKind::State);
    EXPECT_EQ(topics.parse("plant/hall/m1/N/HALInfo", channel), TopicKind::None);
    EXPECT_EQ(topics.parse("plant/hall/m2/W/HALInfo", channel), TopicKind::None);
    EXPECT_EQ(topics.parse("plant/hall/m1/W/a/b", channel), TopicKind::None);
    EXPECT_EQ(topics.parse("plant/hall/m1/W/a1", channel), TopicKind::None);
}

TEST(MqttTopics, RefuseNamesWithWildcardsOrEmptyLevels)
{
    EXPECT_EQ(Topics::check("plant/hall", "m-1"), "");
    for (const char* const prefix : {"", "a//b", "/a", "a/", "a/+", "#", "$SYS", "a/$b", "a b", "\xff"}) {
        EXPECT_NE(Topics::check(prefix, "m1"), "") << prefix;
    }
    for (const char* const module : {"", "a/b", "+", "m#", "$m"}) {
        EXPECT_NE(Topics::check("a", module), "") << module;
    }
}

TEST(MqttTopics, AllowNoAnswersWhereTheBridgeReads)
{
    const Topics topics("p", "m1");
    EXPECT_TRUE(topics.mayAnswerOn("plant/answers"));
    for (const char* const topic : {"", "p/m1/W/LogData", "p/m1/state", "a/+", "a/#", "$SYS/x"}) {
        EXPECT_FALSE(topics.mayAnswerOn(topic)) << topic;
    }
    EXPECT_FALSE(topics.mayAnswerOn(std::string("a\0/+", 4)));
}

TEST(MqttRules, APatternStandsForTheClassesThatMatch)
{
    ChannelRules rules;
    EXPECT_EQ(rules.addOut("HALInfo:qos=0:retain"), "");
    EXPECT_EQ(rules.addOut("HAL*"), "");
    EXPECT_EQ(rules.addOut("WeldTrace*"), "");
    EXPECT_TRUE(rules.out().at("HALInfo").retain) << "what is given by name counts";
    EXPECT_EQ(rules.out().at("WeldTraceData").mode, Mode::Batch);
    EXPECT_EQ(rules.out().at("WeldTraceData").qos, 0);
    EXPECT_NE(rules.addOut("HALInfo"), "");
    EXPECT_NE(rules.addOut("NoSuchClass*"), "");
}

TEST(MqttRules, RefuseNamesAndSettingsThatAreUnknown)
{
    ChannelRules rules;
    for (const char* const text : {"a1", "a/b", "", "HALInfo:qos=2", "HALInfo:class=None", "HALInfo:batch=0s",
                                   "HALInfo:every", "Own:batch=1s"}) {
        EXPECT_NE(rules.addOut(text), "") << text;
    }
    EXPECT_TRUE(rules.out().empty());
    for (const char* const text : {"HAL*", "Own", "HALInfo:retain", "HALInfo:class=None", "a-b"}) {
        EXPECT_NE(rules.addIn(text), "") << text;
    }
    EXPECT_EQ(rules.addIn("Own:class=HALInfo"), "");
}

TEST(MqttRules, KeepNoIntervalOfAModeThatALaterSettingReplaces)
{
    for (const char* const last : {"changes", "each"}) {
        ChannelRules rules;
        EXPECT_EQ(rules.addOut(std::string("HALInfo:batch=1s:") + last), "");
        EXPECT_EQ(rules.out().at("HALInfo").interval, 0) << last;
    }
}

TEST(MqttRules, RefuseAChannelInBothDirections)
{
    ChannelRules rules;
    EXPECT_EQ(rules.addOut("Log*"), "");
    EXPECT_EQ(rules.addIn("HALInfo"), "");
    EXPECT_EQ(rules.addRequest("HALInfo"), "");
    EXPECT_EQ(rules.findLoop(), "");
    EXPECT_EQ(rules.addOut("req_HALInfo"), "");
    EXPECT_NE(rules.findLoop().find("req_HALInfo"), std::string::npos);
}

TEST(MqttRules, ReadDurations)
{
    Nanoseconds duration = 0;
    EXPECT_TRUE(parseDuration("100ms", duration));
    EXPECT_EQ(duration, 100 * kMillisecond);
    EXPECT_TRUE(parseDuration("1.5s", duration));
    EXPECT_EQ(duration, 1500 * kMillisecond);
    EXPECT_TRUE(parseDuration("2m", duration));
    EXPECT_EQ(duration, 120 * kSecond);
    for (const char* const text : {"", "0.9ms", "s", "-1s", "0s", "nan s", "infs", "1d", "1e300h"}) {
        EXPECT_FALSE(parseDuration(text, duration)) << text;
    }
}

OutgoingMessage message()
{
    OutgoingMessage result;
    result.className = "LogData";
    result.body = R"("record":{"log":"x"})";
    result.time = {"2026-01-02T03:04:05.678Z", true};
    result.number = 3;
    return result;
}

TEST(MqttPayload, HasClassSessionNumberAndTimeBesideTheRecord)
{
    EXPECT_EQ(payloadOf(message(), {17, ""}),
              R"({"class":"LogData","session":17,"n":3,"time":"2026-01-02T03:04:05.678Z","clockSet":true,)"
              R"("record":{"log":"x"}})");
    OutgoingMessage afterDrops = message();
    afterDrops.dropped = 2;
    EXPECT_NE(payloadOf(afterDrops, {17, ""}).find(R"("dropped":2,"record")"), std::string::npos);
    EXPECT_EQ(barePayloadOf(message()), R"({"log":"x"})");
}

TEST(MqttPayload, PrintsTimesInUtc)
{
    EXPECT_EQ(sessionWithNumber(1).started, "1970-01-01T00:00:00.001Z");
    EXPECT_EQ(sessionWithNumber(1'767'323'045'678).started, "2026-01-02T03:04:05.678Z");
}

TEST(MqttPayload, NamesTheWrongKeyOfAnIncomingRecord)
{
    const Telvane::RecordClass& logData = *Telvane::RecordCatalogue::find("LogData");
    std::string error;
    EXPECT_NE(readRecord(R"({"log":"x"})", logData, error), nullptr);
    EXPECT_NE(readRecord(R"({"class":"LogData","record":{"log":"x"}})", logData, error), nullptr);
    for (const char* const text :
         {R"({"log":1})", R"({})", R"({"log":"x","more":1})", "[]", "", "{",
          R"({"class":"HALInfo","record":{"log":"x"}})", R"({"record":{"log":1}})"}) {
        error.clear();
        EXPECT_EQ(readRecord(text, logData, error), nullptr) << text;
        EXPECT_NE(error, "") << text;
    }
}

TEST(MqttPayload, OfATimeStampMayComeInAgain)
{
    const Telvane::RecordClass& dateTime = *Telvane::RecordCatalogue::find("DateTime");
    std::string error;
    const auto record =
        readRecord(R"({"class":"DateTime","record":"/Date(1700000000123)/"})", dateTime, error);
    ASSERT_NE(record, nullptr) << error;
    EXPECT_EQ(record->GetString(), "\"/Date(1700000000123)/\"");
    EXPECT_EQ(readRecord(R"({"class":"HALInfo","record":"/Date(0)/"})", dateTime, error), nullptr);
}

class MqttFeed : public testing::Test
{
protected:
    ChannelFeed feed(Mode mode)
    {
        OutRule rule;
        rule.mode = mode;
        rule.interval = 100 * kMillisecond;
        return ChannelFeed(rule,
                           [this](const std::string& body, const WallTime&) { m_bodies.push_back(body); });
    }
    static constexpr std::size_t kLarge = 100'000;

    std::vector<std::string> m_bodies;
};

TEST_F(MqttFeed, PacksABatchAsColumns)
{
    ChannelFeed batches = feed(Mode::Batch);
    batches.add(R"({"id":7,"data":{"volts":20.5,"amps":100}})", 0, kLarge);
    batches.add(R"({"id":7,"data":{"volts":21,"amps":101}})", 500'000, kLarge);
    EXPECT_EQ(batches.due(), 100 * kMillisecond);
    batches.closeIfDue(99 * kMillisecond);
    EXPECT_TRUE(m_bodies.empty());
    batches.closeIfDue(100 * kMillisecond);
    ASSERT_EQ(m_bodies.size(), 1U);
    EXPECT_EQ(m_bodies[0], R"("batch":{"count":2,"us":[0,500],"same":{"id":7},)"
                           R"("columns":{"data.volts":[20.5,21],"data.amps":[100,101]}})");
    EXPECT_EQ(batches.due(), -1);
}

TEST_F(MqttFeed, ClosesABatchBeforeItIsTooLarge)
{
    ChannelFeed batches = feed(Mode::Batch);
    for (int i = 0; i < 1000; ++i) {
        batches.add(R"({"number":)" + std::to_string(i) + "}", i, 500);
    }
    batches.close();
    EXPECT_GT(m_bodies.size(), 10U);
    std::size_t count = 0;
    for (const std::string& body : m_bodies) {
        EXPECT_LE(body.size(), 500U);
        count += std::stoul(body.substr(body.find("count") + 7));
    }
    EXPECT_EQ(count, 1000U);
}

TEST_F(MqttFeed, SummarizesNumbers)
{
    ChannelFeed summaries = feed(Mode::Summary);
    summaries.add(R"({"name":"x","data":{"volts":20}})", 0, kLarge);
    summaries.add(R"({"name":"y","data":{"volts":30}})", 1, kLarge);
    summaries.close();
    EXPECT_EQ(m_bodies,
              std::vector<std::string>{
                  R"("summary":{"count":2,"ms":100,"fields":{"data.volts":{"mean":25,"min":20,"max":30}}})"});
}

TEST_F(MqttFeed, SendsChangesAndAFullRecordEachMinute)
{
    ChannelFeed changes = feed(Mode::Changes);
    changes.add(R"({"a":1,"b":{"c":2}})", 0, kLarge);
    changes.add(R"({"a":1,"b":{"c":2}})", kSecond, kLarge);
    changes.add(R"({"a":1,"b":{"c":3}})", 2 * kSecond, kLarge);
    changes.add(R"({"a":1,"b":{"c":3}})", 60 * kSecond, kLarge);
    EXPECT_EQ(m_bodies, (std::vector<std::string>{R"("record":{"a":1,"b":{"c":2}})", R"("changes":{"b.c":3})",
                                                  R"("record":{"a":1,"b":{"c":3}})"}));
}

} // namespace
} // namespace TelvaneTool::Mqtt
