#include "helpers/DynamicFileFixture.h"

#include <atomic>
#include <cerrno>
#include <fstream>
#include <future>
#include <random>

#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>

namespace Telvane::Testing
{
namespace
{

using DynamicFileClose = DynamicFile;

TEST_F(DynamicFileClose, RemovesThePipe)
{
    DynamicFileInterface file(m_path, saying("hello"));
    EXPECT_EQ(openSilently(file), 0);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(::open(m_path.c_str(), O_RDONLY | O_NONBLOCK), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(DynamicFileClose, IsHarmlessWhenNeverOpened)
{
    DynamicFileInterface file(m_path, saying("hello"));
    EXPECT_EQ(file.Close(), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(DynamicFileClose, KeepsAFileThatItHasNotOpened)
{
    std::ofstream(m_path) << "precious";
    DynamicFileInterface file(m_path, saying("hello"));
    EXPECT_EQ(file.Close(), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(fs::file_size(m_path), 8U);
}

TEST_F(DynamicFileClose, IsHarmlessASecondTime)
{
    DynamicFileInterface file(m_path, saying("hello"));
    EXPECT_EQ(openSilently(file), 0);
    EXPECT_EQ(file.Close(), 0);
    std::ofstream(m_path) << "of another program";
    EXPECT_EQ(file.Close(), -1);
    EXPECT_TRUE(fs::exists(m_path));
}

TEST_F(DynamicFileClose, LeaksNoDescriptorAndNoThread)
{
    const auto descriptors = openDescriptors();
    const auto threads = runningThreads();
    DynamicFileInterface file(m_path, saying("hello"));
    EXPECT_EQ(openSilently(file), 0);
    EXPECT_TRUE(comesToRead(m_path, "hello\n"));
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(comesDownToThreads(threads));
}

TEST_F(DynamicFileClose, FreesAHandlerThatBlocksAtAFullPipe)
{
    struct Unwinding
    {
        std::atomic<bool>& seen;
        ~Unwinding() { seen = true; }
    };
    const Signal started;
    std::atomic<bool> unwound{false};
    DynamicFileInterface file(m_path, [&](int fd) {
        const Unwinding inHandler = {unwound};
        const std::string content(kMoreThanAPipeHolds, 'x');
        started.give();
        writeText(fd, content);
    });
    const auto descriptors = openDescriptors();
    EXPECT_EQ(openSilently(file), 0);
    {
        const FileDescriptor reader(::open(m_path.c_str(), O_RDONLY));
        started.await();
        EXPECT_EQ(file.Close(), 0);
        EXPECT_TRUE(unwound);

        const std::string text = readToEnd(reader.get());
        EXPECT_EQ(text.find_first_not_of('x'), std::string::npos);
        EXPECT_LT(text.size(), kMoreThanAPipeHolds);
    }
    EXPECT_EQ(openDescriptors(), descriptors);

    file.setHandlerFunction(saying("the lock is free"));
    EXPECT_EQ(openSilently(file), 0);
    EXPECT_TRUE(comesToRead(m_path, "the lock is free\n"));
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileClose, FreesAHandlerThatWaitsForInput)
{
    const auto threads = runningThreads();
    const Signal started;
    const Signal never;
    DynamicFileInterface file(m_path, [&](int) {
        started.give();
        never.await();
    });
    EXPECT_EQ(openSilently(file), 0);
    auto text = std::async(std::launch::async, readAll, m_path);
    started.await();
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(text.get(), "");
    EXPECT_TRUE(comesDownToThreads(threads));
}

/// Waits in a handler, where it can be cancelled, but not while \p condition is being evaluated.
template <typename Condition>
void waitInHandler(Condition condition)
{
    for (bool holds = false; !holds;) {
        pthread_testcancel();
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        holds = condition();
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        std::this_thread::yield();
    }
}

TEST_F(DynamicFileClose, LetsAHandlerAtWorkFinish)
{
    const pid_t closing = ::gettid();
    const auto readWhileClosing = [&] {
        const Signal started;
        std::atomic<bool> aboutToClose{false};
        DynamicFileInterface file(m_path, [&](int fd) {
            writeText(fd, "begun, ");
            started.give();
            waitInHandler([&] { return aboutToClose && isAsleep(closing); });
            writeText(fd, "finished");
        });
        EXPECT_EQ(openSilently(file), 0);
        auto reading = std::async(std::launch::async, readAll, m_path);
        started.await();
        aboutToClose = true;
        EXPECT_EQ(file.Close(), 0);
        return reading.get();
    };
    // On a loaded machine a handler may use up its time without a fault of anybody.
    EXPECT_TRUE(eventually([&] { return readWhileClosing() == "begun, finished\n"; }));
}

TEST_F(DynamicFileClose, EndsAListenerWhosePipeWasRemoved)
{
    const auto descriptors = openDescriptors();
    const auto threads = runningThreads();
    DynamicFileInterface file(m_path, saying("hello"));
    openAndAwaitListener(file);
    fs::remove(m_path);
    EXPECT_EQ(file.Close(), -1);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(comesDownToThreads(threads));
}

TEST_F(DynamicFileClose, EndsAListenerWhosePipeWasReplaced)
{
    const auto descriptors = openDescriptors();
    const auto threads = runningThreads();
    DynamicFileInterface file(m_path, saying("hello"));
    openAndAwaitListener(file);
    fs::remove(m_path);
    ASSERT_EQ(::mkfifo(m_path.c_str(), 0600), 0);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(comesDownToThreads(threads));
}

TEST_F(DynamicFileClose, EndsAListenerThatWaitsForItsFirstReader)
{
    const auto descriptors = openDescriptors();
    const auto threads = runningThreads();
    std::atomic<bool> called{false};
    DynamicFileInterface file(m_path, [&called](int) { called = true; });
    openAndAwaitListener(file);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_FALSE(called);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(comesDownToThreads(threads));
}

TEST_F(DynamicFileClose, LosesNoDescriptorToAReaderThatOpensThePipeMeanwhile)
{
    const auto descriptors = openDescriptors();
    DynamicFileInterface file(m_path, saying("hello"));
    for (int round = 0; round < 200; ++round) {
        openAndAwaitListener(file);
        const FileDescriptor reader(::open(m_path.c_str(), O_RDONLY | O_NONBLOCK));
        EXPECT_EQ(file.Close(), 0);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

/// Reads as fast as it is served. Never waits in open(), so that a Close() cannot leave it there.
class HastyReader
{
public:
    explicit HastyReader(const std::string& path) : m_thread([this, path] { run(path); }) {}
    HastyReader(const HastyReader&) = delete;
    HastyReader& operator=(const HastyReader&) = delete;
    ~HastyReader()
    {
        m_enough = true;
        m_thread.join();
    }

private:
    void run(const std::string& path) const
    {
        while (!m_enough) {
            const FileDescriptor reader(::open(path.c_str(), O_RDONLY | O_NONBLOCK));
            if (reader.get() >= 0) {
                pollfd reading = {reader.get(), POLLIN, 0};
                ::poll(&reading, 1, 1);
                readToEnd(reader.get());
            }
            std::this_thread::yield();
        }
    }

    std::atomic<bool> m_enough{false};
    std::thread m_thread;
};

TEST_F(DynamicFileClose, IsCleanAtAnyPointOfABusyListener)
{
    const auto descriptors = openDescriptors();
    const auto threads = runningThreads();
    {
        std::minstd_rand random;
        std::atomic<unsigned> parts{0};
        const HastyReader one(m_path);
        const HastyReader another(m_path);
        DynamicFileInterface file(m_path, [&parts](int fd) {
            for (int part = 0; part < 20; ++part) {
                writeText(fd, "content ");
                ++parts;
            }
        });
        const StreamCapture output(STDOUT_FILENO);
        for (int round = 0; round < 300; ++round) {
            EXPECT_EQ(file.Open(), 0);
            // Sometimes before the first reader, sometimes within a content, sometimes after several.
            const unsigned enough = parts + static_cast<unsigned>(random() % 50);
            EXPECT_TRUE(eventually([&] { return parts >= enough; }));
            EXPECT_EQ(file.Close(), 0);
        }
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(comesDownToThreads(threads));
}

} // namespace
} // namespace Telvane::Testing
