#include "commands/Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "serve/AccessControl.h"
#include "serve/MetricsPipe.h"
#include "serve/ServiceManager.h"
#include "serve/StatusResponder.h"

#include <Telvane/EventServer.h>

#include <cerrno>
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
    PeerGuardOptions guard;
    std::string metricsPipe;
    bool noStatus = false;
    bool verbose = false;
};

/// Told once: every client is granted the same.
void tellSmallerBuffer(const EventServer& server, int wanted)
{
    static bool told = false;
    const int granted = server.GrantedSubscriberSendBuffer();
    if (!told && granted < wanted) {
        told = true;
        printError("the kernel grants subscribers a buffer of " + std::to_string(granted) +
                   " bytes instead of " + std::to_string(wanted) + "; net.core.wmem_max limits it");
    }
}

/// \param user the options
int checkBuffer(void* server, int /*fd*/, const std::string&, int, cJSON*, void* user)
{
    tellSmallerBuffer(*static_cast<EventServer*>(server),
                      static_cast<const Options*>(user)->subscriberBuffer);
    return 0;
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
    printError(client(fd) + who + " has connected");
    return 0;
}

int logDisconnect(void* /*server*/, int fd, const std::string&, int, cJSON*, void*)
{
    printError(client(fd) + " has left");
    return 0;
}

int logSubscription(void* /*server*/, int fd, const std::string& header, int, cJSON* payload, void*)
{
    const char* const channel = cJSON_GetStringValue(cJSON_GetObjectItem(payload, "channel"));
    // The header is the name of the meta channel, and the verb.
    printError(client(fd) + " asked to " + header.substr(1) + (header == ".subscribe" ? " to " : " from ") +
               (channel != nullptr ? channel : "nothing"));
    return 0;
}

/// The server replaces any file that nobody serves, so what is no socket must be kept from it.
bool checkPath(const std::string& path)
{
    if (path.empty() || path.size() >= sizeof(sockaddr_un::sun_path)) {
        printError("\"" + path + "\" cannot be a socket: its path must have 1 to " +
                   std::to_string(sizeof(sockaddr_un::sun_path) - 1) + " characters");
        return false;
    }
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) {
        printError(path + " is there already and is not a socket; it is left alone");
        return false;
    }
    return true;
}

int start(EventServer& server, const Options& options)
{
    // The socket is born with its permissions: setting them later would leave a gap for others to slip in.
    const auto mode = static_cast<mode_t>(std::stoul(options.mode, nullptr, 8));
    const mode_t before = umask(~mode & 0777);
    errno = 0;
    const int result = server.Start(options.path);
    const int error = errno;
    umask(before);
    if (result == 0) {
        return kSuccess;
    }
    const std::string attempt = "cannot serve " + options.path + ": ";
    if (result == -EADDRINUSE) {
        printError(attempt + "another server is serving it");
    } else if (result > 0) {
        printError(attempt + std::strerror(result));
    } else {
        printError(attempt + (error != 0 ? std::strerror(error) : "the socket could not be made"));
    }
    return kBusFailure;
}

int startOnInherited(EventServer& server, const std::string& path)
{
    const int result = server.StartOn(kFirstInheritedSocket);
    if (result == -EINVAL) {
        printError(
            "what was handed over to serve is no listening SOCK_SEQPACKET socket; a socket unit makes one by "
            "ListenSequentialPacket=");
        return kWrongUsage;
    }
    if (result != 0) {
        printError("cannot serve " + path + ": " + std::strerror(std::abs(result)));
        return kBusFailure;
    }
    return kSuccess;
}

/// \return whether there is one socket to serve, \p inherited or the one that PATH names
bool checkSocket(const Options& options, int inherited)
{
    if (inherited > 1) {
        printError(std::to_string(inherited) + " sockets were handed over, and a bus has one");
    } else if (inherited == 1 && !options.path.empty()) {
        printError("a socket was handed over, which is served in place of any PATH; leave PATH out");
    } else if (inherited == 0 && options.path.empty()) {
        printError(
            "PATH is required where no service manager hands a socket over (telvane serve --help tells "
            "more)");
    } else {
        return inherited == 1 || checkPath(options.path);
    }
    return false;
}

