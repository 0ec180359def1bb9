#include "recording/Recorder.h"

#include "helpers/TestFiles.h"
#include "recording/RecordingReader.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <thread>

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::TemporaryDirectory;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Content
{
    std::vector<std::string> payloads;
    std::map<std::string, std::uint64_t> missed;
    std::uint64_t tornBytes = 0;
};

/// \return the notes of misses and outages
std::vector<RecordedMessage> notesOf(const std::string& path)
{
    std::vector<RecordedMessage> notes;
    RecordingReader reader;
    EXPECT_TRUE(reader.open(path));
    RecordedMessage message;
    while (reader.next(message)) {
        if (message.isNote()) {
            message.channel = {}; // a view into the reader's buffer
            notes.push_back(message);
        }
    }
    return notes;
}

Content contentOf(const std::string& path)
{
    Content content;
    RecordingReader reader;
    EXPECT_TRUE(reader.open(path));
    RecordedMessage message;
    while (reader.next(message)) {
        if (message.missed != 0) {
            content.missed[std::string(message.channel)] += message.missed;
        } else {
            content.payloads.emplace_back(message.payload);
        }
    }
    content.tornBytes = reader.tornBytes();
    EXPECT_EQ(reader.damagedLines(), 0U);
    return content;
}

class RecorderTest : public testing::Test
{
protected:
    Recorder::Settings settings(const char* name = "a.jsonl") const
    {
        Recorder::Settings settings;
        settings.output.path = m_directory.path(name);
        return settings;
    }

    Recorder::Settings triggered(Nanoseconds after) const
    {
        Recorder::Settings settings = this->settings();
        settings.output.numbered = true;
        settings.keep = 3600 * kSecond;
        settings.maxKept = 1'000'000;
        settings.trigger = "Fault";
        settings.after = after;
        return settings;
    }

    std::string path(const char* name) const { return m_directory.path(name); }

    TemporaryDirectory m_directory;
    const RecordingHeader m_header = {kSecond, "/run/bus", {}, 1};
};

TEST_F(RecorderTest, WritesWhatItHasTaken)
{
    Recorder recorder(settings(), m_header);
    ASSERT_TRUE(recorder.open());
    recorder.take("A", 1, "{\"a\":1}");
    recorder.take("B", 2, "{\"b\":2}");
    EXPECT_TRUE(recorder.finish());
    EXPECT_THAT(contentOf(path("a.jsonl")).payloads, ElementsAre("{\"a\":1}", "{\"b\":2}"));
    EXPECT_EQ(recorder.writer().records(), 2U);
}

TEST_F(RecorderTest, TakesNoMoreThanRequested)
{
    Recorder::Settings limited = settings();
    limited.count = 2;
    Recorder recorder(limited, m_header);
    ASSERT_TRUE(recorder.open());
    recorder.take("A", 1, "{}");
    EXPECT_FALSE(recorder.complete());
    recorder.take("A", 2, "{}");
    recorder.take("A", 3, "{}");
    EXPECT_TRUE(recorder.complete());
    EXPECT_TRUE(recorder.finish());
    EXPECT_EQ(recorder.writer().records(), 2U);
}

TEST_F(RecorderTest, NotesWhatDoesNotFitIntoTheQueue)
{
    Recorder::Settings small = settings();
    small.maxQueued = 150;
    Recorder recorder(small, m_header);
    ASSERT_TRUE(recorder.open());
    for (int i = 0; i < 10; ++i) {
        recorder.take(i % 2 == 0 ? "A" : "B", i, "{}");
    }
    ASSERT_TRUE(recorder.write());
    recorder.take("A", 10, "{}");
    EXPECT_TRUE(recorder.finish());
    const Content content = contentOf(path("a.jsonl"));
    std::uint64_t missed = 0;
    for (const auto& [channel, count] : content.missed) {
        missed += count;
    }
    EXPECT_EQ(content.payloads.size() + missed, 11U);
    EXPECT_GT(content.missed.at("A"), 0U);
    EXPECT_GT(content.missed.at("B"), 0U);
    EXPECT_EQ(recorder.missed(), content.missed);
    EXPECT_EQ(recorder.writer().missed(), missed);
}

TEST_F(RecorderTest, NotesWhatTheServerReports)
{
    Recorder recorder(settings(), m_header);
    ASSERT_TRUE(recorder.open());
    const Nanoseconds now = monotonicNow();
    recorder.addMissed("A", 5, now, now);
    EXPECT_TRUE(recorder.finish());
    EXPECT_EQ(contentOf(path("a.jsonl")).missed.at("A"), 5U);
    EXPECT_EQ(recorder.writer().records(), 0U);
    const std::vector<RecordedMessage> notes = notesOf(path("a.jsonl"));
    ASSERT_EQ(notes.size(), 1U);
    EXPECT_LE(notes[0].missedFrom, notes[0].missedTo);
    EXPECT_LE(notes[0].missedTo, notes[0].time) << "times count from the start of the recording";
}

