#include "commands/Commands.h"
#include "common/bus/MetricsPage.h"
#include "common/bus/MetricsPipe.h"
#include "common/bus/SocketProbe.h"
#include "common/bus/StatusPayload.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/ChannelPattern.h"
#include "common/support/HumanReadable.h"
#include "serve/AccessControl.h"
#include "serve/MissReport.h"
#include "serve/PolicyGuard.h"
#include "serve/ProgramName.h"
#include "serve/ServiceManager.h"
#include "serve/StatusResponder.h"

#include <Telvane/EventServer.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace TelvaneTool
{

namespace
{

using Telvane::EventServer;

struct Options
{
    std::string path;
    std::string mode = "0600";
    int subscriberBuffer = 1024 * 1024;
    AccessOptions access;
    std::string policy;
    bool policyAudit = false;
    std::vector<std::string> remembered;
    std::string metricsPipe;
    bool noStatus = false;
    bool verbose = false;
};

/// Keeps the last record of the channels that match a pattern.
void applyMemory(EventServer& server, const std::vector<std::string>& patterns)
{
    if (patterns.empty()) {
        return;
    }
    Telvane::EventServerMemory memory;
    memory.remembers = [patterns](std::string_view channel) {
        return !isStatusChannel(channel) && matchesAnyPattern(patterns, channel);
    };
    server.SetMemory(std::move(memory));
}

/// Printed once, because all clients get the same size.
void printSmallerBuffer(const EventServer& server, int wanted)
{
    static bool printed = false;
    const int granted = server.GrantedSubscriberSendBuffer();
    if (!printed && granted < wanted) {
        printed = true;
        printError("subscribers get a buffer of " + std::to_string(granted) + " bytes instead of " +
                   std::to_string(wanted) + "; net.core.wmem_max limits it");
    }
}

/// \param user the options
int checkBuffer(void* server, int /*fd*/, const std::string&, int, cJSON*, void* user)
{
    printSmallerBuffer(*static_cast<EventServer*>(server),
                       static_cast<const Options*>(user)->subscriberBuffer);
    return 0;
}

std::string cannotServe(const std::string& path)
{
    return "cannot serve " + path + ": ";
}

std::string client(int fd)
{
    return "client " + std::to_string(fd);
}

int logConnect(void* server, int fd, const std::string& header, int sequence, cJSON* payload, void* user)
{
    checkBuffer(server, fd, header, sequence, payload, user);
    ucred peer = {};
    socklen_t size = sizeof peer;
    std::string who;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0) {
        who = " (process " + std::to_string(peer.pid) + ", user " + std::to_string(peer.uid) + ")";
    }
    printStatus(client(fd) + who + " connected");
    return 0;
}

int logDisconnect(void* /*server*/, int fd, const std::string&, int, cJSON*, void*)
{
    printStatus(client(fd) + " disconnected");
    return 0;
}

int logSubscription(void* /*server*/, int fd, const std::string& header, int, cJSON* payload, void*)
{
    const char* const channel = cJSON_GetStringValue(cJSON_GetObjectItem(payload, "channel"));
    // The header, ".subscribe" or ".unsubscribe", is the verb of the message.
    printStatus(client(fd) + " requested to " + header.substr(1) +
                (header == ".subscribe" ? " to " : " from ") + (channel != nullptr ? channel : "no channel"));
    return 0;
}

/// The server replaces an existing file at the path, unless it finds a server of its own kind there. Refuse anything
/// but a socket of that kind without a server.
int checkPath(const std::string& path)
{
    if (path.empty() || path.size() >= sizeof(sockaddr_un::sun_path)) {
        printError("\"" + path + "\" is not a socket path; it must have 1 to " +
                   std::to_string(sizeof(sockaddr_un::sun_path) - 1) + " characters");
        return kWrongUsage;
    }
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        return kSuccess;
    }
    if (!S_ISSOCK(status.st_mode)) {
        printError(path + " exists and is not a socket");
        return kWrongUsage;
    }
    switch (const int error = probeSocket(path); error) {
    case 0:
    case EAGAIN:
        printError(cannotServe(path) + "another server is running there");
        return kBusFailure;
    case EPROTOTYPE:
        printError(cannotServe(path) + "a program of another kind is using this socket");
        return kBusFailure;
    case EACCES:
    case EPERM:
        printError(cannotServe(path) +
                   "cannot check whether another server is running there: " + std::strerror(error));
        return kBusFailure;
    default:
        return kSuccess; // a socket without a server, which Start() replaces
    }
}

