// Processes that are killed, stopped or restarted while the others continue.

#include "ProcessPool.h"
#include "Scenarios.h"
#include "WorkerRoles.h"

#include <Telvane/EventServer.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <random>
#include <unistd.h>

namespace Soak
{

namespace
{

double millisecondsSince(std::chrono::steady_clock::time_point begin)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

double percentile(std::vector<double>& values, double part)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0
                          : values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

/// Hides the lines that report missed relays, one for each.
class StderrRedirect
{
public:
    StderrRedirect() : m_original(::dup(STDERR_FILENO))
    {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(nowhere, STDERR_FILENO);
        ::close(nowhere);
    }
    StderrRedirect(const StderrRedirect&) = delete;
    StderrRedirect& operator=(const StderrRedirect&) = delete;
    ~StderrRedirect()
    {
        ::dup2(m_original, STDERR_FILENO);
        ::close(m_original);
    }

private:
    int m_original;
};

} // namespace

void killProcesses(const Plan& plan)
{
    ProcessPool pool;
    std::mt19937 random(plan.seed);
    const std::size_t server = pool.start("server");
    const std::vector<std::size_t> all = {server, pool.start("publisher", {"1000"}), pool.start("subscriber"),
                                          pool.start("requester"), pool.start("responder")};
    const std::size_t requester = all[3];
    const auto everybodyCarriesOn = [&] {
        for (const std::size_t index : all) {
            pool.awaitOperation(index);
        }
        const std::uint64_t answers = pool.slot(requester).answered;
        pool.await("requests are answered", [&] { return pool.slot(requester).answered > answers; });
    };
    everybodyCarriesOn();

    std::vector<int> killed(all.size());
    std::vector<double> recoveries;
    int restarts = 0;
    for (int kills = 0; kills < plan.kills;) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        pool.inspect();
        // Mostly one, at times two who may need each other, and now and then a server that starts again.
        std::vector<std::size_t> victims = all;
        std::shuffle(victims.begin(), victims.end(), random);
        victims.resize(random() % 4 == 0 ? 2 : 1);
        const bool serverDies = std::find(victims.begin(), victims.end(), server) != victims.end();
        if (!serverDies && random() % 8 == 0) {
            pool.signal(server, SIGHUP);
            ++restarts;
        }
        for (const std::size_t victim : victims) {
            pool.kill(victim);
            ++killed[victim];
            ++kills;
        }
        // Before they are back, those who do not need them carry on.
        if (!serverDies) {
            for (const std::size_t index : all) {
                const bool needsNobody = pool.role(index) == "publisher" || pool.role(index) == "requester";
                if (needsNobody && std::find(victims.begin(), victims.end(), index) == victims.end()) {
                    pool.awaitOperation(index);
                }
            }
        }
        const auto begin = std::chrono::steady_clock::now();
        for (const std::size_t victim : victims) {
            pool.restart(victim);
        }
        everybodyCarriesOn();
        recoveries.push_back(millisecondsSince(begin));
    }
    pool.finish();

    report("kill: %d processes killed (seed %u):", plan.kills, plan.seed);
    for (const std::size_t index : all) {
        report(" %s %d", pool.role(index).c_str(), killed[index]);
    }
    report("; server restarted %d times\n", restarts);
    report("kill: %llu published, %llu received, %llu requests, %llu answered; all carried on within %.0f ms "
           "(median), %.0f ms (longest)\n",
           static_cast<unsigned long long>(pool.slot(1).operations),
           static_cast<unsigned long long>(pool.slot(2).operations),
           static_cast<unsigned long long>(pool.slot(3).operations),
           static_cast<unsigned long long>(pool.slot(3).answered), percentile(recoveries, 0.5),
           percentile(recoveries, 1.0));
}

void pauseSubscriber(const Plan& plan)
{
    ProcessPool pool;
    const StderrRedirect aside;
    static Telvane::EventServer server; // which a failure leaves running until it has been told
    if (server.Start(pool.socketPath()) != 0) {
        throw Failure("the server does not start");
    }
    const std::size_t still = pool.start("subscriber");
    const std::vector<std::size_t> others = {pool.start("subscriber"), pool.start("subscriber")};
    pool.await("all have subscribed", [&] {
        return pool.slot(still).joined == 1 && std::all_of(others.begin(), others.end(), [&](std::size_t i) {
                   return pool.slot(i).joined == 1;
               });
    });
    const std::size_t publisher = pool.start("publisher", {"0", "paced"});

    // No faster than the others read: what they receive must then be everything.
    const auto publish = [&](std::uint64_t count) {
        constexpr std::uint64_t kAtATime = 50;
        for (const std::uint64_t end = pool.board().allowed + count; pool.board().allowed < end;) {
            pool.board().allowed = std::min(end, pool.board().allowed + kAtATime);
            pool.await("the others receive everything", [&] {
                return std::all_of(others.begin(), others.end(), [&](std::size_t i) {
                    return pool.slot(i).operations == pool.board().allowed;
                });
            });
        }
    };
    publish(100);
    pool.await("it receives as well", [&] { return pool.slot(still).operations == 100; });
    pool.signal(still, SIGSTOP);
    publish(plan.published);
    pool.signal(still, SIGCONT);

    std::uint64_t missed = 0;
    int lastError = 0;
    for (const Telvane::EventServerClientStatus& client : server.Clients()) {
        for (const Telvane::EventServerSubscriptionStatus& subscription : client.subscriptions) {
            if (client.process == pool.process(still)) {
                missed = subscription.missed;
                lastError = subscription.lastError;
            } else if (subscription.missed != 0) {
                throw Failure("another subscriber missed " + std::to_string(subscription.missed));
            }
        }
    }
    pool.await("what it did not miss reaches it",
               [&] { return pool.slot(still).operations + missed == 100 + plan.published; });
    publish(100);
    pool.await("it receives everything again",
               [&] { return pool.slot(still).operations + missed == 200 + plan.published; });
    pool.finish();
    if (server.Stop() != 0) {
        throw Failure("the server does not stop");
    }
    report(
        "stop: %llu published while one subscriber stood still: two others received all, it received %llu, "
        "the server counts %llu missed (error %d)\n",
        static_cast<unsigned long long>(plan.published),
        static_cast<unsigned long long>(plan.published - missed), static_cast<unsigned long long>(missed),
        lastError);
    static_cast<void>(publisher);
}

} // namespace Soak
