#include "mqtt/SpoolFixture.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <future>
#include <mutex>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

/// A disk that can be held: what is written then does not become safe before it is released.
class HeldDisk
{
public:
    void hold()
    {
        const std::lock_guard lock(m_mutex);
        m_held = true;
    }

    void release()
    {
        const std::lock_guard lock(m_mutex);
        m_held = false;
        m_changed.notify_all();
    }

    /// \return whether a thread waits for the disk, at last
    bool awaitWaiting()
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::minutes(1), [this] { return m_waiting; });
    }

    void wait()
    {
        std::unique_lock lock(m_mutex);
        m_waiting = m_held;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return !m_held; });
        m_waiting = false;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_held = false;
    bool m_waiting = false;
};

HeldDisk disk;

} // namespace

/// SQLite calls this one in place of the C library's.
extern "C" __attribute__((visibility("default"))) int fdatasync(int fd)
{
    disk.wait();
    return static_cast<int>(syscall(SYS_fdatasync, fd));
}

namespace TelvaneTool::Mqtt
{
namespace
{

TEST_F(MqttSpool, SetsADamagedFileAside)
{
    start();
    pushNumbers(1, 200);
    stop();
    {
        std::fstream file(m_path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(100);
        file << std::string(20'000, '\xaa');
    }
    start();
    EXPECT_TRUE(sendAll().empty());
    EXPECT_TRUE(std::filesystem::exists(m_path + ".damaged"));
    EXPECT_EQ(spool->failures(), 1U);
    pushNumbers(1, 3);
    start();
    EXPECT_EQ(sendAll().size(), 3U);
    EXPECT_EQ(spool->failures(), 0U);
}

TEST_F(MqttSpool, ReplacesAFileThatIsNoDatabase)
{
    std::ofstream(m_path) << std::string(10'000, 'x');
    start();
    pushNumbers(1, 3);
    start();
    EXPECT_EQ(sendAll().size(), 3U);
}

TEST_F(MqttSpool, RefusesTheFileOfAnotherProgramOrVersion)
{
    start();
    stop();
    TelvaneArchive::Status status;
    {
        const auto database =
            TelvaneArchive::openSqlite(m_path, TelvaneArchive::Database::Access::ReadWrite, status);
        ASSERT_TRUE(database->run("PRAGMA user_version = 77"));
    }
    Spool other(m_path, limits);
    EXPECT_NE(other.open(clocks, session).find("another version"), std::string::npos);
}

/// Lets no file of the process grow beyond a size.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit = {bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }

private:
    rlimit m_before = {};
};

TEST_F(MqttSpool, GoesOnInMemoryWhileTheFileCannotBeWritten)
{
    start();
    pushNumbers(1, 5);
    {
        const FileSizeLimit limit(100'000);
        for (int i = 6; i <= 200; ++i) {
            push(message(std::to_string(i), 1000), i * kSecond);
            queue->commit(i * kSecond);
        }
    }
    EXPECT_GT(spool->failures(), 0U);
    pushNumbers(201, 205, 1000 * kSecond);
    queue->makeBacklog();
    const auto numbers = numbersOf(sendAll(1000 * kSecond));
    ASSERT_EQ(numbers.size(), 205U) << "nothing is lost while memory can hold it";
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    start();
    EXPECT_TRUE(sendAll(1001 * kSecond).empty()) << "the spool works again, and knows what was sent";
}

TEST_F(MqttSpool, SendsWhatAFileHasThatIsOpenedLate)
{
    start(1000);
    pushNumbers(1, 3);
    queue->countLost("LogData", DropReason::BusLag, 7);
    queue->commit(0);
    stop();
    {
        const FileSizeLimit limit(0);
        start(2000);
    }
    EXPECT_GT(spool->failures(), 0U);
    EXPECT_FALSE(queue->hasBacklog());
    queue->commit(10 * kSecond);
    EXPECT_EQ(queue->waiting(), 3U);
    const auto sent = sendAll(10 * kSecond);
    ASSERT_EQ(numbersOf(sent), (std::vector<std::uint64_t>{1, 2, 3}));
    EXPECT_EQ(sent[0].dropped, 7U);
    EXPECT_FALSE(queue->hasBacklog());
    start(3000);
    EXPECT_TRUE(sendAll(11 * kSecond).empty());
}

TEST_F(MqttSpool, DoesNotUseAFileThatIsOpenedLateAndHasALaterSession)
{
    start(5000);
    pushNumbers(1, 3);
    stop();
    const std::string hidden = m_path + ".hidden";
    std::filesystem::rename(m_path, hidden);
    {
        const FileSizeLimit limit(0);
        start(2000);
    }
    std::filesystem::rename(hidden, m_path);
    pushNumbers(1, 1, 10 * kSecond);
    pushNumbers(2, 2, 20 * kSecond);
    EXPECT_EQ(numbersOf(sendAll(20 * kSecond)), (std::vector<std::uint64_t>{1, 2}));
    EXPECT_EQ(spool->waiting(), 0U);
    start(6000);
    EXPECT_EQ(numbersOf(sendAll(30 * kSecond)), (std::vector<std::uint64_t>{1, 2, 3})) << "as it was";
}

TEST_F(MqttSpool, LosesNothingThatIsInMemoryWhenTheFileIsDamagedInUse)
{
    start();
    pushBeyondTheCache();
    bool fromBacklog = false;
    const auto inFlight = queue->take(0, true, fromBacklog);
    damageInUse();
    pushNumbers(601, 610, kSecond);
    queue->putBack({*inFlight}, kSecond);
    queue->makeBacklog();
    const auto numbers = numbersOf(sendAll(kSecond));
    ASSERT_EQ(numbers.size(), 610U);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_TRUE(std::filesystem::exists(m_path + ".damaged"));
}

TEST_F(MqttSpool, ReportsDropsThatOnlyADamagedFileHad)
{
    start();
    pushBeyondTheCache();
    queue->countLost("LogData", DropReason::BusLag, 7);
    queue->commit(0);
    damageInUse();
    queue->commit(kSecond); // notices the new file
    queue->commit(2 * kSecond);
    start();
    pushNumbers(1, 1, 3 * kSecond);
    EXPECT_EQ(sendAll(3 * kSecond).back().dropped, 7U);
}

TEST_F(MqttSpool, SendsWhileTheDiskWrites)
{
    start();
    pushNumbers(1, 2);
    disk.hold();
    auto writer = std::async(std::launch::async, [this] { pushNumbers(3, 3); });
    const bool writes = disk.awaitWaiting();
    auto link = std::async(std::launch::async, [this] {
        std::vector<OutgoingMessage> sent;
        bool fromBacklog = false;
        while (auto next = queue->take(0, true, fromBacklog)) {
            queue->countSent(*next, 1, 0);
            sent.push_back(std::move(*next));
        }
        EXPECT_FALSE(queue->hasBacklog());
        EXPECT_EQ(queue->waiting(), 0U) << "3 is not accepted yet";
        return numbersOf(sent);
    });
    const bool waited = link.wait_for(std::chrono::minutes(1)) == std::future_status::timeout;
    disk.release();
    writer.get();
    EXPECT_TRUE(writes);
    EXPECT_FALSE(waited);
    EXPECT_EQ(link.get(), (std::vector<std::uint64_t>{1, 2}));
    EXPECT_EQ(numbersOf(sendAll()), std::vector<std::uint64_t>{3});
}

} // namespace
} // namespace TelvaneTool::Mqtt
