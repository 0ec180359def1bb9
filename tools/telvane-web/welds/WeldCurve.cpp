// The whole of a weld is drawn from the envelope that the archive keeps, without reading a sample. For a part of it, the
// samples are read and reduced here, as long as they are not too many; the browser never gets more than it draws.

#include "telvane-web/welds/WeldCurve.h"

#include "common/support/Clock.h"
#include "common/support/Saturating.h"
#include "telvane-web/http/Query.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace TelvaneTool
{

using TelvaneArchive::ArchiveReader;
using TelvaneArchive::Column;
using TelvaneArchive::Envelope;
using TelvaneArchive::Sample;
using TelvaneArchive::Status;
using TelvaneArchive::Weld;

namespace
{

constexpr unsigned kNotFound = 404;
constexpr std::size_t kMaxReduced = 400'000; ///< samples that are read for one answer
constexpr std::size_t kBlock = 8192;
constexpr int kExact = 17;
constexpr int kDrawn = 7;

void append(std::string& text, double value, int digits)
{
    char number[40];
    if (!std::isfinite(value)) {
        text += "null";
        return;
    }
    text.append(number,
                static_cast<std::size_t>(std::snprintf(number, sizeof number, "%.*g", digits, value)));
}

void append(std::string& text, const char* key, double value)
{
    text.append(",\"").append(key).append("\":");
    append(text, value, kExact);
}

/// Appends [time, number, current, voltage, ...] for each sample.
void appendSamples(std::string& text, const std::vector<Sample>& samples)
{
    text += ",\"kind\":\"samples\",\"samples\":[";
    for (const Sample& sample : samples) {
        text += text.back() == '[' ? "[" : ",[";
        append(text, inSeconds(sample.time), kExact);
        text += "," + std::to_string(sample.number);
        for (const double value : sample.values) {
            text += ',';
            append(text, value, kExact);
        }
        text += ']';
    }
    text += ']';
}

/// Appends [count, min, mean, max, min, mean, max, ...] for each column, or 0 for one without samples.
void appendColumns(std::string& text, const Envelope& envelope, std::size_t begin, std::size_t end)
{
    text += ",\"kind\":\"columns\",\"columns\":[";
    for (std::size_t i = begin; i < end; ++i) {
        const Envelope::Part& part = envelope.parts[i];
        text += i == begin ? "" : ",";
        if (part.count == 0) {
            text += '0';
            continue;
        }
        text += "[" + std::to_string(part.count);
        for (const Envelope::Range& range : part.ranges) {
            for (const float value : {range.min, range.mean, range.max}) {
                text += ',';
                append(text, static_cast<double>(value), kDrawn);
            }
        }
        text += ']';
    }
    text += ']';
}

struct Reduced
{
    std::vector<Sample> samples; ///< if they are few
    std::optional<Envelope> envelope;
    std::uint64_t damaged = 0;
};

/// Reads a part of a weld in blocks.
/// \param from, to  what is drawn; samples outside of it go into the first or the last column
Status reduce(ArchiveReader& reader, std::int64_t id, std::int64_t from, std::int64_t to,
              const ArchiveReader::SampleRange& range, std::size_t columns, Reduced& reduced)
{
    ArchiveReader::SamplePosition position;
    Status status = reader.samples(id, range, columns + 1, position, reduced.samples, &reduced.damaged);
    if (!status || reduced.samples.size() <= columns) {
        return status;
    }
    TelvaneArchive::EnvelopeBuilder builder(from, to, columns);
    reduced.damaged = 0;
    std::vector<Sample> block;
    position = {};
    std::size_t read = 0;
    do {
        block.clear();
        status = reader.samples(id, range, kBlock, position, block, &reduced.damaged);
        for (const Sample& sample : block) {
            builder.add(sample);
        }
        read += block.size();
    } while (status && block.size() == kBlock && read < 2 * kMaxReduced);
    reduced.envelope = builder.finish();
    return status;
}

/// Appends the part of the envelope in the archive, which may begin and end a column earlier and later.
void appendStored(std::string& text, const Envelope& envelope, double length, double from, double to)
{
    const auto parts = static_cast<double>(envelope.parts.size());
    const auto begin = static_cast<std::size_t>(std::clamp(std::floor(from / length * parts), 0.0, parts));
    const auto end = static_cast<std::size_t>(std::clamp(std::ceil(to / length * parts), 0.0, parts));
    append(text, "from", static_cast<double>(begin) * length / parts);
    append(text, "to", static_cast<double>(end) * length / parts);
    append(text, "width", length / parts);
    appendColumns(text, envelope, begin, end);
}

} // namespace

std::int64_t lengthOf(const Weld& weld)
{
    const std::int64_t start = weld.whole(Column::StartNs);
    const std::int64_t end = weld.has(Column::EndNs) ? weld.whole(Column::EndNs) : realTimeNow();
    return std::max<std::int64_t>(subtractSaturated(end, start), 1);
}

HttpReply curveOf(WeldArchive& archive, const CurveQuery& query)
{
    HttpReply failure;
    ArchiveReader* const reader = archive.reader(failure);
    if (reader == nullptr) {
        return failure;
    }
    std::optional<Weld> weld;
    if (const Status status = reader->weld(query.id, weld); !status) {
        return archive.failed(status);
    }
    if (!weld) {
        return httpFailure(kNotFound, "the archive has no weld " + std::to_string(query.id));
    }
    const double length = inSeconds(lengthOf(*weld));
    const double to = query.to > 0.0 ? std::min(query.to, length) : length;
    const double from = std::clamp(query.from, 0.0, to);
    const double expected = weld->number(Column::Samples) * (to - from) / length;

    std::optional<Envelope> stored;
    const bool whole = from == 0.0 && to == length && expected > static_cast<double>(query.columns);
    if (whole || expected > static_cast<double>(kMaxReduced)) {
        if (const Status status = reader->envelope(query.id, TelvaneArchive::kFineParts, stored); !status) {
            return archive.failed(status);
        }
    }
    std::string text = "{\"id\":" + std::to_string(query.id);
    append(text, "length", length);
    if (stored && !stored->parts.empty()) {
        const double covered = inSeconds(subtractSaturated(stored->end, stored->start));
        appendStored(text, *stored, covered > 0.0 ? covered : length, from, to);
        return httpJson(text + "}");
    }
    Reduced reduced;
    // Samples may have stamps before the start or from the end on.
    ArchiveReader::SampleRange range;
    range.fromNs = from > 0.0 ? nanoseconds(from) : range.fromNs;
    range.toNs = to < length ? nanoseconds(to) : range.toNs;
    if (const Status status =
            reduce(*reader, query.id, nanoseconds(from), nanoseconds(to), range, query.columns, reduced);
        !status) {
        return archive.failed(status);
    }
    append(text, "from", from);
    append(text, "to", to);
    append(text, "damaged", static_cast<double>(reduced.damaged));
    if (reduced.envelope) {
        append(text, "width", (to - from) / static_cast<double>(query.columns));
        appendColumns(text, *reduced.envelope, 0, reduced.envelope->parts.size());
    } else {
        appendSamples(text, reduced.samples);
    }
    return httpJson(text + "}");
}

} // namespace TelvaneTool
