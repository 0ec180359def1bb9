// The effect of a misbehaving client on two others. Latencies are reported but not checked, because they
// depend on the machine. Delivery and the server's memory are checked.

#include "ProcessPool.h"
#include "Scenarios.h"
#include "WorkerRoles.h"

#include <Telvane/EventClient.h>
#include <Telvane/EventServer.h>
#include <Telvane/RequestType.h>
#include <Telvane/WeldRecords.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Soak
{

using namespace Telvane;

namespace
{

/// A socket that can send anything.
class Raw
{
public:
    explicit Raw(const std::string& path) : m_socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw Failure("an attacker cannot connect");
        }
    }
    Raw(const Raw&) = delete;
    Raw& operator=(const Raw&) = delete;
    ~Raw() { ::close(m_socket); }

    void send(const std::string& packet) const
    {
        ::send(m_socket, packet.data(), packet.size(), MSG_EOR | MSG_NOSIGNAL);
    }
    void receive() const
    {
        char buffer[16384];
        ::recv(m_socket, buffer, sizeof buffer, 0);
    }

private:
    int m_socket;
};

std::string subscription(const std::string& channel)
{
    return R"({"header":".subscribe","payload":{"channel":")" + channel + R"("}})";
}

std::string deepPublication()
{
    std::string text = R"({"header":"deep","payload":{)";
    for (int i = 1; i < 990; ++i) {
        text += R"("":{)";
    }
    text += R"("":0)";
    for (int i = 1; i < 2200; ++i) {
        text += R"(,"":0)";
    }
    return text + std::string(991, '}');
}

using Attack = void (*)(const RoleContext& context);

#ifdef TELVANE_SOAK_SANITIZED
constexpr std::size_t kAllowedKiB = std::size_t{2048} * 1024; // a sanitizer keeps what has been freed
#else
constexpr std::size_t kAllowedKiB =
    std::size_t{128} * 1024; // the C library keeps 40 MiB of ended threads' stacks
#endif
constexpr double kAllowedKiBOfAName = 0.5; // which a server never forgets

constexpr const char* kManyNames = "subscribes to name after name";

void sendInvalid(const RoleContext& context)
{
    const Raw raw(context.socketPath);
    std::mt19937 random(1);
    std::string packet(100, ' ');
    while (!context.over()) {
        std::generate(packet.begin(), packet.end(), [&] { return static_cast<char>(random()); });
        raw.send(packet);
        ++context.slot.operations;
    }
}

void sendLargest(const RoleContext& context)
{
    const Raw raw(context.socketPath);
    const std::string packet = R"({"header":"nobody","payload":")" + std::string(16000, 'x') + "\"}";
    while (!context.over()) {
        raw.send(packet);
        ++context.slot.operations;
    }
}

void nestDeeply(const RoleContext& context)
{
    const Raw raw(context.socketPath);
    raw.send(subscription("deep"));
    raw.receive();
    const std::string packet = deepPublication();
    while (!context.over()) {
        raw.send(packet);
        raw.receive();
        ++context.slot.operations;
    }
}

void neverRead(const RoleContext& context)
{
    const Raw raw(context.socketPath);
    raw.send(subscription("wellBehaved"));
    while (!context.over()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ++context.slot.operations;
    }
}

void subscribeToMany(const RoleContext& context)
{
    const Raw raw(context.socketPath);
    const std::size_t names = std::stoul(context.arguments.at(1));
    for (std::size_t number = 0; !context.over(); ++number) {
        raw.send(subscription(channelName("name", number % names)));
        raw.receive();
        context.slot.last = std::max<std::uint64_t>(context.slot.last, number % names + 1);
        ++context.slot.operations;
    }
}

void reconnectQuickly(const RoleContext& context)
{
    while (!context.over()) {
        const Raw raw(context.socketPath);
        raw.send(subscription("wellBehaved"));
        ++context.slot.operations;
    }
}

const std::map<std::string, Attack>& attacks()
{
    static const std::map<std::string, Attack> all = {
        {"sends rubbish", &sendInvalid},        {"floods with 16 KiB packets", &sendLargest},
        {"nests a thousand deep", &nestDeeply}, {"subscribes and never reads", &neverRead},
        {kManyNames, &subscribeToMany},         {"comes and goes", &reconnectQuickly},
    };
    return all;
}

