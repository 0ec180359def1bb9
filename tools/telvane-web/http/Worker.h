#pragma once

#include "common/support/FileDescriptor.h"
#include "telvane-web/http/HttpTypes.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace TelvaneTool
{

/// Wakes the event loop from another thread.
class WakeUp
{
public:
    WakeUp();
    /// \return a descriptor that is readable after wake()
    int fd() const { return m_fd.get(); }
    void wake() const;
    void clear() const;

private:
    FileDescriptor m_fd;
};

/// Runs jobs one after the other on a thread of its own, so that the event loop never waits for a disk.
class Worker
{
public:
    using Job = std::function<HttpReply()>;

    /// \param maxWaiting  jobs that may wait
    Worker(std::size_t maxWaiting, const WakeUp& wakeUp);
    /// Waits for the job that is running, and drops the others.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// \return the answer that the job returns; null if too many jobs are waiting
    std::unique_ptr<HttpLater> run(Job job);

private:
    struct Task;
    class Result;

    void work();

    const std::size_t m_maxWaiting;
    const WakeUp& m_wakeUp;
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<std::shared_ptr<Task>> m_tasks; ///< guarded by m_lock
    bool m_ending = false;                     ///< guarded by m_lock
    std::thread m_thread;
};

} // namespace TelvaneTool
