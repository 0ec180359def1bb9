#include "helpers/DynamicFileFixture.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <future>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace Telvane::Testing
{
namespace
{

using DynamicFileLifecycle = DynamicFile;
using DynamicFileOpen = DynamicFile;
using DynamicFileServing = DynamicFile;
using DynamicFileHandler = DynamicFile;
using DynamicFileHandlerDeathTest = DynamicFile;

TEST_F(DynamicFileLifecycle, TouchesNothingUntilOpened)
{
    const auto threads = runningThreads();
    {
        const DynamicFileInterface file(m_path, saying("hello"));
        EXPECT_TRUE(comesDownToThreads(threads));
    }
    EXPECT_FALSE(fs::exists(m_path));
}

TEST_F(DynamicFileLifecycle, CanBeOpenedAgainAfterClose)
{
    DynamicFileInterface file(m_path, saying("hello"));
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(openSilently(file), 0);
        EXPECT_TRUE(comesToRead(m_path, "hello\n"));
        EXPECT_EQ(file.Close(), 0);
    }
}

TEST_F(DynamicFileLifecycle, DestructionAfterCloseReleasesTheHandler)
{
    const auto held = std::make_shared<int>(0);
    {
        DynamicFileInterface file(m_path, [held](int) {});
        EXPECT_EQ(openSilently(file), 0);
        EXPECT_EQ(file.Close(), 0);
        EXPECT_GT(held.use_count(), 1);
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(DynamicFileLifecycle, ServesThePipeAfterDestructionWithoutClose)
{
    EXPECT_TRUE(holdsInChild([this] {
        auto file = std::make_unique<DynamicFileInterface>(m_path, saying("still here"));
        openSilently(*file);
        file.reset();
        return comesToRead(m_path, "still here\n") && fs::is_fifo(m_path);
    }));
}

TEST_F(DynamicFileOpen, CreatesAPipeThatOthersMayRead)
{
    const mode_t before = ::umask(022);
    DynamicFileInterface file(m_path, saying("hello"));
    EXPECT_EQ(openSilently(file), 0);
    ::umask(before);

    struct stat status = {};
    ASSERT_EQ(::stat(m_path.c_str(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileOpen, PrintsTheCurrentErrorAlsoOnSuccess)
{
    DynamicFileInterface file(m_path, saying("hello"));
    const auto lineWith = [&file](int error) {
        return diagnosticsOf([&file, error] {
                   errno = error;
                   EXPECT_EQ(file.Open(), 0);
               })
            .output;
    };
    EXPECT_EQ(lineWith(0), "ERROR[0]: Success\n");
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(lineWith(E2BIG), "ERROR[7]: Argument list too long\n");
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileOpen, ServesAPipeThatExistsAndReportsIt)
{
    ASSERT_EQ(::mkfifo(m_path.c_str(), 0600), 0);
    DynamicFileInterface file(m_path, saying("hello"));
    EXPECT_EQ(openSilently(file), 1);
    EXPECT_EQ(m_printed, "ERROR[17]: File exists\n");
    EXPECT_TRUE(comesToRead(m_path, "hello\n"));
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileOpen, StartsNoThreadInAMissingDirectory)
{
    const auto threads = runningThreads();
    DynamicFileInterface file(m_directory.path("missing/file"), saying("hello"));
    EXPECT_EQ(openSilently(file), 1);
    EXPECT_EQ(m_printed, "ERROR[2]: No such file or directory\n");
    EXPECT_TRUE(comesDownToThreads(threads));
    EXPECT_EQ(file.Close(), -1);
}

TEST_F(DynamicFileOpen, StartsNoThreadBelowAPlainFile)
{
    const auto threads = runningThreads();
    std::ofstream(m_path) << "not a directory";
    DynamicFileInterface file(m_path + "/file", saying("hello"));
    EXPECT_EQ(openSilently(file), 1);
    EXPECT_EQ(m_printed, "ERROR[20]: Not a directory\n");
    EXPECT_TRUE(comesDownToThreads(threads));
}

TEST_F(DynamicFileOpen, StartsNoThreadWithoutPermission)
{
    ASSERT_EQ(::chmod(m_directory.path("").c_str(), 0555), 0);
    EXPECT_TRUE(holdsInChild([this] {
        constexpr uid_t nobody = 65534;
        if (::geteuid() == 0 && (::setgid(nobody) != 0 || ::setuid(nobody) != 0)) {
            return false;
        }
        const auto threads = runningThreads();
        DynamicFileInterface file(m_path, saying("hello"));
        return openSilently(file) == 1 && m_printed == "ERROR[13]: Permission denied\n" &&
               runningThreads() == threads && file.Close() == -1;
    }));
    ASSERT_EQ(::chmod(m_directory.path("").c_str(), 0755), 0);
}

TEST_F(DynamicFileOpen, SurvivesAFailureToCreateTheThread)
{
    ASSERT_EQ(::chmod(m_directory.path("").c_str(), 0777), 0);
    EXPECT_TRUE(holdsInChild([this] {
        constexpr uid_t nobody = 65534;
        const rlimit noMoreThreads = {0, 0};
        if (::setrlimit(RLIMIT_NPROC, &noMoreThreads) != 0 || (::geteuid() == 0 && ::setuid(nobody) != 0)) {
            return false;
        }
        const auto threads = runningThreads();
        DynamicFileInterface file(m_path, saying("hello"));
        return openSilently(file) == 0 && runningThreads() == threads && file.Close() == 0 &&
               !fs::exists(m_path);
    }));
}

TEST_F(DynamicFileOpen, ASecondTimeKeepsOneListener)
{
    const auto threads = runningThreads();
    DynamicFileInterface file(m_path, saying("hello"));
    EXPECT_EQ(openSilently(file), 0);
    EXPECT_EQ(openSilently(file), 1);
    EXPECT_TRUE(comesToRead(m_path, "hello\n"));
    EXPECT_TRUE(comesDownToThreads(threads + 1));
    EXPECT_EQ(file.Close(), 0);
    EXPECT_TRUE(comesDownToThreads(threads));
}

TEST_F(DynamicFileOpen, ASecondTimeBringsARemovedPipeBack)
{
    DynamicFileInterface file(m_path, saying("hello"));
    openAndAwaitListener(file);
    fs::remove(m_path);
    EXPECT_EQ(openSilently(file), 0);
    EXPECT_TRUE(comesToRead(m_path, "hello\n"));
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileServing, GivesTwoReadersInARowAContentEach)
{
    DynamicFileInterface file(m_path, counting());
    EXPECT_EQ(openSilently(file), 0);
    const int first = nextContent(m_path);
    EXPECT_GT(nextContent(m_path), first);
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileServing, GivesAThousandReadersAContentEach)
{
    const auto descriptors = openDescriptors();
    DynamicFileInterface file(m_path, counting());
    EXPECT_EQ(openSilently(file), 0);
    int last = 0;
    for (int reader = 0; reader < 1000; ++reader) {
        const int content = nextContent(m_path);
        EXPECT_GT(content, last);
        last = content;
    }
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(DynamicFileServing, DeliversMoreThanAPipeHolds)
{
    const std::string content(kMoreThanAPipeHolds, 'x');
    DynamicFileInterface file(m_path, saying(content));
    EXPECT_EQ(openSilently(file), 0);
    const FileDescriptor reader(::open(m_path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(readExactly(reader.get(), content.size() + 1) == content + "\n");
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileServing, ContinuesAfterReadersThatCloseEarly)
{
    std::atomic<int> brokenPipes{0};
    DynamicFileInterface file(m_path, [&brokenPipes](int fd) {
        if (!writeText(fd, std::string(kMoreThanAPipeHolds, 'x'))) {
            ++brokenPipes;
        }
    });
    EXPECT_EQ(openSilently(file), 0);
    for (int reader = 0; reader < 50; ++reader) {
        const FileDescriptor leaving(::open(m_path.c_str(), O_RDONLY));
        ASSERT_GE(leaving.get(), 0);
    }
    EXPECT_TRUE(eventually([&brokenPipes] { return brokenPipes > 0; }));
    file.setHandlerFunction(saying("hello"));
    EXPECT_TRUE(comesToRead(m_path, "hello\n"));
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileServing, IgnoresBrokenPipesForTheWholeProcess)
{
    const auto before = std::signal(SIGPIPE, SIG_DFL);
    DynamicFileInterface file(m_path, saying("hello"));
    EXPECT_EQ(openSilently(file), 0);
    EXPECT_EQ(std::signal(SIGPIPE, before), SIG_IGN);
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileServing, ContinuesWhenARemovedPipeIsRestored)
{
    std::atomic<bool> lost{false};
    DynamicFileInterface file(m_path, [&](int fd) {
        writeText(fd, "hello");
        if (!lost) {
            fs::remove(m_path);
            lost = true;
        }
    });
    EXPECT_EQ(openSilently(file), 0);
    readAll(m_path);
    EXPECT_TRUE(lost);
    ASSERT_EQ(::mkfifo(m_path.c_str(), 0600), 0);
    EXPECT_TRUE(comesToRead(m_path, "hello\n"));
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileServing, NeverUsesTheDescriptorOfStandardInput)
{
    ASSERT_EQ(::mkfifo(m_path.c_str(), 0600), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::close(STDIN_FILENO);
        DynamicFileInterface file(m_path, [](int fd) { writeText(fd, fd > 0 ? "above 0" : "0"); });
        openSilently(file);
        for (;;) {
            ::pause();
        }
    }
    EXPECT_TRUE(comesToRead(m_path, "above 0\n"));
    EXPECT_EQ(::kill(child, SIGKILL), 0);
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
}

TEST_F(DynamicFileHandler, ServesTheNextReaderOnceReplaced)
{
    DynamicFileInterface file(m_path, saying("old"));
    EXPECT_EQ(openSilently(file), 0);
    EXPECT_TRUE(comesToRead(m_path, "old\n"));
    file.setHandlerFunction(saying("new"));
    EXPECT_TRUE(comesToRead(m_path, "new\n"));
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileHandler, IsNotReplacedWhileItRuns)
{
    const Signal started;
    const Signal leave;
    std::atomic<bool> left{false};
    DynamicFileInterface file(m_path, [&](int fd) {
        if (left) {
            return; // a slow reader, served twice
        }
        started.give();
        leave.await();
        writeText(fd, "old");
        left = true;
    });
    EXPECT_EQ(openSilently(file), 0);

    auto text = std::async(std::launch::async, readAll, m_path);
    started.await();
    std::promise<pid_t> replacing;
    auto leftBeforeReplaced = std::async(std::launch::async, [&] {
        replacing.set_value(::gettid());
        file.setHandlerFunction(saying("new"));
        return left.load();
    });
    const pid_t waiting = replacing.get_future().get();
    EXPECT_TRUE(eventually([waiting] { return isAsleep(waiting); }));
    leave.give();
    EXPECT_TRUE(leftBeforeReplaced.get());
    EXPECT_EQ(text.get().substr(0, 4), "old\n");
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileHandler, MayBeReplacedUnderLoad)
{
    const auto numbered = [](int number) {
        return [number](int fd) {
            writeText(fd, "content " + std::to_string(number));
        };
    };
    DynamicFileInterface file(m_path, numbered(1));
    EXPECT_EQ(openSilently(file), 0);

    std::atomic<bool> enough{false};
    std::atomic<int> replaced{1};
    std::thread replacing([&] {
        while (!enough) {
            file.setHandlerFunction(numbered(replaced + 1));
            ++replaced;
        }
    });
    int last = 0;
    for (int reader = 0; reader < 200 || last == 1; ++reader) {
        const int content = nextContent(m_path);
        EXPECT_GE(content, last);
        EXPECT_LE(content, replaced + 1);
        last = content;
    }
    enough = true;
    replacing.join();
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileHandlerDeathTest, EndsTheProcessWhenEmpty)
{
    EXPECT_DEATH(
        {
            DynamicFileInterface file(m_path, nullptr);
            file.Open();
            readAll(m_path);
            ::pause();
        },
        "bad_function_call");
}

} // namespace
} // namespace Telvane::Testing
