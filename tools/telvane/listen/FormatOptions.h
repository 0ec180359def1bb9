#pragma once

#include "listen/RecordFormatter.h"

#include <string>
#include <vector>

namespace TelvaneTool
{

class Command;

/// The options that `telvane listen` and `telvane show` have in common: which records to print, and how.
struct FormatOptions
{
    RecordFormatter::Settings settings;
    std::vector<std::string> conditions;
};

void addFormatOptions(Command& command, FormatOptions& options);

/// Reads the conditions into the settings' filters. Prints the reason if it fails.
bool readFilters(FormatOptions& options);

} // namespace TelvaneTool
