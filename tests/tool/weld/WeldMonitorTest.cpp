#include "weld/WeldMonitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

namespace TelvaneTool
{
namespace
{

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class WeldMonitorTest : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("LC_ALL", "C", 1);
        setenv("TZ", "UTC", 1);
    }
    void TearDown() override
    {
        unsetenv("LC_ALL");
        unsetenv("TZ");
    }

    void start(int tag)
    {
        Telvane::WeldTriggerStart record;
        record.tag = tag;
        record.samplePeriodus = 100'000;
        record.settings.CommandVoltage.Unit = "V";
        record.settings.CommandVoltage.Value = 20.5;
        record.timestamp.time.tv_sec = 1'700'000'000;
        m_monitor.take(record);
    }

    void sample(int sequence, double amps, double volts)
    {
        Telvane::WeldTraceData record;
        record.sequence = sequence;
        record.timestamp.time.tv_sec = 1'700'000'000 + sequence / 10;
        record.timestamp.time.tv_nsec = sequence % 10 * 100'000'000L;
        record.data.amps = amps;
        record.data.volts = volts;
        m_monitor.take(record);
    }

    LatencyTracker m_ledger; ///< closed
    WeldMonitor m_monitor{m_ledger};
};

TEST_F(WeldMonitorTest, ReportsTheStart)
{
    start(7);
    EXPECT_EQ(m_monitor.takeEvents(),
              "weld 7 started at 2023-11-14T22:13:20.000: a sample every 100000 us, set to 20.5 V\n");
    EXPECT_EQ(m_monitor.takeEvents(), "");
}

TEST_F(WeldMonitorTest, ReportsTheEndWithTheMeasuredMetrics)
{
    Telvane::WeldTriggerEnd record;
    record.tag = 7;
    record.metrics.ArcDuration.Unit = "s";
    record.metrics.ArcDuration.Value = 26.752;
    record.metrics.AverageAmperage.Unit = "A";
    record.metrics.AverageAmperage.Value = 179;
    m_monitor.take(record);
    EXPECT_EQ(m_monitor.takeEvents(), "weld 7 ended\n"
                                      "  arc duration       26.752 s\n"
                                      "  mean current       179 A\n");
}

TEST_F(WeldMonitorTest, CountsLostSamplesFromTheStartOfEachWeld)
{
    start(1);
    for (int i = 0; i < 3; ++i) {
        sample(i, 180, 20);
    }
    start(2);
    sample(2, 180, 20);
    EXPECT_THAT(m_monitor.summary(0), HasSubstr("lost 2 by the samples' numbers"));
}

TEST_F(WeldMonitorTest, ShowsTheWeldInProgress)
{
    start(7);
    for (int i = 0; i < 20; ++i) {
        sample(i, 180, 20);
    }
    EXPECT_THAT(m_monitor.liveLine(80), StartsWith("weld 7    1.9 s   180 A  20.0 V  "));
}

TEST_F(WeldMonitorTest, DrawsTheCurrentAsAChart)
{
    start(1);
    const double currents[] = {0, 0, 100, 100, 200, 200, 50, 50, 200, 200};
    int sequence = 0;
    for (const double amps : currents) {
        sample(sequence++, amps, 20);
    }
    EXPECT_THAT(m_monitor.liveLine(80), EndsWith("V   =#:#"));
}

TEST_F(WeldMonitorTest, DrawsBlocksOnAUtf8Terminal)
{
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    start(1);
    sample(0, 200, 20);
    EXPECT_THAT(m_monitor.liveLine(80), EndsWith("█"));
}

TEST_F(WeldMonitorTest, FitsTheLineToTheWidth)
{
    start(1);
    for (int i = 0; i < 2000; ++i) {
        sample(i, 180, 20);
    }
    EXPECT_LE(m_monitor.liveLine(60).size(), 60U);
    EXPECT_THAT(m_monitor.liveLine(10), Not(HasSubstr("#")));
}

