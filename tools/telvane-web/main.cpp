// One event loop serves the pages; records arrive on the thread of the bus.

#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "telvane-web/WebPages.h"
#include "telvane-web/access/Password.h"
#ifdef TELVANE_WITH_ARCHIVE
#include "archive/database/PostgresModule.h"
#include "telvane-web/welds/WeldPages.h"
#endif

#include <memory>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kWeldingTick = kSecond / 30;
constexpr Nanoseconds kWaitingTick = kSecond / 10;
constexpr Nanoseconds kIdleTick = kSecond / 2;

struct Options
{
    std::string bus;
    std::string listen = "127.0.0.1:8320";
    std::string archive;
    std::string certificate;
    std::string key;
    std::string passwordFile;
    std::string newPassword;
    std::vector<std::string> allowedHosts;
    unsigned maxConnections = 128;
};

std::string machineName()
{
    char name[256] = "";
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

void serve(HttpServer& server, BusWatcher& bus, const WakeUp& wakeUp)
{
    const FileDescriptor signals = openSignals();
    for (;;) {
        const Nanoseconds now = monotonicNow();
        bus.tick(now);
        server.run(now);
        const bool welding =
            bus.withLive([](const LiveWeld& live) { return live.state() == LiveWeld::State::Arc; });
        const Nanoseconds tick = server.statistics().openStreams == 0 ? kIdleTick
                                 : welding                            ? kWeldingTick
                                                                      : kWaitingTick;
        const Nanoseconds wait = server.timeout(monotonicNow(), tick);
        pollfd events[] = {{signals.get(), POLLIN, 0}, {server.fd(), POLLIN, 0}, {wakeUp.fd(), POLLIN, 0}};
        poll(events, 3, static_cast<int>((wait + kMillisecond - 1) / kMillisecond));
        if (events[2].revents != 0) {
            wakeUp.clear();
        }
        if (events[0].revents != 0 && readSignal(signals.get()) != 0) {
            return;
        }
    }
}

/// \return whether the files could be read
bool readCredentials(const Options& options, HttpServer::Settings& settings)
{
    if (options.certificate.empty()) {
        return true;
    }
    settings.certificate = readFile(options.certificate);
    settings.key = settings.certificate.empty() ? std::string() : readFile(options.key);
    struct stat status = {};
    if (stat(options.key.c_str(), &status) == 0 && (status.st_mode & (S_IRGRP | S_IROTH)) != 0) {
        printStatus("warning: others on this machine can read the key in " + options.key);
    }
    return !settings.key.empty();
}

/// Says what others on the network can do.
void warn(const Options& options, const std::string& address)
{
    if (isLoopback(address)) {
        return;
    }
    if (options.passwordFile.empty()) {
        printStatus("warning: anyone who reaches " + address +
                    " can read the welds and the bus; use --password-file");
    }
    if (options.certificate.empty()) {
        printStatus(
            "warning: the connection is not encrypted" +
            std::string(options.passwordFile.empty() ? "" : ", and neither is the password on its way") +
            "; use --certificate and --key");
    }
}

/// Everything that the server is made of, in the order in which it must be destroyed.
struct Parts
{
    WakeUp wakeUp;
    std::unique_ptr<BusWatcher> bus;
    std::unique_ptr<AccessGate> gate;
#ifdef TELVANE_WITH_ARCHIVE
    std::unique_ptr<WeldPages> welds;
#endif
    std::unique_ptr<WebPages> pages;
    std::unique_ptr<HttpServer> server;
};

unsigned portOf(const std::string& address)
{
    return static_cast<unsigned>(std::stoul(address.substr(address.rfind(':') + 1)));
}

/// \return an error message, or an empty text
std::string addGate(const Options& options, const std::string& address, Parts& parts)
{
    if (options.passwordFile.empty()) {
        return {};
    }
    std::string error;
    AccessGate::Settings settings;
    settings.hash = readPasswordFile(options.passwordFile, error);
    if (!error.empty()) {
        return "cannot use " + options.passwordFile + ": " + error;
    }
    settings.secure = !options.certificate.empty();
    settings.port = portOf(address);
    parts.gate = std::make_unique<AccessGate>(settings, parts.wakeUp);
    parts.pages->setGate(*parts.gate);
    return {};
}

void addArchive(const Options& options, Parts& parts)
{
#ifdef TELVANE_WITH_ARCHIVE
    if (!options.archive.empty()) {
        parts.welds = std::make_unique<WeldPages>(options.archive, parts.wakeUp);
        parts.pages->addSection(
            [&welds = *parts.welds](const HttpRequest& request) { return welds.handle(request); },
            [&welds = *parts.welds](OpenMetrics& page) { welds.writeMetrics(page); });
    }
#else
    static_cast<void>(options);
    static_cast<void>(parts);
#endif
}

int run(const Options& options)
{
    if (!options.newPassword.empty()) {
        return writePasswordFile(options.newPassword);
    }
    if (options.bus.empty()) {
        printError("PATH is required");
        return kWrongUsage;
    }
    HostCheck hosts(machineName());
    for (const std::string& name : options.allowedHosts) {
        if (!hosts.allow(name)) {
            printError("\"" + name + "\" is not the name of a host");
            return kWrongUsage;
        }
    }
    HttpServer::Settings limits;
    limits.maxConnections = options.maxConnections;
    limits.maxStreams = options.maxConnections - options.maxConnections / 4;
    if (!readCredentials(options, limits)) {
        return kWrongInput;
    }
    std::string error;
    FileDescriptor listening = listenOn(options.listen, error);
    if (!listening.isOpen()) {
        printError("cannot listen on " + options.listen + ": " + error);
        return kWrongUsage;
    }
    const std::string address = localAddressOf(listening.get(), true);

    Parts parts;
    parts.bus = std::make_unique<BusWatcher>(options.bus);
    WebPages::Settings settings;
    settings.version = TELVANE_VERSION;
    settings.busPath = options.bus;
    parts.pages = std::make_unique<WebPages>(settings, *parts.bus, std::move(hosts), pageFiles());
    error = addGate(options, address, parts);
    if (!error.empty()) {
        printError(error);
        return kWrongInput;
    }
    addArchive(options, parts);
    parts.server = std::make_unique<HttpServer>(
        limits, [&pages = *parts.pages](const HttpRequest& request) { return pages.handle(request); });
    parts.pages->setStatistics([&server = *parts.server] { return server.statistics(); });
    error = parts.server->start(std::move(listening));
    if (!error.empty()) {
        printError("cannot serve " + address + ": " + error);
        return options.certificate.empty() ? kBusFailure : kWrongInput;
    }
    warn(options, address);
    printStatus("open http" + std::string(options.certificate.empty() ? "" : "s") + "://" + address + "/");
    serve(*parts.server, *parts.bus, parts.wakeUp);
    return kSuccess;
}

} // namespace

} // namespace TelvaneTool

