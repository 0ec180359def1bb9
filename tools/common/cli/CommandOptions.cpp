#include "common/cli/CommandOptions.h"

#include "common/cli/CommandLine.h"
#include "common/support/HumanReadable.h"

#include <algorithm>
#include <strings.h>

namespace TelvaneTool
{

using Telvane::RecordCatalogue;
using Telvane::RecordClass;

void addBusOptions(Command& command, BusOptions& options, bool required)
{
    Option path = command.option("PATH", options.path, "Socket of the server");
    if (required) {
        path.required();
    }
    command.option("--wait", options.wait, "Wait up to SECONDS for the server to start")
        .within(0.0, 1e6)
        .typeName("SECONDS");
}

void addReconnectOption(Command& command, BusOptions& options)
{
    command.flag("--reconnect", options.reconnect,
                 "Connect again and go on when the server has been restarted, until a signal");
}

Option addDuration(Command& command, const char* name, Nanoseconds& duration, const std::string& what,
                   bool zero)
{
    const auto read = [&duration, zero](const std::string& text) -> std::string {
        if (!readDuration(text, duration)) {
            return "\"" + text + "\" is not a duration; use, for example, 1.5, 30s, 5m or 250ms";
        }
        return duration > 0 || zero ? "" : "expected a duration greater than 0";
    };
    return command.optionReadBy(read, name, what).typeName("DURATION");
}

Option addSize(Command& command, const char* name, std::uint64_t& bytes, const std::string& what)
{
    const auto read = [&bytes](const std::string& text) -> std::string {
        if (!readSize(text, bytes)) {
            return "\"" + text + "\" is not a size; use, for example, 4096, 64K or 100M";
        }
        return bytes > 0 ? "" : "expected a size greater than 0";
    };
    return command.optionReadBy(read, name, what).typeName("SIZE");
}

Option addClass(Command& command, const char* name, const RecordClass*& recordClass, const std::string& what)
{
    const auto read = [&recordClass](const std::string& text) -> std::string {
        recordClass = RecordCatalogue::find(text);
        if (recordClass != nullptr) {
            return {};
        }
        const auto& classes = RecordCatalogue::classes();
        const auto similar = std::find_if(classes.begin(), classes.end(), [&text](const RecordClass& other) {
            return strcasecmp(other.name, text.c_str()) == 0;
        });
        return "unknown record class \"" + text + "\"; " +
               (similar != classes.end() ? "did you mean " + std::string(similar->name) + "?"
                                         : "telvane records lists all classes");
    };
    return command.optionReadBy(read, name, what).typeName("CLASS");
}

const RecordClass* classOfChannel(const RecordClass* recordClass, const std::string& channel)
{
    return recordClass != nullptr ? recordClass : RecordCatalogue::find(channel);
}

} // namespace TelvaneTool