TEST_F(RecorderTest, NotesHowLongAnOutageLasted)
{
    Recorder recorder(settings(), m_header);
    ASSERT_TRUE(recorder.open());
    const Nanoseconds begin = monotonicNow();
    recorder.addOutage(begin, begin + 3 * kSecond);
    EXPECT_TRUE(recorder.finish());
    const std::vector<RecordedMessage> notes = notesOf(path("a.jsonl"));
    ASSERT_EQ(notes.size(), 1U);
    EXPECT_TRUE(notes[0].outage);
    EXPECT_EQ(notes[0].missedTo - notes[0].missedFrom, 3 * kSecond);
}

TEST_F(RecorderTest, NotesAGapFromTheLastRecordBeforeItOn)
{
    Recorder::Settings small = settings();
    small.maxQueued = 10;
    Recorder recorder(small, m_header);
    ASSERT_TRUE(recorder.open());
    recorder.take("A", 1, "{}");
    recorder.take("A", 2, "{}"); // does not fit
    EXPECT_TRUE(recorder.finish());
    RecordingReader reader;
    ASSERT_TRUE(reader.open(path("a.jsonl")));
    RecordedMessage last;
    ASSERT_TRUE(reader.next(last));
    const std::vector<RecordedMessage> notes = notesOf(path("a.jsonl"));
    ASSERT_EQ(notes.size(), 1U);
    EXPECT_EQ(notes[0].missedFrom, last.time);
}

TEST_F(RecorderTest, KeepsRecordsUntilATrigger)
{
    Recorder recorder(triggered(0), m_header);
    testing::internal::CaptureStderr();
    ASSERT_TRUE(recorder.open());
    recorder.take("A", 1, "{}");
    ASSERT_TRUE(recorder.write());
    EXPECT_FALSE(std::filesystem::exists(path("a-0001.jsonl")));
    recorder.take("Fault", 2, "{}");
    ASSERT_TRUE(recorder.write());
    ASSERT_TRUE(recorder.finish());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr("saving the buffered records: Fault 2"), HasSubstr("saved ")));
    EXPECT_EQ(contentOf(path("a-0001.jsonl")).payloads.size(), 2U);
}

TEST_F(RecorderTest, ExtendsTheTimeAfterATriggerByAnotherTrigger)
{
    constexpr Nanoseconds kAfter = 200 * kMillisecond;
    Nanoseconds now = kSecond;
    Recorder recorder(triggered(kAfter), m_header, [&now] { return now; });
    testing::internal::CaptureStderr();
    recorder.take("Fault", 1, "{}");
    ASSERT_TRUE(recorder.write());
    now += kAfter / 2;
    recorder.take("Fault", 2, "{}");
    ASSERT_TRUE(recorder.write());
    now += kAfter;
    ASSERT_TRUE(recorder.write());
    recorder.take("A", 3, "{}");
    ASSERT_TRUE(recorder.write());
    now += 1;
    ASSERT_TRUE(recorder.write());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("saved "));
    recorder.take("A", 4, "{}");
    ASSERT_TRUE(recorder.finish());
    EXPECT_EQ(contentOf(path("a-0001.jsonl")).payloads.size(), 3U);
    EXPECT_FALSE(std::filesystem::exists(path("a-0002.jsonl")));
}

TEST_F(RecorderTest, SavesWhatItKeepsAtTheEndForAReason)
{
    testing::internal::CaptureStderr();
    Recorder without(triggered(0), m_header);
    without.take("A", 1, "{}");
    EXPECT_TRUE(without.finish());
    EXPECT_FALSE(std::filesystem::exists(path("a-0001.jsonl")));
    Recorder empty(triggered(0), m_header);
    EXPECT_TRUE(empty.finish("SIGTERM"));
    EXPECT_FALSE(std::filesystem::exists(path("a-0001.jsonl")));
    Recorder with(triggered(0), m_header);
    with.take("A", 1, "{}");
    EXPECT_TRUE(with.finish("SIGTERM"));
    EXPECT_EQ(contentOf(path("a-0001.jsonl")).payloads.size(), 1U);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("saving the buffered records: SIGTERM"));
}

TEST_F(RecorderTest, IsNotTriggeredByMissedRecordsOfTheTriggersChannel)
{
    Recorder recorder(triggered(0), m_header);
    const Nanoseconds now = monotonicNow();
    recorder.addMissed("Fault", 1, now, now);
    EXPECT_TRUE(recorder.finish());
    EXPECT_FALSE(std::filesystem::exists(path("a-0001.jsonl")));
}

