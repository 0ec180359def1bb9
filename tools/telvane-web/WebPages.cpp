// Every request passes the same checks before any route: the host, the method, the body. There is no file system here:
// the page is part of the program, and a path is either in the table or unknown.

#include "telvane-web/WebPages.h"

#include "common/bus/MetricsPage.h"
#include "common/support/Json.h"
#include "telvane-web/bus/Catalogue.h"
#include "telvane-web/http/Query.h"
#include "telvane-web/live/StreamClient.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMinColumns = 64;
constexpr std::size_t kDefaultColumns = 1024;
constexpr std::size_t kMaxChannelName = 1000;

/// The stream of one page.
class LiveStream : public HttpStream
{
public:
    /// \param permitted  whether the client may go on
    LiveStream(BusWatcher& bus, const StreamClient::Settings& settings, std::string hello,
               std::function<bool(Nanoseconds)> permitted)
        : m_bus(bus), m_client(settings, std::move(hello)), m_permitted(std::move(permitted))
    {}

    std::string next(Nanoseconds now) override
    {
        return m_bus.withLive([&](const LiveWeld& live) { return m_client.next(live, now); });
    }
    Nanoseconds due() override
    {
        return m_bus.withLive([&](const LiveWeld& live) { return m_client.due(live); });
    }
    bool observe(Nanoseconds now, std::size_t unsent, bool blocked) override
    {
        m_client.observe(now, unsent, blocked);
        if (m_permitted && !m_permitted(now)) {
            return false;
        }
        return m_client.pace() != StreamGate::Pace::Disconnect &&
               !m_bus.withLive([&](const LiveWeld& live) { return m_client.missedEvents(live); });
    }

private:
    BusWatcher& m_bus;
    StreamClient m_client;
    std::function<bool(Nanoseconds)> m_permitted;
};

void writeAccessMetrics(OpenMetrics& page, const AccessGate& gate)
{
    page.gauge("web_sessions", "Browsers that have given the password.");
    page.sample(gate.sessions());
    page.counter("web_logins", "Browsers that gave the right password.");
    page.sample(gate.statistics().logins);
    page.counter("web_wrong_passwords", "Requests with a wrong password.");
    page.sample(gate.statistics().wrong);
    page.counter("web_passwords_limited", "Requests with a password that came too soon after wrong ones.");
    page.sample(gate.statistics().limited);
}

void writeServerMetrics(OpenMetrics& page, const HttpServer::Statistics& server)
{
    page.gauge("web_connections", "Connections to the web server.");
    page.sample(server.openConnections);
    page.gauge("web_pages", "Pages with a live stream; browsers share one between their tabs.");
    page.sample(server.openStreams);
    page.counter("web_connections_accepted", "Connections accepted by the web server.");
    page.sample(server.connections);
    page.counter("web_requests", "Requests to the web server.");
    page.sample(server.requests);
    page.counter("web_requests_refused", "Requests answered with an error.");
    page.sample(server.refused);
    page.counter("web_connections_timed_out",
                 "Connections closed because a request or an answer took too long.");
    page.sample(server.timedOut);
    page.counter("web_pages_disconnected", "Live streams closed because the browser did not read them.");
    page.sample(server.slowStreams);
    page.counter("web_stream_bytes", "Data sent in live streams.");
    page.sample(server.bytes);
}

} // namespace

bool accepts(std::string_view header, std::string_view word)
{
    while (!header.empty()) {
        const std::size_t comma = std::min(header.find(','), header.size());
        std::string_view item = header.substr(0, comma);
        header.remove_prefix(std::min(comma + 1, header.size()));
        const std::size_t semicolon = std::min(item.find(';'), item.size());
        std::string_view name = item.substr(0, semicolon);
        while (!name.empty() && name.front() == ' ') {
            name.remove_prefix(1);
        }
        while (!name.empty() && name.back() == ' ') {
            name.remove_suffix(1);
        }
        if (name == word) {
            std::string quality(item.substr(semicolon));
            quality.erase(std::remove(quality.begin(), quality.end(), ' '), quality.end());
            return quality != ";q=0" && quality != ";q=0.0" && quality != ";q=0.00" && quality != ";q=0.000";
        }
    }
    return false;
}

