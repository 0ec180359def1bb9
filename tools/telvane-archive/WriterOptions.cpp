#include "Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <unistd.h>

namespace TelvaneArchive
{

std::string WriterOptions::makeContext(Context& context) const
{
    for (const std::string& text : set) {
        if (std::string error = context.add(text); !error.empty()) {
            return error;
        }
    }
    context.setFile(contextFile);
    return {};
}

void addWriterOptions(TelvaneTool::Command& command, WriterOptions& options)
{
    char name[256] = "module";
    gethostname(name, sizeof name - 1);
    options.module = name;
    command.option("--module", options.module, "Call the module NAME (default: the name of the host)")
        .typeName("NAME");
    command
        .option("--set", options.set,
                "Set a column of all welds, such as operator=Kim, wire_batch=4711, travel_speed=8 (mm/s)")
        .repeatable()
        .typeName("NAME=VALUE");
    command
        .option("--set-from", options.contextFile,
                "Read lines of NAME=VALUE from FILE at each start of a weld; a scanner may rewrite it")
        .typeName("FILE");
}

int reportStatus(const std::string& location, const Status& status)
{
    // The location of a server may hold a password.
    const std::string shown = isPostgresLocation(location) ? "the database" : location;
    TelvaneTool::printError(shown + ": " + status.text);
    return status.code == Status::Code::Damaged ? TelvaneTool::kWrongInput : TelvaneTool::kOutputFailure;
}

} // namespace TelvaneArchive
