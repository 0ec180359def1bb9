// In the order of time, which is the usual one, a page begins after the last weld of the page before, so that welds that
// are added or deleted in between move nothing. Other orders count the welds of the pages before.

#include "telvane-web/welds/WeldList.h"

#include "common/support/Clock.h"
#include "common/support/Json.h"
#include "telvane-web/http/Query.h"

#include <algorithm>

namespace TelvaneTool
{

using TelvaneArchive::ArchiveReader;
using TelvaneArchive::Column;
using TelvaneArchive::Condition;
using TelvaneArchive::Weld;

namespace
{

/// Welds with the same start, of many machines in one archive.
constexpr std::size_t kMaxTies = 100;
constexpr double kEarliest = 0.0;
constexpr double kLatest = 9.0e12; ///< ms; in the year 2255

struct Shown
{
    const char* key;
    Column column;
};
constexpr Shown kShown[] = {
    {"module", Column::Module},   {"part", Column::PartNumber}, {"program", Column::Program},
    {"arcTime", Column::ArcTime}, {"amps", Column::MeanAmps},   {"volts", Column::MeanVolts},
    {"energy", Column::Energy},   {"samples", Column::Samples}, {"missed", Column::Missed},
    {"ending", Column::Ending},   {"verdict", Column::Verdict}, {"label", Column::Label}};

JsonTree toJson(const Weld& weld)
{
    JsonTree item(cJSON_CreateObject());
    addNumber(item.get(), "id", weld.id);
    addNumber(item.get(), "start", weld.whole(Column::StartNs) / kMillisecond);
    for (const Shown& shown : kShown) {
        if (!weld.has(shown.column)) {
            continue;
        }
        if (infoOf(shown.column).type == TelvaneArchive::ColumnType::Text) {
            addText(item.get(), shown.key, weld.text(shown.column));
        } else {
            addNumber(item.get(), shown.key, weld.number(shown.column));
        }
    }
    return item;
}

/// \return nanoseconds since the Unix epoch
std::optional<std::int64_t> readMoment(const std::string& milliseconds)
{
    const double value = numberOr(milliseconds, -1.0);
    if (!(value >= kEarliest && value <= kLatest)) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(value) * kMillisecond;
}

} // namespace

std::string WeldListQuery::read(const HttpRequest& request)
{
    using Comparison = Condition::Comparison;
    std::string error;
    const std::string where = valueOf(request, "where");
    if (!where.empty() && !TelvaneArchive::readWhere(where, query.filter, error)) {
        return error;
    }
    if (const std::string part = valueOf(request, "part"); !part.empty()) {
        const bool pattern = part.find_first_of("*?") != std::string::npos;
        query.filter.add(Column::PartNumber, pattern ? Comparison::Like : Comparison::Equal, part);
    }
    if (const std::string program = valueOf(request, "program"); !program.empty()) {
        const auto number = numberOr<std::int64_t>(program, -1);
        if (number < 0) {
            return "\"" + program + "\" is not the number of a weld program";
        }
        query.filter.add(Column::Program, Comparison::Equal, number);
    }
    if (const std::string verdict = valueOf(request, "verdict"); verdict == "none") {
        query.filter.add(Column::Verdict, Comparison::Unknown, {});
    } else if (!verdict.empty()) {
        query.filter.add(Column::Verdict, Comparison::Equal, verdict);
    }
    for (const auto& [name, comparison] :
         {std::pair("from", Comparison::GreaterOrEqual), std::pair("to", Comparison::Less)}) {
        const std::string text = valueOf(request, name);
        if (text.empty()) {
            continue;
        }
        const std::optional<std::int64_t> moment = readMoment(text);
        if (!moment) {
            return "\"" + text + "\" is not a time";
        }
        query.filter.add(Column::StartNs, comparison, *moment);
    }
    if (const std::string order = valueOf(request, "order"); !order.empty()) {
        query.order = TelvaneArchive::findColumn(order);
        if (!query.order) {
            return "\"" + order + "\" is not a column";
        }
    }
    query.ascending = valueOf(request, "ascending") == "1";
    page = std::clamp<std::size_t>(numberOr(valueOf(request, "limit"), kPage), 1, kMaxPage);
    const std::string after = valueOf(request, "after");
    const std::size_t dash = after.find('-');
    if (dash != std::string::npos) {
        lastNs = numberOr<std::int64_t>(after.substr(0, dash), 0);
        lastId = numberOr<std::int64_t>(after.substr(dash + 1), 0);
    } else {
        skip = std::min(numberOr<std::size_t>(after, 0), ArchiveReader::kMaxList - kMaxPage - 1);
    }
    return {};
}

HttpReply listWelds(WeldArchive& archive, const WeldListQuery& wanted)
{
    HttpReply failure;
    ArchiveReader* const reader = archive.reader(failure);
    if (reader == nullptr) {
        return failure;
    }
    ArchiveReader::Query query = wanted.query;
    const bool byTime = query.order.value_or(Column::StartNs) == Column::StartNs;
    const std::size_t skip = byTime ? 0 : wanted.skip;
    query.limit = skip + wanted.page + 1;
    if (byTime && wanted.lastNs) {
        const auto comparison =
            query.ascending ? Condition::Comparison::GreaterOrEqual : Condition::Comparison::LessOrEqual;
        query.filter.add(Column::StartNs, comparison, *wanted.lastNs);
        query.limit += kMaxTies;
    }
    std::vector<Weld> welds;
    if (const TelvaneArchive::Status status = reader->list(query, welds); !status) {
        return archive.failed(status);
    }
    if (byTime && wanted.lastNs) {
        const auto isBefore = [&](const Weld& weld) {
            return weld.whole(Column::StartNs) == *wanted.lastNs &&
                   (query.ascending ? weld.id <= wanted.lastId : weld.id >= wanted.lastId);
        };
        welds.erase(std::remove_if(welds.begin(), welds.end(), isBefore), welds.end());
    }
    const JsonTree root(cJSON_CreateObject());
    cJSON* const list = cJSON_AddArrayToObject(root.get(), "welds");
    const std::size_t end = std::min(welds.size(), skip + wanted.page);
    for (std::size_t i = skip; i < end; ++i) {
        cJSON_AddItemToArray(list, toJson(welds[i]).release());
    }
    if (end < welds.size()) {
        const Weld& last = welds[end - 1];
        addText(root.get(), "next",
                byTime ? std::to_string(last.whole(Column::StartNs)) + "-" + std::to_string(last.id)
                       : std::to_string(end));
    }
    return httpJson(printJson(root.get()));
}

} // namespace TelvaneTool
