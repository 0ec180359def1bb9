#include "catalogue/CompletionValues.h"

#include "catalogue/ConsumableNames.h"

#include <Telvane/RecordCatalogue.h>

#include <algorithm>
#include <utility>

namespace TelvaneTool
{

namespace
{

std::vector<Candidate> recordClasses()
{
    std::vector<Candidate> candidates;
    for (const Telvane::RecordClass& recordClass : Telvane::RecordCatalogue::classes()) {
        candidates.push_back({recordClass.name, "record class"});
    }
    return candidates;
}

std::vector<Candidate> consumableTableNames()
{
    std::vector<Candidate> candidates;
    for (const ConsumableTable& table : consumableTables()) {
        candidates.push_back({table.name, table.title});
    }
    return candidates;
}

/// The codes of one table, which the option ("--gas-type") or the first argument ("gas") names.
std::vector<Candidate> consumableCodes(const ValuePlace& place)
{
    const std::string name = place.option.empty() ? place.arguments.front() : place.option;
    std::vector<Candidate> candidates;
    if (const ConsumableTable* const table = findConsumableTable(name == "gas-type" ? "gas" : name)) {
        for (std::size_t code = 0; code < table->count; ++code) {
            candidates.push_back({table->texts[code], "code " + std::to_string(code)});
        }
    }
    return candidates;
}

/// The channels of the server, then the classes: by convention, a channel has the name of its class.
std::vector<Candidate> channelsOf(const ValuePlace& place, const ChannelSource& channels)
{
    std::vector<Candidate> candidates;
    if (!place.arguments.empty()) {
        for (const std::string& channel : channels(place.arguments.front())) {
            candidates.push_back({channel, "channel"});
        }
    }
    for (Candidate& recordClass : recordClasses()) {
        const bool known = std::any_of(candidates.begin(), candidates.end(), [&](const Candidate& candidate) {
            return candidate.text == recordClass.text;
        });
        if (!known) {
            candidates.push_back(std::move(recordClass));
        }
    }
    return candidates;
}

} // namespace

ValueSources completionValues(ChannelSource channels)
{
    return {{"CHANNEL",
             [channels = std::move(channels)](const ValuePlace& place) {
                 return channelsOf(place, channels);
             }},
            {"CLASS",
             [](const ValuePlace&) {
                 return recordClasses();
             }},
            {"TABLE",
             [](const ValuePlace&) {
                 return consumableTableNames();
             }},
            {"CODE", consumableCodes}};
}

} // namespace TelvaneTool
