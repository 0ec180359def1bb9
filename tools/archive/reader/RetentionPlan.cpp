#include "archive/reader/RetentionPlan.h"

#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"

#include <map>

namespace TelvaneArchive
{

namespace
{

/// \return the day by which everything that began before a moment is older than an age; empty without an age
std::string dayAfter(std::int64_t moment, std::int64_t age)
{
    return age > 0 ? TelvaneTool::printMoment(TelvaneTool::addSaturated(moment, age)).substr(0, 10) : "";
}

} // namespace

Status planRetention(ArchiveReader& reader, const RetentionLimits& limits,
                     std::vector<RetentionMonth>& months)
{
    struct Month
    {
        RetentionMonth plan;
        std::int64_t last = 0; ///< start of its last weld
    };
    std::map<std::string, Month> found;
    std::vector<Row> rows;
    Status status = reader.database().run(
        "SELECT strftime('%Y-%m', start_ns / 1000000000, 'unixepoch') AS month, count(*), "
        "sum(CASE WHEN verdict = 'not_ok' THEN 1 ELSE 0 END), max(start_ns) FROM weld GROUP BY month",
        {}, &rows);
    for (const Row& row : rows) {
        Month& month = found[textOf(row[0])];
        month.plan.welds = wholeOf(row[1]);
        month.plan.notOk = wholeOf(row[2]);
        month.last = wholeOf(row[3]);
        month.plan.rowsGoneBy = dayAfter(month.last, limits.rowsAge);
    }
    rows.clear();
    // A file has the samples of the welds that began in its month.
    status = status ? reader.database().run("SELECT substr(file, 1, 7), sum(size) FROM chunk GROUP BY 1", {},
                                            &rows)
                    : status;
    for (const Row& row : rows) {
        found[textOf(row[0])].plan.bytes = wholeOf(row[1]);
    }
    std::int64_t total = 0;
    for (auto month = found.rbegin(); month != found.rend(); ++month) {
        auto& [name, entry] = *month;
        entry.plan.month = name;
        total += entry.plan.bytes;
        if (entry.plan.bytes > 0) {
            const bool above = limits.samplesBytes > 0 && total > limits.samplesBytes;
            entry.plan.samplesGoneBy = above ? "now" : dayAfter(entry.last, limits.samplesAge);
        }
    }
    for (const auto& [name, month] : found) {
        months.push_back(month.plan);
    }
    return status;
}

} // namespace TelvaneArchive