int main(int argc, char** argv)
{
    using namespace TelvaneTool;

    CommandLine line("Show welds and the bus in a browser", TELVANE_VERSION, "", "telvane-web");
    Options options;
    Command command(line);
    command.option("PATH", options.bus, "Socket of the server");
    command.option("--listen", options.listen, "Listen on this address")
        .typeName("ADDRESS:PORT")
        .showDefault();
#ifdef TELVANE_WITH_ARCHIVE
    command
        .option("--archive", options.archive,
                "Show the welds of the archive, which telvane-archive keeps in FILE, or at "
                "postgresql://USER@HOST/NAME")
        .check([](const std::string& location) {
            return TelvaneArchive::isPostgresLocation(location) ? TelvaneArchive::loadPostgres()
                                                                : std::string();
        })
        .typeName("FILE");
#endif
    command
        .option("--password-file", options.passwordFile,
                "Demand the password whose hash is in FILE; see --new-password")
        .check(&checkFileName)
        .typeName("FILE");
    command
        .option("--new-password", options.newPassword, "Ask for a password, write its hash to FILE, and exit")
        .typeName("FILE");
    Option certificate = command.option("--certificate", options.certificate,
                                        "Serve HTTPS with the certificate in FILE, as PEM");
    certificate.check(&checkFileName).typeName("FILE");
    command.option("--key", options.key, "Use the private key in FILE, as PEM")
        .check(&checkFileName)
        .typeName("FILE")
        .needs("--certificate");
    certificate.needs("--key");
    command
        .option("--allow-host", options.allowedHosts,
                "Answer requests to this name of the machine, in addition to its host name and addresses")
        .typeName("NAME")
        .repeatable();
    command
        .option("--max-connections", options.maxConnections,
                "Limit the number of connections; three of four can be pages")
        .within(8, 1000)
        .showDefault();
    command.examples("# open http://127.0.0.1:8320/ in a browser on this machine\n"
                     "telvane-web /run/telvane/bus\n"
                     "# with the archive that telvane-archive keeps\n"
                     "telvane-web /run/telvane/bus --archive /var/lib/telvane-archive/welds.db\n"
                     "# let others on the network look, with a password and encrypted\n"
                     "telvane-web --new-password /etc/telvane/web-password\n"
                     "telvane-web /run/telvane/bus --listen 0.0.0.0:8320 --allow-host cell4.example "
                     "--password-file /etc/telvane/web-password --certificate cell4.pem --key cell4.key\n");
    command.run([&options] { return run(options); });

    openStandardDescriptors();
    blockTerminationSignals();
    return line.run(argc, argv);
}
