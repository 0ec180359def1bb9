#pragma once

#include "common/support/FileDescriptor.h"

#include <Telvane/DynamicFileInterface.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace TelvaneTool
{

/// A named pipe that serves the metrics of a program. The destructor removes it.
///
/// Only the pipe that open() has created or checked is served, even if another file replaces it at the path. A reader
/// that does not read keeps its pipe to itself: the others get a new one.
class MetricsPipe
{
public:
    /// \param page makes the text for one reader, on the pipe's thread; may throw std::bad_alloc
    MetricsPipe(std::string path, std::function<std::string()> page);
    MetricsPipe(const MetricsPipe&) = delete;
    MetricsPipe& operator=(const MetricsPipe&) = delete;
    ~MetricsPipe();

    /// Creates the pipe. Prints an error on failure.
    /// \return an exit code
    int open();

private:
    int take(const std::string& path);
    void writePage(int fd);
    bool write(int fd, std::string_view page);
    void replacePipe();

    const std::string m_path;
    const std::function<std::string()> m_page;
    std::atomic<bool> m_closing{false};
    FileDescriptor
        m_file; ///< identifies the pipe, and opens it through /proc; not open for reading or writing
    std::unique_ptr<Telvane::DynamicFileInterface> m_pipe;
};

} // namespace TelvaneTool
