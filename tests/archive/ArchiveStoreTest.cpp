#include "archive/store/ArchiveStore.h"
#include "archive/ArchiveTestSupport.h"
#include "archive/samples/SampleCodec.h"
#include "archive/samples/SampleFile.h"
#include "archive/welds/Schema.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <sys/wait.h>

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;

namespace
{

std::string onlySampleFile(const std::string& database)
{
    return sampleFolder(database) + "/" + sampleFileName(kStart);
}

std::int64_t countRows(Database& database, const Sql& statement)
{
    std::vector<Row> rows;
    const Status status = database.run(statement, {}, &rows);
    EXPECT_TRUE(status) << status.text;
    return rows.empty() ? -1 : wholeOf(rows[0][0]);
}

} // namespace

TEST(ArchiveStore, KeepsAWeldWithItsSamples)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    keepWeld(*openStore(path), makeWeld("one"), 10'000);
    const auto reader = openReader(path);
    const std::vector<Weld> welds = listWelds(*reader);
    ASSERT_EQ(welds.size(), 1U);
    EXPECT_EQ(welds[0].text(Column::Uid), "one");
    EXPECT_EQ(welds[0].text(Column::Ending), "complete");
    EXPECT_EQ(welds[0].whole(Column::Samples), 10'000);
    EXPECT_EQ(welds[0].whole(Column::Missed), 0);
    const std::vector<Sample> samples = samplesOf(*reader, welds[0].id);
    EXPECT_EQ(samples.size(), 10'000U);
    EXPECT_EQ(differenceOf(samples), "");
}

TEST(ArchiveStore, ShowsAWeldUnderWayUpToTheLastCommit)
{
    const TemporaryDirectory directory;
    const auto store = openStore(directory.path("welds.db"));
    const std::int64_t handle = store->begin(makeWeld("one"));
    store->add(handle, makeSample(0), 0);
    ASSERT_TRUE(store->commit());
    store->add(handle, makeSample(1), 0);
    const auto reader = openReader(directory.path("welds.db"));
    const std::vector<Weld> welds = listWelds(*reader);
    ASSERT_EQ(welds.size(), 1U);
    EXPECT_EQ(welds[0].text(Column::Ending), "running");
    EXPECT_EQ(samplesOf(*reader, welds[0].id).size(), 1U);
}

TEST(ArchiveStore, HasNothingToCommitWithoutAWeld)
{
    const TemporaryDirectory directory;
    const auto store = openStore(directory.path("welds.db"));
    EXPECT_FALSE(store->isDirty());
    keepWeld(*store, makeWeld("one"), 100);
    EXPECT_FALSE(store->isDirty());
}

TEST(ArchiveStore, RefusesASecondWriter)
{
    const TemporaryDirectory directory;
    const auto store = openStore(directory.path("welds.db"));
    Status status;
    EXPECT_FALSE(ArchiveStore::open(directory.path("welds.db"), {}, status));
    EXPECT_EQ(status.code, Status::Code::Refused);
}

TEST(ArchiveStore, SynchronisesEachCommit)
{
    const TemporaryDirectory directory;
    const auto store = openStore(directory.path("welds.db"));
    EXPECT_EQ(countRows(store->database(), "PRAGMA synchronous"), 2); // FULL
    std::vector<Row> rows;
    ASSERT_TRUE(store->database().run("PRAGMA journal_mode", {}, &rows));
    EXPECT_EQ(textOf(rows[0][0]), "wal");
}

TEST(ArchiveStore, ClosesAWeldThatWasCutOff)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    {
        const auto store = openStore(path);
        for (const char* uid : {"here", "other boot"}) {
            Weld weld = makeWeld(uid);
            if (std::string(uid) == "other boot") {
                weld[Column::Boot] = std::string("another");
            }
            const std::int64_t handle = store->begin(weld);
            for (int i = 0; i < 1000; ++i) {
                store->add(handle, makeSample(i), 0);
            }
            ASSERT_TRUE(store->commit());
        }
    }
    EXPECT_EQ(openStore(path)->counters().recovered, 2U);
    const auto reader = openReader(path);
    const std::vector<Weld> welds = listWelds(*reader);
    ASSERT_EQ(welds.size(), 2U);
    EXPECT_EQ(welds[0].text(Column::Ending), "killed");
    EXPECT_EQ(welds[1].text(Column::Ending), "power");
    for (const Weld& weld : welds) {
        EXPECT_EQ(weld.whole(Column::Samples), 1000);
        EXPECT_NEAR(weld.number(Column::ArcTime), 0.5, 0.001);
        std::optional<Envelope> envelope;
        ASSERT_TRUE(reader->envelope(weld.id, kCoarseParts, envelope));
        EXPECT_TRUE(envelope.has_value());
    }
}

TEST(ArchiveStore, AddsWholeChunksThatWereNotIndexedAndCutsOffATornOne)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    std::int64_t id = 0;
    {
        const auto store = openStore(path);
        const std::int64_t handle = store->begin(makeWeld("one"));
        for (int i = 0; i < 100; ++i) {
            store->add(handle, makeSample(i), 0);
        }
        ASSERT_TRUE(store->commit());
        id = store->find(handle)->id;
    }
    std::vector<Sample> more;
    for (int i = 100; i < 200; ++i) {
        more.push_back(makeSample(i));
    }
    const std::string whole = encodeChunk(more.data(), more.size(), id, 1);
    const std::string torn = encodeChunk(more.data(), more.size(), id, 2);
    std::ofstream(onlySampleFile(path), std::ios::binary | std::ios::app)
        << whole << torn.substr(0, torn.size() / 2);

    const auto store = openStore(path);
    EXPECT_EQ(store->counters().removedBytes, torn.size() / 2);
    const auto reader = openReader(path);
    EXPECT_EQ(listWelds(*reader)[0].whole(Column::Samples), 200);
    const std::vector<Sample> samples = samplesOf(*reader, id);
    EXPECT_EQ(samples.size(), 200U);
    EXPECT_EQ(differenceOf(samples), "");
}

