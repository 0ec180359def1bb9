#include "common/support/OutputFile.h"

#include "helpers/TestFiles.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::contentOf;
using Telvane::Testing::TemporaryDirectory;
using testing::ElementsAre;

std::vector<std::string> namesIn(const TemporaryDirectory& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path(""))) {
        names.push_back(entry.path().filename());
    }
    return names;
}

TEST(OutputFile, AppearsWithAllItsContentsOnCommit)
{
    const TemporaryDirectory directory;
    OutputFile file;
    ASSERT_EQ(file.open(directory.path("out")), 0);
    ASSERT_EQ(file.write("one "), 0);
    EXPECT_FALSE(std::filesystem::exists(directory.path("out")));
    ASSERT_EQ(file.write("two"), 0);
    ASSERT_EQ(file.commit(), 0);
    EXPECT_EQ(contentOf(directory.path("out")), "one two");
    EXPECT_THAT(namesIn(directory), ElementsAre("out"));
}

TEST(OutputFile, LeavesTheOldFileWithoutCommit)
{
    const TemporaryDirectory directory;
    directory.write("out", "old");
    {
        OutputFile file;
        ASSERT_EQ(file.open(directory.path("out")), 0);
        ASSERT_EQ(file.write("new"), 0);
    }
    EXPECT_EQ(contentOf(directory.path("out")), "old");
    EXPECT_THAT(namesIn(directory), ElementsAre("out"));
}

TEST(OutputFile, ReplacesAFileAndKeepsItsPermissions)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("out", "old");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    OutputFile file;
    ASSERT_EQ(file.open(path), 0);
    ASSERT_EQ(file.write("new"), 0);
    ASSERT_EQ(file.commit(), 0);
    EXPECT_EQ(contentOf(path), "new");
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST(OutputFile, WritesThroughASymbolicLink)
{
    const TemporaryDirectory directory;
    const std::string target = directory.write("target", "old");
    ASSERT_EQ(symlink(target.c_str(), directory.path("link").c_str()), 0);
    OutputFile file;
    ASSERT_EQ(file.open(directory.path("link")), 0);
    ASSERT_EQ(file.write("new"), 0);
    ASSERT_EQ(file.commit(), 0);
    EXPECT_EQ(contentOf(target), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(directory.path("link")));
}

TEST(OutputFile, RefusesToReplaceAFileThatAppearedInTheMeantime)
{
    const TemporaryDirectory directory;
    OutputFile file;
    ASSERT_EQ(file.open(directory.path("out"), false), 0);
    ASSERT_EQ(file.write("new"), 0);
    directory.write("out", "other");
    EXPECT_EQ(file.commit(), EEXIST);
    EXPECT_EQ(contentOf(directory.path("out")), "other");
    EXPECT_THAT(namesIn(directory), ElementsAre("out"));
    OutputFile second;
    EXPECT_EQ(second.open(directory.path("out"), false), EEXIST);
}

TEST(OutputFile, RefusesToReplaceAFileOfMoreThanTwoGiB)
{
    const TemporaryDirectory directory;
    std::filesystem::resize_file(directory.write("recording", ""), std::uintmax_t{3} << 30); // a hole
    OutputFile file;
    EXPECT_EQ(file.open(directory.path("recording"), false), EEXIST);
    EXPECT_TRUE(isSameFile(directory.path("recording"), directory.path("recording")));
}

TEST(OutputFile, ReportsWhyAFileCannotBeWritten)
{
    const TemporaryDirectory directory;
    OutputFile missing;
    EXPECT_EQ(missing.open(directory.path("missing/out")), ENOENT);
    OutputFile folder;
    EXPECT_EQ(folder.open(directory.path("")), EISDIR);
    OutputFile full;
    ASSERT_EQ(full.open("/dev/full"), 0);
    EXPECT_EQ(full.write("x"), ENOSPC);
}

TEST(OutputFile, KnowsAFileByAnyOfItsNames)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("a", "");
    directory.write("b", "");
    EXPECT_TRUE(isSameFile(path, directory.path("./a")));
    EXPECT_FALSE(isSameFile(path, directory.path("b")));
    EXPECT_FALSE(isSameFile(path, directory.path("c")));
}

} // namespace
} // namespace TelvaneTool
