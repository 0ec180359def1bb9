// The permissions of the socket allow one user and one group, and limit no counts. These options go beyond that. Peers
// are identified by the credentials that the kernel reports.

#include "serve/AccessControl.h"

#include "common/cli/CommandLine.h"
#include "common/cli/Messages.h"

#include <Telvane/EventServer.h>

#include <charconv>
#include <grp.h>
#include <limits>
#include <pwd.h>

namespace TelvaneTool
{

namespace
{

using Telvane::EventServer;
using Telvane::EventServerLimits;
using Telvane::EventServerRefusal;

template <class Id>
std::optional<Id> idOf(const std::string& text)
{
    Id id = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, id);
    // System calls use the largest number for "none".
    const bool whole = error == std::errc() && rest == end && id != std::numeric_limits<Id>::max();
    return whole ? std::optional<Id>(id) : std::nullopt;
}

template <class Id>
std::vector<Id> resolved(const std::vector<std::string>& texts, std::optional<Id> (*find)(const std::string&))
{
    std::vector<Id> ids;
    ids.reserve(texts.size());
    for (const std::string& text : texts) {
        ids.push_back(find(text).value()); // the command line was checked
    }
    return ids;
}

} // namespace

std::optional<uid_t> findUser(const std::string& text)
{
    const passwd* const entry = getpwnam(text.c_str()); // NOLINT(concurrency-mt-unsafe): before any thread
    return entry != nullptr ? std::optional<uid_t>(entry->pw_uid) : idOf<uid_t>(text);
}

std::optional<gid_t> findGroup(const std::string& text)
{
    const group* const entry = getgrnam(text.c_str()); // NOLINT(concurrency-mt-unsafe): before any thread
    return entry != nullptr ? std::optional<gid_t>(entry->gr_gid) : idOf<gid_t>(text);
}

void addAccessOptions(Command& command, AccessOptions& options)
{
    command
        .option("--allow-user", options.users,
                "Allow only this user, by name or number, to connect, and those of --allow-group. "
                "All others are refused, including root and the server's own user")
        .check([](const std::string& text) {
            return findUser(text) ? std::string() : "unknown user \"" + text + "\"";
        })
        .typeName("USER")
        .repeatable()
        .group("Access control");
    command
        .option("--allow-group", options.groups,
                "Allow only members of this group, by name or number, to connect")
        .check([](const std::string& text) {
            return findGroup(text) ? std::string() : "unknown group \"" + text + "\"";
        })
        .typeName("GROUP")
        .repeatable()
        .group("Access control");
    command.option("--max-clients", options.clients, "Limit the number of clients")
        .positive()
        .group("Access control");
    command
        .option("--max-subscriptions", options.subscriptionsPerClient,
                "Limit the number of subscriptions of each client")
        .positive()
        .group("Access control");
    command
        .option("--max-channels", options.channels,
                "Limit the number of channels; a channel exists from its first subscription until the server "
                "stops")
        .positive()
        .group("Access control");
}

EventServerLimits limitsOf(const AccessOptions& options)
{
    EventServerLimits limits;
    limits.connections = options.clients;
    limits.subscriptionsPerClient = options.subscriptionsPerClient;
    limits.channels = options.channels;
    limits.users = resolved(options.users, &findUser);
    limits.groups = resolved(options.groups, &findGroup);
    return limits;
}

void applyAccessOptions(EventServer& server, const AccessOptions& options)
{
    server.SetLimits(limitsOf(options));
    server.install_OnRefusal([](EventServer&, const EventServerRefusal& refusal) {
        printError("refused " + Telvane::describe(refusal));
    });
}

} // namespace TelvaneTool
