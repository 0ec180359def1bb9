#pragma once

// What several subcommands have in common.

#include "common/support/Clock.h"

#include <Telvane/RecordCatalogue.h>

#include <cstdint>
#include <string>

namespace TelvaneTool
{

class Command;
class Option;

/// The longest time-out that an option takes: 30 years, which any clock can count in nanoseconds.
constexpr double kMaxSeconds = 1e9;

/// Where the bus is.
struct BusOptions
{
    std::string path;
    double wait = 0.0; ///< how long to wait for a server to appear, in seconds
};

void addBusOptions(Command& command, BusOptions& options);

/// Adds an option that takes "1.5", "30s", "5m" or "250ms".
Option addDuration(Command& command, const char* name, Nanoseconds& duration, const std::string& what);
/// Adds an option that takes "4096", "64K" or "100M".
Option addSize(Command& command, const char* name, std::uint64_t& bytes, const std::string& what);

/// Finds a class of the catalogue, or complains.
/// \return false when there is none of that name
bool findClass(const std::string& name, const Telvane::RecordClass*& recordClass);

/// What a channel's payloads are taken for: the class that is named, else the one named like the channel.
/// \param[out] recordClass null to take payloads as they come
/// \return false after a complaint
bool classOfChannel(const std::string& name, const std::string& channel,
                    const Telvane::RecordClass*& recordClass);

} // namespace TelvaneTool
