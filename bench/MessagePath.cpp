// Sends messages one by one from a publisher through a server to a subscriber, all in one process, for a counter
// of instructions to look at. Uses nothing but the public interface, so that it can be built against any version
// of the library.
//
//   MessagePath COUNT       with EventClient
//   MessagePath COUNT bus   with Bus and direct callbacks

#include <Telvane/Telvane.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <string>

namespace
{

const std::string kChannel = "WeldTraceData";
constexpr auto kConnectTime = std::chrono::seconds(30);

/// Lets the publisher wait until the subscriber has got a record.
class Turnstile
{
public:
    void open()
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_open = true;
        m_opened.notify_one();
    }
    void pass()
    {
        std::unique_lock<std::mutex> guard(m_lock);
        m_opened.wait(guard, [this] { return m_open; });
        m_open = false;
    }

private:
    std::mutex m_lock;
    std::condition_variable m_opened;
    bool m_open = false;
};

/// Calls \p publish with one sample after the other, each when the previous one has arrived.
template <class Publish>
bool publishAll(int count, Turnstile& arrived, Publish publish)
{
    Telvane::WeldTraceData sample;
    for (int i = 0; i < count; ++i) {
        sample.sequence = i;
        sample.data.amps = 176.0 + (i % 97) / 8.0;
        sample.data.volts = 25.0 + (i % 31) / 10.0;
        if (!publish(sample)) {
            std::cerr << "a record could not be published\n";
            return false;
        }
        arrived.pass();
    }
    return true;
}

bool runClients(int count, const std::string& path)
{
    Telvane::EventClient publisher;
    Telvane::EventClient subscriber;
    Turnstile arrived;
    const auto receive = [&arrived](void*, Telvane::TelvaneDataTypeBase*, int, void*) {
        arrived.open();
    };
    // The server answers the first subscription on its thread for the publisher, which therefore starts before the
    // subscriber's thread: counters that know only numbers of threads rely on the order.
    if (publisher.Connect(path) != 0 ||
        publisher.Subscribe("Unused", receive, Telvane::WeldTraceData(), nullptr) != 0 ||
        subscriber.Connect(path) != 0 ||
        subscriber.Subscribe(kChannel, receive, Telvane::WeldTraceData(), nullptr) != 0) {
        std::cerr << "the clients cannot connect\n";
        return false;
    }
    const bool published = publishAll(count, arrived, [&](Telvane::WeldTraceData& sample) {
        return publisher.Publish(kChannel, sample) == 0;
    });
    publisher.Disconnect();
    subscriber.Disconnect();
    return published;
}

bool runBuses(int count, const std::string& path)
{
    Turnstile arrived;
    Telvane::Bus publisher(path);
    const bool publisherConnected = !publisher.waitConnected(kConnectTime);
    Telvane::Bus subscriber(path);
    const auto subscription = subscriber.subscribe<Telvane::WeldTraceData>(
        kChannel, [&arrived] { arrived.open(); }, Telvane::Run::Direct);
    if (!publisherConnected || subscription.waitActive(kConnectTime)) {
        std::cerr << "the buses cannot connect\n";
        return false;
    }
    return publishAll(count, arrived, [&](const Telvane::WeldTraceData& sample) {
        return !publisher.publish(kChannel, sample).error;
    });
}

int run(int count, bool withBus, const std::string& path)
{
    Telvane::EventServer server;
    if (server.Start(path) != 0) {
        std::cerr << "the server cannot start\n";
        return 1;
    }
    const bool done = withBus ? runBuses(count, path) : runClients(count, path);
    return server.Stop() == 0 && done ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    std::string directory = (std::filesystem::temp_directory_path() / "telvane-path-XXXXXX").string();
    const bool withBus = argc == 3 && std::string(argv[2]) == "bus";
    if ((argc != 2 && !withBus) || mkdtemp(directory.data()) == nullptr) {
        std::cerr << "usage: MessagePath COUNT [bus]\n";
        return 2;
    }
    const int result = run(std::atoi(argv[1]), withBus, directory + "/bus");
    std::filesystem::remove_all(directory);
    return result;
}