TEST(ArchiveStore, ReadsAroundADamagedChunkAndCountsIt)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    keepWeld(*openStore(path), makeWeld("one"), 10'000); // three chunks
    std::fstream file(onlySampleFile(path), std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(std::filesystem::file_size(onlySampleFile(path)) / 2));
    file << "damage";
    file.close();
    const auto reader = openReader(path);
    std::uint64_t damaged = 0;
    const std::vector<Sample> samples = samplesOf(*reader, listWelds(*reader)[0].id, &damaged);
    EXPECT_EQ(damaged, 1U);
    EXPECT_GT(samples.size(), 1'000U);
}

TEST(ArchiveStore, OpensWithoutItsSampleFiles)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    keepWeld(*openStore(path), makeWeld("one"), 10'000);
    std::filesystem::remove_all(sampleFolder(path));
    const auto store = openStore(path);
    const auto reader = openReader(path);
    std::uint64_t damaged = 0;
    EXPECT_TRUE(samplesOf(*reader, listWelds(*reader)[0].id, &damaged).empty());
    EXPECT_EQ(damaged, 3U);
}

TEST(ArchiveStore, KeepsAWeldWithImpossibleTimeStamps)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    {
        const auto store = openStore(path);
        for (const std::int64_t period : {std::int64_t{0}, std::int64_t{500}, std::int64_t{2'000'000'000}}) {
            Weld weld = makeWeld(std::to_string(period), period);
            weld[Column::StartNs] = std::numeric_limits<std::int64_t>::min();
            const std::int64_t handle = store->begin(weld);
            for (const std::int64_t time : {std::numeric_limits<std::int64_t>::max(), std::int64_t{0}}) {
                Sample sample = makeSample(std::numeric_limits<std::int32_t>::max());
                sample.time = time;
                store->add(handle, sample, 0);
            }
            store->end(handle, "complete");
            ASSERT_TRUE(store->commit());
        }
    }
    const auto reader = openReader(path);
    for (const Weld& weld : listWelds(*reader)) {
        EXPECT_EQ(weld.whole(Column::Samples), 2);
        EXPECT_EQ(samplesOf(*reader, weld.id).size(), 2U);
    }
}

TEST(ArchiveStore, SaysThatAFileIsNotADatabase)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    std::ofstream(path) << std::string(10'000, 'x');
    Status status;
    EXPECT_FALSE(ArchiveStore::open(path, {}, status));
    EXPECT_EQ(status.code, Status::Code::Damaged);
}

TEST(ArchiveStore, SaysHowManySamplesFoundNoRoomInMemory)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    ArchiveStore::Settings settings;
    settings.maxWaiting = 50;
    keepWeld(*openStore(path, settings), makeWeld("one"), 80);
    const auto reader = openReader(path);
    const Weld weld = listWelds(*reader)[0];
    EXPECT_EQ(weld.whole(Column::Samples), 50);
    EXPECT_EQ(weld.whole(Column::Unstored), 30);
    EXPECT_EQ(weld.whole(Column::Missed), 0);
}

TEST(ArchiveSchema, GrowsFromTheFirstVersionAndKeepsItsRows)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    Status status;
    {
        const auto database = openSqlite(path, Database::Access::ReadWrite, status);
        ASSERT_TRUE(migrate(*database, 1));
        ASSERT_TRUE(database->run("INSERT INTO weld (uid, start_ns, ending) VALUES ('old', 1, 'complete')"));
        EXPECT_FALSE(ArchiveReader::open(path, status));
    }
    const auto store = openStore(path);
    const auto reader = openReader(path);
    EXPECT_EQ(listWelds(*reader)[0].text(Column::Uid), "old");
}

