// A bus whose server goes away and comes back again and again, under load: nothing hangs, every request ends
// in time, and within one connection nothing is missing. And sixteen threads that do everything at random.

#include "helpers/BusClientTestSupport.h"

#include <random>

namespace Telvane::Testing
{

namespace
{

constexpr int kRestarts = 40;

class RestartsUnderBus : public BusInEachPlace
{};

INSTANTIATE_TEST_SUITE_P(Everywhere, RestartsUnderBus,
                         ::testing::Values(Run::Queued, Run::Direct, Run::Dispatch), nameOfPlace);

/// What one subscription has seen of a publisher that counts.
struct Seen
{
    std::mutex lock;
    std::uint64_t epoch = 0;
    long last = -1;
    long received = 0;
    long missing = 0; ///< within one epoch
};

TEST_P(RestartsUnderBus, LoseNothingWithinAConnectionAndEndEveryWait)
{
    const StreamCapture relayErrors(STDERR_FILENO);
    Seen seen;
    auto subscription = bus->subscribe<LogData>(
        [&seen](const LogData& record, const Delivery& delivery) {
            const long number = std::stol(record.log);
            const std::lock_guard<std::mutex> hold(seen.lock);
            if (delivery.epoch == seen.epoch) {
                seen.missing += number - seen.last - 1;
            }
            seen.epoch = delivery.epoch;
            seen.last = number;
            ++seen.received;
        },
        Run::Default, Limit{100'000});
    auto responder = bus->respond<LogData, LogData>("Echo", [](const LogData& question) { return question; });
    Bus other(server->path, impatient());
    std::atomic<bool> stop{false};
    std::atomic<long> answers{0};
    std::atomic<long> wrong{0};
    JoiningThreads threads;
    threads.start([&] {
        for (long number = 0; !stop;) {
            if (!other.publish(logOf(std::to_string(number)), kTimeout).error) {
                ++number;
            }
            std::this_thread::sleep_for(200us); // never more than the server's socket holds
        }
    });
    for (int i = 0; i < 2; ++i) {
        threads.start([&, i] {
            for (long number = 0; !stop; ++number) {
                const LogData question = logOf(std::to_string(i) + "-" + std::to_string(number));
                LogData answer;
                if (!other.request("Echo", question, answer, 100ms)) {
                    ++answers;
                    wrong += answer.log == question.log ? 0 : 1;
                } else {
                    std::this_thread::sleep_for(1ms);
                }
            }
        });
    }
    for (int i = 0; i < kRestarts; ++i) {
        const long before = answers;
        EXPECT_TRUE(eventually([&] { return answers > before + 5; }));
        stopServer();
        startServer();
    }
    const long before = answers;
    EXPECT_TRUE(eventually([&] { return answers > before; }));
    stop = true;
    threads.join();
    const std::lock_guard<std::mutex> hold(seen.lock);
    EXPECT_EQ(wrong, 0);
    // If this process gets no processor for a while, the socket fills up. The server reports each message that it drops.
    const std::string lines = relayErrors.text();
    const std::string full = "[-" + std::to_string(EAGAIN) + "]";
    auto lost = static_cast<long>(subscription.statistics().dropped);
    EXPECT_GE(seen.missing, lost);
    for (auto at = lines.find(full); at != std::string::npos; at = lines.find(full, at + 1)) {
        ++lost;
    }
    EXPECT_LE(seen.missing, lost);
    EXPECT_GT(seen.received, 0);
}

/// Sixteen threads on one bus, each with a random schedule of its own.
class ManyThreadsOnBus : public ServedBus
{
protected:
    void act(unsigned seed)
    {
        std::minstd_rand random(seed);
        std::vector<Subscription> subscriptions;
        std::vector<Queue<LogData>> queues;
        std::vector<Responder> responders;
        for (int i = 0; i < 150; ++i) {
            const std::string channel(1, static_cast<char>('A' + random() % 4));
            const auto run = static_cast<Telvane::Run>(1 + random() % 3);
            switch (random() % 10) {
            case 0:
                subscriptions.push_back(bus->subscribe<LogData>(
                    channel, [this](const LogData& record) { calls += static_cast<int>(record.log.size()); },
                    run));
                break;
            case 1:
                queues.push_back(bus->queue<LogData>(channel, Limit{3}));
                break;
            case 2:
                responders.push_back(bus->respond<LogData, LogData>(
                    channel, [](const LogData& question) { return question; }, run));
                break;
            case 3: {
                LogData answer;
                bus->request(channel, logOf("q"), answer, 5ms);
                break;
            }
            case 4:
                if (!subscriptions.empty()) {
                    subscriptions.pop_back();
                }
                break;
            case 5:
                for (auto& queue : queues) {
                    queue.next(1ms);
                }
                break;
            case 6:
                bus->dispatch();
                break;
            case 7:
                if (!responders.empty()) {
                    responders.back().cancel();
                    responders.pop_back();
                }
                break;
            default:
                bus->publish(channel, logOf("x"), 10ms);
            }
        }
    }

    std::atomic<int> calls{0};
};

TEST_F(ManyThreadsOnBus, KeepTheirPromisesWhileTheServerRestarts)
{
    connect();
    JoiningThreads threads;
    std::atomic<int> running{16};
    for (unsigned seed = 1; seed <= 16; ++seed) {
        threads.start([this, seed, &running] {
            act(seed);
            --running;
        });
    }
    while (running > 0) {
        stopServer();
        startServer();
        std::this_thread::sleep_for(20ms); // only varies what the threads meet; nothing depends on it
    }
    threads.join();
    EXPECT_EQ(bus->waitConnected(kTimeout), std::error_code());
    auto queue = bus->queue<LogData>();
    // The bus may not have noticed yet that the connection is lost.
    EXPECT_TRUE(eventually([&] {
        bus->publish(logOf("still works"));
        const auto item = queue.next(std::chrono::seconds(1));
        return item && item->log == "still works";
    }));
}

} // namespace

} // namespace Telvane::Testing
