#include "common/support/Compression.h"

#include "common/support/TextLines.h"
#include "helpers/TestFiles.h"

#include <cerrno>
#include <gmock/gmock.h>

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::TemporaryDirectory;
using testing::ElementsAre;

class CompressionTest : public testing::TestWithParam<Compression>
{
protected:
    std::string compress(const std::vector<std::string>& pieces, bool last) const
    {
        const std::unique_ptr<Compressor> compressor = makeCompressor(GetParam());
        std::string data;
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            data += compressor->compress(pieces[i], last && i + 1 == pieces.size());
        }
        return data;
    }

    std::vector<std::string> linesOf(const std::string& data, int& error)
    {
        TextLines lines;
        EXPECT_EQ(lines.open(m_directory.write("file", data)), 0);
        std::vector<std::string> all;
        std::string_view line;
        while (lines.next(line)) {
            all.emplace_back(line);
        }
        error = lines.error();
        return all;
    }

    TemporaryDirectory m_directory;
    int m_error = 0;
};

INSTANTIATE_TEST_SUITE_P(Methods, CompressionTest, testing::Values(Compression::Gzip, Compression::Zstd),
                         [](const auto& test) { return test.param == Compression::Gzip ? "Gzip" : "Zstd"; });

TEST_P(CompressionTest, GivesBackWhatItWasGiven)
{
    const std::string data = compress({"one\ntw", "o\n", "", "three\n"}, true);
    EXPECT_EQ(compressionOfData(data), GetParam());
    EXPECT_THAT(linesOf(data, m_error), ElementsAre("one", "two", "three"));
    EXPECT_EQ(m_error, 0);
}

TEST_P(CompressionTest, CanBeReadUpToTheLastFlush)
{
    EXPECT_THAT(linesOf(compress({"one\n", "two\n"}, false), m_error), ElementsAre("one", "two"));
    EXPECT_EQ(m_error, 0);
}

TEST_P(CompressionTest, ReadsSeveralStreamsInARow)
{
    EXPECT_THAT(linesOf(compress({"one\n"}, true) + compress({"two\n"}, true), m_error),
                ElementsAre("one", "two"));
    EXPECT_EQ(m_error, 0);
}

TEST_P(CompressionTest, ReadsLargeFiles)
{
    std::string text;
    for (int i = 0; i < 200'000; ++i) {
        text += std::to_string(i) + "\n";
    }
    const std::vector<std::string> lines = linesOf(compress({text}, true), m_error);
    ASSERT_EQ(lines.size(), 200'000U);
    EXPECT_EQ(lines.back(), "199999");
}

TEST_P(CompressionTest, ReportsDamage)
{
    std::string data = compress({std::string(1000, 'x') + "\none\ntwo\n"}, true);
    for (std::size_t i = 10; i < data.size(); ++i) {
        data[i] = static_cast<char>(~data[i]);
    }
    linesOf(data, m_error);
    EXPECT_EQ(m_error, EBADMSG);
}

TEST(Compression, FollowsTheNameOfTheFile)
{
    EXPECT_EQ(compressionOfPath("a.jsonl.gz"), Compression::Gzip);
    EXPECT_EQ(compressionOfPath("a.jsonl.zst"), Compression::Zstd);
    EXPECT_EQ(compressionOfPath("a.jsonl"), Compression::None);
    EXPECT_EQ(compressionOfPath(".gz"), Compression::None);
    EXPECT_EQ(makeCompressor(Compression::None), nullptr);
    EXPECT_EQ(makeDecompressor(Compression::None), nullptr);
    EXPECT_EQ(compressionOfData("{\"a\":1}"), Compression::None);
}

} // namespace
} // namespace TelvaneTool
