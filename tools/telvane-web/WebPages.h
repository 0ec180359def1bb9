#pragma once

#include "common/support/OpenMetrics.h"
#include "telvane-web/access/AccessGate.h"
#include "telvane-web/bus/BusWatcher.h"
#include "telvane-web/http/HostCheck.h"
#include "telvane-web/http/HttpServer.h"
#include "telvane-web/live/StreamGate.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// The addresses that the server answers.
class WebPages
{
public:
    struct Settings
    {
        std::string version;
        std::string busPath;
        StreamGate::Settings gate;
    };

    /// \param files  of the page
    WebPages(Settings settings, BusWatcher& bus, HostCheck hosts, const std::vector<StaticFile>& files);

    /// \param statistics  of the server, for the metrics; called for each request of them
    void setStatistics(std::function<HttpServer::Statistics()> statistics)
    {
        m_statistics = std::move(statistics);
    }

    /// Adds addresses that need more than the bus. Call it before the first request.
    /// \param handle   returns nothing for addresses that it does not know
    /// \param metrics  adds metrics
    void addSection(std::function<std::optional<HttpReply>(const HttpRequest&)> handle,
                    std::function<void(OpenMetrics&)> metrics)
    {
        m_section = std::move(handle);
        m_sectionMetrics = std::move(metrics);
    }
    /// Demands a password for everything but the page itself, which contains nothing of the bus.
    void setGate(AccessGate& gate) { m_gate = &gate; }

    HttpReply handle(const HttpRequest& request);

private:
    std::optional<HttpReply> refuse(const HttpRequest& request) const;
    HttpReply sendSession(const HttpRequest& request);
    HttpReply sendFile(const StaticFile& file, const HttpRequest& request) const;
    HttpReply openStream(const HttpRequest& request);
    HttpReply sendRecord(const HttpRequest& request);
    HttpReply sendMetrics(const HttpRequest& request);

    const Settings m_settings;
    BusWatcher& m_bus;
    const HostCheck m_hosts;
    const std::vector<StaticFile>& m_files;
    std::function<HttpServer::Statistics()> m_statistics;
    std::function<std::optional<HttpReply>(const HttpRequest&)> m_section;
    std::function<void(OpenMetrics&)> m_sectionMetrics;
    AccessGate* m_gate = nullptr;
    const std::string m_run; ///< tells this process from earlier ones
    const std::string m_catalogue;
};

/// \return the files of the page
const std::vector<StaticFile>& pageFiles();

/// \return whether a header with a list, such as Accept-Encoding, contains a word and does not refuse it
bool accepts(std::string_view header, std::string_view word);

/// \return OpenMetrics text as the older text format 0.0.4
std::string plainMetrics(const std::string& openMetrics);

} // namespace TelvaneTool
