#include "telvane-web/welds/WeldDetails.h"

#include "common/support/Clock.h"
#include "common/support/Json.h"
#include "telvane-web/http/Query.h"

namespace TelvaneTool
{

using TelvaneArchive::ArchiveReader;
using TelvaneArchive::Column;
using TelvaneArchive::ColumnType;
using TelvaneArchive::ColumnUse;
using TelvaneArchive::Finding;
using TelvaneArchive::Weld;

namespace
{

constexpr unsigned kNotFound = 404;
constexpr std::size_t kMaxRows = 200;
constexpr std::size_t kMaxRecord = 2000;

const char* nameOf(ColumnUse use)
{
    switch (use) {
    case ColumnUse::Setting:
        return "setting";
    case ColumnUse::Published:
        return "published";
    case ColumnUse::Computed:
        return "computed";
    case ColumnUse::Context:
        return "context";
    case ColumnUse::Key:
        break;
    }
    return "key";
}

void addColumns(cJSON* root, const Weld& weld)
{
    cJSON* const columns = cJSON_AddArrayToObject(root, "columns");
    for (const Column column : TelvaneArchive::allColumns()) {
        // The records as they were published are for programs.
        if (!weld.has(column) || column == Column::StartRecord || column == Column::EndRecord) {
            continue;
        }
        const TelvaneArchive::ColumnInfo& info = infoOf(column);
        cJSON* const item = cJSON_CreateObject();
        addText(item, "name", info.name);
        addText(item, "use", nameOf(info.use));
        addText(item, "unit", info.unit);
        addText(item, "meaning", info.meaning);
        if (info.type == ColumnType::Text) {
            addText(item, "value", weld.text(column));
        } else if (info.type == ColumnType::Whole) {
            // A number of JavaScript would round nanoseconds.
            addText(item, "value", std::to_string(weld.whole(column)));
        } else {
            addNumber(item, "value", weld.number(column));
        }
        cJSON_AddItemToArray(columns, item);
    }
}

void addFindings(cJSON* root, const std::vector<Finding>& findings)
{
    cJSON* const list = cJSON_AddArrayToObject(root, "findings");
    for (std::size_t i = 0; i < std::min(findings.size(), kMaxRows); ++i) {
        const Finding& finding = findings[i];
        cJSON* const item = cJSON_CreateObject();
        addText(item, "level", finding.level);
        addText(item, "metric", finding.metric);
        addNumber(item, "value", finding.value);
        addNumber(item, "low", finding.low);
        addNumber(item, "high", finding.high);
        addNumber(item, "from", finding.fromSeconds);
        addNumber(item, "to", finding.toSeconds);
        addText(item, "reference", finding.reference);
        cJSON_AddItemToArray(list, item);
    }
}

void addEvents(cJSON* root, const std::vector<ArchiveReader::Event>& events)
{
    cJSON* const list = cJSON_AddArrayToObject(root, "events");
    for (std::size_t i = 0; i < std::min(events.size(), kMaxRows); ++i) {
        cJSON* const item = cJSON_CreateObject();
        addNumber(item, "time", events[i].time / kMillisecond);
        addText(item, "channel", events[i].channel);
        addText(item, "record", events[i].record.substr(0, kMaxRecord));
        cJSON_AddItemToArray(list, item);
    }
}

} // namespace

HttpReply describeWeld(WeldArchive& archive, std::int64_t id)
{
    HttpReply failure;
    ArchiveReader* const reader = archive.reader(failure);
    if (reader == nullptr) {
        return failure;
    }
    std::optional<Weld> weld;
    std::vector<Finding> findings;
    std::vector<ArchiveReader::Event> events;
    TelvaneArchive::Status status = reader->weld(id, weld);
    if (status && weld) {
        status = reader->findings(id, findings);
    }
    if (status && weld) {
        status = reader->events(id, events);
    }
    if (!status) {
        return archive.failed(status);
    }
    if (!weld) {
        return httpFailure(kNotFound, "the archive has no weld " + std::to_string(id));
    }
    const JsonTree root(cJSON_CreateObject());
    addNumber(root.get(), "id", id);
    addNumber(root.get(), "start", weld->whole(Column::StartNs) / kMillisecond);
    addColumns(root.get(), *weld);
    addFindings(root.get(), findings);
    addEvents(root.get(), events);
    return httpJson(printJson(root.get()));
}

} // namespace TelvaneTool
