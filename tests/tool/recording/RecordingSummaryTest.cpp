#include "recording/RecordingSummary.h"

#include "common/support/Json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using testing::HasSubstr;
using testing::Not;

RecordingSummary::File file()
{
    RecordingSummary::File file;
    file.path = "weld.jsonl";
    file.header.started = 1'704'164'645 * kSecond;
    file.header.server = "/run/bus";
    file.bytes = 4321;
    return file;
}

/// \return a number of the summary's JSON, or of its first channel's
double number(const RecordingSummary& summary, const char* key, bool ofChannel = false)
{
    const JsonTree tree = summary.json(file());
    const cJSON* const object =
        ofChannel ? cJSON_GetArrayItem(cJSON_GetObjectItem(tree.get(), "channels"), 0) : tree.get();
    const cJSON* const item = cJSON_GetObjectItem(object, key);
    EXPECT_TRUE(cJSON_IsNumber(item)) << key;
    return cJSON_GetNumberValue(item);
}

TEST(RecordingSummary, CountsOutagesApartFromRecords)
{
    RecordingSummary summary;
    summary.add({kSecond, "A", 1, "{}"});
    RecordedMessage note;
    note.time = 4 * kSecond;
    note.outage = true;
    note.missedFrom = 2 * kSecond;
    note.missedTo = 4 * kSecond;
    summary.add(note);
    summary.add({5 * kSecond, "A", 2, "{}"});
    EXPECT_EQ(number(summary, "records"), 2);
    EXPECT_EQ(number(summary, "outages"), 1);
    EXPECT_THAT(summary.text(file()), HasSubstr("outages   1, without a connection for 2"));
    EXPECT_EQ(number(summary, "firstSeconds", true), 0);
    EXPECT_EQ(number(summary, "lastSeconds", true), 4);
    note.missedTo = 5 * kSecond;
    summary.add(note);
    EXPECT_THAT(summary.text(file()), HasSubstr("outages   2, without a connection for 5.000 s"));
}

TEST(RecordingSummary, PrintsSpanCountsAndRates)
{
    RecordingSummary summary;
    for (int i = 0; i < 5; ++i) {
        summary.add({kSecond + i * kSecond / 2, "A", i, "{}"});
    }
    summary.add({11 * kSecond, "B", 5, R"({"b":1})"});
    EXPECT_EQ(number(summary, "records"), 6);
    EXPECT_EQ(number(summary, "seconds"), 10);
    EXPECT_EQ(number(summary, "records", true), 5);
    EXPECT_EQ(number(summary, "rate", true), 2);
    EXPECT_EQ(number(summary, "bytes", true), 10);
    EXPECT_EQ(number(summary, "longestPauseSeconds", true), 0.5);
    const std::string text = summary.text(file());
    EXPECT_THAT(text, HasSubstr("from      2024-01-02T03:04:06.000000Z\n"));
    EXPECT_THAT(text, HasSubstr("until     2024-01-02T03:04:16.000000Z (10.000 s)\n"));
    EXPECT_THAT(text, HasSubstr("records   6 on 2 channels"));
    EXPECT_THAT(text, HasSubstr("sequence  without gaps\n"));
}

TEST(RecordingSummary, CountsGapsInTheSequence)
{
    RecordingSummary summary;
    for (const int sequence : {1, 2, 5, 6, 8}) {
        summary.add({sequence, "A", sequence, "{}"});
    }
    EXPECT_EQ(number(summary, "sequenceGaps"), 2);
    EXPECT_EQ(number(summary, "sequencesMissing"), 3);
    EXPECT_EQ(number(summary, "sequenceRestarts"), 0);
}

TEST(RecordingSummary, DetectsARestartOfTheNumbers)
{
    RecordingSummary summary;
    for (const int sequence : {65534, 65535, 0, 1, 3}) {
        summary.add({1, "A", sequence, "{}"});
    }
    EXPECT_EQ(number(summary, "sequenceGaps"), 1);
    EXPECT_EQ(number(summary, "sequencesMissing"), 1);
    EXPECT_EQ(number(summary, "sequenceRestarts"), 0);
    summary.add({1, "A", 2, "{}"});
    EXPECT_EQ(number(summary, "sequenceGaps"), 1);
    EXPECT_EQ(number(summary, "sequenceRestarts"), 1);
}

TEST(RecordingSummary, PrintsAnEmptyRecording)
{
    const RecordingSummary summary;
    EXPECT_EQ(number(summary, "records"), 0);
    EXPECT_EQ(number(summary, "seconds"), 0);
    EXPECT_THAT(summary.text(file()), HasSubstr("records   0 on 0 channels"));
    EXPECT_THAT(summary.text(file()), Not(HasSubstr("until")));
}

TEST(RecordingSummary, PrintsDamage)
{
    RecordingSummary::File damaged = file();
    damaged.tornBytes = 17;
    damaged.damagedLines = 2;
    EXPECT_THAT(RecordingSummary().text(damaged), HasSubstr("torn end  17 bytes"));
    EXPECT_THAT(RecordingSummary().text(damaged), HasSubstr("damaged   2 lines"));
}

} // namespace
} // namespace TelvaneTool
