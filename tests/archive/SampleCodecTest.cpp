#include "archive/samples/SampleCodec.h"
#include "archive/ArchiveTestSupport.h"
#include "archive/samples/Envelope.h"
#include "helpers/SampleBits.h"

#include <cstring>
#include <random>

using namespace TelvaneArchive;
using Telvane::Testing::sameBits;
using TelvaneArchive::Testing::makeSample;

namespace
{

std::vector<Sample> roundTrip(const std::vector<Sample>& samples)
{
    const std::string chunk = encodeChunk(samples.data(), samples.size(), 17, 3);
    EXPECT_LE(chunk.size(), kMaxChunk);
    ChunkHeader header;
    std::vector<Sample> read;
    EXPECT_TRUE(decodeChunk(chunk, header, read));
    EXPECT_EQ(header.weld, 17);
    EXPECT_EQ(header.number, 3U);
    return read;
}

} // namespace

TEST(SampleCodec, BringsBackEveryNumberBitForBit)
{
    std::vector<Sample> samples(9);
    const double odd[] = {0.0, -0.0, 1e300, -1e-300, 0.1 + 0.2, std::nan(""), HUGE_VAL, 123456.789, 5e-324};
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i].number =
            i == 0 ? std::numeric_limits<std::int32_t>::min() : std::numeric_limits<std::int32_t>::max();
        samples[i].time =
            i % 2 == 0 ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
        samples[i].values.fill(odd[i]);
    }
    const std::vector<Sample> read = roundTrip(samples);
    ASSERT_EQ(read.size(), samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_TRUE(sameBits(read[i], samples[i])) << i;
    }
}

TEST(SampleCodec, BringsBackRandomNumbers)
{
    std::mt19937_64 random(1);
    for (int round = 0; round < 50; ++round) {
        std::vector<Sample> samples(1 + static_cast<std::size_t>(random() % 500));
        for (Sample& sample : samples) {
            sample.number = static_cast<std::int32_t>(random());
            sample.time = static_cast<std::int64_t>(random());
            for (double& value : sample.values) {
                const std::uint64_t bits = random();
                if (round % 2 == 0) {
                    std::memcpy(&value, &bits, sizeof value);
                } else {
                    value = static_cast<double>(bits % 100000) / 1000.0;
                }
            }
        }
        const std::vector<Sample> read = roundTrip(samples);
        ASSERT_EQ(read.size(), samples.size());
        for (std::size_t i = 0; i < samples.size(); ++i) {
            ASSERT_TRUE(sameBits(read[i], samples[i])) << round << ", " << i;
        }
    }
}

TEST(SampleCodec, RefusesAChunkThatWouldBeTooLarge)
{
    std::mt19937_64 random(1);
    std::vector<Sample> samples(kMaxChunkSamples);
    for (Sample& sample : samples) {
        for (double& value : sample.values) {
            value = std::ldexp(static_cast<double>(random()), -70);
        }
    }
    EXPECT_TRUE(encodeChunk(samples.data(), samples.size(), 1, 0).empty());
    EXPECT_FALSE(encodeChunk(samples.data(), samples.size() / 8, 1, 0).empty());
}

TEST(SampleCodec, NoticesEachChangedByte)
{
    std::vector<Sample> samples;
    for (int i = 0; i < 50; ++i) {
        samples.push_back(makeSample(i));
    }
    const std::string chunk = encodeChunk(samples.data(), samples.size(), 1, 0);
    for (std::size_t i = 0; i < chunk.size(); ++i) {
        std::string changed = chunk;
        changed[i] = static_cast<char>(changed[i] ^ 0x10);
        ChunkHeader header;
        std::vector<Sample> read;
        EXPECT_FALSE(decodeChunk(changed, header, read)) << i;
    }
    for (std::size_t size = 0; size < chunk.size(); ++size) {
        ChunkHeader header;
        std::vector<Sample> read;
        EXPECT_FALSE(decodeChunk(chunk.substr(0, size), header, read)) << size;
    }
}

TEST(Envelope, HasLimitsMeanAndCountOfEachPart)
{
    EnvelopeBuilder builder(0, 100, 10);
    for (std::int64_t time = 0; time < 100; ++time) {
        Sample sample;
        sample.time = time;
        sample[Channel::Amps] = static_cast<double>(time);
        builder.add(sample);
    }
    Envelope envelope;
    ASSERT_TRUE(decodeEnvelope(encodeEnvelope(builder.finish()), envelope));
    ASSERT_EQ(envelope.parts.size(), 10U);
    EXPECT_EQ(envelope.parts[3].count, 10U);
    EXPECT_FLOAT_EQ(envelope.parts[3].ranges[0].min, 30.0F);
    EXPECT_FLOAT_EQ(envelope.parts[3].ranges[0].mean, 34.5F);
    EXPECT_FLOAT_EQ(envelope.parts[3].ranges[0].max, 39.0F);
}

TEST(Envelope, RefusesDamagedBytes)
{
    const std::string bytes = encodeEnvelope(EnvelopeBuilder(0, 100, 10).finish());
    Envelope envelope;
    EXPECT_FALSE(decodeEnvelope(bytes.substr(0, bytes.size() / 2), envelope));
    EXPECT_FALSE(decodeEnvelope("no envelope", envelope));
    EXPECT_FALSE(decodeEnvelope("", envelope));
}
