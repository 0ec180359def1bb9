#include "serve/MissReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

class MissReportTest : public testing::Test
{
protected:
    using Clients = std::vector<Telvane::EventServerClientStatus>;

    static Clients clients(std::uint64_t missedLogs, std::uint64_t missedWelds = 0, pid_t process = 11)
    {
        Telvane::EventServerClientStatus fast;
        fast.descriptor = 6;
        fast.process = 10;
        fast.subscriptions.push_back({"LogData", 0, 500, 0});
        Telvane::EventServerClientStatus slow;
        slow.descriptor = 7;
        slow.process = process;
        slow.subscriptions.push_back({"LogData", 0, 500, missedLogs});
        slow.subscriptions.push_back({"Weld", 0, 500, missedWelds});
        return {fast, slow};
    }

    std::vector<std::string> at(int seconds, const Clients& status)
    {
        return m_report.update(status, seconds * kSecond);
    }

    MissReport m_report{[](pid_t process) {
        return process == 11 ? "telvane listen" : "";
    }};
};

TEST_F(MissReportTest, IsSilentWithoutMisses)
{
    EXPECT_THAT(at(1, clients(0)), IsEmpty());
    EXPECT_THAT(at(20, clients(0)), IsEmpty());
    EXPECT_THAT(m_report.finish(30 * kSecond), IsEmpty());
}

TEST_F(MissReportTest, HasOneLineAtTheBeginOneEveryTenSecondsAndOneAtTheEnd)
{
    EXPECT_THAT(
        at(1, clients(3, 1)),
        ElementsAre("client 7 (telvane listen, process 11) is too slow and has missed 4 messages (LogData 3, "
                    "Weld 1)"));
    for (int second = 2; second <= 10; ++second) {
        EXPECT_THAT(at(second, clients(static_cast<std::uint64_t>(3 + second), 1)), IsEmpty());
    }
    EXPECT_THAT(
        at(11, clients(20, 1)),
        ElementsAre("client 7 (telvane listen, process 11) has missed 17 messages (LogData 17) more"));
    EXPECT_THAT(at(12, clients(21, 1)), IsEmpty());
    EXPECT_THAT(at(21, clients(21, 1)),
                ElementsAre("client 7 (telvane listen, process 11) has missed 1 message (LogData 1) more"));
    EXPECT_THAT(
        at(22, clients(21, 1)),
        ElementsAre("client 7 (telvane listen, process 11) misses no more messages; it missed 22 messages "
                    "(LogData 21, Weld 1) in 11.000 s"));
    EXPECT_THAT(at(60, clients(21, 1)), IsEmpty());
    EXPECT_THAT(
        at(61, clients(22, 1)),
        ElementsAre(
            "client 7 (telvane listen, process 11) is too slow and has missed 1 message (LogData 1)"));
}

TEST_F(MissReportTest, EndsWhenTheClientDisconnectsOrAnotherOneGetsItsNumber)
{
    at(1, clients(3));
    EXPECT_THAT(at(2, {}),
                ElementsAre("client 7 (telvane listen, process 11) has disconnected; it missed 3 messages "
                            "(LogData 3) in 1.000 s"));
    at(3, clients(3));
    EXPECT_THAT(
        at(4, clients(5, 0, 12)),
        ElementsAre(
            "client 7 (process 12) is too slow and has missed 5 messages (LogData 5)",
            "client 7 (telvane listen, process 11) has disconnected; it missed 3 messages (LogData 3) "
            "in 1.000 s"));
}

TEST_F(MissReportTest, EndsWhenTheServerStops)
{
    at(1, clients(3));
    EXPECT_THAT(
        m_report.finish(2 * kSecond),
        ElementsAre("client 7 (telvane listen, process 11) still missed messages when the server stopped; it "
                    "missed 3 messages (LogData 3) in 1.000 s"));
}

} // namespace
} // namespace TelvaneTool