int serve(Options& options)
{
    const int inherited = takeListenSockets();
    if (!checkSocket(options, inherited)) {
        return kWrongUsage;
    }
    if (inherited != 0) {
        options.path = pathOfSocket(kFirstInheritedSocket);
    }
    EventServer server;
    server.SetSubscriberSendBuffer(options.subscriberBuffer);
    guardServer(server, options.guard);
    void* const user = &options;
    server.install_OnConnect(options.verbose ? &logConnect : &checkBuffer, user);
    if (options.verbose) {
        server.install_OnDisconnect(&logDisconnect, nullptr);
        server.install_OnSubscribe(&logSubscription, nullptr);
        server.install_OnUnsubscribe(&logSubscription, nullptr);
    }
    StatusResponder status(server);
    if (!options.noStatus) {
        status.prepare(limitsOf(options.guard));
    }
    const int signals = openSignals();
    const int started = inherited != 0 ? startOnInherited(server, options.path) : start(server, options);
    if (started != kSuccess) {
        return started;
    }
    MetricsPipe metrics(options.metricsPipe, server);
    if (const int result = options.metricsPipe.empty() ? kSuccess : metrics.open(); result != kSuccess) {
        server.Stop();
        return result;
    }
    if (!options.noStatus) {
        status.start(options.path);
    }
    notifyServiceManager("READY=1\nSTATUS=Serving " + options.path);
    if (options.verbose) {
        printError("serving " + options.path);
    }
    pollfd watched = {signals, POLLIN, 0};
    while (poll(&watched, 1, -1) < 0 || readSignal(signals) == 0) {
    }
    notifyServiceManager("STOPPING=1");
    status.stop();
    const int result = server.Stop();
    if (options.verbose) {
        const Telvane::EventServerStatistics counts = server.Statistics();
        printError("stopped; " + std::to_string(counts.received) + " messages received, " +
                   std::to_string(counts.relayed) + " relayed, " + std::to_string(counts.relaysFailed) +
                   " missed by slow subscribers");
    }
    if (result != 0) {
        printError(std::string("could not stop cleanly: ") + std::strerror(-result));
        return kBusFailure;
    }
    return kSuccess;
}

} // namespace

void addServeCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "serve", "Run an event server until SIGINT or SIGTERM");
    command.option("PATH", options->path, "Socket to serve; left out when a service manager hands one over");
    command.option("--mode", options->mode, "Permissions of the socket at PATH, octal")
        .check([](const std::string& text) {
            const bool octal = text.size() >= 3 && text.size() <= 4 &&
                               text.find_first_not_of("01234567") == std::string::npos &&
                               (text.size() == 3 || text.front() == '0');
            return octal ? std::string() : "permissions are three octal digits, as in 0660";
        })
        .typeName("OCTAL")
        .showDefault();
    command
        .option("--subscriber-buffer", options->subscriberBuffer,
                "Bytes that each subscriber may lag behind before it misses records; 0 for the "
                "kernel's default")
        .notNegative()
        .showDefault();
    addPeerGuardOptions(command, options->guard);
    command
        .option(
            "--metrics-pipe", options->metricsPipe,
            "Named pipe to make, from which anybody may read how the server fares: OpenMetrics text, to be "
            "read up to \"# EOF\"")
        .typeName("PATH");
    command.flag("--no-status", options->noStatus,
                 "Do not tell clients, such as telvane top, what channels and clients there are");
    command.flag("--verbose", options->verbose,
                 "Tell of connects, subscriptions and leavings on standard error");
    command.examples(
        "# on a path of your own, for the members of your group, too\n"
        "telvane serve /tmp/bus --mode 0660 --verbose\n"
        "# for one group only, watched by a scraper of metrics\n"
        "telvane serve /tmp/bus --mode 0666 --allow-group welding --metrics-pipe /tmp/bus.metrics\n"
        "sed '/^# EOF$/q' /tmp/bus.metrics\n"
        "# for good, with systemd: the socket is handed over\n"
        "systemctl enable --now telvane.socket\n");
    command.run([options] { return serve(*options); });
}

} // namespace TelvaneTool
