#pragma once

#include "common/support/OpenMetrics.h"
#include "telvane-web/http/Worker.h"
#include "telvane-web/welds/WeldArchive.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>

namespace TelvaneTool
{

/// The addresses that answer from the archive. All questions run on a thread of their own, one after the other: however
/// long one takes, the live stream goes on.
class WeldPages
{
public:
    /// \param location  of the archive
    WeldPages(const std::string& location, const WakeUp& wakeUp,
              Nanoseconds longestStatement = WeldArchive::kLongestStatement);

    /// \return nothing for addresses of others
    std::optional<HttpReply> handle(const HttpRequest& request);

    void writeMetrics(OpenMetrics& page) const;

private:
    /// Shared with jobs, which may end after this object.
    struct Counts
    {
        std::atomic<std::uint64_t> questions = 0;
        std::atomic<std::uint64_t> failures = 0;
        std::atomic<std::uint64_t> nanoseconds = 0;
    };

    HttpReply ask(Worker::Job question);
    HttpReply list(const HttpRequest& request);
    HttpReply exportList(const HttpRequest& request, bool csv);
    HttpReply curve(const HttpRequest& request);

    std::shared_ptr<WeldArchive> m_archive;
    std::shared_ptr<Counts> m_counts = std::make_shared<Counts>();
    Worker m_worker;
};

} // namespace TelvaneTool
