#pragma once

// Options that several subcommands share.

#include "common/support/Clock.h"

#include <Telvane/RecordCatalogue.h>

#include <cstdint>
#include <string>

namespace TelvaneTool
{

class Command;
class Option;

/// Limit of time-outs: 30 years, which fit into 64-bit nanoseconds on any clock.
constexpr double kMaxSeconds = 1e9;

struct BusOptions
{
    std::string path;
    double wait = 0.0; ///< for the server to start, s
    bool reconnect = false;
};

void addBusOptions(Command& command, BusOptions& options, bool required = true);
/// For commands that go on after a loss of the connection.
void addReconnectOption(Command& command, BusOptions& options);

/// Adds an option that takes "1.5", "30s", "5m" or "250ms".
/// \param zero whether 0 is accepted
Option addDuration(Command& command, const char* name, Nanoseconds& duration, const std::string& what,
                   bool zero = false);
/// Adds an option that takes "4096", "64K" or "100M", but not 0.
Option addSize(Command& command, const char* name, std::uint64_t& bytes, const std::string& what);

/// Adds an option or argument that takes the name of a record class.
Option addClass(Command& command, const char* name, const Telvane::RecordClass*& recordClass,
                const std::string& what);

/// \return \p recordClass, or if null the class that is named like the channel; null if there is none
const Telvane::RecordClass* classOfChannel(const Telvane::RecordClass* recordClass,
                                           const std::string& channel);

} // namespace TelvaneTool
