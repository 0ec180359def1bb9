// A full disk and damaged files. The disk is a small file system in memory, which only root can mount; the limit of the
// size of files, which needs no rights, tries most of the same.

#include "archive/ArchiveTestSupport.h"
#include "archive/reader/ArchiveCopy.h"
#include "archive/samples/SampleFile.h"
#include "archive/welds/Schema.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/statvfs.h>

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;

namespace
{

/// A file system of a few MB in a namespace of this process.
class SmallDisk
{
public:
    explicit SmallDisk(std::string path) : m_path(std::move(path))
    {
        m_mounted = unshare(CLONE_NEWNS) == 0 &&
                    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    mount("tmpfs", m_path.c_str(), "tmpfs", 0, "size=4m") == 0;
    }
    ~SmallDisk()
    {
        if (m_mounted) {
            umount2(m_path.c_str(), MNT_DETACH);
        }
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool isMounted() const { return m_mounted; }

    /// Leaves no room.
    void fill() const
    {
        const TelvaneTool::FileDescriptor file(
            ::open((m_path + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        struct statvfs status = {};
        ASSERT_EQ(fstatvfs(file.get(), &status), 0);
        const auto room = static_cast<off_t>(status.f_bavail * status.f_frsize);
        ASSERT_EQ(posix_fallocate(file.get(), 0, room), 0);
    }
    void empty() const { std::filesystem::remove(m_path + "/filler"); }

private:
    std::string m_path;
    bool m_mounted = false;
};

/// No file may grow beyond a size.
class FileSizeLimit
{
public:
    FileSizeLimit() : m_handler(std::signal(SIGXFSZ, SIG_IGN)) { getrlimit(RLIMIT_FSIZE, &m_before); }
    ~FileSizeLimit()
    {
        lift();
        std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

    static void set(rlim_t bytes)
    {
        rlimit limit = {};
        ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
        limit.rlim_cur = bytes;
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    void lift() const { setrlimit(RLIMIT_FSIZE, &m_before); }

private:
    rlimit m_before = {};
    void (*m_handler)(int);
};

/// \return a sample that does not compress
Sample noiseSample(std::int32_t number)
{
    std::minstd_rand random(static_cast<unsigned>(number) + 1U); // quick to seed
    Sample sample = makeSample(number);
    for (double& value : sample.values) {
        value = 180.0 + std::uniform_real_distribution<double>(0.0, 1.0)(random);
    }
    return sample;
}

void addNoise(ArchiveStore& store, std::int64_t handle, std::int32_t from, std::int32_t to)
{
    for (std::int32_t i = from; i < to; ++i) {
        store.add(handle, noiseSample(i), 0);
    }
}

/// Checks that an archive is sound, and that each weld has the samples that its row says.
void expectSound(const std::string& path)
{
    const auto store = openStore(path);
    std::vector<Row> rows;
    ASSERT_TRUE(store->database().run("PRAGMA integrity_check", {}, &rows));
    EXPECT_EQ(textOf(rows[0][0]), "ok");
    const auto reader = openReader(path);
    for (const Weld& weld : listWelds(*reader)) {
        std::uint64_t damaged = 0;
        const std::vector<Sample> samples = samplesOf(*reader, weld.id, &damaged);
        EXPECT_EQ(samples.size(), static_cast<std::size_t>(weld.whole(Column::Samples)));
        EXPECT_EQ(damaged, 0U);
        for (const Sample& sample : samples) {
            ASSERT_EQ(sample.values, noiseSample(sample.number).values) << sample.number;
        }
    }
}

std::map<std::string, Weld> weldsByUid(const std::string& path)
{
    std::map<std::string, Weld> welds;
    for (const Weld& weld : listWelds(*openReader(path))) {
        welds[weld.text(Column::Uid)] = weld;
    }
    return welds;
}

ArchiveStore::Settings withBallast(std::size_t bytes)
{
    ArchiveStore::Settings settings;
    settings.ballast = bytes;
    return settings;
}

/// An archive on a small disk.
class FullFileSystem : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!m_disk.isMounted()) {
            GTEST_SKIP() << "only root can mount a file system";
        }
    }

    TemporaryDirectory m_directory;
    const SmallDisk m_disk{m_directory.path("")};
    const std::string m_path = m_directory.path("welds.db");
};

} // namespace

TEST_F(FullFileSystem, KeepsTheRowsAndGoesOnWhenThereIsRoom)
{
    {
        const auto store = openStore(m_path, withBallast(600'000));
        const std::int64_t cutOff = store->begin(makeWeld("cut off"));
        addNoise(*store, cutOff, 0, 2000);
        ASSERT_TRUE(store->commit());
        m_disk.fill();

        addNoise(*store, cutOff, 2000, 17'000); // more than the ballast
        EXPECT_EQ(store->commit().code, Status::Code::Full);
        EXPECT_TRUE(store->isFull());
        store->end(cutOff, "complete");
        EXPECT_EQ(store->commit().code, Status::Code::Full);
        EXPECT_EQ(store->takeClosed().size(), 1U) << "the row has room in the ballast";
        const std::int64_t lost = store->begin(makeWeld("lost"));
        addNoise(*store, lost, 0, 1000);
        store->end(lost, "complete");
        EXPECT_EQ(store->commit().code, Status::Code::Full);
        const std::int64_t waiting = store->begin(makeWeld("waiting"));
        addNoise(*store, waiting, 0, 1000);
        EXPECT_EQ(store->commit().code, Status::Code::Full);

        m_disk.empty();
        EXPECT_TRUE(store->commit());
        EXPECT_FALSE(store->isFull());
        store->end(waiting, "complete");
        EXPECT_TRUE(store->commit());
        EXPECT_FALSE(store->isDirty());
    }
    std::map<std::string, Weld> welds = weldsByUid(m_path);
    ASSERT_EQ(welds.size(), 3U);
    for (const auto& [uid, samples, unstored] :
         {std::tuple("cut off", 2000, 15'000), std::tuple("lost", 0, 1000), std::tuple("waiting", 1000, 0)}) {
        EXPECT_EQ(welds[uid].text(Column::Ending), "complete") << uid;
        EXPECT_EQ(welds[uid].whole(Column::Samples), samples) << uid;
        EXPECT_EQ(welds[uid].whole(Column::Unstored), unstored) << uid;
        EXPECT_EQ(welds[uid].whole(Column::Missed), 0) << uid;
    }
    expectSound(m_path);
}

TEST_F(FullFileSystem, IsOpenedWithTheRoomOfTheBallast)
{
    {
        const auto store = openStore(m_path, withBallast(400'000));
        const std::int64_t handle = store->begin(makeWeld("one"));
        addNoise(*store, handle, 0, 2000);
        ASSERT_TRUE(store->commit());
    }
    m_disk.fill();
    Status status;
    {
        const auto store = ArchiveStore::open(m_path, withBallast(400'000), status);
        ASSERT_TRUE(store) << status.text;
        EXPECT_EQ(store->counters().recovered, 1U);
    }
    m_disk.empty();
    EXPECT_EQ(weldsByUid(m_path)["one"].text(Column::Ending), "killed");
    expectSound(m_path);
}

TEST(FullDisk, StoresWhatWaitedOnceThereIsRoom)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    {
        const auto store = openStore(path, withBallast(0));
        const std::int64_t handle = store->begin(makeWeld("one"));
        addNoise(*store, handle, 0, 1000);
        ASSERT_TRUE(store->commit());
        const FileSizeLimit limit;
        for (const rlim_t bytes : {rlim_t{1}, rlim_t{50'000}, rlim_t{100'000}}) {
            FileSizeLimit::set(bytes);
            const std::int32_t from = static_cast<std::int32_t>(bytes / 50'000) * 3000 + 1000;
            addNoise(*store, handle, from, from + 3000);
            EXPECT_EQ(store->commit().code, Status::Code::Full);
            limit.lift();
            const auto reader = openReader(path);
            EXPECT_EQ(samplesOf(*reader, listWelds(*reader)[0].id).size(), 1000U);
        }
        store->end(handle, "complete");
        ASSERT_TRUE(store->commit());
    }
    const Weld weld = weldsByUid(path)["one"];
    EXPECT_EQ(weld.whole(Column::Samples), 10'000);
    EXPECT_EQ(weld.whole(Column::Unstored), 0);
    expectSound(path);
}

TEST(FullDisk, LeavesTheOldSchemaWhenItCannotMakeTheNew)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    Status status;
    std::int64_t version = 0;
    const auto database = openSqlite(path, Database::Access::ReadWrite, status);
    ASSERT_TRUE(database) << status.text;
    ASSERT_TRUE(migrate(*database, 1));
    std::vector<Row> ignored;
    ASSERT_TRUE(database->run("PRAGMA max_page_count = 1", {}, &ignored)); // no more than there are
    EXPECT_EQ(migrate(*database).code, Status::Code::Full);
    ASSERT_TRUE(readSchemaVersion(*database, version));
    EXPECT_EQ(version, 1);
    ASSERT_TRUE(database->run("PRAGMA max_page_count = 100000", {}, &ignored));
    EXPECT_TRUE(migrate(*database));
    ASSERT_TRUE(readSchemaVersion(*database, version));
    EXPECT_EQ(version, 6) << "later ones change nothing in SQLite";
}

namespace
{

/// An archive whose log still has everything, as after a power cut.
class TornLog : public ::testing::Test
{
protected:
    TornLog() : m_store(openStore(m_directory.path("welds.db"), withBallast(0)))
    {
        std::vector<Row> ignored;
        m_store->database().run("PRAGMA wal_autocheckpoint = 0", {}, &ignored);
        for (const char* const uid : {"0", "1", "2", "3", "4"}) {
            const std::int64_t handle = m_store->begin(makeWeld(uid));
            addNoise(*m_store, handle, 0, 300);
            m_store->end(handle, "complete");
            EXPECT_TRUE(m_store->commit());
        }
    }

    /// Copies the files as they are now, without closing the database.
    std::string copy(const std::string& name) const
    {
        const std::filesystem::path folder = m_directory.path(name);
        std::filesystem::create_directory(folder);
        for (const char* const file : {"welds.db", "welds.db-wal", "welds.db.samples"}) {
            std::filesystem::copy(m_directory.path(file), folder / file,
                                  std::filesystem::copy_options::recursive);
        }
        return folder / "welds.db";
    }

    /// \return the number of welds; 0 to n - 1 must be there, in this order
    static std::size_t countWelds(const std::string& path)
    {
        expectSound(path);
        const std::vector<Weld> welds = listWelds(*openReader(path));
        for (std::size_t i = 0; i < welds.size(); ++i) {
            EXPECT_EQ(welds[i].text(Column::Uid), std::to_string(i));
        }
        return welds.size();
    }

    TemporaryDirectory m_directory;
    std::unique_ptr<ArchiveStore> m_store;
};

} // namespace

TEST_F(TornLog, LosesOnlyTheLastCommitsWhenItIsCut)
{
    const auto size = std::filesystem::file_size(m_directory.path("welds.db-wal"));
    std::size_t before = 0;
    constexpr std::uintmax_t kCuts = 8;
    for (std::uintmax_t i = 0; i <= kCuts; ++i) {
        const std::string path = copy("cut" + std::to_string(i));
        // Not at the end of a page.
        std::filesystem::resize_file(path + "-wal", i == kCuts ? size : size * i / kCuts + i * 7 % 100);
        const std::size_t welds = countWelds(path);
        EXPECT_GE(welds, before);
        before = welds;
    }
    EXPECT_EQ(before, 5U);
}

TEST_F(TornLog, LosesOnlyTheLastCommitsWhenASectorIsWrong)
{
    std::mt19937 random(1);
    const auto size = static_cast<long>(std::filesystem::file_size(m_directory.path("welds.db-wal")));
    for (int i = 0; i < 5; ++i) {
        const std::string path = copy("sector" + std::to_string(i));
        const TelvaneTool::FileDescriptor file(::open((path + "-wal").c_str(), O_WRONLY | O_CLOEXEC));
        const std::string sector(512, '\x5a');
        const long place = std::uniform_int_distribution<long>(0, size / 512 - 1)(random) * 512;
        ASSERT_EQ(pwrite(file.get(), sector.data(), sector.size(), place), 512);
        EXPECT_LE(countWelds(path), 5U);
    }
}

TEST_F(TornLog, LosesOnlyTheSamplesThatAreCutOff)
{
    const std::string name = sampleFileName(kStart);
    const auto size = std::filesystem::file_size(m_directory.path("welds.db.samples/" + name));
    for (std::uintmax_t i = 0; i < 6; ++i) {
        const std::string path = copy("samples" + std::to_string(i));
        std::filesystem::resize_file(sampleFolder(path) + "/" + name, size * i / 6 + i);
        const auto store = openStore(path);
        const auto reader = openReader(path);
        std::size_t whole = 0;
        for (const Weld& weld : listWelds(*reader)) {
            std::uint64_t damaged = 0;
            const std::size_t count = samplesOf(*reader, weld.id, &damaged).size();
            EXPECT_EQ(count, damaged == 0 ? 300U : 0U);
            whole += count / 300;
        }
        EXPECT_EQ(listWelds(*reader).size(), 5U);
        EXPECT_EQ(whole, i * 5 / 6);
    }
}

TEST(FullDisk, FailsACopyWhoseSamplesFindNoRoom)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const std::string copy = directory.path("copy.db");
    keepWeld(*openStore(path), makeWeld("one"), 100);
    const auto reader = openReader(path);
    const std::string samples = sampleFolder(path);
    std::ofstream(samples + "/2020-01.samples") << std::string(4 << 20, 'x');
    std::filesystem::create_directory(samples + "/lost+found");
    std::filesystem::create_symlink("deleted", samples + "/2020-02.samples");

    const FileSizeLimit limit;
    FileSizeLimit::set(2 << 20);
    EXPECT_FALSE(copyArchive(*reader, path, copy, true));
    limit.lift();
    EXPECT_FALSE(std::filesystem::exists(copy));
    EXPECT_FALSE(std::filesystem::exists(sampleFolder(copy)));

    const Status status = copyArchive(*reader, path, copy, true);
    EXPECT_TRUE(status) << status.text;
    EXPECT_EQ(std::filesystem::file_size(sampleFolder(copy) + "/2020-01.samples"), std::uintmax_t{4} << 20);
}