TEST_F(WeldMonitorTest, ShowsNoLineBetweenWelds)
{
    EXPECT_EQ(m_monitor.liveLine(80), "");
    start(1);
    sample(0, 180, 20);
    m_monitor.take(Telvane::WeldTriggerEnd());
    EXPECT_EQ(m_monitor.liveLine(80), "");
}

TEST_F(WeldMonitorTest, CountsGapsInTheSampleNumbersAsLosses)
{
    start(1);
    sample(0, 180, 20);
    sample(3, 180, 20);
    sample(4, 180, 20);
    EXPECT_EQ(m_monitor.received(), 4U);
    EXPECT_EQ(m_monitor.summary(0), "received 4, lost 2 by the samples' numbers\n");
}

TEST_F(WeldMonitorTest, DoesNotCountSamplesFromBeforeItStartedAsLost)
{
    sample(1000, 180, 20);
    EXPECT_THAT(m_monitor.summary(0), HasSubstr("lost 0"));
}

TEST_F(WeldMonitorTest, ShowsAWeldThatBeganBefore)
{
    for (int i = 1000; i < 1020; ++i) {
        sample(i, 180, 20);
    }
    EXPECT_EQ(m_monitor.takeEvents(), "a weld is in progress, shown from its sample 1000 on\n");
    EXPECT_THAT(m_monitor.liveLine(80), StartsWith("weld ?    1.9 s   180 A  20.0 V  "));
    sample(1021, 180, 20);
    EXPECT_THAT(m_monitor.summary(0), HasSubstr("lost 1 by"));
    Telvane::WeldTriggerEnd end;
    end.tag = 7;
    m_monitor.take(end);
    EXPECT_EQ(m_monitor.takeEvents(), "weld 7 ended\n");
    EXPECT_EQ(m_monitor.liveLine(80), "");
}

TEST_F(WeldMonitorTest, ReportsUndecodableRecords)
{
    EXPECT_THAT(m_monitor.summary(3), HasSubstr("could not be decoded: 3\n"));
}

TEST_F(WeldMonitorTest, CountsLossesUpToTheLargestSampleNumber)
{
    start(1);
    sample(2'147'483'647, 180, 20);
    sample(0, 180, 20);
    sample(1, 180, 20);
    EXPECT_THAT(m_monitor.summary(0), HasSubstr("lost 2147483647 by"));
}

TEST_F(WeldMonitorTest, CountsNoLossesAfterNegativeSampleNumbers)
{
    start(1);
    sample(-2'147'483'647 - 1, 180, 20);
    sample(0, 180, 20);
    sample(1, 180, 20);
    EXPECT_THAT(m_monitor.summary(0), HasSubstr("lost 0 by"));
}

TEST_F(WeldMonitorTest, ShowsAWeldWhoseTimesAreOutOfBounds)
{
    for (const auto& [first, last] :
         {std::pair<long long, long long>(-9'223'372'036'854'775'807, 9'223'372'036'854'775),
          {9'223'372'036'854'775, -9'223'372'036'854'775'807}}) {
        Telvane::WeldTriggerStart begin;
        begin.timestamp.time.tv_sec = static_cast<time_t>(first);
        m_monitor.take(begin);
        Telvane::WeldTraceData record;
        record.data.amps = 180;
        record.timestamp.time.tv_sec = static_cast<time_t>(last);
        m_monitor.take(record);
        EXPECT_THAT(m_monitor.liveLine(80), HasSubstr(first < last ? "9223372036.9 s" : "-9223372036.9 s"));
    }
}

TEST_F(WeldMonitorTest, DrawsTheChartAlsoAfterACurrentThatIsInfinite)
{
    start(1);
    sample(0, std::numeric_limits<double>::infinity(), 20);
    for (int i = 2; i < 8; ++i) {
        sample(i, 180, 20);
    }
    EXPECT_THAT(m_monitor.liveLine(80), EndsWith("##"));
}

} // namespace
} // namespace TelvaneTool
