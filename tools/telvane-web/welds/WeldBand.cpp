// Former welds differ in length, so they are laid over each other by the time since their start, and the band ends where
// fewer than half of them are left.

#include "common/support/HumanReadable.h"
#include "telvane-web/http/Query.h"
#include "telvane-web/welds/WeldCurve.h"

#include <algorithm>
#include <array>

namespace TelvaneTool
{

using TelvaneArchive::ArchiveReader;
using TelvaneArchive::Column;
using TelvaneArchive::Condition;
using TelvaneArchive::Envelope;
using TelvaneArchive::kChannels;
using TelvaneArchive::Status;
using TelvaneArchive::Weld;

namespace
{

constexpr unsigned kNotFound = 404;
constexpr std::size_t kMaxWelds = 20;
constexpr std::size_t kSlots = 200;
constexpr double kMinSeconds = 1e-9; ///< also of a weld without a duration

struct Slot
{
    std::size_t welds = 0;
    std::array<double, kChannels> low = {};
    std::array<double, kChannels> high = {};
};

/// Adds the means of a weld to the slots.
void add(const Envelope& envelope, double width, std::vector<Slot>& slots)
{
    const double partWidth =
        std::max(envelope.seconds(), kMinSeconds) / static_cast<double>(envelope.parts.size());
    for (std::size_t i = 0; i < slots.size(); ++i) {
        const auto first = static_cast<std::size_t>(static_cast<double>(i) * width / partWidth);
        const auto last =
            std::max(first + 1, static_cast<std::size_t>(static_cast<double>(i + 1) * width / partWidth));
        std::array<double, kChannels> sums = {};
        double count = 0.0;
        for (std::size_t part = first; part < std::min(last, envelope.parts.size()); ++part) {
            const Envelope::Part& column = envelope.parts[part];
            const auto samples = static_cast<double>(column.count);
            count += samples;
            for (std::size_t channel = 0; channel < kChannels && column.count != 0; ++channel) {
                sums[channel] += static_cast<double>(column.ranges[channel].mean) * samples;
            }
        }
        if (count == 0.0) {
            continue;
        }
        Slot& slot = slots[i];
        for (std::size_t channel = 0; channel < kChannels; ++channel) {
            const double mean = sums[channel] / count;
            slot.low[channel] = slot.welds == 0 ? mean : std::min(slot.low[channel], mean);
            slot.high[channel] = slot.welds == 0 ? mean : std::max(slot.high[channel], mean);
        }
        ++slot.welds;
    }
}

Status readFormer(ArchiveReader& reader, const BandQuery& query, std::vector<Envelope>& envelopes,
                  bool& known)
{
    using Comparison = Condition::Comparison;
    ArchiveReader::Query former;
    std::int64_t program = query.program;
    if (query.id != 0) {
        std::optional<Weld> weld;
        Status status = reader.weld(query.id, weld);
        known = weld.has_value();
        if (!status || !weld) {
            return status;
        }
        former.beforeNs = weld->whole(Column::StartNs);
        program = weld->whole(Column::Program);
    }
    former.filter.add(Column::Program, Comparison::Equal, program);
    former.filter.add(Column::Ending, Comparison::Equal, std::string("complete"));
    former.limit = 2 * kMaxWelds;                // some were judged bad
    former.source = ArchiveReader::Source::Rows; // nearly all are complete: the first of the program will do
    std::vector<Weld> welds;
    Status status = reader.list(former, welds);
    for (const Weld& weld : welds) {
        std::optional<Envelope> envelope;
        if (!status || envelopes.size() == kMaxWelds) {
            break;
        }
        if (weld.text(Column::Verdict) == "not_ok") {
            continue;
        }
        status = reader.envelope(weld.id, TelvaneArchive::kFineParts, envelope);
        if (envelope && !envelope->parts.empty()) {
            envelopes.push_back(std::move(*envelope));
        }
    }
    return status;
}

} // namespace

HttpReply bandOf(WeldArchive& archive, const BandQuery& query)
{
    HttpReply failure;
    ArchiveReader* const reader = archive.reader(failure);
    if (reader == nullptr) {
        return failure;
    }
    std::vector<Envelope> envelopes;
    bool known = true;
    if (const Status status = readFormer(*reader, query, envelopes, known); !status) {
        return archive.failed(status);
    }
    if (!known) {
        return httpFailure(kNotFound, "the archive has no weld " + std::to_string(query.id));
    }
    double longest = 0.0;
    for (const Envelope& envelope : envelopes) {
        longest = std::max({longest, envelope.seconds(), kMinSeconds});
    }
    std::vector<Slot> slots(envelopes.empty() ? 0 : kSlots);
    for (const Envelope& envelope : envelopes) {
        add(envelope, longest / static_cast<double>(kSlots), slots);
    }
    std::string text = "{\"welds\":" + std::to_string(envelopes.size()) +
                       formatted(",\"width\":%.9g,\"columns\":[", longest / static_cast<double>(kSlots));
    for (const Slot& slot : slots) {
        if (2 * slot.welds < envelopes.size()) {
            break;
        }
        text += text.back() == '[' ? "[" : ",[";
        text += std::to_string(slot.welds);
        for (std::size_t channel = 0; channel < kChannels; ++channel) {
            text += formatted(",%.7g,%.7g", slot.low[channel], slot.high[channel]);
        }
        text += ']';
    }
    return httpJson(text + "]}");
}

} // namespace TelvaneTool
