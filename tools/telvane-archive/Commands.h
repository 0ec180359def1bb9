#pragma once

#include "archive/database/Database.h"
#include "archive/follow/Context.h"
#include "archive/store/ArchiveStore.h"

#include <string>
#include <vector>

namespace TelvaneTool
{
class Command;
class CommandLine;
} // namespace TelvaneTool

namespace TelvaneArchive
{

// One function for each subcommand.
void addFollowCommand(TelvaneTool::CommandLine& line);
void addImportCommand(TelvaneTool::CommandLine& line);
void addRetainCommand(TelvaneTool::CommandLine& line);
void addJudgeCommand(TelvaneTool::CommandLine& line);

/// What all commands that write share.
struct WriterOptions
{
    std::string database;
    std::string module;
    std::vector<std::string> set;
    std::string contextFile;

    /// \return an error message, or an empty text
    std::string makeContext(Context& context) const;
};

void addWriterOptions(TelvaneTool::Command& command, WriterOptions& options);

/// What is kept for how long.
struct RetentionOptions
{
    double samplesDays = 0.0;
    std::uint64_t samplesBytes = 0;
    double rowsDays = 0.0;

    ArchiveStore::Retention read() const;
};

void addRetentionOptions(TelvaneTool::Command& command, RetentionOptions& options);

/// Prints why a database cannot be used.
/// \return an exit code
int reportStatus(const std::string& location, const Status& status);

} // namespace TelvaneArchive