/// Two clients in this process: one publishes, and waits until the other receives, one message at a time.
class HonestPair
{
public:
    explicit HonestPair(const std::string& path)
    {
        const auto wake = [this](void*, TelvaneDataTypeBase*, int, void*) {
            const std::lock_guard<std::mutex> guard(m_lock);
            m_arrived = true;
            m_arrival.notify_one();
        };
        const bool connected = m_publisher.Connect(path) == 0 && m_subscriber.Connect(path) == 0;
        int result = -ETIMEDOUT;
        while (connected &&
               result == -ETIMEDOUT) { // a busy machine may stall for longer than the client waits
            result = m_subscriber.Subscribe("wellBehaved", wake, WeldTraceData(), nullptr);
        }
        if (result != 0) {
            throw Failure("the wellBehaved clients cannot join");
        }
    }

    /// \return the times from publication to callback, in microseconds, sorted
    std::vector<double> exchange(std::chrono::milliseconds duration)
    {
        std::vector<double> times;
        WeldTraceData record;
        const auto end = std::chrono::steady_clock::now() + duration;
        do { // once at least, however busy the machine is
            const auto begin = std::chrono::steady_clock::now();
            if (m_publisher.Publish("wellBehaved", record) != 0) {
                throw Failure("an wellBehaved publication failed");
            }
            std::unique_lock<std::mutex> guard(m_lock);
            if (!m_arrival.wait_for(guard, kTimeout, [this] { return m_arrived; })) {
                throw Failure("an wellBehaved publication did not arrive");
            }
            m_arrived = false;
            times.push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count());
        } while (std::chrono::steady_clock::now() < end);
        std::sort(times.begin(), times.end());
        return times;
    }

private:
    std::mutex m_lock;
    std::condition_variable m_arrival;
    bool m_arrived = false;
    EventClient m_publisher;
    EventClient m_subscriber;
};

double at(const std::vector<double>& sorted, double part)
{
    return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))];
}

} // namespace

/// Arguments: which attack; how many names it may use.
int attack(const RoleContext& context)
{
    attacks().at(context.arguments.at(0))(context);
    return 0;
}

void compareNeighbours(const Plan& plan)
{
    ProcessPool pool;
    const std::size_t server = pool.start("server");
    pool.awaitOperation(server);
    HonestPair pair(pool.socketPath());
    pair.exchange(plan.measure / 10);
    const std::vector<double> alone = pair.exchange(plan.measure);
    report("neighbours: %-29s %8.0f us median, %8.0f us of 99 %%, %8.0f us longest, %7zu KiB resident\n",
           "none", at(alone, 0.5), at(alone, 0.99), alone.back(),
           footprintOf(pool.process(server)).residentKiB);
    for (const auto& [name, function] : attacks()) {
        const std::size_t attacker = pool.start("attacker", {name, std::to_string(plan.names)});
        pool.awaitOperation(attacker);
        const std::uint64_t before = pool.slot(attacker).operations;
        const std::vector<double> beside = pair.exchange(plan.measure);
        const double rate = static_cast<double>(pool.slot(attacker).operations - before) /
                            std::chrono::duration<double>(plan.measure).count();
        while (name == kManyNames && pool.slot(attacker).last < static_cast<std::uint64_t>(plan.names)) {
            pair.exchange(plan.measure / 10); // until it has them all
            pool.inspect();
        }
        const std::size_t resident = footprintOf(pool.process(server)).residentKiB;
        report("neighbours: %-29s %8.0f us median, %8.0f us of 99 %%, %8.0f us longest, %7zu KiB resident; "
               "factor %.1f of the median, %.0f attacks/s\n",
               name.c_str(), at(beside, 0.5), at(beside, 0.99), beside.back(), resident,
               at(beside, 0.5) / at(alone, 0.5), rate);
        if (static_cast<double>(resident) >
            static_cast<double>(kAllowedKiB) + kAllowedKiBOfAName * static_cast<double>(plan.names)) {
            throw Failure("the server grows beyond its bound");
        }
        pool.stop(attacker);
        pool.inspect();
    }
    pool.finish();
}

} // namespace Soak
