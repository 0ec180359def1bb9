#pragma once

#include "archive/samples/Sample.h"
#include "common/support/Clock.h"
#include "common/support/Saturating.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TelvaneArchive
{

/// The course of a weld in equal parts of its time, for quick drawing.
struct Envelope
{
    /// One channel in one part.
    struct Range
    {
        float min = 0.0F;
        float mean = 0.0F;
        float max = 0.0F;
    };
    /// All channels in one part. Without samples, \p count is 0 and the ranges mean nothing.
    struct Part
    {
        std::uint32_t count = 0;
        std::array<Range, kChannels> ranges = {};
    };

    std::int64_t start = 0; ///< ns since the Unix epoch
    std::int64_t end = 0;
    std::vector<Part> parts;

    double seconds() const { return TelvaneTool::inSeconds(TelvaneTool::subtractSaturated(end, start)); }
};

/// Parts of the fine and of the coarse envelope of a weld.
constexpr std::size_t kFineParts = 1000;
constexpr std::size_t kCoarseParts = 100;

/// Makes an envelope from samples in any number of calls.
class EnvelopeBuilder
{
public:
    EnvelopeBuilder(std::int64_t start, std::int64_t end, std::size_t parts);
    void add(const Sample& sample);
    Envelope finish() const;

private:
    Envelope m_envelope;
    std::vector<std::array<double, kChannels>> m_sums;
};

/// \return the envelope, compressed; docs/archive.md has the layout
std::string encodeEnvelope(const Envelope& envelope);
/// Reads an envelope, whatever the bytes.
/// \return false if they are damaged
bool decodeEnvelope(std::string_view data, Envelope& envelope);

} // namespace TelvaneArchive
