#include "archive/ArchiveTestSupport.h"
#include "archive/samples/SampleFile.h"

#include <filesystem>

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;

namespace
{

constexpr std::int64_t kDay = 86'400'000'000'000;

class Retention : public ::testing::Test
{
protected:
    Retention() : m_store(openStore(m_directory.path("welds.db")))
    {
        for (int day = 0; day < 4; ++day) {
            Weld weld = makeWeld(std::to_string(day));
            weld[Column::StartNs] = kStart + day * 30 * kDay;
            keepWeld(*m_store, weld, 5000);
        }
    }

    std::size_t files() const
    {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(m_directory.path("welds.db.samples"))) {
            count += entry.is_regular_file() ? 1 : 0;
        }
        return count;
    }
    std::vector<std::size_t> samples() const
    {
        const auto reader = openReader(m_directory.path("welds.db"));
        std::vector<std::size_t> counts;
        for (const Weld& weld : listWelds(*reader)) {
            counts.push_back(samplesOf(*reader, weld.id).size());
        }
        return counts;
    }

    TemporaryDirectory m_directory;
    std::unique_ptr<ArchiveStore> m_store;
    ArchiveStore::Retained m_retained;
};

} // namespace

TEST_F(Retention, DeletesOldSamplesAndKeepsTheirRows)
{
    const std::size_t before = files();
    ArchiveStore::Retention retention;
    retention.samplesAge = 45 * kDay;
    ASSERT_TRUE(m_store->retain(retention, kStart + 90 * kDay, m_retained));
    EXPECT_EQ(m_retained.sampleWelds, 2);
    EXPECT_EQ(samples(), (std::vector<std::size_t>{0, 0, 5000, 5000}));
    EXPECT_LT(files(), before);
}

TEST_F(Retention, DeletesTheOldestSamplesAboveASize)
{
    ArchiveStore::Retention retention;
    retention.samplesBytes = static_cast<std::int64_t>(m_store->counters().bytes) * 3 / 5;
    ASSERT_TRUE(m_store->retain(retention, kStart, m_retained));
    EXPECT_EQ(samples(), (std::vector<std::size_t>{0, 0, 5000, 5000}));
}

TEST_F(Retention, DeletesOldRowsExceptOfWeldsThatAreNotOk)
{
    ASSERT_TRUE(m_store->database().run("UPDATE weld SET verdict = 'not_ok' WHERE uid = '0'"));
    ArchiveStore::Retention retention;
    retention.rowsAge = 45 * kDay;
    ASSERT_TRUE(m_store->retain(retention, kStart + 90 * kDay, m_retained));
    EXPECT_EQ(m_retained.rows, 1);
    EXPECT_EQ(samples(), (std::vector<std::size_t>{5000, 5000, 5000}));
}

TEST_F(Retention, LeavesAWeldThatIsUnderWay)
{
    Weld weld = makeWeld("running");
    const std::int64_t handle = m_store->begin(weld);
    m_store->add(handle, makeSample(0), 0);
    ASSERT_TRUE(m_store->commit());
    ArchiveStore::Retention retention;
    retention.samplesAge = 1;
    retention.rowsAge = 1;
    ASSERT_TRUE(m_store->retain(retention, kStart + 1000 * kDay, m_retained));
    m_store->add(handle, makeSample(1), 0);
    m_store->end(handle, "complete");
    ASSERT_TRUE(m_store->commit());
    EXPECT_EQ(samples(), (std::vector<std::size_t>{2}));
}

TEST(DeletedSamples, DoNotComeBackWhenAWeldThatWasCutOffIsClosed)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const std::string file = sampleFolder(path) + "/" + sampleFileName(kStart);
    {
        const auto store = openStore(path);
        keepWeld(*store, makeWeld("old"), 100);
        Weld weld = makeWeld("cut off");
        weld[Column::StartNs] = kStart + kDay;
        store->begin(weld);
        ASSERT_TRUE(store->commit());
        std::filesystem::copy_file(file, directory.path("before"));
        ArchiveStore::Retention retention;
        retention.samplesAge = kDay;
        ArchiveStore::Retained retained;
        ASSERT_TRUE(store->retain(retention, kStart + kDay + 1, retained));
        EXPECT_EQ(retained.sampleWelds, 1);
    }
    // As on a file system without holes.
    std::filesystem::copy_file(directory.path("before"), file,
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(openStore(path)->counters().recovered, 1U);
    const auto reader = openReader(path);
    EXPECT_EQ(samplesOf(*reader, listWelds(*reader)[0].id).size(), 0U);
}
