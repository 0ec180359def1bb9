#include "weld/WeldDetector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace TelvaneTool
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Nanoseconds kStep = 100 * kMillisecond;

/// Writes down what it is told, in steps of time.
class Record : public WeldDetector::Listener
{
public:
    void arcStarted(const WeldSample& first) override { m_events.push_back("start " + at(first)); }
    void arcSample(const WeldSample& sample, bool burning) override
    {
        m_events.push_back((burning ? "burns " : "pauses ") + at(sample));
    }
    void arcEnded(const WeldSample& end) override { m_events.push_back("end " + at(end)); }

    const std::vector<std::string>& events() const { return m_events; }

private:
    static std::string at(const WeldSample& sample) { return std::to_string(sample.time / kStep); }

    std::vector<std::string> m_events;
};

/// Feeds currents, one a step, to a detector with a threshold of 10 A and a hold time of 3 steps.
std::vector<std::string> eventsOf(const std::vector<double>& currents)
{
    Record record;
    WeldDetector detector({10.0, 3 * kStep}, record);
    WeldSample sample;
    for (const double amps : currents) {
        sample[Quantity::Amps] = amps;
        detector.push(sample);
        sample.time += kStep;
    }
    detector.finish(kStep);
    return record.events();
}

TEST(WeldDetector, FindsNothingBelowTheThreshold)
{
    EXPECT_THAT(eventsOf({0, 10, 3, 10, 0}), IsEmpty());
}

TEST(WeldDetector, ReportsStartSamplesAndEnd)
{
    EXPECT_THAT(eventsOf({0, 50, 60, 0, 0, 0, 0, 0}), ElementsAre("start 1", "burns 1", "burns 2", "end 3"));
}

TEST(WeldDetector, ExcludesTheHoldTimeFromTheWeld)
{
    EXPECT_EQ(eventsOf({50, 0, 0, 0, 0}).back(), "end 1");
}

TEST(WeldDetector, BridgesAShortInterruption)
{
    EXPECT_THAT(eventsOf({50, 2, 2, 50, 0, 0, 0, 0}),
                ElementsAre("start 0", "burns 0", "pauses 1", "pauses 2", "burns 3", "end 4"));
}

TEST(WeldDetector, EndsTheWeldWhenTheCurrentStaysBelowForTheHoldTime)
{
    EXPECT_THAT(eventsOf({50, 2, 2, 2, 50, 0, 0, 0, 0}),
                ElementsAre("start 0", "burns 0", "end 1", "start 4", "burns 4", "end 5"));
}

TEST(WeldDetector, EndsAWeldOneSampleAfterTheRecordingEnds)
{
    EXPECT_THAT(eventsOf({0, 50, 50}), ElementsAre("start 1", "burns 1", "burns 2", "end 3"));
}

TEST(WeldDetector, EndsAWeldWhereTheArcWentOutIfTheRecordingEndsInTheHoldTime)
{
    EXPECT_THAT(eventsOf({0, 50, 0, 0}), ElementsAre("start 1", "burns 1", "end 2"));
}

TEST(WeldDetector, EndsTheWeldIfSamplesAreFurtherApartThanTheHoldTime)
{
    Record record;
    WeldDetector detector({10.0, 3 * kStep}, record);
    const double currents[] = {50, 0, 50};
    WeldSample sample;
    for (const double amps : currents) {
        sample[Quantity::Amps] = amps;
        detector.push(sample);
        sample.time += 10 * kStep;
    }
    EXPECT_THAT(record.events(), ElementsAre("start 0", "burns 0", "end 10", "start 20", "burns 20"));
}

TEST(WeldDetector, CanContinueAfterItsEnd)
{
    Record record;
    WeldDetector detector({10.0, kStep}, record);
    WeldSample sample;
    sample[Quantity::Amps] = 50;
    detector.push(sample);
    detector.finish(kStep);
    detector.push(sample);
    detector.finish(kStep);
    detector.finish(kStep);
    EXPECT_THAT(record.events(), ElementsAre("start 0", "burns 0", "end 1", "start 0", "burns 0", "end 1"));
}

TEST(WeldDetector, EndsAtTheLatestAtTheLimitOfTime)
{
    Record record;
    WeldDetector detector({10.0, 3 * kStep}, record);
    constexpr Nanoseconds kMax = std::numeric_limits<Nanoseconds>::max();
    WeldSample sample;
    sample.time = -kMax;
    sample[Quantity::Amps] = 50;
    detector.push(sample);
    sample[Quantity::Amps] = 0;
    detector.push(sample);
    sample.time = kMax;
    detector.push(sample); // the arc has been out for longer than the largest time
    sample[Quantity::Amps] = 50;
    detector.push(sample);
    detector.finish(kMax);
    const std::string limit = std::to_string(kMax / kStep);
    EXPECT_THAT(record.events(), ElementsAre("start -" + limit, "burns -" + limit, "end -" + limit,
                                             "start " + limit, "burns " + limit, "end " + limit));
}

} // namespace
} // namespace TelvaneTool