std::string plainMetrics(const std::string& openMetrics)
{
    std::string text;
    for (std::size_t begin = 0; begin < openMetrics.size();) {
        const std::size_t end = std::min(openMetrics.find('\n', begin), openMetrics.size());
        std::string line = openMetrics.substr(begin, end - begin);
        begin = end + 1;
        const auto endsWith = [&line](std::string_view suffix) {
            return line.size() > suffix.size() &&
                   line.compare(line.size() - suffix.size(), suffix.size(), suffix) == 0;
        };
        if (line == "# EOF" || line.compare(0, 7, "# UNIT ") == 0 || line.compare(0, 7, "# HELP ") == 0) {
            continue;
        }
        if (line.compare(0, 7, "# TYPE ") == 0 && endsWith(" counter")) {
            line.insert(line.size() - std::string_view(" counter").size(), "_total");
        } else if (line.compare(0, 7, "# TYPE ") == 0 && endsWith(" info")) {
            line.replace(line.size() - std::string_view(" info").size(), std::string::npos, "_info gauge");
        }
        text += line + "\n";
    }
    return text;
}

WebPages::WebPages(Settings settings, BusWatcher& bus, HostCheck hosts, const std::vector<StaticFile>& files)
    : m_settings(std::move(settings)),
      m_bus(bus),
      m_hosts(std::move(hosts)),
      m_files(files),
      m_run(std::to_string(realTimeNow() / kMillisecond)),
      m_catalogue(catalogueJson())
{}

std::optional<HttpReply> WebPages::refuse(const HttpRequest& request) const
{
    const std::string_view host = request.header("Host");
    HttpReply reply;
    if (request.hostHeaders != 1 || !m_hosts.allows(host, request.localAddress)) {
        const std::string name = hostName(host);
        reply =
            httpFailure(421, name.empty() ? "the request names no host"
                                          : "this server is not called \"" + name +
                                                "\"; to allow that name, start it with --allow-host " + name);
    } else if (request.method != "GET" && request.method != "HEAD") {
        reply = httpFailure(405, "this server only answers GET and HEAD");
        reply.allow = "GET, HEAD";
    } else if (request.hasBody) {
        reply = httpFailure(413, "requests have no body here");
    } else {
        return std::nullopt;
    }
    reply.close = true;
    return reply;
}

HttpReply WebPages::handle(const HttpRequest& request)
{
    if (std::optional<HttpReply> refused = refuse(request)) {
        return std::move(*refused);
    }
    for (const StaticFile& file : m_files) {
        if (request.path == file.path ||
            (request.path == "/" && file.path == std::string_view("/index.html"))) {
            return sendFile(file, request);
        }
    }
    if (request.path == "/api/session") {
        return sendSession(request);
    }
    if (m_gate != nullptr) {
        if (request.path == "/api/login") {
            return m_gate->login(request);
        }
        if (request.path == "/api/logout") {
            return m_gate->logout(request);
        }
        if (std::optional<HttpReply> refused = m_gate->check(request)) {
            return std::move(*refused);
        }
    }
    if (m_section) {
        if (std::optional<HttpReply> answer = m_section(request)) {
            return std::move(*answer);
        }
    }
    if (request.path == "/api/events") {
        return openStream(request);
    }
    if (request.path == "/api/bus") {
        return httpJson(m_bus.busJson());
    }
    if (request.path == "/api/record") {
        return sendRecord(request);
    }
    if (request.path == "/api/catalogue") {
        return httpJson(m_catalogue);
    }
    if (request.path == "/metrics") {
        return sendMetrics(request);
    }
    return httpFailure(404, "no such page");
}

/// What the page shows first. It needs no password: only those who have one are told the state.
HttpReply WebPages::sendSession(const HttpRequest& request)
{
    const bool open = m_gate == nullptr || m_gate->hasSession(request);
    const JsonTree root(cJSON_CreateObject());
    cJSON_AddBoolToObject(root.get(), "archive", m_section ? 1 : 0);
    cJSON_AddBoolToObject(root.get(), "password", m_gate != nullptr ? 1 : 0);
    cJSON_AddBoolToObject(root.get(), "open", open ? 1 : 0);
    if (open) {
        const std::string state = m_bus.withLive([](const LiveWeld& live) { return live.stateJson(); });
        cJSON_AddRawToObject(root.get(), "state", state.c_str());
    }
    return httpJson(printJson(root.get()));
}

