#pragma once

#include "archive/reader/ArchiveReader.h"

#include <memory>
#include <optional>
#include <string>

namespace TelvaneTool
{
class Command;
class CommandLine;
class Option;
} // namespace TelvaneTool

namespace TelvaneArchive
{

// One function for each subcommand.
void addListCommand(TelvaneTool::CommandLine& line);
void addShowCommand(TelvaneTool::CommandLine& line);
void addPlotCommand(TelvaneTool::CommandLine& line);
void addCompareCommand(TelvaneTool::CommandLine& line);
void addExportCommand(TelvaneTool::CommandLine& line);
void addTrendCommand(TelvaneTool::CommandLine& line);
void addCopyCommand(TelvaneTool::CommandLine& line);

/// Adds the argument DB.
void addDatabase(TelvaneTool::Command& command, std::string& database);

/// Adds the option --like, for drawOverlay().
TelvaneTool::Option addLike(TelvaneTool::Command& command, std::string& like);

/// Which welds, by the options that several commands share.
struct FilterOptions
{
    std::string where;
    std::string part;
    std::string program;
    std::string verdict;
    std::string from;
    std::string to;

    /// Prints what is wrong with the options.
    /// \return whether they could be read
    bool read(WeldFilter& filter) const;
};

void addFilterOptions(TelvaneTool::Command& command, FilterOptions& options);

/// Opens an archive. Prints the reason if it fails.
std::unique_ptr<ArchiveReader> openArchive(const std::string& database);

/// Reads a weld. Prints the reason if it fails or there is none.
std::optional<Weld> readWeld(ArchiveReader& reader, std::int64_t id);

/// Writes a file that appears as a whole. Prints the reason if it fails.
/// \return an exit code
int writeFile(const std::string& path, const std::string& data);

/// Prints why a question failed.
/// \return an exit code
int reportFailure(const Status& status);

/// \return a number with the digits that people read, or "-" for an empty one
std::string printValue(const Value& value);
/// \return a local date and time
std::string printLocal(std::int64_t nanoseconds);

} // namespace TelvaneArchive
