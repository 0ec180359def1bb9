// Many clients and channels, with connects and disconnects, on a server whose resources are measured.

#include "ProcessPool.h"
#include "Scenarios.h"
#include "WorkerRoles.h"

#include <Telvane/EventClient.h>
#include <Telvane/RequestType.h>
#include <Telvane/WeldRecords.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <random>
#include <sys/resource.h>

namespace Soak
{

using namespace Telvane;

namespace
{

constexpr std::size_t kClientsOfAProcess = 100;

#ifdef TELVANE_SOAK_SANITIZED
constexpr std::size_t kAllowedGrowthKiB = std::size_t{512} * 1024; // a sanitizer keeps what has been freed
#else
constexpr std::size_t kAllowedGrowthKiB = std::size_t{4} * 1024;
#endif

void ignore(void* /*client*/, TelvaneDataTypeBase* /*record*/, int /*sequence*/, void* /*user*/) {}

} // namespace

/// Arguments: number of the first client, how many, how many of all share a channel.
int crowd(const RoleContext& context)
{
    const std::size_t first = std::stoul(context.arguments.at(0));
    const std::size_t count = std::stoul(context.arguments.at(1));
    const std::size_t sharedSubscribers = std::stoul(context.arguments.at(2));
    std::vector<std::unique_ptr<EventClient>> clients;
    const auto receive = [&](void*, TelvaneDataTypeBase*, int, void*) {
        ++context.slot.operations;
    };
    for (std::size_t number = first; number < first + count; ++number) {
        auto client = std::make_unique<EventClient>();
        const auto joins = [&] {
            int result = client->Connect(context.socketPath);
            if (result == 0) {
                result = client->Subscribe(channelName("own", number), receive, WeldTraceData(), nullptr);
            }
            if (result == 0 && number < sharedSubscribers) {
                result = client->Subscribe("shared", receive, WeldTraceData(), nullptr);
            }
            return result;
        };
        int result = joins();
        while (result == -ETIMEDOUT && !context.over()) { // a busy machine, not a violation
            client->Disconnect();
            result = joins();
        }
        if (result != 0) {
            context.slot.reportViolation("client " + std::to_string(number) +
                                         " could not join: " + std::to_string(result));
            return 1;
        }
        clients.push_back(std::move(client));
        ++context.slot.joined;
    }
    WeldTraceData record;
    for (std::size_t turn = 0; !context.over(); ++turn) {
        EventClient& client = *clients[turn % count];
        if (client.Publish(channelName("own", first + turn % count), record) != 0 ||
            (turn % count == 0 && client.Publish("shared", record) != 0)) {
            context.slot.reportViolation("a publication failed");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return 0;
}

/// Arguments: how many come and go at a time.
int comeAndGo(const RoleContext& context)
{
    std::vector<std::thread> threads(std::stoul(context.arguments.at(0)));
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i] = std::thread([&context, i] {
            std::mt19937 random(static_cast<unsigned>(i));
            EventClient client;
            WeldTraceData record;
            while (!context.over()) {
                if (client.Connect(context.socketPath) != 0) {
                    context.slot.reportViolation("a client could not connect");
                    return;
                }
                int result = 0;
                for (int operations = static_cast<int>(random() % 6); operations > 0 && result == 0;
                     --operations) {
                    const std::string channel = channelName("visited", random() % 100);
                    result = random() % 2 == 0 ? client.Subscribe(channel, &ignore, record, nullptr)
                                               : client.Publish(channel, record);
                }
                if (result != 0 && result != -ETIMEDOUT) {
                    context.slot.reportViolation("an operation returned " + std::to_string(result));
                }
                client.Disconnect();
                ++context.slot.operations;
                std::this_thread::sleep_for(std::chrono::milliseconds(random() % 100));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}

void loadServer(const Plan& plan)
{
    ProcessPool pool;
    const std::size_t server = pool.start("server");
    pool.awaitOperation(server);
    const auto footprint = [&] {
        return footprintOf(pool.process(server));
    };
    const Footprint empty = footprint();
    std::vector<std::size_t> crowds;
    for (std::size_t first = 0; first < plan.clients; first += kClientsOfAProcess) {
        crowds.push_back(
            pool.start("crowd", {std::to_string(first),
                                 std::to_string(std::min(kClientsOfAProcess, plan.clients - first)),
                                 std::to_string(plan.sharedSubscribers)}));
    }
    const auto sum = [&](const std::vector<std::size_t>& slots, std::atomic<std::uint64_t> Slot::*counter) {
        std::uint64_t total = 0;
        for (const std::size_t slot : slots) {
            total += pool.slot(slot).*counter;
        }
        return total;
    };
    pool.await("all clients have joined", [&] { return sum(crowds, &Slot::joined) == plan.clients; });
    Footprint full;
    pool.await("clients cost the server one descriptor and one thread each", [&] {
        full = footprint();
        return full.descriptors == empty.descriptors + plan.clients &&
               full.threads == empty.threads + plan.clients;
    });

    // Let memory grow for a tenth of the time, until everything has been used once.
    const std::size_t visitors = pool.start("visitors", {std::to_string(plan.visitors)});
    const auto begin = std::chrono::steady_clock::now();
    const std::chrono::milliseconds duration = plan.load;
    const auto pass = [&](std::chrono::milliseconds until) {
        while (std::chrono::steady_clock::now() < begin + until) {
            pool.inspect();
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    };
    pass(duration / 10);
    const Footprint warm = footprint();
    const std::uint64_t receivedBefore = sum(crowds, &Slot::operations);
    Footprint most = warm;
    for (int tenth = 2; tenth <= 10; ++tenth) {
        pass(duration * tenth / 10);
        const Footprint now = footprint();
        most.descriptors = std::max(most.descriptors, now.descriptors);
        most.threads = std::max(most.threads, now.threads);
        most.residentKiB = std::max(most.residentKiB, now.residentKiB);
    }
    const std::uint64_t received = sum(crowds, &Slot::operations) - receivedBefore;
    const std::uint64_t visits = pool.slot(visitors).operations;
    const double seconds = std::chrono::duration<double>(duration).count() * 0.9;
    report("load: %zu clients, %zu channels, %zu subscribers on one, %zu coming and going for %.0f s: %.0f "
           "relays/s, "
           "%llu visits\n",
           plan.clients, plan.clients + 101, plan.sharedSubscribers, plan.visitors, seconds / 0.9,
           static_cast<double>(received) / seconds, static_cast<unsigned long long>(visits));
    const auto show = [](const char* when, const Footprint& at) {
        report("load: %-18s %5zu descriptors, %5zu threads, %7zu KiB resident\n", when, at.descriptors,
               at.threads, at.residentKiB);
    };
    show("empty", empty);
    show("all joined", full);
    show("warm", warm);
    show("most", most);
    // Count descriptors after the visitors have disconnected: a busy server may lag before.
    if (most.residentKiB > warm.residentKiB + kAllowedGrowthKiB) {
        throw Failure("the server grows under load");
    }
    pool.stop(visitors);
    pool.await("who has gone costs nothing", [&] {
        const Footprint now = footprint();
        return now.descriptors == full.descriptors && now.threads == full.threads;
    });
    show("visitors gone", footprint());
    for (const std::size_t index : crowds) {
        pool.stop(index);
    }
    pool.await("all descriptors and threads are back", [&] {
        const Footprint now = footprint();
        return now.descriptors == empty.descriptors && now.threads == empty.threads;
    });
    show("all gone", footprint());
    pool.finish();
}

} // namespace Soak
