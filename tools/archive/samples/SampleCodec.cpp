// A chunk is a header of 40 bytes and the columns of its samples, compressed together:
//
//   "TVC1"  size  checksum  weld (8)  number  samples  raw size  reserved (8)
//
// Numbers are little-endian, of four bytes unless noted. The checksum is CRC-32 of all that follows it. Columns in
// order: number, serial, time, then the channels. Whole numbers are stored as the differences of their differences,
// which are 0 for an even pace. Measured values mostly have few decimals: such a column is stored as whole numbers,
// but only if each of them gives the same double again, bit for bit. Other columns are stored as bytes of equal rank,
// one rank after the other, which compresses better than the doubles themselves.

#include "archive/samples/SampleCodec.h"

#include "archive/samples/LittleEndian.h"

#include <zlib.h>
#include <zstd.h>

#include <cmath>

namespace TelvaneArchive
{

namespace
{

constexpr std::string_view kMagic = "TVC1";
constexpr std::size_t kChecksumEnd = 12;
constexpr int kLevel = 3;
constexpr unsigned kMaxDecimals = 6;
constexpr std::size_t kMaxRaw = kMaxChunkSamples * (std::size_t{3} + kChannels) * 10U + 64U;

enum class Form : unsigned char
{
    Whole = 0, ///< to Whole + kMaxDecimals: scaled by a power of ten
    Doubles = 16,
};

void putVarint(std::string& output, std::uint64_t value)
{
    while (value >= 0x80) {
        output += static_cast<char>(value | 0x80U);
        value >>= 7U;
    }
    output += static_cast<char>(value);
}

std::uint64_t zigzag(std::int64_t value)
{
    return (static_cast<std::uint64_t>(value) << 1U) ^ (value < 0 ? ~std::uint64_t{0} : 0U);
}

std::int64_t unzigzag(std::uint64_t value)
{
    return static_cast<std::int64_t>((value >> 1U) ^ (~(value & 1U) + 1U));
}

/// Differences wrap around, as unsigned numbers do, so that every pair of numbers has one.
class WholeWriter
{
public:
    void put(std::string& output, std::int64_t value)
    {
        const std::uint64_t difference = static_cast<std::uint64_t>(value) - m_previous;
        putVarint(output, zigzag(static_cast<std::int64_t>(difference - m_difference)));
        m_previous = static_cast<std::uint64_t>(value);
        m_difference = difference;
    }

private:
    std::uint64_t m_previous = 0;
    std::uint64_t m_difference = 0;
};

class Reader
{
public:
    explicit Reader(std::string_view data) : m_data(data) {}

    bool byte(unsigned char& value)
    {
        if (m_position >= m_data.size()) {
            return false;
        }
        value = static_cast<unsigned char>(m_data[m_position++]);
        return true;
    }
    bool varint(std::uint64_t& value)
    {
        value = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            unsigned char part = 0;
            if (!byte(part)) {
                return false;
            }
            value |= static_cast<std::uint64_t>(part & 0x7fU) << shift;
            if (part < 0x80) {
                return true;
            }
        }
        return false;
    }
    bool wholes(std::size_t count, std::vector<std::int64_t>& values)
    {
        std::uint64_t previous = 0;
        std::uint64_t difference = 0;
        values.resize(count);
        for (std::int64_t& value : values) {
            std::uint64_t step = 0;
            if (!varint(step)) {
                return false;
            }
            difference += static_cast<std::uint64_t>(unzigzag(step));
            previous += difference;
            value = static_cast<std::int64_t>(previous);
        }
        return true;
    }
    bool bytes(std::size_t count, std::string_view& part)
    {
        if (m_data.size() - m_position < count) {
            return false;
        }
        part = m_data.substr(m_position, count);
        m_position += count;
        return true;
    }
    bool atEnd() const { return m_position == m_data.size(); }

private:
    std::string_view m_data;
    std::size_t m_position = 0;
};

double powerOfTen(unsigned decimals)
{
    static const double powers[] = {1.0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6};
    return powers[decimals];
}

/// \return whether the scaled value is whole and gives the value back
bool scale(double value, double power, std::int64_t& whole)
{
    constexpr double kExact = 9007199254740992.0; // 2^53
    const double scaled = std::nearbyint(value * power);
    if (!(std::fabs(scaled) < kExact)) {
        return false;
    }
    whole = static_cast<std::int64_t>(scaled);
    return bitCast<std::uint64_t>(static_cast<double>(whole) / power) == bitCast<std::uint64_t>(value);
}

void putChannel(std::string& output, const Sample* samples, std::size_t count, std::size_t channel)
{
    std::vector<std::int64_t> wholes(count);
    unsigned decimals = 0;
    std::size_t done = 0;
    while (done < count && decimals <= kMaxDecimals) {
        if (scale(samples[done].values[channel], powerOfTen(decimals), wholes[done])) {
            ++done;
        } else {
            ++decimals;
            done = 0;
        }
    }
    if (done == count) {
        output += static_cast<char>(decimals);
        WholeWriter writer;
        for (const std::int64_t whole : wholes) {
            writer.put(output, whole);
        }
        return;
    }
    output += static_cast<char>(Form::Doubles);
    for (std::size_t rank = 0; rank < sizeof(double); ++rank) {
        for (std::size_t i = 0; i < count; ++i) {
            output += static_cast<char>(bitCast<std::uint64_t>(samples[i].values[channel]) >> (8 * rank));
        }
    }
}

bool getChannel(Reader& reader, Sample* samples, std::size_t count, std::size_t channel)
{
    unsigned char form = 0;
    if (!reader.byte(form)) {
        return false;
    }
    if (form <= kMaxDecimals) {
        std::vector<std::int64_t> wholes;
        if (!reader.wholes(count, wholes)) {
            return false;
        }
        for (std::size_t i = 0; i < count; ++i) {
            samples[i].values[channel] = static_cast<double>(wholes[i]) / powerOfTen(form);
        }
        return true;
    }
    std::string_view ranks;
    if (form != static_cast<unsigned char>(Form::Doubles) || !reader.bytes(count * sizeof(double), ranks)) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        std::uint64_t bits = 0;
        for (std::size_t rank = sizeof(double); rank-- > 0;) {
            bits = bits << 8U | static_cast<unsigned char>(ranks[rank * count + i]);
        }
        samples[i].values[channel] = bitCast<double>(bits);
    }
    return true;
}

