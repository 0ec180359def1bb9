// Layout before compression, little-endian: start (8), end (8), number of parts (4), number of channels (4), then the
// counts of all parts as 32-bit numbers, then for each channel the minima, the means and the maxima of all parts as
// 32-bit floats. Analysts read it with numpy.frombuffer(), so the columns are contiguous.

#include "archive/samples/Envelope.h"

#include "archive/samples/LittleEndian.h"
#include "archive/samples/SampleCodec.h"

#include <algorithm>

namespace TelvaneArchive
{

namespace
{

constexpr std::size_t kHeader = 24;
constexpr std::size_t kMaxParts = 100'000;
constexpr std::size_t kBytesPerPart = 4 + kChannels * 3 * 4;

std::uint64_t get(std::string_view data, std::size_t& offset, std::size_t bytes)
{
    offset += bytes;
    return getFixed(data, offset - bytes, bytes);
}

float& member(Envelope::Range& range, std::size_t column)
{
    return column == 0 ? range.min : column == 1 ? range.mean : range.max;
}

} // namespace

EnvelopeBuilder::EnvelopeBuilder(std::int64_t start, std::int64_t end, std::size_t parts)
{
    m_envelope.start = start;
    m_envelope.end = std::max(end, start);
    m_envelope.parts.resize(parts);
    m_sums.resize(parts);
}

void EnvelopeBuilder::add(const Sample& sample)
{
    // As numbers with a fraction: the difference of two time stamps may be out of range.
    const auto start = static_cast<double>(m_envelope.start);
    const double span = std::max(1.0, static_cast<double>(m_envelope.end) - start);
    const double position = (static_cast<double>(sample.time) - start) / span;
    const auto count = static_cast<double>(m_envelope.parts.size());
    const auto index = static_cast<std::size_t>(std::clamp(position * count, 0.0, count - 1.0));
    Envelope::Part& part = m_envelope.parts[index];
    for (std::size_t i = 0; i < kChannels; ++i) {
        const auto value = static_cast<float>(sample.values[i]);
        Envelope::Range& range = part.ranges[i];
        range.min = part.count == 0 ? value : std::min(range.min, value);
        range.max = part.count == 0 ? value : std::max(range.max, value);
        m_sums[index][i] += sample.values[i];
    }
    ++part.count;
}

Envelope EnvelopeBuilder::finish() const
{
    Envelope envelope = m_envelope;
    for (std::size_t k = 0; k < envelope.parts.size(); ++k) {
        Envelope::Part& part = envelope.parts[k];
        for (std::size_t i = 0; i < kChannels && part.count != 0; ++i) {
            part.ranges[i].mean = static_cast<float>(m_sums[k][i] / part.count);
        }
    }
    return envelope;
}

std::string encodeEnvelope(const Envelope& envelope)
{
    std::string raw;
    raw.reserve(kHeader + envelope.parts.size() * kBytesPerPart);
    putFixed(raw, static_cast<std::uint64_t>(envelope.start), 8);
    putFixed(raw, static_cast<std::uint64_t>(envelope.end), 8);
    putFixed(raw, envelope.parts.size(), 4);
    putFixed(raw, kChannels, 4);
    for (const Envelope::Part& part : envelope.parts) {
        putFixed(raw, part.count, 4);
    }
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        for (std::size_t column = 0; column < 3; ++column) {
            for (Envelope::Part part : envelope.parts) {
                putFixed(raw, bitCast<std::uint32_t>(member(part.ranges[channel], column)), 4);
            }
        }
    }
    return pack(raw);
}

bool decodeEnvelope(std::string_view data, Envelope& envelope)
{
    std::string raw;
    if (!unpack(data, kHeader + kMaxParts * kBytesPerPart, raw) || raw.size() < kHeader) {
        return false;
    }
    std::size_t offset = 0;
    envelope.start = static_cast<std::int64_t>(get(raw, offset, 8));
    envelope.end = static_cast<std::int64_t>(get(raw, offset, 8));
    const auto parts = static_cast<std::size_t>(get(raw, offset, 4));
    const auto channels = static_cast<std::size_t>(get(raw, offset, 4));
    if (channels != kChannels || parts > kMaxParts || raw.size() != kHeader + parts * kBytesPerPart) {
        return false;
    }
    envelope.parts.assign(parts, {});
    for (Envelope::Part& part : envelope.parts) {
        part.count = static_cast<std::uint32_t>(get(raw, offset, 4));
    }
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        for (std::size_t column = 0; column < 3; ++column) {
            for (Envelope::Part& part : envelope.parts) {
                member(part.ranges[channel], column) =
                    bitCast<float>(static_cast<std::uint32_t>(get(raw, offset, 4)));
            }
        }
    }
    return true;
}

} // namespace TelvaneArchive
