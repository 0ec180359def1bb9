#include "recording/RecordingInput.h"

#include "common/cli/ExitCodes.h"
#include "common/support/Compression.h"
#include "helpers/TestFiles.h"

#include <gmock/gmock.h>

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::TemporaryDirectory;
using testing::ElementsAre;
using testing::IsEmpty;

class RecordingInputTest : public testing::Test
{
protected:
    /// \return path of a recording with a message at each time
    std::string write(const char* name, Nanoseconds started, const std::vector<Nanoseconds>& times) const
    {
        std::string text = printHeader({started, "/run/bus", {}, 1});
        for (const Nanoseconds time : times) {
            appendMessage(text, {time, "A", 1, "{}"});
        }
        return m_directory.write(name, text);
    }

    static std::vector<Nanoseconds> timesIn(RecordingInput& input)
    {
        std::vector<Nanoseconds> times;
        RecordedMessage message;
        EXPECT_TRUE(input.open());
        while (input.next(message)) {
            times.push_back(message.time);
        }
        return times;
    }

    static RecordingRange range(const char* from, const char* to)
    {
        RecordingRange range;
        if (*from != '\0') {
            EXPECT_TRUE(readBound(from, range.from.emplace()));
        }
        if (*to != '\0') {
            EXPECT_TRUE(readBound(to, range.to.emplace()));
        }
        return range;
    }

    TemporaryDirectory m_directory;
};

constexpr Nanoseconds kStarted = 1'704'164'645 * kSecond; // 2024-01-02T03:04:05Z

TEST_F(RecordingInputTest, CountsTimesFromTheFirstMessageAndExcludesTheEnd)
{
    const std::string path = write("a", kStarted, {5 * kSecond, 6 * kSecond, 7 * kSecond, 8 * kSecond});
    RecordingInput input({path}, range("1", "3s"));
    EXPECT_THAT(timesIn(input), ElementsAre(6 * kSecond, 7 * kSecond));
    EXPECT_EQ(input.origin(), 5 * kSecond);
    EXPECT_EQ(input.begin(), 6 * kSecond);
    EXPECT_EQ(input.finish(), kSuccess);
}

TEST_F(RecordingInputTest, TakesDatesAndTimes)
{
    const std::string path = write("a", kStarted, {5 * kSecond, 6 * kSecond, 7 * kSecond});
    RecordingInput input({path}, range("2024-01-02T03:04:11Z", "2024-01-02T03:04:12Z"));
    EXPECT_THAT(timesIn(input), ElementsAre(6 * kSecond));
}

TEST_F(RecordingInputTest, ReadsSeveralFilesAsOne)
{
    const std::string first = write("a", kStarted, {1 * kSecond, 2 * kSecond});
    const std::string part = write("b", kStarted, {3 * kSecond});
    const std::string later = write("c", kStarted + 60 * kSecond, {1 * kSecond});
    RecordingInput input({first, part, later});
    EXPECT_THAT(timesIn(input), ElementsAre(1 * kSecond, 2 * kSecond, 3 * kSecond, 61 * kSecond));
    EXPECT_EQ(input.header().started, kStarted);
}

TEST_F(RecordingInputTest, LosesNothingOfFilesInTheWrongOrder)
{
    const std::string earlier = write("a", kStarted, {1 * kSecond, 2 * kSecond});
    const std::string later = write("b", kStarted + 60 * kSecond, {1 * kSecond});
    RecordingInput whole({later, earlier});
    EXPECT_THAT(timesIn(whole), ElementsAre(1 * kSecond, -59 * kSecond, -58 * kSecond));
    RecordingInput part({later, earlier}, range("", "2024-01-02T03:04:07Z"));
    EXPECT_THAT(timesIn(part), ElementsAre(-59 * kSecond));
}

TEST_F(RecordingInputTest, OpensEachFileOfARange)
{
    const std::string first = write("a", kStarted, {1 * kSecond, 2 * kSecond});
    RecordingInput input({first, m_directory.path("missing")}, range("", "1"));
    testing::internal::CaptureStderr();
    EXPECT_THAT(timesIn(input), ElementsAre(1 * kSecond));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("cannot read"), std::string::npos);
    EXPECT_EQ(input.finish(), kWrongInput);
}