HttpReply WebPages::sendFile(const StaticFile& file, const HttpRequest& request) const
{
    HttpReply reply;
    reply.file = &file;
    reply.compressed = accepts(request.header("Accept-Encoding"), "gzip");
    if (request.header("If-None-Match") == file.etag) {
        reply.status = 304;
    }
    return reply;
}

HttpReply WebPages::openStream(const HttpRequest& request)
{
    StreamClient::Settings settings;
    settings.columns =
        std::clamp(numberOr(valueOf(request, "columns"), kDefaultColumns), kMinColumns, Envelope::kCapacity);
    settings.gate = m_settings.gate;
    // The page opens each stream by itself, so that the browser does not send the header. A number of an earlier
    // process means nothing here.
    const std::string header(request.header("Last-Event-ID"));
    settings.lastEvent = numberOr<std::uint64_t>(!header.empty() ? header : valueOf(request, "last"), 0);
    settings.resumed = settings.lastEvent != 0 && request.query("run").value_or("") == m_run;

    const JsonTree hello(cJSON_CreateObject());
    addText(hello.get(), "run", m_run);
    addText(hello.get(), "version", m_settings.version);
    addText(hello.get(), "bus", shortened(m_settings.busPath, 200));
    addNumber(hello.get(), "time", realTimeNow() / kMillisecond);
    addNumber(hello.get(), "heartbeat", StreamClient::kHeartbeat / kMillisecond);
    HttpReply reply;
    reply.type = "text/event-stream";
    reply.stream = std::make_unique<LiveStream>(m_bus, settings, printJson(hello.get()),
                                                m_gate != nullptr ? m_gate->permission(request)
                                                                  : std::function<bool(Nanoseconds)>());
    return reply;
}

HttpReply WebPages::sendRecord(const HttpRequest& request)
{
    const std::string channel(request.query("channel").value_or("").substr(0, kMaxChannelName));
    std::string record = m_bus.recordJson(channel);
    return record.empty() ? httpFailure(404, "the bus has no such channel") : httpJson(std::move(record));
}

HttpReply WebPages::sendMetrics(const HttpRequest& request)
{
    std::vector<ChannelStatus> channels;
    std::vector<ClientStatus> clients;
    const Nanoseconds age = m_bus.status(channels, clients);
    OpenMetrics page;
    page.gauge("web_bus_connected", "1 while the web server is connected to the bus.");
    page.sample(m_bus.connected() ? 1 : 0);
    page.gauge("web_bus_status_age_seconds", "Time since the bus reported its channels and clients.");
    page.sample(static_cast<std::uint64_t>(inSeconds(age)));
    page.counter("web_records_received", "Messages that the web server received from the bus.");
    page.sample(m_bus.statistics().received);
    m_bus.withLive([&page](const LiveWeld& live) {
        page.counter("web_weld_samples", "Samples of welds that were drawn.");
        page.sample(live.samples());
        page.counter("web_weld_samples_missed", "Samples of welds that are missing by their numbers.");
        page.sample(live.missed());
    });
    writeServerMetrics(page, m_statistics());
    if (m_gate != nullptr) {
        writeAccessMetrics(page, *m_gate);
    }
    if (m_sectionMetrics) {
        m_sectionMetrics(page);
    }
    page.gauge("clients", "Clients connected.");
    page.sample(clients.size());
    page.gauge("channels", "Channels that have ever been subscribed to.");
    page.sample(channels.size());
    writeBusMetrics(page, channels, {clients.begin(), clients.end()});

    HttpReply reply;
    const std::string text = page.end() + "\n";
    if (accepts(request.header("Accept"), "application/openmetrics-text")) {
        reply.type = "application/openmetrics-text; version=1.0.0; charset=utf-8";
        reply.body = text;
    } else {
        reply.type = "text/plain; version=0.0.4; charset=utf-8";
        reply.body = plainMetrics(text);
    }
    return reply;
}

} // namespace TelvaneTool
