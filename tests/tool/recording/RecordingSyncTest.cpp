// When a recording is on the disk. The linker redirects fdatasync() to this file.

#include "helpers/ToolTestFiles.h"
#include "recording/RecordingWriter.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <vector>

namespace
{

std::vector<off_t> sizes; ///< of files when they were synchronised

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp)
extern "C" int __wrap_fdatasync(int fd)
{
    struct stat status = {};
    sizes.push_back(fstat(fd, &status) == 0 ? status.st_size : -1);
    return 0;
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp)

namespace TelvaneTool
{
namespace
{

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

    TestDirectory m_directory;
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

} // namespace
} // namespace TelvaneTool
