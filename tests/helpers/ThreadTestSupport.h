#pragma once

// How the threads of a test wait for each other: for events, and never for long.

#include "helpers/ProcessTestSupport.h"

#include <condition_variable>
#include <deque>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <thread>
#include <utility>
#include <vector>

namespace Telvane::Testing
{

/// \return true when the thread \p id of this process is blocked or has ended
inline bool isAsleep(pid_t id)
{
    std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
    const std::string line((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::size_t nameEnd = line.rfind(") ");
    return nameEnd == std::string::npos || line[nameEnd + 2] == 'S';
}

/// Hands values from the thread where something happens to the test that waits for it.
template <class Value>
class Mailbox
{
public:
    void put(Value value)
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_values.push_back(std::move(value));
        m_arrived.notify_all();
    }

    /// \return the oldest value not yet taken, waited for if need be
    Value take()
    {
        std::unique_lock<std::mutex> hold(m_lock);
        if (!m_arrived.wait_for(hold, kTimeout, [this] { return !m_values.empty(); })) {
            throw std::runtime_error("what the test waited for did not happen");
        }
        Value value = std::move(m_values.front());
        m_values.pop_front();
        return value;
    }

    bool empty() const
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        return m_values.empty();
    }

private:
    mutable std::mutex m_lock;
    std::condition_variable m_arrived;
    std::deque<Value> m_values;
};

/// Opens once, for all who wait.
class Gate
{
public:
    void open()
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_open = true;
        m_opened.notify_all();
    }
    /// \return false when it stayed shut
    bool pass()
    {
        std::unique_lock<std::mutex> hold(m_lock);
        return m_opened.wait_for(hold, kTimeout, [this] { return m_open; });
    }

private:
    std::mutex m_lock;
    std::condition_variable m_opened;
    bool m_open = false;
};

/// Opens a gate at the end of a test, so that whoever still waits there goes on, whatever failed.
class GateOpener
{
public:
    explicit GateOpener(Gate& gate) : m_gate(gate) {}
    GateOpener(const GateOpener&) = delete;
    GateOpener& operator=(const GateOpener&) = delete;
    ~GateOpener() { m_gate.open(); }

private:
    Gate& m_gate;
};

/// Threads that are waited for at the end of a test. To be declared before what makes them end.
class JoiningThreads
{
public:
    JoiningThreads() = default;
    JoiningThreads(const JoiningThreads&) = delete;
    JoiningThreads& operator=(const JoiningThreads&) = delete;
    ~JoiningThreads() { join(); }

    template <class Action>
    void start(Action action)
    {
        m_threads.emplace_back(std::move(action));
    }
    void join()
    {
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }

private:
    std::vector<std::thread> m_threads;
};

} // namespace Telvane::Testing
