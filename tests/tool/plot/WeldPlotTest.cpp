// From a recording to the gnuplot script.

#include "plot/WeldPlot.h"
#include "plot/WeldTraces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using Telvane::WeldTraceDataPoint;
using testing::ElementsAre;
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
        end.timestamp.time = {1'704'164'645, 0};
        end.metrics.ArcDuration.Unit = "s";
        end.metrics.ArcDuration.Value = 1.25;
        return add("WeldTriggerEnd", end);
    }

    WeldTraces& traces() { return m_traces; }
    const std::vector<RecordedWeld>& welds() const { return m_traces.welds(); }

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
    EXPECT_EQ(recording.traces().undecodable(), 1U);
    ASSERT_THAT(recording.traces().welds(), SizeIs(1));
    EXPECT_THAT(recording.traces().welds()[0].samples, SizeIs(0));
}

TEST(WeldTraces, CollectAWeldThatBeganBeforeTheRecording)
{
    WeldTracesOf recording;
    recording.sample(500, 150, 0)
        .sample(501, 151, 100)
        .sample(503, 152, 300)
        .end(3)
        .start(4)
        .sample(0, 160, 5000);
    recording.traces().finish();
    const std::vector<RecordedWeld>& welds = recording.welds();
    ASSERT_THAT(welds, SizeIs(2));
    EXPECT_FALSE(welds[0].started);
    EXPECT_EQ(welds[0].tag(), "3");
    EXPECT_TRUE(welds[0].ended);
    EXPECT_EQ(welds[0].metrics.ArcDuration.Value, 1.25);
    EXPECT_THAT(welds[0].samples, SizeIs(3));
    EXPECT_EQ(welds[0].samples[2].time, 300 * kMillisecond);
    EXPECT_EQ(welds[0].missing, 1U);
    EXPECT_TRUE(welds[1].started);
    EXPECT_THAT(welds[1].samples, SizeIs(1));
    EXPECT_EQ(recording.traces().strays(), 0U);
    EXPECT_THAT(recording.traces().strayEnds(), SizeIs(0));
}

