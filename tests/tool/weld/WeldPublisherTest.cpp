#include "weld/WeldPublisher.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace TelvaneTool
{
namespace
{

constexpr Nanoseconds kMax = std::numeric_limits<Nanoseconds>::max();

/// Notes what is published.
class NotingSink : public RecordSink
{
public:
    void publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record, Nanoseconds stamp,
                 const std::string& /*group*/) override
    {
        m_stamps.push_back(stamp);
        if (channel == "WeldTraceData") {
            m_powers.push_back(static_cast<Telvane::WeldTraceData&>(record).data.power);
        } else if (channel == "WeldTriggerEnd") {
            m_tags.push_back(static_cast<Telvane::WeldTriggerEnd&>(record).tag);
        }
    }
    bool sleepUntil(Nanoseconds /*deadline*/) override { return true; }

    std::vector<Nanoseconds> m_stamps;
    std::vector<double> m_powers;
    std::vector<int> m_tags; ///< of the ends
};

class NoSamples : public SampleSource
{
public:
    Next next(WeldSample& /*sample*/) override { return Next::End; }
    const Traits& traits() const override { return m_traits; }

    Traits m_traits;
};

class WeldPublisherTest : public testing::Test
{
protected:
    static WeldSample sampleAt(Nanoseconds time)
    {
        WeldSample sample;
        sample.time = time;
        return sample;
    }

    void publishWeld(Nanoseconds from, Nanoseconds to)
    {
        m_publisher.beginGroup(sampleAt(from));
        m_publisher.arcStarted(sampleAt(from));
        m_publisher.arcSample(sampleAt(from), true);
        m_publisher.arcEnded(sampleAt(to));
    }

    NotingSink m_sink;
    NoSamples m_source;
    LatencyTracker m_ledger; ///< closed
    WeldSetup m_setup = [] {
        WeldSetup setup;
        setup.firstTag = std::numeric_limits<int>::max() - 1;
        return setup;
    }();
    WeldPublisher m_publisher{m_sink, m_source, m_ledger, m_setup, {0.0, false}};
};

TEST_F(WeldPublisherTest, RoundsThePowerToThreeDecimals)
{
    WeldSample sample;
    sample[Quantity::Amps] = 100.01;
    sample[Quantity::Volts] = 20.0301;
    m_publisher.beginGroup(sample);
    m_publisher.arcStarted(sample);
    m_publisher.arcSample(sample, true);
    EXPECT_EQ(m_sink.m_powers, std::vector<double>{2003.21}); // of 2003.210301

    sample[Quantity::Amps] = 1.0;
    sample[Quantity::Volts] = 20.0306;
    m_publisher.arcSample(sample, true);
    EXPECT_EQ(m_sink.m_powers.back(), 20.031);
}

TEST_F(WeldPublisherTest, KeepsStampsInRangeAtTheLimitsOfTime)
{
    constexpr Nanoseconds kEarliest = -1'000'000'000 * kSecond;
    constexpr Nanoseconds kLatest = 4'000'000'000 * kSecond;
    for (int i = 0; i < 4; ++i) {
        publishWeld(kEarliest, kLatest);
    }
    for (const Nanoseconds stamp : m_sink.m_stamps) {
        EXPECT_GT(stamp, 0);
    }
    EXPECT_EQ(m_sink.m_stamps.back(), kMax);
}

TEST_F(WeldPublisherTest, EndsAnAbortedWeldAtTheLatestAtTheLimitOfTime)
{
    m_source.m_traits.absoluteTime = true;
    m_source.m_traits.period = kMax - kSecond;
    m_publisher.beginGroup(sampleAt(2 * kSecond));
    m_publisher.arcStarted(sampleAt(2 * kSecond));
    m_publisher.arcSample(sampleAt(2 * kSecond), true);
    m_publisher.abort();
    EXPECT_EQ(m_sink.m_stamps.back(), kMax);
}

TEST_F(WeldPublisherTest, KeepsTheLargestTag)
{
    publishWeld(0, kSecond);
    publishWeld(0, kSecond);
    publishWeld(0, kSecond);
    EXPECT_EQ(m_sink.m_tags, (std::vector<int>{2147483646, 2147483647, 2147483647}));
}

} // namespace
} // namespace TelvaneTool
