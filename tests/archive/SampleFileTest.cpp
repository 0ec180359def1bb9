#include "archive/samples/SampleFile.h"
#include "archive/ArchiveTestSupport.h"
#include "archive/samples/SampleCodec.h"
#include "helpers/TestFiles.h"

#include <filesystem>

using namespace TelvaneArchive;
using Telvane::Testing::TemporaryDirectory;
using TelvaneArchive::Testing::makeSample;

namespace
{

constexpr std::int64_t kFiveGiB = std::int64_t{5} << 30;

std::string makeChunk(std::uint32_t number)
{
    const std::vector<Sample> samples = {makeSample(1), makeSample(2)};
    return encodeChunk(samples.data(), samples.size(), 1, number);
}

/// The file takes no room on the disk: it has a hole up to its end.
class LargeSampleFile : public testing::Test
{
protected:
    LargeSampleFile()
    {
        EXPECT_TRUE(m_file.open(m_path));
        m_file.close();
        std::filesystem::resize_file(m_path, kFiveGiB);
    }

    const TemporaryDirectory m_directory;
    const std::string m_path = m_directory.path("2026-09.samples");
    SampleFile m_file;
};

} // namespace

TEST_F(LargeSampleFile, ReadsWhatWasAppendedBeyondFourGiB)
{
    ASSERT_TRUE(m_file.open(m_path));
    EXPECT_EQ(m_file.size(), kFiveGiB);
    const std::string chunk = makeChunk(1);
    SampleFile::Place place;
    ASSERT_TRUE(m_file.append(chunk, place));
    EXPECT_EQ(place.offset, kFiveGiB);
    std::string bytes;
    ASSERT_TRUE(readFilePart(m_path, place, bytes));
    EXPECT_EQ(bytes, chunk);
}

TEST_F(LargeSampleFile, RecoversWholeChunksBeyondFourGiBAndCutsOffATornOne)
{
    ASSERT_TRUE(m_file.open(m_path));
    SampleFile::Place whole;
    ASSERT_TRUE(m_file.append(makeChunk(1), whole));
    SampleFile::Place torn;
    ASSERT_TRUE(m_file.append(makeChunk(2).substr(0, 50), torn));
    std::vector<std::int64_t> found;
    std::int64_t removed = 0;
    ASSERT_TRUE(m_file.recover(
        kFiveGiB,
        [&found](const SampleFile::Place& place, std::string_view) { found.push_back(place.offset); },
        removed));
    EXPECT_EQ(found, std::vector<std::int64_t>{kFiveGiB});
    EXPECT_EQ(removed, 50);
    EXPECT_EQ(std::filesystem::file_size(m_path), static_cast<std::uintmax_t>(torn.offset));
}
