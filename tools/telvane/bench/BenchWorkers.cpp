#include "bench/BenchWorkers.h"

#include "common/bus/BusConnection.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/Saturating.h"

#include <Telvane/EventServer.h>
#include <Telvane/RecordTable.h>

#include <algorithm>
#include <new>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

namespace TelvaneTool
{

/// A record class, as a power source's sample is.
class BenchRecord : public Telvane::TelvaneDataTypeBase
{
public:
    int publisher = 0;
    int number = 0;
    double sent = 0.0; ///< on the monotonic clock, which all processes share, in nanoseconds
    std::string fill;

    TELVANE_RECORD(BenchRecord, publisher, number, sent, fill)
};
TELVANE_DEFINE_RECORD(BenchRecord)

namespace
{

constexpr Nanoseconds kPollInterval = 20 * kMillisecond;
constexpr int kSubscriberBuffer = 8 * 1024 * 1024;

/// \return a record whose payload has about \p size bytes
BenchRecord makeRecord(int index, int size)
{
    constexpr int kSizeWithoutFill = 74;
    BenchRecord record;
    record.publisher = index;
    record.fill.assign(static_cast<std::size_t>(std::max(size - kSizeWithoutFill, 0)), 'x');
    return record;
}

bool awaitPhase(BusConnection& bus, const BenchBoard& board, BenchBoard::Phase phase)
{
    while (board.phase != phase) {
        if (!bus.sleepUntil(monotonicNow() + kPollInterval)) {
            return false;
        }
    }
    return true;
}

} // namespace

BenchBoard* BenchBoard::make()
{
    void* const memory =
        mmap(nullptr, sizeof(BenchBoard), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory != MAP_FAILED ? new (memory) BenchBoard() : nullptr;
}

std::uint64_t BenchBoard::published() const
{
    std::uint64_t sum = 0;
    for (const Publisher& publisher : publishers) {
        sum += publisher.published;
    }
    return sum;
}

std::uint64_t BenchBoard::received() const
{
    std::uint64_t sum = 0;
    for (const Subscriber& subscriber : subscribers) {
        sum += subscriber.received;
    }
    return sum;
}

int runBenchServer(const std::string& path)
{
    Telvane::EventServer server;
    server.SetSubscriberSendBuffer(kSubscriberBuffer);
    const FileDescriptor signals = openSignals();
    if (server.Start(path) != 0) {
        printError("cannot serve " + path);
        return kBusFailure;
    }
    pollfd watched = {signals.get(), POLLIN, 0};
    while (poll(&watched, 1, -1) < 0 || readSignal(signals.get()) == 0) {
    }
    server.Stop();
    return kSuccess;
}

int runBenchSubscriber(const BenchSettings& settings, BenchBoard& board, int index)
{
    BenchBoard::Subscriber& own = board.subscribers[static_cast<std::size_t>(index)];
    BusConnection bus(BusConnection::Output::Unused, BusConnection::Interruption::Aborts);
    int result = bus.connect(settings.path, settings.wait);
    if (result == kSuccess) {
        result = bus.subscribe(
            settings.channel, BenchRecord(), [&own](void*, Telvane::TelvaneDataTypeBase* record, int, void*) {
                const auto sent = static_cast<const BenchRecord&>(*record).sent;
                own.latencies.add(subtractSaturated(monotonicNow(), toSaturated<Nanoseconds>(sent)));
                ++own.received;
            });
    }
    if (result == kSuccess && !bus.stopping()) {
        discardOutput(STDERR_FILENO);
        own.ready = true;
        awaitPhase(bus, board, BenchBoard::Phase::Ending);
    }
    return bus.finish(result);
}

int runBenchPublisher(const BenchSettings& settings, BenchBoard& board, int index)
{
    BenchBoard::Publisher& own = board.publishers[static_cast<std::size_t>(index)];
    BusConnection bus(BusConnection::Output::Unused, BusConnection::Interruption::Aborts);
    const int result = bus.connect(settings.path, settings.wait);
    if (result == kSuccess) {
        discardOutput(STDERR_FILENO);
        own.ready = true;
        if (awaitPhase(bus, board, BenchBoard::Phase::Publishing)) {
            BenchRecord record = makeRecord(index, settings.size);
            const Nanoseconds begin = monotonicNow();
            const Nanoseconds end = begin + settings.duration;
            for (Nanoseconds now = begin; now < end && !bus.stopping(); now = monotonicNow()) {
                if (settings.rate > 0.0) {
                    const Nanoseconds due =
                        addSaturated(begin, toSaturated<Nanoseconds>(record.number / settings.rate *
                                                                     static_cast<double>(kSecond)));
                    if (due >= end || (due > now && !bus.sleepUntil(due))) {
                        bus.sleepUntil(end);
                        break;
                    }
                }
                record.sent = static_cast<double>(monotonicNow());
                if (!bus.publish(settings.channel, record)) {
                    break;
                }
                ++record.number;
                ++own.published;
            }
        }
        own.done = true;
    }
    return bus.finish(result);
}

} // namespace TelvaneTool