TEST_F(RecordingInputTest, ShiftsTheGapsOfLaterFiles)
{
    RecordedMessage note;
    note.time = 3 * kSecond;
    note.channel = "A";
    note.missed = 1;
    note.missedFrom = 1 * kSecond;
    note.missedTo = 2 * kSecond;
    std::string text = printHeader({kStarted + 60 * kSecond, "", {}, 1});
    appendMessage(text, note);
    RecordingInput input({write("a", kStarted, {}), m_directory.write("b", text)});
    ASSERT_TRUE(input.open());
    RecordedMessage message;
    ASSERT_TRUE(input.next(message));
    EXPECT_EQ(message.time, 63 * kSecond);
    EXPECT_EQ(message.missedFrom, 61 * kSecond);
    EXPECT_EQ(message.missedTo, 62 * kSecond);
}

TEST_F(RecordingInputTest, KnowsWhichPartHasBeenRead)
{
    const std::string path = write("a", kStarted, {1 * kSecond, 2 * kSecond});
    RecordingInput input({path, path});
    ASSERT_TRUE(input.open());
    RecordedMessage message;
    std::vector<double> fractions;
    while (input.next(message)) {
        fractions.push_back(input.fraction());
    }
    ASSERT_EQ(fractions.size(), 4U);
    EXPECT_GT(fractions[0], 0.0);
    EXPECT_LT(fractions[0], 0.5);
    EXPECT_EQ(fractions[1], 0.5);
    EXPECT_EQ(fractions[3], 1.0);
}

TEST_F(RecordingInputTest, DoesNotKnowItForACompressedFile)
{
    std::string text = printHeader({kStarted, "", {}, 1});
    appendMessage(text, {1, "A", 1, "{}"});
    RecordingInput input(
        {m_directory.write("a.gz", makeCompressor(Compression::Gzip)->compress(text, true))});
    ASSERT_TRUE(input.open());
    RecordedMessage message;
    ASSERT_TRUE(input.next(message));
    EXPECT_LT(input.fraction(), 0.0);
}

TEST_F(RecordingInputTest, EndsAtAFileThatCannotBeRead)
{
    const std::string first = write("a", kStarted, {1 * kSecond});
    RecordingInput input({first, m_directory.path("missing"), first});
    testing::internal::CaptureStderr();
    EXPECT_THAT(timesIn(input), ElementsAre(1 * kSecond));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("cannot read"), std::string::npos);
    EXPECT_EQ(input.finish(), kWrongInput);
}

TEST_F(RecordingInputTest, ReportsDamagedLinesOfEveryFile)
{
    const std::string text = printHeader({kStarted, "", {}, 1});
    const std::string damaged = m_directory.write("a", text + "rubbish\n");
    RecordingInput input({damaged, write("b", kStarted, {1 * kSecond})});
    testing::internal::CaptureStderr();
    EXPECT_THAT(timesIn(input), ElementsAre(1 * kSecond));
    EXPECT_EQ(input.finish(), kWrongInput);
    testing::internal::GetCapturedStderr();
}

TEST_F(RecordingInputTest, AcceptsExtremeTimes)
{
    const std::string path = write("a", kStarted, {-4'000'000'000'000'000'000, 4'000'000'000'000'000'000});
    RecordingInput input({path}, range("1", "1000000000"));
    EXPECT_THAT(timesIn(input), IsEmpty());
}

TEST(RecordingBound, IsATimeSpanOrAMoment)
{
    RecordingBound bound;
    EXPECT_TRUE(readBound("1.5", bound));
    EXPECT_FALSE(bound.absolute);
    EXPECT_EQ(bound.moment(kSecond), 2'500 * kMillisecond);
    EXPECT_TRUE(readBound("2024-01-02T03:04:05Z", bound));
    EXPECT_TRUE(bound.absolute);
    EXPECT_EQ(bound.moment(kSecond), kStarted);
    EXPECT_FALSE(readBound("soon", bound));
    EXPECT_FALSE(readBound("-1", bound));
}

} // namespace
} // namespace TelvaneTool
