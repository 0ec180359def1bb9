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

/// Checks that all fields of the options exist. Prints an error if one does not.
/// \param channels  the channels to print; patterns and channels of unknown classes may have any field
/// \param recordClass  class of all channels; null for the class with the channel's name
bool checkFields(const FormatOptions& options, const std::vector<std::string>& channels,
                 const Telvane::RecordClass* recordClass);

} // namespace TelvaneTool
