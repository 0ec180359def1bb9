// The five kinds of process that a bus consists of. What may go wrong when others are killed is told by the
// results that are accepted here; anything else is a broken promise.

#include "WorkerRoles.h"

#include <Telvane/EventClientSynchronizer.h>
#include <Telvane/EventServer.h>
#include <Telvane/RequestType.h>
#include <Telvane/WeldRecords.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <map>
#include <unistd.h>

namespace Soak
{

using namespace Telvane;

Role roleNamed(const std::string& name)
{
    static const std::map<std::string, Role> roles = {
        {"server", &serve},       {"publisher", &publish}, {"subscriber", &listenToStream},
        {"requester", &request},  {"responder", &respond}, {"crowd", &crowd},
        {"visitors", &comeAndGo}, {"attacker", &attack},
    };
    const auto found = roles.find(name);
    if (found == roles.end()) {
        throw Failure("there is no role " + name);
    }
    return found->second;
}

std::string channelName(const std::string& prefix, std::size_t number)
{
    std::string name = prefix + "_";
    do {
        name += static_cast<char>('a' + number % 26);
        number /= 26;
    } while (number != 0);
    return name;
}

PersistentClient::PersistentClient(const RoleContext& context, std::function<bool(EventClient&)> prepare)
    : m_context(context), m_prepare(std::move(prepare))
{
    m_client.install_OnConnectionLost([this](EventClient& client) {
        client.Disconnect(); // which ends a publication that would be tried for ever
        m_lost = true;
    });
}

bool PersistentClient::connected()
{
    while (m_lost && !m_context.over()) {
        m_lost = false;
        if (m_client.Connect(m_context.socketPath) != 0) {
            m_lost = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        } else if (m_prepare(m_client)) {
            ++m_context.slot.joined;
        } else if (m_client.Disconnect() == 0) {
            m_lost = true;
        } // else the connection was lost meanwhile, and whoever told of it says so
    }
    return !m_context.over();
}

int serve(const RoleContext& context)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    EventServer server;
    const auto start = [&] {
        if (const int result = server.Start(context.socketPath); result != 0) {
            context.slot.reportViolation("Start() returned " + std::to_string(result));
        }
    };
    start();
    while (!context.over()) {
        const timespec moment = {0, 5'000'000};
        if (sigtimedwait(&signals, nullptr, &moment) == SIGHUP) {
            if (const int result = server.Stop(); result != 0) {
                context.slot.reportViolation("Stop() returned " + std::to_string(result));
            }
            start();
        }
        context.slot.operations = context.slot.operations + 1;
    }
    return server.Stop();
}

namespace
{

/// A record whose parts tell whether it is whole.
WeldTraceData numbered(int number, int publisher)
{
    WeldTraceData record;
    record.sequence = number;
    record.messageSerial = publisher;
    record.data.amps = number * 0.5;
    record.data.volts = number * 0.25;
    return record;
}

bool isWhole(const WeldTraceData& record)
{
    const WeldTraceData expected = numbered(record.sequence, record.messageSerial);
    return record.data.amps == expected.data.amps && record.data.volts == expected.data.volts;
}

void expectOneOf(const RoleContext& context, const char* operation, int result,
                 std::initializer_list<int> allowed)
{
    if (std::find(allowed.begin(), allowed.end(), result) == allowed.end()) {
        context.slot.reportViolation(std::string(operation) + " returned " + std::to_string(result));
    }
}

} // namespace

/// Arguments: the pause between publications in microseconds; "paced" to publish no more than allowed.
int publish(const RoleContext& context)
{
    const auto pause = std::chrono::microseconds(std::stoi(context.arguments.at(0)));
    const bool paced = context.arguments.size() > 1;
    PersistentClient client(context, [](EventClient&) { return true; });
    for (int number = 1; client.connected();) {
        if (paced && context.board.allowed < static_cast<std::uint64_t>(number)) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            continue;
        }
        WeldTraceData record = numbered(number, ::getpid());
        const int result = client->Publish("stream", record);
        expectOneOf(context, "Publish()", result, {0, -ENOTCONN});
        if (result == 0) {
            context.slot.last = static_cast<std::uint64_t>(number++);
            ++context.slot.operations;
        }
        std::this_thread::sleep_for(pause);
    }
    client->Disconnect();
    return 0;
}

int listenToStream(const RoleContext& context)
{
    int publisher = 0;
    int last = 0;
    PersistentClient client(context, [&](EventClient& connection) {
        const int result = connection.Subscribe(
            "stream",
            [&](void*, TelvaneDataTypeBase* record, int, void*) {
                const auto& received = dynamic_cast<WeldTraceData&>(*record);
                if (!isWhole(received)) {
                    context.slot.reportViolation("a record arrived in pieces: " + record->GetString());
                }
                if (received.messageSerial == publisher && received.sequence <= last) {
                    context.slot.reportViolation("record " + std::to_string(received.sequence) +
                                                 " came after " + std::to_string(last));
                }
                publisher = received.messageSerial;
                last = received.sequence;
                context.slot.last = static_cast<std::uint64_t>(last);
                ++context.slot.operations;
            },
            WeldTraceData(), nullptr);
        expectOneOf(context, "Subscribe()", result, {0, -ENOTCONN, -ETIMEDOUT});
        return result == 0;
    });
    while (client.connected()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    client->Disconnect();
    return 0;
}

/// Answers on its main thread: a callback that published while the server dies would hang, and with it the
/// receiver thread, which alone could tell of the loss.
int respond(const RoleContext& context)
{
    std::atomic<bool> asked{false};
    int number = 0;
    PersistentClient client(context, [&](EventClient& connection) {
        const int result = connection.Subscribe(
            "req_question", [&](void*, TelvaneDataTypeBase*, int, void*) { asked = true; }, RequestType(),
            nullptr);
        expectOneOf(context, "Subscribe()", result, {0, -ENOTCONN, -ETIMEDOUT});
        return result == 0;
    });
    while (client.connected()) {
        if (asked.exchange(false)) {
            WeldTraceData answer = numbered(++number, ::getpid());
            const int published = client->Publish("question", answer);
            expectOneOf(context, "Publish()", published, {0, -ENOTCONN});
            ++context.slot.answered;
        }
        ++context.slot.operations; // it cannot do more by itself than be there
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    client->Disconnect();
    return 0;
}

int request(const RoleContext& context)
{
    PersistentClient client(context, [](EventClient&) { return true; });
    EventClientSynchronizer synchronizer;
    for (bool synchronized = false; client.connected(); synchronized = !synchronized) {
        WeldTraceData answer;
        int result = 0;
        if (synchronized) {
            result = synchronizer.Request(*client, "question", answer, 1);
            // A publication that failed counts as done: that is how it is described.
            expectOneOf(context, "the synchronizer's Request()", result,
                        {0, ETIMEDOUT, -ETIMEDOUT, -ENOTCONN, -EINVAL});
        } else {
            result = client->Request("question", answer, 1);
            expectOneOf(context, "Request()", result, {0, -ETIMEDOUT, -ENOTCONN});
        }
        if (!isWhole(answer)) {
            context.slot.reportViolation("an answer arrived in pieces: " + answer.GetString());
        }
        if (result == 0 && answer.sequence > 0) {
            ++context.slot.answered;
        }
        ++context.slot.operations;
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    client->Disconnect();
    return 0;
}

} // namespace Soak