TEST_F(RecorderTest, KeepsWhatFollowsOneTriggerForTheNextOne)
{
    Nanoseconds now = kSecond;
    Recorder recorder(triggered(0), m_header, [&now] { return now; });
    testing::internal::CaptureStderr();
    recorder.take("Fault", 1, "{}");
    now += 1; // the first file ends before the next record
    recorder.take("A", 2, "{}");
    recorder.take("Fault", 3, "{}");
    EXPECT_TRUE(recorder.finish());
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(contentOf(path("a-0001.jsonl")).payloads.size(), 1U);
    EXPECT_EQ(contentOf(path("a-0002.jsonl")).payloads.size(), 3U);
}

TEST_F(RecorderTest, ReportsABufferThatWasTooSmall)
{
    Recorder::Settings small = triggered(0);
    small.maxKept = 100;
    Recorder recorder(small, m_header);
    testing::internal::CaptureStderr();
    for (int i = 0; i < 10; ++i) {
        recorder.take("A", i, "{}");
    }
    EXPECT_TRUE(recorder.finish("SIGTERM"));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr("the buffer held only the last "), HasSubstr("--keep-size allows more")));
}

TEST_F(RecorderTest, TakesWhileItWrites)
{
    constexpr int kCount = 20'000;
    Recorder recorder(settings(), m_header);
    ASSERT_TRUE(recorder.open());
    std::thread receiver([&recorder] {
        for (int i = 0; i < kCount; ++i) {
            recorder.take("A", i % 65536, "{\"i\":" + std::to_string(i) + "}");
        }
    });
    while (recorder.writer().records() < kCount / 2) {
        ASSERT_TRUE(recorder.write());
    }
    receiver.join();
    EXPECT_TRUE(recorder.finish());
    const Content content = contentOf(path("a.jsonl"));
    ASSERT_EQ(content.payloads.size(), std::size_t(kCount));
    EXPECT_EQ(content.payloads.back(), "{\"i\":" + std::to_string(kCount - 1) + "}");
}

/// Limits the size of files for as long as it lives.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit = {bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_before = {};
    void (*m_handler)(int) = nullptr;
};

TEST_F(RecorderTest, LeavesWholeLinesInEveryFileWhenTheDiskIsFull)
{
    Recorder::Settings split = settings();
    split.output.numbered = true;
    split.output.splitSize = 1500;
    const FileSizeLimit limit(2000);
    Recorder recorder(split, m_header);
    ASSERT_TRUE(recorder.open());
    testing::internal::CaptureStderr();
    for (int i = 0; i < 30; ++i) {
        recorder.take("A", i, "{\"x\":\"0123456789\"}"); // fills the first file and some of the second
    }
    ASSERT_TRUE(recorder.write());
    for (int i = 30; i < 32; ++i) {
        recorder.take("A", i, "{\"x\":\"" + std::string(900, 'x') + "\"}"); // one more is too much for a file
    }
    recorder.take("A", 32, "{\"x\":\"" + std::string(1950, 'x') + "\"}");
    EXPECT_FALSE(recorder.finish());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("File too large"));
    std::size_t records = 0;
    std::uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path(""))) {
        bytes += entry.file_size();
        const Content content = contentOf(entry.path());
        EXPECT_EQ(content.tornBytes, 0U) << entry.path();
        records += content.payloads.size();
    }
    EXPECT_EQ(recorder.writer().records(), records);
    EXPECT_GE(records, 30U);
    EXPECT_EQ(recorder.writer().bytes(), bytes);
}

TEST_F(RecorderTest, LeavesNoFileThatHasNotEvenAHeader)
{
    testing::internal::CaptureStderr(); // in a file, to which the limit applies as well
    {
        const FileSizeLimit limit(10);
        EXPECT_FALSE(Recorder(settings(), m_header).open());
    }
    testing::internal::GetCapturedStderr();
    EXPECT_FALSE(std::filesystem::exists(path("a.jsonl")));
}

TEST_F(RecorderTest, CountsNothingOfAWriteThatFailedInTheNextFile)
{
    Recorder::Settings several = settings();
    several.output.numbered = true;
    RecordingWriter writer(several.output);
    const RecordedMessage message = {1, "A", 1, "{}"};
    std::string line;
    appendMessage(line, message);
    std::string longLine;
    appendMessage(longLine, {1, "A", 1, "{\"x\":\"" + std::string(3000, 'x') + "\"}"});
    testing::internal::CaptureStderr();
    {
        const FileSizeLimit limit(2000);
        ASSERT_TRUE(writer.open(m_header));
        EXPECT_TRUE(writer.add(line, message));
        EXPECT_TRUE(writer.add(longLine, message));
        EXPECT_FALSE(writer.flush());
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(writer.records(), 1U);
    EXPECT_EQ(writer.bytes(), std::filesystem::file_size(path("a-0001.jsonl")));
    ASSERT_TRUE(writer.open(m_header));
    EXPECT_TRUE(writer.add(longLine, message));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(writer.records(), 2U);
}

} // namespace
} // namespace TelvaneTool
