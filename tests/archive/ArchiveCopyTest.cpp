#include "archive/reader/ArchiveCopy.h"
#include "archive/ArchiveTestSupport.h"

#include <filesystem>

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;

namespace
{

std::vector<std::string> recordsOf(ArchiveStore& store)
{
    std::vector<ArchiveStore::Unpublished> waiting;
    const Status status = store.readUnpublished(100, waiting);
    EXPECT_TRUE(status) << status.text;
    std::vector<std::string> records;
    records.reserve(waiting.size());
    for (const ArchiveStore::Unpublished& one : waiting) {
        records.push_back(one.record);
    }
    return records;
}

} // namespace

TEST(ArchiveCopy, LeavesVerdictsThatWaitForTheBusToTheArchive)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const std::string copy = directory.path("copy.db");
    const auto store = openStore(path);
    store->setJudge([](Weld& weld, ArchiveStore::Judgement& judgement) {
        weld[Column::Verdict] = std::string("not_ok");
        judgement.record = weld.text(Column::Uid);
    });
    keepWeld(*store, makeWeld("one"), 100);
    keepWeld(*store, makeWeld("two"), 100);

    const Status status = copyArchive(*openReader(path), path, copy, true);
    ASSERT_TRUE(status) << status.text;
    for (const char* const end :
         {"-wal", "-shm", "-journal", ".unfinished", ".unfinished-wal", ".unfinished-shm"}) {
        EXPECT_FALSE(std::filesystem::exists(copy + end)) << end;
    }
    const std::vector<Weld> welds = listWelds(*openReader(copy));
    ASSERT_EQ(welds.size(), 2U);
    EXPECT_EQ(welds[1].text(Column::Verdict), "not_ok");
    EXPECT_EQ(recordsOf(*openStore(copy)), (std::vector<std::string>{}));
    EXPECT_EQ(recordsOf(*store), (std::vector<std::string>{"one", "two"}));
}

TEST(ArchiveCopy, CopiesAnArchiveOfAnOlderVersion)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const std::string copy = directory.path("copy.db");
    {
        const auto store = openStore(path);
        keepWeld(*store, makeWeld("one"), 1);
        ASSERT_TRUE(store->database().run("DROP TABLE unpublished"));
        ASSERT_TRUE(store->database().run("UPDATE archive_info SET value = 4 WHERE name = 'schema_version'"));
    }
    const Status status = copyArchive(*openReader(path), path, copy, false);
    ASSERT_TRUE(status) << status.text;
    EXPECT_EQ(listWelds(*openReader(copy)).size(), 1U);
}
