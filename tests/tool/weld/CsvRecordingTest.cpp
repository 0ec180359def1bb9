#include "weld/CsvRecording.h"

#include "helpers/TestFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::TemporaryDirectory;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Row
{
    Nanoseconds time;
    double amps;
    double volts;
    bool newGroup;
    bool operator==(const Row& other) const
    {
        return time == other.time && amps == other.amps && volts == other.volts && newGroup == other.newGroup;
    }
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << "{" << row.time << " ns, " << row.amps << " A, " << row.volts << " V"
         << (row.newGroup ? ", new group}" : "}");
}

class CsvRecordingTest : public testing::Test
{
protected:
    CsvRecordingTest()
    {
        m_options.text(Quantity::Amps) = "amps";
        m_options.text(Quantity::Volts) = "volts";
        m_options.period = kMillisecond;
    }

    /// Opens a recording of that text.
    bool open(const std::string& text)
    {
        m_options.path = m_directory.write("weld.csv", text);
        m_recording.emplace(m_options, [this](const std::string& message) {
            // The directory has another name each time.
            m_invalidRows.push_back(message.substr(message.find("weld.csv")));
        });
        return m_recording->open(m_error);
    }

    std::vector<Row> rowsOf(const std::string& text)
    {
        EXPECT_TRUE(open(text)) << m_error;
        std::vector<Row> rows;
        WeldSample sample;
        for (;;) {
            const SampleSource::Next next = m_recording->next(sample);
            if (next == SampleSource::Next::End) {
                break;
            }
            m_periods.push_back(m_recording->traits().period);
            rows.push_back({sample.time, sample[Quantity::Amps], sample[Quantity::Volts],
                            next == SampleSource::Next::NewGroup});
        }
        return rows;
    }

    TemporaryDirectory m_directory;
    CsvRecording::Options m_options;
    std::optional<CsvRecording> m_recording;
    std::string m_error;
    std::vector<std::string> m_invalidRows;
    std::vector<Nanoseconds> m_periods;
};

TEST_F(CsvRecordingTest, ReadsRowsAtAFixedPeriod)
{
    EXPECT_THAT(rowsOf("volts,amps\n20,100\n21.5,99\n"),
                ElementsAre(Row{0, 100, 20, true}, Row{kMillisecond, 99, 21.5, false}));
    EXPECT_THAT(m_periods, ElementsAre(kMillisecond, kMillisecond));
}

TEST_F(CsvRecordingTest, AppliesTheScalesOfItsColumns)
{
    m_options.text(Quantity::Amps) = "current_dA*0.1";
    m_options.text(Quantity::Volts) = "voltage_mV/1000+1";
    EXPECT_THAT(rowsOf("current_dA,voltage_mV\n1102,20000\n"), ElementsAre(Row{0, 110.2, 21, true}));
}

TEST_F(CsvRecordingTest, ReportsWhichQuantitiesAreMeasured)
{
    m_options.text(Quantity::Gas) = "12.5";
    EXPECT_TRUE(open("amps,volts\n"));
    EXPECT_TRUE(m_recording->traits().has(Quantity::Amps));
    EXPECT_TRUE(m_recording->traits().has(Quantity::Gas));
    EXPECT_FALSE(m_recording->traits().has(Quantity::Wfs));
}

TEST_F(CsvRecordingTest, BeginsANewGroupWhereItsColumnChanges)
{
    m_options.group = "part";
    EXPECT_THAT(rowsOf("part,amps,volts\nA,1,1\nA,2,2\nB,3,3\nB,4,4\n"),
                ElementsAre(Row{0, 1, 1, true}, Row{kMillisecond, 2, 2, false}, Row{0, 3, 3, true},
                            Row{kMillisecond, 4, 4, false}));
}