std::uint32_t checksum(std::string_view data)
{
    return static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
}

} // namespace

std::string pack(std::string_view data)
{
    std::string output(ZSTD_compressBound(data.size()), '\0');
    const std::size_t size = ZSTD_compress(output.data(), output.size(), data.data(), data.size(), kLevel);
    output.resize(ZSTD_isError(size) != 0 ? 0 : size);
    return output;
}

bool unpack(std::string_view data, std::size_t limit, std::string& output)
{
    const unsigned long long size = ZSTD_getFrameContentSize(data.data(), data.size());
    if (size == ZSTD_CONTENTSIZE_ERROR || size == ZSTD_CONTENTSIZE_UNKNOWN || size > limit) {
        return false;
    }
    output.resize(static_cast<std::size_t>(size));
    return ZSTD_decompress(output.data(), output.size(), data.data(), data.size()) == output.size();
}

std::string encodeChunk(const Sample* samples, std::size_t count, std::int64_t weld, std::uint32_t number)
{
    std::string raw;
    WholeWriter numbers;
    WholeWriter serials;
    WholeWriter times;
    for (std::size_t i = 0; i < count; ++i) {
        numbers.put(raw, samples[i].number);
    }
    for (std::size_t i = 0; i < count; ++i) {
        serials.put(raw, samples[i].serial);
    }
    for (std::size_t i = 0; i < count; ++i) {
        times.put(raw, samples[i].time);
    }
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        putChannel(raw, samples, count, channel);
    }
    const std::string packed = pack(raw);
    if (packed.empty() || packed.size() + kChunkHeader > kMaxChunk) {
        return {};
    }
    std::string rest;
    putFixed(rest, static_cast<std::uint64_t>(weld), 8);
    putFixed(rest, number, 4);
    putFixed(rest, count, 4);
    putFixed(rest, raw.size(), 4);
    putFixed(rest, 0, 8);
    rest += packed;
    std::string chunk(kMagic);
    putFixed(chunk, kChecksumEnd + rest.size(), 4);
    putFixed(chunk, checksum(rest), 4);
    return chunk + rest;
}

bool readChunkHeader(std::string_view data, ChunkHeader& header)
{
    if (data.size() < kChunkHeader || data.substr(0, kMagic.size()) != kMagic) {
        return false;
    }
    header.size = static_cast<std::uint32_t>(getFixed(data, 4, 4));
    header.weld = static_cast<std::int64_t>(getFixed(data, 12, 8));
    header.number = static_cast<std::uint32_t>(getFixed(data, 20, 4));
    header.samples = static_cast<std::uint32_t>(getFixed(data, 24, 4));
    header.rawSize = static_cast<std::uint32_t>(getFixed(data, 28, 4));
    return header.size > kChunkHeader && header.size <= kMaxChunk && header.samples > 0 &&
           header.samples <= kMaxChunkSamples && header.rawSize <= kMaxRaw;
}

bool decodeChunk(std::string_view chunk, ChunkHeader& header, std::vector<Sample>& samples)
{
    if (!readChunkHeader(chunk, header) || chunk.size() < header.size) {
        return false;
    }
    chunk = chunk.substr(0, header.size);
    std::string raw;
    if (getFixed(chunk, 8, 4) != checksum(chunk.substr(kChecksumEnd)) ||
        !unpack(chunk.substr(kChunkHeader), kMaxRaw, raw) || raw.size() != header.rawSize) {
        return false;
    }
    const std::size_t count = header.samples;
    Reader reader(raw);
    std::vector<std::int64_t> numbers;
    std::vector<std::int64_t> serials;
    std::vector<std::int64_t> times;
    if (!reader.wholes(count, numbers) || !reader.wholes(count, serials) || !reader.wholes(count, times)) {
        return false;
    }
    std::vector<Sample> read(count);
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        if (!getChannel(reader, read.data(), count, channel)) {
            return false;
        }
    }
    if (!reader.atEnd()) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        read[i].number = static_cast<std::int32_t>(numbers[i]);
        read[i].serial = static_cast<std::int32_t>(serials[i]);
        read[i].time = times[i];
    }
    samples.insert(samples.end(), read.begin(), read.end());
    return true;
}

} // namespace TelvaneArchive
