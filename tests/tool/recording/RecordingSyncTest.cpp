// When a recording is on the disk. The linker redirects fdatasync() and write() to this file.

#include "helpers/TestFiles.h"
#include "recording/RecordingWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <vector>

namespace
{

std::vector<off_t> sizes; ///< of files when they were synchronised
int syncError = 0;        ///< of the next fdatasync()
bool interrupted = false; ///< the next write is interrupted by a signal

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp)
extern "C" int __wrap_fdatasync(int fd)
{
    struct stat status = {};
    sizes.push_back(fstat(fd, &status) == 0 ? status.st_size : -1);
    errno = std::exchange(syncError, 0);
    return errno == 0 ? 0 : -1;
}
extern "C" ssize_t __real_write(int fd, const void* data, size_t size);
extern "C" ssize_t __wrap_write(int fd, const void* data, size_t size)
{
    if (std::exchange(interrupted, false)) {
        errno = EINTR;
        return -1;
    }
    return __real_write(fd, data, size);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp)

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::TemporaryDirectory;

class RecordingSyncTest : public testing::Test
{
protected:
    RecordingSyncTest() { sizes.clear(); }

    static void add(RecordingWriter& writer)
    {
        const RecordedMessage message = {0, "LogData", 1, "{}"};
        std::string line;
        appendMessage(line, message);
        EXPECT_TRUE(writer.add(line, message));
    }

    static off_t sizeOf(const std::string& path)
    {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return status.st_size;
    }

    RecordingWriter::Settings settings() const
    {
        RecordingWriter::Settings settings;
        settings.path = m_directory.path("a.jsonl");
        return settings;
    }

    TemporaryDirectory m_directory;
    const RecordingHeader m_header = {kSecond, "", {}, 1};
};

TEST_F(RecordingSyncTest, StoresTheWholeFileWhenItIsClosed)
{
    RecordingWriter writer(settings());
    ASSERT_TRUE(writer.open(m_header));
    add(writer);
    ASSERT_TRUE(writer.close());
    EXPECT_EQ(sizes, std::vector<off_t>{sizeOf(m_directory.path("a.jsonl"))});
}

TEST_F(RecordingSyncTest, ReportsThatTheDiskFailsWhenItIsClosed)
{
    RecordingWriter writer(settings());
    ASSERT_TRUE(writer.open(m_header));
    add(writer);
    syncError = EIO;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(writer.close());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("Input/output error"));
}

// The system reports an error only once.
TEST_F(RecordingSyncTest, ReportsAtTheEndThatTheDiskFailedBefore)
{
    RecordingWriter writer(settings());
    ASSERT_TRUE(writer.open(m_header));
    add(writer);
    syncError = EIO;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(writer.flush());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("Input/output error"));
    add(writer);
    EXPECT_FALSE(writer.close());
}

TEST_F(RecordingSyncTest, NeedsNoFileThatCanBeSynchronised)
{
    RecordingWriter writer(settings());
    ASSERT_TRUE(writer.open(m_header));
    add(writer);
    syncError = EINVAL; // a pipe
    EXPECT_TRUE(writer.close());
}

TEST_F(RecordingSyncTest, StoresEachFileOfASplitRecording)
{
    RecordingWriter::Settings split = settings();
    split.numbered = true;
    split.splitSize = 1;
    RecordingWriter writer(split);
    ASSERT_TRUE(writer.open(m_header));
    add(writer);
    add(writer);
    ASSERT_TRUE(writer.close());
    EXPECT_EQ(sizes, (std::vector<off_t>{sizeOf(m_directory.path("a-0001.jsonl")),
                                         sizeOf(m_directory.path("a-0002.jsonl"))}));
}

TEST_F(RecordingSyncTest, StoresWhatWasWrittenAtTheFirstFlush)
{
    RecordingWriter writer(settings());
    ASSERT_TRUE(writer.open(m_header));
    ASSERT_TRUE(writer.flush());
    EXPECT_TRUE(sizes.empty()) << "nothing was added";
    add(writer);
    ASSERT_TRUE(writer.flush());
    EXPECT_EQ(sizes, std::vector<off_t>{sizeOf(m_directory.path("a.jsonl"))});
}

TEST_F(RecordingSyncTest, StoresNotMoreOftenThanEverySecond)
{
    RecordingWriter writer(settings());
    ASSERT_TRUE(writer.open(m_header));
    Nanoseconds begin = 0;
    std::size_t stored = 0;
    do { // again if the machine stood still
        begin = monotonicNow();
        sizes.clear();
        for (int i = 0; i < 10; ++i) {
            add(writer);
            ASSERT_TRUE(writer.flush());
        }
        stored = sizes.size();
    } while (monotonicNow() - begin >= kSecond);
    EXPECT_LE(stored, 1U);
}

TEST_F(RecordingSyncTest, StoresTheFirstFlushOfEveryFile)
{
    RecordingWriter::Settings split = settings();
    split.numbered = true;
    split.splitSize = 1;
    RecordingWriter writer(split);
    ASSERT_TRUE(writer.open(m_header));
    add(writer);
    ASSERT_TRUE(writer.flush());
    add(writer);
    ASSERT_TRUE(writer.flush());
    EXPECT_EQ(sizes.size(), 3U) << "the first file twice, and the second one";
    EXPECT_EQ(sizes.back(), sizeOf(m_directory.path("a-0002.jsonl")));
}

TEST_F(RecordingSyncTest, ContinuesAWriteThatASignalInterrupts)
{
    RecordingWriter writer(settings());
    ASSERT_TRUE(writer.open(m_header));
    add(writer);
    interrupted = true;
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(writer.records(), 1U);
}

} // namespace
} // namespace TelvaneTool
