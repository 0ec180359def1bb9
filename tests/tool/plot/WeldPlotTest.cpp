// From a recording to what gnuplot is told.

#include "plot/WeldPlot.h"
#include "plot/WeldTraces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using Telvane::WeldTraceDataPoint;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class WeldTracesOf
{
public:
    template <class Record>
    WeldTracesOf& add(const char* channel, Record record)
    {
        std::string payload;
        EXPECT_TRUE(record.ToJson(payload));
        m_traces.add({0, channel, 0, payload});
        return *this;
    }

    WeldTracesOf& start(int tag, int periodMicroseconds = 100'000)
    {
        Telvane::WeldTriggerStart start;
        start.tag = tag;
        start.samplePeriodus = periodMicroseconds;
        start.timestamp.time = {1'704'164'645, 0};
        start.data.amps = "A";
        start.data.volts = "V";
        return add("WeldTriggerStart", start);
    }

    WeldTracesOf& sample(int sequence, double amps, long milliseconds)
    {
        Telvane::WeldTraceData trace;
        trace.sequence = sequence;
        trace.timestamp.time = {1'704'164'645 + milliseconds / 1000, milliseconds % 1000 * 1'000'000};
        trace.data.amps = amps;
        trace.data.volts = 17.5;
        return add("WeldTraceData", trace);
    }

    WeldTracesOf& end(int tag)
    {
        Telvane::WeldTriggerEnd end;
        end.tag = tag;
        end.metrics.ArcDuration.Unit = "s";
        end.metrics.ArcDuration.Value = 1.25;
        return add("WeldTriggerEnd", end);
    }

    WeldTraces& traces() { return m_traces; }

private:
    WeldTraces m_traces;
};

TEST(WeldTraces, CollectEachWeldWithItsSamplesAndMetrics)
{
    WeldTracesOf recording;
    recording.start(7).sample(0, 150, 0).sample(1, 151, 116).end(7).start(8).sample(0, 160, 0);
    const std::vector<RecordedWeld>& welds = recording.traces().welds();
    ASSERT_THAT(welds, SizeIs(2));
    EXPECT_EQ(welds[0].start.tag, 7);
    ASSERT_THAT(welds[0].samples, SizeIs(2));
    EXPECT_EQ(welds[0].samples[1].time, 116 * kMillisecond);
    EXPECT_EQ(welds[0].samples[1].point.amps, 151.0);
    EXPECT_TRUE(welds[0].ended);
    EXPECT_EQ(welds[0].metrics.ArcDuration.Value, 1.25);
    EXPECT_FALSE(welds[1].ended);
}

TEST(WeldTraces, TakeTheTimesOfFastSamplesFromTheirNumbers)
{
    WeldTracesOf recording;
    recording.start(1, 20).sample(0, 150, 0).sample(60, 151, 1);
    EXPECT_EQ(recording.traces().welds()[0].samples[1].time, 1200 * kMicrosecond);
}

TEST(WeldTraces, SkipSamplesWithoutAWeldAndUndecodableRecords)
{
    WeldTracesOf recording;
    recording.sample(0, 150, 0).end(3).start(4).end(4).sample(1, 150, 0);
    recording.traces().add({0, "WeldTraceData", 0, R"({"sequence":"one"})"});
    recording.traces().add({0, "LogData", 0, "{}"});
    EXPECT_EQ(recording.traces().strays(), 2U);
    EXPECT_EQ(recording.traces().unreadable(), 1U);
    ASSERT_THAT(recording.traces().welds(), SizeIs(1));
    EXPECT_THAT(recording.traces().welds()[0].samples, SizeIs(0));
}

std::vector<RecordedWeld::Sample> samples(std::size_t count)
{
    std::vector<RecordedWeld::Sample> all(count);
    for (std::size_t i = 0; i < count; ++i) {
        all[i].time = static_cast<Nanoseconds>(i) * kSecond;
        all[i].point.amps = static_cast<double>(i % 10);
    }
    return all;
}

TEST(WeldPlot, KeepsEverySampleIfThereIsRoom)
{
    const auto points = downsample(samples(3), &WeldTraceDataPoint::amps, 10);
    ASSERT_THAT(points, SizeIs(3));
    EXPECT_EQ(points[2].time, 2.0);
    EXPECT_EQ(points[2].mean, 2.0);
    EXPECT_EQ(points[2].min, 2.0);
    EXPECT_THAT(downsample({}, &WeldTraceDataPoint::amps, 10), SizeIs(0));
}

TEST(WeldPlot, KeepsThePeaksWithinAColumn)
{
    const auto points = downsample(samples(105), &WeldTraceDataPoint::amps, 10);
    ASSERT_THAT(points, SizeIs(10));
    for (const PlotPoint& point : points) {
        EXPECT_EQ(point.min, 0.0);
        EXPECT_EQ(point.max, 9.0);
        EXPECT_NEAR(point.mean, 4.5, 0.5);
    }
    EXPECT_EQ(points[0].time, 4.5);
}

TEST(WeldPlot, DeterminesTheFormatFromTheFileName)
{
    EXPECT_EQ(plotTerminal("weld.svg"), "svg");
    EXPECT_EQ(plotTerminal("a.b/weld.png"), "pngcairo");
    EXPECT_EQ(plotTerminal("weld.jpeg"), "");
    EXPECT_EQ(plotTerminal("png"), "");
}

TEST(WeldPlot, DrawsMeasuredQuantitiesWithUnitsAndMetrics)
{
    WeldTracesOf recording;
    recording.start(7).sample(0, 150, 0).sample(1, 151, 116).end(7);
    const std::string script = printPlot(recording.traces().welds(), "weld.svg", "it's a weld");
    EXPECT_THAT(script, HasSubstr("set output 'weld.svg'\n"));
    EXPECT_THAT(script, HasSubstr("'it''s a weld'"));
    EXPECT_THAT(script, HasSubstr("'current in A'"));
    EXPECT_THAT(script, HasSubstr("'voltage in V'"));
    EXPECT_THAT(script, Not(HasSubstr("wire feed")));
    EXPECT_THAT(script, HasSubstr("\n0.116 151 151 151\n"));
    EXPECT_THAT(script, HasSubstr("Weld 7  2024-01-02 03:04:05 UTC"));
    EXPECT_THAT(script, HasSubstr("'arc time           1.25 s'"));
}

TEST(WeldPlot, MarksAWeldThatTheRecordingDoesNotComplete)
{
    WeldTracesOf recording;
    recording.start(7);
    EXPECT_THAT(printPlot(recording.traces().welds(), "weld.svg", "x"), HasSubstr("the recording ends"));
}

} // namespace
} // namespace TelvaneTool
