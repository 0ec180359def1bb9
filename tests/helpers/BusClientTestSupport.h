#pragma once

// What tests of the class Bus share: a bus that is connected to a server, and what it reports.

#include <Telvane/Bus.h>
#include <Telvane/ModuleRecords.h>
#include <Telvane/WeldRecords.h>

#include "helpers/BusTestSupport.h"

#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>

namespace Telvane::Testing
{

using namespace std::chrono_literals;

/// \return options of a bus that comes back quickly
inline BusOptions impatient(Run run = Run::Queued)
{
    BusOptions options;
    options.firstPause = 10ms;
    options.longestPause = 50ms;
    options.run = run;
    return options;
}

inline LogData logOf(const std::string& text)
{
    LogData record;
    record.log = text;
    return record;
}

/// \return the next message of a queue, after any changes of the connection
inline LogData nextMessage(Queue<LogData>& queue)
{
    for (;;) {
        auto item = queue.next(kTimeout);
        if (item) {
            return *item;
        }
        if (item.timedOut() || item.ended()) {
            throw std::runtime_error("the message that the test waited for did not come");
        }
    }
}

/// Calls dispatch() on a thread of its own, as an event loop of an application would.
class Dispatcher
{
public:
    explicit Dispatcher(Bus& bus) : m_bus(bus), m_thread([this] { run(); }) {}
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    ~Dispatcher()
    {
        ::eventfd_write(m_stop.get(), 1);
        m_thread.join();
    }

private:
    void run()
    {
        pollfd watched[] = {{m_bus.fd(), POLLIN, 0}, {m_stop.get(), POLLIN, 0}};
        while (::poll(watched, 2, -1) >= 0 && watched[1].revents == 0) {
            m_bus.dispatch();
        }
    }

    Bus& m_bus;
    FileDescriptor m_stop{::eventfd(0, EFD_CLOEXEC)};
    std::thread m_thread;
};

/// A server that can be stopped and started again, and a bus on it.
class ServedBus : public ::testing::Test
{
protected:
    /// Makes the bus and waits until it is connected.
    Bus& connect(const BusOptions& options = impatient())
    {
        bus.emplace(server->path, options);
        EXPECT_EQ(bus->waitConnected(kTimeout), std::error_code());
        return *bus;
    }

    void stopServer() { EXPECT_EQ(server->server.Stop(), 0); }
    void startServer() { server->start(); }
    void restartServer()
    {
        const std::uint64_t before = bus->statistics().connections;
        stopServer();
        startServer();
        EXPECT_TRUE(eventually([&] {
            return bus->statistics().connections > before && bus->state() == ConnectionState::Connected;
        }));
    }

    std::optional<RunningServer> server{std::in_place};
    std::optional<Bus> bus;
};

/// \return the parameter's name, as a part of the test's
inline std::string nameOfPlace(const ::testing::TestParamInfo<Run>& parameter)
{
    switch (parameter.param) {
    case Run::Direct:
        return "Direct";
    case Run::Dispatch:
        return "Dispatched";
    default:
        return "Queued";
    }
}

/// A bus whose callbacks run where the test's parameter says.
class BusInEachPlace : public ServedBus, public ::testing::WithParamInterface<Run>
{
protected:
    BusInEachPlace()
    {
        connect(impatient(GetParam()));
        if (GetParam() == Run::Dispatch) {
            dispatcher.emplace(*bus);
        }
    }
    ~BusInEachPlace() override { dispatcher.reset(); }

    void publish(const std::string& text) { EXPECT_EQ(bus->publish(logOf(text)).error, std::error_code()); }

    std::optional<Dispatcher> dispatcher;
};

} // namespace Telvane::Testing
