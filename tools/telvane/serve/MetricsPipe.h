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

/// A named pipe that serves the metrics of a server. The destructor removes it.
class MetricsPipe
{
public:
    /// \param server must outlive the pipe
    MetricsPipe(const std::string& path, const Telvane::EventServer& server);
    MetricsPipe(const MetricsPipe&) = delete;
    MetricsPipe& operator=(const MetricsPipe&) = delete;
    ~MetricsPipe();

    /// Creates the pipe. Prints an error on failure.
    /// \return an exit code
    int open();

private:
    void writePage(int fd, const Telvane::EventServer& server) const;

    const std::string m_path;
    std::atomic<bool> m_closing{false};
    Telvane::DynamicFileInterface m_pipe;
    bool m_open = false;
};

} // namespace TelvaneTool
