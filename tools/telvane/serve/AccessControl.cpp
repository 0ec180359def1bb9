// The bus itself lets in whoever reaches its socket and lets him subscribe to as much as he likes; the
// permissions of the socket know one group and no numbers. What goes beyond that is refused here, by what the
// kernel says of the peer and not by anything that the peer says.

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
    // The largest one means "nobody" to the system's calls.
    const bool whole = error == std::errc() && rest == end && id != std::numeric_limits<Id>::max();
    return whole ? std::optional<Id>(id) : std::nullopt;
}

template <class Id>
std::vector<Id> resolved(const std::vector<std::string>& texts, std::optional<Id> (*find)(const std::string&))
{
    std::vector<Id> ids;
    ids.reserve(texts.size());
    for (const std::string& text : texts) {
        ids.push_back(find(text).value()); // it was found when the command line was read
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

void addPeerGuardOptions(Command& command, PeerGuardOptions& options)
{
    command
        .option(
            "--allow-user", options.users,
            "Let this user connect, by name or number; may be given again. With this or --allow-group all "
            "others are refused, root and the server's own user among them")
        .check([](const std::string& text) {
            return findUser(text) ? std::string() : "there is no user \"" + text + "\"";
        })
        .typeName("USER")
        .repeatable()
        .group("Refusing");
    command
        .option("--allow-group", options.groups,
                "Let the members of this group connect, by name or number; may be given again")
        .check([](const std::string& text) {
            return findGroup(text) ? std::string() : "there is no group \"" + text + "\"";
        })
        .typeName("GROUP")
        .repeatable()
        .group("Refusing");
    command.option("--max-clients", options.clients, "Refuse to have more clients than this at a time")
        .positive()
        .group("Refusing");
    command
        .option("--max-subscriptions", options.subscriptionsPerClient,
                "Refuse to subscribe a client to more channels than this at a time")
        .positive()
        .group("Refusing");
    command
        .option("--max-channels", options.channels,
                "Refuse new channels when this many have been subscribed to; a server never forgets one")
        .positive()
        .group("Refusing");
}

EventServerLimits limitsOf(const PeerGuardOptions& options)
{
    EventServerLimits limits;
    limits.connections = options.clients;
    limits.subscriptionsPerClient = options.subscriptionsPerClient;
    limits.channels = options.channels;
    limits.users = resolved(options.users, &findUser);
    limits.groups = resolved(options.groups, &findGroup);
    return limits;
}

void guardServer(EventServer& server, const PeerGuardOptions& options)
{
    server.SetLimits(limitsOf(options));
    server.install_OnRefusal([](EventServer&, const EventServerRefusal& refusal) {
        printError("refused " + Telvane::describe(refusal));
    });
}

} // namespace TelvaneTool
