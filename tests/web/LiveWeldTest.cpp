#include "telvane-web/live/LiveWeld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace TelvaneTool
{
namespace
{

using testing::HasSubstr;
using testing::Not;
using State = LiveWeld::State;

constexpr Nanoseconds kWall = 1'700'000'000 * kSecond;

Telvane::WeldTraceData sampleOf(int sequence, Nanoseconds time = 0)
{
    Telvane::WeldTraceData record;
    record.sequence = sequence;
    record.timestamp.time.tv_sec = static_cast<time_t>(time / kSecond);
    record.timestamp.time.tv_nsec = static_cast<long>(time % kSecond);
    record.data.amps = 200.0;
    record.data.volts = 20.0;
    return record;
}

TEST(LiveWeld, GoesFromNoWeldThroughTheArcToTheEnd)
{
    LiveWeld live(kWall);
    EXPECT_EQ(live.state(), State::None);
    Telvane::WeldTriggerStart start;
    start.samplePeriodus = 500;
    start.settings.CommandVoltage.Unit = "V";
    start.settings.CommandVoltage.Value = 24.5;
    live.take(start, 0, kWall);
    EXPECT_EQ(live.state(), State::Arc);
    EXPECT_THAT(live.stateJson(), HasSubstr(R"("volts":{"value":24.5,"unit":"V"})"));
    live.take(sampleOf(0), 0, kWall);
    Telvane::WeldTriggerEnd end;
    end.metrics.TotalEnergy.Unit = "J";
    end.metrics.TotalEnergy.Value = 1234;
    live.take(end, kWall);
    EXPECT_EQ(live.state(), State::Ended);
    EXPECT_THAT(live.stateJson(), HasSubstr(R"("energy":{"value":1234,"unit":"J"})"));
}

TEST(LiveWeld, ReportsThatNoSamplesArriveAnyMore)
{
    LiveWeld live(kWall);
    live.take(Telvane::WeldTriggerStart(), 0, kWall);
    live.tick(LiveWeld::kSilence - 1, kWall);
    EXPECT_EQ(live.state(), State::Arc);
    live.tick(LiveWeld::kSilence, kWall);
    EXPECT_EQ(live.state(), State::Silent);
    live.take(sampleOf(1), LiveWeld::kSilence, kWall);
    EXPECT_EQ(live.state(), State::Arc);
}

TEST(LiveWeld, IsNotSilentAfterAJumpOfTheWallClock)
{
    LiveWeld live(kWall);
    live.take(Telvane::WeldTriggerStart(), kSecond, kWall);
    live.tick(kSecond + kMillisecond, kWall + 3600 * kSecond);
    EXPECT_EQ(live.state(), State::Arc);
    live.tick(kSecond + kMillisecond, 0);
    EXPECT_EQ(live.state(), State::Arc);
}

TEST(LiveWeld, MeasuresThePeriodOfAWeldThatItJoins)
{
    LiveWeld live(kWall);
    for (int i = 5000; i < 7000; ++i) {
        // Time stamps have whole milliseconds.
        const Nanoseconds time = kWall + i * kMillisecond / 2;
        live.take(sampleOf(i, time / kMillisecond * kMillisecond), 0, kWall);
    }
    EXPECT_EQ(live.state(), State::Arc);
    EXPECT_EQ(live.missed(), 0U) << "the samples before are not missed";
    EXPECT_THAT(live.stateJson(), HasSubstr(R"("period":0.0005)"));
    EXPECT_THAT(live.stateJson(), Not(HasSubstr("\"tag\"")));
}

TEST(LiveWeld, CountsSamplesThatAreMissing)
{
    LiveWeld live(kWall);
    live.take(Telvane::WeldTriggerStart(), 0, kWall);
    live.take(sampleOf(0), 0, kWall);
    live.take(sampleOf(10), 0, kWall);
    EXPECT_EQ(live.missed(), 9U);
    EXPECT_THAT(live.valuesJson(), HasSubstr(R"("missed":9)"));
}

TEST(LiveWeld, AddsUpTheEnergy)
{
    LiveWeld live(kWall);
    Telvane::WeldTriggerStart start;
    start.samplePeriodus = 500;
    live.take(start, 0, kWall);
    for (int i = 0; i < 2000; ++i) {
        live.take(sampleOf(i), 0, kWall);
    }
    EXPECT_THAT(live.valuesJson(), HasSubstr(R"("energy":4000,)")) << "200 A at 20 V for 1 s";
}

TEST(LiveWeld, EntersEachChangeOfTheConnectionOnce)
{
    LiveWeld live(kWall);
    live.busChanged("", kWall);
    const std::uint64_t entries = live.log().newest();
    live.busChanged("", kWall);
    EXPECT_EQ(live.log().newest(), entries);
    live.busChanged("no server", kWall);
    EXPECT_EQ(live.log().newest(), entries + 1);
    EXPECT_THAT(live.log().entries().back().data, HasSubstr(R"("connected":false,"reason":"no server")"));
}

TEST(LiveWeld, KeepsTimesInRange)
{
    LiveWeld live(kWall);
    Telvane::WeldTriggerStart start;
    start.timestamp.time.tv_sec = std::numeric_limits<time_t>::max();
    live.take(start, 0, kWall);
    if (sizeof(time_t) > 4) {
        EXPECT_THAT(live.stateJson(), HasSubstr(R"("started":9223372036854)"));
    }
    live.take(sampleOf(0), 0, kWall);
    Telvane::WeldTraceData late = sampleOf(100);
    late.timestamp.time.tv_sec = std::numeric_limits<time_t>::max();
    live.take(late, 0, kWall);
    EXPECT_THAT(live.stateJson(), Not(HasSubstr("period\":-")));
}

} // namespace
} // namespace TelvaneTool
