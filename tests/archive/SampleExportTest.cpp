#include "telvane-welds/SampleExport.h"
#include "archive/ArchiveTestSupport.h"

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;

TEST(SampleExport, HasEachSampleOnceWhateverItsStamp)
{
    const TemporaryDirectory directory;
    const std::vector<Sample> published = makeUnevenSamples(12'000);
    keepSamples(*openStore(directory.path("welds.db")), published);
    const auto reader = openReader(directory.path("welds.db"));
    ASSERT_EQ(writeSamples(*reader, listWelds(*reader).at(0), directory.path("weld.csv")), 0);
    EXPECT_EQ(differenceOfExport(directory.path("weld.csv"), published), "");
}

TEST(SamplePages, GoOnAfterTheLastSampleWhateverItsStamp)
{
    const TemporaryDirectory directory;
    const std::vector<Sample> published = makeUnevenSamples(9'000); // three chunks
    keepSamples(*openStore(directory.path("welds.db")), published);
    const auto reader = openReader(directory.path("welds.db"));
    const std::int64_t id = listWelds(*reader).at(0).id;
    const ArchiveReader::SampleRange all;
    const ArchiveReader::SampleRange part = {50'000'000, 900'000'000};
    for (const auto& range : {all, part}) {
        std::vector<std::int32_t> expected;
        for (const Sample& sample : published) {
            if (range.contains(sample.time - kStart)) {
                expected.push_back(sample.number);
            }
        }
        for (const std::size_t page : {500U, 4096U, 100'000U}) {
            std::vector<std::int32_t> numbers;
            ArchiveReader::SamplePosition position;
            std::vector<Sample> samples;
            do {
                samples.clear();
                ASSERT_TRUE(reader->samples(id, range, page, position, samples));
                for (const Sample& sample : samples) {
                    numbers.push_back(sample.number);
                }
            } while (samples.size() == page);
            EXPECT_TRUE(numbers == expected) << numbers.size() << " samples in pages of " << page;
        }
    }
}
