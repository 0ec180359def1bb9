// One event loop serves the pages; records arrive on the thread of the bus.

#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "telvane-web/WebPages.h"

#include <memory>
#include <poll.h>
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
    std::vector<std::string> allowedHosts;
    unsigned maxConnections = 128;
};

std::string machineName()
{
    char name[256] = "";
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

void serve(HttpServer& server, BusWatcher& bus)
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
        pollfd events[] = {{signals.get(), POLLIN, 0}, {server.fd(), POLLIN, 0}};
        poll(events, 2, static_cast<int>((wait + kMillisecond - 1) / kMillisecond));
        if (events[0].revents != 0 && readSignal(signals.get()) != 0) {
            return;
        }
    }
}

int run(const Options& options)
{
    HostCheck hosts(machineName());
    for (const std::string& name : options.allowedHosts) {
        if (!hosts.allow(name)) {
            printError("\"" + name + "\" is not the name of a host");
            return kWrongUsage;
        }
    }
    std::string error;
    FileDescriptor listening = listenOn(options.listen, error);
    if (!listening.isOpen()) {
        printError("cannot listen on " + options.listen + ": " + error);
        return kWrongUsage;
    }
    const std::string address = localAddressOf(listening.get(), true);

    BusWatcher bus(options.bus);
    WebPages::Settings settings;
    settings.version = TELVANE_VERSION;
    settings.busPath = options.bus;
    WebPages pages(settings, bus, std::move(hosts), pageFiles());
    HttpServer::Settings limits;
    limits.maxConnections = options.maxConnections;
    limits.maxStreams = options.maxConnections - options.maxConnections / 4;
    HttpServer server(limits, [&pages](const HttpRequest& request) { return pages.handle(request); });
    pages.setStatistics([&server] { return server.statistics(); });
    error = server.start(std::move(listening));
    if (!error.empty()) {
        printError("cannot serve " + address + ": " + error);
        return kBusFailure;
    }
    printStatus("open http://" + address + "/");
    serve(server, bus);
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
    command.option("PATH", options.bus, "Path of the server's socket").required();
    command.option("--listen", options.listen, "Listen on this address")
        .typeName("ADDRESS:PORT")
        .showDefault();
    command
        .option(
            "--allow-host", options.allowedHosts,
            "Answer requests to this name of the machine, in addition to its host name and addresses; can be "
            "repeated")
        .typeName("NAME")
        .repeatable();
    command
        .option("--max-connections", options.maxConnections,
                "Limit the number of connections; three of four can be pages")
        .within(8, 1000)
        .showDefault();
    command.examples("# open http://127.0.0.1:8320/ in a browser on this machine\n"
                     "telvane-web /run/telvane/bus\n"
                     "# let others on the network look\n"
                     "telvane-web /run/telvane/bus --listen 0.0.0.0:8320 --allow-host cell4.example\n");
    command.run([&options] { return run(options); });

    openStandardDescriptors();
    blockTerminationSignals();
    return line.run(argc, argv);
}