TEST_F(CsvRecordingTest, ReadsTimeAsANumberOfSeconds)
{
    m_options.time = "t_ms*0.001";
    EXPECT_THAT(rowsOf("t_ms,amps,volts\n10,1,1\n12.5,2,2\n"),
                ElementsAre(Row{10 * kMillisecond, 1, 1, true}, Row{12'500 * kMicrosecond, 2, 2, false}));
    EXPECT_FALSE(m_recording->traits().absoluteTime);
}

TEST_F(CsvRecordingTest, ReadsDateAndTimeFromTwoColumns)
{
    m_options.time = "date+time";
    const auto rows =
        rowsOf("date,time,amps,volts\n8/17/2022,07:50:26.295,1,1\n\"8/17/2022\",07:50:26.404,2,2\n");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[1].time - rows[0].time, 109 * kMillisecond);
    EXPECT_TRUE(m_recording->traits().absoluteTime);
}

TEST_F(CsvRecordingTest, ReadsAMomentFromOneColumn)
{
    m_options.time = "when";
    EXPECT_THAT(rowsOf("when,amps,volts\n2022-08-17T12:00:00Z,1,1\n"),
                ElementsAre(Row{1660737600 * kSecond, 1, 1, true}));
    EXPECT_TRUE(m_recording->traits().absoluteTime);
}

TEST_F(CsvRecordingTest, CarriesATimeOfDayAcrossMidnight)
{
    m_options.time = "clock";
    const auto rows = rowsOf("clock,amps,volts\n23:59:59.5,1,1\n0:00:00.5,2,2\n0:00:01.5,3,3\n");
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[1].time - rows[0].time, kSecond);
    EXPECT_EQ(rows[2].time - rows[1].time, kSecond);
    EXPECT_FALSE(m_recording->traits().absoluteTime);
}

TEST_F(CsvRecordingTest, CarriesATimeOfDayAcrossSeveralMidnights)
{
    m_options.time = "clock";
    const auto rows = rowsOf("clock,amps,volts\n23:59:59,1,1\n0:00:01,2,2\n23:59:59,3,3\n0:00:01,4,4\n");
    ASSERT_EQ(rows.size(), 4U);
    EXPECT_EQ(rows[1].time - rows[0].time, 2 * kSecond);
    EXPECT_EQ(rows[3].time - rows[2].time, 2 * kSecond);
    EXPECT_EQ(rows[3].time - rows[1].time, 24 * 3600 * kSecond);
}

TEST_F(CsvRecordingTest, TakesTheMedianIntervalOfEachGroupAsItsPeriod)
{
    m_options.time = "t";
    m_options.group = "part";
    rowsOf("t,part,amps,volts\n0,A,1,1\n0.1,A,1,1\n0.2,A,1,1\n5,A,1,1\n0,B,1,1\n2,B,1,1\n4,B,1,1\n");
    EXPECT_THAT(m_periods, ElementsAre(kSecond / 10, kSecond / 10, kSecond / 10, kSecond / 10, 2 * kSecond,
                                       2 * kSecond, 2 * kSecond));
}

TEST_F(CsvRecordingTest, ReportsInvalidRowsByFileLineAndColumnAndSkipsThem)
{
    EXPECT_THAT(rowsOf("id,amps,volts\n1,10,20\n2,abc,20\n3,30,\n4,40,20\n"),
                ElementsAre(Row{0, 10, 20, true}, Row{3 * kMillisecond, 40, 20, false}));
    EXPECT_THAT(m_invalidRows, ElementsAre("weld.csv:3:2: amps: \"abc\" is not a number",
                                           "weld.csv:4:3: volts: \"\" is not a number"));
    EXPECT_EQ(m_recording->invalidRows(), 2U);
}

TEST_F(CsvRecordingTest, ReportsRowsWithAnotherNumberOfFieldsThanTheHeader)
{
    EXPECT_THAT(rowsOf("amps,volts,note\n1,2\n1,5,2,3\n\n4,5,\"x\n6,7,ok\n"),
                ElementsAre(Row{0, 6, 7, true}));
    EXPECT_THAT(m_invalidRows, ElementsAre("weld.csv:2:3: the row has 2 fields, the header 3",
                                           "weld.csv:3:4: the row has 4 fields, the header 3",
                                           "weld.csv:5:3: unclosed quote"));
}

TEST_F(CsvRecordingTest, ReportsTimesThatGoBack)
{
    m_options.time = "t";
    EXPECT_THAT(rowsOf("amps,volts,t\n1,1,5\n2,2,4\n3,3,5\n"),
                ElementsAre(Row{5 * kSecond, 1, 1, true}, Row{5 * kSecond, 3, 3, false}));
    EXPECT_THAT(m_invalidRows, ElementsAre("weld.csv:3:3: t: the time is before that of the previous row"));
}

TEST_F(CsvRecordingTest, ReportsTimesThatChangeTheirForm)
{
    m_options.time = "t";
    rowsOf("t,amps,volts\n1,1,1\n12:00:00,2,2\n");
    EXPECT_THAT(m_invalidRows,
                ElementsAre("weld.csv:3:1: t: \"12:00:00\" is not a time as in the rows before"));
}

TEST_F(CsvRecordingTest, ReportsTimesThatNeedAScale)
{
    m_options.time = "t";
    EXPECT_THAT(rowsOf("t,amps,volts\n1660737600000,1,1\n"), IsEmpty());
    ASSERT_EQ(m_invalidRows.size(), 1U);
    EXPECT_THAT(m_invalidRows[0], HasSubstr("add a scale, as in t*0.001"));
}

TEST_F(CsvRecordingTest, ReportsTimesOutOfRange)
{
    m_options.time = "t";
    EXPECT_THAT(
        rowsOf("t,amps,volts\n-8e9,1,1\n8e9,2,2\n-1e9,3,3\n4e9,4,4\n"),
        ElementsAre(Row{-1'000'000'000 * kSecond, 3, 3, true}, Row{4'000'000'000 * kSecond, 4, 4, false}));
    EXPECT_EQ(m_invalidRows.size(), 2U);
    EXPECT_EQ(m_periods.back(), 5'000'000'000 * kSecond);
}

TEST_F(CsvRecordingTest, IgnoresColumnsThatAreNotMapped)
{
    rowsOf("note,amps,volts\nwhatever,1,1\n");
    EXPECT_THAT(m_invalidRows, IsEmpty());
}

TEST_F(CsvRecordingTest, FailsToOpenWithoutAMappedColumn)
{
    m_options.text(Quantity::Gas) = "gas";
    EXPECT_FALSE(open("amps,volts\n"));
    EXPECT_THAT(m_error, HasSubstr("--gas: there is no column \"gas\"; the columns are amps, volts"));
    m_options.text(Quantity::Gas) = "";
    m_options.group = "part";
    EXPECT_FALSE(open("amps,volts\n"));
    EXPECT_THAT(m_error, HasSubstr("--group: there is no column \"part\""));
    m_options.group = "";
    m_options.time = "date+time";
    EXPECT_FALSE(open("amps,volts,date\n"));
    EXPECT_THAT(m_error, HasSubstr("--time: there is no column"));
}

TEST_F(CsvRecordingTest, FailsToOpenWithoutAHeader)
{
    EXPECT_FALSE(open(""));
    EXPECT_THAT(m_error, HasSubstr("is empty; the first line must name the columns"));
}

TEST_F(CsvRecordingTest, StopsAtTheLargestTime)
{
    constexpr Nanoseconds kMax = std::numeric_limits<Nanoseconds>::max();
    m_options.period = kMax - 1;
    EXPECT_THAT(rowsOf("amps,volts\n1,1\n2,2\n3,3\n"),
                ElementsAre(Row{0, 1, 1, true}, Row{kMax - 1, 2, 2, false}, Row{kMax, 3, 3, false}));
    EXPECT_THAT(m_invalidRows, IsEmpty());
}

} // namespace
} // namespace TelvaneTool
