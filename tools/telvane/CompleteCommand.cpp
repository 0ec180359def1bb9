#include "CommandLine.h"
#include "Commands.h"
#include "Completion.h"
#include "Messages.h"

#include <memory>

namespace TelvaneTool
{

namespace
{

/// One candidate a line, what it is behind a tabulator; a line ":files" asks for files.
int print(const Completion& completion)
{
    std::string text = completion.files ? ":files\n" : "";
    for (const Candidate& candidate : completion.candidates) {
        text += candidate.text + '\t' + candidate.what + '\n';
    }
    return writeResult(text);
}

} // namespace

void addCompleteCommand(CommandLine& line)
{
    auto words = std::make_shared<std::vector<std::string>>();
    Command command(line, "complete", "Tell a shell what may come next on a line");
    command.hide();
    command.option("WORD", *words, "What has been typed so far, behind --");
    command.run([words, &line] {
        return print(
            complete(line.describe(), *words, [](const std::string&) { return std::vector<std::string>(); }));
    });
}

} // namespace TelvaneTool