int start(EventServer& server, const Options& options)
{
    // Create the socket with its permissions: setting them later would let others connect in between.
    const auto mode = static_cast<mode_t>(std::stoul(options.mode, nullptr, 8));
    const mode_t before = umask(~mode & 0777);
    errno = 0;
    const int result = server.Start(options.path);
    const int error = errno;
    umask(before);
    if (result == 0) {
        return kSuccess;
    }
    const std::string attempt = cannotServe(options.path);
    if (result == -EADDRINUSE) {
        printError(attempt + "another server is running there");
    } else if (result > 0) {
        printError(attempt + std::strerror(result));
    } else {
        printError(attempt + (error != 0 ? std::strerror(error) : "cannot create the socket"));
    }
    return kBusFailure;
}

int startOnInherited(EventServer& server, const std::string& path)
{
    const int result = server.StartOn(kFirstInheritedSocket);
    if (result == -EINVAL) {
        printError("the inherited socket is not a listening SOCK_SEQPACKET socket; use "
                   "ListenSequentialPacket= in the socket "
                   "unit");
        return kWrongUsage;
    }
    if (result != 0) {
        printError(cannotServe(path) + std::strerror(std::abs(result)));
        return kBusFailure;
    }
    return kSuccess;
}

/// Checks that there is exactly one socket to serve, inherited or at PATH.
/// \return an exit code
int checkSocket(const Options& options, int inherited)
{
    if (inherited > 1) {
        printError(std::to_string(inherited) + " sockets were inherited; a bus has one");
    } else if (inherited == 1 && !options.path.empty()) {
        printError("PATH cannot be used with an inherited socket; omit it");
    } else if (inherited == 0 && options.path.empty()) {
        printError("PATH is required unless a service manager passes a socket (see telvane serve --help)");
    } else {
        return inherited == 1 ? static_cast<int>(kSuccess) : checkPath(options.path);
    }
    return kWrongUsage;
}

void logMisses(const std::vector<std::string>& lines)
{
    for (const std::string& line : lines) {
        printStatus(printMoment(realTimeNow()) + " " + line);
    }
}

/// Waits for a signal to end, and reports misses and refusals meanwhile. With a policy, SIGHUP loads it again.
void awaitSignal(EventServer& server, int signals, MissReport& misses, PolicyGuard& policy)
{
    constexpr int kCheckMilliseconds = 1000;
    pollfd watched = {signals, POLLIN, 0};
    std::uint64_t missed = 0;
    Nanoseconds until = 0; ///< of the lines about misses
    for (;;) {
        const int signal = poll(&watched, 1, kCheckMilliseconds) > 0 ? readSignal(signals) : 0;
        if (signal == SIGHUP && policy.isActive()) {
            if (!policy.load()) {
                printError("the former policy stays");
            }
        } else if (signal != 0) {
            return;
        }
        // Listing the clients makes connecting clients wait, so it is done only if there is something to report.
        const Nanoseconds now = monotonicNow();
        if (const std::uint64_t total = server.Statistics().relaysFailed; total != missed) {
            missed = total;
            until = now + 2 * MissReport::kPeriod;
        }
        if (now < until) {
            logMisses(misses.update(server.Clients(), now));
        }
        policy.update(now);
    }
}

