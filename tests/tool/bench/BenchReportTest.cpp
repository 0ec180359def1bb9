#include "bench/BenchReport.h"

#include "common/support/Json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using testing::HasSubstr;
using testing::Not;

BenchResult result()
{
    BenchResult result;
    result.settings.publishers = 2;
    result.settings.subscribers = 3;
    result.settings.size = 200;
    result.time = 2 * kSecond;
    result.published = 1000;
    result.received = 2990;
    for (int i = 0; i < 100; ++i) {
        result.latencies.add(i < 99 ? 16 * kMicrosecond : kMillisecond);
    }
    return result;
}

TEST(BenchReport, CountsWhatEverySubscriberShouldHaveReceived)
{
    EXPECT_EQ(result().lost(), 10U);
    BenchResult more = result();
    more.received = 4000; // of what was published while the publishers were counted
    EXPECT_EQ(more.lost(), 0U);
}

TEST(BenchReport, TellsThroughputLossesAndDelays)
{
    const std::string text = printBench(result());
    EXPECT_THAT(text, HasSubstr("2 publishers, 3 subscribers, payloads of 200 bytes, 2.000 s\n"));
    EXPECT_THAT(text, HasSubstr("published  1000  (500/s, 100.0 KB/s)\n"));
    EXPECT_THAT(text, HasSubstr("received   2990  (1495/s, 299.0 KB/s)\n"));
    EXPECT_THAT(text, HasSubstr("lost       10\n"));
    EXPECT_THAT(text, HasSubstr("p99.9 1 ms, longest 1 ms\n"));
}

TEST(BenchReport, TellsNoDelaysWhereNothingWasReceived)
{
    EXPECT_THAT(printBench(BenchResult()), Not(HasSubstr("latency")));
}

TEST(BenchReport, PrintsJsonForPrograms)
{
    std::string error;
    const JsonTree tree = parseJson(printBenchJson(result()), error);
    const auto number = [](const cJSON* object, const char* key) {
        return cJSON_GetNumberValue(cJSON_GetObjectItemCaseSensitive(object, key));
    };
    EXPECT_EQ(number(tree.get(), "publishedPerSecond"), 500.0);
    EXPECT_EQ(number(tree.get(), "lost"), 10.0);
    const cJSON* const latency = cJSON_GetObjectItem(tree.get(), "latencyMicroseconds");
    EXPECT_NEAR(number(latency, "p50"), 16.0, 0.5);
    EXPECT_EQ(number(latency, "longest"), 1000.0);
}

} // namespace
} // namespace TelvaneTool
