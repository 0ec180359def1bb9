#include "telvane-web/http/Worker.h"

#include <atomic>
#include <sys/eventfd.h>
#include <unistd.h>

namespace TelvaneTool
{

WakeUp::WakeUp() : m_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void WakeUp::wake() const
{
    const std::uint64_t one = 1;
    // A full counter wakes as well.
    [[maybe_unused]] const ssize_t written = write(m_fd.get(), &one, sizeof one);
}

void WakeUp::clear() const
{
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t length = read(m_fd.get(), &count, sizeof count);
}

struct Worker::Task
{
    Job job;
    HttpReply reply;
    std::atomic<bool> done = false;
    std::atomic<bool> unwanted = false;
};

class Worker::Result : public HttpLater
{
public:
    explicit Result(std::shared_ptr<Task> task) : m_task(std::move(task)) {}
    Result(const Result&) = delete;
    Result& operator=(const Result&) = delete;
    ~Result() override { m_task->unwanted = true; }

    bool isReady() const override { return m_task->done; }
    std::optional<HttpReply> take() override { return std::move(m_task->reply); }

private:
    std::shared_ptr<Task> m_task;
};

Worker::Worker(std::size_t maxWaiting, const WakeUp& wakeUp)
    : m_maxWaiting(maxWaiting), m_wakeUp(wakeUp), m_thread([this] { work(); })
{}

Worker::~Worker()
{
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_ending = true;
    }
    m_changed.notify_one();
    m_thread.join();
}

std::unique_ptr<HttpLater> Worker::run(Job job)
{
    auto task = std::make_shared<Task>();
    task->job = std::move(job);
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_tasks.size() >= m_maxWaiting) {
            return nullptr;
        }
        m_tasks.push_back(task);
    }
    m_changed.notify_one();
    return std::make_unique<Result>(std::move(task));
}

void Worker::work()
{
    for (;;) {
        std::shared_ptr<Task> task;
        {
            std::unique_lock<std::mutex> lock(m_lock);
            m_changed.wait(lock, [this] { return m_ending || !m_tasks.empty(); });
            if (m_ending) {
                return;
            }
            task = m_tasks.front();
            m_tasks.pop_front();
        }
        if (!task->unwanted) {
            task->reply = task->job();
        }
        task->job = nullptr; // what it holds is not needed until the answer is taken
        task->done = true;
        m_wakeUp.wake();
    }
}

} // namespace TelvaneTool