int serve(Options& options)
{
    const int inherited = takeListenSockets();
    if (const int result = checkSocket(options, inherited); result != kSuccess) {
        return result;
    }
    if (inherited != 0) {
        options.path = pathOfSocket(kFirstInheritedSocket);
    }
    EventServer server;
    server.SetSubscriberSendBuffer(options.subscriberBuffer);
    server.SetRelayErrorLines(false);
    applyAccessOptions(server, options.access);
    applyMemory(server, options.remembered);
    PolicyGuard policy(server, options.policy, options.policyAudit);
    if (policy.isActive() && !policy.load()) {
        return kWrongUsage;
    }
    void* const user = &options;
    server.install_OnConnect(options.verbose ? &logConnect : &checkBuffer, user);
    if (options.verbose) {
        server.install_OnDisconnect(&logDisconnect, nullptr);
        server.install_OnSubscribe(&logSubscription, nullptr);
        server.install_OnUnsubscribe(&logSubscription, nullptr);
    }
    StatusResponder status(server);
    if (!options.noStatus) {
        status.prepare(limitsOf(options.access));
    }
    const FileDescriptor signals = openSignals();
    const int started = inherited != 0 ? startOnInherited(server, options.path) : start(server, options);
    if (started != kSuccess) {
        return started;
    }
    MetricsPipe metrics(options.metricsPipe, [&server] { return metricsPage(server); });
    if (const int result = options.metricsPipe.empty() ? kSuccess : metrics.open(); result != kSuccess) {
        server.Stop();
        return result;
    }
    if (!options.noStatus) {
        status.start(options.path);
    }
    notifyServiceManager("READY=1\nSTATUS=Serving " + options.path);
    if (options.verbose) {
        printStatus("serving " + options.path);
    }
    MissReport misses(&programOf);
    awaitSignal(server, signals.get(), misses, policy);
    notifyServiceManager("STOPPING=1");
    status.stop();
    logMisses(misses.update(server.Clients(), monotonicNow()));
    logMisses(misses.finish(monotonicNow()));
    const int result = server.Stop();
    policy.finish();
    if (options.verbose) {
        const Telvane::EventServerStatistics counts = server.Statistics();
        printStatus("stopped; " + std::to_string(counts.received) + " messages received, " +
                    std::to_string(counts.relayed) + " relayed, " + std::to_string(counts.relaysFailed) +
                    " missed by slow subscribers");
    }
    if (result != 0) {
        printError(std::string("cannot stop cleanly: ") + std::strerror(-result));
        return kBusFailure;
    }
    return kSuccess;
}

} // namespace

void addServeCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "serve", "Run a server until SIGINT or SIGTERM");
    command.option("PATH", options->path, "Socket to create; omit it if a service manager passes a socket");
    command.option("--mode", options->mode, "Set the permissions of the socket at PATH, as octal digits")
        .check([](const std::string& text) {
            const bool octal = text.size() >= 3 && text.size() <= 4 &&
                               text.find_first_not_of("01234567") == std::string::npos &&
                               (text.size() == 3 || text.front() == '0');
            return octal ? std::string() : "permissions must be three octal digits, such as 0660";
        })
        .typeName("OCTAL")
        .showDefault();
    command
        .option("--subscriber-buffer", options->subscriberBuffer,
                "Give each subscriber a send buffer of this size, in bytes. A larger buffer lets a slow "
                "subscriber fall "
                "further behind before it misses messages. 0 uses the kernel's default")
        .notNegative()
        .showDefault();
    addAccessOptions(command, options->access);
    command
        .option("--policy", options->policy,
                "Allow clients only what the rules in FILE allow: lines such as \"allow group:welding "
                "publish,subscribe Weld*\", of which the first that matches decides. SIGHUP "
                "loads FILE again")
        .check(&checkFileName)
        .typeName("FILE")
        .group("Access control");
    command.flag("--policy-audit", options->policyAudit, "Only log what the policy would refuse")
        .needs("--policy")
        .group("Access control");
    command
        .option("--remember", options->remembered,
                "Keep the last record of each channel that matches PATTERN, and answer requests for it when "
                "there is no responder. The server keeps up to 1000 records and 4 MiB")
        .check(&checkChannelPattern)
        .typeName("PATTERN")
        .repeatable();
    command
        .option("--metrics-pipe", options->metricsPipe,
                "Create a named pipe at PATH that serves OpenMetrics text. Read it up to \"# EOF\"")
        .typeName("PATH");
    command.flag("--no-status", options->noStatus,
                 "Do not report channels and clients to programs such as telvane top");
    command.flag("--verbose", options->verbose,
                 "Log connections, subscriptions and disconnections to standard error");
    command.examples(
        "# at a path of your choice, also for members of your group\n"
        "telvane serve /tmp/bus --mode 0660 --verbose\n"
        "# for one group only, with metrics for monitoring\n"
        "telvane serve /tmp/bus --mode 0666 --allow-group welding --metrics-pipe /tmp/bus.metrics\n"
        "sed '/^# EOF$/q' /tmp/bus.metrics\n"
        "# rights by channel\n"
        "telvane serve /tmp/bus --mode 0666 --policy /etc/telvane/policy\n"
        "# with the last status and settings for programs that start later\n"
        "telvane serve /tmp/bus --remember '*Status' --remember '*Config'\n"
        "telvane listen /tmp/bus '*Status' --last\n"
        "# permanently: systemd creates the socket and passes it\n"
        "systemctl enable --now telvane.socket\n");
    command.run([options] { return serve(*options); });
}

} // namespace TelvaneTool
