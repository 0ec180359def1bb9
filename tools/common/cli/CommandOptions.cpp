#include "common/cli/CommandOptions.h"

#include "common/cli/CommandLine.h"
#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"

#include <strings.h>

namespace TelvaneTool
{

using Telvane::RecordCatalogue;
using Telvane::RecordClass;

void addBusOptions(Command& command, BusOptions& options)
{
    command.option("PATH", options.path, "Socket of the bus's server").required();
    command.option("--wait", options.wait, "Wait up to this many seconds for the server to appear")
        .within(0.0, 1e6)
        .typeName("SECONDS");
}

Option addDuration(Command& command, const char* name, Nanoseconds& duration, const std::string& what)
{
    const auto read = [&duration](const std::string& text) {
        return readDuration(text, duration)
                   ? std::string()
                   : "\"" + text + "\" is no duration, such as 1.5, 30s, 5m or 250ms";
    };
    return command.optionReadBy(read, name, what).typeName("DURATION");
}

Option addSize(Command& command, const char* name, std::uint64_t& bytes, const std::string& what)
{
    const auto read = [&bytes](const std::string& text) {
        return readSize(text, bytes) ? std::string()
                                     : "\"" + text + "\" is no size, such as 4096, 64K or 100M";
    };
    return command.optionReadBy(read, name, what).typeName("SIZE");
}

bool findClass(const std::string& name, const RecordClass*& recordClass)
{
    recordClass = RecordCatalogue::find(name);
    if (recordClass != nullptr) {
        return true;
    }
    std::string message = "there is no record class \"" + name + "\"";
    for (const RecordClass& candidate : RecordCatalogue::classes()) {
        if (strcasecmp(candidate.name, name.c_str()) == 0) {
            message += "; did you mean " + std::string(candidate.name) + "?";
            printError(message);
            return false;
        }
    }
    printError(message + "; telvane records lists them");
    return false;
}

bool classOfChannel(const std::string& name, const std::string& channel, const RecordClass*& recordClass)
{
    if (!name.empty()) {
        return findClass(name, recordClass);
    }
    recordClass = RecordCatalogue::find(channel);
    return true;
}

} // namespace TelvaneTool