TEST(WeldTraces, MeasureThePeriodOfAWeldThatBeganBeforeTheRecording)
{
    WeldTracesOf recording;
    for (int i = 0; i <= 10'000; ++i) {
        recording.sample(700 + i, 150, i / 50); // 50 samples have the same time stamp
    }
    recording.traces().finish();
    ASSERT_THAT(recording.welds(), SizeIs(1));
    EXPECT_EQ(recording.welds()[0].samples[1].time, 20 * kMicrosecond);
    EXPECT_EQ(recording.welds()[0].samples[10'000].time, 200 * kMillisecond);
    EXPECT_EQ(recording.welds()[0].tag(), "?");
}

TEST(WeldTraces, DoNotGiveAWeldWithoutAStartALaterEnd)
{
    WeldTracesOf recording;
    recording.sample(500, 150, 20'000).sample(501, 151, 20'100).end(3); // 20 s before the last sample
    ASSERT_THAT(recording.welds(), SizeIs(1));
    EXPECT_FALSE(recording.welds()[0].ended);
    EXPECT_THAT(recording.traces().strayEnds(), ElementsAre(3));
}

TEST(WeldTraces, DoNotGiveAWeldWithoutAStartTheSamplesOfAnotherSource)
{
    WeldTracesOf recording;
    recording.sample(500, 150, 0).sample(90'000, 250, 50).sample(501, 151, 100).sample(502, 152, 200);
    recording.traces().finish();
    ASSERT_FALSE(recording.welds().empty());
    EXPECT_THAT(recording.welds()[0].samples, SizeIs(3));
    EXPECT_EQ(recording.welds()[0].missing, 0U);
}

TEST(WeldTraces, CountAWeldWithoutAStartIfSamplesAreNotKept)
{
    WeldTraces traces(false);
    for (const char* const sequence : {"5", "6", "8"}) {
        traces.add({0, "WeldTraceData", 0,
                    R"({"sequence":)" + std::string(sequence) +
                        R"(,"timestamp":"/Date(0)/","data":{"amps":1,"volts":1,"wfs":1,"gas":1,"power":1,)"
                        R"("motor":1},"messageSerial":)" +
                        sequence + "}"});
    }
    traces.finish();
    EXPECT_EQ(traces.strays(), 0U);
    ASSERT_THAT(traces.welds(), SizeIs(1));
    const RecordedWeld& weld = traces.welds()[0];
    EXPECT_FALSE(weld.started);
    EXPECT_EQ(weld.tag(), "?");
    EXPECT_EQ(weld.sampleCount, 3U);
    EXPECT_EQ(weld.missing, 1U);
    EXPECT_THAT(weld.samples, SizeIs(0));
}

/// A power source with serial numbers and a clock of its own.
class Source
{
public:
    Source(WeldTracesOf& recording, int firstSerial, Nanoseconds clock)
        : m_recording(recording), m_serial(firstSerial), m_clock(clock)
    {}

    void start(int tag)
    {
        Telvane::WeldTriggerStart start;
        start.tag = tag;
        start.samplePeriodus = 10'000;
        start.data.amps = "A";
        m_sequence = 0;
        publish("WeldTriggerStart", start);
    }
    void sample(double amps)
    {
        Telvane::WeldTraceData trace;
        trace.sequence = m_sequence++;
        trace.data.amps = amps;
        publish("WeldTraceData", trace);
        m_clock += 10 * kMillisecond;
    }
    void end(int tag, double seconds)
    {
        Telvane::WeldTriggerEnd end;
        end.tag = tag;
        end.metrics.ArcDuration.Unit = "s";
        end.metrics.ArcDuration.Value = seconds;
        publish("WeldTriggerEnd", end);
    }
    void idle(Nanoseconds time) { m_clock += time; }
    void loseRecords(bool lose) { m_losing = lose; }
    void withoutSerials() { m_hasSerials = false; }

private:
    template <class Record>
    void publish(const char* channel, Record& record)
    {
        record.messageSerial = m_hasSerials ? m_serial++ : 0;
        record.timestamp.time = {static_cast<time_t>(1'704'164'645 + m_clock / kSecond),
                                 static_cast<long>(m_clock % kSecond)};
        if (!m_losing) {
            m_recording.add(channel, record);
        }
    }

    WeldTracesOf& m_recording;
    int m_serial;
    Nanoseconds m_clock;
    int m_sequence = 0;
    bool m_losing = false;
    bool m_hasSerials = true;
};

std::vector<double> ampsOf(const RecordedWeld& weld)
{
    std::vector<double> amps;
    for (const RecordedWeld::Sample& sample : weld.samples) {
        amps.push_back(sample.point.amps);
    }
    return amps;
}

void recordOverlappingWelds(Source& first, Source& second, int secondTag)
{
    first.start(1);
    first.sample(101);
    second.start(secondTag);
    first.sample(102);
    second.sample(201);
    first.sample(103);
    second.sample(202);
    first.end(1, 1.0);
    second.sample(203);
    second.end(secondTag, 2.0);
}

TEST(WeldTraces, TellOverlappingWeldsApart)
{
    WeldTracesOf recording;
    Source first(recording, 1, 0);
    Source second(recording, 5000, 3 * kMillisecond);
    recordOverlappingWelds(first, second, 2);
    ASSERT_THAT(recording.welds(), SizeIs(2));
    EXPECT_THAT(ampsOf(recording.welds()[0]), ElementsAre(101, 102, 103));
    EXPECT_THAT(ampsOf(recording.welds()[1]), ElementsAre(201, 202, 203));
    EXPECT_EQ(recording.welds()[0].metrics.ArcDuration.Value, 1.0);
    EXPECT_EQ(recording.welds()[1].metrics.ArcDuration.Value, 2.0);
    EXPECT_EQ(recording.traces().strays(), 0U);
}

TEST(WeldTraces, TellOverlappingWeldsWithTheSameTagApartByTheirSerialNumbers)
{
    WeldTracesOf recording;
    Source first(recording, 1, 0);
    Source second(recording, 5000, 3 * kMillisecond);
    recordOverlappingWelds(first, second, 1);
    EXPECT_THAT(ampsOf(recording.welds()[0]), ElementsAre(101, 102, 103));
    EXPECT_THAT(ampsOf(recording.welds()[1]), ElementsAre(201, 202, 203));
    EXPECT_EQ(recording.welds()[0].metrics.ArcDuration.Value, 1.0);
    EXPECT_EQ(recording.welds()[1].metrics.ArcDuration.Value, 2.0);
}

TEST(WeldTraces, TellOverlappingWeldsApartWithoutSerialNumbers)
{
    WeldTracesOf recording;
    Source first(recording, 0, 0);
    Source second(recording, 0, 3 * kMillisecond);
    first.withoutSerials();
    second.withoutSerials();
    recordOverlappingWelds(first, second, 2);
    EXPECT_THAT(ampsOf(recording.welds()[0]), ElementsAre(101, 102, 103));
    EXPECT_THAT(ampsOf(recording.welds()[1]), ElementsAre(201, 202, 203));
}

TEST(WeldTraces, DoNotGiveAWeldTheEndAndSamplesOfAnother)
{
    WeldTracesOf recording;
    Source source(recording, 1, 0);
    source.start(1);
    source.sample(101);
    source.loseRecords(true);
    source.end(1, 1.0);
    source.idle(20 * kSecond);
    source.start(2);
    for (int i = 0; i < 5; ++i) {
        source.sample(200);
    }
    source.loseRecords(false);
    source.sample(205);
    source.sample(206);
    source.end(2, 2.0);
    ASSERT_THAT(recording.welds(), SizeIs(1));
    EXPECT_THAT(ampsOf(recording.welds()[0]), ElementsAre(101));
    EXPECT_FALSE(recording.welds()[0].ended);
    EXPECT_EQ(recording.traces().strays(), 2U);
    EXPECT_THAT(recording.traces().strayEnds(), ElementsAre(2));
}

TEST(WeldTraces, CountMissingSamples)
{
    WeldTracesOf recording;
    Source source(recording, 1, 0);
    source.start(1);
    source.loseRecords(true);
    source.sample(1);
    source.loseRecords(false);
    source.sample(2);
    source.loseRecords(true);
    source.sample(3);
    source.sample(4);
    source.loseRecords(false);
    source.sample(5);
    source.end(1, 1.0);
    EXPECT_THAT(ampsOf(recording.welds()[0]), ElementsAre(2, 5));
    EXPECT_EQ(recording.welds()[0].missing, 3U);
}

TEST(WeldTraces, CountWhatTheRecorderMissed)
{
    WeldTraces traces;
    traces.add({9, "WeldTraceData", 0, "", "", 5, 1, 8});
    traces.add({9, "LogData", 0, "", "", 7, 1, 8});
    EXPECT_EQ(traces.missed(), 5U);
    EXPECT_EQ(traces.undecodable(), 0U);
}

TEST(WeldTraces, AcceptExtremeNumbersAndTimes)
{
    WeldTracesOf recording;
    const auto start = [](int tag, const char* time) {
        return R"({"tag":)" + std::to_string(tag) + R"(,"timestamp":")" + time +
               R"(","samplePeriodus":2147483647,"program":0,"process":0,"wireType":0,"wireSize":0,"alloy":0,)"
               R"("gas":0,"settings":{"CommandVoltage":{"Unit":"","Value":0},)"
               R"("CommandAmperage":{"Unit":"","Value":0},"CommandWFS":{"Unit":"","Value":0},)"
               R"("CommandArcControl":{"Unit":"","Value":0}},"data":{"amps":"A","volts":"V","wfs":"",)"
               R"("gas":"","power":"","motor":""},"messageSerial":0,"FeederSide":""})";
    };
    const auto sample = [](int number, const char* time) {
        return R"({"sequence":)" + std::to_string(number) + R"(,"timestamp":")" + time +
               R"(","data":{"amps":1e308,"volts":0,"wfs":0,"gas":0,"power":0,"motor":0},"messageSerial":0})";
    };
    for (const char* time : {"/Date(9223372036854775807)/", "/Date(-9223372036854775807)/", "/Date(0)/"}) {
        WeldTraces& traces = recording.traces();
        traces.add({0, "WeldTriggerStart", 0, start(1, time)});
        traces.add({0, "WeldTraceData", 0, sample(2147483647, "/Date(9223372036854775807)/")});
        traces.add({0, "WeldTraceData", 0, sample(0, time)});
        traces.add({0, "WeldTraceData", 0, sample(-2147483647, "/Date(-9223372036854775807)/")});
    }
    EXPECT_THAT(recording.welds(), SizeIs(3));
    EXPECT_FALSE(printPlot(recording.welds(), "svg", "x").empty());
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

