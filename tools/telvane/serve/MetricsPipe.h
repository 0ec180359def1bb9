#pragma once

#include <Telvane/DynamicFileInterface.h>

#include <atomic>
#include <string>

namespace Telvane
{
class EventServer;
}

namespace TelvaneTool
{

/// A named pipe from which anybody reads how the server fares, for as long as the object lives.
class MetricsPipe
{
public:
    /// \param server must outlive the pipe
    MetricsPipe(const std::string& path, const Telvane::EventServer& server);
    MetricsPipe(const MetricsPipe&) = delete;
    MetricsPipe& operator=(const MetricsPipe&) = delete;
    ~MetricsPipe();

    /// \return an exit code, after a complaint unless it is kSuccess
    int open();

private:
    void writePage(int fd, const Telvane::EventServer& server) const;

    const std::string m_path;
    std::atomic<bool> m_closing{false};
    Telvane::DynamicFileInterface m_pipe;
    bool m_open = false;
};

} // namespace TelvaneTool
