#pragma once

#include "telvane-web/bus/BusWatcher.h"
#include "telvane-web/http/HostCheck.h"
#include "telvane-web/http/HttpServer.h"
#include "telvane-web/live/StreamGate.h"

#include <functional>
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

    HttpReply handle(const HttpRequest& request);

private:
    HttpReply sendFile(const StaticFile& file, const HttpRequest& request) const;
    HttpReply openStream(const HttpRequest& request);
    HttpReply sendRecord(const HttpRequest& request);
    HttpReply sendMetrics(const HttpRequest& request);

    const Settings m_settings;
    BusWatcher& m_bus;
    const HostCheck m_hosts;
    const std::vector<StaticFile>& m_files;
    std::function<HttpServer::Statistics()> m_statistics;
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