TEST(WeldPlot, InterruptsTheCurveAndShadesTheBackgroundWhereSamplesAreMissing)
{
    WeldTracesOf recording;
    recording.start(7).sample(0, 150, 0).sample(1, 151, 100).sample(4, 152, 400).sample(5, 153, 500).end(7);
    const std::string script = printPlot(recording.welds(), "svg", "x");
    EXPECT_THAT(script, HasSubstr("\n0.1 151 151 151\n\n0.4 152 152 152\n0.5 153 153 153\n"));
    EXPECT_THAT(script, HasSubstr("set object 1 rect from 0.1,graph 0 to 0.4,graph 1 behind"));
    EXPECT_THAT(script, HasSubstr("4 samples, 2 missing"));
}

TEST(WeldPlot, MarksNarrowGapsWithTheWidthOfAColumn)
{
    std::vector<RecordedWeld::Sample> all(3);
    all[1].number = 1;
    all[1].time = kSecond;
    all[2].number = 3;
    all[2].time = 2 * kSecond;
    const std::vector<PlotRange> gaps = gapsIn(all, 4.0);
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_EQ(gaps[0].from, 0.0);
    EXPECT_EQ(gaps[0].to, 3.5);
}

TEST(WeldPlot, DrawsGapsThatAreNarrowerThanAColumn)
{
    WeldTracesOf recording;
    recording.start(7, 1'000);
    for (int i = 0; i <= 4800; ++i) {
        if (i != 2000) {
            recording.sample(i, 150, i);
        }
    }
    const std::string script = printPlot(recording.end(7).welds(), "svg", "x");
    EXPECT_THAT(script, HasSubstr("set object 1 rect from 1.995,graph 0 to 2.005,graph 1 behind"));
}

TEST(WeldPlot, JoinsGapsThatOverlap)
{
    std::vector<RecordedWeld::Sample> all(3);
    all[1].number = 2;
    all[1].time = kSecond;
    all[2].number = 4;
    all[2].time = 2 * kSecond;
    const std::vector<PlotRange> gaps = gapsIn(all, 4.0);
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_EQ(gaps[0].from, 0.0);
    EXPECT_EQ(gaps[0].to, 3.5);
}

TEST(WeldPlot, HasAxesThatEndWithARoundNumberAboveTheCurve)
{
    for (const auto& [amps, end] :
         {std::pair<double, const char*>{950, "1000"}, {150, "150"}, {151, "200"}}) {
        WeldTracesOf recording;
        recording.start(7).sample(0, amps, 0).end(7);
        EXPECT_THAT(printPlot(recording.welds(), "svg", "x"),
                    HasSubstr("set yrange [0:" + std::string(end) + "]"));
    }
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
    const std::string script = printPlot(recording.traces().welds(), "svg", "it's a weld");
    EXPECT_THAT(script, HasSubstr("set terminal svg "));
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
    EXPECT_THAT(printPlot(recording.traces().welds(), "svg", "x"), HasSubstr("no end of this weld"));
}

} // namespace
} // namespace TelvaneTool