TEST(ArchiveSchema, IsNotWrittenByAnOlderProgram)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    Status status;
    {
        const auto store = openStore(path);
        ASSERT_TRUE(store->database().run("UPDATE archive_info SET value = 99"));
    }
    EXPECT_FALSE(ArchiveStore::open(path, {}, status));
    EXPECT_EQ(status.code, Status::Code::Refused);
    EXPECT_TRUE(openReader(path));
}

namespace
{

/// Writes a weld for ever, and reports on a pipe how many samples the archive has confirmed.
[[noreturn]] void writeUntilKilled(const std::string& path, const std::string& uid, int pipe)
{
    Status status;
    const auto store = ArchiveStore::open(path, {}, status);
    if (!store) {
        _exit(1);
    }
    const std::int64_t handle = store->begin(makeWeld(uid));
    for (std::int32_t number = 0;;) {
        for (int i = 0; i < 700; ++i) {
            store->add(handle, makeSample(number++), 0);
        }
        if (!store->commit() || write(pipe, &number, sizeof number) != sizeof number) {
            _exit(1);
        }
    }
}

} // namespace

// TELVANE_ARCHIVE_KILLS sets the number of kills.
TEST(ArchiveKill, LosesNoCommittedSampleAtAnyMoment)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const char* const wanted = std::getenv("TELVANE_ARCHIVE_KILLS");
    const int kills = wanted != nullptr ? std::atoi(wanted) : 15;
    std::mt19937 random(std::random_device{}());
    std::vector<std::int32_t> confirmed;
    for (int kill = 0; kill < kills; ++kill) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            close(ends[0]);
            writeUntilKilled(path, std::to_string(kill), ends[1]);
        }
        close(ends[1]);
        std::int32_t last = 0;
        ASSERT_EQ(read(ends[0], &last, sizeof last), static_cast<ssize_t>(sizeof last));
        usleep(std::uniform_int_distribution<useconds_t>(0, 40'000)(random));
        ::kill(child, SIGKILL);
        while (read(ends[0], &last, sizeof last) == static_cast<ssize_t>(sizeof last)) {
        }
        close(ends[0]);
        int state = 0;
        ASSERT_EQ(waitpid(child, &state, 0), child);
        ASSERT_TRUE(WIFSIGNALED(state));
        confirmed.push_back(last);
    }
    {
        const auto store = openStore(path);
        std::vector<Row> rows;
        ASSERT_TRUE(store->database().run("PRAGMA integrity_check", {}, &rows));
        EXPECT_EQ(textOf(rows[0][0]), "ok");
    }
    const auto reader = openReader(path);
    const std::vector<Weld> welds = listWelds(*reader);
    ASSERT_EQ(welds.size(), static_cast<std::size_t>(std::min(kills, 100)));
    for (std::size_t i = 0; i < confirmed.size(); ++i) {
        WeldFilter filter;
        filter.add(Column::Uid, Condition::Comparison::Equal, std::to_string(i));
        const std::vector<Weld> found = listWelds(*reader, filter);
        ASSERT_EQ(found.size(), 1U) << i;
        EXPECT_EQ(found[0].text(Column::Ending), "killed");
        const std::vector<Sample> samples = samplesOf(*reader, found[0].id);
        EXPECT_GE(samples.size(), static_cast<std::size_t>(confirmed[i]));
        EXPECT_EQ(samples.size(), static_cast<std::size_t>(found[0].whole(Column::Samples)));
        EXPECT_EQ(differenceOf(samples), "");
    }
}
