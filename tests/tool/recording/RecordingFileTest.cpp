// Writing recordings into files and reading them again.

#include "common/cli/ExitCodes.h"
#include "helpers/TestFiles.h"
#include "recording/RecordingReader.h"
#include "recording/RecordingWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::contentOf;
using Telvane::Testing::TemporaryDirectory;
using testing::ElementsAre;
using testing::IsEmpty;

const RecordingHeader kHeader = {1'704'164'645 * kSecond, "/run/bus", {"LogData"}, 1};

std::string lineOf(Nanoseconds time, const std::string& log)
{
    std::string line;
    appendMessage(line, {time, "LogData", 1, R"({"log":")" + log + R"("})"});
    return line;
}

RecordedMessage at(Nanoseconds time)
{
    return {time, "LogData", 1, "{}"};
}

std::vector<Nanoseconds> timesOf(RecordingReader& reader)
{
    std::vector<Nanoseconds> times;
    RecordedMessage message;
    while (reader.next(message)) {
        times.push_back(message.time);
    }
    return times;
}

std::vector<Nanoseconds> timesOf(const std::string& path)
{
    RecordingReader reader;
    EXPECT_TRUE(reader.open(path));
    return timesOf(reader);
}

RecordingWriter::Settings settingsFor(const std::string& path)
{
    RecordingWriter::Settings settings;
    settings.path = path;
    return settings;
}

TEST(RecordingWriter, WritesWhatTheReaderReads)
{
    const TemporaryDirectory directory;
    RecordingWriter writer(settingsFor(directory.path("a.jsonl")));
    ASSERT_TRUE(writer.open(kHeader));
    EXPECT_TRUE(writer.add(lineOf(1, "x"), at(1)));
    EXPECT_TRUE(writer.add(lineOf(2, "y"), at(2)));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(contentOf(directory.path("a.jsonl")), printHeader(kHeader) + lineOf(1, "x") + lineOf(2, "y"));
    EXPECT_THAT(timesOf(directory.path("a.jsonl")), ElementsAre(1, 2));
}

TEST(RecordingWriter, WritesTheHeaderOnOpenAndLinesOnFlush)
{
    const TemporaryDirectory directory;
    RecordingWriter writer(settingsFor(directory.path("a.jsonl")));
    ASSERT_TRUE(writer.open(kHeader));
    EXPECT_EQ(contentOf(directory.path("a.jsonl")), printHeader(kHeader));
    EXPECT_TRUE(writer.add(lineOf(1, "x"), at(1)));
    EXPECT_TRUE(writer.flush());
    EXPECT_EQ(contentOf(directory.path("a.jsonl")), printHeader(kHeader) + lineOf(1, "x"));
}

TEST(RecordingWriter, KeepsAnExistingFileUnlessToldToReplaceIt)
{
    const TemporaryDirectory directory;
    RecordingWriter::Settings settings = settingsFor(directory.write("a.jsonl", "precious"));
    EXPECT_FALSE(RecordingWriter(settings).open(kHeader));
    EXPECT_EQ(contentOf(settings.path), "precious");
    settings.replace = true;
    EXPECT_TRUE(RecordingWriter(settings).open(kHeader));
    EXPECT_EQ(contentOf(settings.path), printHeader(kHeader));
}

TEST(RecordingWriter, StartsANewFileAtTheSplitSize)
{
    const TemporaryDirectory directory;
    RecordingWriter::Settings settings = settingsFor(directory.path("a.b/weld.jsonl"));
    std::filesystem::create_directory(directory.path("a.b"));
    settings.numbered = true;
    settings.splitSize = printHeader(kHeader).size() + 2 * lineOf(1, "x").size();
    RecordingWriter writer(settings);
    ASSERT_TRUE(writer.open(kHeader));
    for (Nanoseconds time = 1; time <= 5; ++time) {
        EXPECT_TRUE(writer.add(lineOf(time, "x"), at(time)));
    }
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(writer.files(), 3);
    EXPECT_THAT(timesOf(directory.path("a.b/weld-0001.jsonl")), ElementsAre(1, 2));
    EXPECT_THAT(timesOf(directory.path("a.b/weld-0002.jsonl")), ElementsAre(3, 4));
    RecordingReader last;
    ASSERT_TRUE(last.open(directory.path("a.b/weld-0003.jsonl")));
    EXPECT_EQ(last.header().part, 3);
    EXPECT_EQ(last.header().started, kHeader.started);
    EXPECT_THAT(timesOf(last), ElementsAre(5));
}

TEST(RecordingWriter, StartsANewFileAfterTheSplitTime)
{
    const TemporaryDirectory directory;
    RecordingWriter::Settings settings = settingsFor(directory.path("weld"));
    settings.numbered = true;
    settings.splitAfter = kSecond;
    RecordingWriter writer(settings);
    ASSERT_TRUE(writer.open(kHeader));
    for (const Nanoseconds time : {5 * kSecond, 6 * kSecond - 1, 6 * kSecond, 7 * kSecond - 1}) {
        EXPECT_TRUE(writer.add(lineOf(time, "x"), at(time)));
    }
    EXPECT_TRUE(writer.close());
    EXPECT_THAT(timesOf(directory.path("weld-0001")), ElementsAre(5 * kSecond, 6 * kSecond - 1));
    EXPECT_THAT(timesOf(directory.path("weld-0002")), ElementsAre(6 * kSecond, 7 * kSecond - 1));
}

TEST(RecordingWriter, SplitsCompressedFilesByTheirSizeOnDisk)
{
    const TemporaryDirectory directory;
    RecordingWriter::Settings settings = settingsFor(directory.path("weld.jsonl.gz"));
    settings.numbered = true;
    settings.splitSize = 3000;
    settings.compression = Compression::Gzip;
    RecordingWriter writer(settings);
    ASSERT_TRUE(writer.open(kHeader));
    for (int i = 0; i < 50; ++i) {
        EXPECT_TRUE(writer.add(lineOf(1, std::string(50, 'x')), at(1)));
        if (i % 10 == 9) {
            EXPECT_TRUE(writer.flush());
        }
    }
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(writer.files(), 1);
}

TEST(RecordingWriter, PutsTheNumberAfterANameThatBeginsWithADot)
{
    const TemporaryDirectory directory;
    RecordingWriter::Settings settings = settingsFor(directory.path(".weld"));
    settings.numbered = true;
    RecordingWriter writer(settings);
    ASSERT_TRUE(writer.open(kHeader));
    EXPECT_EQ(writer.currentPath(), directory.path(".weld-0001"));
}

TEST(RecordingWriter, ContinuesAfterExistingNumbers)
{
    const TemporaryDirectory directory;
    directory.write("weld-0001.jsonl", "precious");
    RecordingWriter::Settings settings = settingsFor(directory.path("weld.jsonl"));
    settings.numbered = true;
    RecordingWriter writer(settings);
    ASSERT_TRUE(writer.open(kHeader));
    EXPECT_EQ(writer.currentPath(), directory.path("weld-0002.jsonl"));
    EXPECT_EQ(contentOf(directory.path("weld-0001.jsonl")), "precious");
}

TEST(RecordingWriter, ReportsAFileThatCannotBeWritten)
{
    EXPECT_FALSE(RecordingWriter(settingsFor("/nowhere/a.jsonl")).open(kHeader));
    RecordingWriter::Settings settings = settingsFor("/dev/full");
    settings.replace = true;
    EXPECT_FALSE(RecordingWriter(settings).open(kHeader));
}

TEST(RecordingReader, ReadsUpToAnIncompleteLastLine)
{
    const TemporaryDirectory directory;
    const std::string whole = printHeader(kHeader) + lineOf(1, "x");
    const std::string torn = lineOf(2, "y").substr(0, 20);
    RecordingReader reader;
    ASSERT_TRUE(reader.open(directory.write("a.jsonl", whole + torn)));
    EXPECT_THAT(timesOf(reader), ElementsAre(1));
    EXPECT_EQ(reader.tornBytes(), torn.size());
    EXPECT_EQ(reader.damagedLines(), 0U);
    EXPECT_EQ(reader.finish(), kSuccess);
}

TEST(RecordingReader, ReadsALastLineWithoutNewline)
{
    const TemporaryDirectory directory;
    std::string text = printHeader(kHeader) + lineOf(1, "x");
    text.pop_back();
    RecordingReader reader;
    ASSERT_TRUE(reader.open(directory.write("a.jsonl", text)));
    EXPECT_THAT(timesOf(reader), ElementsAre(1));
    EXPECT_EQ(reader.tornBytes(), 0U);
}

TEST(RecordingReader, SkipsDamagedLines)
{
    const TemporaryDirectory directory;
    RecordingReader reader;
    ASSERT_TRUE(reader.open(directory.write("a.jsonl", printHeader(kHeader) + "rubbish\n\n" + lineOf(1, "x") +
                                                           std::string(5, '\0') + "\n" + lineOf(2, "y"))));
    EXPECT_THAT(timesOf(reader), ElementsAre(1, 2));
    EXPECT_EQ(reader.damagedLines(), 2U);
    EXPECT_EQ(reader.finish(), kWrongInput);
}

TEST(RecordingReader, RefusesOtherFiles)
{
    const TemporaryDirectory directory;
    EXPECT_FALSE(RecordingReader().open(directory.path("missing")));
    EXPECT_FALSE(RecordingReader().open(directory.write("empty", "")));
    EXPECT_FALSE(RecordingReader().open(directory.write("csv", "a,b\n1,2\n")));
}

TEST(RecordingReader, ReadsARecordingWithoutRecords)
{
    const TemporaryDirectory directory;
    EXPECT_THAT(timesOf(directory.write("a.jsonl", printHeader(kHeader))), IsEmpty());
}

} // namespace
} // namespace TelvaneTool
