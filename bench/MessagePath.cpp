// Sends messages one by one from a publisher through a server to a subscriber, all in one process, for a counter
// of instructions to look at. Uses nothing but the public interface, so that it can be built against any version
// of the library.
//
//   MessagePath COUNT

#include <Telvane/Telvane.h>

#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <string>

namespace
{

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

int run(int count, const std::string& path)
{
    Telvane::EventServer server;
    Telvane::EventClient publisher;
    Telvane::EventClient subscriber;
    Turnstile arrived;
    const auto receive = [&arrived](void*, Telvane::TelvaneDataTypeBase*, int, void*) {
        arrived.open();
    };
    // The server answers the first subscription on its thread for the publisher, which therefore starts before the
    // subscriber's thread: counters that know only numbers of threads rely on the order.
    if (server.Start(path) != 0 || publisher.Connect(path) != 0 ||
        publisher.Subscribe("Unused", receive, Telvane::WeldTraceData(), nullptr) != 0 ||
        subscriber.Connect(path) != 0 ||
        subscriber.Subscribe("WeldTraceData", receive, Telvane::WeldTraceData(), nullptr) != 0) {
        std::cerr << "the bus does not start\n";
        return 1;
    }
    Telvane::WeldTraceData sample;
    for (int i = 0; i < count; ++i) {
        sample.sequence = i;
        sample.data.amps = 176.0 + (i % 97) / 8.0;
        sample.data.volts = 25.0 + (i % 31) / 10.0;
        if (publisher.Publish("WeldTraceData", sample) != 0) {
            std::cerr << "a record could not be published\n";
            return 1;
        }
        arrived.pass();
    }
    publisher.Disconnect();
    subscriber.Disconnect();
    return server.Stop() == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    std::string directory = (std::filesystem::temp_directory_path() / "telvane-path-XXXXXX").string();
    if (argc != 2 || mkdtemp(directory.data()) == nullptr) {
        std::cerr << "usage: MessagePath COUNT\n";
        return 2;
    }
    const int result = run(std::atoi(argv[1]), directory + "/bus");
    std::filesystem::remove_all(directory);
    return result;
}
