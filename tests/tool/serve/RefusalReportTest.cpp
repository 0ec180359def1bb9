#include "serve/RefusalReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using Reason = Telvane::EventServerRefusal::Reason;

const std::string kText =
    "client 7 (process 11, user 0, group 0) for channel LogData: the policy does not let it publish";

Telvane::EventServerRefusal refusal(const std::string& channel = "LogData",
                                    Reason reason = Reason::MayNotPublish)
{
    Telvane::EventServerRefusal refusal;
    refusal.client = 7;
    refusal.process = 11;
    refusal.reason = reason;
    refusal.channel = channel;
    return refusal;
}

TEST(RefusalReport, ReportsTheFirstRefusalAtOnce)
{
    RefusalReport report;
    EXPECT_EQ(report.add(refusal(), kSecond), kText);
    EXPECT_EQ(report.add(refusal(), kSecond), "");
    EXPECT_THAT(report.add(refusal("Other"), kSecond),
                EndsWith("for channel Other: the policy does not let it publish"));
    EXPECT_THAT(report.add(refusal("LogData", Reason::MayNotSubscribe), kSecond),
                EndsWith("let it subscribe"));
    Telvane::EventServerRefusal other = refusal();
    other.process = 12;
    EXPECT_NE(report.add(other, kSecond), "");
    other.client = 8;
    EXPECT_NE(report.add(other, kSecond), "");
}

TEST(RefusalReport, SumsUpTheOthersEveryTenSeconds)
{
    RefusalReport report;
    report.add(refusal(), kSecond);
    for (int i = 0; i < 30; ++i) {
        report.add(refusal(), 2 * kSecond);
    }
    EXPECT_THAT(report.update(kSecond + RefusalReport::kPeriod - 1), IsEmpty());
    EXPECT_THAT(report.update(kSecond + RefusalReport::kPeriod), ElementsAre(kText + "; 30 more"));
    report.add(refusal(), 12 * kSecond);
    EXPECT_THAT(report.update(12 * kSecond), IsEmpty());
    EXPECT_THAT(report.update(21 * kSecond), ElementsAre(kText + "; 1 more"));
}

TEST(RefusalReport, BeginsAgainAfterTenSecondsWithoutARefusal)
{
    RefusalReport report;
    report.add(refusal(), kSecond);
    EXPECT_THAT(report.update(kSecond + RefusalReport::kPeriod), IsEmpty());
    EXPECT_EQ(report.add(refusal(), 12 * kSecond), kText);
}

TEST(RefusalReport, ReportsTheRestAtTheEnd)
{
    RefusalReport report;
    report.add(refusal(), kSecond);
    report.add(refusal(), kSecond);
    EXPECT_THAT(report.finish(), ElementsAre(kText + "; 1 more"));
    EXPECT_THAT(report.finish(), IsEmpty());
}

TEST(RefusalReport, ListsALimitedNumberOfChannelsOfAClient)
{
    RefusalReport report;
    for (std::size_t i = 0; i < RefusalReport::kMaxChannels; ++i) {
        EXPECT_NE(report.add(refusal("C" + std::to_string(i)), kSecond), "");
    }
    EXPECT_EQ(report.add(refusal("Another"), kSecond), "");
    EXPECT_NE(report.add(refusal("Another", Reason::MayNotSubscribe), kSecond), "");
    Telvane::EventServerRefusal other = refusal("Another");
    other.client = 8;
    EXPECT_NE(report.add(other, kSecond), "");
    EXPECT_THAT(report.update(2 * kSecond + RefusalReport::kPeriod),
                ElementsAre("1 more of other clients or for other channels"));
}

TEST(RefusalReport, HasALimitedNumberOfEntries)
{
    RefusalReport report;
    Telvane::EventServerRefusal one = refusal();
    for (std::size_t i = 0; i < RefusalReport::kMaxEntries; ++i) {
        one.process = static_cast<pid_t>(i);
        EXPECT_NE(report.add(one, kSecond), "");
    }
    EXPECT_EQ(report.add(refusal("Another"), kSecond), "");
    EXPECT_EQ(report.add(refusal("AndAnother"), kSecond), "");
    EXPECT_THAT(report.update(kSecond + RefusalReport::kPeriod),
                ElementsAre("2 more of other clients or for other channels"));
    EXPECT_THAT(report.update(kSecond + RefusalReport::kPeriod), IsEmpty());
    EXPECT_NE(report.add(refusal("Another"), 12 * kSecond), "") << "the others were silent";
    EXPECT_THAT(report.update(kSecond + 2 * RefusalReport::kPeriod), IsEmpty()) << "they were reported";
}

} // namespace
} // namespace TelvaneTool
